#include <octree/las/ChunkDecoder.h>
#include <octree/las/LayerChannels.h>
#include <octree/las/LayerCodings.h>
#include <octree/las/LittleEndian.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace Las {

namespace {

/// Points whose contexts are kept while one layer after another is decoded.
constexpr std::size_t BLOCK = 512;

/// One layer of a chunk. A layer that is not stored repeats its first value.
template <class Coding>
class Layer {
public:
    using Value = typename Coding::Value;

    Layer(const char* name, std::uint8_t PointContext::*channel) : mName(name), mChannel(channel) {}

    void start(std::span<const std::byte> bytes, unsigned channel, const Value& first, bool keepsLast) {
        mFirst = first;
        mIsStored = !bytes.empty();
        if (!mIsStored) {
            return;
        }
        try {
            mDecoder.start(bytes);
        } catch (const DataError& error) {
            throw DataError(mName + ": " + error.what());
        }
        mChannels.start(channel, first, keepsLast);
    }

    /// Calls store(i, value) for the points from `begin` on.
    template <class Store>
    void next(std::span<const PointContext> points, std::size_t begin, const Store& store) {
        if (!mIsStored) {
            for (std::size_t i = 0; i < points.size(); ++i) {
                store(begin + i, mFirst);
            }
            return;
        }
        std::size_t i = 0;
        try {
            for (; i < points.size(); ++i) {
                const auto [models, last] = mChannels.select(points[i].*mChannel);
                models.next(mDecoder, points[i], last);
                store(begin + i, last);
            }
        } catch (const DataError& error) {
            throw ChunkDecoder::PointError(begin + i, mName + ": " + error.what());
        }
    }

private:
    std::string mName;
    std::uint8_t PointContext::*mChannel;
    bool mIsStored = false;
    Value mFirst{};
    ArithmeticDecoder mDecoder;
    LayerChannels<Coding> mChannels;
};

class LayeredDecoder final : public ChunkDecoder {
public:
    LayeredDecoder(const PointFormat& format, LayerVersion version, unsigned fields)
        : mFormat(format), mVersion(version), mFields(fields) {
        if (wants(Field::ExtraBytes)) {
            for (std::size_t i = 0; i < format.extraByteCount; ++i) {
                mExtraBytes.emplace_back("extra bytes", &PointContext::itemChannel);
            }
        }
    }

    void start(std::span<const std::byte> bytes, std::uint64_t pointCount) override;
    void next(const PointSink& sink, std::size_t count) override;
    std::size_t consumed() const override { return mConsumed; }

private:
    bool wants(Field field) const { return (mFields & static_cast<unsigned>(field)) != 0; }
    void nextBlock(const PointSink& sink, std::size_t begin, std::size_t count);
    void nextPointFields(const PointSink& sink, std::size_t begin, std::span<const PointContext> points);
    void nextItems(const PointSink& sink, std::size_t begin, std::span<const PointContext> points);

    PointFormat mFormat;
    LayerVersion mVersion;
    unsigned mFields;
    const std::byte* mFirst = nullptr;
    bool mAtFirst = false;
    std::size_t mConsumed = 0;
    std::array<PointContext, BLOCK> mPoints{};

    ReturnLayer mReturns;
    Layer<LayerCodings::Height> mHeights{"heights", &PointContext::channel};
    Layer<LayerCodings::Classification> mClassifications{"classifications", &PointContext::channel};
    Layer<LayerCodings::Flags> mFlags{"flags", &PointContext::channel};
    Layer<LayerCodings::Intensity> mIntensities{"intensities", &PointContext::channel};
    Layer<LayerCodings::ScanAngle> mScanAngles{"scan angles", &PointContext::channel};
    Layer<LayerCodings::UserData> mUserData{"user data", &PointContext::channel};
    Layer<LayerCodings::PointSourceId> mPointSourceIds{"point source ids", &PointContext::channel};
    Layer<LayerCodings::GpsTime> mTimes{"GPS times", &PointContext::channel};
    Layer<LayerCodings::Color> mColors{"colours", &PointContext::itemChannel};
    Layer<LayerCodings::NearInfrared> mNearInfrared{"near infrared", &PointContext::itemChannel};
    std::vector<Layer<LayerCodings::ExtraByte>> mExtraBytes;
};

/// The first record, a point count, the sizes of the layers, the layers.
void LayeredDecoder::start(std::span<const std::byte> bytes, std::uint64_t pointCount) {
    constexpr std::size_t POINT_LAYERS = 9;
    FieldReader reader(bytes, "the chunk");
    mFirst = reader.take(mFormat.recordLength).data();
    mAtFirst = true;
    reader.skip(sizeof(std::uint32_t));
    const std::size_t layerCount = POINT_LAYERS + (mFormat.hasColor ? 1U : 0U) +
                                   (mFormat.hasNearInfrared ? 1U : 0U) + mFormat.extraByteCount;
    FieldReader sizes(reader.take(layerCount * sizeof(std::uint32_t)), "the list of layers");
    const auto nextLayer = [&] { return reader.take(sizes.next<std::uint32_t>()); };

    const Point14 first = Point14::read(mFirst);
    const auto startLayer = [&](Field field, auto& layer, const auto& value) {
        const std::span<const std::byte> layerBytes = nextLayer();
        if (wants(field)) {
            layer.start(layerBytes, first.channel, value, false);
        }
    };
    const auto returnBytes = nextLayer();
    if (pointCount > 1) {
        mReturns.start(returnBytes, first, mVersion);
    }
    startLayer(Field::Position, mHeights, first.z);
    startLayer(Field::Classification, mClassifications, first.classification);
    startLayer(Field::Flags, mFlags, first.flags);
    startLayer(Field::Intensity, mIntensities, first.intensity);
    startLayer(Field::ScanAngle, mScanAngles, first.scanAngle);
    startLayer(Field::UserData, mUserData, first.userData);
    startLayer(Field::PointSourceId, mPointSourceIds, first.pointSourceId);
    startLayer(Field::GpsTime, mTimes, first.gpsTime);

    const std::byte* part = mFirst + Point14::SIZE;
    const bool keepsLast = mVersion == LayerVersion::Three;
    const auto startItem = [&](bool isWanted, auto& layer, const auto& value) {
        const std::span<const std::byte> layerBytes = nextLayer();
        if (isWanted) {
            layer.start(layerBytes, first.channel, value, keepsLast);
        }
        part += sizeof value;
    };
    if (mFormat.hasColor) {
        startItem(wants(Field::Color), mColors, readRgb(part));
    }
    if (mFormat.hasNearInfrared) {
        startItem(wants(Field::NearInfrared), mNearInfrared, loadAt<std::uint16_t>(part));
    }
    for (std::size_t i = 0; i < mFormat.extraByteCount; ++i) {
        const bool isWanted = wants(Field::ExtraBytes);
        const std::span<const std::byte> layerBytes = nextLayer();
        if (isWanted) {
            mExtraBytes[i].start(layerBytes, first.channel, loadAt<std::uint8_t>(part + i), keepsLast);
        }
    }
    mConsumed = reader.offset();
}

void LayeredDecoder::next(const PointSink& sink, std::size_t count) {
    std::size_t begin = 0;
    if (mAtFirst && count > 0) {
        storeRecord(mFormat, mFirst, sink, begin++);
        mAtFirst = false;
    }
    while (begin < count) {
        const std::size_t size = std::min(BLOCK, count - begin);
        nextBlock(sink, begin, size);
        begin += size;
    }
}

void LayeredDecoder::nextBlock(const PointSink& sink, std::size_t begin, std::size_t count) {
    std::size_t i = 0;
    try {
        for (; i < count; ++i) {
            mPoints[i] = mReturns.next(sink, begin + i);
        }
    } catch (const DataError& error) {
        throw PointError(begin + i, std::string("returns, x and y: ") + error.what());
    }
    const std::span<const PointContext> points(mPoints.data(), count);
    nextPointFields(sink, begin, points);
    nextItems(sink, begin, points);
}

void LayeredDecoder::nextPointFields(const PointSink& sink, std::size_t begin,
                                     std::span<const PointContext> points) {
    const auto nextColumn = [&](auto* column, auto& layer) {
        if (column != nullptr) {
            layer.next(points, begin, [&](std::size_t i, auto value) { column[i] = value; });
        }
    };
    nextColumn(sink.z, mHeights);
    nextColumn(sink.classification, mClassifications);
    if (sink.flags != nullptr) {
        mFlags.next(points, begin, [&](std::size_t i, std::uint8_t flags) {
            sink.flags[i] = static_cast<std::uint8_t>(flags | points[i - begin].channel << 6U);
        });
    }
    nextColumn(sink.intensity, mIntensities);
    nextColumn(sink.scanAngle, mScanAngles);
    nextColumn(sink.userData, mUserData);
    nextColumn(sink.pointSourceId, mPointSourceIds);
    if (sink.gpsTime != nullptr) {
        mTimes.next(points, begin, [&](std::size_t i, std::uint64_t bits) { storeGpsTime(bits, sink, i); });
    }
}

void LayeredDecoder::nextItems(const PointSink& sink, std::size_t begin,
                               std::span<const PointContext> points) {
    if (sink.red != nullptr) {
        mColors.next(points, begin, [&](std::size_t i, const Rgb& color) { storeRgb(color, sink, i); });
    }
    if (sink.nearInfrared != nullptr) {
        mNearInfrared.next(points, begin,
                           [&](std::size_t i, std::uint16_t value) { sink.nearInfrared[i] = value; });
    }
    if (sink.extraBytes != nullptr) {
        for (std::size_t byte = 0; byte < mExtraBytes.size(); ++byte) {
            mExtraBytes[byte].next(points, begin, [&](std::size_t i, std::uint8_t value) {
                sink.extraBytes[i * mFormat.extraByteCount + byte] = std::byte{value};
            });
        }
    }
}

}  // namespace

std::unique_ptr<ChunkDecoder> makeLayeredDecoder(const PointFormat& format, LayerVersion version,
                                                 unsigned fields) {
    return std::make_unique<LayeredDecoder>(format, version, fields);
}

}  // namespace Las
