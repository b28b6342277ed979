#include <core/ExceptionChain.h>
#include <gtest/gtest.h>
#include <render/pointcloud/BrightnessAndContrast.h>
#include <render/pointcloud/NodePrioritizer.h>

#include <functional>
#include <map>
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

TEST_F(NodePrioritizerTest, APublicationHoldsAtMost4096Nodes) {
    prioritizer.setTotalMaxPointCount(1000000);
    source.size = 1;
    for (std::size_t i = 0; i < 4100; ++i) {
        offer(root.child(i & 7).child(i >> 3 & 7).child(i >> 6 & 7).child(i >> 9 & 7).child(i >> 12), at(1));
    }
    EXPECT_EQ(prioritizer.residentNodeCount(), 4100u);
    EXPECT_EQ(published().size(), 4096u);
    EXPECT_EQ(buffers.readSlot().pointCount, 4096u);
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
