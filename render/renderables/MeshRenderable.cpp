#include <render/gpu/ComException.h>
#include <render/gpu/VertexLayouts.h>
#include <render/renderables/MeshRenderable.h>

#include <limits>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

constexpr const char* shaderName = "shaders/mesh.hlsl";
constexpr UINT stride = sizeof(VertexPosNormalTexCoordColor);
static_assert(stride == 36);

}  // namespace

std::shared_ptr<MeshRenderable> MeshRenderable::create(const std::filesystem::path& path, double unitScale,
                                                       const std::string& name) {
    return std::make_shared<MeshRenderable>(Private(), path, unitScale, name);
}

std::shared_ptr<MeshRenderable> MeshRenderable::create(std::shared_ptr<MeshLoader> loader, double unitScale,
                                                       const std::string& name) {
    return std::make_shared<MeshRenderable>(Private(), std::move(loader), unitScale, name);
}

MeshRenderable::MeshRenderable(Private, const std::filesystem::path& path, double unitScale, std::string name)
    : MeshRenderable(Private(), MeshLoader::fromObjFile(path), unitScale, std::move(name)) {}

MeshRenderable::MeshRenderable(Private, std::shared_ptr<MeshLoader> loader, double unitScale,
                               std::string name)
    : Renderable(std::move(name)), mUnitScale(unitScale), mLoader(std::move(loader)) {
    static_assert(offsetof(FrameConstants, clippingPlanes) == 128 &&
                  offsetof(FrameConstants, unitScale) == 256 &&
                  offsetof(FrameConstants, cameraPosition) == 260 &&
                  offsetof(FrameConstants, lightPos) == 272 && sizeof(FrameConstants) == 288);
}

void MeshRenderable::init(std::size_t, std::shared_ptr<Camera> camera, ATL::CComPtr<ID3D11Device> device,
                          ATL::CComPtr<ID3D11DeviceContext> deviceContext) {
    removeMeshParts();
    mDeviceContext.Release();
    mDevice = std::move(device);
    mCamera = std::move(camera);
    mVertexShader = VertexShader::fromHlslResource(mDevice, shaderName, VertexLayouts::mesh());
    mPixelShader = PixelShader::fromHlslResource(mDevice, shaderName);

    FrameConstants constants;
    writeClippingPlanes(constants);
    constants.unitScale = static_cast<float>(mUnitScale);
    constants.modelMatrix = worldMatrix();
    constants.viewProjectionMatrix = mCamera->viewProjectionMatrix();
    constants.cameraPosition = mCamera->eye();
    mConstants = ConstantBuffer<FrameConstants>(mDevice, constants);
    mDeviceContext = std::move(deviceContext);

    try {
        mLoader->load([this](const std::vector<VertexPosNormalTexCoordColor>& part) { addMeshPart(part); });
    } catch (...) {
        removeMeshParts();
        throw;
    }
}

void MeshRenderable::deinit() {}

void MeshRenderable::removeMeshParts() {
    mParts.clear();
    mBoundingBox = {};
    mNumTriangles = 0;
}

void MeshRenderable::addMeshPart(const std::vector<VertexPosNormalTexCoordColor>& vertices) {
    for (const VertexPosNormalTexCoordColor& vertex : vertices) {
        mBoundingBox.extend(vertex.position);
    }
    mNumTriangles += vertices.size() / 3;
    setNeedsRedraw(true);
    if (vertices.empty()) {
        return;  // There are no buffers of size zero.
    }
    constexpr const char* operation = "ID3D11Device::CreateBuffer of a mesh part";
    if (vertices.size() > std::numeric_limits<UINT>::max() / stride) {
        throwIfFailed(E_OUTOFMEMORY, operation);
    }
    D3D11_BUFFER_DESC desc{};
    desc.ByteWidth = static_cast<UINT>(vertices.size() * stride);
    desc.Usage = D3D11_USAGE_IMMUTABLE;
    desc.BindFlags = D3D11_BIND_VERTEX_BUFFER;
    D3D11_SUBRESOURCE_DATA content{};
    content.pSysMem = vertices.data();
    Part part{vertices.size(), nullptr};
    throwIfFailed(mDevice->CreateBuffer(&desc, &content, &part.vertices), operation);
    mParts.push_back(std::move(part));
}

void MeshRenderable::render() {
    if (!mDeviceContext) {
        Renderable::render();
        return;
    }
    mConstants.upload(mDeviceContext);  // May fail: before the redraw flag is cleared and anything is bound.
    Renderable::render();
    mVertexShader.begin(mDeviceContext);
    mPixelShader.begin(mDeviceContext);
    mConstants.begin(mDeviceContext, ShaderConfiguration::Vertex | ShaderConfiguration::Pixel, 0);
    mDeviceContext->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
    const auto bind = [this](ID3D11Buffer* vertices, UINT vertexStride) {
        constexpr UINT offset = 0;
        mDeviceContext->IASetVertexBuffers(0, 1, &vertices, &vertexStride, &offset);
    };
    for (const Part& part : mParts) {
        bind(part.vertices, stride);
        mDeviceContext->Draw(static_cast<UINT>(part.vertexCount), 0);
        bind(nullptr, 0);
    }
    mConstants.end(mDeviceContext);
    mVertexShader.end(mDeviceContext);
    mPixelShader.end(mDeviceContext);
}

void MeshRenderable::onUpdateProjectionMatrix(const std::shared_ptr<Camera>& camera) {
    mConstants.edit().viewProjectionMatrix = camera->viewProjectionMatrix();
}

void MeshRenderable::onUpdateViewMatrix(const std::shared_ptr<Camera>& camera) {
    FrameConstants& constants = mConstants.edit();
    constants.viewProjectionMatrix = camera->viewProjectionMatrix();
    constants.cameraPosition = camera->eye();
}

// Automatic planes tell it every frame.
void MeshRenderable::onUpdateZRange(const std::shared_ptr<Camera>& camera) {
    if (camera->viewProjectionMatrix() != mConstants.data().viewProjectionMatrix) {
        onUpdateProjectionMatrix(camera);
    }
}

void MeshRenderable::onUpdateViewport(const std::shared_ptr<Camera>&) {}

void MeshRenderable::onUpdateRenderMode(RenderMode) {}

void MeshRenderable::setMatrix(const Eigen::Matrix4f& matrix) {
    Renderable::setMatrix(matrix);
    mConstants.edit().modelMatrix = worldMatrix();
}

void MeshRenderable::invalidateWorldMatrix() {
    Renderable::invalidateWorldMatrix();
    mConstants.edit().modelMatrix = worldMatrix();
}

Math::NBoundingBox<float, 3> MeshRenderable::boundingBox() {
    const auto scale = static_cast<float>(mUnitScale);
    return {mBoundingBox.min * scale, mBoundingBox.max * scale};
}

void MeshRenderable::setClippingVolume(const Math::ConvexPolytope<float, 3>& volume) {
    if (volume.size() > CLIPPING_PLANES_MAX_COUNT) {
        throw std::runtime_error("Error: volume contains too many clipping planes, plane count = " +
                                 std::to_string(volume.size()));
    }
    if (volume == mClippingVolume) {
        return;
    }
    mClippingVolume = volume;
    writeClippingPlanes(mConstants.edit());
    setNeedsRedraw(true);
}

void MeshRenderable::writeClippingPlanes(FrameConstants& constants) const {
    for (std::size_t i = 0; i < CLIPPING_PLANES_MAX_COUNT; ++i) {
        const Math::NPlane<float, 3> plane = i < mClippingVolume.size()
                                                 ? mClippingVolume.halfSpaces()[i].plane
                                                 : Math::NPlane<float, 3>({}, 0.0f);
        for (int axis = 0; axis < 3; ++axis) {
            constants.clippingPlanes[i][axis] = plane.normal[axis];
        }
        constants.clippingPlanes[i][3] = plane.offset;
    }
}

}  // namespace Render
