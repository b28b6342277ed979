#pragma once

#include <math/Color.h>
#include <math/Point.h>
#include <octree/potree/ChunkColumn.h>
#include <octree/potree/Metadata.h>
#include <octree/potree/PointCodes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace PoTree {

/// Some of a grid's integers: the smallest one on each axis, and how far up they go.
struct GridRange {
    std::array<std::uint32_t, 3> low, span;
};

/// The integer grid a store's coordinates lie on, as seen from the grid point nearest to the cube's centre.
struct CoordinateGrid {
    /// Points may lie this many steps outside their node's box: converters round, and shift by a step.
    static constexpr double SLACK_STEPS = 4.0;

    explicit CoordinateGrid(const Metadata& metadata);

    /// Of the points that a node with this box may have.
    GridRange rangeOf(const Math::NBoundingBox<double, 3>& box) const;

    Math::Point<double, 3> scale, offset;
    /// The absolute coordinates of the origin, and its integers; doubles hold them exactly.
    Math::Point<double, 3> reference;
    Math::Point<double, 3> origin;
};

/// Which of the two colour depths a store has, by the type and the largest value of its "rgb".
ColorDepth colorDepthOf(const Metadata& metadata);

/// By the largest value that the metadata declares for "intensity"; all 16 bits where they say nothing.
std::uint16_t intensityRangeOf(const Metadata& metadata);

/// Positions relative to the grid's reference, times unitScale. A value of the column is a code of 16 bytes
/// or three 32-bit integers. Returns the index of the first point outside the range, if one is; out is then
/// unspecified.
std::optional<std::size_t> decodePositions(const ChunkColumn& column, std::size_t count,
                                           const CoordinateGrid& grid, const GridRange& range,
                                           double unitScale, std::vector<Math::Point<double, 3>>& out);

/// A value of the column is a code of 8 bytes, three 16-bit channels, or three bytes, which stay as they are.
void decodeColors(const ChunkColumn& column, std::size_t count, ColorDepth depth,
                  std::vector<Math::Color>& out);

/// The unit vector of an octahedral code, x in the low byte.
Math::Point<float, 3> decodeOct16(std::uint16_t code);

}  // namespace PoTree
