// own_renderable FILE.png: a renderable of one's own, here a triangle. What it writes to the three targets
// makes it take part in occlusion, picking and export like everything else.

#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/VertexShader.h>

#include <d3dcompiler.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

const char* const SHADER = R"(
cbuffer Frame : register(b0) { float4x4 viewProjection; float4x4 world; };
struct Pixel { float4 position : SV_POSITION; float4 place : PLACE; };
Pixel vs_main(uint id : SV_VertexID) {
    const float3 corners[3] = {float3(-1, -1, 0), float3(1, -1, 0), float3(0, 1, 0)};
    Pixel pixel;
    pixel.place = mul(world, float4(corners[id], 1));
    pixel.position = mul(viewProjection, pixel.place);
    return pixel;
}
struct Targets { float4 color : SV_TARGET0; float4 place : SV_TARGET1; float4 exactPlace : SV_TARGET2; };
Targets ps_main(Pixel pixel) {
    Targets targets;
    targets.color = float4(0.9, 0.5, 0.1, 1.0);
    targets.place = targets.exactPlace = pixel.place;
    return targets;
})";

std::string compiled(const char* entry, const char* profile) {
    ATL::CComPtr<ID3DBlob> code;
    ATL::CComPtr<ID3DBlob> errors;
    if (FAILED(D3DCompile(SHADER, std::strlen(SHADER), "triangle", nullptr, nullptr, entry, profile, 0, 0,
                          &code, &errors))) {
        throw std::runtime_error(errors ? static_cast<const char*>(errors->GetBufferPointer())
                                        : "no compiler");
    }
    return {static_cast<const char*>(code->GetBufferPointer()), code->GetBufferSize()};
}

class Triangle : public Render::Renderable {
public:
    Triangle() : Renderable("triangle") {}

    void init(size_t, std::shared_ptr<Render::Camera> camera, ATL::CComPtr<ID3D11Device> device,
              ATL::CComPtr<ID3D11DeviceContext> context) override {
        mContext = context;
        mVertexShader = Render::VertexShader::fromCsoString(device, compiled("vs_main", "vs_5_0"), {});
        mPixelShader = Render::PixelShader::fromCsoString(device, compiled("ps_main", "ps_5_0"));
        mFrame = Render::ConstantBuffer<Frame>(device);
        onUpdateViewMatrix(camera);
    }

    // Called by the renderer whenever the camera changes; what is sent to the GPU is sent once a change.
    void onUpdateViewMatrix(const std::shared_ptr<Render::Camera>& camera) override {
        mFrame.edit().viewProjection = camera->viewProjectionMatrix();
    }
    void onUpdateProjectionMatrix(const std::shared_ptr<Render::Camera>& camera) override {
        onUpdateViewMatrix(camera);
    }
    void onUpdateZRange(const std::shared_ptr<Render::Camera>& camera) override {
        onUpdateViewMatrix(camera);
    }

    void render() override {
        setNeedsRedraw(false);
        if (mFrame.data().world != worldMatrix()) {  // Its own matrix or a parent's has changed.
            mFrame.edit().world = worldMatrix();
        }
        mVertexShader.begin(mContext);
        mPixelShader.begin(mContext);
        mFrame.begin(mContext, Render::ShaderConfiguration::Vertex, 0);
        mContext->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
        mContext->Draw(3, 0);
        mFrame.end(mContext);
        mPixelShader.end(mContext);
        mVertexShader.end(mContext);
    }

    Math::NBoundingBox<float, 3> boundingBox() override { return {{-1, -1, 0}, {1, 1, 0}}; }

private:
    struct Frame {
        Eigen::Matrix4f viewProjection = Eigen::Matrix4f::Identity();
        Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
    };

    ATL::CComPtr<ID3D11DeviceContext> mContext;
    Render::VertexShader mVertexShader;
    Render::PixelShader mPixelShader;
    Render::ConstantBuffer<Frame> mFrame;
};

void drawTriangle(const char* file) {
    Render::Renderer renderer(true);
    renderer.setViewport(640, 480);
    renderer.setScene(std::make_shared<Triangle>());
    renderer.setAutoAdjustZRange(true);
    renderer.setPerspective(45.0f, 0.1f, 100.0f, 0.0f, 0.0f);
    renderer.setCameraPose(Math::Point<float, 3>(1.0f, -1.0f, 4.0f), Math::Point<float, 3>(),
                           Eigen::Vector3f::UnitY());
    renderer.writePngImage(file);
    Math::Point<float, 3> picked;
    if (renderer.pickPoint(320, 240, picked)) {
        std::printf("in the middle: %.3f %.3f %.3f\n", picked.x(), picked.y(), picked.z());
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: own_renderable FILE.png\n", stderr);
        return 2;
    }
    try {
        drawTriangle(argv[1]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "own_renderable: %s\n", exception.what());
        return 1;
    }
}
