#include "RecordingRenderable.h"

#include <gtest/gtest.h>
#include <render/core/Renderer.h>

#include <array>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Render::Renderer;
using Events = std::vector<std::string>;
using P = Math::Point<float, 3>;
using Box = Math::NBoundingBox<float, 3>;

class RendererNotification : public ::testing::Test {
protected:
    void SetUp() override {
        renderer.setScene(scene);
        settle();
    }
    void settle() {
        scene->takeEvents();
        renderer.camera()->setNeedsRedraw(false);
    }
    // The change is told once and asks for a redraw; the same again does neither.
    void expectOnce(const char* what, const std::function<void()>& change, const Events& expected) {
        SCOPED_TRACE(what);
        settle();
        change();
        EXPECT_EQ(scene->takeEvents(), expected);
        EXPECT_TRUE(renderer.camera()->needsRedraw());
        renderer.camera()->setNeedsRedraw(false);
        change();
        EXPECT_EQ(scene->takeEvents(), Events());
        EXPECT_FALSE(renderer.camera()->needsRedraw());
    }

    Renderer renderer{true};
    std::shared_ptr<RecordingRenderable> scene = std::make_shared<RecordingRenderable>();
};

Math::NPlane<float, 3> plane(float x, float y, float z, float offset) {
    return {P(x, y, z), offset};
}

TEST_F(RendererNotification, startsWithTheDocumentedSettings) {
    EXPECT_EQ(renderer.backgroundColor(), Math::Color(255, 255, 255, 255));
    EXPECT_EQ(renderer.renderMode(), Render::RenderMode::Default);
    EXPECT_EQ(renderer.colorMap(), Render::ColorMap::Turbo);
    EXPECT_EQ(renderer.tomographicColor(), Math::Color(0, 0, 0, 255));
    EXPECT_FALSE(renderer.useCloudColorsInTomographicRenderModes());
    EXPECT_FALSE(renderer.hasMeshForDistanceColorization());
    EXPECT_TRUE(renderer.useSignedDistance());
    EXPECT_FALSE(renderer.autoAdjustZRangeEnabled());
    const std::array<float, 9> values = {
        renderer.minDistance(),         renderer.maxDistance(),     renderer.minDistancePassFail(),
        renderer.maxDistancePassFail(), renderer.minDistanceWarn(), renderer.maxDistanceWarn(),
        renderer.brightness(),          renderer.contrast(),        renderer.opacity()};
    EXPECT_EQ(values, (std::array<float, 9>{0.0f, 1.0f, -0.5f, 0.5f, -0.25f, 0.25f, 0.0f, 1.0f, 1.0f}));
    float zNear = 0.0f;
    float zFar = 0.0f;
    renderer.getZRange(zNear, zFar);
    EXPECT_TRUE(renderer.isOrthographic());
    EXPECT_EQ(zNear, -1.0f);
    EXPECT_EQ(zFar, 1.0f);
    EXPECT_EQ(renderer.camera()->horizontalExtent(), 2.0f);
}

TEST_F(RendererNotification, displaySettingsReachTheSceneOnce) {
    expectOnce("mode", [&] { renderer.setRenderMode(Render::RenderMode::PlaneDistance); }, {"renderMode 4"});
    expectOnce("map", [&] { renderer.setColorMap(Render::ColorMap::Viridis); }, {"colorMap 3"});
    expectOnce("range", [&] { renderer.setColorMapRange(-2.0f, 1.0f); }, {"range -2 1"});
    expectOnce("range's end", [&] { renderer.setColorMapRange(-2.0f, 2.0f); }, {"range -2 2"});
    expectOnce("pass", [&] { renderer.setPassFailDistanceRange(-0.5f, 0.75f); }, {"passFail -0.5 0.75"});
    expectOnce("warn", [&] { renderer.setWarnDistanceRange(-0.125f, 0.25f); }, {"warn -0.125 0.25"});
    expectOnce("signed", [&] { renderer.setUseSignedDistance(false); }, {"signed 0"});
    expectOnce("plane", [&] { renderer.setPlaneForDistanceColorization(plane(0, 1, 0, 2)); },
               {"plane 0 1 0 2"});
    expectOnce("colour", [&] { renderer.setTomographicColor(Math::Color(1, 2, 3, 4)); },
               {"tomographic 67174915"});
    expectOnce("cloud", [&] { renderer.setUseCloudColorsInTomographicRenderModes(true); }, {"cloudColors 1"});
    expectOnce("brightness", [&] { renderer.setBrightness(0.5f); }, {});
    expectOnce("contrast", [&] { renderer.setContrast(2.0f); }, {});
    expectOnce("opacity", [&] { renderer.setOpacity(0.5f); }, {});
    expectOnce("background", [&] { renderer.setBackgroundColor(1, 2, 3, 4); }, {});
    EXPECT_EQ(renderer.renderMode(), Render::RenderMode::PlaneDistance);
    EXPECT_EQ(renderer.maxDistancePassFail(), 0.75f);
    EXPECT_EQ(renderer.minDistanceWarn(), -0.125f);
    EXPECT_EQ(renderer.contrast(), 2.0f);
}

TEST_F(RendererNotification, aMeshIsComparedByIdentity) {
    const std::vector<P> vertices = {P(0.0f, 0.0f, 0.0f), P(1.0f, 0.0f, 0.0f), P(0.0f, 1.0f, 0.0f)};
    const std::vector<std::array<uint32_t, 3>> triangles = {{0, 1, 2}};
    const auto mesh = std::make_shared<Math::TriangleMesh<float>>(vertices, triangles);
    const auto twin = std::make_shared<Math::TriangleMesh<float>>(vertices, triangles);
    expectOnce("mesh", [&] { renderer.setMeshForDistanceColorization(mesh); }, {"mesh 1"});
    expectOnce("twin", [&] { renderer.setMeshForDistanceColorization(twin); }, {"mesh 1"});
    EXPECT_TRUE(renderer.hasMeshForDistanceColorization());
    expectOnce("none", [&] { renderer.setMeshForDistanceColorization(nullptr); }, {"mesh 0"});
    EXPECT_EQ(mesh.use_count(), 1);
}

TEST_F(RendererNotification, colorizationRangeSetsPlaneAndRangeButNotTheMap) {
    renderer.setColorizationRange(P(1.0f, 2.0f, 3.0f), P(1.0f, 2.0f, 7.0f), Render::ColorMap::Magma);
    EXPECT_EQ(scene->takeEvents(), (Events{"plane 0 0 1 -3", "range 0 4"}));
    EXPECT_EQ(renderer.colorMap(), Render::ColorMap::Turbo);
    settle();
    renderer.setColorizationRange(P(1.0f, 2.0f, 3.0f), P(1.0f, 2.0f, 3.0f), Render::ColorMap::Magma);
    EXPECT_EQ(scene->takeEvents(), (Events{"plane 0 0 0 -0", "range 0 0"}));
    renderer.camera()->setNeedsRedraw(false);
    renderer.setColorizationRange(P(1.0f, 2.0f, 3.0f), P(1.0f, 2.0f, 3.0f), Render::ColorMap::Magma);
    EXPECT_TRUE(renderer.camera()->needsRedraw());
}

TEST_F(RendererNotification, theScenesProposalOfBrightnessAndContrastIsTakenOver) {
    renderer.setBrightness(0.75f);
    settle();
    renderer.autoAdjustBrightnessAndContrast(0.125f, 0.5f);
    EXPECT_EQ(scene->takeEvents(), (Events{"propose 0.125 0.5 0 1"}));
    EXPECT_EQ(renderer.brightness(), 0.25f);
    EXPECT_EQ(renderer.contrast(), 3.0f);
    EXPECT_TRUE(renderer.camera()->needsRedraw());
    Renderer withoutScene(false);
    withoutScene.setContrast(2.0f);
    withoutScene.autoAdjustBrightnessAndContrast(0.125f, 0.5f);
    EXPECT_EQ(withoutScene.contrast(), 2.0f);
}

TEST_F(RendererNotification, cameraChangesReachTheSceneOnce) {
    const Eigen::Vector3f up = Eigen::Vector3f::UnitZ();
    const Eigen::Vector3f along = Eigen::Vector3f::UnitY();
    expectOnce("pose", [&] { renderer.setCameraPose(P(0.0f, -4.0f, 0.0f), along, up); }, {"view -4"});
    expectOnce("target", [&] { renderer.setCameraPose(P(0.0f, -8.0f, 0.0f), P(0.0f, 1.0f, 0.0f), up); },
               {"view -8"});
    Eigen::Matrix4f view = Eigen::Matrix4f::Identity();
    view(2, 3) = -16.0f;
    expectOnce("view", [&] { renderer.setViewMatrix(view); }, {"view -16"});
    expectOnce("perspective", [&] { renderer.setPerspective(90.0f, 1.0f, 9.0f, 0.0f, 0.0f); },
               {"projection 1"});
    expectOnce("off centre", [&] { renderer.setPerspectiveOffCenter(-1, 1, -1, 3, 1, 9, false); },
               {"projection 0.5"});
    expectOnce("orthographic", [&] { renderer.setOrthographic(8.0f, 1.0f, 9.0f); }, {"projection 0.25"});
    EXPECT_FLOAT_EQ(renderer.camera()->horizontalExtent(), 8.0f * 640.0f / 480.0f);
    expectOnce("explicit", [&] { renderer.setProjection(2.0f * view, 1.0f, 9.0f, false); }, {"projection 2"});
    renderer.setOrthographic(1.0f, 1.0f, 1.0f, 9.0f);
    const Box box(P(-1.0f, -1.0f, -1.0f), P(1.0f, 1.0f, 1.0f));
    expectOnce("z range", [&] { renderer.setZNearAndFarViaBoundingBox(box); }, {"projection 2"});
    EXPECT_EQ(renderer.camera()->zNear(), 15.0f);
    expectOnce("viewport", [&] { renderer.setViewport(65, 33); }, {"viewport 65 33", "projection 2"});
    Eigen::Matrix4f model = Eigen::Matrix4f::Identity();
    model(0, 3) = 3.0f;
    expectOnce("model", [&] { renderer.setModelMatrix(model); }, {"matrix 3"});
    EXPECT_EQ(renderer.modelViewProjectionMatrix(), renderer.camera()->viewProjectionMatrix() * model);
}

TEST_F(RendererNotification, automaticDepthFollowsCameraChangesAndEveryFrame) {
    scene->box = Box(P(-1.0f, -1.0f, -1.0f), P(1.0f, 1.0f, 1.0f));
    Eigen::Matrix4f view = Eigen::Matrix4f::Identity();
    view(2, 3) = -8.0f;
    renderer.setViewMatrix(view);
    EXPECT_EQ(renderer.camera()->zNear(), -1.0f);
    expectOnce("on", [&] { renderer.setAutoAdjustZRange(true); }, {"projection 1"});
    view(2, 3) = -4.0f;
    expectOnce("view", [&] { renderer.setViewMatrix(view); }, {"zRange 3 5", "view -4"});
    renderer.render();
    scene->box.min = P(-1.0f, -1.0f, -2.0f);
    renderer.render();
    EXPECT_EQ(scene->takeEvents(), (Events{"zRange 3 5", "render", "zRange 3 6", "render"}));
    renderer.setOrthographic(4.0f, 4.0f, 1.0f, 2.0f);
    EXPECT_EQ(scene->takeEvents(), (Events{"zRange 3 6", "projection 0.5"}));
    // Planes that the host sets by itself hold until the next change.
    renderer.setZNearAndFarViaBoundingBox(Box(P(0.0f, 0.0f, -9.0f), P(1.0f, 1.0f, 2.0f)));
    EXPECT_EQ(scene->takeEvents(), (Events{"projection 0.5"}));
    EXPECT_EQ(renderer.camera()->zFar(), 13.0f);
    scene->box = Box();
    renderer.render();
    EXPECT_EQ(scene->takeEvents(), (Events{"zRange 2 13", "render"}));
}

TEST_F(RendererNotification, aNewSceneHearsOfFiveSettingsAfterTheOldOneHasLeft) {
    renderer.setRenderMode(Render::RenderMode::UniformColor);
    renderer.setTomographicColor(Math::Color(0, 0, 1, 0));
    renderer.setColorMap(Render::ColorMap::Gray);
    renderer.setUseSignedDistance(false);
    renderer.setColorMapRange(2.0f, 3.0f);
    renderer.setPassFailDistanceRange(-9.0f, 9.0f);
    const auto next = std::make_shared<RecordingRenderable>("next");
    settle();
    renderer.setScene(next);
    EXPECT_EQ(scene->takeEvents(), (Events{"deinit"}));
    EXPECT_EQ(next->takeEvents(), (Events{"init " + std::to_string(renderer.id()) + " 1 1 1", "renderMode 6",
                                          "tomographic 1", "colorMap 5", "signed 0", "range 2 3"}));
    EXPECT_FALSE(renderer.camera()->needsRedraw());
    EXPECT_EQ(renderer.maxDistancePassFail(), 9.0f);
    {
        Renderer other(false);
        EXPECT_EQ(other.id(), renderer.id() + 1);
        other.setScene(scene);
        scene->takeEvents();
    }
    EXPECT_EQ(scene->takeEvents(), (Events{"deinit"}));
}

TEST_F(RendererNotification, redrawIsAskedByTheCameraElseByTheScene) {
    renderer.render();
    EXPECT_FALSE(renderer.needsRedraw());
    scene->setNeedsRedraw(true);
    EXPECT_TRUE(renderer.needsRedraw());
    renderer.render();
    renderer.camera()->setNeedsRedraw(true);
    EXPECT_TRUE(renderer.needsRedraw());
    scene->setVisible(false);
    settle();
    renderer.render();
    EXPECT_EQ(scene->takeEvents(), Events());
    // The frame without the scene was the one that it had asked for.
    EXPECT_FALSE(renderer.needsRedraw());
}

TEST_F(RendererNotification, theSameProjectionAgainIsNoChangeUnderAutomaticDepth) {
    scene->box = Box(P(-1.0f, -1.0f, -9.0f), P(1.0f, 1.0f, -4.0f));
    renderer.setAutoAdjustZRange(true);
    expectOnce("perspective", [&] { renderer.setPerspective(90.0f, 0.1f, 1000.0f, 0.0f, 0.0f); },
               {"zRange 4 9", "projection 1"});
    expectOnce("pose and perspective",
               [&] {
                   renderer.setPerspective(90.0f, 0.1f, 1000.0f, 0.0f, 0.0f);
                   renderer.setCameraPose(P(0.0f, 0.0f, 1.0f), -Eigen::Vector3f::UnitZ(),
                                          Eigen::Vector3f::UnitY());
               },
               {"zRange 5 10", "view -1"});
}

TEST_F(RendererNotification, whatIsSetOnTheCameraItselfReachesTheScene) {
    renderer.render();
    renderer.camera()->setPose(P(0.0f, 0.0f, 8.0f), -Eigen::Vector3f::UnitZ(), Eigen::Vector3f::UnitY());
    EXPECT_TRUE(renderer.needsRedraw());
    scene->takeEvents();
    renderer.render();
    EXPECT_EQ(scene->takeEvents(), (Events{"view -8", "render"}));
    renderer.camera()->setPerspective(90.0f, 1.0f, 9.0f, 0.0f, 0.0f);
    EXPECT_TRUE(renderer.needsRedraw());
    renderer.render();
    EXPECT_EQ(scene->takeEvents(), (Events{"projection 1", "render"}));
    EXPECT_FALSE(renderer.needsRedraw());
}

TEST_F(RendererNotification, automaticDepthLeavesTheRoomThatTheSceneAsksFor) {
    scene->box = Box(P(-1.0f, -1.0f, -9.0f), P(1.0f, 1.0f, -4.0f));
    scene->needs = {.nearest = 2.0f, .farthest = 30.0f, .room = 1.0f};
    renderer.setAutoAdjustZRange(true);
    renderer.render();
    EXPECT_EQ(scene->takeEvents(), (Events{"projection 1", "zRange 2 31", "render"}));
    scene->setVisible(false);
    renderer.render();
    EXPECT_EQ(scene->takeEvents(), (Events{"zRange 4 9"}));
}

TEST_F(RendererNotification, settingsThatAreNoNumbersAreRefused) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
    matrix(2, 1) = nan;
    const std::vector<std::function<void()>> calls = {
        [&] { renderer.setColorMapRange(nan, 1.0f); },
        [&] { renderer.setPassFailDistanceRange(0.0f, nan); },
        [&] { renderer.setWarnDistanceRange(nan, nan); },
        [&] { renderer.setBrightness(nan); },
        [&] { renderer.setContrast(nan); },
        [&] { renderer.setOpacity(nan); },
        [&] { renderer.setPlaneForDistanceColorization(plane(nan, 0, 0, 0)); },
        [&] { renderer.setModelMatrix(matrix); },
        [&] { renderer.setCameraPose(P(nan, 0, 0), P(), Eigen::Vector3f::UnitZ()); },
        [&] { renderer.setPerspective(0.0f, 1.0f, 2.0f, 0.0f, 0.0f); },
    };
    settle();
    for (const auto& call : calls) {
        EXPECT_THROW(call(), std::invalid_argument);
    }
    EXPECT_EQ(scene->takeEvents(), Events());
    EXPECT_FALSE(renderer.camera()->needsRedraw());
    EXPECT_EQ(renderer.maxDistance(), 1.0f);
}

}  // namespace
