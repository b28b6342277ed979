#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <stdexcept>
#include <stop_token>

namespace Entwine {

/// Of bytes that are not one sound frame; the text says what they are or do instead, as in "is cut short".
class FrameError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Decompresses one Zstandard frame that need not say how large its content is, and sets size to that. Memory
/// grows with the output and ends at limit; expectedSize only makes it faster. nullptr when stopped, which is
/// looked at after every few megabytes. Throws FrameError.
std::unique_ptr<std::byte[]> decompressFrame(std::span<const std::byte> frame, std::size_t expectedSize,
                                             std::size_t limit, std::size_t& size,
                                             const std::stop_token& stop);

}  // namespace Entwine
