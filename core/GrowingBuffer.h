#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

namespace Core {

/// Output memory of a decompressor: starts with what its input usually needs and doubles up to the limit as
/// output arrives, so that a hostile size costs nothing.
class GrowingBuffer {
public:
    /// A stop request is looked at after this much output.
    static constexpr std::size_t OUTPUT_STEP = std::size_t{4} << 20;

    GrowingBuffer(std::size_t limit, std::size_t inputSize)
        : mLimit(limit),
          mCapacity((std::min)(limit, FIRST_SIZE + EXPECTED_RATIO * inputSize)),
          mBytes(std::make_unique_for_overwrite<std::byte[]>(mCapacity)) {}

    /// Where to write next and how much; nothing more once the limit is reached.
    std::byte* next(std::size_t& available) {
        if (mUsed == mCapacity && mCapacity < mLimit) {
            const std::size_t capacity = mCapacity < mLimit / 2 ? 2 * mCapacity : mLimit;
            auto bigger = std::make_unique_for_overwrite<std::byte[]>(capacity);
            std::memcpy(bigger.get(), mBytes.get(), mUsed);
            mBytes = std::move(bigger);
            mCapacity = capacity;
        }
        available = (std::min)(OUTPUT_STEP, mCapacity - mUsed);
        return mBytes.get() + mUsed;
    }
    void wrote(std::size_t count) { mUsed += count; }
    std::size_t used() const { return mUsed; }
    std::unique_ptr<std::byte[]> take() { return std::move(mBytes); }

private:
    static constexpr std::size_t FIRST_SIZE = 65536;
    static constexpr std::size_t EXPECTED_RATIO = 32;

    std::size_t mLimit;
    std::size_t mCapacity;
    std::size_t mUsed = 0;
    std::unique_ptr<std::byte[]> mBytes;
};

}  // namespace Core
