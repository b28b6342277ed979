#pragma once

#include <core/Export.h>
#include <math/ConvexPolytope.h>
#include <math/NBoundingBox.h>
#include <math/StoredMatrix.h>
#include <render/core/Camera.h>
#include <render/core/Renderable.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/VertexShader.h>
#include <render/renderables/MeshLoader.h>

#include <d3d11.h>

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Render {

/// A triangle mesh in the colours of its vertices, lit from the eye on both sides and clipped by up to eight
/// planes. Render and colour modes do not concern it.
///
/// Everything runs on the render thread. init() reads the whole mesh there, every time: also when the mesh
/// comes back to a renderer or the scene is set again. A loader that keeps its parts makes that cheap. What
/// the loader throws passes through, and then the mesh is empty. Leaving a renderer frees nothing: the mesh
/// keeps its GPU memory, and with it the device, until it is initialised anew or destroyed. Failing Direct3D
/// calls throw ComException; after one in render() the next frame draws.
class LUMARO_API MeshRenderable : public Renderable, public std::enable_shared_from_this<MeshRenderable> {
    struct Private {
        explicit Private() = default;
    };

public:
    static constexpr int CLIPPING_PLANES_MAX_COUNT = 8;

    /// A Wavefront OBJ file, read as MeshLoader::fromObjFile() says. Its coordinates times unitScale are
    /// model coordinates.
    static std::shared_ptr<MeshRenderable> create(const std::filesystem::path& path, double unitScale,
                                                  const std::string& name);
    /// What a loader, which must not be null, delivers.
    static std::shared_ptr<MeshRenderable> create(std::shared_ptr<MeshLoader> loader, double unitScale,
                                                  const std::string& name);
    MeshRenderable(Private, const std::filesystem::path& path, double unitScale, std::string name);
    MeshRenderable(Private, std::shared_ptr<MeshLoader> loader, double unitScale, std::string name);

    void init(std::size_t rendererId, std::shared_ptr<Camera> camera, ATL::CComPtr<ID3D11Device> device,
              ATL::CComPtr<ID3D11DeviceContext> deviceContext) override;
    void deinit() override;
    void render() override;

    void onUpdateProjectionMatrix(const std::shared_ptr<Camera>& camera) override;
    void onUpdateViewMatrix(const std::shared_ptr<Camera>& camera) override;
    void onUpdateZRange(const std::shared_ptr<Camera>& camera) override;
    void onUpdateViewport(const std::shared_ptr<Camera>& camera) override;
    void onUpdateRenderMode(RenderMode renderMode) override;
    void setMatrix(const Eigen::Matrix4f& matrix) override;
    void invalidateWorldMatrix() override;

    /// Of all vertices, in model coordinates; empty before init().
    Math::NBoundingBox<float, 3> boundingBox() override;
    /// 0 before init().
    std::size_t numTriangles() const { return static_cast<std::size_t>(mNumTriangles); }
    double unitScale() const { return mUnitScale; }

    /// Shows only what lies inside, in world coordinates. More than eight planes throw std::runtime_error and
    /// change nothing.
    void setClippingVolume(const Math::ConvexPolytope<float, 3>& volume);

private:
    /// As the shader's buffer.
    struct FrameConstants {
        Math::StoredMatrix4f modelMatrix = Math::StoredMatrix4f::Identity();
        Math::StoredMatrix4f viewProjectionMatrix = Math::StoredMatrix4f::Identity();
        float clippingPlanes[CLIPPING_PLANES_MAX_COUNT][4] = {};
        float unitScale = 1.0f;
        Math::Point<float, 3> cameraPosition;
        Math::Point<float, 3> lightPos{0.0f, 0.0f, 20.0f};
        float padding = 0.0f;
    };

    struct Part {
        std::uint64_t vertexCount;
        ATL::CComPtr<ID3D11Buffer> vertices;
    };

    void addMeshPart(const std::vector<VertexPosNormalTexCoordColor>& vertices);
    void removeMeshParts();
    void writeClippingPlanes(FrameConstants& constants) const;

    ConstantBuffer<FrameConstants> mConstants;
    std::vector<Part> mParts;  ///< Those with vertices.
    ATL::CComPtr<ID3D11Device> mDevice;
    ATL::CComPtr<ID3D11DeviceContext> mDeviceContext;  ///< Null until there is all that render() needs.
    VertexShader mVertexShader;
    PixelShader mPixelShader;
    std::shared_ptr<Camera> mCamera;
    Math::NBoundingBox<float, 3> mBoundingBox;  ///< In the loader's units.
    double mUnitScale;
    std::shared_ptr<MeshLoader> mLoader;
    std::uint64_t mNumTriangles = 0;
    Math::ConvexPolytope<float, 3> mClippingVolume;
};

}  // namespace Render
