#pragma once

#include <octree/las/ArithmeticDecoder.h>

#include <array>
#include <bit>
#include <cstdint>
#include <type_traits>

namespace Las {

/// When an adaptive model recomputes its probabilities: rarely at first, ever more rarely later.
struct UpdateSchedule {
    std::uint32_t untilUpdate = 0, cycle = 0, total = 0;

    void start(unsigned symbols) {
        total = symbols;
        untilUpdate = cycle = (symbols + 6) >> 1;
    }
    /// Adds the symbols counted since the last update to the total; halves the counts once they are many.
    void update(std::uint16_t* counts, unsigned symbols);
};

/// Probabilities of up to CAPACITY symbols, which follow the symbols seen (LAZ specification, section on
/// symbol models). The interval is cut into 2^15 steps; symbol k owns those from starts[k] to starts[k + 1].
/// A lookup table says for each slice of the interval which symbol it begins in.
template <unsigned CAPACITY>
class SymbolModel {
    static_assert(CAPACITY >= 2 && CAPACITY <= 1024, "slices of at least 32 steps");

public:
    void reset(unsigned symbols = CAPACITY) {
        mSymbols = symbols;
        mShift = LENGTH_BITS - sliceBits(symbols);
        mCounts.fill(1);
        mSchedule.start(symbols);
        rebuild();
    }

    unsigned decode(ArithmeticDecoder& decoder) {
        const ArithmeticDecoder::Place place = decoder.locate(LENGTH_BITS);
        unsigned symbol = mFirstOfSlice[place.index >> mShift];
        while (mStarts[symbol + 1] <= place.index) {
            ++symbol;
        }
        const std::uint32_t high =
            symbol + 1 == mSymbols ? decoder.length() : mStarts[symbol + 1] * place.step;
        decoder.narrow(mStarts[symbol] * place.step, high);
        ++mCounts[symbol];
        if (--mSchedule.untilUpdate == 0) {
            mSchedule.update(mCounts.data(), mSymbols);
            rebuild();
        }
        return symbol;
    }

private:
    using Index = std::conditional_t<CAPACITY <= 256, std::uint8_t, std::uint16_t>;
    static constexpr unsigned LENGTH_BITS = 15;
    /// Above every index that locate() gives: a step is at least 2^9 long and the rest shorter than 2^15, so
    /// that indices end below 2^15 + 64.
    static constexpr std::uint16_t BEYOND = 0xFFFF;
    static constexpr unsigned SLICES_OF_REST = 2;

    static constexpr unsigned sliceBits(unsigned symbols) {
        return static_cast<unsigned>(std::bit_width(symbols - 1));
    }

    void rebuild() {
        const std::uint32_t scale = 0x80000000U / mSchedule.total;
        std::uint32_t sum = 0;
        unsigned slice = 0;
        for (unsigned k = 0; k < mSymbols; ++k) {
            mStarts[k] = static_cast<std::uint16_t>((scale * sum) >> (31 - LENGTH_BITS));
            sum += mCounts[k];
            // Slices that begin below this start begin in the symbol before.
            for (; slice << mShift < mStarts[k]; ++slice) {
                mFirstOfSlice[slice] = static_cast<Index>(k - 1);
            }
        }
        for (; slice < ((1U << LENGTH_BITS) >> mShift) + SLICES_OF_REST; ++slice) {
            mFirstOfSlice[slice] = static_cast<Index>(mSymbols - 1);
        }
        mStarts[mSymbols] = BEYOND;
    }

    UpdateSchedule mSchedule;
    unsigned mSymbols = CAPACITY;
    unsigned mShift = LENGTH_BITS;
    std::array<std::uint16_t, CAPACITY + 1> mStarts;
    std::array<std::uint16_t, CAPACITY> mCounts;
    std::array<Index, (std::size_t{1} << sliceBits(CAPACITY)) + SLICES_OF_REST> mFirstOfSlice;
};

/// The probability of a bit, with 2^13 steps.
class BitModel {
public:
    void reset() { *this = BitModel(); }

    unsigned decode(ArithmeticDecoder& decoder) {
        const std::uint32_t middle = (decoder.length() >> LENGTH_BITS) * mZeroSteps;
        const bool isOne = decoder.value() >= middle;
        if (isOne) {
            decoder.narrow(middle, decoder.length());
        } else {
            decoder.narrow(0, middle);
            ++mZeros;
        }
        if (--mUntilUpdate == 0) {
            update();
        }
        return isOne ? 1 : 0;
    }

private:
    static constexpr unsigned LENGTH_BITS = 13;

    void update();

    std::uint32_t mZeroSteps = 1U << (LENGTH_BITS - 1);
    std::uint32_t mZeros = 1, mTotal = 2;
    std::uint32_t mCycle = 4, mUntilUpdate = 4;
};

}  // namespace Las
