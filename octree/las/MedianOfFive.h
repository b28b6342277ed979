#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

namespace Las {

/// The middle of five recent values, as LAZ predicts coordinates with. Not those seen last: a new value
/// pushes out the largest or the smallest, and which of the two changes when a value falls on the other side
/// of the middle.
class MedianOfFive {
public:
    void reset() { *this = MedianOfFive(); }
    std::int32_t get() const { return mSorted[2]; }

    void add(std::int32_t value) {
        // Four stay, from `first` on; the value goes in among them.
        const std::size_t first = mDropsLargest ? 0 : 1;
        mDropsLargest = mDropsLargest ? value < mSorted[2] : value <= mSorted[2];
        const std::array<std::int32_t, 4> kept{mSorted[first], mSorted[first + 1], mSorted[first + 2],
                                               mSorted[first + 3]};
        mSorted[0] = std::min(value, kept[0]);
        for (std::size_t i = 1; i < 4; ++i) {
            mSorted[i] = std::min(std::max(value, kept[i - 1]), kept[i]);
        }
        mSorted[4] = std::max(value, kept[3]);
    }

private:
    std::array<std::int32_t, 5> mSorted{};
    bool mDropsLargest = true;
};

}  // namespace Las
