#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>

namespace Core {

/// Of bytes that are not one sound Brotli stream; the text says what they are or do instead, as in "is cut
/// short after 5 bytes".
class BrotliError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * Decodes one complete Brotli stream. Throws std::runtime_error when it is corrupt, ends too early or is
 * followed by further bytes. Memory grows with the output as it arrives; for data from outside give a limit.
 */
std::string brotliDecode(const std::string& encoded);

/// The same, and throws std::runtime_error as soon as the output would exceed maxDecodedSize bytes.
std::string brotliDecode(const std::string& encoded, size_t maxDecodedSize);

/// The same, without filling memory before; sets decodedSize. nullptr when stopped, which is looked at after
/// every few megabytes. Throws BrotliError.
std::unique_ptr<std::byte[]> brotliDecode(std::string_view encoded, size_t maxDecodedSize,
                                          size_t& decodedSize, const std::stop_token& stop);

}  // namespace Core
