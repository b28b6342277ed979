#pragma once

#include <render/core/Renderable.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <memory>
#include <vector>

namespace Tool {

/// Several point clouds in one picture, in the coordinates of the first: each is moved by the difference of
/// the reference positions. Belongs to the rendering thread.
class CloudScene : public Render::Renderable {
public:
    using Cloud = std::shared_ptr<Render::PointCloudRenderable>;

    explicit CloudScene(std::vector<Cloud> clouds);

    void init(size_t rendererId, std::shared_ptr<Render::Camera> camera, ATL::CComPtr<ID3D11Device> device,
              ATL::CComPtr<ID3D11DeviceContext> deviceContext) override;
    void deinit() override;
    void onUpdateProjectionMatrix(const std::shared_ptr<Render::Camera>& camera) override;
    void onUpdateViewMatrix(const std::shared_ptr<Render::Camera>& camera) override;
    void onUpdateZRange(const std::shared_ptr<Render::Camera>& camera) override;
    void onUpdateViewport(const std::shared_ptr<Render::Camera>& camera) override;
    void onUpdateRenderMode(Render::RenderMode renderMode) override;
    void onUpdateMeshForDistanceColorization(const std::shared_ptr<Math::TriangleMesh<float>>& mesh) override;
    void onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) override;
    void onUpdateColorMap(Render::ColorMap colorMap) override;
    void onUpdateColorMapRange(float minDistance, float maxDistance) override;
    void onUpdatePassFailDistanceRange(float minDistance, float maxDistance) override;
    void onUpdateWarnDistanceRange(float minDistance, float maxDistance) override;
    void onUpdateUseSignedDistance(bool useSignedDistance) override;
    void onUpdateTomographicColor(const Math::Color& color) override;
    void onUpdateUseCloudColorsInTomographicRenderModes(bool useCloudColors) override;
    void render() override;
    std::optional<Math::Color> backgroundColor() override;
    bool isTransparent() const override;
    /// Stretches what lies between the darkest and the brightest that any of the clouds would.
    void brightnessAndContrast(float lower, float upper, float& brightness, float& contrast) override;
    Math::NBoundingBox<float, 3> boundingBox() override;
    bool needsRedraw() const override;

private:
    std::vector<Cloud> mClouds;
};

}  // namespace Tool
