#include <core/Brotli.h>
#include <core/GrowingBuffer.h>

#include <brotli/decode.h>

#include <cstdint>
#include <limits>
#include <new>

namespace Core {

namespace {

struct DecoderDeleter {
    void operator()(BrotliDecoderState* decoder) const { BrotliDecoderDestroyInstance(decoder); }
};

[[noreturn]] void failDamaged(const BrotliDecoderState* decoder) {
    throw BrotliError(std::string("is damaged: ") +
                      BrotliDecoderErrorString(BrotliDecoderGetErrorCode(decoder)));
}

}  // namespace

std::unique_ptr<std::byte[]> brotliDecode(std::string_view encoded, size_t maxDecodedSize,
                                          size_t& decodedSize, const std::stop_token& stop) {
    const std::unique_ptr<BrotliDecoderState, DecoderDeleter> decoder(
        BrotliDecoderCreateInstance(nullptr, nullptr, nullptr));
    if (decoder == nullptr) {
        throw std::bad_alloc();
    }
    GrowingBuffer output(maxDecodedSize, encoded.size());
    size_t inputLeft = encoded.size();
    const auto* input = reinterpret_cast<const uint8_t*>(encoded.data());
    for (;;) {
        size_t available = 0;
        auto* next = reinterpret_cast<uint8_t*>(output.next(available));
        const size_t offered = available;
        const BrotliDecoderResult result =
            BrotliDecoderDecompressStream(decoder.get(), &inputLeft, &input, &available, &next, nullptr);
        output.wrote(offered - available);
        switch (result) {
            case BROTLI_DECODER_RESULT_ERROR:
                failDamaged(decoder.get());
            case BROTLI_DECODER_RESULT_NEEDS_MORE_INPUT:
                throw BrotliError("is cut short after " + std::to_string(output.used()) +
                                  " decompressed bytes");
            case BROTLI_DECODER_RESULT_SUCCESS:
                if (inputLeft != 0) {
                    throw BrotliError("ends " + std::to_string(inputLeft) + " bytes before its end");
                }
                decodedSize = output.used();
                return output.take();
            case BROTLI_DECODER_RESULT_NEEDS_MORE_OUTPUT:
                break;
        }
        if (output.used() == maxDecodedSize) {
            throw BrotliError("decompresses to more than " + std::to_string(maxDecodedSize) + " bytes");
        }
        if (stop.stop_requested()) {
            return nullptr;
        }
    }
}

std::string brotliDecode(const std::string& encoded, size_t maxDecodedSize) {
    try {
        size_t size = 0;
        const std::unique_ptr<std::byte[]> bytes =
            brotliDecode(std::string_view(encoded), maxDecodedSize, size, std::stop_token());
        return {reinterpret_cast<const char*>(bytes.get()), size};
    } catch (const BrotliError& error) {
        throw std::runtime_error(std::string("Brotli data ") + error.what());
    }
}

std::string brotliDecode(const std::string& encoded) {
    return brotliDecode(encoded, std::numeric_limits<size_t>::max());
}

}  // namespace Core
