#include <gtest/gtest.h>
#include <render/pointcloud/PointPool.h>

#include <algorithm>
#include <random>
#include <tuple>

namespace {

using Render::PointPool;
using Render::PublishedNode;

PublishedNode node(std::size_t child, std::size_t points, std::uint64_t serial) {
    PublishedNode result;
    result.id = Octree::OctreeNodeId().child(child & 7).child(child >> 3 & 7).child(child >> 6 & 7);
    result.pointCount = points;
    result.serial = serial;
    return result;
}

// No two nodes overlap and each lies within its page.
void expectDisjoint(const PointPool& pool, const std::vector<PublishedNode>& nodes) {
    std::vector<std::tuple<std::size_t, std::size_t, std::size_t>> taken;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (nodes[i].pointCount > 0) {
            const PointPool::Range& range = pool.ranges()[i];
            taken.emplace_back(range.page, range.first, range.first + nodes[i].pointCount);
            ASSERT_LE(range.first + nodes[i].pointCount, pool.pageCapacity(range.page));
        }
    }
    std::sort(taken.begin(), taken.end());
    for (std::size_t i = 1; i < taken.size(); ++i) {
        if (std::get<0>(taken[i]) == std::get<0>(taken[i - 1])) {
            ASSERT_GE(std::get<1>(taken[i]), std::get<2>(taken[i - 1]));
        }
    }
}

TEST(PointPoolTest, OnlyNodesWithNewVerticesAreUploaded) {
    PointPool pool(100);
    pool.update({node(0, 30, 1), node(1, 30, 2), node(2, 0, 3)});
    EXPECT_EQ(pool.uploads(), (std::vector<std::size_t>{0, 1}));
    const PointPool::Range kept = pool.ranges()[1];
    pool.update({node(0, 35, 4), node(1, 30, 2), node(3, 5, 5)});
    EXPECT_EQ(pool.uploads(), (std::vector<std::size_t>{0, 2}));
    EXPECT_EQ(pool.ranges()[1].page, kept.page);
    EXPECT_EQ(pool.ranges()[1].first, kept.first);
    pool.update({node(0, 35, 4), node(1, 30, 2), node(3, 5, 5)});
    EXPECT_TRUE(pool.uploads().empty());
}

TEST(PointPoolTest, GapsSideBySideBecomeOne) {
    PointPool pool(100);
    pool.update({node(0, 25, 1), node(1, 25, 2), node(2, 25, 3), node(3, 25, 4)});
    pool.update({node(0, 25, 1), node(3, 25, 4)});
    pool.update({node(0, 25, 1), node(3, 25, 4), node(4, 50, 5)});
    EXPECT_EQ(pool.pageCount(), 1u);
    EXPECT_EQ(pool.ranges()[2].first, 25u);
    // In one update, what leaves makes room for what comes.
    pool.update({node(0, 25, 1), node(3, 25, 4), node(5, 50, 6)});
    EXPECT_EQ(pool.pageCount(), 1u);
}

TEST(PointPoolTest, PagesComeAndGo) {
    PointPool pool(100);
    pool.update({node(0, 60, 1), node(1, 60, 2), node(2, 250, 3)});
    ASSERT_EQ(pool.pageCount(), 3u);
    EXPECT_EQ(pool.pageCapacity(2), 250u);
    pool.update({node(1, 60, 2)});
    EXPECT_EQ(pool.pageCapacity(0), 0u);
    EXPECT_EQ(pool.pageCapacity(1), 100u);
    EXPECT_EQ(pool.pageCapacity(2), 0u);
    pool.update({node(1, 60, 2), node(3, 90, 4)});
    EXPECT_EQ(pool.pageCount(), 3u);
    EXPECT_EQ(pool.ranges()[1].page, 0u);
    pool.update({});
    EXPECT_EQ(pool.pageCapacity(0) + pool.pageCapacity(1) + pool.pageCapacity(2), 0u);
}

TEST(PointPoolTest, RandomPublicationsNeverOverlap) {
    PointPool pool(1000);
    std::mt19937 random(3);
    std::vector<PublishedNode> all;
    for (std::size_t i = 0; i < 200; ++i) {
        all.push_back(node(i, random() % 300, i));
    }
    std::size_t points = 0;
    for (int round = 0; round < 300; ++round) {
        std::vector<PublishedNode> nodes;
        points = 0;
        for (PublishedNode& each : all) {
            if (random() % 20 == 0) {
                each.serial += 1000;
                each.pointCount = random() % 1200;
            }
            if (random() % 3 != 0) {
                nodes.push_back(each);
                points += each.pointCount;
            }
        }
        pool.update(nodes);
        expectDisjoint(pool, nodes);
    }
    std::size_t capacity = 0;
    for (std::size_t page = 0; page < pool.pageCount(); ++page) {
        capacity += pool.pageCapacity(page);
    }
    EXPECT_LT(capacity, 3 * points);
}

}  // namespace
