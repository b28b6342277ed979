#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>
#include <render/renderables/GroupRenderable.h>
#include <render/renderables/MeshRenderable.h>
#include <render/renderables/PanoRenderable.h>

#include <tests/support/ComSpy.h>

#include <array>
#include <cmath>
#include <memory>
#include <tuple>
#include <vector>

namespace {

using Math::Color;
using P = Math::Point<float, 3>;

constexpr size_t WIDTH = 96;
constexpr size_t HEIGHT = 64;

/// A dense wall of points across the x axis, slanting in y.
class WallOfPoints : public Octree::NodeSource {
public:
    WallOfPoints() {
        mFacts.boundingCube = {{-16, -16, -16}, {16, 16, 16}};
        mFacts.boundingBox = mFacts.boundingCube;
        mFacts.spacing = 0.1;
        for (int row = -60; row <= 60; ++row) {
            for (int column = -60; column <= 60; ++column) {
                const double y = 0.1 * column;
                mPositions.emplace_back(6.5 + 0.5 * y, y, 0.1 * row);
            }
        }
        mFacts.pointCount = mPositions.size();
    }

    const Octree::StoreFacts& storeFacts() const override { return mFacts; }
    bool nodeFacts(Octree::OctreeNodeId, Octree::NodeFacts& facts, const std::stop_token&) override {
        facts = {0, 1, mPositions.size()};
        return true;
    }
    bool readNode(Octree::OctreeNodeId, double, Octree::NodePointData& data,
                  const std::stop_token&) override {
        data.reset(mPositions.size());
        data.setPositions(mPositions);
        data.setColors(std::vector<Color>(mPositions.size(), Color(200, 20, 20)));
        return true;
    }

private:
    Octree::StoreFacts mFacts;
    std::vector<Math::Point<double, 3>> mPositions;
};

/// Two triangles across the x axis, slanting in z.
class Board : public Render::MeshLoader {
public:
    void load(std::function<void(const std::vector<Render::VertexPosNormalTexCoordColor>&)> onPart) override {
        const auto corner = [](float y, float z) {
            return Render::VertexPosNormalTexCoordColor(P(6.5f - 0.6f * z, y, z), Eigen::Vector3f(-1, 0, 0),
                                                        {0, 0}, Color(20, 20, 200));
        };
        onPart({corner(-5, -5), corner(5, -5), corner(5, 5), corner(-5, -5), corner(5, 5), corner(-5, 5)});
    }
};

/// Green all around, in stripes of two distances.
class Stripes : public Graphics::PanoramaLoader {
public:
    Stripes() : PanoramaLoader({2, 4, {16}, {16}, 1, 1}) {}

    size_t tilesPerLevel() const override { return 8; }
    std::vector<uint64_t> colorTiles() const override { return {0, 1, 2, 3, 4, 5, 6, 7}; }
    std::vector<uint64_t> depthTiles() const override { return colorTiles(); }
    Graphics::ColorImage loadColorTile(uint64_t) override {
        Graphics::ColorImage image(16, 16);
        image.fill(Color(20, 200, 20));
        return image;
    }
    Graphics::DepthImage loadDepthTile(uint64_t) override {
        Graphics::DepthImage image(16, 16);
        for (size_t i = 0; i < 256; ++i) {
            image.setPixel(i % 16, i / 16, i / 16 % 4 < 2 ? 5.5f : 7.5f);
        }
        return image;
    }
    P tileDirection(uint64_t) const override { return {1, 0, 0}; }
    unsigned projectionKind() const override { return 0; }
};

/// What a picture holds for each pixel; positions of pixels without anything are unspecified.
struct Picture {
    std::vector<Color> colors;
    std::vector<float> depths;
    std::vector<P> positions;
};

Picture pictureOf(Render::Renderer& renderer) {
    renderer.render();
    Graphics::ColorImage color;
    Graphics::DepthImage depth;
    renderer.getColorImage(color);
    renderer.getDepthImage(depth);
    std::vector<Render::VertexPosColor> drawn;
    renderer.getPoints(drawn);
    Picture picture;
    auto next = drawn.begin();
    for (size_t i = 0; i < WIDTH * HEIGHT; ++i) {
        picture.colors.push_back(color.pixel(i % WIDTH, i / WIDTH));
        picture.depths.push_back(depth.pixel(i % WIDTH, i / WIDTH));
        const bool empty = picture.depths.back() == renderer.camera()->clearDepthValue();
        picture.positions.push_back(empty ? P() : next++->position);
    }
    EXPECT_EQ(next, drawn.end());
    return picture;
}

int creations = 0;
HRESULT STDMETHODCALLTYPE refuseToCreate(ID3D11Device*) {
    ++creations;
    return E_FAIL;
}

// What makes the CPU wait for the GPU.
int readBacks = 0;
using Map = HRESULT STDMETHODCALLTYPE(ID3D11DeviceContext*, ID3D11Resource*, UINT, D3D11_MAP, UINT,
                                      D3D11_MAPPED_SUBRESOURCE*);
Map* originalMap = nullptr;
HRESULT STDMETHODCALLTYPE countReadingMap(ID3D11DeviceContext* context, ID3D11Resource* resource,
                                          UINT subresource, D3D11_MAP type, UINT flags,
                                          D3D11_MAPPED_SUBRESOURCE* mapped) {
    readBacks += type == D3D11_MAP_READ || type == D3D11_MAP_READ_WRITE ? 1 : 0;
    return originalMap(context, resource, subresource, type, flags, mapped);
}
using GetData = HRESULT STDMETHODCALLTYPE(ID3D11DeviceContext*, ID3D11Asynchronous*, void*, UINT, UINT);
GetData* originalGetData = nullptr;
HRESULT STDMETHODCALLTYPE countGetData(ID3D11DeviceContext* context, ID3D11Asynchronous* asynchronous,
                                       void* data, UINT dataSize, UINT flags) {
    ++readBacks;
    return originalGetData(context, asynchronous, data, dataSize, flags);
}
using CopyResource = void STDMETHODCALLTYPE(ID3D11DeviceContext*, ID3D11Resource*, ID3D11Resource*);
CopyResource* originalCopyResource = nullptr;
void STDMETHODCALLTYPE countCopy(ID3D11DeviceContext* context, ID3D11Resource* to, ID3D11Resource* from) {
    ++readBacks;  // All of our copies are.
    originalCopyResource(context, to, from);
}

}  // namespace

class SceneTest : public testing::TestWithParam<std::tuple<bool, bool>> {
protected:
    SceneTest() {
        const auto [reversed, orthographic] = GetParam();
        for (const auto& part : parts) {
            scene->add(part);
        }
        renderer.setViewport(WIDTH, HEIGHT);
        renderer.setScene(scene);
        lookAlongXFrom(P(orthographic ? -4.0f : 0.5f, 0.2f, 0.1f));
        if (orthographic) {
            renderer.setOrthographic(7.0f, 1.0f, 40.0f);
        } else {
            renderer.setPerspective(60.0f, 0.5f, 40.0f, 0.0f, 0.0f);
        }
        EXPECT_EQ(panorama->loadPanoramaTiles(), Core::JobState::Completed);
    }

    void lookAlongXFrom(const P& eye) {
        renderer.setCameraPose(eye, Eigen::Vector3f(1, 0, 0), Eigen::Vector3f(0, 0, 1));
    }

    const std::shared_ptr<Render::PointCloudRenderable> cloud = Render::PointCloudRenderable::create(
        std::make_shared<Octree::Octree>(std::make_shared<WallOfPoints>(), Octree::Location()), "cloud",
        100000);
    const std::shared_ptr<Render::PanoRenderable> panorama =
        Render::PanoRenderable::create(std::make_shared<Stripes>(), "panorama");
    const std::array<std::shared_ptr<Render::Renderable>, 3> parts{
        cloud, Render::MeshRenderable::create(std::make_shared<Board>(), 1.0, "mesh"), panorama};
    const std::shared_ptr<Render::GroupRenderable> scene = Render::GroupRenderable::create("scene");
    Render::Renderer renderer{std::get<0>(GetParam())};
};

// The picture of a scene is that of whichever of its parts is nearest, pixel by pixel.
TEST_P(SceneTest, EachPixelShowsTheNearestOfCloudMeshAndPanorama) {
    const bool reversed = std::get<0>(GetParam());
    const auto pictureWith = [&](const std::array<bool, 3>& visible) {
        for (size_t i = 0; i < 3; ++i) {
            parts[i]->setVisible(visible[i]);
        }
        cloud->reloadPoints(nullptr, 21, {});  // An invisible cloud drops its points.
        return pictureOf(renderer);
    };
    const std::array<Picture, 3> alone{pictureWith({true, false, false}), pictureWith({false, true, false}),
                                       pictureWith({false, false, true})};
    const Picture together = pictureWith({true, true, true});

    std::array<size_t, 3> wins{};
    for (size_t i = 0; i < WIDTH * HEIGHT; ++i) {
        size_t nearest = 0;
        for (size_t part = 1; part < 3; ++part) {
            const float depth = alone[part].depths[i];
            const float best = alone[nearest].depths[i];
            // Equal depths: the first one drawn stays.
            if (reversed ? depth > best : depth < best) {
                nearest = part;
            }
        }
        ++wins[nearest];
        ASSERT_EQ(together.depths[i], alone[nearest].depths[i]) << i;
        ASSERT_EQ(together.colors[i], alone[nearest].colors[i]) << i;
        ASSERT_EQ(together.positions[i], alone[nearest].positions[i]) << i;
    }
    for (const size_t win : wins) {
        EXPECT_GT(win, WIDTH * HEIGHT / 10);
    }
}

TEST_P(SceneTest, AFrameCreatesNothingAndWaitsForNothing) {
    cloud->reloadPoints(nullptr, 21, {});
    renderer.render();
    TestSupport::ComSpy device(renderer.device(), 43);
    for (std::size_t slot = 3; slot <= 24; ++slot) {  // CreateBuffer to CreateQuery
        device.replace(slot, &refuseToCreate);
    }
    TestSupport::ComSpy context(renderer.deviceContext(), 115);
    originalMap = context.replace(14, &countReadingMap);
    originalGetData = context.replace(29, &countGetData);
    originalCopyResource = context.replace(47, &countCopy);
    creations = readBacks = 0;
    for (int i = 0; i < 3; ++i) {
        lookAlongXFrom(P(0.5f + 0.1f * static_cast<float>(i), 0, 0));
        renderer.setBrightness(0.1f * static_cast<float>(i));
        renderer.render();
    }
    EXPECT_EQ(creations, 0);
    EXPECT_EQ(readBacks, 0);
    EXPECT_FALSE(renderer.needsRedraw());
    Graphics::ColorImage picture;
    renderer.getColorImage(picture);
    EXPECT_EQ(readBacks, 2);
}

INSTANTIATE_TEST_SUITE_P(DepthAndProjection, SceneTest, testing::Combine(testing::Bool(), testing::Bool()),
                         [](const auto& parameters) {
                             return std::string(std::get<0>(parameters.param) ? "Reversed" : "Normal") +
                                    (std::get<1>(parameters.param) ? "Orthographic" : "Perspective");
                         });
