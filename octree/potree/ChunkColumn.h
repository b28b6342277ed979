#pragma once

#include <cstddef>
#include <cstring>

namespace PoTree {

/// One attribute's values in a chunk: one column among others, or a part of each record. Values need no
/// alignment.
struct ChunkColumn {
    template <class T>
    T valueAt(std::size_t index) const {
        T value;
        std::memcpy(&value, first + index * stride, sizeof value);
        return value;
    }

    /// The same column without its first values.
    ChunkColumn from(std::size_t index) const { return {first + index * stride, stride, valueSize}; }

    const std::byte* first = nullptr;
    /// Bytes from one point's value to the next one's.
    std::size_t stride = 0;
    std::size_t valueSize = 0;
};

}  // namespace PoTree
