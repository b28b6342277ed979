#include <render/pointcloud/NodeWalk.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

constexpr int HIDDEN = 2;
constexpr std::size_t MAX_BYTES_AHEAD = std::size_t{128} << 20;
/// Looked at for one fetch.
constexpr std::size_t MAX_CANDIDATES = 256;
/// For a node that does not say how many it has.
constexpr std::size_t TYPICAL_POINT_COUNT = 50000;

constexpr auto lessImportant = [](const auto& a, const auto& b) { return a.priority < b.priority; };

std::optional<std::size_t> knownPointCount(const NodeWalk::PendingNode& node) {
    return node.pointCount == 0 ? std::nullopt : std::optional(node.pointCount);
}

std::size_t estimatedPointCount(const NodeWalk::PendingNode& node) {
    return node.pointCount == 0 ? TYPICAL_POINT_COUNT : node.pointCount;
}

}  // namespace

NodePriority NodeWalk::Basis::rate(Octree::OctreeNodeId id, const Math::NBoundingBox<float, 3>& cube) const {
    return id.isRoot() ? NodePriority::keep() : parameters.boundingBoxPriority(id.level(), cube);
}

std::optional<NodeWalk::PendingNode> NodeWalk::Basis::toBeOffered(Octree::OctreeNodeId id,
                                                                  const std::stop_token& stop) const {
    const Octree::Octree& octree = *loader.octree;
    if (!id.isRoot() && octree.nodeVisibility(id, stop) == HIDDEN) {
        return std::nullopt;
    }
    const Math::NBoundingBox<float, 3> cube = octree.boundingCube(id);
    const NodePriority priority = rate(id, cube);
    Octree::NodeFacts facts;
    if (!(priority > NodePriority::discard()) || !octree.nodeFacts(id, facts, stop)) {
        return std::nullopt;
    }
    return PendingNode{id, priority, cube, static_cast<std::size_t>(facts.pointCount)};
}

void NodeWalk::Basis::readChildren(Octree::OctreeNodeId id, const std::stop_token& stop) const {
    if (id.level() < maxLevel) {
        for (const Octree::OctreeNodeId child : loader.octree->children(id, stop)) {
            toBeOffered(child, stop);
        }
    }
}

template <class Read>
void NodeWalk::readHierarchy(const std::stop_token& stop, Read&& read) {
    try {
        try {
            read();
        } catch (...) {
            std::throw_with_nested(std::runtime_error("Error loading point data"));
        }
    } catch (...) {
        keepError(stop);
    }
}

NodeWalk::NodeWalk() : mLoads(MAX_BYTES_AHEAD) {}

void NodeWalk::begin(std::shared_ptr<NodePrioritizer> prioritizer, std::size_t instanceId,
                     std::uint64_t generation, Basis basis, const std::stop_token& stop) {
    mLoads.keepOnly([&](Octree::OctreeNodeId id) {
        return basis.loader == mBasis.loader && id.level() <= basis.maxLevel &&
               basis.rate(id, basis.loader.octree->boundingCube(id)) > NodePriority::discard();
    });
    mPrioritizer = std::move(prioritizer);
    mInstanceId = instanceId;
    mGeneration = generation;
    mBasis = std::move(basis);
    mIsLookingAhead = false;
    mError = nullptr;
    mHeap.clear();
    readHierarchy(stop, [&] { pushIfToBeOffered({}, stop); });
}

void NodeWalk::pause() {
    mLoads.keepOnly([](Octree::OctreeNodeId) { return true; });
}

void NodeWalk::end() {
    mLoads.stop();
}

bool NodeWalk::visitNext(const std::stop_token& stop) {
    const PendingNode node = pop();
    mOffered = node;
    NodePrioritizer::OfferResult offered;
    try {
        offered = mPrioritizer->offer({mInstanceId, node.id}, node.cube, node.priority, *this, stop,
                                      mGeneration, knownPointCount(node));
    } catch (...) {
        keepError(stop);
    }
    mLoads.remove(node.id);
    if (offered.resident && node.id.level() < mBasis.maxLevel && !stop.stop_requested()) {
        pushChildren(node.id, stop);
    }
    return offered.changed;
}

bool NodeWalk::fetchNodeVertices(Octree::OctreeNodeId id, VertexContainer& out, std::stop_token stop) {
    if (!mBasis.loader.isCached(id) && mLoads.hasThreads()) {
        lookAhead(stop);
        if (!mLoads.take(id, stop)) {
            return false;
        }
    }
    return mBasis.loader.load(id, out, stop);
}

void NodeWalk::pushIfToBeOffered(Octree::OctreeNodeId id, const std::stop_token& stop) {
    if (const std::optional<PendingNode> node = mBasis.toBeOffered(id, stop)) {
        mHeap.push_back(*node);
        std::push_heap(mHeap.begin(), mHeap.end(), lessImportant);
    }
}

void NodeWalk::pushChildren(Octree::OctreeNodeId id, const std::stop_token& stop) {
    readHierarchy(stop, [&] {
        for (const Octree::OctreeNodeId child : mBasis.loader.octree->children(id, stop)) {
            readHierarchy(stop, [&] { pushIfToBeOffered(child, stop); });
        }
    });
}

NodeWalk::PendingNode NodeWalk::pop() {
    std::pop_heap(mHeap.begin(), mHeap.end(), lessImportant);
    const PendingNode node = mHeap.back();
    mHeap.pop_back();
    return node;
}

void NodeWalk::lookAhead(const std::stop_token& walkStop) {
    if (!mIsLookingAhead) {
        const auto load = [basis = std::make_shared<const Basis>(mBasis)](Octree::OctreeNodeId id,
                                                                          const std::stop_token& stop) {
            VertexContainer loaded;
            if (basis->loader.load(id, loaded, stop)) {
                basis->readChildren(id, stop);
            }
        };
        mLoads.setLoad(load, walkStop);
        mIsLookingAhead = true;
    }
    mLoads.add(mOffered.id, mOffered.priority.priority(), 0);
    if (mLoads.isLow()) {
        addNext();
    }
}

// Best first through the heap, which stays as it is: the walk comes by these nodes, if not by their children
// before.
void NodeWalk::addNext() {
    std::size_t pointCount = estimatedPointCount(mOffered);
    std::size_t looked = 0;
    mCandidates.clear();
    for (pushCandidate(0); !mCandidates.empty() && looked < MAX_CANDIDATES && mLoads.hasRoom(); ++looked) {
        const PendingNode& node = popCandidate();
        const std::size_t count = estimatedPointCount(node);
        if (mLoads.contains(node.id)) {
            pointCount += count;
        } else if (mPrioritizer->wouldFetch({mInstanceId, node.id}, node.priority, pointCount + count) &&
                   !mBasis.loader.isCached(node.id)) {
            if (!mLoads.add(node.id, node.priority.priority(), count * sizeof(VertexContainer::Vertex))) {
                return;
            }
            pointCount += count;
        }
    }
}

void NodeWalk::pushCandidate(std::size_t place) {
    if (place < mHeap.size()) {
        mCandidates.push_back(place);
        std::push_heap(mCandidates.begin(), mCandidates.end(),
                       [this](std::size_t a, std::size_t b) { return lessImportant(mHeap[a], mHeap[b]); });
    }
}

// And has the two below it follow.
const NodeWalk::PendingNode& NodeWalk::popCandidate() {
    std::pop_heap(mCandidates.begin(), mCandidates.end(),
                  [this](std::size_t a, std::size_t b) { return lessImportant(mHeap[a], mHeap[b]); });
    const std::size_t place = mCandidates.back();
    mCandidates.pop_back();
    pushCandidate(2 * place + 1);
    pushCandidate(2 * place + 2);
    return mHeap[place];
}

// Of an exception that is being handled. A stop is no error.
void NodeWalk::keepError(const std::stop_token& stop) {
    if (!mError && !stop.stop_requested()) {
        mError = std::current_exception();
    }
}

}  // namespace Render
