#include <gtest/gtest.h>
#include <render/pointcloud/LocationPalette.h>
#include <render/pointcloud/WalkParameters.h>
#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using Math::NBoundingBox;
using Math::Point;
using Render::NodePriority;
using Render::RenderMode;
using Render::WalkParameters;

class ColorizationRangeTest : public testing::Test {
protected:
    float any(float low, float high) { return std::uniform_real_distribution<float>(low, high)(random); }
    Point<float, 3> anyPoint(float reach) {
        return {any(-reach, reach), any(-reach, reach), any(-reach, reach)};
    }

    void randomize() {
        Eigen::Affine3f world(Eigen::Translation3f(any(-50, 50), any(-50, 50), any(-50, 50)) *
                              Eigen::AngleAxisf(any(0, 6), Eigen::Vector3f::Random().normalized()) *
                              Eigen::UniformScaling<float>(any(0.1f, 4.0f)));
        parameters.world = world.matrix();
        parameters.modelScale = world.matrix().col(0).head<3>().norm();
        parameters.minDistance = any(-6, 6);
        parameters.maxDistance = parameters.minDistance + any(0, 3);
        parameters.useSignedDistance = any(0, 1) < 0.5f;
        box.min = anyPoint(20);
        box.max = box.min + Point<float, 3>(any(0, 5), any(0, 5), any(0, 5));
    }

    bool isColored(float distance) const {
        const float shown = parameters.useSignedDistance ? distance : std::abs(distance);
        return shown >= parameters.minDistance && shown <= parameters.maxDistance;
    }

    Point<float, 3> pointInBox() {
        Point<float, 3> point;
        for (int axis = 0; axis < 3; ++axis) {
            const float t = any(-0.3f, 1.3f);  // Often on the surface.
            point[axis] = box.min[axis] + std::clamp(t, 0.0f, 1.0f) * (box.max[axis] - box.min[axis]);
        }
        return point;
    }

    std::mt19937 random{11};
    WalkParameters parameters;
    NBoundingBox<float, 3> box;
};

TEST_F(ColorizationRangeTest, NoBoxWithAPointInThePlanesRangeIsDropped) {
    int dropped = 0;
    int kept = 0;
    for (int round = 0; round < 4000; ++round) {
        randomize();
        const Eigen::Vector3f normal = Eigen::Vector3f::Random().normalized();
        parameters.plane = {Point<float, 3>(normal), any(-60, 60)};
        const bool needed = parameters.needsPlaneDistanceColorization(box);
        ++(needed ? kept : dropped);
        bool colored = false;
        for (int i = 0; i < 50; ++i) {
            const Point<float, 3> world = Math::transformPoint(parameters.world, pointInBox());
            colored = colored || isColored(parameters.plane.signedDistance(world));
        }
        ASSERT_TRUE(needed || !colored) << round;
    }
    EXPECT_GT(dropped, 500);
    EXPECT_GT(kept, 200);
}

TEST_F(ColorizationRangeTest, NoBoxWithAPointInTheMeshsRangeIsDropped) {
    const auto mesh = std::make_shared<Math::TriangleMesh<float>>(
        std::vector<Point<float, 3>>{{-3, -3, 0}, {3, -3, 0}, {0, 3, 1}},
        std::vector<Math::TriangleMesh<float>::Triangle>{{0, 1, 2}});
    parameters.mesh = std::make_shared<Render::ModelMesh>(mesh, Eigen::Matrix4f::Identity());
    int dropped = 0;
    for (int round = 0; round < 4000; ++round) {
        randomize();
        const bool needed = parameters.needsMeshDistanceColorization(box);
        dropped += needed ? 0 : 1;
        bool colored = false;
        for (int i = 0; i < 50; ++i) {
            colored = colored || isColored(mesh->signedDistance(pointInBox()) * parameters.modelScale);
        }
        ASSERT_TRUE(needed || !colored) << round;
    }
    EXPECT_GT(dropped, 500);
}

TEST_F(ColorizationRangeTest, ThePlanesRangeIncludesItsEnds) {
    parameters.plane = {{0, 0, 1}, 0};
    parameters.minDistance = 2;
    parameters.maxDistance = 3;
    box = {{0, 0, 3}, {1, 1, 4}};
    EXPECT_TRUE(parameters.needsPlaneDistanceColorization(box));
    box = {{0, 0, 3.01f}, {1, 1, 4}};
    EXPECT_FALSE(parameters.needsPlaneDistanceColorization(box));
    box = {{0, 0, -4}, {1, 1, -2.5f}};
    EXPECT_FALSE(parameters.needsPlaneDistanceColorization(box));
    parameters.useSignedDistance = false;
    EXPECT_TRUE(parameters.needsPlaneDistanceColorization(box));
}

TEST(WalkParametersTest, LevelsAndModesComeBeforeTheView) {
    WalkParameters parameters;
    parameters.eye = {0, 0, 1e6f};  // Far away: all else is discarded.
    const NBoundingBox<float, 3> box({0, 0, 0}, {1, 1, 1});
    EXPECT_TRUE(parameters.boundingBoxPriority(2, box).isDiscarded());
    parameters.minLevelToKeep = 3;
    EXPECT_EQ(parameters.boundingBoxPriority(2, box), NodePriority::keep());
    EXPECT_TRUE(parameters.boundingBoxPriority(3, box).isDiscarded());
    parameters.plane = {{0, 0, 1}, 100};
    parameters.renderMode = RenderMode::PlaneDistance;
    EXPECT_TRUE(parameters.boundingBoxPriority(2, box).isDiscarded());
    parameters.renderMode = RenderMode::MeshDistance;  // Without a mesh nothing is measured.
    EXPECT_EQ(parameters.boundingBoxPriority(2, box), NodePriority::keep());
    parameters.maxLevelToKeep = 1;
    EXPECT_TRUE(parameters.boundingBoxPriority(2, box).isDiscarded());
}

TEST(LocationPaletteTest, HuesHalveTheCircleAndStay) {
    Render::LocationPalette palette;
    const auto location = [](int i) {
        return Octree::Location(PoTree::FileSystemLocation("cloud" + std::to_string(i)));
    };
    const double hues[] = {0, 180, 90, 270, 45, 135, 225, 315, 22.5};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(palette.color(location(i)), Math::Color::fromHslUv(hues[i], 1.0, 0.6, 1.0)) << i;
    }
    EXPECT_EQ(palette.color(location(2)), Math::Color::fromHslUv(90, 1.0, 0.6, 1.0));
}

}  // namespace
