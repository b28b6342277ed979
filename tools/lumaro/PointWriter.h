#pragma once

#include <render/pointcloud/QueryPoint.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace Tool {

/// Writes points of absolute coordinates to a stream, which is the maker's and outlives it. Whether the
/// stream took everything is for the maker to look at.
class PointWriter {
public:
    PointWriter() = default;
    PointWriter(const PointWriter&) = delete;
    PointWriter& operator=(const PointWriter&) = delete;
    virtual ~PointWriter() = default;

    virtual void write(const Render::QueryPoint* points, size_t count) = 0;
    /// Once, after the last point; completes what the file's beginning says of its points.
    virtual void finish() = 0;
};

/// Appends the bytes of a number; every file format here is little-endian, as are the machines.
template <class T>
void append(std::string& bytes, T value) {
    const size_t size = bytes.size();
    bytes.resize(size + sizeof value);
    std::memcpy(bytes.data() + size, &value, sizeof value);
}

}  // namespace Tool
