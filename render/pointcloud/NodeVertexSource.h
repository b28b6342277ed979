#pragma once

#include <octree/OctreeNodeId.h>
#include <render/gpu/VertexContainer.h>

#include <stop_token>

namespace Render {

/// Where a prioritizer gets the vertices of the nodes that it is offered. Called on loader threads, under no
/// lock of the prioritizer.
class NodeVertexSource {
public:
    virtual ~NodeVertexSource() = default;

    /// Replaces `out` by the node's vertices. Returns false when `stop` was signalled first; throws when the
    /// node cannot be loaded.
    virtual bool fetchNodeVertices(Octree::OctreeNodeId id, VertexContainer& out, std::stop_token stop) = 0;
};

}  // namespace Render
