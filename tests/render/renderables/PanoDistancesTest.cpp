#include <gtest/gtest.h>
#include <render/renderables/PanoDistances.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <algorithm>
#include <limits>

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

// The shader's own limits, for pixels of the whole picture, must change nothing that was measured.
TEST(PanoDistancesTest, PlanesThatLeaveRoomLimitAndCutOffNothing) {
    Camera camera(false);
    camera.setViewport(40, 30);
    int perspectives = 0;
    const auto expectRoom = [&](const Eigen::Affine3d& world, double scale, float nearest, float farthest) {
        ZRangeNeeds needs;
        measured(nearest, farthest).addZRangeNeeds(camera, world.matrix().cast<float>(), needs);
        float zNear = needs.nearest;
        const float zFar = needs.farthest + needs.room;
        if (camera.isPerspective()) {
            zNear = std::max(zNear, 0.01f);
            perspectives += zNear > 0.01f ? 1 : 0;
            camera.setPerspective(camera.fovYDeg(), zNear, zFar, 0.3f, -0.1f);
        } else {
            camera.setOrthographic(10, zNear, zFar);
        }
        const Eigen::Matrix4d toClip = camera.viewProjectionMatrix().cast<double>();
        const Vector3d view = camera.viewDirection().cast<double>();
        const Vector3d center = world.translation();
        const Vector3d eye = camera.eye().vector().cast<double>();
        for (const auto& [x, y] : {std::pair(-1, -1), {-1, 1}, {1, -1}, {1, 1}, {0, 0}, {1, 0}, {0, -1}}) {
            const Vector3d end = (toClip.inverse() * Vector4d(x, y, 1, 1)).hnormalized();
            const Vector3d direction = (end - center).normalized();
            const double cosine = direction.dot(view);
            for (const double distance : {scale * nearest, scale * farthest}) {
                const double depth = distance * cosine;
                ASSERT_LE(depth, zFar - scale);
                if (zNear != 0.01f) {
                    ASSERT_GE(depth, zNear);
                    ASSERT_GE((center + distance * direction - eye).dot(view), zNear);
                }
                ASSERT_LE((center + distance * direction - eye).dot(view), zFar);
            }
            ASSERT_GE(zFar - scale + (center - eye).dot(view), needs.farthest) << "what was not measured";
        }
    };
    for (const double scale : {0.2, 1.0, 3.0}) {
        for (int i = 0; i < 27; ++i) {
            const Vector3d aside = 0.3 * Vector3d(i % 3 - 1, i / 3 % 3 - 1, i / 9 - 1);
            const Eigen::Affine3d world = Eigen::Translation3d(Vector3d(7, 8, 9) + aside) *
                                          Eigen::AngleAxisd(i, Vector3d::UnitY()) * Eigen::Scaling(scale);
            camera.setPose({7, 8, 9}, Eigen::Vector3f(1, -2, 0.5f), Eigen::Vector3f::UnitZ());
            for (const float fov : {20.0f, 60.0f, 110.0f}) {
                camera.setPerspective(fov, 0.1f, 100, 0.3f, -0.1f);
                expectRoom(world, scale, 3, 4);
                expectRoom(world, scale, 9, 200);
            }
            camera.setOrthographic(10, 0, 100);
            expectRoom(world, scale, 3, 4);
        }
    }
    EXPECT_GT(perspectives, 200);
}

}  // namespace
