#include <octree/las/ChunkDecoder.h>
#include <octree/las/DataError.h>

namespace Las {

namespace {

class RecordDecoder final : public ChunkDecoder {
public:
    explicit RecordDecoder(const PointFormat& format) : mFormat(format) {}

    void start(std::span<const std::byte> bytes, std::uint64_t pointCount) override {
        if (bytes.size() / mFormat.recordLength < pointCount) {
            throw DataError("its records end early");
        }
        mBytes = bytes;
        mOffset = 0;
    }

    void next(const PointSink& sink, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i) {
            storeRecord(mFormat, mBytes.data() + mOffset, sink, i);
            mOffset += mFormat.recordLength;
        }
    }

    std::size_t consumed() const override { return mOffset; }

private:
    PointFormat mFormat;
    std::span<const std::byte> mBytes;
    std::size_t mOffset = 0;
};

}  // namespace

std::unique_ptr<ChunkDecoder> makeRecordDecoder(const PointFormat& format) {
    return std::make_unique<RecordDecoder>(format);
}

}  // namespace Las
