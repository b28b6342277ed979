#pragma once

#include <octree/las/IntegerDecoder.h>

#include <array>
#include <cstdint>

namespace Las {

/// GPS times (LAZ specification, GPSTIME11 version 2; LASzip for LAS 1.4, GPS time layer). The double's bits
/// count as an integer that grows by about the same step from pulse to pulse: a symbol says which multiple of
/// the last step is close, and the rest is coded as an integer. Four sequences are remembered, because files
/// merged from several flight lines jump between them.
class GpsTimeDecoder {
public:
    /// Items of version 2 have symbols for "unchanged"; in the layer another one has said so before.
    enum class Kind { Item, Layer };

    void start(Kind kind, std::uint64_t first);
    /// The next time's bits.
    std::uint64_t next(ArithmeticDecoder& decoder);

private:
    struct Sequence {
        std::uint64_t time = 0;
        std::int32_t step = 0;
        /// Differences in a row that no multiple of the step came close to.
        unsigned strays = 0;
    };
    /// Contexts of the integers.
    enum Context : unsigned {
        FIRST_STEP,
        ONE_STEP,
        FEW_STEPS,
        MANY_STEPS,
        MOST_STEPS,
        FEW_BACK,
        MOST_BACK,
        NO_STEP,
        UPPER_HALF,
        CONTEXTS
    };

    bool nextWithoutStep(ArithmeticDecoder& decoder);
    bool nextWithStep(ArithmeticDecoder& decoder);
    void advanceBySteps(ArithmeticDecoder& decoder, unsigned symbol);
    bool switchOrRestart(ArithmeticDecoder& decoder, unsigned symbol);

    std::array<Sequence, 4> mSequences;
    unsigned mCurrent = 0, mNewest = 0;
    Kind mKind = Kind::Item;
    SymbolModel<6> mFirstStep;
    SymbolModel<516> mMultiple;
    IntegerDecoder<32, CONTEXTS> mIntegers;
};

}  // namespace Las
