#pragma once

namespace Octree {

/// How a box lies to a region.
enum class BoxTestResult { Outside = 0, Intersecting = 1, Inside = 2 };

}  // namespace Octree
