#include <octree/las/SymbolModel.h>

#include <algorithm>

namespace Las {

void UpdateSchedule::update(std::uint16_t* counts, unsigned symbols) {
    constexpr std::uint32_t MAX_TOTAL = 1U << 15;
    total += cycle;
    if (total > MAX_TOTAL) {
        total = 0;
        for (unsigned k = 0; k < symbols; ++k) {
            counts[k] = static_cast<std::uint16_t>((counts[k] + 1U) >> 1);
            total += counts[k];
        }
    }
    cycle = std::min((5 * cycle) >> 2, (symbols + 6) << 3);
    untilUpdate = cycle;
}

void BitModel::update() {
    constexpr std::uint32_t MAX_TOTAL = 1U << LENGTH_BITS;
    mTotal += mCycle;
    if (mTotal > MAX_TOTAL) {
        mTotal = (mTotal + 1) >> 1;
        mZeros = (mZeros + 1) >> 1;
        if (mZeros == mTotal) {
            ++mTotal;
        }
    }
    mZeroSteps = (mZeros * (0x80000000U / mTotal)) >> (31 - LENGTH_BITS);
    mCycle = std::min((5 * mCycle) >> 2, 64U);
    mUntilUpdate = mCycle;
}

}  // namespace Las
