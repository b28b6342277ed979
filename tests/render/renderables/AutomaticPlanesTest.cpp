#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/renderables/GroupRenderable.h>
#include <render/renderables/MeshRenderable.h>

#include <memory>
#include <tuple>

namespace {

using P = Math::Point<float, 3>;
using Vertex = Render::VertexPosNormalTexCoordColor;

/// A wall across the x axis at 100, and something small in front of it at 10.
class WallFarAway : public Render::MeshLoader {
public:
    void load(std::function<void(const std::vector<Vertex>&)> onPart) override {
        const auto corner = [](float x, float y, float z) {
            return Vertex(P(x, y, z), Eigen::Vector3f(-1, 0, 0), {0, 0}, Math::Color(20, 20, 200));
        };
        onPart({corner(100, -90, -90), corner(100, 90, -90), corner(100, 90, 90), corner(100, -90, -90),
                corner(100, 90, 90), corner(100, -90, 90), corner(10, 0, 0), corner(10, 0.1f, 0),
                corner(10, 0, 0.1f)});
    }
};

class AutomaticPlanesTest : public testing::TestWithParam<std::tuple<bool, bool>> {};

}  // namespace

TEST_P(AutomaticPlanesTest, TheFarSideOfTheBoundsIsDrawn) {
    const auto [reversed, orthographic] = GetParam();
    constexpr size_t size = 48;
    Render::Renderer renderer(reversed);
    renderer.setViewport(size, size);
    const auto mesh = Render::MeshRenderable::create(std::make_shared<WallFarAway>(), 1.0, "wall");
    renderer.setScene(mesh);
    renderer.setAutoAdjustZRange(true);
    // Far planes that differ, so that their last bits do.
    for (const float x : {-20.0f, 3.0f, 9.9999f, 60.0f}) {
        renderer.setCameraPose(P(x, 1.0f, 0.5f), Eigen::Vector3f::UnitX(), Eigen::Vector3f::UnitZ());
        if (orthographic) {
            renderer.setOrthographic(20.0f, 1.0f, 2.0f);
        } else {
            renderer.setPerspective(50.0f, 1.0f, 2.0f, 0.0f, 0.0f);
        }
        renderer.render();
        size_t drawn = 0;
        for (size_t i = 0; i < size * size; ++i) {
            P point;
            drawn += renderer.pickPoint(i % size, i / size, point) ? 1u : 0u;
        }
        EXPECT_EQ(drawn, size * size) << x;
    }
}

INSTANTIATE_TEST_SUITE_P(DepthAndProjection, AutomaticPlanesTest,
                         testing::Combine(testing::Bool(), testing::Bool()), [](const auto& parameters) {
                             return std::string(std::get<0>(parameters.param) ? "Reversed" : "Normal") +
                                    (std::get<1>(parameters.param) ? "Orthographic" : "Perspective");
                         });
