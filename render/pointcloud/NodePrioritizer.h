#pragma once

#include <core/TripleBuffer.h>
#include <math/NBoundingBox.h>
#include <render/pointcloud/BudgetListener.h>
#include <render/pointcloud/NodeId.h>
#include <render/pointcloud/NodePriority.h>
#include <render/pointcloud/NodeVertexSource.h>
#include <render/pointcloud/PublishedNodes.h>
#include <render/pointcloud/ResidentNodes.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <unordered_map>
#include <vector>

namespace Render {

/// Keeps the nodes that are worth drawing, of all point clouds of one renderer, under a common budget in
/// points.
///
/// A node is offered with its priority. While the budget is not used up it becomes resident; after that, less
/// important resident nodes make room for it, the least important first, or it is refused and evicts nothing.
/// Eviction stops as soon as the sum of points is at or below the budget.
///
/// A publication holds 4096 nodes, so no point cloud has more than that resident: beyond, a new node takes
/// the place of the least important one of the same cloud that has no children there, or is refused.
///
/// The point clouds that share a prioritizer register with their own budgets; the smallest of these holds.
/// Nodes of one point cloud are told from those of others by its instance id. A user that registers with a
/// callback hears, until it publishes, when its nodes were evicted by others' offers or by a smaller budget;
/// and, when it was refused a node or lost one since its last walk began, when a clear, a user that leaves or
/// a larger budget makes room. Offers make no such news of room, so point clouds that walk whenever they hear
/// of room come to rest.
///
/// Every member may be called from any thread. Vertices are fetched, evicted ones destroyed, and callbacks
/// called outside the lock. Callbacks run on the thread that made the change, perhaps several at once, and
/// may call every member.
class NodePrioritizer {
public:
    using Buffer = PublishedNodes;

    struct OfferResult {
        bool resident = false;  ///< The node is resident now, or has no points to be resident with.
        bool changed = false;   ///< Nodes came or went.
    };

    struct Counts {
        std::size_t nodes = 0;
        std::size_t points = 0;
    };

    struct Outlook {
        Counts resident;                   ///< Except discarded nodes.
        std::size_t attainablePoints = 0;  ///< Of those asked for.
    };

    explicit NodePrioritizer(std::size_t totalMaxPointCount);
    ~NodePrioritizer();
    NodePrioritizer(const NodePrioritizer&) = delete;
    NodePrioritizer& operator=(const NodePrioritizer&) = delete;

    /// The prioritizer of a renderer, made with the given budget by the first who asks.
    static std::shared_ptr<NodePrioritizer> shared(std::size_t rendererId, std::size_t budget);

    /// The budget becomes the smallest of all users.
    void addUser(std::size_t instanceId, std::size_t budget, BudgetListener::Callback onNews = nullptr);
    /// Does nothing for one that is not registered.
    void setUserBudget(std::size_t instanceId, std::size_t budget);
    /// The user takes its nodes along. Its callback is not called any more after this: waits for calls under
    /// way on other threads, so the caller holds no lock that the callback takes, and no two callbacks remove
    /// each other's users.
    void removeUser(std::size_t instanceId);

    /// Evicts the least important nodes at once when they no longer fit.
    void setTotalMaxPointCount(std::size_t count);
    std::size_t totalMaxPointCount() const;
    std::size_t totalUsedPointCount() const;
    std::size_t residentNodeCount() const;

    /// Offers one node; fetches it unless it is resident or not important enough. With a generation given,
    /// the offer is refused when clear() has been called for this point cloud since that generation was asked
    /// for; a clear() during the fetch refuses it in any case. A stop is quiet; other failures to fetch throw
    /// std::runtime_error "Error loading point data" with the cause nested inside.
    ///
    /// With knownPointCount, a node that would not fit even in place of all that is less important is not
    /// fetched. A number that is too large, as of a node with hidden points, may keep out a node that would
    /// have fitted; fewer points of the budget than that number then stay unused.
    OfferResult offer(const NodeId& id, const Math::NBoundingBox<float, 3>& cube,
                      const NodePriority& priority, NodeVertexSource& source, std::stop_token stop,
                      std::optional<std::uint64_t> generation = std::nullopt,
                      std::optional<std::size_t> knownPointCount = std::nullopt);

    /// Whether offer() would have the node fetched: it is not resident, and there is or would be made room.
    bool isWanted(const NodeId& id, const NodePriority& priority, std::size_t pointCount);
    /// Bit i: child i of the node is resident.
    std::uint8_t residentChildren(const NodeId& id) const;
    /// What a point cloud has, and how many of so many more points there is room for, or would be made if
    /// they all had that priority.
    Outlook outlook(std::size_t instanceId, const NodePriority& priority, std::size_t points);

    /// Changes with every clear() of the point cloud.
    std::uint64_t generation(std::size_t instanceId) const;

    /// Begins a walk: gives each resident node of the point cloud the priority `rate(Octree::OctreeNodeId,
    /// cube)`; runs under the lock and ends early when `stop` is signalled.
    template <class Rate>
    void rerate(std::size_t instanceId, std::stop_token stop, Rate&& rate);

    /// Drops the nodes of one point cloud, or of all.
    void clear(std::size_t instanceId);
    void clear();

    /// True when the nodes to draw may differ from the last publication, whoever caused it.
    bool hasUnpublishedChanges(std::size_t instanceId) const;

    /// Publishes the point cloud's resident nodes except discarded ones and returns how many there are. With
    /// dropDeepestLevel only those above the last of the consecutive levels that begin at the root.
    Counts updateBuffers(std::size_t instanceId, bool dropDeepestLevel, Core::TripleBuffer<Buffer>& buffers);

    /// The vertices of all resident nodes of one point cloud.
    std::vector<std::shared_ptr<const NodeVertices>> residentVertices(std::size_t instanceId) const;

private:
    struct User {
        std::optional<std::size_t> budget;  ///< None while it is not registered.
        std::uint64_t generation = 0;       ///< Never used twice.
        bool changed = false;               ///< Since its last publication.
        bool lacksNodes = false;            ///< Refused or evicted since its last walk began or clear().
        bool knowsOfEviction = false;       ///< Was told since its last publication.
        BudgetNews news;                    ///< To be told.
        std::shared_ptr<BudgetListener> listener;
        ResidentNodes nodes;
    };
    struct Aftermath;

    // All of these expect the lock to be held.
    User* find(std::size_t instanceId);
    const User* find(std::size_t instanceId) const;
    std::uint64_t generationOf(const User* user) const { return user ? user->generation : 0; }
    std::size_t room() const;
    User* ownerOfLeastImportant();
    std::size_t pointsLacking(const NodePriority& priority, std::size_t pointCount);
    static bool hasTooManyNodes(User& user, Octree::OctreeNodeId id, const NodePriority& priority);
    bool isRefused(const NodeId& id, const NodePriority& priority, std::size_t pointCount);
    void admit(ResidentNodes::Node node, Aftermath& aftermath);
    void evict(User& user, const PrioritizedNode& node, Aftermath& aftermath);
    void evictUntilThereIsRoomFor(std::size_t pointCount, Aftermath& aftermath);
    void drop(User& user, Aftermath& aftermath);
    void applyBudgets(Aftermath& aftermath);
    void collectNews(std::size_t roomBefore, std::optional<std::size_t> causer, Aftermath& aftermath);
    void startGeneration(User& user) { user.generation = ++mLastGeneration; }

    mutable std::mutex mMutex;  ///< Guards all below.
    std::size_t mTotalUsedPointCount = 0;
    std::size_t mTotalMaxPointCount;
    std::unordered_map<std::size_t, User> mUsers;  ///< By instance id, registered or not.
    std::uint64_t mLastGeneration = 0;
};

template <class Rate>
void NodePrioritizer::rerate(std::size_t instanceId, std::stop_token stop, Rate&& rate) {
    const std::lock_guard lock(mMutex);
    if (User* const user = find(instanceId)) {
        user->lacksNodes = false;
        user->changed = user->nodes.rerate(stop, rate) || user->changed;
    }
}

}  // namespace Render
