#pragma once

#include <octree/las/SymbolModel.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace Las {

/// Integers of BITS bits as differences from a prediction (LAZ specification, section on integer
/// compression). First comes the number k of bits of the difference, with probabilities that depend on the
/// context; the difference is 0 or 1 for k = 0, else one of the 2^k values from -(2^k - 1) to -2^(k-1) and
/// from 2^(k-1) + 1 to 2^k. Of these k bits the upper eight are modelled and the others raw. Arithmetic wraps
/// around at BITS.
template <unsigned BITS, unsigned CONTEXTS>
class IntegerDecoder {
    static_assert(CONTEXTS <= 32 && (BITS == 16 || BITS == 32));

public:
    void reset() {
        mReadyContexts = mReadyCorrectors = 0;
        mBit.reset();
    }

    /// For BITS = 16 the result is from 0 to 65535.
    std::int32_t decode(ArithmeticDecoder& decoder, std::int32_t prediction, unsigned context = 0) {
        const std::uint32_t sum = static_cast<std::uint32_t>(prediction) + difference(decoder, context);
        return static_cast<std::int32_t>(BITS < 32 ? sum & ((std::uint64_t{1} << BITS) - 1) : sum);
    }
    /// The number of bits of the last difference.
    unsigned bitCount() const { return mBitCount; }

private:
    static constexpr unsigned MODELLED_BITS = 8;
    static constexpr unsigned CORRECTORS = std::min(BITS, 31U);

    std::uint32_t difference(ArithmeticDecoder& decoder, unsigned context) {
        if ((mReadyContexts >> context & 1) == 0) {
            mBitCounts[context].reset();
            mReadyContexts |= 1U << context;
        }
        const unsigned k = mBitCount = mBitCounts[context].decode(decoder);
        if (k == 0) {
            return mBit.decode(decoder);
        }
        if (k == 32) {
            return 0x80000000U;
        }
        if ((mReadyCorrectors >> k & 1) == 0) {
            mCorrectors[k - 1].reset(1U << std::min(k, MODELLED_BITS));
            mReadyCorrectors |= 1U << k;
        }
        std::uint32_t position = mCorrectors[k - 1].decode(decoder);
        if (k > MODELLED_BITS) {
            const unsigned rawBits = k - MODELLED_BITS;
            position = position << rawBits | decoder.rawBits(rawBits);
        }
        return position >> (k - 1) != 0 ? position + 1 : position - ((1U << k) - 1);
    }

    unsigned mBitCount = 0;
    /// Bits of the models that are in use since the reset; many never are.
    std::uint32_t mReadyContexts = 0, mReadyCorrectors = 0;
    std::array<SymbolModel<BITS + 1>, CONTEXTS> mBitCounts;
    BitModel mBit;
    std::array<SymbolModel<1U << MODELLED_BITS>, CORRECTORS> mCorrectors;
};

}  // namespace Las
