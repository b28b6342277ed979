#include <gtest/gtest.h>
#include <render/core/Camera.h>

#include <Eigen/Geometry>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using Render::Camera;
using Box = Math::NBoundingBox<float, 3>;
using P = Math::Point<float, 3>;

Eigen::Vector3f clipOf(const Camera& camera, const P& world) {
    return (camera.viewProjectionMatrix() * world.vector().homogeneous()).hnormalized();
}

float depthOf(const Camera& camera, const P& world) {
    return clipOf(camera, world).z();
}

void expectNear(const Eigen::Vector3f& actual, const Eigen::Vector3f& expected, float tolerance) {
    EXPECT_TRUE((actual - expected).cwiseAbs().maxCoeff() <= tolerance)
        << actual.transpose() << " instead of " << expected.transpose();
}

void expectNear(const P& actual, const P& expected, float tolerance) {
    expectNear(Eigen::Vector3f(actual.vector()), Eigen::Vector3f(expected.vector()), tolerance);
}

TEST(Camera, startsAsThePerspectiveOfItsDefaults) {
    const Camera camera(false);
    EXPECT_TRUE(camera.isPerspective());
    EXPECT_TRUE(camera.needsRedraw());
    EXPECT_FLOAT_EQ(camera.fovYDeg(), 60.0f);
    EXPECT_EQ(camera.zNear(), 0.01f);
    EXPECT_EQ(camera.zFar(), 20000.0f);
    // cot(30 degrees) and the same over 4:3.
    EXPECT_NEAR(camera.projectionMatrix()(1, 1), 1.7320508f, 1e-6f);
    EXPECT_NEAR(camera.projectionMatrix()(0, 0), 1.2990381f, 1e-6f);
}

TEST(Camera, everyProjectionSpansItsDepthRangeInBothConventions) {
    for (const bool reversed : {false, true}) {
        SCOPED_TRACE(reversed);
        const float depthOfNear = reversed ? 1.0f : 0.0f;
        Camera camera(reversed);
        EXPECT_EQ(camera.clearDepthValue(), 1.0f - depthOfNear);
        const auto expectSpan = [&](float zNear, float zFar) {
            EXPECT_NEAR(depthOf(camera, P(0.1f, 0.2f, -zNear)), depthOfNear, 1e-6f);
            EXPECT_NEAR(depthOf(camera, P(0.1f, 0.2f, -zFar)), 1.0f - depthOfNear, 1e-6f);
        };
        camera.setPerspective(50.0f, 2.0f, 30.0f, 0.3f, -0.2f);
        expectSpan(2.0f, 30.0f);
        camera.setPerspectiveOffCenter(-1.0f, 3.0f, -2.0f, 1.0f, 2.0f, 30.0f, false);
        expectSpan(2.0f, 30.0f);
        camera.setOrthographic(4.0f, 3.0f, -5.0f, 7.0f);
        expectSpan(-5.0f, 7.0f);
        camera.setZNearAndFarViaBoundingBox(Box(P(-1.0f, -1.0f, -6.0f), P(1.0f, 1.0f, 4.0f)));
        expectSpan(-4.0f, 6.0f);
    }
}

TEST(Camera, offCenterPlanesMeetTheBordersOfThePicture) {
    Camera camera(false);
    camera.setPerspectiveOffCenter(-1.0f, 3.0f, -2.0f, 1.0f, 2.0f, 30.0f, false);
    expectNear(clipOf(camera, P(-1.0f, -2.0f, -2.0f)), {-1.0f, -1.0f, 0.0f}, 1e-6f);
    expectNear(clipOf(camera, P(6.0f, 2.0f, -4.0f)).head<2>().homogeneous(), {1.0f, 1.0f, 1.0f}, 1e-6f);
    // The angle of a symmetric perspective of height 3 at distance 2.
    EXPECT_NEAR(camera.fovYRad(), 2.0f * std::atan(0.75f), 1e-6f);
}

TEST(Camera, unProjectsPixelCornersOntoTheNearPlane) {
    Camera camera(false);
    camera.setViewport(200, 100);
    camera.setPerspective(90.0f, 1.0f, 10.0f, 0.0f, 0.0f);
    expectNear(camera.unProject(0, 100, 0.0f), P(-2.0f, -1.0f, -1.0f), 1e-5f);
    expectNear(camera.unProject(200, 0, 0.0f), P(2.0f, 1.0f, -1.0f), 1e-5f);
    expectNear(camera.unProject(100, 50, 1.0f), P(0.0f, 0.0f, -10.0f), 1e-4f);
}

TEST(Camera, projectInvertsUnProjectAndKeepsThePointsOwnZ) {
    Camera camera(true);
    camera.setViewport(640, 400);
    camera.setPose(P(10.0f, -20.0f, 5.0f), P(1.0f, 2.0f, 3.0f), Eigen::Vector3f::UnitZ());
    const auto roundTrip = [&](float depth) {
        const P world = camera.unProject(123, 321, depth);
        const P pixel = camera.project(world);
        EXPECT_NEAR(pixel.vector().x(), 123.0f, 0.01f);
        EXPECT_NEAR(pixel.vector().y(), 321.0f, 0.01f);
        EXPECT_EQ(pixel.vector().z(), world.vector().z());
    };
    camera.setPerspective(40.0f, 1.0f, 100.0f, 0.1f, 0.2f);
    roundTrip(0.5f);
    camera.setOrthographic(8.0f, -10.0f, 60.0f);
    EXPECT_FLOAT_EQ(camera.horizontalExtent(), 12.8f);
    roundTrip(0.25f);
}

TEST(Camera, poseGivesEyeAndDirections) {
    Camera camera(false);
    camera.setPose(P(1000.0f, 2000.0f, 3000.0f), Eigen::Vector3f(0.0f, 5.0f, 0.0f), Eigen::Vector3f(0, 1, 1));
    expectNear(camera.eye(), P(1000.0f, 2000.0f, 3000.0f), 1e-3f);
    expectNear(camera.viewDirection(), Eigen::Vector3f::UnitY(), 1e-6f);
    expectNear(camera.rightDirection(), Eigen::Vector3f::UnitX(), 1e-6f);
    expectNear(camera.upDirection(), Eigen::Vector3f::UnitZ(), 1e-6f);
    expectNear(clipOf(camera, P(1000.0f, 2010.0f, 3000.0f)).head<2>().homogeneous(), {0.0f, 0.0f, 1.0f},
               1e-3f);
}

TEST(Camera, poseReplacesAnUpVectorThatTellsNothing) {
    Camera camera(false);
    for (const Eigen::Vector3f& up : {Eigen::Vector3f(0, 0, 1), Eigen::Vector3f(0, 0, -2),
                                      Eigen::Vector3f(0, 0, 0), Eigen::Vector3f(1e-7f, 0, 1)}) {
        camera.setPose(P(0.0f, 0.0f, 9.0f), Eigen::Vector3f(0.0f, 0.0f, -1.0f), up);
        expectNear(camera.upDirection(), Eigen::Vector3f::UnitY(), 1e-6f);
        expectNear(camera.rightDirection(), Eigen::Vector3f::UnitX(), 1e-6f);
    }
    camera.setPose(P(0.0f, 0.0f, 0.0f), Eigen::Vector3f(0.0f, -3.0f, 0.0f), Eigen::Vector3f::UnitY());
    expectNear(camera.upDirection(), Eigen::Vector3f::UnitZ(), 1e-6f);
    const Eigen::Matrix4f before = camera.viewMatrix();
    camera.setPose(P(7.0f, 7.0f, 7.0f), P(7.0f, 7.0f, 7.0f), Eigen::Vector3f::UnitZ());
    EXPECT_EQ(camera.viewMatrix(), before);
}

TEST(Camera, nearAndFarEncloseABoxAlongTheViewDirection) {
    Camera camera(false);
    camera.setPose(P(0.0f, -10.0f, 0.0f), Eigen::Vector3f(0.0f, 1.0f, 0.0f), Eigen::Vector3f::UnitZ());
    camera.setZNearAndFarViaBoundingBox(Box(P(-50.0f, -2.0f, -50.0f), P(50.0f, 4.0f, 50.0f)));
    EXPECT_FLOAT_EQ(camera.zNear(), 8.0f);
    EXPECT_FLOAT_EQ(camera.zFar(), 14.0f);
    // Seen along a diagonal, the radius is the sum of the half edges times the direction's components.
    camera.setPose(P(0.0f, 0.0f, 0.0f), Eigen::Vector3f(3.0f, 4.0f, 0.0f), Eigen::Vector3f::UnitZ());
    camera.setZNearAndFarViaBoundingBox(Box(P(30.0f, 40.0f, -9.0f), P(32.0f, 44.0f, 9.0f)));
    EXPECT_FLOAT_EQ(camera.zNear(), 50.0f);
    EXPECT_FLOAT_EQ(camera.zFar(), 54.4f);
}

TEST(Camera, nearAndFarStayUsableForAwkwardBoxes) {
    Camera camera(false);
    const Box behind(P(-1.0f, -1.0f, 5.0f), P(1.0f, 1.0f, 6.0f));
    camera.setZNearAndFarViaBoundingBox(behind);
    EXPECT_FLOAT_EQ(camera.zNear(), 0.01f);
    EXPECT_FLOAT_EQ(camera.zFar(), 0.0101f);
    camera.setZNearAndFarViaBoundingBox(Box());
    EXPECT_FLOAT_EQ(camera.zNear(), 0.01f);
    EXPECT_FLOAT_EQ(camera.zFar(), 0.0101f);

    camera.setOrthographic(2.0f, 2.0f, -1.0f, 1.0f);
    camera.setZNearAndFarViaBoundingBox(behind);
    EXPECT_FLOAT_EQ(camera.zNear(), -6.0f);
    EXPECT_FLOAT_EQ(camera.zFar(), -5.0f);
    // A wall that faces the camera has no depth.
    for (const float z : {0.0f, -5000.0f}) {
        camera.setZNearAndFarViaBoundingBox(Box(P(-1.0f, -1.0f, z), P(1.0f, 1.0f, z)));
        EXPECT_TRUE(camera.projectionMatrix().allFinite());
        EXPECT_NEAR(depthOf(camera, P(0.0f, 0.0f, z)), 0.5f, 0.4f);
    }
}

TEST(Camera, nearAndFarLeaveTheFieldOfViewAloneAndDoNotDrift) {
    const Box box(P(-3.3f, -1.7f, -77.7f), P(2.9f, 8.1f, -11.1f));
    const Box other(P(-1.0f, -1.0f, -20.0f), P(1.0f, 1.0f, -2.0f));
    Camera camera(true);
    // Some angles survive the way to degrees and back, others do not.
    for (float fov = 10.0f; fov < 80.0f; fov += 0.7f) {
        camera.setPerspective(fov, 0.1f, 100.0f, 0.01f, 0.02f);
        const float verticalScale = camera.projectionMatrix()(1, 1);
        camera.setZNearAndFarViaBoundingBox(box);
        const Eigen::Matrix4f once = camera.projectionMatrix();
        EXPECT_EQ(once(1, 1), verticalScale) << fov;
        for (int i = 0; i < 20; ++i) {
            camera.setZNearAndFarViaBoundingBox(other);
            camera.setZNearAndFarViaBoundingBox(box);
        }
        EXPECT_EQ(camera.projectionMatrix(), once) << fov;
    }
}

TEST(Camera, resizeKeepsTheVerticalScale) {
    Camera camera(false);
    camera.setPerspective(90.0f, 1.0f, 10.0f, 0.25f, 0.5f);
    camera.setViewport(300, 100);
    EXPECT_NEAR(camera.projectionMatrix()(1, 1), 1.0f, 1e-6f);
    EXPECT_NEAR(camera.projectionMatrix()(0, 0), 1.0f / 3.0f, 1e-6f);
    EXPECT_EQ(camera.projectionMatrix()(0, 2), 0.25f);
    expectNear(clipOf(camera, P(6.0f, 0.0f, -2.0f)).head<2>().homogeneous(), {0.75f, -0.5f, 1.0f}, 1e-6f);

    camera.setOrthographic(6.0f, 2.0f, -1.0f, 1.0f);
    camera.setViewport(100, 100);
    EXPECT_FLOAT_EQ(camera.horizontalExtent(), 2.0f);
    camera.setZNearAndFarViaBoundingBox(Box(P(-1.0f, -1.0f, -5.0f), P(1.0f, 1.0f, 5.0f)));
    EXPECT_FLOAT_EQ(camera.projectionMatrix()(0, 0), 1.0f);
    EXPECT_FLOAT_EQ(camera.verticalExtent(), 2.0f);
}

TEST(Camera, aViewportWithoutHeightOnlyStoresItsSize) {
    Camera camera(false);
    const Eigen::Matrix4f before = camera.projectionMatrix();
    camera.setViewport(0, 0);
    EXPECT_EQ(camera.viewport().width(), 0u);
    camera.setViewport(900, 100);
    EXPECT_EQ(camera.viewport().width(), 900u);
    EXPECT_EQ(camera.projectionMatrix(), before);
    camera.setViewport(0, 0);
    camera.setPerspective(60.0f, 1.0f, 10.0f, 0.0f, 0.0f);
    EXPECT_TRUE(camera.invViewProjectionMatrix().allFinite());
}

TEST(Camera, aCustomProjectionOutlivesResizesAndAutomaticDepth) {
    Camera camera(false);
    camera.setViewport(400, 300);
    camera.setPerspectiveOffCenter(-1.0f, 3.0f, -2.0f, 1.0f, 2.0f, 30.0f, false);
    const Eigen::Matrix4f set = camera.projectionMatrix();

    camera.setZNearAndFarViaBoundingBox(Box(P(-1.0f, -1.0f, -9.0f), P(1.0f, 1.0f, -4.0f)));
    EXPECT_FLOAT_EQ(camera.zNear(), 4.0f);
    expectNear(clipOf(camera, P(-2.0f, -4.0f, -4.0f)), {-1.0f, -1.0f, 0.0f}, 1e-6f);
    EXPECT_NEAR(depthOf(camera, P(0.0f, 0.0f, -9.0f)), 1.0f, 1e-6f);

    for (const size_t width : {800u, 700u, 300u, 1234u}) {
        camera.setViewport(width, 300);
        EXPECT_NEAR(camera.projectionMatrix()(0, 0), set(0, 0) * 400.0f / static_cast<float>(width), 1e-6f);
        EXPECT_EQ(camera.projectionMatrix()(0, 2), set(0, 2));
    }
    camera.setViewport(400, 300);
    EXPECT_EQ(camera.projectionMatrix().topRows<2>(), set.topRows<2>());

    camera.setProjection(set, 2.0f, 30.0f, true);
    camera.setViewport(800, 300);
    EXPECT_EQ(camera.projectionMatrix(), set);
}

TEST(Camera, automaticDepthRescalesAnExplicitMatrixOrLeavesItAlone) {
    Camera reference(true);
    reference.setOrthographic(4.0f, 3.0f, 1.0f, 2.0f);
    const Box box(P(-1.0f, -1.0f, -9.0f), P(1.0f, 1.0f, -4.0f));
    Camera camera(true);
    camera.setProjection(2.0f * reference.projectionMatrix(), 1.0f, 2.0f, false);
    EXPECT_FLOAT_EQ(camera.horizontalExtent(), 4.0f);
    EXPECT_FLOAT_EQ(camera.verticalExtent(), 3.0f);
    camera.setZNearAndFarViaBoundingBox(box);
    EXPECT_NEAR(depthOf(camera, P(1.0f, 1.0f, -4.0f)), 1.0f, 1e-6f);
    EXPECT_NEAR(depthOf(camera, P(1.0f, 1.0f, -9.0f)), 0.0f, 1e-6f);

    Eigen::Matrix4f tilted = reference.projectionMatrix();
    tilted(3, 0) = 0.5f;
    camera.setProjection(tilted, 1.0f, 2.0f, false);
    camera.setZNearAndFarViaBoundingBox(box);
    EXPECT_EQ(camera.projectionMatrix(), tilted);
    EXPECT_EQ(camera.zNear(), 1.0f);
}

TEST(Camera, frustumsBoundTheViewInWorldAndModelCoordinates) {
    Camera camera(false);
    camera.setViewport(100, 100);
    camera.setPerspective(90.0f, 1.0f, 10.0f, 0.0f, 0.0f);
    EXPECT_TRUE(camera.frustum().contains(P(4.9f, -4.9f, -5.0f)));
    EXPECT_FALSE(camera.frustum().contains(P(5.1f, 0.0f, -5.0f)));
    EXPECT_FALSE(camera.frustum().contains(P(0.0f, 0.0f, -0.9f)));

    Eigen::Matrix4f model = Eigen::Matrix4f::Identity();
    model(0, 3) = 100.0f;
    EXPECT_TRUE(camera.frustum(model).contains(P(-100.0f, 0.0f, -5.0f)));
    EXPECT_FALSE(camera.frustum(model).contains(P(0.0f, 0.0f, -5.0f)));

    const Math::Frustum<float> wide = camera.scaledFrustum(2.0f, 0.5f, 1.0f, model);
    EXPECT_TRUE(wide.contains(P(-90.1f, 0.0f, -5.0f)));
    EXPECT_FALSE(wide.contains(P(-89.9f, 0.0f, -5.0f)));
    EXPECT_TRUE(wide.contains(P(-100.0f, 2.4f, -5.0f)));
    EXPECT_FALSE(wide.contains(P(-100.0f, 2.6f, -5.0f)));
    camera.setOrthographic(2.0f, 2.0f, 0.0f, 10.0f);
    const Math::Frustum<float> deep = camera.scaledFrustum(1.0f, 1.0f, 2.0f, Eigen::Matrix4f::Identity());
    EXPECT_TRUE(deep.contains(P(0.0f, 0.0f, -14.9f)));
    EXPECT_FALSE(deep.contains(P(0.0f, 0.0f, -15.1f)));
    EXPECT_TRUE(deep.contains(P(0.0f, 0.0f, 4.9f)));
}

// What a graphics card computes: products and sums in float.
bool isDrawn(const Camera& camera, const P& world) {
    const Eigen::Vector4f clip = camera.viewProjectionMatrix() * world.vector().homogeneous();
    const float depth = clip.z() / clip.w();
    const bool isInside = clip.w() > 0.0f && clip.z() >= 0.0f && clip.z() <= clip.w();
    return isInside && (camera.isZBufferReversed() ? depth >= 0.0f : depth < 1.0f);
}

TEST(Camera, whatLiesOnTheFarAndTheNearSideOfTheBoundsIsDrawn) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    int failures = 0;
    for (int i = 0; i < 4000; ++i) {
        Camera camera(i % 2 == 0);
        const float size = std::pow(10.0f, 2.0f + 2.0f * unit(random));  // up to 10 km
        const P center(size * 10.0f * unit(random), size * unit(random), size * unit(random));
        const P half(size, size * 0.2f, i % 3 == 0 ? 0.0f : size);
        const Box box(center - half, center + half);
        const float distance = i % 4 == 0 ? 0.5f : 3.0f;
        camera.setPose(center + P(0.0f, 0.0f, distance * size), Eigen::Vector3f(0.0f, 0.0f, -1.0f),
                       Eigen::Vector3f::UnitY());
        if (i % 5 == 0) {
            camera.setOrthographic(4.0f * size, 4.0f * size, 1.0f, 2.0f);
        }
        camera.fitZRange(box, {});
        for (const float z : {box.min.z(), box.max.z()}) {
            const P point(center.x() + 0.1f * size * unit(random), center.y(), z);
            const bool isBehind = distance < 1.0f && camera.isPerspective() && z == box.max.z();
            failures += !isBehind && !isDrawn(camera, point);
        }
    }
    EXPECT_EQ(failures, 0);
}

TEST(Camera, nothingVisibleIsOutsideTheFrustumOfALongScene) {
    for (const bool reversed : {false, true}) {
        for (const float length : {1e3f, 1e4f, 1e5f}) {
            SCOPED_TRACE(length);
            Camera camera(reversed);
            camera.setPose(P(0.0f, 0.0f, 0.0f), Eigen::Vector3f::UnitX(), Eigen::Vector3f::UnitZ());
            camera.fitZRange(Box(P(-length, -100.0f, -25.0f), P(length, 100.0f, 25.0f)), {});
            Eigen::Matrix4f model = Eigen::Matrix4f::Identity();
            model(1, 3) = 20.0f;
            const Math::Frustum<float> frustum = camera.frustum(model);
            for (float x = 0.02f; x < length; x *= 1.01f) {
                EXPECT_TRUE(frustum.contains(P(x, -20.0f, 0.1f * x))) << x;
            }
            EXPECT_FALSE(frustum.contains(P(11.0f * length, -20.0f, 0.0f)));
        }
    }
}

TEST(Camera, needsMoveTheAutomaticPlanesApart) {
    Camera camera(true);
    const Box box(P(-1.0f, -1.0f, -9.0f), P(1.0f, 1.0f, -4.0f));
    camera.fitZRange(box, {.nearest = 2.0f, .farthest = 7.0f, .room = 3.0f});
    EXPECT_NEAR(camera.zNear(), 2.0f, 1e-4f);
    EXPECT_NEAR(camera.zFar(), 12.0f, 1e-4f);
    camera.fitZRange(box, {.nearest = 6.0f, .farthest = 20.0f, .room = 1.0f});
    EXPECT_NEAR(camera.zNear(), 4.0f, 1e-4f);
    EXPECT_NEAR(camera.zFar(), 21.0f, 1e-4f);
    // Without a box they never come closer to each other.
    camera.fitZRange(Box(), {});
    EXPECT_NEAR(camera.zFar(), 21.0f, 1e-4f);
    camera.fitZRange(Box(), {.nearest = 0.5f, .farthest = 30.0f, .room = 1.0f});
    camera.fitZRange(Box(), {.nearest = 8.0f, .farthest = 9.0f, .room = 1.0f});
    EXPECT_NEAR(camera.zNear(), 0.5f, 1e-4f);
    EXPECT_NEAR(camera.zFar(), 31.0f, 1e-4f);
}

TEST(Camera, aStretchedViewFollowsAResizeWithoutAJump) {
    Camera camera(false);
    camera.setOrthographic(100.0f, 10.0f, -1.0f, 1.0f);
    camera.setViewport(641, 480);
    EXPECT_NEAR(camera.horizontalExtent(), 100.15625f, 1e-4f);
    EXPECT_EQ(camera.verticalExtent(), 10.0f);
    camera.setViewport(1280, 480);
    EXPECT_FLOAT_EQ(camera.horizontalExtent(), 200.0f);
    camera.setViewport(640, 480);
    EXPECT_EQ(camera.horizontalExtent(), 100.0f);
    // A perspective has no extents that a resize could change.
    Camera perspective(false);
    perspective.setProjection(perspective.projectionMatrix(), 0.01f, 20000.0f, false);
    perspective.setViewport(1280, 480);
    EXPECT_EQ(perspective.horizontalExtent(), 4.0f);
}

TEST(Camera, refusesWhatMakesNoViewBeforeAnythingIsChanged) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const Eigen::Vector3f up = Eigen::Vector3f::UnitZ();
    Eigen::Matrix4f broken = Eigen::Matrix4f::Identity();
    broken(1, 2) = nan;
    const std::vector<std::function<void(Camera&)>> calls = {
        [&](Camera& c) { c.setPose(P(nan, 0.0f, 0.0f), up, up); },
        [&](Camera& c) { c.setPose(P(), P(inf, 0.0f, 0.0f), up); },
        [&](Camera& c) { c.setViewMatrix(broken); },
        [&](Camera& c) { c.setViewMatrix(Eigen::Matrix4f::Zero()); },
        [&](Camera& c) { c.setPerspective(nan, 1.0f, 9.0f, 0.0f, 0.0f); },
        [&](Camera& c) { c.setPerspective(180.0f, 1.0f, 9.0f, 0.0f, 0.0f); },
        [&](Camera& c) { c.setPerspective(60.0f, 1.0f, 1.0f, 0.0f, 0.0f); },
        [&](Camera& c) { c.setPerspective(60.0f, 1.0f, inf, 0.0f, 0.0f); },
        [&](Camera& c) { c.setPerspectiveOffCenter(1.0f, 1.0f, 0.0f, 1.0f, 1.0f, 9.0f, false); },
        [&](Camera& c) { c.setOrthographic(0.0f, 1.0f, 1.0f, 9.0f); },
        [&](Camera& c) { c.setOrthographic(2.0f, nan, 9.0f); },
        [&](Camera& c) { c.setProjection(broken, 1.0f, 9.0f, false); },
    };
    for (size_t i = 0; i < calls.size(); ++i) {
        Camera camera(true);
        EXPECT_THROW(calls[i](camera), std::invalid_argument) << i;
        EXPECT_TRUE(camera == Camera(true)) << i;
        EXPECT_EQ(camera.zNear(), 0.01f) << i;
        EXPECT_EQ(camera.zFar(), 20000.0f) << i;
        EXPECT_FLOAT_EQ(camera.fovYDeg(), 60.0f) << i;
        EXPECT_EQ(camera.verticalExtent(), 3.0f) << i;
    }
}

TEST(Camera, equalityFollowsMatricesViewportAndDepthConvention) {
    Camera a(false);
    Camera b(false);
    b.setNeedsRedraw(false);
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a != Camera(true));
    b.setViewport(1280, 960);
    EXPECT_TRUE(a != b);
    a.setViewport(1280, 960);
    b.setViewMatrix(2.0f * Eigen::Matrix4f::Identity());
    EXPECT_TRUE(a != b);
}

}  // namespace
