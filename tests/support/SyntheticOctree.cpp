#include <octree/ChildCube.h>
#include <octree/StoreError.h>

#include <tests/support/SyntheticOctree.h>

#include <utility>

namespace TestSupport {

namespace {

using Octree::OctreeNodeId;

// Spreads the bits of a number over the whole word.
std::uint64_t mix(std::uint64_t value) {
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9u;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebu;
    return value ^ (value >> 31);
}

double fraction(std::uint64_t bits) {
    return static_cast<double>(bits & 0xffffu) / 65536.0;
}

}  // namespace

SyntheticOctree::SyntheticOctree(SyntheticOctreeShape shape) : mShape(std::move(shape)) {
    const double edge = mShape.edge;
    mFacts.boundingCube = {{0.0, 0.0, 0.0}, {edge, edge, edge}};
    mFacts.boundingBox = mFacts.boundingCube;
    mFacts.referencePosition = mFacts.boundingCube.center();
    mFacts.spacing = mShape.spacing;
}

std::shared_ptr<Octree::Octree> SyntheticOctree::open(const std::shared_ptr<SyntheticOctree>& source,
                                                      const Octree::Location& location, double unitScale) {
    return std::make_shared<Octree::Octree>(source, location, unitScale);
}

std::size_t SyntheticOctree::pointCount(OctreeNodeId id) const {
    return mShape.pointCount ? mShape.pointCount(id) : mShape.pointsPerNode;
}

bool SyntheticOctree::nodeFacts(OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token&) {
    facts.childMask = id.level() < mShape.depth ? mShape.childMask : std::uint8_t{0};
    facts.visibility = static_cast<std::uint8_t>(mShape.visibility ? mShape.visibility(id) : 1);
    facts.pointCount = pointCount(id);
    return true;
}

bool SyntheticOctree::readNode(OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                               const std::stop_token& stop) {
    ++mReadCount;
    std::shared_ptr<std::function<void(OctreeNodeId)>> hook;
    {
        const std::lock_guard lock(mHookMutex);
        hook = mReadHook;
    }
    if (hook) {
        (*hook)(id);
    }
    if (stop.stop_requested()) {
        return false;
    }
    const std::size_t count = pointCount(id);
    std::vector<Math::Point<double, 3>> positions(count);
    std::vector<std::uint16_t> intensities(count);
    for (std::size_t i = 0; i < count; ++i) {
        positions[i] = position(id, i) * unitScale;
        intensities[i] = static_cast<std::uint16_t>(mix(id.code() + i));
    }
    data.reset(count);
    data.setPositions(std::move(positions));
    data.setColors(std::vector<Math::Color>(count, color(id)));
    data.setIntensities(std::move(intensities));
    data.setClassifications(std::vector<std::uint8_t>(count, static_cast<std::uint8_t>(id.level())));
    return true;
}

std::vector<OctreeNodeId> SyntheticOctree::allNodes() const {
    std::vector<OctreeNodeId> nodes{OctreeNodeId()};
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const OctreeNodeId id = nodes[i];
        const std::uint8_t mask = id.level() < mShape.depth ? mShape.childMask : std::uint8_t{0};
        for (const OctreeNodeId child : Octree::NodeChildren(id, mask)) {
            nodes.push_back(child);
        }
    }
    return nodes;
}

Math::Point<double, 3> SyntheticOctree::position(OctreeNodeId id, std::size_t i) const {
    const Math::NBoundingBox<double, 3> cube = Octree::nodeCube(mFacts.boundingCube, id);
    const std::uint64_t random = mix(mix(id.code()) + i);
    const double size = cube.max.x() - cube.min.x();
    const Math::Point<double, 3> offset(fraction(random), fraction(random >> 16), fraction(random >> 32));
    return cube.min + offset * size - mFacts.referencePosition;
}

Math::Color SyntheticOctree::color(OctreeNodeId id) {
    const std::uint64_t random = mix(id.code());
    return Math::Color(static_cast<std::uint8_t>(random), static_cast<std::uint8_t>(random >> 8),
                       static_cast<std::uint8_t>(random >> 16));
}

void SyntheticOctree::setReadHook(std::function<void(OctreeNodeId)> hook) {
    const std::lock_guard lock(mHookMutex);
    mReadHook = hook ? std::make_shared<std::function<void(OctreeNodeId)>>(std::move(hook)) : nullptr;
}

}  // namespace TestSupport
