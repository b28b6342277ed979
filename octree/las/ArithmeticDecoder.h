#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Las {

/// The range decoder under every LAZ item (LAZ specification, section on entropy coding: 32-bit interval,
/// output byte by byte). A value lies in an interval of some length; models cut the interval into steps, find
/// the step the value is in, and keep the part of the interval that belongs to their symbol. The value stays
/// below the length; start() refuses the one input where it would not.
class ArithmeticDecoder {
public:
    /// Where the value lies when the interval is cut into 2^shift steps; the steps may leave a rest at the
    /// end, so that index can exceed 2^shift a little.
    struct Place {
        std::uint32_t step, index;
    };

    static constexpr std::size_t FIRST_BYTES = 4;

    /// The bytes must outlive the decoding. Throws DataError when they are too few to begin with.
    void start(std::span<const std::byte> bytes);
    /// How many bytes start() and all symbols since have taken.
    std::size_t consumed() const { return static_cast<std::size_t>(mNext - mBegin); }

    Place locate(unsigned shift) const {
        const std::uint32_t step = mLength >> shift;
        return {step, mValue / step};
    }
    std::uint32_t length() const { return mLength; }
    std::uint32_t value() const { return mValue; }
    /// Keeps [low, high) of the interval. Throws DataError when the bytes are at their end.
    void narrow(std::uint32_t low, std::uint32_t high) {
        mValue -= low;
        mLength = high - low;
        while (mLength < MIN_LENGTH) {
            if (mNext == mEnd) {
                failAtEnd();
            }
            mValue = mValue << 8 | std::to_integer<std::uint32_t>(*mNext++);
            mLength <<= 8;
        }
    }

    /// Bits that were written as they are, 1 to 32 of them.
    std::uint32_t rawBits(unsigned count) {
        if (count > MAX_RAW_BITS) {
            const std::uint32_t low = rawBits(16);
            return low | rawBits(count - 16) << 16;
        }
        const Place place = locate(count);
        if (place.index >> count != 0) {
            failOutside();
        }
        narrow(place.index * place.step, (place.index + 1) * place.step);
        return place.index;
    }

private:
    static constexpr std::uint32_t MIN_LENGTH = std::uint32_t{1} << 24;
    static constexpr unsigned MAX_RAW_BITS = 19;

    [[noreturn]] static void failAtEnd();
    [[noreturn]] static void failOutside();

    std::uint32_t mValue = 0;
    std::uint32_t mLength = 0xFFFFFFFF;
    const std::byte* mNext = nullptr;
    const std::byte* mEnd = nullptr;
    const std::byte* mBegin = nullptr;
};

}  // namespace Las
