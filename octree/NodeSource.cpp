#include <octree/NodeSource.h>

namespace Octree {

NodeSource::~NodeSource() = default;

int NodeSource::nodeVisibility(OctreeNodeId id) {
    NodeFacts facts;
    nodeFacts(id, facts, {});
    return facts.visibility;
}

int NodeSource::nodeVisibility(OctreeNodeId id, const std::stop_token& stop) {
    return stop.stop_requested() ? 0 : nodeVisibility(id);
}

}  // namespace Octree
