#include <tests/render/pointcloud/StreamerFixture.h>

#include <Eigen/Geometry>
#include <future>
#include <limits>
#include <random>
#include <stdexcept>

namespace {

using HalfSpace = Math::HalfSpace<float, 3>;
using Plane = Math::NPlane<float, 3>;
using TestSupport::SyntheticOctree;

class PointCloudStreamerSettingsTest : public TestSupport::StreamerFixture {};

TEST_F(PointCloudStreamerSettingsTest, ARefusedValueChangesNothing) {
    const auto streamer = streamerOf(sourceOf({.depth = 1, .pointsPerNode = 10}));
    streamer->setClippingVolume({HalfSpace(Plane({0, 0, 1}, 100))});
    streamer->startAsyncReload(nullptr, 21);
    streamer->waitUntilIdle();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    publications = 0;
    for (const double scale : {0.0, -1.0, double{nan}, double{infinity}}) {
        EXPECT_THROW(streamer->setUnitScale(scale), std::invalid_argument) << scale;
    }
    EXPECT_THROW(streamer->setUpdateInterval(Streamer::Duration(-1)), std::invalid_argument);
    EXPECT_THROW(streamer->setPriorityThreshold(nan), std::invalid_argument);
    EXPECT_THROW(streamer->setClippingVolume({HalfSpace(Plane({0, nan, 1}, 0))}), std::invalid_argument);
    EXPECT_THROW(streamer->setClippingVolume({HalfSpace(Plane({0, 0, 1}, infinity))}), std::invalid_argument);
    EXPECT_TRUE(streamer->isAsyncReloadActive());
    EXPECT_FALSE(streamer->isLoading());
    EXPECT_EQ(publications, 0);
    EXPECT_EQ(streamer->vertexCache()->size(), 9u);
    EXPECT_EQ(streamer->parameters().clippingVolume.halfSpaces().at(0).plane.offset, 100);
    streamer->clearVisibleOctreeNodes();
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 9u);
}

TEST_F(PointCloudStreamerSettingsTest, ClippingAndEyeAreExactFarFromTheOrigin) {
    const auto streamer = streamerOf(sourceOf({.depth = 0}));
    Eigen::Affine3f placed(Eigen::Translation3f(1e6f, -2e6f, 5e5f));
    placed.rotate(Eigen::AngleAxisf(0.7f, Eigen::Vector3f(1, 2, 3).normalized()));
    const Eigen::Matrix4d world = placed.matrix().cast<double>();
    look({1e6f, -2e6f, 5e5f + 100});
    streamer->setWorldMatrix(placed.matrix());
    std::mt19937 random(5);
    std::uniform_real_distribution<double> anywhere(-100, 100);
    for (int i = 0; i < 100; ++i) {
        const Eigen::Vector3d normal = Eigen::Vector3d::Random().normalized();
        const double offset = anywhere(random) - normal.dot(world.col(3).head<3>());
        const Plane plane(Math::Point<float, 3>(Eigen::Vector3f(normal.cast<float>())),
                          static_cast<float>(offset));
        EXPECT_TRUE(streamer->setClippingVolume({HalfSpace(plane)}));
        EXPECT_FALSE(streamer->setClippingVolume({HalfSpace(plane)}));
        const auto volume = streamer->parameters().clippingVolume;
        const Eigen::Vector4d model(anywhere(random), anywhere(random), anywhere(random), 1);
        const double exact =
            plane.normal.vector().cast<double>().dot((world * model).head<3>()) + plane.offset;
        const Math::Point<float, 3> point(Eigen::Vector3f(model.head<3>().cast<float>()));
        EXPECT_NEAR(volume.halfSpaces().at(0).plane.signedDistance(point), exact, 1e-4);
    }
    const Eigen::Vector3d eye = (world.inverse() * Eigen::Vector4d(1e6, -2e6, 5e5 + 100, 1)).head<3>();
    EXPECT_LT((streamer->parameters().eye.vector().cast<double>() - eye).norm(), 1e-4);
}

// Another point cloud sets the scale while this one's walk is half done.
TEST_F(PointCloudStreamerSettingsTest, AWalkKeepsToTheUnitScaleItBeganWith) {
    const auto source = sourceOf({.depth = 1, .pointsPerNode = 10});
    const auto octree = SyntheticOctree::open(source);
    Streamer streamer(octree, 1000);
    Streamer other(octree, 1000);
    for (Streamer* const each : {&streamer, &other}) {
        each->attach(nextId(), nextId(), camera, nullptr);
        each->setPriorityThreshold(1.0f);
    }
    source->setReadHook([&](Octree::OctreeNodeId id) {
        if (id.isRoot()) {
            other.setUnitScale(0.25);
        }
    });
    const auto expectPointsInTheirCubes = [&] {
        ASSERT_EQ(published(streamer).size(), 9u);
        for (const Render::PublishedNode& node : streamer.publication().nodes) {
            for (std::size_t i = 0; i < node.pointCount; ++i) {
                EXPECT_TRUE(node.cube.contains(node.vertices->vertices.position(i))) << node.id.name();
            }
        }
    };
    walk(streamer);
    expectPointsInTheirCubes();
    streamer.onOctreeChanged();
    EXPECT_TRUE(published(streamer).empty());
    walk(streamer);
    expectPointsInTheirCubes();
    EXPECT_EQ(streamer.publication().nodes[0].cube.max.x(), 2);
}

}  // namespace
