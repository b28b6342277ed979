#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/Location.h>

#include <cstdint>
#include <optional>

namespace Tool {

/// The grid of whole steps that positions lie on: coordinate = steps * scale + offset, absolute.
struct PositionGrid {
    Math::Point<double, 3> scale{1.0, 1.0, 1.0};
    Math::Point<double, 3> offset;

    /// Of the nearest place of the grid on one axis.
    int64_t steps(double coordinate, int axis) const;
    double coordinate(int64_t steps, int axis) const {
        return static_cast<double>(steps) * scale[axis] + offset[axis];
    }
    /// The place of the grid that a position computed in double stands for; the position itself when there is
    /// none next to it.
    Math::Point<double, 3> snapped(const Math::Point<double, 3>& position) const;

    bool operator==(const PositionGrid&) const = default;
};

/// The grid that a store states; nullopt when it has none. Throws std::runtime_error naming the file when
/// what it states cannot be read.
std::optional<PositionGrid> gridOfStore(const Octree::Location& location);

/// A grid on which the whole box is within reach of 32-bit steps: the given one when that will do, else a
/// part of it (moved by whole steps), else a coarser one. Without a given one, the finest decimal steps.
PositionGrid gridFor32Bits(const std::optional<PositionGrid>& grid, const Math::NBoundingBox<double, 3>& box);

}  // namespace Tool
