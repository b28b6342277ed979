#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>
#include <render/gpu/RasterizerState.h>
#include <render/renderables/GroupRenderable.h>
#include <render/renderables/MeshRenderable.h>

#include <tests/support/ComSpy.h>
#include <tests/support/FailingCall.h>
#include <tests/support/GpuTestDevice.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Math::Color;
using Render::MeshRenderable;
using TestSupport::Float4;
using TestSupport::GpuTestDevice;
using Vertex = Render::VertexPosNormalTexCoordColor;
using Part = std::vector<Vertex>;
using P = Math::Point<float, 3>;
using Plane = Math::NPlane<float, 3>;
using Volume = Math::ConvexPolytope<float, 3>;

constexpr unsigned size = 64;

class Parts : public Render::MeshLoader {
public:
    explicit Parts(std::vector<Part> content) : parts(std::move(content)) {}
    void load(OnPart onPart) override {
        for (const Part& part : parts) {
            onPart(part);
        }
        if (fails) {
            throw std::runtime_error("damaged");
        }
    }
    std::vector<Part> parts;
    bool fails = false;
};

/// The two triangles of a square around (x, 0, z), two across.
Part square(float x, float z, const Eigen::Vector3f& normal, const Color& color) {
    const auto corner = [&](float dx, float dy) {
        return Vertex(P(x + dx, dy, z), normal, {0.0f, 0.0f}, color);
    };
    return {corner(-1, -1), corner(1, -1), corner(1, 1), corner(-1, -1), corner(1, 1), corner(-1, 1)};
}

using Map = HRESULT STDMETHODCALLTYPE(ID3D11DeviceContext*, ID3D11Resource*, UINT, D3D11_MAP, UINT,
                                      D3D11_MAPPED_SUBRESOURCE*);
Map* originalMap = nullptr;
int uploads = 0;
HRESULT STDMETHODCALLTYPE countMap(ID3D11DeviceContext* context, ID3D11Resource* resource, UINT subresource,
                                   D3D11_MAP type, UINT flags, D3D11_MAPPED_SUBRESOURCE* mapped) {
    ++uploads;
    return originalMap(context, resource, subresource, type, flags, mapped);
}

// A camera that looks straight down, eight pixels a unit.
class MeshRenderableTest : public testing::Test {
protected:
    MeshRenderableTest() {
        camera->setViewport(size, size);
        camera->setOrthographic(8, 8, 1, 100);
        camera->setPose(P(0, 0, 50), Eigen::Vector3f(0, 0, -1), Eigen::Vector3f(0, 1, 0));
    }

    std::shared_ptr<MeshRenderable> shown(std::vector<Part> parts, double unitScale = 1.0) {
        loader = std::make_shared<Parts>(std::move(parts));
        const auto mesh = MeshRenderable::create(loader, unitScale, "mesh");
        mesh->init(0, camera, gpu.device(), gpu.context());
        return mesh;
    }
    static D3D11_RASTERIZER_DESC withoutCulling() {
        D3D11_RASTERIZER_DESC desc{};
        desc.FillMode = D3D11_FILL_SOLID;
        desc.CullMode = D3D11_CULL_NONE;
        desc.DepthClipEnable = TRUE;
        return desc;
    }
    void draw(MeshRenderable& mesh) {
        targets.bindAndClear();
        bothSides.set(gpu.context());
        mesh.render();
        colors = targets.read(0);
        positions = targets.read(1);
        exactPositions = targets.read(2);
    }
    static std::size_t texelAt(float x, float y) {
        return static_cast<std::size_t>((4 - y) * 8) * size + static_cast<std::size_t>((x + 4) * 8);
    }
    std::size_t drawnTexels() const {
        std::size_t count = 0;
        for (const Float4& texel : exactPositions) {
            count += texel[3] > 0 ? 1u : 0u;
        }
        return count;
    }
    void expectColor(float x, float y, const Float4& expected) const {
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_NEAR(colors[texelAt(x, y)][i], expected[i], 0.002f) << "at " << x << ", " << y;
        }
    }

    GpuTestDevice& gpu = GpuTestDevice::fresh();
    TestSupport::FloatTargets targets{gpu, size, size, 3};
    Render::RasterizerState bothSides{gpu.device(), withoutCulling()};
    std::shared_ptr<Render::Camera> camera = std::make_shared<Render::Camera>(true);
    std::shared_ptr<Parts> loader;
    std::vector<Float4> colors;
    std::vector<Float4> positions;
    std::vector<Float4> exactPositions;
    const Color orange{255, 102, 51};
    const Eigen::Vector3f up{0, 0, 1};
};

TEST_F(MeshRenderableTest, EveryPartIsDrawnWithColorAndWorldPosition) {
    const auto mesh = shown({square(-2, 1, up, orange), {}, square(2, 3, up, Color(0, 0, 255, 7))});
    EXPECT_EQ(mesh->numTriangles(), 4u);
    EXPECT_EQ(mesh->boundingBox().min, P(-3, -1, 1));
    EXPECT_EQ(mesh->boundingBox().max, P(3, 1, 3));
    EXPECT_TRUE(mesh->needsRedraw());
    draw(*mesh);
    EXPECT_FALSE(mesh->needsRedraw());
    EXPECT_EQ(drawnTexels(), 2u * 16 * 16);
    expectColor(2, 0, {0, 0, 1, 1});
    const float toEye = 49 / std::sqrt(49.0f * 49 + 4 + 2 * 0.0625f);
    const float light = 0.2f + 0.8f * toEye;
    expectColor(-2, 0, {light, 0.4f * light, 0.2f * light, 1});
    for (const auto* target : {&positions, &exactPositions}) {
        const Float4 texel = (*target)[texelAt(2, 0)];
        EXPECT_NEAR(texel[0], 2.0625f, 1e-4f);
        EXPECT_NEAR(texel[1], -0.0625f, 1e-4f);
        EXPECT_EQ(texel[2], 3);
        EXPECT_EQ(texel[3], 1);
    }
}

TEST_F(MeshRenderableTest, LightFallsOnBothSidesAndNotOnWhatHasNoNormal) {
    Part reversed = square(1, 0, -up, orange);
    std::swap(reversed[1], reversed[2]);
    const float huge = std::numeric_limits<float>::infinity();
    const auto mesh =
        shown({square(-1, 0, up, orange), reversed, square(3, 0, Eigen::Vector3f::Zero(), orange),
               square(-3, 0, Eigen::Vector3f(huge, 0, 0), orange)});
    draw(*mesh);
    expectColor(-0.1f, 0, {1, 0.4f, 0.2f, 1});
    expectColor(0.1f, 0, {1, 0.4f, 0.2f, 1});
    expectColor(3, 0, {0.2f, 0.08f, 0.04f, 1});
    expectColor(-3, 0, {0.2f, 0.08f, 0.04f, 1});
    const float slant = 0.2f + 0.8f * std::sqrt(0.5f);
    draw(*shown({square(0, 0, Eigen::Vector3f(0, 5, 5), orange)}));
    expectColor(-0.05f, 0, {slant, 0.4f * slant, 0.2f * slant, 1});
}

TEST_F(MeshRenderableTest, TheUnitScaleComesBeforeTheWorldMatrix) {
    const auto mesh = shown({square(1000, 2000, up, orange)}, 0.001);
    Eigen::Matrix4f moved = Eigen::Matrix4f::Identity();
    moved(0, 3) = 2;
    moved(0, 0) = moved(1, 1) = 1000;
    mesh->setMatrix(moved);
    EXPECT_NEAR(mesh->boundingBox().min.x(), 0.999f, 1e-6f) << "whatever the matrix";
    EXPECT_NEAR(mesh->boundingBox().max.z(), 2, 1e-6f);
    EXPECT_EQ(mesh->unitScale(), 0.001);
    moved(0, 3) = -1001;
    mesh->setMatrix(moved);
    draw(*mesh);
    EXPECT_EQ(drawnTexels(), 16u * 16);
    EXPECT_NEAR(exactPositions[texelAt(-1, 0)][0], -0.9375f, 1e-3f);
    EXPECT_NEAR(exactPositions[texelAt(-1, 0)][2], 2, 1e-6f);
}

TEST_F(MeshRenderableTest, EightPlanesClipPixelsAndNineAreRefused) {
    const auto mesh = shown({square(0, 0, up, orange)});
    Volume volume;
    for (const Plane& plane : {Plane({1, 0, 0}, 0.75f), Plane({-1, 0, 0}, 0.75f), Plane({0, 1, 0}, 0.75f),
                               Plane({0, -1, 0}, 0.75f), Plane({0, 0, 1}, 9), Plane({0, 0, -1}, 9),
                               Plane({0, 2, 0}, 9), Plane({-3, 0, 0}, 0)}) {
        volume.add(Math::HalfSpace<float, 3>(plane));
    }
    mesh->setNeedsRedraw(false);
    mesh->setClippingVolume(volume);
    EXPECT_TRUE(mesh->needsRedraw());
    draw(*mesh);
    EXPECT_EQ(drawnTexels(), 6u * 12) << "the last plane halves what the first four leave";
    EXPECT_EQ(exactPositions[texelAt(0.1f, 0)][3], 0);
    mesh->setClippingVolume(volume);
    EXPECT_FALSE(mesh->needsRedraw());

    Volume nine = volume;
    nine.add(Math::HalfSpace<float, 3>(Plane()));
    try {
        mesh->setClippingVolume(nine);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Error: volume contains too many clipping planes, plane count = 9");
    }
    mesh->init(0, camera, gpu.device(), gpu.context());
    draw(*mesh);
    EXPECT_EQ(drawnTexels(), 6u * 12) << "kept, for another renderer as well";
    mesh->setClippingVolume({});
    draw(*mesh);
    EXPECT_EQ(drawnTexels(), 16u * 16);
}

TEST_F(MeshRenderableTest, AnotherInitReadsTheMeshAnewAndAFailedOneLeavesNothing) {
    const auto mesh = shown({square(-2, 1, up, orange), square(2, 3, up, orange)});
    GpuTestDevice other;
    TestSupport::FloatTargets otherTargets(other, size, size, 3);
    loader->parts.pop_back();
    mesh->init(1, camera, other.device(), other.context());
    EXPECT_EQ(mesh->numTriangles(), 2u);
    EXPECT_EQ(mesh->boundingBox().max, P(-1, 1, 1));
    otherTargets.bindAndClear();
    Render::RasterizerState(other.device(), withoutCulling()).set(other.context());
    mesh->render();
    EXPECT_NEAR(otherTargets.read(2)[texelAt(-2, 0)][2], 1, 1e-6f);

    const auto missing = MeshRenderable::create("none.obj", 1.0, "missing");
    missing->render();
    EXPECT_THROW(missing->init(0, camera, gpu.device(), gpu.context()), std::runtime_error);

    loader->fails = true;
    EXPECT_THROW(mesh->init(0, camera, gpu.device(), gpu.context()), std::runtime_error);
    EXPECT_EQ(mesh->numTriangles(), 0u);
    EXPECT_TRUE(mesh->boundingBox().isEmpty());
    draw(*mesh);
    EXPECT_EQ(drawnTexels(), 0u);
}

TEST_F(MeshRenderableTest, AFrameUploadsOnlyWhatHasChanged) {
    const auto mesh = shown({square(-2, 1, up, orange), square(2, 3, up, orange)});
    TestSupport::ComSpy context(gpu.context(), 115);
    originalMap = context.replace(14, &countMap);
    uploads = 0;
    mesh->render();
    EXPECT_EQ(uploads, 1);
    mesh->render();
    mesh->onUpdateViewport(camera);
    mesh->onUpdateRenderMode(Render::RenderMode::Intensity);
    mesh->render();
    EXPECT_EQ(uploads, 1);
    mesh->onUpdateViewMatrix(camera);
    mesh->onUpdateProjectionMatrix(camera);
    mesh->onUpdateZRange(camera);
    mesh->render();
    mesh->onUpdateZRange(camera);
    mesh->render();
    EXPECT_EQ(uploads, 2);
}

TEST_F(MeshRenderableTest, AFailedCallIsOneExceptionAndTheNextFrameDraws) {
    const auto mesh = shown({square(-2, 1, up, orange), square(2, 3, up, orange)});
    {
        const TestSupport::FailingMap failure(gpu.context());
        EXPECT_THROW(mesh->render(), Render::ComException);
    }
    EXPECT_TRUE(mesh->needsRedraw());
    ATL::CComPtr<ID3D11VertexShader> shader;
    gpu.context()->VSGetShader(&shader, nullptr, nullptr);
    EXPECT_FALSE(shader);
    draw(*mesh);
    EXPECT_EQ(drawnTexels(), 2u * 16 * 16);
    {
        const TestSupport::FailingCreateBuffer failure(gpu.device(), 2);  // Of the second part.
        EXPECT_THROW(mesh->init(0, camera, gpu.device(), gpu.context()), Render::ComException);
    }
    draw(*mesh);
    EXPECT_EQ(drawnTexels(), 0u);
    EXPECT_EQ(mesh->numTriangles(), 0u);
    mesh->init(0, camera, gpu.device(), gpu.context());
    draw(*mesh);
    EXPECT_EQ(drawnTexels(), 2u * 16 * 16);
}

TEST_F(MeshRenderableTest, AutomaticPlanesReachItInTheSameFrame) {
    for (const bool reversed : {false, true}) {
        Render::Renderer renderer(reversed);
        renderer.setViewport(size, size);
        renderer.setAutoAdjustZRange(true);
        const auto group = Render::GroupRenderable::create("group");
        const auto show = [&](const Part& part, float scale) {
            group->add(
                MeshRenderable::create(std::make_shared<Parts>(std::vector<Part>{part}), scale, "mesh"));
        };
        renderer.setScene(group);
        show(square(0, 0, up, orange), 1);
        renderer.setPerspective(90, 0.1f, 100, 0, 0);
        renderer.setCameraPose(P(0, 0, 10), Eigen::Vector3f(0, 0, -1), Eigen::Vector3f(0, 1, 0));
        renderer.render();
        show(square(0, -0.9f, up, orange), 500);
        show(square(0, -1, up, orange), 460);  // Behind it, so that nothing lies on the far plane.
        for (int frame = 0; frame < 2; ++frame) {
            renderer.render();
            std::vector<Render::VertexPosColor> points;
            renderer.getPoints(points);
            EXPECT_EQ(points.size(), size * size);
            Graphics::DepthImage depths;
            renderer.getDepthImage(depths);
            const Eigen::Vector4f clip = renderer.camera()->viewProjectionMatrix() * Eigen::Vector4f::UnitW();
            EXPECT_NEAR(depths.pixel(size / 2, size / 2), clip.z() / clip.w(), 1e-5f);
            group->setMatrix(Eigen::Matrix4f(Eigen::Matrix4f::Identity()));
        }
        EXPECT_FALSE(renderer.needsRedraw());
    }
}

TEST_F(MeshRenderableTest, ARendererShowsPicksAndMovesItWithItsGroup) {
    Render::Renderer renderer(true);
    renderer.setViewport(size, size);
    const auto mesh = MeshRenderable::create(
        std::make_shared<Parts>(std::vector<Part>{square(0, 1, up, orange)}), 1.0, "mesh");
    const auto group = Render::GroupRenderable::create("group");
    renderer.setScene(group);
    group->add(mesh);
    renderer.setOrthographic(8, 8, 1, 100);
    renderer.setCameraPose(P(0, 0, 50), Eigen::Vector3f(0, 0, -1), Eigen::Vector3f(0, 1, 0));
    renderer.render();
    P point;
    ASSERT_TRUE(renderer.pickPoint(32, 32, point));
    EXPECT_NEAR(point.z(), 1, 1e-4f);
    EXPECT_NEAR(point.x(), 0.0625f, 1e-4f);
    EXPECT_FALSE(renderer.needsRedraw());

    Eigen::Matrix4f moved = Eigen::Matrix4f::Identity();
    moved(0, 3) = 3;
    group->setMatrix(moved);
    EXPECT_TRUE(renderer.needsRedraw());
    renderer.render();
    EXPECT_FALSE(renderer.pickPoint(32, 32, point));
    ASSERT_TRUE(renderer.pickPoint(56, 32, point));
    EXPECT_NEAR(point.x(), 3.0625f, 1e-4f);
    renderer.setCameraPose(P(3, 0, 50), Eigen::Vector3f(0, 0, -1), Eigen::Vector3f(0, 1, 0));
    renderer.render();
    EXPECT_TRUE(renderer.pickPoint(32, 32, point));
    group->remove(group->begin());
    EXPECT_EQ(mesh->worldMatrix(), Eigen::Matrix4f(Eigen::Matrix4f::Identity()));
}

TEST_F(MeshRenderableTest, CoordinatesWithoutReasonBreakNothing) {
    Part distant = square(0, 0, up, orange);
    for (Vertex& vertex : distant) {
        vertex.position *= 1e30f;
    }
    Part none = distant;
    none[0].position *= std::numeric_limits<float>::quiet_NaN();
    const auto mesh =
        MeshRenderable::create(std::make_shared<Parts>(std::vector<Part>{distant, none}), 1e30, "mesh");
    Render::Renderer renderer(true);
    renderer.setViewport(size, size);
    renderer.setAutoAdjustZRange(true);
    renderer.setScene(mesh);
    renderer.setPerspective(40, 0.1f, 100, 0, 0);
    EXPECT_NO_THROW(renderer.render());
}

}  // namespace
