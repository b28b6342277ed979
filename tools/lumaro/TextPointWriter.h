#pragma once

#include <tools/lumaro/PointWriter.h>

#include <ostream>

namespace Tool {

/// A line "X Y Z Red Green Blue Alpha" and then one for each point. Coordinates have as many digits as it
/// takes to read back the same double: those of the store's grid.
class TextPointWriter final : public PointWriter {
public:
    explicit TextPointWriter(std::ostream& stream);

    void write(const Render::QueryPoint* points, size_t count) override;
    void finish() override {}

private:
    std::ostream& mStream;
};

}  // namespace Tool
