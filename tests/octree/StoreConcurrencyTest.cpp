#include <octree/Octree.h>
#include <octree/StoppableMutex.h>
#include <octree/StoreError.h>
#include <octree/potree/NodeTable.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

#include <atomic>
#include <chrono>
#include <future>
#include <set>
#include <thread>

using Octree::OctreeNodeId;

namespace {

/// Runs the function on several threads that begin together.
template <class F>
void together(std::size_t threadCount, F function) {
    std::promise<void> start;
    const std::shared_future<void> started(start.get_future());
    std::vector<std::jthread> threads;
    for (std::size_t t = 0; t < threadCount; ++t) {
        threads.emplace_back([&function, started, t] {
            started.wait();
            function(t);
        });
    }
    start.set_value();
}

}  // namespace

TEST(StoreConcurrency, ReadersLoadTheHierarchyOnceAndSeeTheSame) {
    const Support::PotreeFixture fixture;
    for (int round = 0; round < 20; ++round) {
        const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
        std::atomic<std::size_t> points = 0, nodes = 0;
        together(4, [&](std::size_t) {
            std::vector<OctreeNodeId> pending{OctreeNodeId()};
            while (!pending.empty()) {
                const OctreeNodeId id = pending.back();
                pending.pop_back();
                Octree::NodePointData data;
                ASSERT_TRUE(octree.getNodePointData(id, data));
                ASSERT_EQ(data.size(), octree.pointCount(id));
                points += data.size();
                ++nodes;
                const auto children = octree.children(id);
                pending.insert(pending.end(), children.begin(), children.end());
            }
        });
        EXPECT_EQ(points, 4 * 7u);
        EXPECT_EQ(nodes, 4 * 5u);
    }
}

// A chunk that another thread loads between two looks at the hierarchy.
TEST(StoreConcurrency, ANodeIsFoundWhileItsChunkIsBeingLoaded) {
    using Support::hierarchyRecord;
    constexpr std::uint64_t recordSize = 22;
    Support::PotreeFixture fixture;
    std::vector<OctreeNodeId> ids;  // One below each of many references.
    std::string above, chunks;
    for (std::size_t level = 0; level < 4; ++level) {
        for (std::size_t i = 0; i < std::size_t{1} << (3 * level); ++i) {
            above += hierarchyRecord(0, 0xff, 0, 0, 0);
        }
    }
    const std::uint64_t firstChunkSize = above.size() + 4096 * recordSize;
    for (std::size_t i = 0; i < 4096; ++i) {
        ids.push_back(OctreeNodeId().child(i >> 9).child(i >> 6 & 7).child(i >> 3 & 7).child(i & 7).child(0));
        above += hierarchyRecord(2, 0, 0, firstChunkSize + chunks.size(), 2 * recordSize);
        chunks += hierarchyRecord(0, 1, 0, 0, 0) + hierarchyRecord(0, 0, 0, 0, 0);
    }
    fixture.hierarchy = above + chunks;
    fixture.metadata["hierarchy"]["firstChunkSize"] = firstChunkSize;
    fixture.writeAll();
    for (int round = 0; round < 10; ++round) {
        const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
        together(3, [&](std::size_t) {
            for (const OctreeNodeId id : ids) {
                ASSERT_NO_THROW(octree.nodeVisibility(id)) << id.name();
            }
        });
        EXPECT_THROW(octree.nodeVisibility(ids[0].child(0)), Octree::StoreError);
        EXPECT_THROW(octree.nodeVisibility(ids[0].parent().child(1).child(2)), Octree::StoreError);
    }
}

TEST(StoreConcurrency, CountsThatAreKnownReadNothing) {
    Support::PotreeFixture fixture;
    const OctreeNodeId root, reference = root.child(4);
    const auto known = [&](OctreeNodeId id) {
        return Octree::Octree{PoTree::FileSystemLocation(fixture.folder.path())}.knownPointCount(id);
    };
    fixture.hierarchy.resize(fixture.firstChunkSize);  // The rest cannot be read.
    fixture.writeAll();
    EXPECT_EQ(known(root.child(1)), 1u);
    EXPECT_EQ(known(reference), 2u);
    fixture.hierarchy.replace(46, 4, std::string(4, '\0'));  // Where the reference does not tell.
    fixture.writeAll();
    EXPECT_EQ(known(reference), std::nullopt);
}

TEST(StoreConcurrency, WaitingForAnotherThreadsWorkCanBeStopped) {
    Octree::StoppableMutex mutex;
    ASSERT_TRUE(mutex.lock({}));
    std::stop_source stop;
    auto waiting = std::async(std::launch::async, [&] { return mutex.lock(stop.get_token()); });
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    stop.request_stop();
    EXPECT_FALSE(waiting.get());
    auto next = std::async(std::launch::async, [&] { return mutex.lock({}); });
    mutex.unlock();
    EXPECT_TRUE(next.get());
}

TEST(StoreConcurrency, NodesAreFoundWhileTheirTableGrows) {
    PoTree::NodeTable table;
    std::vector<OctreeNodeId> ids;
    for (std::size_t i = 0; i < 4096; ++i) {
        ids.push_back(OctreeNodeId().child(i >> 9).child(i >> 6 & 7).child(i >> 3 & 7).child(i & 7));
    }
    std::atomic<std::size_t> inserted = 0;
    together(3, [&](std::size_t thread) {
        if (thread == 0) {
            for (const OctreeNodeId id : ids) {
                table.insert(std::make_shared<PoTree::Node>(id, Math::NBoundingBox<double, 3>()));
                ++inserted;
            }
            return;
        }
        for (std::size_t known = 0; known < ids.size();) {
            known = inserted;
            for (std::size_t i = thread; i < known; i += 97) {
                const PoTree::Node* node = table.find(ids[i]);
                ASSERT_NE(node, nullptr);
                ASSERT_EQ(node->id, ids[i]);
            }
        }
    });
    EXPECT_EQ(table.find(OctreeNodeId()), nullptr);
}

TEST(StoreConcurrency, ANewRecordTakesTheOldOnesPlace) {
    PoTree::NodeTable table;
    const auto makeNode = [](std::uint32_t count) {
        auto node = std::make_shared<PoTree::Node>(OctreeNodeId(), Math::NBoundingBox<double, 3>());
        node->pointCount = count;
        return node;
    };
    table.insert(makeNode(1));
    const PoTree::Node* old = table.find(OctreeNodeId());
    table.insert(makeNode(2));
    EXPECT_EQ(table.find(OctreeNodeId())->pointCount, 2u);
    EXPECT_EQ(old->pointCount, 1u);  // whoever still holds it may
}

TEST(NodeTable, FindsNodesFastThatWereChosenToCollide) {
    PoTree::NodeTable table;
    std::size_t collisions = 0;
    for (std::size_t i = 0; collisions < 2000; ++i) {
        OctreeNodeId id;
        for (std::size_t level = 0; level < 8; ++level) {
            id = id.child(i >> 3 * level & 7);
        }
        if ((std::hash<OctreeNodeId>()(id) & 4095) < 2) {
            table.insert(std::make_shared<PoTree::Node>(id, Math::NBoundingBox<double, 3>()));
            ++collisions;
        }
    }
    EXPECT_LT(table.longestSearch(), 200u);
}

TEST(NodeTable, KeepsWhatItHasWhenStoppedWhileItGrows) {
    std::stop_source stop;
    stop.request_stop();
    PoTree::NodeTable table;
    table.insert(std::make_shared<PoTree::Node>(OctreeNodeId(), Math::NBoundingBox<double, 3>()));
    EXPECT_FALSE(table.reserve(4096, stop.get_token()));
    EXPECT_NE(table.find(OctreeNodeId()), nullptr);
}
