#pragma once

#include <math/NBoundingBox.h>
#include <octree/PositionGrid.h>
#include <tools/lumaro/PointWriter.h>

#include <array>
#include <cstdint>
#include <ostream>

namespace Tool {

enum class LasVersion { OneTwo, OneFour };

/// LAS 1.2 with point format 2 or LAS 1.4 with point format 7. Coordinates are steps of a grid; a point
/// that does not lie on it goes to the nearest place that does. Colours fill 16 bits; what a store's points
/// do not have of the format's fields (returns, times, angles) is first of one, or 0.
class LasPointWriter final : public PointWriter {
public:
    LasPointWriter(std::ostream& stream, LasVersion version, const Octree::PositionGrid& grid);

    /// Throws std::runtime_error for a point beyond 32-bit steps, and for a class above 31 or more than 2^32
    /// points in version 1.2.
    void write(const Render::QueryPoint* points, size_t count) override;
    void finish() override;

    /// The farthest that a coordinate had to be moved onto the grid.
    double largestMove() const { return mLargestMove; }

private:
    void writeHeader();
    void appendPoint(std::string& records, const Render::QueryPoint& point);
    void appendAttributes(std::string& records, const Render::QueryPoint& point) const;

    std::ostream& mStream;
    LasVersion mVersion;
    Octree::PositionGrid mGrid;
    uint64_t mCount = 0;
    Math::NBoundingBox<double, 3> mBounds;
    double mLargestMove = 0.0;
};

}  // namespace Tool
