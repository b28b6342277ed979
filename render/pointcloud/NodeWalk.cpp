#include <render/pointcloud/NodeWalk.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

constexpr int HIDDEN = 2;
constexpr std::size_t MAX_BYTES_AHEAD = std::size_t{128} << 20;
/// Looked at for one fetch.
constexpr std::size_t MAX_CANDIDATES = 1024;
/// For a node that does not say how many it has.
constexpr std::size_t TYPICAL_POINT_COUNT = 50000;

constexpr auto lessImportant = [](const auto& a, const auto& b) { return a.priority < b.priority; };

// What is wrong with the node shows when its turn comes.
std::optional<std::uint64_t> announcedPointCount(const Octree::Octree& octree, Octree::OctreeNodeId id,
                                                 const std::stop_token& stop) {
    try {
        return octree.knownPointCount(id, stop);
    } catch (...) {
        return std::nullopt;
    }
}

template <class Read>
auto readHierarchy(Read&& read) {
    try {
        return read();
    } catch (...) {
        std::throw_with_nested(std::runtime_error("Error loading point data"));
    }
}

std::size_t estimatedPointCount(const NodeWalk::PendingNode& node) {
    return node.pointCount == 0 ? TYPICAL_POINT_COUNT : node.pointCount;
}

}  // namespace

NodePriority NodeWalk::Basis::rate(Octree::OctreeNodeId id, const Math::NBoundingBox<float, 3>& cube) const {
    return id.isRoot() ? NodePriority::keep() : parameters.boundingBoxPriority(id.level(), cube);
}

template <class Visit>
void NodeWalk::Basis::forEachChild(Octree::OctreeNodeId id, const std::stop_token& stop,
                                   Visit&& visit) const {
    const Octree::Octree& octree = *loader.octree;
    std::exception_ptr error;
    for (const Octree::OctreeNodeId child : octree.children(id, stop)) {
        try {
            if (octree.nodeVisibility(child, stop) == HIDDEN) {
                continue;
            }
        } catch (...) {
            error = std::current_exception();
            continue;
        }
        const Math::NBoundingBox<float, 3> cube = octree.boundingCube(child);
        const NodePriority priority = rate(child, cube);
        if (priority > NodePriority::discard()) {
            visit(PendingNode{.id = child, .priority = priority, .cube = cube});
        }
    }
    if (error) {
        std::rethrow_exception(error);  // Its siblings have been visited.
    }
}

void NodeWalk::Basis::readChildren(Octree::OctreeNodeId id, const std::stop_token& stop) const {
    if (id.level() >= maxLevel) {
        return;
    }
    try {
        forEachChild(id, stop, [&](const PendingNode& child) {
            Octree::NodeFacts facts;
            loader.octree->nodeFacts(child.id, facts, stop);
        });
    } catch (...) {
        // This node is sound; what is wrong with its children shows when the walk comes to them.
    }
}

NodeWalk::NodeWalk(LoadingProgressMeter& progress) : mProgress(progress), mLoads(MAX_BYTES_AHEAD) {}

void NodeWalk::begin(std::shared_ptr<NodePrioritizer> prioritizer, std::size_t instanceId,
                     std::uint64_t generation, Basis basis, const std::stop_token& stop) {
    mLoads.keepOnly([&](Octree::OctreeNodeId id) {
        return basis.loader == mBasis.loader && id.level() <= basis.maxLevel &&
               basis.rate(id, basis.loader.octree->boundingCube(id)) > NodePriority::discard();
    });
    mCountsAreGiven = mCountsAreGiven || basis.loader.octree != mBasis.loader.octree;
    mPrioritizer = std::move(prioritizer);
    mInstanceId = instanceId;
    mGeneration = generation;
    mBasis = std::move(basis);
    mIsLookingAhead = false;
    mError = nullptr;
    mHeap.clear();
    mProgress.beginWalk();
    push({.id = {}, .priority = NodePriority::keep(), .cube = mBasis.loader.octree->boundingCube()}, stop);
}

void NodeWalk::pause() {
    mLoads.keepOnly([](Octree::OctreeNodeId) { return true; });
}

void NodeWalk::end() {
    mLoads.stop();
    mHeap.clear();
    mBasis = {};
    mPrioritizer.reset();
}

bool NodeWalk::visitNext(const std::stop_token& stop) {
    mOffered = pop();
    NodePrioritizer::OfferResult offered;
    try {
        const auto pointCount = readHierarchy([&] { return knownPointCount(mOffered, stop); });
        offered = mPrioritizer->offer({mInstanceId, mOffered.id}, mOffered.cube, mOffered.priority, *this,
                                      stop, mGeneration, pointCount);
        if (stop.stop_requested()) {
            return offered.changed;  // If the node is being loaded, the next walk may want it.
        }
        mLoads.remove(mOffered.id);
        if (offered.resident && mOffered.id.level() < mBasis.maxLevel) {
            readHierarchy([&] { pushChildren(mOffered.id, stop); });
        }
    } catch (...) {
        if (!mError && !stop.stop_requested()) {
            mError = std::current_exception();
        }
    }
    return offered.changed;
}

bool NodeWalk::fetchNodeVertices(Octree::OctreeNodeId id, VertexContainer& out, std::stop_token stop) {
    const bool isQuick = hasNothingToLoad(mOffered);
    if (!isQuick && !mBasis.loader.isCached(id) && mLoads.hasThreads()) {
        lookAhead(stop);
        if (!mLoads.take(id, stop)) {
            return false;
        }
    }
    const bool isLoaded = mBasis.loader.load(id, out, stop);
    mCountsAreGiven = mCountsAreGiven && !(isQuick && isLoaded && out.size() > 0);
    return isLoaded;
}

// Hidden points make it an upper bound. A host's source need not say it.
std::optional<std::size_t> NodeWalk::knownPointCount(const PendingNode& node,
                                                     const std::stop_token& stop) const {
    Octree::NodeFacts facts;
    if (!node.isResident && mBasis.loader.octree->nodeFacts(node.id, facts, stop) && facts.pointCount > 0) {
        return static_cast<std::size_t>(facts.pointCount);
    }
    return std::nullopt;
}

// What the progress tells of is counted from when it is known to when it is loaded or refused.
void NodeWalk::push(PendingNode node, const std::stop_token& stop) {
    if (!node.isResident) {
        const std::optional<std::uint64_t> known = announcedPointCount(*mBasis.loader.octree, node.id, stop);
        node.pointCount = static_cast<std::uint32_t>(
            (std::min)(known.value_or(0), std::uint64_t{(std::numeric_limits<std::uint32_t>::max)()}));
        node.isSaidEmpty = known == std::uint64_t{0};
        node.isWanted = !node.isSaidEmpty &&
                        mPrioritizer->isWanted({mInstanceId, node.id}, node.priority, node.pointCount);
    }
    if (node.isWanted) {
        mProgress.add(node.pointCount);
    }
    mHeap.push_back(node);
    std::push_heap(mHeap.begin(), mHeap.end(), lessImportant);
}

void NodeWalk::pushChildren(Octree::OctreeNodeId id, const std::stop_token& stop) {
    const unsigned residents = mPrioritizer->residentChildren({mInstanceId, id});
    mBasis.forEachChild(id, stop, [&](PendingNode child) {
        child.isResident = (residents >> child.id.childIndex() & 1u) != 0;
        push(child, stop);
    });
}

NodeWalk::PendingNode NodeWalk::pop() {
    std::pop_heap(mHeap.begin(), mHeap.end(), lessImportant);
    const PendingNode node = mHeap.back();
    mHeap.pop_back();
    if (node.isWanted) {
        if (mProgress.isReportDue()) {
            reportProgress(node.priority);
        }
        mProgress.remove(node.pointCount);
    }
    return node;
}

void NodeWalk::reportProgress(const NodePriority& mostImportant) {
    mProgress.report(mPrioritizer->outlook(mInstanceId, mostImportant, mProgress.points()));
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
        } else if (!node.isResident && !hasNothingToLoad(node) &&
                   mPrioritizer->isWanted({mInstanceId, node.id}, node.priority, pointCount + count) &&
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

}  // namespace Render
