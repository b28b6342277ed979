#include <core/Brotli.h>

#include <brotli/decode.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>

namespace Core {

std::string brotliDecode(const std::string& encoded) {
    return brotliDecode(encoded, std::numeric_limits<size_t>::max());
}

std::string brotliDecode(const std::string& encoded, size_t maxDecodedSize) {
    // Points compress to about a third; a better guess only saves copies.
    constexpr size_t EXPECTED_RATIO = 4;

    const std::unique_ptr<BrotliDecoderState, decltype(&BrotliDecoderDestroyInstance)> decoder(
        BrotliDecoderCreateInstance(nullptr, nullptr, nullptr), &BrotliDecoderDestroyInstance);
    if (!decoder) {
        throw std::bad_alloc();
    }
    std::string decoded;
    decoded.reserve(std::min(encoded.size() * EXPECTED_RATIO, maxDecodedSize));

    size_t inputLeft = encoded.size();
    const auto* input = reinterpret_cast<const uint8_t*>(encoded.data());
    for (;;) {
        size_t noDirectOutput = 0;
        const BrotliDecoderResult result = BrotliDecoderDecompressStream(decoder.get(), &inputLeft, &input,
                                                                         &noDirectOutput, nullptr, nullptr);
        if (result == BROTLI_DECODER_RESULT_ERROR) {
            throw std::runtime_error("Brotli data is corrupt");
        }
        while (BrotliDecoderHasMoreOutput(decoder.get()) != BROTLI_FALSE) {
            size_t size = 0;
            const uint8_t* output = BrotliDecoderTakeOutput(decoder.get(), &size);
            if (size > maxDecodedSize - decoded.size()) {
                throw std::runtime_error("Brotli data decodes to more than " +
                                         std::to_string(maxDecodedSize) + " bytes");
            }
            decoded.append(reinterpret_cast<const char*>(output), size);
        }
        if (result == BROTLI_DECODER_RESULT_NEEDS_MORE_INPUT) {
            throw std::runtime_error("Brotli data ends too early");
        }
        if (result == BROTLI_DECODER_RESULT_SUCCESS) {
            if (inputLeft != 0) {
                throw std::runtime_error("Brotli data is followed by " + std::to_string(inputLeft) +
                                         " bytes");
            }
            return decoded;
        }
    }
}

}  // namespace Core
