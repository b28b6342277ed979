#include <octree/ChildCube.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>
#include <octree/potree/Store.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace Octree {

namespace {

constexpr int VISIBLE = 1;
constexpr int HIDDEN = 2;
/// No double is left after so many halvings.
constexpr std::size_t SPACING_IS_ZERO_FROM = 4096;

constexpr unsigned bit(Attribute attribute) {
    return static_cast<unsigned>(attribute);
}

std::shared_ptr<NodeSource> openStore(const Location& location, PoTree::StoreRole role,
                                      const std::stop_token& stop) {
    if (const PoTree::FileSystemLocation* potree = location.potree()) {
        return std::make_shared<PoTree::Store>(*potree, role, stop);
    }
    if (const Entwine::FileSystemLocation* entwine = location.entwine()) {
        return std::make_shared<Entwine::EntwineTree>(*entwine, stop);
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

// Of a node that is visible or hidden as a whole.
void mergeVisibility(int visibility, NodePointData& data) {
    NodePointData column(bit(Attribute::Visibility));
    column.setVisibilities(std::vector<std::uint8_t>(data.size(), visibility == HIDDEN ? 1 : 0));
    data.merge(std::move(column));
}

}  // namespace

Octree::Octree(const Location& location, double unitScale) : Octree(location, unitScale, std::stop_token()) {}

Octree::Octree(const Location& location, double unitScale, const std::stop_token& stop)
    : Octree(openStore(location, PoTree::StoreRole::Cloud, stop), location, unitScale) {}

Octree::Octree(std::shared_ptr<NodeSource> source, const Location& location, double unitScale)
    : mLocation(location),
      mSource(std::move(source)),
      mFacts(factsOf(mSource)),
      mUnitScale(checkedUnitScale(unitScale)),
      mExternalVersions{std::make_shared<const Externals>()},
      mExternals(mExternalVersions.front().get()) {}

Octree::~Octree() = default;

std::shared_ptr<Octree> Octree::snapshot() const {
    auto result = std::make_shared<Octree>(mSource, mLocation, unitScale());
    result->mExternalVersions.front() = std::make_shared<const Externals>(externals());
    result->mExternals = result->mExternalVersions.front().get();
    return result;
}

CacheIdentifier Octree::cacheIdentifier() const {
    CacheIdentifier identifier{mLocation, unitScale()};
    for (const External& external : externals()) {
        identifier.externalAttributes.push_back(external.location);
    }
    return identifier;
}

bool Octree::hasExternal(const Location& location) const {
    const Externals& all = externals();  // once: more may be added meanwhile
    return std::any_of(all.begin(), all.end(),
                       [&](const External& external) { return external.location == location; });
}

void Octree::addExternalAttributeLocation(const Location& location) {
    addExternalAttributeLocation(location, std::stop_token());
}

void Octree::addExternalAttributeLocation(const Location& location, const std::stop_token& stop) {
    if (!hasExternal(location)) {
        addExternalAttributes(openStore(location, PoTree::StoreRole::ExternalAttributes, stop), location);
    }
}

void Octree::addExternalAttributes(std::shared_ptr<NodeSource> source, const Location& location) {
    factsOf(source);
    const std::lock_guard lock(mAddingExternals);
    if (location != Location() && hasExternal(location)) {
        return;
    }
    Externals more = externals();
    more.push_back({location, std::move(source)});
    mExternalVersions.push_back(std::make_shared<const Externals>(std::move(more)));
    mExternals.store(mExternalVersions.back().get(), std::memory_order_release);
}

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
    return toModel(nodeCube(mFacts.boundingCube, id));
}

Math::NBoundingBox<float, 3> Octree::pointBounds(OctreeNodeId id) const {
    Math::NBoundingBox<double, 3> box = nodeCube(mFacts.boundingCube, id);
    box.min -= mFacts.overhang;
    box.max += mFacts.overhang;
    return toModel(box);
}

float Octree::spacing(std::size_t level) const {
    const int halvings = static_cast<int>(std::min(level, SPACING_IS_ZERO_FROM));
    return static_cast<float>(std::ldexp(mFacts.spacing, -halvings) * unitScale());
}

bool Octree::nodeFacts(OctreeNodeId id, NodeFacts& facts, const std::stop_token& stop) const {
    NodeFacts found;
    if (!mSource->nodeFacts(id, found, stop)) {
        return false;
    }
    found.visibility = static_cast<std::uint8_t>(combinedVisibility(id, found.visibility, stop));
    if (stop.stop_requested()) {
        return false;
    }
    facts = found;
    return true;
}

NodeChildren Octree::children(OctreeNodeId id, const std::stop_token& stop) const {
    NodeFacts facts;
    mSource->nodeFacts(id, facts, stop);
    return NodeChildren(id, facts.childMask);
}

bool Octree::isLeaf(OctreeNodeId id, const std::stop_token& stop) const {
    return children(id, stop).empty();
}

int Octree::nodeVisibility(OctreeNodeId id, const std::stop_token& stop) const {
    return combinedVisibility(id, mSource->nodeVisibility(id, stop), stop);
}

// Hidden by one is hidden; visible takes all that have a say.
int Octree::combinedVisibility(OctreeNodeId id, int own, const std::stop_token& stop) const {
    int combined = own;
    for (const External& external : externals()) {
        if (combined == HIDDEN) {
            break;
        }
        if ((external.source->storeFacts().columns & bit(Attribute::Visibility)) == 0) {
            continue;
        }
        try {
            const int visibility = external.source->nodeVisibility(id, stop);
            combined = visibility == HIDDEN || combined == VISIBLE ? visibility : combined;
        } catch (const StoreError&) {
            failInExternal(external, id);
        }
    }
    return combined;
}

std::uint64_t Octree::pointCount(OctreeNodeId id) const {
    NodeFacts facts;
    mSource->nodeFacts(id, facts, {});
    return facts.pointCount;
}

std::optional<std::uint64_t> Octree::knownPointCount(OctreeNodeId id, const std::stop_token& stop) const {
    return mSource->knownPointCount(id, stop);
}

bool Octree::getNodePointData(OctreeNodeId id, NodePointData& data, const std::stop_token& stop) const {
    if (!mSource->readNode(id, unitScale(), data, stop)) {
        return false;
    }
    const Externals& all = externals();
    return std::all_of(all.begin(), all.end(),
                       [&](const External& external) { return mergeExternal(external, id, data, stop); });
}

bool Octree::mergeExternal(const External& external, OctreeNodeId id, NodePointData& data,
                           const std::stop_token& stop) const {
    unsigned lacking = data.mask() & ~bit(Attribute::Position) & external.source->storeFacts().columns;
    for (unsigned attribute = 1; attribute <= lacking; attribute <<= 1) {
        if (attribute != bit(Attribute::Visibility) && data.has(static_cast<Attribute>(attribute))) {
            lacking &= ~attribute;
        }
    }
    try {
        if ((lacking & bit(Attribute::Visibility)) != 0) {
            const int visibility = external.source->nodeVisibility(id, stop);
            if (stop.stop_requested()) {
                return false;
            }
            if (visibility == VISIBLE || visibility == HIDDEN) {
                mergeVisibility(visibility, data);
                lacking &= ~bit(Attribute::Visibility);
            }
        }
        if (lacking == 0) {
            return true;
        }
        NodePointData columns(lacking);
        if (!external.source->readNode(id, unitScale(), columns, stop)) {
            return false;
        }
        if (columns.size() != data.size()) {
            throw StoreError(external.location.folder(), id.name(),
                             "it has " + std::to_string(columns.size()) + " points, in the cloud it has " +
                                 std::to_string(data.size()));
        }
        data.merge(std::move(columns));
        return true;
    } catch (const StoreError&) {
        failInExternal(external, id);
    }
}

// Called while the cause is being handled, which goes along nested.
void Octree::failInExternal(const External& external, OctreeNodeId id) const {
    std::throw_with_nested(
        StoreError(mLocation.folder(), id.name(),
                   "its external attributes in " + external.location.toString() + " cannot be used"));
}

}  // namespace Octree
