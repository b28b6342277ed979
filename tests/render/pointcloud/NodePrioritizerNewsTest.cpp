#include <gtest/gtest.h>
#include <render/pointcloud/NodePrioritizer.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Octree::OctreeNodeId;
using Render::BudgetNews;
using Render::NodePrioritizer;
using Render::NodePriority;

class TenPoints : public Render::NodeVertexSource {
public:
    bool fetchNodeVertices(OctreeNodeId, Render::VertexContainer& out, std::stop_token) override {
        out.resize(10);
        return true;
    }
};

NodePriority at(float distance) {
    return NodePriority::perspective({{-1, -1, -1}, {1, 1, 1}}, {}, {}, {distance, 0, 0}, 1000.0f,
                                     Render::Viewport(2, 2), 3.14159265f / 2.0f, 0.0f);
}

// A point cloud that does what it hears: publishes at once, walks when it is its turn.
struct Cloud {
    void walk(NodePrioritizer& prioritizer, float distance) {
        wantsWalk = false;
        ++walks;
        prioritizer.rerate(id, {}, [&](OctreeNodeId node, const auto&) { return priority(node, distance); });
        for (std::size_t i = 0; i < 8; ++i) {
            const OctreeNodeId node = OctreeNodeId().child(i);
            prioritizer.offer({id, node}, {}, priority(node, distance), source, {}, std::nullopt,
                              std::size_t{10});
        }
        publish(prioritizer);
    }

    void publish(NodePrioritizer& prioritizer) {
        const std::lock_guard lock(mutex);
        drawnPoints = prioritizer.updateBuffers(id, false, buffers).points;
    }

    void follow(NodePrioritizer& prioritizer, const BudgetNews& news) {
        evictions += news.nodesEvicted ? 1 : 0;
        wantsWalk = wantsWalk || news.budgetFree;
        if (news.nodesEvicted) {
            publish(prioritizer);
        }
    }

    static NodePriority priority(OctreeNodeId node, float distance) {
        return at(distance + static_cast<float>(node.childIndex()));
    }

    std::size_t id = 0;
    TenPoints source;
    std::mutex mutex;  // Of the writers of buffers.
    Core::TripleBuffer<Render::PublishedNodes> buffers;
    std::size_t drawnPoints = 0;
    std::atomic<int> evictions{0};
    std::atomic<bool> wantsWalk{false};
    int walks = 0;
};

class NodePrioritizerNewsTest : public testing::Test {
protected:
    NodePrioritizerNewsTest() {
        for (Cloud& cloud : clouds) {
            cloud.id = static_cast<std::size_t>(&cloud - clouds.data());
            prioritizer.addUser(cloud.id, 205,
                                [&](const BudgetNews& news) { cloud.follow(prioritizer, news); });
        }
    }

    // Lets the clouds walk until none wants to; returns how many walks that took.
    int settle() {
        int walks = 0;
        for (bool isMoving = true; isMoving && walks < 1000;) {
            isMoving = false;
            for (std::size_t i = 0; i < clouds.size(); ++i) {
                if (clouds[i].wantsWalk) {
                    clouds[i].walk(prioritizer, static_cast<float>(1 + i));
                    isMoving = true;
                    ++walks;
                }
            }
        }
        return walks;
    }

    std::size_t drawnPoints() const {
        std::size_t points = 0;
        for (const Cloud& cloud : clouds) {
            points += cloud.drawnPoints;
        }
        return points;
    }

    std::array<Cloud, 5> clouds;
    NodePrioritizer prioritizer{1000};
};

TEST_F(NodePrioritizerNewsTest, CloudsThatPublishWhatTheyLostDrawNoMoreThanTheBudget) {
    for (std::size_t i = clouds.size(); i-- > 0;) {  // Each more important than those before.
        clouds[i].walk(prioritizer, static_cast<float>(1 + i));
        EXPECT_EQ(drawnPoints(), prioritizer.totalUsedPointCount());
        EXPECT_EQ(clouds[i].evictions, 0);
    }
    EXPECT_EQ(drawnPoints(), 200u);
    EXPECT_GT(clouds[4].evictions, 0);
    EXPECT_EQ(settle(), 0);
    prioritizer.setTotalMaxPointCount(50);
    EXPECT_EQ(drawnPoints(), 50u);
}

TEST_F(NodePrioritizerNewsTest, RoomIsOfferedToThoseThatLackNodesUntilAllRest) {
    for (Cloud& cloud : clouds) {
        cloud.walk(prioritizer, static_cast<float>(1 + cloud.id));
    }
    EXPECT_EQ(settle(), 0);
    EXPECT_EQ(drawnPoints(), 200u);

    prioritizer.clear(0);  // As a cloud that is hidden.
    clouds[0].publish(prioritizer);
    EXPECT_FALSE(clouds[0].wantsWalk);
    EXPECT_TRUE(clouds[4].wantsWalk);
    EXPECT_LE(settle(), 4);
    EXPECT_EQ(drawnPoints(), 200u);

    prioritizer.removeUser(1);
    clouds[1].drawnPoints = 0;
    EXPECT_LE(settle(), 3);
    EXPECT_EQ(drawnPoints(), 200u);

    for (const std::size_t id : {0u, 2u, 3u, 4u}) {
        EXPECT_FALSE(clouds[4].wantsWalk);
        prioritizer.setUserBudget(id, 1000);
    }
    EXPECT_EQ(prioritizer.totalMaxPointCount(), 1000u);
    EXPECT_LE(settle(), 3);
    EXPECT_EQ(drawnPoints(), 240u);

    prioritizer.setUserBudget(2, 2000);
    prioritizer.setUserBudget(77, 5);
    prioritizer.clear(3);
    EXPECT_EQ(settle(), 0);  // Nobody lacks anything.
    EXPECT_EQ(prioritizer.totalMaxPointCount(), 1000u);
}

TEST_F(NodePrioritizerNewsTest, AUserThatDoesNotPublishHearsOfEvictionsOnce) {
    int calls = 0;
    prioritizer.addUser(9, 205, [&](const BudgetNews& news) { calls += news.nodesEvicted ? 1 : 0; });
    clouds[0].id = 9;
    clouds[0].walk(prioritizer, 50.0f);
    for (std::size_t i = 1; i < clouds.size(); ++i) {
        clouds[i].walk(prioritizer, 1.0f);
    }
    EXPECT_EQ(calls, 1);
    clouds[0].publish(prioritizer);
    prioritizer.clear();
    clouds[0].publish(prioritizer);
    calls = 0;
    prioritizer.setUserBudget(9, 10);
    prioritizer.offer({9, {}}, {}, at(5), clouds[0].source, {});
    EXPECT_TRUE(prioritizer.offer({9, OctreeNodeId().child(1)}, {}, at(4), clouds[0].source, {}).changed);
    EXPECT_EQ(calls, 0);  // It knows what its own offers evict.
}

TEST_F(NodePrioritizerNewsTest, ARemovedUserHearsNothingAnyMore) {
    std::promise<void> entered;
    std::promise<void> mayEnd;
    std::atomic<bool> ended{false};
    prioritizer.addUser(9, 30, [&](const BudgetNews&) {
        entered.set_value();
        mayEnd.get_future().wait();
        prioritizer.clear(9);
        ended = true;
    });
    TenPoints source;
    prioritizer.offer({9, {}}, {}, at(9), source, {});
    std::thread causer([&] { prioritizer.setTotalMaxPointCount(5); });
    entered.get_future().wait();
    std::thread helper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        mayEnd.set_value();
    });
    prioritizer.removeUser(9);
    EXPECT_TRUE(ended);
    causer.join();
    helper.join();

    // Out of its own callback, too.
    int calls = 0;
    prioritizer.addUser(8, 1000, [&](const BudgetNews&) {
        ++calls;
        prioritizer.removeUser(8);
    });
    prioritizer.setTotalMaxPointCount(1000);
    prioritizer.offer({8, {}}, {}, at(9), source, {});
    prioritizer.setTotalMaxPointCount(5);
    prioritizer.setTotalMaxPointCount(1000);
    EXPECT_EQ(calls, 1);
}

// LUMARO_STRESS_SECONDS makes it longer.
TEST_F(NodePrioritizerNewsTest, AllOperationsOfAllUsersAtOnceKeepTheCounts) {
    const char* const wanted = std::getenv("LUMARO_STRESS_SECONDS");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(wanted ? std::atoi(wanted) : 5);
    std::vector<std::thread> threads;
    for (Cloud& cloud : clouds) {
        threads.emplace_back([&] {
            std::mt19937 random(static_cast<unsigned>(cloud.id));
            while (std::chrono::steady_clock::now() < end) {
                cloud.walk(prioritizer, static_cast<float>(1 + random() % 20));
                switch (random() % 8) {
                    case 0:
                        prioritizer.clear(cloud.id);
                        break;
                    case 1:
                        prioritizer.setUserBudget(cloud.id, 50 + random() % 300);
                        break;
                    case 2:
                        prioritizer.removeUser(cloud.id);
                        prioritizer.addUser(cloud.id, 205,
                                            [&](const BudgetNews& news) { cloud.follow(prioritizer, news); });
                        break;
                    case 3:
                        prioritizer.setTotalMaxPointCount(100 + random() % 200);
                        break;
                    default:
                        break;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    prioritizer.setTotalMaxPointCount(120);
    for (Cloud& cloud : clouds) {
        cloud.wantsWalk = true;
    }
    EXPECT_LT(settle(), 20);
    EXPECT_EQ(drawnPoints(), 120u);
    EXPECT_EQ(prioritizer.totalUsedPointCount(), 120u);
}

}  // namespace
