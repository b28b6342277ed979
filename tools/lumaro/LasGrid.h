#pragma once

#include <math/NBoundingBox.h>
#include <octree/PositionGrid.h>

#include <optional>

namespace Tool {

/// A grid on which the whole box is within reach of 32-bit steps: the given one when that will do, else a
/// part of it (moved by whole steps), else a coarser one. Without a given one, the finest decimal steps.
Octree::PositionGrid gridFor32Bits(const std::optional<Octree::PositionGrid>& grid,
                                   const Math::NBoundingBox<double, 3>& box);

}  // namespace Tool
