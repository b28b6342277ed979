#pragma once

#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <utility>
#include <vector>

namespace Tool {

/// Integer generator (splitmix64) whose sequence is the same on every platform and standard library.
class Random {
public:
    explicit Random(uint64_t seed) : mState(seed) {}

    uint64_t next() {
        mState += 0x9e3779b97f4a7c15U;
        uint64_t z = mState;
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31U);
    }

    /// In [0, 1), a multiple of 2^-53.
    double uniform() { return static_cast<double>(next() >> 11U) * 0x1p-53; }
    double uniform(double low, double high) { return low + (high - low) * uniform(); }

    /// Bell-shaped around 0 and never farther from it than `halfWidth`.
    double spread(double halfWidth) {
        double sum = uniform();
        sum += uniform();
        sum += uniform();
        return halfWidth * (sum / 1.5 - 1.0);
    }

    /// In [0, count); `count` is at least 1.
    uint64_t below(uint64_t count) { return next() % count; }

    /// A stop leaves it half done.
    template <class T>
    void shuffle(std::vector<T>& values, const std::stop_token& stop) {
        constexpr size_t STEP = 1 << 16;  // Swaps between two looks at the token.
        for (size_t i = values.size(); i > 1; --i) {
            if (i % STEP == 0 && stop.stop_requested()) {
                return;
            }
            std::swap(values[i - 1], values[static_cast<size_t>(below(i))]);
        }
    }

private:
    uint64_t mState;
};

}  // namespace Tool
