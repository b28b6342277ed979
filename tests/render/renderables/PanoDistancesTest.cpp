#include <gtest/gtest.h>
#include <render/renderables/PanoDistances.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <algorithm>
#include <initializer_list>
#include <limits>
#include <utility>

namespace {

using Eigen::Vector3d;
using Eigen::Vector4d;
using Graphics::DepthImage;
using Render::Camera;
using Render::PanoDistances;
using Render::ZRangeNeeds;

PanoDistances measured(float nearest, float farthest) {
    DepthImage image(4, 2);
    image.fill(DepthImage::NOT_MEASURED);
    image.setPixel(0, 0, std::numeric_limits<float>::quiet_NaN());
    image.setPixel(1, 0, std::numeric_limits<float>::infinity());
    image.setPixel(2, 0, -3.0f);
    image.setPixel(0, 1, farthest);
    image.setPixel(3, 1, nearest);
    PanoDistances distances;
    distances.extend(image);
    return distances;
}

TEST(PanoDistancesTest, WhatIsNotMeasuredNeedsOnlyRoom) {
    ZRangeNeeds needs;
    measured(0, -1).addZRangeNeeds(Camera(true), Eigen::Matrix4f::Identity() * 2, needs);
    EXPECT_NEAR(needs.room, 2, 0.1f);
    EXPECT_EQ(needs.nearest, ZRangeNeeds().nearest);
    EXPECT_EQ(needs.farthest, ZRangeNeeds().farthest);
    PanoDistances distances = measured(3, 5);
    distances.extend(measured(4, 6));
    EXPECT_EQ(distances, measured(3, 6));
}

/// What the shader's limits must not touch, and what must lie between the planes, for pixels of the whole
/// picture.
void expectRoom(const Camera& camera, const Eigen::Affine3d& world, double scale, const ZRangeNeeds& needs,
                std::initializer_list<float> distances) {
    const double limit = camera.zFar() - scale;
    const Eigen::Matrix4d toClip = camera.viewProjectionMatrix().cast<double>();
    const Vector3d view = camera.viewDirection().cast<double>();
    const Vector3d fromEye = world.translation() - camera.eye().vector().cast<double>();
    ASSERT_GE(limit + fromEye.dot(view), needs.farthest) << "what was not measured";
    for (int corner = 0; corner < 9; ++corner) {
        const Vector4d clip(corner % 3 - 1, corner / 3 - 1, 1, 1);
        const Vector3d end = (toClip.inverse() * clip).hnormalized();
        const double cosine = (end - world.translation()).normalized().dot(view);
        for (const float distance : distances) {
            const double depth = scale * distance * cosine;
            ASSERT_LE(std::max(depth, depth + fromEye.dot(view) - scale), limit);
            ASSERT_GE(std::min(depth, depth + fromEye.dot(view)), camera.zNear());
        }
    }
}

TEST(PanoDistancesTest, PlanesThatLeaveRoomLimitAndCutOffNothing) {
    Camera camera(false);
    camera.setViewport(40, 30);
    int checked = 0;
    for (int i = 0; i < 81; ++i) {
        const double scale = i < 27 ? 0.2 : i < 54 ? 1.0 : 3.0;
        const Vector3d aside = 0.3 * Vector3d(i % 3 - 1, i / 3 % 3 - 1, i / 9 % 3 - 1);
        const Eigen::Affine3d world = Eigen::Translation3d(Vector3d(7, 8, 9) + aside) *
                                      Eigen::AngleAxisd(i, Vector3d::UnitY()) * Eigen::Scaling(scale);
        camera.setPose({7, 8, 9}, Eigen::Vector3f(1, -2, 0.5f), Eigen::Vector3f::UnitZ());
        for (const float fov : {0.0f, 20.0f, 60.0f, 110.0f}) {  // 0: orthographic.
            for (const auto& [nearest, farthest] : {std::pair(3.0f, 4.0f), {9.0f, 200.0f}}) {
                const auto setPlanes = [&](float zNear, float zFar) {
                    if (fov == 0.0f) {
                        camera.setOrthographic(10, zNear, zFar);
                    } else {
                        camera.setPerspective(fov, zNear, zFar, 0.3f, -0.1f);
                    }
                };
                setPlanes(0.1f, 100);
                ZRangeNeeds needs;
                measured(nearest, farthest).addZRangeNeeds(camera, world.matrix().cast<float>(), needs);
                if (fov == 0.0f || needs.nearest > 0.01f) {  // Otherwise no perspective has such planes.
                    setPlanes(needs.nearest, needs.farthest + needs.room);
                    expectRoom(camera, world, scale, needs, {nearest, farthest});
                    ++checked;
                }
            }
        }
    }
    EXPECT_GT(checked, 400);
}

}  // namespace
