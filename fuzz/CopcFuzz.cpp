// The input is a COPC file.

#include <fuzz/NodePointsCheck.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>

#include <tests/support/PotreeFixture.h>

#include <algorithm>
#include <vector>

namespace {

constexpr std::size_t MAX_NODES = 1000;

/// Of the positions relative to the reference, as far as nodes reach.
double reachOf(const Octree::Octree& octree) {
    const Math::NBoundingBox<float, 3> bounds = octree.pointBounds(Octree::OctreeNodeId());
    double reach = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
        reach = std::max({reach, std::abs(double{bounds.min[axis]}), std::abs(double{bounds.max[axis]})});
    }
    return reach;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Support::TemporaryFolder folder;
    folder.write("cloud.copc.laz", Fuzz::textOf(data, size));
    try {
        const Octree::Octree octree(Octree::Location::fromPath(folder.path() / "cloud.copc.laz"));
        std::vector<Octree::OctreeNodeId> pending{Octree::OctreeNodeId()};
        for (std::size_t nodes = 0; !pending.empty() && nodes < MAX_NODES; ++nodes) {
            const Octree::OctreeNodeId id = pending.back();
            pending.pop_back();
            try {
                const Octree::NodeChildren children = octree.children(id);
                pending.insert(pending.end(), children.begin(), children.end());
                Octree::NodePointData points;
                octree.getNodePointData(id, points);
                Fuzz::require(points.size() == octree.pointCount(id));
                Fuzz::requireSound(points, 1.001 * reachOf(octree));
            } catch (const Octree::StoreError&) {  // Of this node.
            }
        }
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
