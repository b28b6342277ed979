#pragma once

#include <cstddef>
#include <string>

namespace Core {

/**
 * Decodes one complete Brotli stream. Throws std::runtime_error when it is corrupt, ends too early or is
 * followed by further bytes. Memory grows with the output as it arrives; for data from outside give a limit.
 */
std::string brotliDecode(const std::string& encoded);

/// The same, and throws std::runtime_error as soon as the output would exceed maxDecodedSize bytes.
std::string brotliDecode(const std::string& encoded, size_t maxDecodedSize);

}  // namespace Core
