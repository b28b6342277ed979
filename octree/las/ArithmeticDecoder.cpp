#include <octree/las/ArithmeticDecoder.h>
#include <octree/las/DataError.h>

namespace Las {

void ArithmeticDecoder::start(std::span<const std::byte> bytes) {
    mBegin = mNext = bytes.data();
    mEnd = mBegin + bytes.size();
    if (bytes.size() < FIRST_BYTES) {
        failAtEnd();
    }
    mValue = 0;
    for (std::size_t i = 0; i < FIRST_BYTES; ++i) {
        mValue = mValue << 8 | std::to_integer<std::uint32_t>(*mNext++);
    }
    mLength = 0xFFFFFFFF;
    if (mValue == mLength) {
        failOutside();
    }
}

void ArithmeticDecoder::failAtEnd() {
    throw DataError("the compressed bytes end early");
}

void ArithmeticDecoder::failOutside() {
    throw DataError("the compressed bytes are damaged");
}

}  // namespace Las
