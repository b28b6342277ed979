#include <core/ExceptionChain.h>
#include <gtest/gtest.h>
#include <render/pointcloud/BrightnessAndContrast.h>
#include <render/pointcloud/NodePrioritizer.h>
#include <tests/support/FailingAllocation.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <stdexcept>

namespace {

using Octree::OctreeNodeId;
using Render::NodePrioritizer;
using Render::NodePriority;

// Vertices of any number, counted fetches, and a hook to interfere while a fetch is under way.
class FakeSource : public Render::NodeVertexSource {
public:
    bool fetchNodeVertices(OctreeNodeId id, Render::VertexContainer& out, std::stop_token) override {
        ++fetches;
        if (hook) {
            hook();
        }
        const auto own = sizes.find(id);
        out.resize(own == sizes.end() ? size : own->second);
        return succeeds;
    }

    std::size_t size = 10;
    std::map<OctreeNodeId, std::size_t> sizes;
    int fetches = 0;
    bool succeeds = true;
    std::function<void()> hook;
};

class NodePrioritizerTest : public testing::Test {
protected:
    // A priority of about 1000 / distance.
    static NodePriority at(float distance) {
        const float half = 1.0f / std::sqrt(3.0f);
        return NodePriority::perspective({{-half, -half, -half}, {half, half, half}}, {}, {},
                                         {distance, 0, 0}, 1000.0f, Render::Viewport(2, 2),
                                         3.14159265f / 2.0f, 0.0f);
    }

    NodePrioritizer::OfferResult offer(OctreeNodeId id, const NodePriority& priority,
                                       std::uint64_t instance = 0) {
        return prioritizer.offer({instance, id}, {}, priority, source, stop.get_token());
    }

    std::set<std::string> published(std::uint64_t instance = 0, bool dropDeepestLevel = false) {
        prioritizer.updateBuffers(instance, dropDeepestLevel, buffers);
        EXPECT_TRUE(buffers.swapRead());
        std::set<std::string> names;
        for (const Render::PublishedNode& node : buffers.readSlot().nodes) {
            names.insert(node.id.name());
        }
        return names;
    }

    const OctreeNodeId root{};
    FakeSource source;
    std::stop_source stop;
    NodePrioritizer prioritizer{35};
    Core::TripleBuffer<Render::PublishedNodes> buffers;
};

TEST_F(NodePrioritizerTest, NodesAreAdmittedWhileTheSumStaysBelowTheBudget) {
    EXPECT_TRUE(offer(root, at(1)).changed);
    EXPECT_TRUE(offer(root.child(0), at(2)).resident);
    EXPECT_TRUE(offer(root.child(1), at(3)).resident);
    const auto again = offer(root.child(1), at(3));
    EXPECT_TRUE(again.resident);
    EXPECT_FALSE(again.changed);
    EXPECT_EQ(source.fetches, 3);
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 30u);
}

TEST_F(NodePrioritizerTest, AFullBudgetEvictsTheLeastImportant) {
    for (std::size_t i = 0; i < 3; ++i) {
        offer(root.child(i), at(static_cast<float>(i + 2)));
    }
    const auto more = offer(root, at(1));
    EXPECT_TRUE(more.resident);
    EXPECT_EQ(published(), (std::set<std::string>{"r", "r0", "r1"}));
    // Below the budget, so it is fetched before it turns out to be the least important itself.
    const auto less = offer(root.child(7), at(9));
    EXPECT_FALSE(less.resident);
    EXPECT_EQ(source.fetches, 5);
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 30u);
}

TEST_F(NodePrioritizerTest, AnExactlyUsedBudgetRefusesWithoutFetching) {
    prioritizer.setTotalMaxPointCount(30);
    offer(root, at(1));
    offer(root.child(0), at(2));
    // The third would reach the budget: it is admitted by way of the heap, which evicts nothing at the
    // budget.
    EXPECT_TRUE(offer(root.child(1), at(3)).resident);
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 30u);
    EXPECT_FALSE(offer(root.child(2), at(4)).resident);
    EXPECT_EQ(source.fetches, 3);
    EXPECT_TRUE(offer(root.child(3), at(2.5f)).resident);
    EXPECT_EQ(published(), (std::set<std::string>{"r", "r0", "r3"}));
}

TEST_F(NodePrioritizerTest, ABudgetOfZeroEvictsEachNodeAtOnce) {
    prioritizer.setTotalMaxPointCount(0);
    EXPECT_FALSE(offer(root, NodePriority::keep()).resident);
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 0u);
    EXPECT_EQ(prioritizer.residentNodeCount(), 0u);
    EXPECT_TRUE(published().empty());
}

TEST_F(NodePrioritizerTest, OneLargeNodeMayPushOutSeveral) {
    offer(root.child(0), at(5));
    offer(root.child(1), at(6));
    offer(root.child(2), at(7));
    source.sizes[root] = 25;
    EXPECT_TRUE(offer(root, at(1)).resident);
    EXPECT_EQ(published(), (std::set<std::string>{"r", "r0"}));
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 35u);
}

TEST_F(NodePrioritizerTest, LoweringTheBudgetEvictsTheLeastImportantFirst) {
    prioritizer.setTotalMaxPointCount(1000);
    for (std::size_t i = 0; i < 8; ++i) {
        offer(root.child(i), at(static_cast<float>((i * 5) % 8 + 1)));  // Distances 1 6 3 8 5 2 7 4.
    }
    published();
    prioritizer.setTotalMaxPointCount(20);
    EXPECT_TRUE(prioritizer.hasUnpublishedChanges(0));
    EXPECT_EQ(published(), (std::set<std::string>{"r0", "r5"}));
    EXPECT_FALSE(prioritizer.hasUnpublishedChanges(0));
}

TEST_F(NodePrioritizerTest, PointCloudsShareTheBudgetButNotThePublications) {
    offer(root, at(3), 1);
    offer(root, at(2), 2);
    offer(root.child(0), at(4), 1);
    published(1);
    offer(root.child(0), at(1), 2);  // Evicts the other's child.
    EXPECT_TRUE(prioritizer.hasUnpublishedChanges(1));
    EXPECT_EQ(published(1), (std::set<std::string>{"r"}));
    EXPECT_EQ(published(2), (std::set<std::string>{"r", "r0"}));
    prioritizer.clear(2);
    EXPECT_EQ(published(1).size(), 1u);
    EXPECT_TRUE(published(2).empty());
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 10u);
    prioritizer.clear();
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 0u);
    EXPECT_TRUE(published(77).empty());
}

TEST_F(NodePrioritizerTest, TheSmallestBudgetOfTheUsersHolds) {
    prioritizer.addUser(1, 100);
    prioritizer.addUser(2, 20);
    EXPECT_EQ(prioritizer.totalMaxPointCount(), 20u);
    offer(root, at(1), 2);
    prioritizer.removeUser(2);
    EXPECT_EQ(prioritizer.totalMaxPointCount(), 100u);
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 0u);
    const auto shared = NodePrioritizer::shared(7, 40);
    EXPECT_EQ(NodePrioritizer::shared(7, 90), shared);
    EXPECT_NE(NodePrioritizer::shared(8, 90), shared);
}

TEST_F(NodePrioritizerTest, AnEmptyNodeIsResidentWithoutBeingKept) {
    source.size = 0;
    const auto result = offer(root, NodePriority::keep());
    EXPECT_TRUE(result.resident);
    EXPECT_FALSE(result.changed);
    EXPECT_EQ(prioritizer.residentNodeCount(), 0u);
}

TEST_F(NodePrioritizerTest, AClearDuringTheFetchRefusesTheNode) {
    source.hook = [this] { prioritizer.clear(0); };
    EXPECT_FALSE(offer(root, NodePriority::keep()).resident);
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 0u);
    source.hook = nullptr;
    const std::uint64_t generation = prioritizer.generation(0);
    prioritizer.clear(0);
    EXPECT_FALSE(prioritizer.offer({0, root}, {}, NodePriority::keep(), source, {}, generation).resident);
    EXPECT_EQ(source.fetches, 1);
    EXPECT_TRUE(offer(root, NodePriority::keep()).resident);
}

TEST_F(NodePrioritizerTest, ANodeThatBecameResidentDuringItsFetchIsNotAddedTwice) {
    source.hook = [this] {
        source.hook = nullptr;
        offer(root, NodePriority::keep());
    };
    const auto result = offer(root, NodePriority::keep());
    EXPECT_TRUE(result.resident);
    EXPECT_FALSE(result.changed);
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 10u);
}

TEST_F(NodePrioritizerTest, AFailedFetchThrowsUnlessStopped) {
    source.hook = [] { throw std::runtime_error("disk gone"); };
    try {
        offer(root, NodePriority::keep());
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Error loading point data");
        EXPECT_EQ(Core::exceptionChain(error), "Error loading point data: disk gone");
    }
    source.hook = nullptr;
    source.succeeds = false;
    EXPECT_THROW(offer(root, NodePriority::keep()), std::runtime_error);
    stop.request_stop();
    EXPECT_FALSE(offer(root, NodePriority::keep()).resident);
    source.hook = [] { throw std::runtime_error("cancelled"); };
    EXPECT_FALSE(offer(root, NodePriority::keep()).resident);
}

TEST_F(NodePrioritizerTest, ReratedNodesAreDrawnAndEvictedByTheirNewPriority) {
    offer(root, at(1));
    offer(root.child(0), at(2));
    offer(root.child(1), at(3));
    published();
    prioritizer.rerate(0, {}, [&](OctreeNodeId id, const auto&) {
        return id == root.child(0) ? NodePriority::discard() : at(id.isRoot() ? 5 : 1);
    });
    EXPECT_TRUE(prioritizer.hasUnpublishedChanges(0));
    EXPECT_EQ(published(), (std::set<std::string>{"r", "r1"}));
    EXPECT_TRUE(offer(root.child(2), at(2)).resident);  // Takes the place of the discarded one.
    EXPECT_EQ(published(), (std::set<std::string>{"r", "r1", "r2"}));
}

TEST_F(NodePrioritizerTest, TheDeepestOfTheConsecutiveLevelsCanBeLeftOut) {
    prioritizer.setTotalMaxPointCount(1000);
    offer(root, at(1));
    offer(root.child(0), at(2));
    offer(root.child(0).child(3), at(3));
    offer(root.child(0).child(3).child(1).child(1), at(5));  // Level 3 is missing.
    EXPECT_EQ(published().size(), 4u);
    EXPECT_EQ(published(0, true), (std::set<std::string>{"r", "r0"}));
    EXPECT_TRUE(published(5, true).empty());
}

// A random tree, walked from the root as a point cloud is: the most important node first, children once their
// parent is resident. No two nodes are as important.
class RankedTree {
public:
    void grow(std::size_t nodes, std::mt19937& random) {
        std::vector<OctreeNodeId> ids{OctreeNodeId()};
        points[ids[0]] = 1 + random() % 150;
        while (ids.size() < nodes) {
            const OctreeNodeId id = ids[random() % ids.size()].child(random() % 8);
            if (id.level() < 9 && points.emplace(id, 1 + random() % 150).second) {
                ids.push_back(id);
            }
        }
    }

    // A new view. Children are less important than their parents unless `anyOrder`.
    void rank(std::mt19937& random, bool anyOrder = false) {
        std::vector<OctreeNodeId> open{OctreeNodeId()};
        if (anyOrder) {
            open.clear();
            std::transform(points.begin(), points.end(), std::back_inserter(open),
                           [](const auto& node) { return node.first; });
        }
        for (int rank = static_cast<int>(points.size()); !open.empty(); --rank) {
            std::swap(open[random() % open.size()], open.back());
            const OctreeNodeId id = open.back();
            open.pop_back();
            ranks[id] = rank;
            for (std::size_t i = 0; i < 8 && !anyOrder; ++i) {
                if (points.contains(id.child(i))) {
                    open.push_back(id.child(i));
                }
            }
        }
        ranks[OctreeNodeId()] = static_cast<int>(points.size()) + 1;
    }

    NodePriority priority(OctreeNodeId id) const {
        const float half = 1.0f / std::sqrt(3.0f);
        return NodePriority::perspective({{-half, -half, -half}, {half, half, half}}, {}, {}, {1, 0, 0},
                                         static_cast<float>(ranks.at(id)), Render::Viewport(2, 2),
                                         3.14159265f / 2.0f, 0.0f);
    }

    template <class Offer>
    void walk(Offer&& offer) const {
        std::set<std::pair<int, OctreeNodeId>> open{{ranks.at(OctreeNodeId()), OctreeNodeId()}};
        while (!open.empty()) {
            const OctreeNodeId id = std::prev(open.end())->second;
            open.erase(std::prev(open.end()));
            const bool isResident = offer(id);
            for (std::size_t i = 0; isResident && i < 8; ++i) {
                if (points.contains(id.child(i))) {
                    open.emplace(ranks.at(id.child(i)), id.child(i));
                }
            }
        }
    }

    std::map<OctreeNodeId, std::size_t> points;
    std::map<OctreeNodeId, int> ranks;
};

// Admission and eviction in their plainest form.
class PlainModel {
public:
    PlainModel(const RankedTree& tree, std::size_t budget) : mTree(tree), mBudget(budget) {}

    bool offer(OctreeNodeId id) {
        if (!resident.contains(id)) {
            resident.insert(id);
            mUsed += mTree.points.at(id);
            while (mUsed > mBudget) {
                const auto least = std::min_element(resident.begin(), resident.end(), [&](auto a, auto b) {
                    return mTree.ranks.at(a) < mTree.ranks.at(b);
                });
                mUsed -= mTree.points.at(*least);
                resident.erase(least);
            }
        }
        return resident.contains(id);
    }

    std::set<OctreeNodeId> resident;

private:
    const RankedTree& mTree;
    std::size_t mBudget;
    std::size_t mUsed = 0;
};

class NodePrioritizerWalkTest : public NodePrioritizerTest {
protected:
    // Returns whether the walk changed anything.
    bool walk(bool tellsPointCounts) {
        bool changed = false;
        prioritizer.rerate(0, {}, [&](OctreeNodeId id, const auto&) { return tree.priority(id); });
        tree.walk([&](OctreeNodeId id) {
            const auto result = prioritizer.offer(
                {0, id}, {}, tree.priority(id), source, {}, std::nullopt,
                tellsPointCounts ? std::optional<std::size_t>(tree.points.at(id)) : std::nullopt);
            changed = changed || result.changed;
            return result.resident;
        });
        return changed;
    }

    std::set<OctreeNodeId> publishedIds() {
        published();
        std::set<OctreeNodeId> ids;
        for (const Render::PublishedNode& node : buffers.readSlot().nodes) {
            ids.insert(node.id);
        }
        return ids;
    }

    std::mt19937 random{17};
    RankedTree tree;
};

TEST_F(NodePrioritizerWalkTest, KnownPointCountsSaveFetchesAndLeaveTheSameNodes) {
    tree.grow(400, random);
    source.sizes = tree.points;
    for (const std::size_t budget : {10u, 500u, 3000u, 9000u, 100000u}) {
        for (const bool tellsPointCounts : {false, true}) {
            prioritizer.clear();
            prioritizer.setTotalMaxPointCount(budget);
            PlainModel model(tree, budget);
            for (int view = 0; view < 12; ++view) {
                tree.rank(random);
                source.fetches = 0;
                walk(tellsPointCounts);
                tree.walk([&](OctreeNodeId id) { return model.offer(id); });
                const auto resident = publishedIds();
                ASSERT_EQ(resident, model.resident) << "budget " << budget << ", view " << view;
                if (tellsPointCounts && view == 0) {
                    EXPECT_EQ(source.fetches, static_cast<int>(resident.size()));
                }
                source.fetches = 0;
                EXPECT_FALSE(walk(tellsPointCounts));
                EXPECT_TRUE(source.fetches == 0 || !tellsPointCounts);
            }
        }
    }
}

TEST_F(NodePrioritizerWalkTest, NoMoreThanAPublicationHoldsBecomeResidentAndNoneWithoutItsParent) {
    prioritizer.setTotalMaxPointCount(1000000);
    tree.grow(4600, random);
    source.size = 1;
    for (int view = 0; view < 4; ++view) {
        tree.rank(random, view == 2);
        walk(view % 2 == 0);
        const auto resident = publishedIds();
        ASSERT_EQ(resident.size(), Render::PublishedNodes::maxNodes);
        EXPECT_EQ(prioritizer.residentNodeCount(), Render::PublishedNodes::maxNodes);
        for (const OctreeNodeId id : resident) {
            ASSERT_TRUE(resident.contains(id.parent())) << id.name();
        }
        if (view != 2) {
            for (const OctreeNodeId id : resident) {
                ASSERT_GT(tree.ranks.at(id), 4600 - 4096) << id.name();
            }
        }
    }
}

TEST_F(NodePrioritizerTest, AnOfferOfAResidentNodeAllocatesNothing) {
    offer(root, at(1));
    const std::size_t before = TestSupport::FailingAllocation::count();
    EXPECT_TRUE(offer(root, at(1)).resident);
    EXPECT_EQ(TestSupport::FailingAllocation::count(), before);
}

TEST_F(NodePrioritizerTest, AnOfferThatRunsOutOfMemoryLeavesNodesAndCountsInStep) {
    prioritizer.setTotalMaxPointCount(100);
    long failing = 0;
    for (bool failed = true; failed; ++failing) {
        source.sizes[root] = 10;
        prioritizer.clear();
        for (std::size_t i = 0; i < 7; ++i) {
            offer(root.child(i), at(static_cast<float>(i + 2)));
        }
        source.sizes[root] = 60;
        failed = false;
        TestSupport::FailingAllocation::failAfter(failing);
        try {
            offer(root, at(1));
        } catch (const std::exception&) {
            failed = true;
        }
        TestSupport::FailingAllocation::failAfter(-1);
        published();
        EXPECT_EQ(buffers.readSlot().nodes.size(), prioritizer.residentNodeCount());
        EXPECT_EQ(buffers.readSlot().pointCount, prioritizer.totalUsedPointCount());
    }
    EXPECT_GT(failing, 5);
    EXPECT_TRUE(offer(root, at(1)).resident);
    EXPECT_LE(prioritizer.totalUsedPointCount(), 100u);
}

TEST_F(NodePrioritizerTest, VerticesAreFreedOnceNoPublicationOnItsWayNeedsThem) {
    offer(root, at(1));
    published();
    std::weak_ptr<const Render::NodeVertices> vertices = buffers.readSlot().nodes[0].vertices;
    prioritizer.clear(0);
    EXPECT_FALSE(vertices.expired());
    published();                       // The reader gives up the old slot,
    EXPECT_TRUE(published().empty());  // and the writer empties it when it comes back.
    EXPECT_TRUE(vertices.expired());
}

TEST(BrightnessAndContrastTest, TheGreysLeftAfterClippingFillTheRange) {
    auto node = std::make_shared<Render::NodeVertices>();
    node->vertices.resize(100);
    for (std::size_t i = 0; i < 100; ++i) {
        const auto grey = static_cast<unsigned char>(i < 2 ? 0 : i < 99 ? 51 + i : 255);  // 53 to 149.
        node->vertices.setColor(i, grey, grey, grey, 255);
    }
    const auto mapped = [&](float dark, float bright, float grey) {
        const auto stretch = Render::stretchColors({node}, dark, bright);
        return stretch.contrast * (grey / 255.0f + stretch.brightness - 0.5f) + 0.5f;
    };
    EXPECT_NEAR(mapped(0.02f, 0.01f, 53), 0.0f, 1e-5f);
    EXPECT_NEAR(mapped(0.02f, 0.01f, 149), 1.0f, 1e-5f);
    EXPECT_NEAR(mapped(0.0f, 0.0f, 77), 77 / 255.0f, 1e-5f);
    EXPECT_NEAR(mapped(0.6f, 0.6f, 77), 77 / 255.0f, 1e-5f);
    EXPECT_EQ(Render::stretchColors({}, 0.1f, 0.1f).contrast, 1.0f);
}

}  // namespace
