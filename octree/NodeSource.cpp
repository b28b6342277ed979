#include <octree/NodeSource.h>

namespace Octree {

NodeSource::~NodeSource() = default;

int NodeSource::nodeVisibility(OctreeNodeId id) {
    NodeFacts facts;
    nodeFacts(id, facts, {});
    return facts.visibility;
}

}  // namespace Octree
