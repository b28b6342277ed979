#include <gtest/gtest.h>
#include <render/pointcloud/PublishedNodes.h>

#include <algorithm>
#include <bit>
#include <random>
#include <set>

namespace {

using Octree::OctreeNodeId;
using Render::PublishedNodes;

PublishedNodes publish(const std::set<OctreeNodeId>& ids) {
    PublishedNodes published;
    for (const OctreeNodeId id : ids) {  // Sets are in the order of texels.
        Render::PublishedNode node;
        node.id = id;
        published.nodes.push_back(node);
    }
    published.buildNodeTable();
    return published;
}

// What the shader does: descends from a node towards a position in the node's own unit cube as long as the
// table has a child there.
std::size_t lodLevel(const PublishedNodes& published, std::size_t texel, Math::Point<double, 3> position) {
    std::size_t depth = published.nodes[texel].id.level();
    for (int step = 0; step < 22; ++step) {
        unsigned child = 0;
        for (int axis = 0; axis < 3; ++axis) {
            const bool upper = position[axis] >= 0.5;
            child = child << 1 | (upper ? 1u : 0u);
            position[axis] = position[axis] * 2 - (upper ? 1 : 0);
        }
        const PublishedNodes::Texel& entry = published.nodeTable[texel];
        if ((entry[0] >> child & 1) == 0) {
            return depth;
        }
        const unsigned offset = entry[1] * 256u + entry[2];
        texel += offset + static_cast<std::size_t>(std::popcount(entry[0] & ((1u << child) - 1)));
        ++depth;
    }
    return depth;
}

TEST(PublishedNodesTest, TheShadersLookupFindsTheDeepestNodeAtEachPoint) {
    std::mt19937 random(7);
    std::set<OctreeNodeId> ids{OctreeNodeId()};
    std::vector<OctreeNodeId> grown{OctreeNodeId()};
    while (ids.size() < 1500) {
        const OctreeNodeId parent = grown[random() % grown.size()];
        const OctreeNodeId child = parent.child(random() % 8);
        if (child.level() <= 12 && ids.insert(child).second) {
            grown.push_back(child);
        }
    }
    const PublishedNodes published = publish(ids);
    std::uniform_real_distribution<double> coordinate(0.0, 1.0);
    std::size_t deepest = 0;
    for (std::size_t texel = 0; texel < published.nodes.size(); ++texel) {
        for (int repeat = 0; repeat < 8; ++repeat) {
            const Math::Point<double, 3> position(coordinate(random), coordinate(random), coordinate(random));
            OctreeNodeId expected = published.nodes[texel].id;
            Math::Point<double, 3> inNode = position;
            for (;;) {
                std::size_t child = 0;
                for (int axis = 0; axis < 3; ++axis) {
                    inNode[axis] *= 2;
                    child = child * 2 + (inNode[axis] >= 1 ? 1 : 0);
                    inNode[axis] -= inNode[axis] >= 1 ? 1 : 0;
                }
                if (!ids.contains(expected.child(child))) {
                    break;
                }
                expected = expected.child(child);
            }
            ASSERT_EQ(lodLevel(published, texel, position), expected.level())
                << published.nodes[texel].id.name();
            deepest = std::max(deepest, expected.level());
        }
    }
    EXPECT_GT(deepest, 5u);
    EXPECT_TRUE(published.nodes[0].id.isRoot());
}

TEST(PublishedNodesTest, AFullLevelReachesOffsetsOfTwoBytes) {
    std::set<OctreeNodeId> ids{OctreeNodeId()};
    for (std::size_t i = 0; i < 8 * 8 * 8; ++i) {
        const OctreeNodeId first = OctreeNodeId().child(i >> 6);
        const OctreeNodeId second = first.child(i >> 3 & 7);
        ids.insert({first, second, second.child(i & 7)});
    }
    const PublishedNodes published = publish(ids);
    const std::size_t last = 1 + 8 + 63;  // r77, whose children are the last eight of 585.
    EXPECT_EQ(published.nodes[last].id.name(), "r77");
    EXPECT_EQ(published.nodeTable[last],
              (PublishedNodes::Texel{0xff, (577 - 72) >> 8, (577 - 72) & 0xff, 0}));
}

TEST(PublishedNodesTest, ANodeWithoutItsParentIsInNoMask) {
    const OctreeNodeId root{};
    const PublishedNodes published =
        publish({root, root.child(2), root.child(3).child(1), root.child(2).child(7)});
    ASSERT_EQ(published.nodes[3].id.name(), "r31");
    EXPECT_EQ(published.nodeTable[0], (PublishedNodes::Texel{1 << 2, 0, 1, 0}));
    EXPECT_EQ(published.nodeTable[1], (PublishedNodes::Texel{1 << 7, 0, 1, 0}));
    EXPECT_EQ(published.nodeTable[3], (PublishedNodes::Texel{}));
    EXPECT_EQ(publish({root.child(4)}).nodeTable.size(), 1u);
}

}  // namespace
