#include <render/gpu/ComException.h>
#include <render/gpu/ComputeShader.h>
#include <render/gpu/GeometryShader.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderInclude.h>
#include <render/gpu/ShaderLibrary.h>
#include <render/gpu/VertexLayouts.h>
#include <render/gpu/VertexShader.h>

#include <gtest/gtest.h>
#include <tests/support/GpuTestDevice.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

using Render::PixelShader;
using Render::VertexShader;
using TestSupport::GpuTestDevice;

namespace {

class ShaderTest : public testing::Test {
protected:
    GpuTestDevice& mGpu = GpuTestDevice::fresh();
    const ATL::CComPtr<ID3D11Device>& mDevice = mGpu.device();
    ID3D11DeviceContext* mContext = mGpu.context();
};

/// The compiler's complaint behind the library's fixed first line.
std::string complaint(const std::string& source) {
    const std::string prefix = "Error: Compilation of hlsl shader failed\n";
    try {
        GpuTestDevice::compile(source, "ps_main", "ps_5_0");
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        EXPECT_EQ(text.substr(0, prefix.size()), prefix);
        return text.substr(prefix.size());
    }
    return {};
}

constexpr const char* plainPixelShader = "float4 ps_main() : SV_TARGET { return 1; }";

}  // namespace

TEST_F(ShaderTest, EveryEmbeddedShaderCompilesAndFitsItsLayout) {
    VertexShader::fromHlslResource(mDevice, "shaders/box.hlsl", Render::VertexLayouts::box());
    VertexShader::fromHlslResource(mDevice, "shaders/pointcloud.hlsl", Render::VertexLayouts::pointCloud());
    VertexShader::fromHlslResource(mDevice, "shaders/postprocessing.hlsl", {});
    for (const char* name : {"shaders/box.hlsl", "shaders/pointcloud.hlsl", "shaders/postprocessing.hlsl"}) {
        PixelShader::fromHlslResource(mDevice, name);
    }
}

TEST_F(ShaderTest, NamesAreFoundWhateverTheirSlashes) {
    PixelShader::fromHlslResource(mDevice, "//shaders///box.hlsl/");
    for (const char* name : {"shaders/Box.hlsl", "box.hlsl", "shaders\\box.hlsl", "shaders", "/", ""}) {
        try {
            PixelShader::fromHlslResource(mDevice, name);
            ADD_FAILURE() << name << " was found";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::make_error_code(std::errc::no_such_file_or_directory));
            EXPECT_EQ(std::string(error.what()).rfind(name, 0), 0u) << error.what();
        }
    }
    EXPECT_THROW(PixelShader::fromCsoResource(mDevice, "box.hlsl"), std::system_error);
    EXPECT_THROW(PixelShader::fromCsoResource(mDevice, "shaders/box.hlsl"), Render::ComException);
}

TEST_F(ShaderTest, IncludeHandlerServesTheEmbeddedSources) {
    Render::ShaderInclude include;
    const void* data = nullptr;
    unsigned size = 0;
    ASSERT_EQ(include.Open(D3D_INCLUDE_LOCAL, "shaders/pointcloud.hlsl", nullptr, &data, &size), S_OK);
    EXPECT_EQ(std::string_view(static_cast<const char*>(data), size),
              Render::ShaderLibrary::content("shaders/pointcloud.hlsl"));
    EXPECT_EQ(std::string(static_cast<const char*>(data), size)
                  .rfind("#include \"shaders/colorprocessing.hlsl\"", 0),
              0u);
    include.Close(data);
    EXPECT_EQ(include.Open(D3D_INCLUDE_LOCAL, "shaders/nothing.hlsl", nullptr, &data, &size), E_FAIL);
    EXPECT_THROW(include.Open(D3D_INCLUDE_LOCAL, "/shaders/", nullptr, &data, &size), std::system_error);
}

TEST_F(ShaderTest, CompilerMessagesReachTheCaller) {
    EXPECT_EQ(complaint(plainPixelShader), "");
    EXPECT_NE(complaint("float4 ps_main() : SV_TARGET { return colour; }").find("colour"), std::string::npos);
    EXPECT_NE(
        complaint(std::string("#include \"shaders/nothing.hlsl\"\n") + plainPixelShader).find("nothing.hlsl"),
        std::string::npos);
    // An implicit truncation is but a warning.
    EXPECT_NE(
        complaint("float4 ps_main(float4 p : SV_POSITION) : SV_TARGET { float2 q = p; return q.xyxy; }"), "");
}

TEST_F(ShaderTest, GeometryShaderCannotBeMadeFromAResource) {
    EXPECT_THROW(Render::GeometryShader::fromHlslResource(mDevice, "shaders/box.hlsl"), Render::ComException);
    EXPECT_THROW(Render::GeometryShader::fromHlslResource(mDevice, "shaders/colorprocessing.hlsl"),
                 std::runtime_error);
}

TEST_F(ShaderTest, FilesAreCompiledWithTheIncludesBesideThem) {
    const auto folder = std::filesystem::temp_directory_path() / "lumaro_shader_test";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "value.hlsl") << "static const float value = 1;\n";
    std::ofstream(folder / "all.hlsl") << R"(#include "value.hlsl"
struct Corner { float4 pos : SV_POSITION; };
float4 vs_main(uint id : SV_VertexID) : SV_POSITION { return value * id; }
float4 ps_main() : SV_TARGET { return value; }
[maxvertexcount(1)] void gs_main(point Corner c[1], inout PointStream<Corner> s) { s.Append(c[0]); }
RWBuffer<float> result : register(u0);
[numthreads(1, 1, 1)] void cs_main() { result[0] = value; }
)";
    const auto file = folder / "all.hlsl";
    const VertexShader vertex = VertexShader::fromHlslFile(mDevice, file, {});
    const PixelShader pixel = PixelShader::fromHlslFile(mDevice, file);
    const auto geometry = Render::GeometryShader::fromHlslFile(mDevice, file);
    const auto compute = Render::ComputeShader::fromHlslFile(mDevice, file);
    EXPECT_ANY_THROW(PixelShader::fromHlslFile(mDevice, folder / "absent.hlsl"));

    geometry.begin(mContext);
    compute.begin(mContext);
    ATL::CComPtr<ID3D11GeometryShader> boundGeometry;
    ATL::CComPtr<ID3D11ComputeShader> boundCompute;
    mContext->GSGetShader(&boundGeometry, nullptr, nullptr);
    mContext->CSGetShader(&boundCompute, nullptr, nullptr);
    EXPECT_TRUE(boundGeometry && boundCompute);
    boundGeometry.Release();
    boundCompute.Release();
    geometry.end(mContext);
    compute.end(mContext);
    mContext->GSGetShader(&boundGeometry, nullptr, nullptr);
    mContext->CSGetShader(&boundCompute, nullptr, nullptr);
    EXPECT_TRUE(!boundGeometry && !boundCompute);

    const std::string bytecode = GpuTestDevice::compile(plainPixelShader, "ps_main", "ps_5_0");
    std::ofstream(folder / "plain.cso", std::ios::binary) << bytecode;
    PixelShader::fromCsoFile(mDevice, folder / "plain.cso");
    EXPECT_THROW(PixelShader::fromCsoString(mDevice, "no byte code"), Render::ComException);
    std::filesystem::remove_all(folder);
}

TEST_F(ShaderTest, VertexShaderWithoutLayoutKeepsTheOneThatIsSet) {
    const auto withLayout =
        VertexShader::fromHlslResource(mDevice, "shaders/box.hlsl", Render::VertexLayouts::box());
    const auto withoutLayout = VertexShader::fromHlslResource(mDevice, "shaders/postprocessing.hlsl", {});
    const auto layout = [&] {
        ATL::CComPtr<ID3D11InputLayout> bound;
        mContext->IAGetInputLayout(&bound);
        return bound.p;
    };
    withLayout.begin(mContext);
    ID3D11InputLayout* const set = layout();
    EXPECT_NE(set, nullptr);
    withoutLayout.begin(mContext);
    EXPECT_EQ(layout(), set);
    withoutLayout.end(mContext);
    EXPECT_EQ(layout(), nullptr);
    ATL::CComPtr<ID3D11VertexShader> shader;
    mContext->VSGetShader(&shader, nullptr, nullptr);
    EXPECT_EQ(shader.p, nullptr);
}

TEST_F(ShaderTest, AnEmbeddedSourceIsCompiledOnceForAllThreadsAndDevices) {
    PixelShader::fromHlslResource(mDevice, "shaders/mesh.hlsl");
    const size_t before = Render::ShaderCompiler::resourceCompilations();
    const auto other = GpuTestDevice();
    std::vector<std::string> codes(4);
    {
        std::vector<std::jthread> threads;
        for (std::string& code : codes) {
            threads.emplace_back([&code] {
                code = Render::ShaderCompiler::compileResource("shaders/mesh.hlsl", "vs_main", "vs_5_0");
            });
        }
    }
    PixelShader::fromHlslResource(other.device(), "/shaders//mesh.hlsl");
    EXPECT_LE(Render::ShaderCompiler::resourceCompilations(), before + 1);
    EXPECT_FALSE(codes.front().empty());
    EXPECT_EQ(std::count(codes.begin(), codes.end(), codes.front()), 4);
    for (size_t i = 1; i <= 2; ++i) {
        EXPECT_THROW(Render::ShaderCompiler::compileResource("shaders/mesh.hlsl", "gs_main", "gs_5_0"),
                     std::runtime_error)
            << "a failure is told each time";
    }
}
