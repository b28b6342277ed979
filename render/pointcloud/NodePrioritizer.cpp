#include <render/pointcloud/NodePrioritizer.h>

#include <core/SharedResources.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

std::uint64_t nextSerial() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

// Null when stopped.
std::shared_ptr<NodeVertices> fetch(NodeVertexSource& source, Octree::OctreeNodeId id,
                                    const std::stop_token& stop) {
    auto fetched = std::make_shared<NodeVertices>();
    fetched->serial = nextSerial();
    bool success = false;
    try {
        success = source.fetchNodeVertices(id, fetched->vertices, stop);
    } catch (...) {
        if (!stop.stop_requested()) {
            std::throw_with_nested(std::runtime_error("Error loading point data"));
        }
    }
    if (!success && !stop.stop_requested()) {
        throw std::runtime_error("Error loading point data");
    }
    return success ? fetched : nullptr;
}

}  // namespace

/// What a change leaves to be done outside the lock: news to be told, nodes to be destroyed.
struct NodePrioritizer::Aftermath {
    void tell() const {
        for (const auto& [listener, message] : news) {
            listener->tell(message);
        }
    }

    std::vector<ResidentNodes::Node> evicted;
    std::vector<ResidentNodes> dropped;
    std::vector<std::pair<std::shared_ptr<BudgetListener>, BudgetNews>> news;
};

NodePrioritizer::NodePrioritizer(std::size_t totalMaxPointCount) : mTotalMaxPointCount(totalMaxPointCount) {}

NodePrioritizer::~NodePrioritizer() = default;

std::shared_ptr<NodePrioritizer> NodePrioritizer::shared(std::size_t rendererId, std::size_t budget) {
    static Core::SharedResources<std::size_t, NodePrioritizer> prioritizers;
    return prioritizers.getOrCreate(rendererId,
                                    [budget] { return std::make_shared<NodePrioritizer>(budget); });
}

void NodePrioritizer::addUser(std::size_t instanceId, std::size_t budget, BudgetListener::Callback onNews) {
    Aftermath aftermath;
    auto listener = onNews ? std::make_shared<BudgetListener>(std::move(onNews)) : nullptr;
    {
        const std::lock_guard lock(mMutex);
        const std::size_t roomBefore = room();
        User& user = mUsers[instanceId];
        user.budget = budget;
        user.listener.swap(listener);
        startGeneration(user);
        applyBudgets(aftermath);
        collectNews(roomBefore, std::nullopt, aftermath);
    }
    if (listener) {
        listener->close();
    }
    aftermath.tell();
}

void NodePrioritizer::setUserBudget(std::size_t instanceId, std::size_t budget) {
    Aftermath aftermath;
    {
        const std::lock_guard lock(mMutex);
        const std::size_t roomBefore = room();
        User* const user = find(instanceId);
        if (!user || !user->budget) {
            return;
        }
        user->budget = budget;
        applyBudgets(aftermath);
        collectNews(roomBefore, std::nullopt, aftermath);
    }
    aftermath.tell();
}

void NodePrioritizer::removeUser(std::size_t instanceId) {
    Aftermath aftermath;
    std::shared_ptr<BudgetListener> listener;
    {
        const std::lock_guard lock(mMutex);
        const std::size_t roomBefore = room();
        if (User* const user = find(instanceId)) {
            drop(*user, aftermath);
            listener = std::move(user->listener);
            mUsers.erase(instanceId);
        }
        applyBudgets(aftermath);
        collectNews(roomBefore, std::nullopt, aftermath);
    }
    if (listener) {
        listener->close();
    }
    aftermath.tell();
}

void NodePrioritizer::applyBudgets(Aftermath& aftermath) {
    std::optional<std::size_t> smallest;
    for (const auto& [instanceId, user] : mUsers) {
        if (user.budget && (!smallest || *user.budget < *smallest)) {
            smallest = user.budget;
        }
    }
    if (smallest) {
        mTotalMaxPointCount = *smallest;
        evictUntilThereIsRoomFor(0, aftermath);
    }
}

void NodePrioritizer::setTotalMaxPointCount(std::size_t count) {
    Aftermath aftermath;
    {
        const std::lock_guard lock(mMutex);
        const std::size_t roomBefore = room();
        mTotalMaxPointCount = count;
        evictUntilThereIsRoomFor(0, aftermath);
        collectNews(roomBefore, std::nullopt, aftermath);
    }
    aftermath.tell();
}

std::size_t NodePrioritizer::totalMaxPointCount() const {
    const std::lock_guard lock(mMutex);
    return mTotalMaxPointCount;
}

std::size_t NodePrioritizer::totalUsedPointCount() const {
    const std::lock_guard lock(mMutex);
    return mTotalUsedPointCount;
}

std::size_t NodePrioritizer::residentNodeCount() const {
    const std::lock_guard lock(mMutex);
    std::size_t count = 0;
    for (const auto& [instanceId, user] : mUsers) {
        count += user.nodes.size();
    }
    return count;
}

NodePrioritizer::OfferResult NodePrioritizer::offer(const NodeId& id,
                                                    const Math::NBoundingBox<float, 3>& cube,
                                                    const NodePriority& priority, NodeVertexSource& source,
                                                    std::stop_token stop,
                                                    std::optional<std::uint64_t> generation,
                                                    std::optional<std::size_t> knownPointCount) {
    {
        const std::lock_guard lock(mMutex);
        const User* const user = find(id.instanceId);
        generation = generation.value_or(generationOf(user));
        if (*generation != generationOf(user)) {
            return {};
        }
        if (user && user->nodes.contains(id.octreeNodeId)) {
            return {.resident = true};
        }
        if (isRefused(id, priority, (std::max)(knownPointCount.value_or(1), std::size_t{1}))) {
            return {};
        }
        if (knownPointCount == std::size_t{0}) {
            return {.resident = true};
        }
    }

    std::shared_ptr<const NodeVertices> vertices = fetch(source, id.octreeNodeId, stop);
    if (!vertices) {
        return {};
    }
    const std::size_t count = vertices->vertices.size();
    auto node = std::make_unique<PrioritizedNode>(PrioritizedNode{
        .id = id, .priority = priority, .cube = cube, .pointCount = count, .vertices = std::move(vertices)});

    Aftermath aftermath;
    {
        const std::lock_guard lock(mMutex);
        const User* const user = find(id.instanceId);
        if (*generation != generationOf(user)) {
            return {};
        }
        if (count == 0 || (user && user->nodes.contains(id.octreeNodeId))) {
            return {.resident = true};
        }
        if (isRefused(id, priority, count)) {
            return {};
        }
        admit(std::move(node), aftermath);
        if (!aftermath.evicted.empty()) {
            collectNews(room(), id.instanceId, aftermath);
        }
    }
    aftermath.tell();
    return {.resident = true, .changed = true};
}

// Those that find no room even when all that is less important has been evicted. What is as important stays,
// so that walks come to rest.
std::size_t NodePrioritizer::pointsLacking(const NodePriority& priority, std::size_t pointCount) {
    std::size_t lacking = pointCount - (std::min)(pointCount, room());
    for (auto user = mUsers.begin(); lacking > 0 && user != mUsers.end(); ++user) {
        lacking -= user->second.nodes.pointsBelow(priority, lacking);
    }
    return lacking;
}

bool NodePrioritizer::hasTooManyNodes(User& user, Octree::OctreeNodeId id, const NodePriority& priority) {
    if (user.nodes.size() < Buffer::maxNodes) {
        return false;
    }
    const PrioritizedNode* const leaf = user.nodes.leastImportantLeaf(id);
    return !leaf || !(leaf->priority < priority);
}

bool NodePrioritizer::isRefused(const NodeId& id, const NodePriority& priority, std::size_t pointCount) {
    User* const user = find(id.instanceId);
    if (user && hasTooManyNodes(*user, id.octreeNodeId, priority)) {
        return true;
    }
    const bool lacksRoom = pointsLacking(priority, pointCount) > 0;
    if (lacksRoom && user) {
        user->lacksNodes = true;
    }
    return lacksRoom;
}

bool NodePrioritizer::isWanted(const NodeId& id, const NodePriority& priority, std::size_t pointCount) {
    const std::lock_guard lock(mMutex);
    User* const user = find(id.instanceId);
    if (user &&
        (user->nodes.contains(id.octreeNodeId) || hasTooManyNodes(*user, id.octreeNodeId, priority))) {
        return false;
    }
    return pointsLacking(priority, (std::max)(pointCount, std::size_t{1})) == 0;
}

std::uint8_t NodePrioritizer::residentChildren(const NodeId& id) const {
    const std::lock_guard lock(mMutex);
    const User* const user = find(id.instanceId);
    return user ? user->nodes.childrenOf(id.octreeNodeId) : std::uint8_t{0};
}

NodePrioritizer::Outlook NodePrioritizer::outlook(std::size_t instanceId, const NodePriority& priority,
                                                  std::size_t points) {
    const std::lock_guard lock(mMutex);
    const User* const user = find(instanceId);
    const std::size_t attainable = points - pointsLacking(priority, points);
    return {user ? Counts{user->nodes.keptSize(), user->nodes.keptPointCount()} : Counts(), attainable};
}

void NodePrioritizer::admit(ResidentNodes::Node node, Aftermath& aftermath) {
    User& user = mUsers[node->id.instanceId];
    if (user.nodes.size() >= Buffer::maxNodes) {
        evict(user, *user.nodes.leastImportantLeaf(node->id.octreeNodeId), aftermath);
    }
    evictUntilThereIsRoomFor(node->pointCount, aftermath);
    const std::size_t count = node->pointCount;
    user.nodes.add(std::move(node));
    mTotalUsedPointCount += count;
    user.changed = true;
}

std::uint64_t NodePrioritizer::generation(std::size_t instanceId) const {
    const std::lock_guard lock(mMutex);
    return generationOf(find(instanceId));
}

NodePrioritizer::User* NodePrioritizer::find(std::size_t instanceId) {
    const auto user = mUsers.find(instanceId);
    return user == mUsers.end() ? nullptr : &user->second;
}

const NodePrioritizer::User* NodePrioritizer::find(std::size_t instanceId) const {
    const auto user = mUsers.find(instanceId);
    return user == mUsers.end() ? nullptr : &user->second;
}

std::size_t NodePrioritizer::room() const {
    return mTotalMaxPointCount - (std::min)(mTotalUsedPointCount, mTotalMaxPointCount);
}

NodePrioritizer::User* NodePrioritizer::ownerOfLeastImportant() {
    User* owner = nullptr;
    const PrioritizedNode* least = nullptr;
    for (auto& [instanceId, user] : mUsers) {
        const PrioritizedNode* const node = user.nodes.leastImportant();
        if (node && (!least || node->priority < least->priority)) {
            owner = &user;
            least = node;
        }
    }
    return owner;
}

void NodePrioritizer::evictUntilThereIsRoomFor(std::size_t pointCount, Aftermath& aftermath) {
    while (mTotalUsedPointCount + pointCount > mTotalMaxPointCount) {
        User& owner = *ownerOfLeastImportant();
        evict(owner, *owner.nodes.leastImportant(), aftermath);
    }
}

void NodePrioritizer::evict(User& user, const PrioritizedNode& node, Aftermath& aftermath) {
    aftermath.evicted.emplace_back();  // First, as it may fail.
    mTotalUsedPointCount -= node.pointCount;
    aftermath.evicted.back() = user.nodes.remove(node);
    user.changed = true;
    user.lacksNodes = true;
    user.news.nodesEvicted = !user.knowsOfEviction;
}

void NodePrioritizer::drop(User& user, Aftermath& aftermath) {
    if (user.nodes.size() > 0) {
        ResidentNodes& dropped = aftermath.dropped.emplace_back();
        std::swap(user.nodes, dropped);
        mTotalUsedPointCount -= dropped.pointCount();
        user.changed = true;
    }
}

// The user that made the change hears nothing of it.
void NodePrioritizer::collectNews(std::size_t roomBefore, std::optional<std::size_t> causer,
                                  Aftermath& aftermath) {
    const bool hasMoreRoom = room() > roomBefore;
    aftermath.news.reserve(mUsers.size());
    for (auto& [instanceId, user] : mUsers) {
        BudgetNews news = std::exchange(user.news, {});
        news.budgetFree = hasMoreRoom && user.lacksNodes;
        if ((news.nodesEvicted || news.budgetFree) && user.listener && instanceId != causer) {
            aftermath.news.emplace_back(user.listener, news);
            user.knowsOfEviction = user.knowsOfEviction || news.nodesEvicted;
            user.lacksNodes = user.lacksNodes && !news.budgetFree;
        }
    }
}

void NodePrioritizer::clear(std::size_t instanceId) {
    Aftermath aftermath;
    {
        const std::lock_guard lock(mMutex);
        const std::size_t roomBefore = room();
        User& user = mUsers[instanceId];
        drop(user, aftermath);
        user.lacksNodes = false;
        startGeneration(user);
        collectNews(roomBefore, instanceId, aftermath);
    }
    aftermath.tell();
}

void NodePrioritizer::clear() {
    Aftermath aftermath;
    {
        const std::lock_guard lock(mMutex);
        const std::size_t roomBefore = room();
        for (auto& [instanceId, user] : mUsers) {
            const bool hadNodes = user.nodes.size() > 0;
            drop(user, aftermath);
            startGeneration(user);
            user.lacksNodes = user.lacksNodes || hadNodes;
            user.news.nodesEvicted = user.news.nodesEvicted || (hadNodes && !user.knowsOfEviction);
        }
        collectNews(roomBefore, std::nullopt, aftermath);
    }
    aftermath.tell();
}

bool NodePrioritizer::hasUnpublishedChanges(std::size_t instanceId) const {
    const std::lock_guard lock(mMutex);
    const User* const user = find(instanceId);
    return user && user->changed;
}

NodePrioritizer::Counts NodePrioritizer::updateBuffers(std::size_t instanceId, bool dropDeepestLevel,
                                                       Core::TripleBuffer<Buffer>& buffers) {
    std::vector<std::shared_ptr<const NodeVertices>> stale;
    const std::lock_guard lock(mMutex);
    User& user = mUsers[instanceId];
    Buffer& buffer = buffers.writeSlot();
    user.nodes.publish(dropDeepestLevel, buffer);
    const Counts counts{buffer.nodes.size(), buffer.pointCount};
    buffers.swapWrite();
    user.changed = false;
    user.knowsOfEviction = false;
    // What an earlier publication left in the slot that comes back must not outlive its nodes.
    for (PublishedNode& node : buffers.writeSlot().nodes) {
        if (node.vertices) {
            stale.push_back(std::move(node.vertices));
        }
    }
    buffers.writeSlot().nodes.clear();
    return counts;
}

std::vector<std::shared_ptr<const NodeVertices>> NodePrioritizer::residentVertices(
    std::size_t instanceId) const {
    const std::lock_guard lock(mMutex);
    const User* const user = find(instanceId);
    return user ? user->nodes.vertices() : std::vector<std::shared_ptr<const NodeVertices>>();
}

}  // namespace Render
