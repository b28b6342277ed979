#include <octree/ChildCube.h>
#include <octree/NodeKey.h>

#include <gtest/gtest.h>

#include <string>

using Octree::NodeKey;
using Octree::OctreeNodeId;

TEST(NodeKey, NamesTheCubeThatTheIdentifierNames) {
    // The grid of a level counts cubes along each axis; a child's box is a half of its parent's.
    OctreeNodeId id;
    Math::NBoundingBox<double, 3> box({0, 0, 0}, {8, 8, 8});
    for (const std::size_t child : {4u, 2u, 1u}) {
        id = id.child(child);
        box = Octree::childCube(box, child);
    }
    const NodeKey key(id);
    EXPECT_EQ(key.text(), "3-4-2-1");
    EXPECT_EQ(box.min, (Math::Point<double, 3>(4, 2, 1)));
    EXPECT_EQ(NodeKey::parse("3-4-2-1"), key);
    EXPECT_EQ(key.id(), id);
    EXPECT_EQ(NodeKey(OctreeNodeId()).text(), "0-0-0-0");
}

TEST(NodeKey, IsTheSameThereAndBackDownToTheDeepestLevel) {
    OctreeNodeId id;
    for (std::size_t level = 0; level < OctreeNodeId::MAX_REPRESENTABLE_LEVEL; ++level) {
        id = id.child(level * 5 % 8);
        const auto key = NodeKey::parse(NodeKey(id).text());
        ASSERT_TRUE(key);
        EXPECT_EQ(key->id(), id);
    }
    EXPECT_EQ(NodeKey::parse("22-4194303-0-3")->id(), NodeKey::parse("21-2097151-0-1")->id());
}

TEST(NodeKey, OfAnotherSpellingIsNone) {
    for (const char* text :
         {"", "0", "0-0-0", "0-0-0-0-0", "0-0-0-0 ", " 0-0-0-0", "0-0-0-", "00-0-0-0", "1-00-0-0", "1-+1-0-0",
          "1--1-0-0", "1-a-0-0", "0-1-0-0", "2-0-4-0", "64-0-0-0", "1-0-0-18446744073709551616", "1_0_0_0"}) {
        EXPECT_FALSE(NodeKey::parse(text)) << text;
    }
}
