#include <render/gpu/ComException.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/VertexContainer.h>
#include <render/gpu/VertexLayouts.h>
#include <render/gpu/VertexShader.h>

#include <gtest/gtest.h>
#include <tests/support/GpuTestDevice.h>

#include <string>

using TestSupport::Float4;
using TestSupport::GpuTestDevice;

namespace {

/// Draws each record as one point into a texel of its own and writes its fields into three targets.
class VertexInputTest : public testing::Test {
protected:
    void draw(const std::string& source, const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout,
              const void* records, unsigned stride, bool perInstance) {
        D3D11_BUFFER_DESC desc{};
        desc.ByteWidth = 2 * stride;
        desc.Usage = D3D11_USAGE_IMMUTABLE;
        desc.BindFlags = D3D11_BIND_VERTEX_BUFFER;
        D3D11_SUBRESOURCE_DATA content{};
        content.pSysMem = records;
        ATL::CComPtr<ID3D11Buffer> buffer;
        Render::throwIfFailed(mGpu.device()->CreateBuffer(&desc, &content, &buffer), "CreateBuffer");
        const auto vertex = Render::VertexShader::fromCsoString(
            mGpu.device(), GpuTestDevice::compile(source, "vs_main", "vs_5_0"), layout);
        const auto pixel = Render::PixelShader::fromCsoString(
            mGpu.device(), GpuTestDevice::compile(source, "ps_main", "ps_5_0"));
        mTargets.bindAndClear();
        ID3D11DeviceContext* const context = mGpu.context();
        ID3D11Buffer* const raw = buffer;
        constexpr UINT offset = 0;
        context->IASetVertexBuffers(0, 1, &raw, &stride, &offset);
        context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_POINTLIST);
        vertex.begin(context);
        pixel.begin(context);
        context->DrawInstanced(perInstance ? 1 : 2, perInstance ? 2 : 1, 0, 0);
    }

    GpuTestDevice& mGpu = GpuTestDevice::fresh();
    TestSupport::FloatTargets mTargets{mGpu, 2, 1, 3};
};

constexpr const char* pixelStage = R"(
struct Fields { float4 place : SV_POSITION; float4 a : A; float4 b : B; float4 c : C; };
struct Targets { float4 a : SV_TARGET0; float4 b : SV_TARGET1; float4 c : SV_TARGET2; };
Targets ps_main(Fields f) { Targets t; t.a = f.a; t.b = f.b; t.c = f.c; return t; }
float4 placeOf(uint i) { return float4(i == 0 ? -0.5 : 0.5, 0, 0, 1); }
)";

}  // namespace

TEST_F(VertexInputTest, PointFieldsArriveInTheirPlaces) {
    Render::VertexContainer vertices;
    vertices.resize(2);
    vertices.setPosition(0, 1.5, -2.5, 3.5);
    vertices.setColor(0, 255, 51, 0, 102);
    vertices.setIntensity(0, 0x3300);
    vertices.setClassIndex(0, 200);
    vertices.setScanIndex(0, 65000);
    vertices.setDistance(0, -0.125f);
    vertices.setPosition(1, 4, 5, 6);
    vertices.setScanIndex(1, 258);
    draw(std::string(pixelStage) + R"(
struct Point { float4 pos : POS; float4 col : COL; float intensity : INTENSITY; uint classIndex : CLASSINDEX;
               uint scanIndex : SCANINDEX; float distance : DISTANCE; uint i : SV_InstanceID; };
Fields vs_main(Point p)
{
    Fields f;
    f.place = placeOf(p.i);
    f.a = p.pos;
    f.b = p.col;
    f.c = float4(p.intensity, p.classIndex, p.scanIndex, p.distance);
    return f;
}
)",
         Render::VertexLayouts::pointCloud(), vertices.data(), sizeof(Render::VertexContainer::Vertex), true);
    const std::vector<Float4> positions = mTargets.read(0);
    const std::vector<Float4> others = mTargets.read(2);
    EXPECT_EQ(positions[0], (Float4{1.5f, -2.5f, 3.5f, 1.0f}));
    EXPECT_EQ(positions[1], (Float4{4, 5, 6, 1}));
    const Float4 color = mTargets.read(1)[0];
    EXPECT_NEAR(color[0], 1.0f, 1e-6f);
    EXPECT_NEAR(color[1], 0.2f, 1e-6f);
    EXPECT_NEAR(color[2], 0.0f, 1e-6f);
    EXPECT_NEAR(color[3], 0.4f, 1e-6f);
    EXPECT_NEAR(others[0][0], 0.2f, 1e-6f);
    EXPECT_EQ(others[0][1], 200.0f);
    EXPECT_EQ(others[0][2], 65000.0f);
    EXPECT_EQ(others[0][3], -0.125f);
    EXPECT_EQ(others[1][2], 258.0f);
    EXPECT_EQ(others[1][3], std::numeric_limits<float>::max());
}

TEST_F(VertexInputTest, MeshFieldsArriveInTheirPlaces) {
    using Vertex = Render::VertexPosNormalTexCoordColor;
    const std::array<Vertex, 2> vertices = {
        Vertex(1, 2, 3, 0, 1, 0, 0.25f, 0.75f, 0xFF804000u),
        Vertex({4, 5, 6}, Eigen::Vector3f(-1, 0, 0), {0.5f, 1.5f}, Math::Color(255, 0, 0, 0))};
    draw(std::string(pixelStage) + R"(
struct Corner { float3 pos : POS; float3 nml : NML; float2 uv : UV; float4 col : COL; uint i : SV_VertexID; };
Fields vs_main(Corner p)
{
    Fields f;
    f.place = placeOf(p.i);
    f.a = float4(p.pos, p.uv.x);
    f.b = float4(p.nml, p.uv.y);
    f.c = round(p.col * 255);
    return f;
}
)",
         Render::VertexLayouts::mesh(), vertices.data(), sizeof(Vertex), false);
    EXPECT_EQ(mTargets.read(0), (std::vector<Float4>{{1, 2, 3, 0.25f}, {4, 5, 6, 0.5f}}));
    EXPECT_EQ(mTargets.read(1), (std::vector<Float4>{{0, 1, 0, 0.75f}, {-1, 0, 0, 1.5f}}));
    EXPECT_EQ(mTargets.read(2), (std::vector<Float4>{{0x80, 0x40, 0, 0xFF}, {255, 0, 0, 0}}));
}
