#include <octree/NodeChildren.h>
#include <octree/OctreeNodeId.h>

#include <gtest/gtest.h>

#include <set>
#include <unordered_set>

using Octree::NodeChildren;
using Octree::OctreeNodeId;

TEST(OctreeNodeId, NamesItsPath) {
    const OctreeNodeId id = OctreeNodeId().child(0).child(4).child(2).child(6);
    EXPECT_EQ(id.name(), "r0426");
    EXPECT_EQ(id.level(), 4u);
    EXPECT_EQ(id.childIndex(), 6u);
    EXPECT_EQ(id.parent().name(), "r042");
    EXPECT_TRUE(OctreeNodeId().parent().isRoot());
}

TEST(OctreeNodeId, OrdersLevelByLevelWithSiblingsAdjacent) {
    const OctreeNodeId root{};
    const std::set<OctreeNodeId> ids{root.child(7),          root.child(0).child(3), root,
                                     root.child(6).child(1), root.child(0),          root.child(0).child(2)};
    std::string order;
    for (const OctreeNodeId id : ids) {
        order += id.name() + " ";
    }
    EXPECT_EQ(order, "r r0 r7 r02 r03 r61 ");
}

TEST(OctreeNodeId, EndsAtTheDeepestLevel) {
    OctreeNodeId id;
    while (id.level() < OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
        id = id.child(7);
    }
    EXPECT_EQ(id.name(), "r" + std::string(21, '7'));
    EXPECT_THROW(id.child(0), std::out_of_range);
    EXPECT_THROW(OctreeNodeId().child(8), std::out_of_range);
    EXPECT_TRUE(NodeChildren(id, 255).empty());
}

TEST(OctreeNodeId, SpreadsItsHashesOverLowBits) {
    std::set<std::size_t> buckets;
    for (std::size_t a = 0; a < 512; ++a) {
        const OctreeNodeId id = OctreeNodeId().child(a >> 6).child(a >> 3 & 7).child(a & 7);
        buckets.insert(std::hash<OctreeNodeId>()(id) & 511);
    }
    EXPECT_GT(buckets.size(), 200u);
}

TEST(NodeChildren, ListsTheMaskInAscendingOrder) {
    const NodeChildren children(OctreeNodeId().child(3), 0b10000101);
    ASSERT_EQ(children.size(), 3u);
    EXPECT_EQ(children[0].name(), "r30");
    EXPECT_EQ(children[1].name(), "r32");
    EXPECT_EQ(children[2].name(), "r37");
}
