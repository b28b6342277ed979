#pragma once

#include <octree/las/IntegerDecoder.h>
#include <octree/las/LayerChannels.h>
#include <octree/las/LazItems.h>
#include <octree/las/MedianOfFive.h>
#include <octree/las/ModelTable.h>
#include <octree/las/PointFormat.h>

#include <array>
#include <cstdint>
#include <span>

namespace Las {

/// What the first layer says of a point and the others depend on.
struct PointContext {
    std::uint8_t channel;
    /// The channel as the items after the point see it.
    std::uint8_t itemChannel;
    /// Two bits: last return, first return.
    std::uint8_t returnKind;
    std::uint8_t returnLevel;
    std::uint8_t heightContext;
    bool timeChanged, angleChanged, sourceChanged;
};

/// The first layer of a chunk (LASzip for LAS 1.4, "scanner channel, point source ID change, GPS time change,
/// scan angle change, return counts, and XY layer"), which all others need.
class ReturnLayer {
public:
    /// With the first point of the chunk, which is stored raw.
    void start(std::span<const std::byte> bytes, const Point14& first, LayerVersion version);
    /// The context of the next point; its x, y and returns go to the sink's place i.
    PointContext next(const PointSink& sink, std::size_t i);

private:
    /// Of the last point of a channel.
    struct Last {
        std::int32_t x = 0, y = 0;
        unsigned returnNumber = 0, returnCount = 0;
        bool timeChanged = false;
    };

    struct Models {
        using Value = Last;
        void start(Last& first);
        unsigned nextReturnNumber(ArithmeticDecoder& decoder, const Last& last, unsigned changes);

        /// By the kind of the last return and whether its time changed.
        std::array<SymbolModel<128>, 8> changes;
        SymbolModel<3> channelStep;
        ModelTable<16, 16> returnCount, returnNumber;
        SymbolModel<13> returnNumberOfSamePulse;
        /// By return map and whether the time changed.
        std::array<MedianOfFive, 12> stepsX, stepsY;
        IntegerDecoder<32, 2> x;
        IntegerDecoder<32, 22> y;
    };

    ArithmeticDecoder mDecoder;
    LayerChannels<Models> mChannels;
    unsigned mChannel = 0;
    LayerVersion mVersion = LayerVersion::Three;
};

}  // namespace Las
