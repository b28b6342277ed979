#include <gtest/gtest.h>
#include <render/pointcloud/NodeId.h>
#include <render/pointcloud/NodePriority.h>

#include <cmath>
#include <limits>

namespace {

using Math::NBoundingBox;
using Math::Point;
using Render::NodePriority;
using Render::Viewport;

constexpr float pi = 3.14159265f;

// A box of half extents (1, 2, 2): radius 3.
const NBoundingBox<float, 3> box({-1.0f, -2.0f, -2.0f}, {1.0f, 2.0f, 2.0f});

NodePriority seenFrom(const Point<float, 3>& eye, float threshold = 0.0f,
                      const Math::ConvexPolytope<float, 3>& volume = {},
                      const Math::Frustum<float>& frustum = {}) {
    return NodePriority::perspective(box, frustum, volume, eye, 2.0f, Viewport(800, 600), pi / 2.0f,
                                     threshold);
}

Math::ConvexPolytope<float, 3> halfSpace(float nx, float offset) {
    return Math::ConvexPolytope<float, 3>(
        {Math::HalfSpace<float, 3>(Math::NPlane<float, 3>({nx, 0, 0}, offset))});
}

NodePriority withPriority(float priority, float distance) {
    // Height 2, field of view 90 degrees, diagonal scaled so that priority * distance comes out.
    const float extent = 2.0f / std::sqrt(3.0f);
    const NBoundingBox<float, 3> unit({-extent / 2, -extent / 2, -extent / 2},
                                      {extent / 2, extent / 2, extent / 2});
    return NodePriority::perspective(unit, {}, {}, {distance, 0, 0}, priority * distance, Viewport(2, 2),
                                     pi / 2, 0);
}

TEST(NodePriorityTest, PerspectiveIsTheRadiusOnScreen) {
    // 300 / (tan 45° · 10) · 3 · 2 = 180 pixels.
    const NodePriority priority = seenFrom({0.0f, 6.0f, 8.0f});
    EXPECT_NEAR(priority.priority(), 180.0f, 1e-3f);
    EXPECT_FLOAT_EQ(priority.distanceToEye(), 10.0f);
}

TEST(NodePriorityTest, AnEyeAtTheCentreGivesTheLargestFinitePriority) {
    EXPECT_EQ(seenFrom({}).priority(), std::numeric_limits<float>::max());
    const NBoundingBox<float, 3> point({}, {});
    const NodePriority ofPoint =
        NodePriority::perspective(point, {}, {}, {}, 1.0f, Viewport(8, 8), pi / 2.0f, 15.0f);
    EXPECT_EQ(ofPoint.priority(), std::numeric_limits<float>::max());
    EXPECT_EQ((NodePriority::keep() + NodePriority::keep()).priority(), std::numeric_limits<float>::max());
}

TEST(NodePriorityTest, BoxesOutsideOrBelowTheThresholdAreDiscarded) {
    const Point<float, 3> eye(0.0f, 6.0f, 8.0f);
    EXPECT_TRUE(seenFrom(eye, 181.0f).isDiscarded());
    EXPECT_FALSE(seenFrom(eye, 179.0f).isDiscarded());
    EXPECT_TRUE(seenFrom(eye, 0.0f, halfSpace(1.0f, -1.01f)).isDiscarded());
    EXPECT_FALSE(seenFrom(eye, 0.0f, halfSpace(1.0f, -0.99f)).isDiscarded());
    EXPECT_TRUE(seenFrom(eye, 0.0f, halfSpace(-1.0f, -1.01f)).isDiscarded());
    Eigen::Matrix4f moved = Eigen::Matrix4f::Identity();  // Clip space holds x from 1.5 to 3.5.
    moved(0, 3) = -2.5f;
    EXPECT_TRUE(seenFrom(eye, 0.0f, {}, Math::Frustum<float>::fromMatrix(moved)).isDiscarded());
    moved(0, 3) = -1.5f;
    EXPECT_FALSE(seenFrom(eye, 0.0f, {}, Math::Frustum<float>::fromMatrix(moved)).isDiscarded());
}

TEST(NodePriorityTest, OrthographicMeasuresPixelsAlongX) {
    Eigen::Matrix4f projection = Eigen::Matrix4f::Identity();
    projection(0, 0) = 2.0f / 40.0f;  // 40 units across 800 pixels: 20 pixels a unit.
    projection(1, 1) = 2.0f / 30.0f;
    const auto rated = [&](float threshold) {
        return NodePriority::orthographic(box, {}, {}, {0, 0, 50}, 0.5f, projection, Viewport(800, 600),
                                          threshold);
    };
    EXPECT_NEAR(rated(0.0f).priority(), 3.0f * 0.5f * 20.0f, 1e-3f);
    EXPECT_FLOAT_EQ(rated(0.0f).distanceToEye(), 50.0f);
    EXPECT_TRUE(rated(30.1f).isDiscarded());
}

TEST(NodePriorityTest, NearlyEqualPrioritiesAreOrderedByDistance) {
    const NodePriority near = withPriority(5.0f, 1.0f);
    const NodePriority far = withPriority(5.05f, 2.0f);
    EXPECT_LT(far, near);
    EXPECT_GT(near, far);
    EXPECT_LE(far, near);
    EXPECT_FALSE(near <= far);
    EXPECT_NE(near, far);
    EXPECT_EQ(near, withPriority(5.05f, 1.0f));
    EXPECT_LE(near, withPriority(5.05f, 1.0f));
    EXPECT_GE(near, withPriority(5.05f, 1.0f));
    EXPECT_LT(near, withPriority(5.3f, 9.0f));
}

TEST(NodePriorityTest, KeepIsAboveAndDiscardBelowEverything) {
    const NodePriority some = withPriority(0.2f, 1000.0f);
    EXPECT_LT(NodePriority::discard(), some);
    EXPECT_GT(NodePriority::keep(), some);
    const NodePriority sum = some + withPriority(2.0f, 10.0f);
    EXPECT_NEAR(sum.priority(), 2.2f, 1e-3f);
    EXPECT_FLOAT_EQ(sum.distanceToEye(), 10.0f);
}

TEST(NodeIdTest, HashTellsWhetherTheMixedValueDiffers) {
    static_assert(std::is_same_v<decltype(std::hash<Render::NodeId>()(Render::NodeId())), bool>);
    EXPECT_TRUE(std::hash<Render::NodeId>()({3, Octree::OctreeNodeId().child(5)}));
    // One of the few nodes where it does not; found by solving the rule for the node.
    Octree::OctreeNodeId rare;
    for (const char digit : std::string("706205461234624503553")) {
        rare = rare.child(static_cast<std::size_t>(digit - '0'));
    }
    EXPECT_FALSE(std::hash<Render::NodeId>()({1, rare}));
    EXPECT_NE((Render::NodeId{1, {}}), (Render::NodeId{2, {}}));
}

}  // namespace
