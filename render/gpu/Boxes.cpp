#include <render/gpu/Boxes.h>
#include <render/gpu/ComException.h>
#include <render/gpu/VertexLayouts.h>

#include <cstring>
#include <limits>
#include <type_traits>

namespace Render {

static_assert(!std::is_copy_constructible_v<Boxes> && !std::is_copy_assignable_v<Boxes> &&
              std::is_nothrow_move_constructible_v<Boxes> && std::is_nothrow_move_assignable_v<Boxes>);

namespace {

constexpr const char* shaderName = "shaders/box.hlsl";
constexpr UINT verticesPerBox = 24;

}  // namespace

Boxes::Boxes(const ATL::CComPtr<ID3D11Device>& device, std::vector<BoxWithColor> boxes)
    : mVertexShader(VertexShader::fromHlslResource(device, shaderName, VertexLayouts::box())),
      mPixelShader(PixelShader::fromHlslResource(device, shaderName)),
      mModelViewProjection(device, Math::StoredMatrix4f::Identity()),
      mInstanceCapacity(boxes.size()),
      mBoxCount(boxes.size()) {
    createInstances(device, D3D11_USAGE_IMMUTABLE, 0, boxes.data());
}

Boxes::Boxes(const ATL::CComPtr<ID3D11Device>& device, size_t capacity)
    : mVertexShader(VertexShader::fromHlslResource(device, shaderName, VertexLayouts::box())),
      mPixelShader(PixelShader::fromHlslResource(device, shaderName)),
      mModelViewProjection(device, Math::StoredMatrix4f::Identity()),
      mInstanceCapacity(capacity) {
    createInstances(device, D3D11_USAGE_DYNAMIC, D3D11_CPU_ACCESS_WRITE, nullptr);
}

Boxes::Boxes(const ATL::CComPtr<ID3D11Device>& device, const Math::NBoundingBox<float, 3>& box,
             const Math::Color& color)
    : Boxes(device, std::vector<BoxWithColor>{BoxWithColor{box.min, box.max, color}}) {}

void Boxes::createInstances(ID3D11Device* device, D3D11_USAGE usage, unsigned cpuAccess,
                            const BoxWithColor* boxes) {
    if (mInstanceCapacity > (std::numeric_limits<UINT>::max)() / sizeof(BoxWithColor)) {
        throwIfFailed(E_INVALIDARG, "a buffer of more boxes than 32 bits can size");
    }
    D3D11_BUFFER_DESC desc{};
    desc.ByteWidth = static_cast<UINT>(mInstanceCapacity * sizeof(BoxWithColor));
    desc.Usage = usage;
    desc.BindFlags = D3D11_BIND_VERTEX_BUFFER;
    desc.CPUAccessFlags = cpuAccess;
    D3D11_SUBRESOURCE_DATA content{};
    content.pSysMem = boxes;
    throwIfFailed(device->CreateBuffer(&desc, boxes == nullptr ? nullptr : &content, &mInstanceBuffer),
                  "ID3D11Device::CreateBuffer of boxes");
}

void Boxes::update(ID3D11DeviceContext* context, const std::vector<BoxWithColor>& boxes) {
    D3D11_MAPPED_SUBRESOURCE mapped{};
    throwIfFailed(context->Map(mInstanceBuffer, 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped),
                  "ID3D11DeviceContext::Map of boxes");
    if (!boxes.empty()) {
        std::memcpy(mapped.pData, boxes.data(), boxes.size() * sizeof(BoxWithColor));
    }
    context->Unmap(mInstanceBuffer, 0);
    mBoxCount = boxes.size();
}

void Boxes::setModelViewProjection(const Eigen::Matrix4f& matrix) {
    mModelViewProjection.set(matrix);
}

void Boxes::draw(ID3D11DeviceContext* context) {
    mModelViewProjection.upload(context);  // Before anything is bound, because it may fail.
    mVertexShader.begin(context);
    mPixelShader.begin(context);
    context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_LINELIST);
    mModelViewProjection.begin(context, ShaderConfiguration::Vertex, 0);
    ID3D11Buffer* const instances = mInstanceBuffer;
    constexpr UINT stride = sizeof(BoxWithColor);
    constexpr UINT offset = 0;
    context->IASetVertexBuffers(0, 1, &instances, &stride, &offset);
    // Some drivers draw one instance when asked for none.
    if (mBoxCount != 0) {
        context->DrawInstanced(verticesPerBox, static_cast<UINT>(mBoxCount), 0, 0);
    }
    mVertexShader.end(context);
    mPixelShader.end(context);
    context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_UNDEFINED);
    mModelViewProjection.end(context);
    context->IASetVertexBuffers(0, 0, nullptr, nullptr, nullptr);
}

}  // namespace Render
