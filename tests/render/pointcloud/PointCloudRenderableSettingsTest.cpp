#include <tests/render/pointcloud/CloudFixture.h>

#include <limits>
#include <stdexcept>

namespace {

using HalfSpace = Math::HalfSpace<float, 3>;
using Plane = Math::NPlane<float, 3>;

class PointCloudRenderableSettingsTest : public TestSupport::CloudFixture {};

TEST_F(PointCloudRenderableSettingsTest, CloudsOverOneOctreeFollowItsUnitScale) {
    const auto octree = std::make_shared<Octree::Octree>(
        std::make_shared<TestSupport::FixedCloud>(
            std::map<OctreeNodeId, std::vector<TestSupport::CloudPoint>>{
                {root, {{{-4, -4, -4}, red}, {{4, 4, 4}, blue}}}, {root.child(7), {{{7.9, 7.9, 7.9}, red}}}}),
        Octree::Location());
    const auto setting = shown(octree);
    const auto following = shown(octree);
    const auto expectSamePicture = [&] {
        draw(*setting);
        const auto expected = exactPositions;
        EXPECT_GT(drawnTexels(), 0u);
        EXPECT_EQ(following->pointSize(), following->defaultPointSize());
        draw(*following);
        EXPECT_EQ(exactPositions, expected);
    };
    draw(*following);
    setting->setUnitScale(0.5);
    setting->reloadPoints(nullptr, 21, {});
    EXPECT_TRUE(following->needsRedraw());
    draw(*following);
    EXPECT_EQ(drawnTexels(), 0u);  // What was shown was of the old scale.
    following->reloadPoints(nullptr, 21, {});
    expectSamePicture();

    octree->setUnitScale(0.25);
    EXPECT_TRUE(setting->needsRedraw());
    setting->skipRender();
    EXPECT_FALSE(setting->needsRedraw());
    EXPECT_FLOAT_EQ(setting->pointSize(), 0.25f * 5.1f);
    setting->reloadPoints(nullptr, 21, {});
    following->reloadPoints(nullptr, 21, {});
    draw(*following);
    EXPECT_EQ(following->numVisiblePoints(), 3u);  // A walk that came first need not be done again.
    expectSamePicture();
    following->setUnitScale(0.25);
    EXPECT_FALSE(following->needsRedraw());
}

TEST_F(PointCloudRenderableSettingsTest, AnEqualValueAsksForNothing) {
    const auto cloud = cloudOf({{root, {{{0, 0, 0}, red}}}});
    const std::vector<HalfSpace> planes(2, HalfSpace(Plane({0, 0, 1}, 100)));
    const auto setAll = [&] {
        cloud->setClippingVolume(planes);
        cloud->onUpdatePassFailDistanceRange(-3, 3);
        cloud->onUpdateWarnDistanceRange(-2, 2);
        cloud->setPointSize(3);
        cloud->setUniformColor(blue);
    };
    setAll();
    draw(*cloud);
    setAll();
    EXPECT_FALSE(cloud->needsRedraw());
    cloud->onUpdateWarnDistanceRange(-2, 2.5f);
    EXPECT_TRUE(cloud->needsRedraw());
}

TEST_F(PointCloudRenderableSettingsTest, ValuesWithoutSenseAreRefused) {
    const auto cloud = cloudOf({{root, {{{0, 0, 0}, red}}}});
    draw(*cloud);
    for (const float value : {-1.0f, std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_THROW(cloud->setPointSize(value), std::invalid_argument);
        EXPECT_THROW(cloud->setMaxPointSize(value), std::invalid_argument);
        EXPECT_THROW(cloud->setTomographicContrast(value), std::invalid_argument);
        EXPECT_THROW(cloud->setUnitScale(double{value}), std::invalid_argument);
        EXPECT_THROW(cloud->setClippingVolume({HalfSpace(Plane({0, 0, 1}, value / 0.0f))}),
                     std::invalid_argument);
    }
    EXPECT_EQ(cloud->pointSize(), 2);
    EXPECT_EQ(cloud->unitScale(), 1);
    EXPECT_FALSE(cloud->needsRedraw());
    cloud->setPointSize(0);
}

}  // namespace
