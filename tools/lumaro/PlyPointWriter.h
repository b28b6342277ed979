#pragma once

#include <tools/lumaro/PointWriter.h>

#include <cstdint>
#include <ostream>

namespace Tool {

/// Binary little-endian PLY: x, y, z as doubles, red, green, blue, alpha, intensity and classification.
class PlyPointWriter final : public PointWriter {
public:
    explicit PlyPointWriter(std::ostream& stream);

    void write(const Render::QueryPoint* points, size_t count) override;
    void finish() override;

private:
    void writeHeader();

    std::ostream& mStream;
    uint64_t mCount = 0;
};

}  // namespace Tool
