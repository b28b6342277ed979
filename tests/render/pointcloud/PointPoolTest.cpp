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
    static const auto vertices = std::make_shared<Render::NodeVertices>();
    result.vertices = vertices;
    return result;
}

std::size_t capacityOf(const PointPool& pool) {
    std::size_t capacity = 0;
    for (std::size_t page = 0; page < pool.pageCount(); ++page) {
        capacity += pool.pageCapacity(page);
    }
    return capacity;
}

void sort(std::vector<PublishedNode>& nodes) {
    std::sort(nodes.begin(), nodes.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
}

// No two nodes overlap and each lies within its page.
void expectDisjoint(const PointPool& pool, const std::vector<PublishedNode>& nodes) {
    std::vector<std::tuple<std::size_t, std::size_t, std::size_t>> taken;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const PointPool::Range& range = pool.ranges()[i];
        const auto& pending = pool.pending();
        if (std::find(pending.begin(), pending.end(), i) == pending.end()) {
            ASSERT_EQ(range.count, nodes[i].pointCount);
        }
        if (range.count > 0) {
            taken.emplace_back(range.page, range.first, range.first + range.count);
            ASSERT_LE(range.first + range.count, pool.pageCapacity(range.page));
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
    sort(all);
    for (int round = 0; round < 300; ++round) {
        std::vector<PublishedNode> nodes;
        for (PublishedNode& each : all) {
            if (random() % 20 == 0) {
                each.serial += 1000;
                each.pointCount = random() % 1200;
            }
            if (random() % 3 != 0) {
                nodes.push_back(each);
            }
        }
        const PointPool::Limit limit{random() % 4000, random() % 2 == 0};
        do {
            pool.update(nodes, round % 3 == 0 ? PointPool::Limit{} : limit);
            expectDisjoint(pool, nodes);
            std::size_t points = 0;
            for (const std::size_t i : pool.uploads()) {
                points += nodes[i].pointCount;
            }
            EXPECT_TRUE(round % 3 == 0 || points <= limit.points ||
                        (limit.isOneAllowed && pool.uploads().size() == 1));
        } while (round % 3 == 1 && limit.isOneAllowed && !pool.isSettled());
    }
}

TEST(PointPoolTest, PagesOfAPublicationThatShrankAreGivenBackLittleByLittle) {
    constexpr std::size_t page = 1000;
    std::mt19937 random(5);
    PointPool pool(page);
    std::vector<PublishedNode> all;
    for (std::size_t i = 0; i < 400; ++i) {
        all.push_back(node(i, 1 + random() % 100, i));
    }
    sort(all);
    pool.update(all);
    int furtherUpdates = 0;
    for (const std::size_t keepsOneOf : {2u, 20u, 3u, 40u, 400u}) {
        std::vector<PublishedNode> nodes;
        std::size_t points = 0;
        for (const PublishedNode& each : all) {
            if (random() % keepsOneOf == 0) {
                nodes.push_back(each);
                points += each.pointCount;
            }
        }
        pool.update(nodes);
        while (!pool.isSettled()) {
            ASSERT_LT(++furtherUpdates, 200);
            pool.update(nodes);
            std::size_t moved = 0;
            for (const std::size_t i : pool.uploads()) {
                moved += nodes[i].pointCount;
            }
            EXPECT_LE(moved, page / 4);
            expectDisjoint(pool, nodes);
        }
        EXPECT_LE(capacityOf(pool), 2 * points) << "one of " << keepsOneOf;
        pool.update(nodes);
        EXPECT_TRUE(pool.uploads().empty());
    }
    EXPECT_GT(furtherUpdates, 3);
}

TEST(PointPoolTest, NodesWithoutVerticesStayInSparsePages) {
    PointPool pool(100);
    std::vector<PublishedNode> nodes{node(0, 90, 1), node(1, 10, 2)};
    pool.update(nodes);
    nodes.erase(nodes.begin());
    nodes[0].vertices.reset();
    pool.update(nodes);
    EXPECT_TRUE(pool.uploads().empty());
    EXPECT_TRUE(pool.isSettled());
    EXPECT_EQ(pool.ranges()[0].first, 90u);
}

TEST(PointPoolTest, LimitedUploadsArriveCoarsestFirst) {
    PointPool pool(100);
    const std::vector<PublishedNode> nodes{node(0, 30, 1), node(1, 0, 2), node(2, 30, 3), node(3, 50, 4),
                                           node(4, 5, 5)};
    pool.update(nodes, {66});
    EXPECT_EQ(pool.uploads(), (std::vector<std::size_t>{0, 2}));
    EXPECT_EQ(pool.pending(), (std::vector<std::size_t>{3, 4}));  // The last would fit but is less important.
    EXPECT_FALSE(pool.isSettled());
    pool.update(nodes, {10});
    EXPECT_EQ(pool.uploads(), (std::vector<std::size_t>{3}));  // One always comes through.
    pool.update(nodes, {10});
    EXPECT_EQ(pool.uploads(), (std::vector<std::size_t>{4}));
    EXPECT_TRUE(pool.isSettled());
    expectDisjoint(pool, nodes);
    // A pending node that leaves has taken no place.
    pool.update({node(0, 30, 1), node(5, 500, 6), node(6, 500, 7)}, {100});
    pool.update({node(0, 30, 1)}, {100});
    EXPECT_LE(capacityOf(pool), 60u);
}

TEST(PointPoolTest, OldVerticesStayUntilTheNewOnesHaveArrived) {
    PointPool pool(100);
    std::vector<PublishedNode> nodes{node(0, 30, 1), node(1, 40, 2), node(2, 20, 3)};
    pool.update(nodes);
    nodes[0].serial = 4;
    nodes[1].serial = 5;
    nodes[1].pointCount = 35;
    nodes[2].serial = 6;
    nodes[2].cube.max = {2, 2, 2};  // Of another unit scale, say.
    pool.update(nodes, {30});
    EXPECT_EQ(pool.uploads(), (std::vector<std::size_t>{0}));
    EXPECT_EQ(pool.pointsLeft(), 35u + 20u);
    EXPECT_EQ(pool.ranges()[1].count, 40u);
    EXPECT_EQ(pool.ranges()[2].count, 0u);
    expectDisjoint(pool, nodes);
    pool.update(nodes);
    EXPECT_EQ(pool.uploads(), (std::vector<std::size_t>{1, 2}));
    EXPECT_EQ(pool.ranges()[1].count, 35u);
    expectDisjoint(pool, nodes);
}

}  // namespace
