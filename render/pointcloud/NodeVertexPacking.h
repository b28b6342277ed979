#pragma once

#include <octree/Octree.h>
#include <octree/OctreeNodeId.h>
#include <render/gpu/VertexContainer.h>

#include <stop_token>

namespace Render {

/// Reads a node's points and packs them for the GPU: positions as floats in model coordinates, intensities
/// stretched from the store's range to all of theirs, scan indices above 65535 as 65535, hidden points left
/// out, what the store does not have left at its default (white for colours). False when stopped; throws as
/// the octree does.
bool loadNodeVertices(const Octree::Octree& octree, Octree::OctreeNodeId id, VertexContainer& out,
                      const std::stop_token& stop);

}  // namespace Render
