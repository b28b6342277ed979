#include <tests/render/pointcloud/StreamerFixture.h>
#include <tests/support/LargeAllocations.h>

#include <future>

namespace {

using Mesh = Math::TriangleMesh<float>;
using P = Math::Point<float, 3>;
using TestSupport::LargeAllocations;

constexpr std::size_t large = 100000;

/// A floor of 2 * 150 * 150 triangles at z = 0: several times `large` to move or to index.
std::shared_ptr<const Mesh> bigFloor() {
    constexpr std::uint32_t side = 150;
    std::vector<P> vertices;
    std::vector<Mesh::Triangle> triangles;
    for (std::uint32_t y = 0; y <= side; ++y) {
        for (std::uint32_t x = 0; x <= side; ++x) {
            vertices.emplace_back(static_cast<float>(x) - side / 2, static_cast<float>(y) - side / 2, 0.0f);
        }
    }
    for (std::uint32_t i = 0; i < side * (side + 1); ++i) {
        if (i % (side + 1) < side) {
            triangles.push_back({i, i + 1, i + side + 1});
            triangles.push_back({i + 1, i + side + 2, i + side + 1});
        }
    }
    return std::make_shared<const Mesh>(std::move(vertices), std::move(triangles));
}

Eigen::Matrix4f raisedBy(float z) {
    Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
    world(2, 3) = z;
    return world;
}

class ModelMeshTest : public TestSupport::StreamerFixture {
protected:
    ModelMeshTest() {
        const LargeAllocations allocations(large);
        const Mesh moved = floor->transformed(raisedBy(1));
        moved.distance({});
        perMeshMovedAndIndexed = allocations.here();
    }

    const std::shared_ptr<const Mesh> floor = bigFloor();
    std::size_t perMeshMovedAndIndexed = 0;
    std::unique_ptr<Streamer> one = streamerOf(sourceOf({.depth = 1, .pointsPerNode = 5}));
    std::unique_ptr<Streamer> other = streamerOf(sourceOf({.depth = 1, .pointsPerNode = 5}));
};

TEST_F(ModelMeshTest, CloudsWithOneMatrixMoveAndIndexTheirMeshOnceAndNotOnTheHostsThread) {
    ASSERT_GE(perMeshMovedAndIndexed, 3u);
    const LargeAllocations allocations(large);
    for (Streamer* const streamer : {one.get(), other.get()}) {
        streamer->setMesh(floor);
        for (const float z : {2.0f, 3.0f, 4.0f}) {
            streamer->setWorldMatrix(raisedBy(z));
        }
        streamer->startAsyncReload(nullptr, 21);
    }
    one->waitUntilIdle();
    other->waitUntilIdle();
    EXPECT_EQ(allocations.here(), 0u);
    EXPECT_EQ(allocations.elsewhere(), perMeshMovedAndIndexed);
    ASSERT_EQ(published(*other).size(), 9u);
    const auto& vertex = other->publication().nodes[3].vertices->vertices.data()[2];
    EXPECT_NEAR(vertex.distance, vertex.position.z() + 4, 1e-5f);
}

TEST_F(ModelMeshTest, DraggingACloudWaitsForNoMesh) {
    LargeAllocations allocations(large);
    for (std::size_t stuckAt = 1; stuckAt <= perMeshMovedAndIndexed; ++stuckAt) {
        std::promise<void> stuck;
        std::promise<void> goOn;
        allocations.onElsewhere = [&, left = stuckAt]() mutable {
            if (left > 0 && --left == 0) {
                stuck.set_value();
                goOn.get_future().wait();
            }
        };
        one->setMesh(floor);
        one->setWorldMatrix(raisedBy(100.0f + static_cast<float>(stuckAt)));
        one->startAsyncReload(nullptr, 21);
        if (stuck.get_future().wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            ADD_FAILURE() << "the loader has not moved or indexed the mesh";
            one->stopAsyncReload();
            break;
        }
        const std::future<void> dragging = std::async(std::launch::async, [&] {
            one->setWorldMatrix(raisedBy(static_cast<float>(stuckAt)));
            one->onViewChanged();
            one->setMesh(nullptr);
        });
        EXPECT_EQ(dragging.wait_for(std::chrono::seconds(10)), std::future_status::ready) << stuckAt;
        goOn.set_value();
        dragging.wait();
        one->stopAsyncReload();
    }
}

}  // namespace
