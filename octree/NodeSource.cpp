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

std::optional<std::uint64_t> NodeSource::knownPointCount(OctreeNodeId id, const std::stop_token& stop) {
    NodeFacts facts;
    return nodeFacts(id, facts, stop) ? std::optional(facts.pointCount) : std::nullopt;
}

}  // namespace Octree
