#include <octree/las/CoordinateContexts.h>
#include <octree/las/ReturnLayer.h>
#include <octree/las/ReturnTables.h>

namespace Las {

namespace {

// The symbol that says what changed: two bits for the return number, then one each.
enum Change : unsigned {
    RETURN_NUMBER = 3,
    RETURN_COUNT = 4,
    SCAN_ANGLE = 8,
    GPS_TIME = 16,
    POINT_SOURCE_ID = 32,
    CHANNEL = 64
};

}  // namespace

void ReturnLayer::Models::start(Last& first) {
    first.timeChanged = false;
    for (SymbolModel<128>& model : changes) {
        model.reset();
    }
    channelStep.reset();
    returnCount.reset();
    returnNumber.reset();
    returnNumberOfSamePulse.reset();
    stepsX.fill(MedianOfFive());
    stepsY.fill(MedianOfFive());
    x.reset();
    y.reset();
}

unsigned ReturnLayer::Models::nextReturnNumber(ArithmeticDecoder& decoder, const Last& last,
                                               unsigned changeSymbol) {
    switch (changeSymbol & RETURN_NUMBER) {
        case 0:
            return last.returnNumber;
        case 1:
            return (last.returnNumber + 1) & 15U;
        case 2:
            return (last.returnNumber + 15) & 15U;
        default:
            return (changeSymbol & GPS_TIME) != 0
                       ? returnNumber.decode(decoder, last.returnNumber)
                       : (last.returnNumber + 2 + returnNumberOfSamePulse.decode(decoder)) & 15U;
    }
}

void ReturnLayer::start(std::span<const std::byte> bytes, const Point14& first, LayerVersion version) {
    mDecoder.start(bytes);
    mChannel = first.channel;
    mVersion = version;
    mChannels.start(mChannel, {first.x, first.y, first.returnNumber, first.returnCount, false}, false);
}

PointContext ReturnLayer::next(const PointSink& sink, std::size_t i) {
    const auto before = mChannels.select(mChannel);
    const Last& previous = before.last;
    const unsigned kindBefore = (previous.returnNumber == 1 ? 1U : 0U) |
                                (previous.returnNumber >= previous.returnCount ? 2U : 0U) |
                                (previous.timeChanged ? 4U : 0U);
    const unsigned changes = before.models.changes[kindBefore].decode(mDecoder);
    if ((changes & CHANNEL) != 0) {
        mChannel = (mChannel + 1 + before.models.channelStep.decode(mDecoder)) & 3U;
    }
    const auto [models, last] = mChannels.select(mChannel);

    const unsigned count = (changes & RETURN_COUNT) != 0
                               ? models.returnCount.decode(mDecoder, last.returnCount)
                               : last.returnCount;
    const unsigned number = models.nextReturnNumber(mDecoder, last, changes);
    last.returnCount = count;
    last.returnNumber = number;
    last.timeChanged = (changes & GPS_TIME) != 0;

    const bool isOnlyReturn = count == 1;
    const std::size_t steps = RETURN_MAP_14[count][number] * 2U + (last.timeChanged ? 1U : 0U);
    const std::int32_t stepX = models.x.decode(mDecoder, models.stepsX[steps].get(), isOnlyReturn ? 1 : 0);
    last.x = wrappedSum(last.x, stepX);
    models.stepsX[steps].add(stepX);
    const std::int32_t stepY =
        models.y.decode(mDecoder, models.stepsY[steps].get(),
                        coordinateContext(models.x.bitCount(), Y_CONTEXT_LIMIT, isOnlyReturn));
    last.y = wrappedSum(last.y, stepY);
    models.stepsY[steps].add(stepY);

    if (sink.x != nullptr) {
        sink.x[i] = last.x;
        sink.y[i] = last.y;
    }
    if (sink.returnNumber != nullptr) {
        sink.returnNumber[i] = static_cast<std::uint8_t>(number);
        sink.returnCount[i] = static_cast<std::uint8_t>(count);
    }
    // In version 3 the other items hear of a channel only where it changes, and take any other point for one
    // of channel 0.
    const bool isTold = mVersion != LayerVersion::Three || (changes & CHANNEL) != 0;
    const unsigned bits = (models.x.bitCount() + models.y.bitCount()) / 2;
    return {static_cast<std::uint8_t>(mChannel),
            static_cast<std::uint8_t>(isTold ? mChannel : 0),
            static_cast<std::uint8_t>((number == 1 ? 2U : 0U) | (number >= count ? 1U : 0U)),
            RETURN_LEVEL_14[count][number],
            static_cast<std::uint8_t>(coordinateContext(bits, Z_CONTEXT_LIMIT, isOnlyReturn)),
            last.timeChanged,
            (changes & SCAN_ANGLE) != 0,
            (changes & POINT_SOURCE_ID) != 0};
}

}  // namespace Las
