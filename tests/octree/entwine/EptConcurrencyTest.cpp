#include <octree/entwine/EntwineTree.h>

#include <gtest/gtest.h>
#include <tests/octree/entwine/EptFixture.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <optional>
#include <stop_token>
#include <thread>

using Octree::OctreeNodeId;

TEST(EptConcurrency, ReadersLoadTheHierarchyTogetherAndSeeTheSame) {
    const Support::EptFixture fixture("zstandard");
    for (int round = 0; round < 20; ++round) {
        Entwine::EntwineTree tree(Entwine::FileSystemLocation(fixture.folder.path()));
        std::atomic<std::size_t> points = 0, nodes = 0, colors = 0;
        std::promise<void> start;
        const std::shared_future<void> started(start.get_future());
        const auto walk = [&] {
            started.wait();
            for (const OctreeNodeId id : Support::allNodes(tree)) {
                Octree::NodePointData data;
                ASSERT_TRUE(tree.readNode(id, 1.0, data, {}));
                points += data.size();
                ++nodes;
                for (const Math::Color& color : data.colors()) {
                    colors += color.r();
                }
            }
        };
        {
            std::vector<std::jthread> threads;
            for (int i = 0; i < 4; ++i) {
                threads.emplace_back(walk);
            }
            start.set_value();
        }
        EXPECT_EQ(points, 4 * 7u);
        EXPECT_EQ(nodes, 4 * 5u);
        EXPECT_EQ(colors, 4 * (1u + 4 + 255 + 7));
    }
}

TEST(EptConcurrency, CountsThatAreKnownReadNothing) {
    const Support::EptFixture fixture;
    std::filesystem::remove(fixture.folder.path() / Support::EptFixture::hierarchyFile("1-1-0-0"));
    Entwine::EntwineTree tree(Entwine::FileSystemLocation(fixture.folder.path()));
    EXPECT_EQ(tree.knownPointCount(OctreeNodeId().child(1), {}), 1u);
    EXPECT_EQ(tree.knownPointCount(OctreeNodeId().child(4), {}), std::nullopt);
}

TEST(EptConcurrency, AStopEndsReadingWithoutAnError) {
    const Support::EptFixture fixture("zstandard");
    Entwine::EntwineTree tree(Entwine::FileSystemLocation(fixture.folder.path()));
    std::stop_source source;
    source.request_stop();
    Octree::NodeFacts facts;
    facts.pointCount = 99;
    Octree::NodePointData data;
    EXPECT_FALSE(tree.nodeFacts(OctreeNodeId().child(4), facts, source.get_token()));
    EXPECT_EQ(facts.pointCount, 99u);
    EXPECT_FALSE(tree.readNode(OctreeNodeId(), 1.0, data, source.get_token()));
    EXPECT_TRUE(tree.readNode(OctreeNodeId().child(4), 1.0, data, {}));
    EXPECT_EQ(data.size(), 2u);
}
