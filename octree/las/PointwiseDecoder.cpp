#include <octree/las/ChunkDecoder.h>
#include <octree/las/ExtraByteDecoder.h>
#include <octree/las/GpsTimeDecoder.h>
#include <octree/las/LittleEndian.h>
#include <octree/las/PointDecoder.h>

namespace Las {

namespace {

class PointwiseDecoder final : public ChunkDecoder {
public:
    explicit PointwiseDecoder(const PointFormat& format) : mFormat(format) {}

    void start(std::span<const std::byte> bytes, std::uint64_t pointCount) override;
    void next(const PointSink& sink, std::size_t count) override;
    std::size_t consumed() const override { return mFormat.recordLength + mDecoder.consumed(); }

private:
    void nextPoint(const PointSink& sink, std::size_t i);

    PointFormat mFormat;
    const std::byte* mFirst = nullptr;
    bool mAtFirst = false;
    ArithmeticDecoder mDecoder;
    PointDecoder mPoints;
    GpsTimeDecoder mTimes;
    ColorDecoder mColors;
    Rgb mColor{};
    ExtraByteDecoder mExtraBytes;
};

void PointwiseDecoder::start(std::span<const std::byte> bytes, std::uint64_t pointCount) {
    FieldReader reader(bytes, "the chunk");
    mFirst = reader.take(mFormat.recordLength).data();
    mAtFirst = true;

    const std::byte* part = mFirst;
    mPoints.start(Point10::read(part));
    part += Point10::SIZE;
    if (mFormat.hasGpsTime) {
        mTimes.start(GpsTimeDecoder::Kind::Item, loadAt<std::uint64_t>(part));
        part += sizeof(std::uint64_t);
    }
    if (mFormat.hasColor) {
        mColors.reset();
        mColor = readRgb(part);
        part += sizeof(Rgb);
    }
    mExtraBytes.start({part, mFormat.extraByteCount});
    const auto rest = bytes.subspan(mFormat.recordLength);
    mDecoder = ArithmeticDecoder();
    // Nothing need follow an only point; encoders end it with a stream all the same.
    if (pointCount > 1 || rest.size() >= ArithmeticDecoder::FIRST_BYTES) {
        mDecoder.start(rest);
    }
}

void PointwiseDecoder::next(const PointSink& sink, std::size_t count) {
    std::size_t i = 0;
    if (mAtFirst && count > 0) {
        storeRecord(mFormat, mFirst, sink, i++);
        mAtFirst = false;
    }
    try {
        for (; i < count; ++i) {
            nextPoint(sink, i);
        }
    } catch (const DataError& error) {
        throw PointError(i, error.what());
    }
}

void PointwiseDecoder::nextPoint(const PointSink& sink, std::size_t i) {
    mPoints.next(mDecoder).store(sink, i);
    if (mFormat.hasGpsTime) {
        storeGpsTime(mTimes.next(mDecoder), sink, i);
    }
    if (mFormat.hasColor) {
        mColors.next(mDecoder, mColor);
        storeRgb(mColor, sink, i);
    }
    if (mFormat.extraByteCount > 0) {
        const std::span<const std::byte> bytes = mExtraBytes.next(mDecoder);
        if (sink.extraBytes != nullptr) {
            std::copy(bytes.begin(), bytes.end(), sink.extraBytes + i * bytes.size());
        }
    }
}

}  // namespace

std::unique_ptr<ChunkDecoder> makePointwiseDecoder(const PointFormat& format) {
    return std::make_unique<PointwiseDecoder>(format);
}

}  // namespace Las
