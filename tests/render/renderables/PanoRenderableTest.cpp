#include "TestPanorama.h"

#include <tests/render/core/Patch.h>
#include <tests/render/core/RecordingRenderable.h>
#include <tests/support/FailingCall.h>
#include <tests/support/GpuTestDevice.h>

#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>
#include <render/renderables/GroupRenderable.h>
#include <render/renderables/PanoGpu.h>
#include <render/renderables/PanoRenderable.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <cfloat>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <vector>

namespace {

using Core::JobState;
using Eigen::Matrix4d;
using Eigen::Matrix4f;
using Eigen::Vector3d;
using Eigen::Vector3f;
using Eigen::Vector4d;
using P = Math::Point<float, 3>;
using Render::PanoRenderable;
using Shape = TestPanorama::Shape;

const double kPi = std::acos(-1.0);

Matrix4f placed(const Vector3f& translation, float degrees = 0, float scale = 1) {
    const Eigen::AngleAxisf turn(degrees * static_cast<float>(kPi) / 180, Vector3f(1, 2, 3).normalized());
    return (Eigen::Translation3f(translation) * turn * Eigen::Scaling(scale)).matrix();
}

/// A renderer of an odd size: the picture's middle falls on seams, poles and edges exactly.
class PanoFrame {
public:
    struct Pixel {
        Math::Color color;
        Vector3d position;
        double depth;
    };

    PanoFrame(bool reversed, const Shape& shape)
        : renderer(reversed),
          loader(std::make_shared<TestPanorama>(shape)),
          pano(PanoRenderable::create(loader, "pano")) {
        renderer.setViewport(kWidth, kHeight);
        renderer.setScene(pano);
        renderer.setPerspective(90, 0.1f, 100, 0, 0);
        look({1, 0, 0});
    }

    void look(const Vector3f& direction, const P& eye = P()) {
        renderer.setCameraPose(eye, direction, {0, 0, 1});
    }
    void load(std::function<bool(uint64_t)> offers = nullptr) {
        loader->offers = std::move(offers);
        EXPECT_EQ(pano->loadPanoramaTiles(), JobState::Completed);
    }

    std::vector<Pixel> draw(Render::Renderer& by) {
        by.render();
        Graphics::ColorImage colors;
        Graphics::DepthImage depths;
        std::vector<Render::VertexPosColor> points;
        by.getColorImage(colors);
        by.getDepthImage(depths);
        by.getPoints(points);
        std::vector<Pixel> pixels;
        for (size_t i = 0; i < points.size(); ++i) {
            const size_t x = i % kWidth, y = i / kWidth;
            pixels.push_back(
                {colors.pixel(x, y), points[i].position.vector().cast<double>(), depths.pixel(x, y)});
        }
        EXPECT_EQ(points.size(), kWidth * kHeight) << "some pixels were not drawn";
        pixels.resize(kWidth * kHeight);
        return pixels;
    }

    /// Whether each pixel is what this class computes, for a texel no farther away than the shader's asin is
    /// wrong.
    void expectTruth(const std::string& what) { expectTruth(what, renderer); }
    void expectTruth(const std::string& what, Render::Renderer& by) {
        const std::vector<Pixel> pixels = draw(by);
        size_t wrong = 0, aside = 0;
        for (size_t i = 0; i < pixels.size(); ++i) {
            const Vector3d direction = directionOf(by, i);
            const Vector3d right = direction.unitOrthogonal(), up = direction.cross(right);
            bool found = fits(pixels[i], truth(by, direction, direction));
            for (int k = 0; k < 8 && !found; ++k) {
                const double angle = k * kPi / 4;
                const Vector3d beside = direction + 2e-4 * (std::cos(angle) * right + std::sin(angle) * up);
                found = fits(pixels[i], truth(by, direction, beside.normalized()));
                aside += found ? 1 : 0;
            }
            if (!found && ++wrong == 1) {
                const Pixel expected = truth(by, direction, direction);
                ADD_FAILURE() << what << ", pixel " << i % kWidth << ' ' << i / kWidth << std::hex
                              << ": color " << pixels[i].color.packed() << " instead of "
                              << expected.color.packed() << ", position " << pixels[i].position.transpose()
                              << " instead of " << expected.position.transpose() << ", depth "
                              << pixels[i].depth << " instead of " << expected.depth;
            }
        }
        EXPECT_EQ(wrong, 0u) << what;
        EXPECT_LT(aside, pixels.size() / 20) << what;
    }

    Pixel truth(Render::Renderer& by, size_t pixel) {
        const Vector3d direction = directionOf(by, pixel);
        return truth(by, direction, direction);
    }

    static constexpr size_t kWidth = 65;
    static constexpr size_t kHeight = 49;

    Render::Renderer renderer;
    std::shared_ptr<TestPanorama> loader;
    std::shared_ptr<PanoRenderable> pano;
    /// What is expected to be shown of a tile; nothing for placeholders.
    std::function<std::optional<size_t>(size_t tile)> colorLevel = [this](size_t) {
        return loader->shape.colorLevels - 1;
    };
    std::function<std::optional<size_t>(size_t tile)> depthLevel = [this](size_t) {
        return loader->shape.depthLevels - 1;
    };

private:
    Vector3d directionOf(const Render::Renderer& by, size_t pixel) {
        const double x = (static_cast<double>(pixel % kWidth) + 0.5) * 2 / kWidth - 1;
        const double y = 1 - (static_cast<double>(pixel / kWidth) + 0.5) * 2 / kHeight;
        const Matrix4d toClip =
            by.camera()->viewProjectionMatrix().cast<double>() * pano->worldMatrix().cast<double>();
        const double farDepth = by.camera()->isZBufferReversed() ? 0 : 1;
        const Vector4d end = toClip.inverse() * Vector4d(x, y, farDepth, 1);
        return (end.head<3>() / end.w()).normalized();
    }

    Pixel truth(const Render::Renderer& by, const Vector3d& direction, const Vector3d& texelDirection) {
        const Shape& shape = loader->shape;
        size_t face = 0;
        double u = 0.5 - std::atan2(texelDirection.y(), texelDirection.x()) / (2 * kPi);
        double v = std::acos(texelDirection.z()) / kPi;
        if (shape.kind != 0) {
            for (size_t i = 1; i < 6; ++i) {
                const auto ahead = [&](size_t f) { return TestPanorama::faceAxes(f)[2].dot(texelDirection); };
                face = ahead(i) > ahead(face) ? i : face;
            }
            const auto axes = TestPanorama::faceAxes(face);
            u = (axes[0].dot(texelDirection) / axes[2].dot(texelDirection) + 1) / 2;
            v = (axes[1].dot(texelDirection) / axes[2].dot(texelDirection) + 1) / 2;
        }
        const auto cell = [](double part, size_t count) {
            return std::min(static_cast<size_t>(part * static_cast<double>(count)), count - 1);
        };
        const size_t tile =
            (face * shape.rows + cell(v, shape.rows)) * shape.columns + cell(u, shape.columns);
        Pixel result{Math::Color::black(), {}, 0};
        double distance = FLT_MAX;
        if (const auto level = colorLevel(tile)) {
            const size_t size = shape.size << *level;
            result.color =
                TestPanorama::color(*level, face, cell(u, shape.columns * size), cell(v, shape.rows * size));
        }
        if (const auto level = depthLevel(tile)) {
            const size_t size = shape.size << *level;
            distance = TestPanorama::distance(*level, face, cell(u, shape.columns * size),
                                              cell(v, shape.rows * size));
        }
        const Matrix4d world = pano->worldMatrix().cast<double>();
        const Vector3d ahead =
            (world.inverse().topLeftCorner<3, 3>() * by.camera()->viewDirection().cast<double>())
                .normalized();
        const double scale = world.col(0).head<3>().norm();
        const double cosine = direction.dot(ahead);
        const double last = by.camera()->zFar() / scale - 1;
        distance = std::min(std::max(distance * cosine, by.camera()->zNear() / scale), last) / cosine;
        const Vector4d position = world * (distance * direction).homogeneous();
        result.position = position.head<3>();
        const Vector4d clip = by.camera()->viewProjectionMatrix().cast<double>() * position;
        result.depth = clip.z() / clip.w();
        return result;
    }

    static bool fits(const Pixel& pixel, const Pixel& expected) {
        return pixel.color == expected.color && std::abs(pixel.depth - expected.depth) < 1e-5 &&
               (pixel.position - expected.position).norm() < 2e-4 * (1 + expected.position.norm());
    }
};

class PanoPicture : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Depth, PanoPicture, testing::Bool(),
                         [](const auto& reversed) { return reversed.param ? "reversed" : "normal"; });

TEST_P(PanoPicture, EachPixelShowsTheTexelInItsDirectionAtItsDistance) {
    const std::vector<Vector3f> directions = {{-1, 0, 0}, {0, 0, 1},    {0, 0, -1},
                                              {1, 1, 1},  {-1, -1, -1}, {1, -1, 0}};
    for (const Shape shape :
         {Shape{.kind = 0, .colorLevels = 4, .depthLevels = 4, .size = 2},
          Shape{.kind = 0, .rows = 6, .columns = 8, .colorLevels = 1, .depthLevels = 2},
          Shape{.kind = 0, .rows = 1, .columns = 1, .colorLevels = 2, .depthLevels = 1},
          Shape{.kind = 1, .rows = 1, .columns = 2, .colorLevels = 2, .depthLevels = 3},
          Shape{.kind = 1, .rows = 4, .columns = 2, .colorLevels = 2, .depthLevels = 2}}) {
        PanoFrame frame(GetParam(), shape);
        frame.load();
        const std::string name =
            "kind " + std::to_string(shape.kind) + ", " + std::to_string(shape.rows) + " rows";
        for (const Vector3f& direction : directions) {
            frame.renderer.setPerspective(110, 0.1f, 100, 0, 0);
            frame.look(direction);
            frame.expectTruth(name + " wide");
            frame.renderer.setPerspective(12, 5, 12, 0, 0);
            frame.expectTruth(name + " narrow, limited by the planes");
        }
        frame.renderer.setPerspective(70, 0.1f, 100, 0.2f, -0.1f);
        frame.pano->setMatrix(placed({5, -3, 1}, 40, 2));
        frame.look({1, 2, 0.5f}, P(5, -3, 1));
        frame.expectTruth(name + " turned, scaled and off the axis");
        frame.look({1, 2, -0.5f}, P(5.2f, -3.1f, 1));
        frame.expectTruth(name + " beside the centre");
        frame.renderer.setOrthographic(9, 7, -30, 40);
        frame.expectTruth(name + " orthographic");
    }
}

TEST_P(PanoPicture, PanoramaAndQuadHideEachOther) {
    for (const bool panoFirst : {true, false}) {
        PanoFrame frame(GetParam(), {.size = 8});
        Patch patch(frame.renderer);
        const auto quad = std::make_shared<RecordingRenderable>("quad");
        const auto clip = [&](double z) {
            const Vector4d p = frame.renderer.projectionMatrix().cast<double>() * Vector4d(0, 0, -z, 1);
            return p.z() / p.w();
        };
        const double quadDepth = clip(8);
        const Math::Color white = Math::Color::white();
        quad->draw = [&] { patch.draw({-1, -1, 1, 1, static_cast<float>(quadDepth), white}); };
        const auto group = Render::GroupRenderable::create("group");
        group->add(panoFirst ? std::static_pointer_cast<Render::Renderable>(frame.pano) : quad);
        group->add(panoFirst ? quad : std::static_pointer_cast<Render::Renderable>(frame.pano));
        frame.renderer.setScene(group);
        frame.load();
        frame.look({1, 0.3f, 0.2f});  // No pixel looks at a texel's edge.
        const auto pixels = frame.draw(frame.renderer);
        size_t hidden = 0, wrong = 0;
        for (size_t i = 0; i < pixels.size(); ++i) {
            const PanoFrame::Pixel expected = frame.truth(frame.renderer, i);
            const bool isHidden = GetParam() ? expected.depth < quadDepth : expected.depth > quadDepth;
            hidden += isHidden ? 1 : 0;
            wrong += (pixels[i].color == white) != isHidden ? 1u : 0u;
        }
        EXPECT_GT(hidden, pixels.size() / 5);
        EXPECT_LT(hidden, pixels.size() * 4 / 5);
        EXPECT_LT(wrong, pixels.size() / 100) << "only where texels meet";
        quad->draw = nullptr;
    }
}

TEST_P(PanoPicture, APanoramaThatMovesIsRightInTheNextFrame) {
    PanoFrame frame(GetParam(), {});
    const auto group = Render::GroupRenderable::create("group");
    group->add(frame.pano);
    frame.renderer.setScene(group);
    frame.load();
    const auto expectTruthAtOnce = [&](const std::string& projection) {
        for (const float degrees : {100.0f, 180.0f}) {
            group->setMatrix(placed({1, 2, 3}));
            frame.look({1, 0, 0}, P(1, 2, 3));
            frame.look({3, 0.2f, -1}, P(1, 2, 3));  // At right angles to the axis of the turns.
            group->setMatrix(placed({1, 2, 3}, degrees));
            EXPECT_TRUE(frame.pano->needsRedraw());
            frame.expectTruth(projection + " turned with its group");
            frame.pano->setMatrix(placed({0.2f, 0.1f, 0}, 30, 1.5f) *
                                  Eigen::Vector4f(1, -1, 1, 1).asDiagonal());
            frame.expectTruth(projection + " turned, moved, scaled and mirrored");
            frame.pano->setMatrix(Matrix4f(Matrix4f::Identity()));
        }
    };
    expectTruthAtOnce("perspective");
    frame.renderer.setOrthographic(9, 7, -30, 40);
    expectTruthAtOnce("orthographic");
    group->removeAll();
    EXPECT_TRUE(frame.pano->boundingBox().isEmpty());
    frame.renderer.setScene(frame.pano);
    frame.look({0, 1, 0});
    frame.expectTruth("on its own");
}

TEST_P(PanoPicture, AutomaticPlanesLeaveWhatWasMeasuredWhereItIs) {
    PanoFrame frame(GetParam(), {.depthLevels = 3});
    const auto board = std::make_shared<RecordingRenderable>("board");
    board->box.extend(P(5, -1, -1));
    board->box.extend(P(6, 1, 1));
    const auto group = Render::GroupRenderable::create("group");
    group->add(frame.pano);
    group->add(board);
    frame.renderer.setScene(group);
    frame.load();
    frame.look({1, 0.3f, 0.2f});
    const auto expected = frame.draw(frame.renderer);
    frame.renderer.setAutoAdjustZRange(true);
    const auto pixels = frame.draw(frame.renderer);
    size_t elsewhere = 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        elsewhere += (pixels[i].position - expected[i].position).norm() > 2e-3 ? 1u : 0u;
    }
    EXPECT_LT(elsewhere, pixels.size() / 100) << "only where texels meet";
}

TEST(PanoRenderableTest, EachTileShowsItsFinestLevelInWhateverOrderTheyArrive) {
    PanoFrame frame(false, {});
    frame.colorLevel = frame.depthLevel = [](size_t) { return std::nullopt; };
    frame.expectTruth("nothing has arrived");
    frame.renderer.setPerspective(90, 1, 40, 0, 0);
    frame.pano->setMatrix(placed({0, 0, 0}, 0, 4));
    frame.expectTruth("scaled");
    // Tiles 0, 3 and 6 in level 2 before level 0; tile 1 in level 1 and 0 in one frame; the others in level
    // 0.
    frame.load([](uint64_t id) { return id >= 16 && id % 8 % 3 == 0; });
    EXPECT_TRUE(frame.pano->needsRedraw());
    frame.renderer.render();
    EXPECT_FALSE(frame.pano->needsRedraw());
    frame.load([](uint64_t id) { return id == 9; });
    frame.load([](uint64_t id) { return id < 8; });
    frame.colorLevel = [](size_t tile) { return tile % 3 == 0 ? 2u : tile == 1 ? 1u : 0u; };
    frame.depthLevel = [](size_t tile) { return tile == 1 ? 1u : 0u; };
    for (const Vector3f& direction : {Vector3f(1, 0, 0), Vector3f(-1, 0, 0), Vector3f(0, 1, 0.5f)}) {
        frame.look(direction);
        frame.expectTruth("levels mixed");
    }
}

TEST(PanoRenderableTest, WithoutDistancesColorsAreShownFarAway) {
    PanoFrame frame(false, {.kind = 1, .rows = 2, .columns = 2, .colorLevels = 2, .depthLevels = 0});
    frame.depthLevel = [](size_t) { return std::nullopt; };
    frame.load();
    frame.expectTruth("no depth levels");
}

TEST(PanoRenderableTest, LevelsThatAreMissingAreGrayAndAMarkedCubeTileIsTransparent) {
    TestSupport::GpuTestDevice& gpu = TestSupport::GpuTestDevice::fresh();
    TestSupport::FloatTargets targets(gpu, 8, 8, 3);
    for (const unsigned kind : {0u, 1u}) {
        const TestPanorama panorama({.kind = kind, .rows = 1, .columns = 1, .colorLevels = 2});
        Render::PanoGpu pano(gpu.device(), gpu.context(), &panorama);
        for (uint32_t level = 0; level <= 5; ++level) {
            Render::PanoConstants constants;
            constants.projectionType = kind;
            constants.tileRows = constants.tileColumns = 1;
            constants.zFar = 2;
            constants.maxColorLevelPerTile.fill({level});
            pano.setConstants(constants);
            targets.bindAndClear(0.5f);
            pano.draw();
            const float gray = static_cast<float>(level < 4 ? level * 30 : 0) / 255;
            const float alpha = level == 5 && kind == 1 ? 0.0f : 1.0f;
            for (const TestSupport::Float4& color : targets.read(0)) {
                ASSERT_NEAR(color[0], gray, 1e-6);
                ASSERT_EQ(color[3], alpha);
            }
        }
    }
    ATL::CComPtr<ID3D11ShaderResourceView> views[8];
    gpu.context()->PSGetShaderResources(0, 8, &views[0]);
    EXPECT_TRUE(std::all_of(std::begin(views), std::end(views), [](const auto& view) { return !view; }));
}

TEST(PanoRenderableTest, NothingIsNotANumberWhereThereIsNoDirection) {
    for (const unsigned kind : {0u, 1u}) {
        for (const bool reversed : {false, true}) {
            PanoFrame frame(reversed, {.kind = kind});
            frame.load();
            // The far plane passes through the centre: all directions to it are at right angles to the view.
            frame.look({1, 0, 0});
            frame.renderer.setOrthographic(9, 7, -10.0f, 0.0f);
            frame.renderer.render();
            std::vector<Render::VertexPosColor> points;
            frame.renderer.getPoints(points);
            // On the far plane itself only the middle passes the depth test.
            EXPECT_EQ(points.size(), reversed ? PanoFrame::kWidth * PanoFrame::kHeight : 1u);
            for (const Render::VertexPosColor& point : points) {
                ASSERT_TRUE(point.position.vector().allFinite());
            }
            Graphics::DepthImage depths;
            frame.renderer.getDepthImage(depths);
            for (size_t i = 0; i < PanoFrame::kWidth * PanoFrame::kHeight; ++i) {
                ASSERT_TRUE(std::isfinite(depths.pixel(i % PanoFrame::kWidth, i / PanoFrame::kWidth)));
            }
        }
    }
}

TEST(PanoRenderableTest, DistancesThatArriveAfterThePlanesWereChosenAskForAnotherFrame) {
    PanoFrame frame(true, {});
    frame.renderer.render();
    for (int i = 0; i < 3; ++i) {
        Render::ZRangeNeeds needs;
        if (i < 2) {
            frame.pano->addZRangeNeeds(*frame.renderer.camera(), needs);
            EXPECT_EQ(needs.farthest, i == 0 ? needs.farthest : 17.25f);
        }
        frame.load();
        frame.pano->render();
        EXPECT_EQ(frame.pano->needsRedraw(), i == 0) << i;
    }
}

TEST(PanoRenderableTest, AFailedCallIsOneExceptionAndNoTileIsMissingInTheNextFrame) {
    PanoFrame frame(true, {});
    frame.load();
    for (const int succeeding : {0, 7, 30, 40}) {  // 24 tiles of colours, 16 of distances, the constants.
        const TestSupport::FailingMap failure(frame.renderer.deviceContext(), succeeding);
        EXPECT_THROW(frame.pano->render(), Render::ComException);
        EXPECT_TRUE(frame.pano->needsRedraw());
    }
    frame.expectTruth("after failing uploads");
    {
        TestSupport::GpuTestDevice other;
        const TestSupport::FailingCreateTexture2D failure(other.device(), 5);
        EXPECT_THROW(frame.pano->init(0, frame.renderer.camera(), other.device(), other.context()),
                     Render::ComException);
        frame.look({0, 1, 0});
        const TestSupport::FailingMap onTheOldDevice(frame.renderer.deviceContext());
        EXPECT_NO_THROW(frame.pano->render());
    }
    frame.pano->init(0, frame.renderer.camera(), frame.renderer.device(), frame.renderer.deviceContext());
    EXPECT_EQ(frame.pano->waitForLoadingEnd(), JobState::Completed);
    frame.expectTruth("after a failing start");
}

TEST(PanoRenderableTest, TheTileThatTheCameraFacesIsLoadedFirst) {
    PanoFrame frame(false, {.rows = 1, .columns = 4, .colorLevels = 1, .depthLevels = 0});
    frame.pano->setMatrix(placed({7, 7, 7}));
    frame.look({0.5f, -1, 0}, P(7, 7, 7));  // Tile 2 looks to +x and -y.
    frame.load();
    EXPECT_EQ(frame.loader->takeLoaded().front(), "c2");
    Matrix4f turned = Matrix4f::Identity();
    turned.topLeftCorner<2, 2>() << 0, 1, -1, 0;  // A quarter to the right.
    frame.pano->setMatrix(turned);
    frame.load();
    EXPECT_EQ(frame.loader->takeLoaded().front(), "c1");
    frame.look({-0.5f, 1, 0}, P(7, 7, 7));
    frame.load();
    EXPECT_EQ(frame.loader->takeLoaded().front(), "c3");
}

TEST(PanoRenderableTest, AnotherRendererShowsTheTilesAgain) {
    PanoFrame frame(false, {});
    Render::Renderer other(true);
    other.setViewport(PanoFrame::kWidth, PanoFrame::kHeight);
    other.setPerspective(80, 0.1f, 100, 0, 0);
    other.setCameraPose(P(), Vector3f(0, 1, 0), Vector3f(0, 0, 1));
    frame.load();
    other.setScene(frame.pano);
    EXPECT_TRUE(frame.pano->isLoadingComplete()) << "nothing had been taken over yet";
    frame.expectTruth("loaded before it joined", other);
    EXPECT_EQ(frame.loader->takeLoaded().size(), 40u);

    other.setScene(frame.pano);
    EXPECT_TRUE(frame.pano->isLoadingComplete()) << "the device is the same";
    frame.expectTruth("joined again", other);
    EXPECT_EQ(frame.loader->takeLoaded().size(), 0u);

    frame.renderer.setScene(Render::GroupRenderable::create("empty"));
    frame.renderer.setScene(frame.pano);
    frame.pano->waitForLoadingComplete();
    EXPECT_EQ(frame.loader->takeLoaded().size(), 40u);
    frame.look({0, 1, 0});
    frame.expectTruth("joined the first device again");

    frame.pano->startAsyncPanoramaTilesLoading([&frame] { frame.pano->stopAsyncPanoramaTilesLoading(); });
    frame.pano->stopAsyncPanoramaTilesLoading();
    EXPECT_FALSE(frame.pano->isLoadingComplete());
    frame.renderer.render();
    other.setScene(frame.pano);
    frame.pano->stopAsyncPanoramaTilesLoading();
    frame.loader->takeLoaded();
    frame.colorLevel = frame.depthLevel = [](size_t) { return std::nullopt; };
    frame.expectTruth("stopped, so nothing comes again", other);
}

TEST(PanoRenderableTest, LoadingNeedsALoaderThatFits) {
    Render::Renderer renderer(false);
    renderer.setBackgroundColor(1, 2, 3, 255);
    const auto none = PanoRenderable::create(nullptr, "none");
    EXPECT_EQ(none->loadPanoramaTiles(), JobState::Failed);
    none->startAsyncPanoramaTilesLoading(nullptr);
    none->startAsyncPanoramaTilesLoading([] {});
    renderer.setScene(none);
    renderer.render();
    Graphics::ColorImage image;
    renderer.getColorImage(image);
    EXPECT_EQ(image.pixel(320, 240), Math::Color(1, 2, 3));
    EXPECT_FALSE(none->needsRedraw());
    EXPECT_FALSE(none->isLoadingComplete());
    EXPECT_EQ(none->waitForLoadingEnd(), JobState::Failed);
    EXPECT_EQ(none->loadingState(), JobState::Failed);
    EXPECT_FALSE(none->isLoadingHealthy(false));
    EXPECT_THROW(none->isLoadingHealthy(true), std::runtime_error);

    const auto small = PanoRenderable::create(std::make_shared<TestPanorama>(Shape{}), "small");
    EXPECT_EQ(small->waitForLoadingEnd(), JobState::NotStarted);
    small->startAsyncPanoramaTilesLoading([&small] { small->waitForLoadingEnd(); });
    EXPECT_EQ(small->waitForLoadingEnd(), JobState::Failed);
    EXPECT_THROW(small->isLoadingHealthy(true), std::runtime_error);

    const auto large =
        PanoRenderable::create(std::make_shared<TestPanorama>(Shape{.colorLevels = 5}), "large");
    EXPECT_THROW(renderer.setScene(large), std::invalid_argument);
    large->render();
}

TEST(PanoRenderableTest, ACallbackMayDropTheLastReference) {
    const int before = TestPanorama::destroyed();
    {
        PanoFrame frame(false, {});
        frame.renderer.setScene(Render::GroupRenderable::create("empty"));
        frame.loader.reset();
        PanoRenderable* const pano = frame.pano.get();
        pano->startAsyncPanoramaTilesLoading([kept = std::move(frame.pano)]() mutable { kept.reset(); });
        while (TestPanorama::destroyed() == before) {
            std::this_thread::yield();
        }
    }
}

}  // namespace
