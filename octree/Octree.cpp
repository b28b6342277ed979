#include <octree/ChildCube.h>
#include <octree/Octree.h>
#include <octree/potree/Store.h>

#include <cmath>
#include <stdexcept>
#include <utility>

namespace Octree {

namespace {

std::shared_ptr<NodeSource> openStore(const Location& location) {
    if (const PoTree::FileSystemLocation* potree = location.potree()) {
        return std::make_shared<PoTree::Store>(*potree);
    }
    throw std::invalid_argument("There is no point cloud without a location");
}

const StoreFacts& factsOf(const std::shared_ptr<NodeSource>& source) {
    if (source == nullptr) {
        throw std::invalid_argument("An octree needs a node source");
    }
    return source->storeFacts();
}

double checkedUnitScale(double unitScale) {
    if (!(unitScale > 0.0) || !std::isfinite(unitScale)) {
        throw std::invalid_argument("unitScale must be positive and finite");
    }
    return unitScale;
}

}  // namespace

Octree::Octree(const Location& location, double unitScale)
    : Octree(openStore(location), location, unitScale) {}

Octree::Octree(std::shared_ptr<NodeSource> source, const Location& location, double unitScale)
    : mLocation(location),
      mSource(std::move(source)),
      mFacts(factsOf(mSource)),
      mUnitScale(checkedUnitScale(unitScale)) {}

Octree::~Octree() = default;

void Octree::setUnitScale(double unitScale) {
    mUnitScale = checkedUnitScale(unitScale);
}

Math::NBoundingBox<float, 3> Octree::toModel(const Math::NBoundingBox<double, 3>& box) const {
    if (box.isEmpty()) {
        return {};
    }
    const double unit = unitScale();
    Math::NBoundingBox<float, 3> result;
    for (int axis = 0; axis < 3; ++axis) {
        const double origin = mFacts.referencePosition[axis];
        result.min[axis] = static_cast<float>((box.min[axis] - origin) * unit);
        result.max[axis] = static_cast<float>((box.max[axis] - origin) * unit);
    }
    return result;
}

Math::NBoundingBox<float, 3> Octree::boundingBox() const {
    return toModel(mFacts.boundingBox);
}

Math::NBoundingBox<float, 3> Octree::boundingCube() const {
    return toModel(mFacts.boundingCube);
}

Math::NBoundingBox<float, 3> Octree::boundingCube(OctreeNodeId id) const {
    Math::NBoundingBox<double, 3> box = mFacts.boundingCube;
    for (std::size_t shift = 3 * id.level(); shift > 0;) {
        shift -= 3;
        box = childCube(box, id.code() >> shift & 7);
    }
    return toModel(box);
}

float Octree::spacing(std::size_t level) const {
    return static_cast<float>(std::ldexp(mFacts.spacing, -static_cast<int>(level)) * unitScale());
}

bool Octree::nodeFacts(OctreeNodeId id, NodeFacts& facts, const std::stop_token& stop) const {
    return mSource->nodeFacts(id, facts, stop);
}

NodeChildren Octree::children(OctreeNodeId id, const std::stop_token& stop) const {
    NodeFacts facts;
    mSource->nodeFacts(id, facts, stop);
    return NodeChildren(id, facts.childMask);
}

bool Octree::isLeaf(OctreeNodeId id, const std::stop_token& stop) const {
    return children(id, stop).empty();
}

int Octree::nodeVisibility(OctreeNodeId id) const {
    return mSource->nodeVisibility(id);
}

std::uint64_t Octree::pointCount(OctreeNodeId id) const {
    NodeFacts facts;
    mSource->nodeFacts(id, facts, {});
    return facts.pointCount;
}

bool Octree::getNodePointData(OctreeNodeId id, NodePointData& data, const std::stop_token& stop) const {
    return mSource->readNode(id, unitScale(), data, stop);
}

}  // namespace Octree
