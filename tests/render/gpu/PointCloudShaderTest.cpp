#include <render/gpu/ComException.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/PointCloudConstants.h>
#include <render/gpu/ShaderResourceView.h>
#include <render/gpu/Texture1d.h>
#include <render/gpu/VertexLayouts.h>
#include <render/gpu/VertexShader.h>

#include <gtest/gtest.h>
#include <tests/support/GpuTestDevice.h>

#include <algorithm>
#include <string>

using Math::Color;
using Render::ShaderConfiguration;
using TestSupport::Float4;
using TestSupport::GpuTestDevice;
using Point = Render::VertexPosColorIntensityClassIndexScanIndexDistance;

namespace {

constexpr unsigned size = 64;
constexpr unsigned tableSize = 512;
const Color orange(255, 153, 51, 255);

Point pointAt(float x, float y, float z = 0.5f) {
    return Point({x, y, z}, orange, 51, 0, 0, 0.5f);
}

/// Draws points in a view where model and clip coordinates are the same, unless a test changes the matrices.
/// The root cube is [-1, 1]³.
class PointCloudShaderTest : public testing::Test {
protected:
    void SetUp() override {
        mFrame.uniformColor = {0.5f, 1, 1, 1};
        mFrame.tomographicColor = {0.25f, 0.5f, 1, 1};
        mFrame.width = mFrame.height = size;
        mFrame.aspect = 1;
        mFrame.pointSize = 0.25f;
        mFrame.rootNodeSize = 2;
        mFrame.maxPointSize = 1000;
        mFrame.tomoContrast = 0.75f;
        mFrame.modelScale = 1;
        mFrame.maxDistance = 2;
        mFrame.colorMap = 5;
        mNode.nodeMin = {-1, -1, -1};
    }

    void setNode(size_t texel, uint32_t childMask, uint32_t offset) {
        mTable[texel] = childMask | (offset >> 8) << 8 | (offset & 0xFF) << 16;
    }

    Render::ShaderResourceView tableView() {
        D3D11_TEXTURE1D_DESC desc{};
        desc.Width = tableSize;
        desc.MipLevels = 1;
        desc.ArraySize = 1;
        desc.Format = DXGI_FORMAT_R8G8B8A8_UNORM;
        desc.Usage = D3D11_USAGE_DYNAMIC;
        desc.BindFlags = D3D11_BIND_SHADER_RESOURCE;
        desc.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
        Render::Texture1d texture(mGpu.device(), desc);
        std::memcpy(texture.map(mGpu.context(), D3D11_MAP_WRITE_DISCARD).pData, mTable.data(),
                    sizeof(mTable));
        texture.unMap(mGpu.context());
        return Render::ShaderResourceView(mGpu.device(), texture.get(), nullptr);
    }

    void draw(const std::vector<Point>& points) {
        D3D11_BUFFER_DESC desc{};
        desc.ByteWidth = static_cast<UINT>(points.size() * sizeof(Point));
        desc.Usage = D3D11_USAGE_IMMUTABLE;
        desc.BindFlags = D3D11_BIND_VERTEX_BUFFER;
        D3D11_SUBRESOURCE_DATA content{};
        content.pSysMem = points.data();
        ATL::CComPtr<ID3D11Buffer> buffer;
        Render::throwIfFailed(mGpu.device()->CreateBuffer(&desc, &content, &buffer), "CreateBuffer");
        Render::ConstantBuffer<Render::PointCloudFrameConstants> frame(mGpu.device(), mFrame);
        Render::ConstantBuffer<Render::PointCloudNodeConstants> node(mGpu.device(), mNode);
        Render::ShaderResourceView table = tableView();
        ID3D11DeviceContext* const context = mGpu.context();
        mTargets.bindAndClear();
        ID3D11Buffer* const raw = buffer;
        constexpr UINT stride = sizeof(Point);
        constexpr UINT offset = 0;
        context->IASetVertexBuffers(0, 1, &raw, &stride, &offset);
        context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLESTRIP);
        mVertexShader.begin(context);
        mPixelShader.begin(context);
        table.begin(context, ShaderConfiguration::Vertex, 0);
        frame.begin(context, ShaderConfiguration::Vertex | ShaderConfiguration::Pixel, 0);
        node.begin(context, ShaderConfiguration::Vertex, 1);
        context->DrawInstanced(4, static_cast<UINT>(points.size()), 0, 0);
        table.end(context);
        for (size_t i = 0; i < mPictures.size(); ++i) {
            mPictures[i] = mTargets.read(i);
        }
    }

    static size_t texelAt(float clipX, float clipY) {
        const auto x = static_cast<size_t>((clipX + 1) / 2 * size);
        const auto y = static_cast<size_t>((1 - clipY) / 2 * size);
        return y * size + x;
    }

    /// Lit pixels in the row through a clip-space position, in that quarter of the picture.
    int diameterAt(float clipX, float clipY) const {
        const size_t row = texelAt(clipX, clipY) / size * size;
        const size_t begin = row + (clipX < 0 ? 0 : size / 2);
        return static_cast<int>(std::count_if(mPictures[2].begin() + static_cast<ptrdiff_t>(begin),
                                              mPictures[2].begin() + static_cast<ptrdiff_t>(begin + size / 2),
                                              [](const Float4& texel) { return texel[3] != 0; }));
    }

    bool isDrawnAt(float clipX, float clipY) const { return mPictures[2][texelAt(clipX, clipY)][3] != 0; }

    static void expectColor(const Float4& color, const Float4& expected) {
        for (size_t c = 0; c < 4; ++c) {
            EXPECT_NEAR(color[c], expected[c], 1e-5f) << "channel " << c;
        }
    }

    GpuTestDevice& mGpu = GpuTestDevice::fresh();
    Render::VertexShader mVertexShader = Render::VertexShader::fromHlslResource(
        mGpu.device(), "shaders/pointcloud.hlsl", Render::VertexLayouts::pointCloud());
    Render::PixelShader mPixelShader =
        Render::PixelShader::fromHlslResource(mGpu.device(), "shaders/pointcloud.hlsl");
    TestSupport::FloatTargets mTargets{mGpu, size, size, 3};
    Render::PointCloudFrameConstants mFrame;
    Render::PointCloudNodeConstants mNode;
    std::array<uint32_t, tableSize> mTable{};
    std::array<std::vector<Float4>, 3> mPictures;
};

}  // namespace

// All points lie in the upper half along z. Resident below the root: child 5 (x upper, y lower), child 7
// (both upper), and child 0 of child 7, far away in the table.
TEST_F(PointCloudShaderTest, DiscsShrinkWithTheLevelThatIsResidentAroundThem) {
    setNode(0, 0xA0, 3);
    setNode(3, 0, 0);
    setNode(4, 0x01, 258);
    setNode(262, 0, 0);
    // The level is looked up in model space: a mirrored view changes the places, not the sizes.
    mFrame.modelViewProj.diagonal() << -1, -1, 1, 1;
    draw({pointAt(-0.5f, 0.5f), pointAt(0.5f, -0.5f)});
    EXPECT_EQ(diameterAt(0.5f, -0.5f), 16);
    EXPECT_EQ(diameterAt(-0.5f, 0.5f), 8);
    draw({pointAt(0.75f, 0.75f, 0.75f), pointAt(0.25f, 0.25f, 0.25f)});
    EXPECT_EQ(diameterAt(-0.75f, -0.75f), 8);
    EXPECT_EQ(diameterAt(-0.25f, -0.25f), 4);
    // Mid-planes belong to the upper child: child 5, not child 1.
    mFrame.modelViewProj.setIdentity();
    mFrame.modelViewProj(0, 3) = 0.5f;
    draw({pointAt(0, -0.5f, 0)});
    EXPECT_EQ(diameterAt(0.5f, -0.5f), 8);
    // Seen from a deeper node the search starts there.
    mNode.nodeMin = {0, 0, 0};
    mNode.nodeIndex = 4;
    mNode.nodeDepth = 1;
    mFrame.modelViewProj.setIdentity();
    draw({pointAt(0.25f, 0.25f, 0.25f)});
    EXPECT_EQ(diameterAt(0.25f, 0.25f), 4);
}

TEST_F(PointCloudShaderTest, DiscsAreAtLeastAPixelAndAtMostTheMaximumWide) {
    const float centre = 0.5f + 1.0f / size;
    mFrame.pointSize = 1e-6f;
    draw({pointAt(centre, centre)});
    EXPECT_EQ(diameterAt(centre, centre), 1);
    mFrame.pointSize = 100;
    mFrame.maxPointSize = 6;
    draw({pointAt(0.5f, 0.5f)});
    EXPECT_EQ(diameterAt(0.5f, 0.5f), 6);
    // A disc is round: its bounding square's corner stays empty.
    mFrame.maxPointSize = 20;
    draw({pointAt(0.5f, 0.5f)});
    EXPECT_TRUE(isDrawnAt(0.5f, 0.75f));
    EXPECT_FALSE(isDrawnAt(0.75f, 0.75f));
}

TEST_F(PointCloudShaderTest, ClippingPlanesCull) {
    const std::vector<Point> points = {pointAt(-0.5f, 0.5f), pointAt(0.5f, 0.5f), pointAt(0.5f, -0.5f)};
    mFrame.clippingPlanes[0] = {1, 0, 0, 0};
    mFrame.clippingPlanes[7] = {0, -1, 0, 0.5f};
    draw(points);
    EXPECT_FALSE(isDrawnAt(-0.5f, 0.5f));
    EXPECT_TRUE(isDrawnAt(0.5f, 0.5f));
    mFrame.clippingPlanes[7] = {0, -1, 0, 0.25f};
    draw(points);
    EXPECT_FALSE(isDrawnAt(0.5f, 0.5f));
    EXPECT_TRUE(isDrawnAt(0.5f, -0.5f));
}

TEST_F(PointCloudShaderTest, DistanceModesShowTheirRangeAlone) {
    mFrame.minDistance = 0.25f;
    mFrame.maxDistance = 0.5f;
    mFrame.pointRenderMode = 7;
    Point negative = pointAt(-0.5f, 0.5f);
    negative.distance = -0.25f;
    Point outside = pointAt(0.5f, -0.5f);
    outside.distance = 0.51f;
    const std::vector<Point> points = {pointAt(0.5f, 0.5f), negative, outside};
    draw(points);
    EXPECT_TRUE(isDrawnAt(0.5f, 0.5f));
    EXPECT_TRUE(isDrawnAt(-0.5f, 0.5f));
    EXPECT_FALSE(isDrawnAt(0.5f, -0.5f));
    expectColor(mPictures[0][texelAt(0.5f, 0.5f)], {1, 1, 1, 1});
    expectColor(mPictures[0][texelAt(-0.5f, 0.5f)], {0, 0, 0, 1});
    mFrame.useSignedDistance = 1;
    draw(points);
    EXPECT_FALSE(isDrawnAt(-0.5f, 0.5f));

    // To a plane in world coordinates: the model is moved by 10 along x.
    mFrame.pointRenderMode = 4;
    mFrame.model(0, 3) = 10;
    mFrame.distancePlane = {-1, 0, 0, 10};
    draw(points);
    EXPECT_TRUE(isDrawnAt(-0.5f, 0.5f));
    EXPECT_FALSE(isDrawnAt(0.5f, 0.5f));
    mFrame.useSignedDistance = 0;
    draw(points);
    EXPECT_TRUE(isDrawnAt(0.5f, 0.5f));
    expectColor(mPictures[0][texelAt(0.5f, 0.5f)], {1, 1, 1, 1});
}

// They take most of the time that a point cloud needs to join a renderer.
TEST_F(PointCloudShaderTest, TheColorMapsAreCompiledIntoItOnce) {
    const std::string shader =
        GpuTestDevice::compile("#include \"shaders/pointcloud.hlsl\"", "vs_main", "vs_5_0");
    constexpr float coefficientOfInferno = 77.162935699427f;
    std::string constant(sizeof(float), '\0');
    std::memcpy(constant.data(), &coefficientOfInferno, sizeof(float));
    const std::size_t first = shader.find(constant);
    EXPECT_NE(first, std::string::npos);
    EXPECT_EQ(shader.find(constant, first + 1), std::string::npos);
}

TEST_F(PointCloudShaderTest, ColorFollowsTheRenderMode) {
    const float grey = (255.0f + 153.0f + 51.0f) / 3 / 255;
    const Float4 own = {1, 0.6f, 0.2f, 1};
    const Float4 uniform = {grey * 0.5f, grey, grey, 1};
    const std::pair<int, Float4> modes[] = {
        {0, own}, {3, own}, {5, {0.2f, 0.2f, 0.2f, 1}}, {6, uniform}, {7, {0.25f, 0.25f, 0.25f, 1}}};
    const auto drawn = [&] {
        draw({pointAt(0.5f, 0.5f)});
        return mPictures[0][texelAt(0.5f, 0.5f)];
    };
    for (const auto& [mode, expected] : modes) {
        SCOPED_TRACE("mode " + std::to_string(mode));
        mFrame.pointRenderMode = mode;
        expectColor(drawn(), expected);
    }
    mFrame.selected = 1;
    mFrame.pointRenderMode = 3;
    expectColor(drawn(), own);
    mFrame.pointRenderMode = 0;
    expectColor(drawn(), uniform);
}

TEST_F(PointCloudShaderTest, TomographicDiscsFadeTowardsTheirEdge) {
    const auto drawn = [&](float x) {
        draw({pointAt(0.5f, 0.5f)});
        return mPictures[0][texelAt(x, 0.5f)];
    };
    // The pixel nearest the centre is half a pixel away from it in both directions, on a disc of radius 8
    // pixels.
    const float x = 1 - std::sqrt(0.5f) / 8;
    const float alpha = 0.75f * x * x * (3 - 2 * x);
    mFrame.pointRenderMode = 2;
    expectColor(drawn(0.5f), {0.25f, 0.5f, 1, alpha});
    EXPECT_LT(drawn(0.7f)[3], 0.2f);
    mFrame.pointRenderMode = 1;
    expectColor(drawn(0.5f), {0.75f, 0.5f, 0, alpha});
    mFrame.useCloudColorsInTomographicRenderModes = 1;
    expectColor(drawn(0.5f), {0.5f, 0, 0, alpha});
}

TEST_F(PointCloudShaderTest, PositionsAreWrittenForPicking) {
    mFrame.model(0, 3) = 10;
    mFrame.invViewProj = 2 * Eigen::Matrix4f::Identity();
    draw({pointAt(0.5f, 0.5f)});
    const size_t texel = texelAt(0.5f, 0.5f) + 4;
    expectColor(mPictures[2][texel], {10.5f, 0.5f, 0.5f, 1});
    // Four and a half pixels to the right of the point and half a pixel below it.
    expectColor(mPictures[1][texel], {10.5f + 2 * 4.5f * 2 / size, 0.5f - 2 * 0.5f * 2 / size, 0.5f, 1});
}
