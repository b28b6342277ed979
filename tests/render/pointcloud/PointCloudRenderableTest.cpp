#include <math/Spectrum.h>
#include <octree/StoreError.h>

#include <tests/render/pointcloud/CloudFixture.h>
#include <tests/support/PotreeFixture.h>
#include <tests/support/SyntheticOctree.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Math::Point;
using Render::RenderMode;
using TestSupport::CloudPoint;

constexpr std::size_t vertexBytes = 24;

class PointCloudRenderableTest : public TestSupport::CloudFixture {};

TEST_F(PointCloudRenderableTest, PointsAreRoundDiscsWithColorAndWorldPosition) {
    const auto cloud = cloudOf({{root, {{{-4, -4, 1}, red}}}, {root.child(7), {{{3, 4, 2}, blue}}}});
    Eigen::Matrix4f moved = Eigen::Matrix4f::Identity();
    moved(0, 3) = 1.0f;
    cloud->setMatrix(moved);
    cloud->reloadPoints(nullptr, 21, {});
    EXPECT_TRUE(cloud->needsRedraw());
    draw(*cloud);
    EXPECT_FALSE(cloud->needsRedraw());
    EXPECT_EQ(cloud->numVisibleOctreeNodes(), 2u);
    EXPECT_EQ(cloud->numVisiblePoints(), 2u);
    expectNear(colors[texelAt(-3, -4)], {1, 0.2f, 0, 1});
    expectNear(colors[texelAt(4, 4)], {0, 0.2f, 1, 1});
    expectNear(exactPositions[texelAt(4, 4)], {4, 4, 2, 1});
    expectNear(exactPositions[texelAt(-3, -4) + 5], {-3, -4, 1, 1});
    expectNear(positions[texelAt(-3, -4) + 5], {-3 + 5.5f / 4, -4 - 0.5f / 4, 1, 1});
    EXPECT_NEAR(static_cast<float>(countOf(red)), 3.1416f * 8 * 8, 12);
    EXPECT_EQ(exactPositions[texelAt(-3, -4) + 7 * size + 7][3], 0);  // In the corner beside the disc.
    EXPECT_GT(exactPositions[texelAt(-3, -4) + 7][3], 0);
}

TEST_F(PointCloudRenderableTest, DiscsAreHalfAsWideWhereTheNextLevelIsResident) {
    const auto cloud = cloudOf({{root, {{{-4, -4, -4}, red}, {{4, 4, 4}, blue}}},
                                {root.child(7), {{{7.9, 7.9, 7.9}, Color::white()}}}});
    draw(*cloud);
    EXPECT_NEAR(static_cast<float>(countOf(red)), 3.1416f * 64, 12);
    EXPECT_NEAR(static_cast<float>(countOf(blue)), 3.1416f * 16, 6);
    cloud->setMaxLevelToKeep(0);
    cloud->reloadPoints(nullptr, 21, {});
    draw(*cloud);
    EXPECT_NEAR(static_cast<float>(countOf(blue)), 3.1416f * 64, 12);
    cloud->setMaxPointSize(6);
    draw(*cloud);
    EXPECT_NEAR(static_cast<float>(countOf(blue)), 3.1416f * 9, 5);
}

TEST_F(PointCloudRenderableTest, OnlyWhatIsNewIsUploaded) {
    const auto cloud = shown(std::make_shared<TestSupport::SyntheticOctree>(
        TestSupport::SyntheticOctreeShape{.depth = 1, .pointsPerNode = 100}));
    draw(*cloud);
    EXPECT_EQ(cloud->uploadedPointBytes(), 9 * 100 * vertexBytes);
    draw(*cloud);
    cloud->setMaxLevelToKeep(0);
    cloud->reloadPoints(nullptr, 21, {});
    draw(*cloud);
    const std::size_t rootTexels = drawnTexels();
    // The root has moved to a page of its size, so that the others' memory is free.
    EXPECT_EQ(cloud->uploadedPointBytes(), (9 + 1) * 100 * vertexBytes);
    cloud->setMaxLevelToKeep(1);
    cloud->reloadPoints(nullptr, 21, {});
    draw(*cloud);
    EXPECT_EQ(cloud->uploadedPointBytes(), (17 + 1) * 100 * vertexBytes);  // The root never left.
    EXPECT_NE(drawnTexels(), rootTexels);
    cloud->clearVisibleOctreeNodes();
    draw(*cloud);
    EXPECT_EQ(drawnTexels(), 0u);
    EXPECT_EQ(cloud->uploadedPointBytes(), (17 + 1) * 100 * vertexBytes);
}

TEST_F(PointCloudRenderableTest, EightClippingPlanesAreTheMost) {
    const auto cloud = cloudOf({{root, {{{-4, 0, 0}, red}, {{4, 0, 0}, blue}}}});
    const Math::HalfSpace<float, 3> all(Math::NPlane<float, 3>({1, 0, 0}, 100));
    std::vector<Math::HalfSpace<float, 3>> planes(7, all);
    planes.push_back(Math::HalfSpace<float, 3>(Math::NPlane<float, 3>({1, 0, 0}, 0)));
    cloud->setClippingVolume(planes);
    cloud->reloadPoints(nullptr, 21, {});
    draw(*cloud);
    EXPECT_EQ(countOf(red), 0u);
    EXPECT_GT(countOf(blue), 0u);
    planes.resize(9, all);
    planes[7] = all;
    try {
        cloud->setClippingVolume(planes);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Error: volume contains too many clipping planes, plane count = 9");
    }
    draw(*cloud);
    EXPECT_EQ(countOf(red), 0u);
    Eigen::Matrix4f moved = Eigen::Matrix4f::Identity();  // The planes stay where they are in the world.
    moved(0, 3) = 5.0f;
    cloud->setMatrix(moved);
    cloud->reloadPoints(nullptr, 21, {});
    draw(*cloud);
    EXPECT_GT(countOf(red), 0u);
}

TEST_F(PointCloudRenderableTest, TheRenderModeDecidesTheColor) {
    const auto cloud = cloudOf({{root, {{{0, 0, 0}, red, 0x8000}}}});
    cloud->setUniformColor(Color(0, 255, 102));
    cloud->onUpdateTomographicColor(Color(51, 102, 204));
    cloud->setTomographicContrast(0.5f);
    const auto colorIn = [&](RenderMode mode) {
        cloud->onUpdateRenderMode(mode);
        cloud->reloadPoints(nullptr, 21, {});
        draw(*cloud);
        return colors[texelAt(0, 0)];
    };
    const float grey = (255 + 51) / 3.0f / 255.0f;
    expectNear(colorIn(RenderMode::Default), {1, 0.2f, 0, 1});
    expectNear(colorIn(RenderMode::Normal), {1, 0.2f, 0, 1});
    expectNear(colorIn(RenderMode::Intensity), {128 / 255.0f, 128 / 255.0f, 128 / 255.0f, 1});
    expectNear(colorIn(RenderMode::UniformColor), {0, grey, grey * 0.4f, 1});
    EXPECT_FALSE(cloud->isTransparent());
    EXPECT_FALSE(cloud->backgroundColor());
    const float radius = std::sqrt(2.0f) * 0.5f / 8;
    const float rim = 1 - radius;
    const float alpha = 0.5f * rim * rim * (3 - 2 * rim);
    expectNear(colorIn(RenderMode::TomographicDark), {0.8f, 0.6f, 0.2f, alpha});
    expectNear(colorIn(RenderMode::TomographicBright), {0.2f, 0.4f, 0.8f, alpha});
    EXPECT_TRUE(cloud->isTransparent());
    EXPECT_EQ(cloud->backgroundColor(), Color(0, 0, 0, 0));
    cloud->onUpdateUseCloudColorsInTomographicRenderModes(true);
    expectNear(colorIn(RenderMode::TomographicBright), {0, 1, 0.4f, alpha});
    cloud->setSelected(true);
    expectNear(colorIn(RenderMode::Default), {0, grey, grey * 0.4f, 1});
}

TEST_F(PointCloudRenderableTest, DistanceModesShowThePointsInTheirRange) {
    const auto cloud = cloudOf({{root, {{{-4, 0, 1}, red}, {{4, 0, 3}, blue}}}});
    cloud->onUpdateColorMap(Render::ColorMap::Gray);
    cloud->onUpdateColorMapRange(0, 2);
    cloud->onUpdatePlaneForDistanceColorization({{0, 0, 1}, 0});
    cloud->onUpdateMeshForDistanceColorization(std::make_shared<Math::TriangleMesh<float>>(
        std::vector<Point<float, 3>>{{-100, -100, 2.5f}, {100, -100, 2.5f}, {0, 100, 2.5f}},
        std::vector<Math::TriangleMesh<float>::Triangle>{{0, 1, 2}}));
    cloud->onUpdateRenderMode(RenderMode::PlaneDistance);
    cloud->reloadPoints(nullptr, 21, {});
    draw(*cloud);
    expectNear(colors[texelAt(-4, 0)], {0.5f, 0.5f, 0.5f, 1});
    EXPECT_EQ(exactPositions[texelAt(4, 0)][3], 0);
    cloud->onUpdateRenderMode(RenderMode::MeshDistance);
    draw(*cloud);
    EXPECT_EQ(exactPositions[texelAt(-4, 0)][3], 0);
    expectNear(colors[texelAt(4, 0)], {0.25f, 0.25f, 0.25f, 1});
    cloud->onUpdateUseSignedDistance(false);
    draw(*cloud);
    expectNear(colors[texelAt(-4, 0)], {0.75f, 0.75f, 0.75f, 1});
}

TEST_F(PointCloudRenderableTest, EveryColorMapIsThatOfTheReferenceInBothDistanceModes) {
    constexpr float first = -0.5f;
    constexpr float last = 1.1f;
    constexpr int count = 15;
    const auto distanceOf = [](int i) {
        return first + (last - first) * (static_cast<float>(i) + 0.37f) / count;
    };
    std::vector<CloudPoint> points;
    for (int i = 0; i < count; ++i) {
        points.push_back({{i - 7.0, 0, double{distanceOf(i)}}, red});
    }
    const auto cloud = cloudOf({{root, points}});
    cloud->setMaxPointSize(3);
    cloud->onUpdateColorMapRange(first, last);
    cloud->onUpdatePassFailDistanceRange(-0.2f, 0.6f);
    cloud->onUpdateWarnDistanceRange(0.0f, 0.3f);
    cloud->onUpdatePlaneForDistanceColorization({{0, 0, 1}, 0});
    cloud->onUpdateMeshForDistanceColorization(std::make_shared<Math::TriangleMesh<float>>(
        std::vector<Point<float, 3>>{{-100, -100, 0}, {100, -100, 0}, {0, 100, 0}},
        std::vector<Math::TriangleMesh<float>::Triangle>{{0, 1, 2}}));
    for (const RenderMode mode : {RenderMode::PlaneDistance, RenderMode::MeshDistance}) {
        cloud->onUpdateRenderMode(mode);
        cloud->reloadPoints(nullptr, 21, {});
        for (int map = 0; map < 13; ++map) {
            const auto name = static_cast<Render::ColorMap>(map);
            cloud->onUpdateColorMap(name);
            draw(*cloud);
            for (int i = 0; i < count; ++i) {
                SCOPED_TRACE("map " + std::to_string(map) + ", distance " + std::to_string(distanceOf(i)));
                expectNear(
                    drawnNear(static_cast<float>(i) - 7),
                    Math::Spectrum::colorizeByDistance(distanceOf(i), first, last, Render::spectrumName(name),
                                                       {-0.2f, 0.6f, 0.0f, 0.3f}));
            }
        }
    }
}

TEST_F(PointCloudRenderableTest, ItCanLeaveARendererAndJoinAgain) {
    const auto cloud = cloudOf({{root, {{{0, 0, 0}, red}}}});
    EXPECT_THROW(cloud->init(1, camera, gpu.device(), gpu.context()), std::runtime_error);
    draw(*cloud);
    EXPECT_GT(drawnTexels(), 0u);
    cloud->deinit();
    EXPECT_EQ(cloud->numVisiblePoints(), 0u);
    draw(*cloud);
    EXPECT_EQ(drawnTexels(), 0u);
    EXPECT_THROW(cloud->reloadPoints(nullptr, 21, {}), std::runtime_error);
    cloud->init(size_t{1} << 41, camera, gpu.device(), gpu.context());
    draw(*cloud);
    EXPECT_EQ(drawnTexels(), 0u);
    EXPECT_EQ(cloud->uploadedPointBytes(), 0u);
    bool called = false;
    cloud->startAsyncReload([&] { called = true; }, 21);
    cloud->waitUntilLoaded();
    EXPECT_TRUE(called);
    draw(*cloud);
    EXPECT_GT(drawnTexels(), 0u);
    cloud->setVisible(false);
    draw(*cloud);
    EXPECT_EQ(drawnTexels(), 0u);
    cloud->setVisible(true);
    cloud->waitUntilLoaded();
    draw(*cloud);
    EXPECT_GT(drawnTexels(), 0u);
}

TEST_F(PointCloudRenderableTest, ExternalAttributesHidePointsFromPictureAndQuery) {
    const Support::PotreeFixture store;
    Support::PotreeFixture hiding("UNCOMPRESSED");
    hiding.metadata["attributes"] = {Support::attribute("visibility", 1, "uint8")};
    hiding.octree = std::string("\0\1\1\0\1\1\1", 7);
    hiding.hierarchy = Support::hierarchyRecord(0, 0b00010010, 3, 0, 3) +
                       Support::hierarchyRecord(0, 0, 1, 3, 1) + Support::hierarchyRecord(2, 0, 2, 66, 66) +
                       Support::hierarchyRecord(0, 0b01001000, 2, 4, 2) +
                       Support::hierarchyRecord(0, 0, 0, 0, 0) + Support::hierarchyRecord(0, 0, 1, 6, 1);
    hiding.writeAll();

    const auto cloud = PointCloudRenderable::create(Octree::Location::fromPath(store.folder.path()), "cloud",
                                                    1000000, 1.0 / 16);
    cloud->setOctreeNodePriorityThreshold(0.0f);
    cloud->init(size_t{1} << 42, camera, gpu.device(), gpu.context());
    cloud->startAsyncReload(nullptr, 21);
    cloud->waitUntilLoaded();
    EXPECT_EQ(cloud->numVisiblePoints(), 7u);
    draw(*cloud);
    const std::size_t before = drawnTexels();

    cloud->addExternalAttributeLocation(Octree::Location::fromPath(hiding.folder.path()));
    cloud->waitUntilLoaded();
    EXPECT_TRUE(cloud->isAsyncReloadHealthy(true));
    EXPECT_EQ(cloud->numVisiblePoints(), 2u);
    draw(*cloud);
    EXPECT_GT(drawnTexels(), 0u);
    EXPECT_LT(drawnTexels(), before);
    std::vector<Render::VertexPosColor> queried(10);
    EXPECT_EQ(cloud->createPointCloudQuery(nullptr, 21, 0.0f, std::chrono::nanoseconds(0))
                  ->getNextPointChunk(queried.data(), queried.size()),
              2u);
    EXPECT_THROW(cloud->addExternalAttributeLocation(PoTree::FileSystemLocation("absent")),
                 Octree::StoreError);
}

TEST_F(PointCloudRenderableTest, CubesOfNodesAreDrawnAsWireFrames) {
    const auto cloud = cloudOf({{root, {{{-8, -8, -8}, red}}}, {root.child(7), {{{8, 8, 8}, red}}}});
    cloud->setPointSize(0);
    cloud->setUniformColor(blue);
    draw(*cloud);
    EXPECT_EQ(countOf(blue), 0u);
    cloud->setShowBoundingBoxes(true);
    EXPECT_TRUE(cloud->needsRedraw());
    draw(*cloud);
    EXPECT_GT(countOf(blue), 4 * 30u);  // At least the smaller cube's outline.
    const std::size_t boxTexels = countOf(blue);
    cloud->setUniformColor(Color(0, 255, 0));
    draw(*cloud);
    EXPECT_EQ(countOf(Color(0, 255, 0)), boxTexels);
}

TEST_F(PointCloudRenderableTest, AnotherUnitScaleMovesPointsAndCube) {
    const auto cloud = cloudOf({{root, {{{-4, -4, 0}, red}}}});
    EXPECT_FLOAT_EQ(cloud->defaultPointSize(), 5.1f);
    cloud->setUnitScale(0.5);
    EXPECT_FLOAT_EQ(cloud->pointSize(), 2.55f);
    EXPECT_EQ(cloud->boundingCube().max, (Point<float, 3>(4, 4, 4)));
    cloud->reloadPoints(nullptr, 21, {});
    draw(*cloud);
    expectNear(exactPositions[texelAt(-2, -2)], {-2, -2, 0, 1});
    float brightness = 9;
    float contrast = 9;
    cloud->brightnessAndContrast(0, 0, brightness, contrast);  // One grey alone spans no range.
    EXPECT_EQ(brightness, 0.0f);
    EXPECT_EQ(contrast, 1.0f);
}

}  // namespace
