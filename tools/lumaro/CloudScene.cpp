#include <tools/lumaro/CloudScene.h>

#include <algorithm>
#include <utility>

namespace Tool {

CloudScene::CloudScene(std::vector<Cloud> clouds) : Renderable("clouds"), mClouds(std::move(clouds)) {
    for (const Cloud& cloud : mClouds) {
        const Math::Point<double, 3> shift =
            cloud->referencePosition() - mClouds.front()->referencePosition();
        Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
        matrix.topRightCorner<3, 1>() = shift.cast<float>().vector();
        cloud->setMatrix(matrix);
    }
}

void CloudScene::init(size_t rendererId, std::shared_ptr<Render::Camera> camera,
                      ATL::CComPtr<ID3D11Device> device, ATL::CComPtr<ID3D11DeviceContext> deviceContext) {
    for (const Cloud& cloud : mClouds) {
        cloud->init(rendererId, camera, device, deviceContext);
    }
}

void CloudScene::deinit() {
    for (const Cloud& cloud : mClouds) {
        cloud->deinit();
    }
}

void CloudScene::onUpdateProjectionMatrix(const std::shared_ptr<Render::Camera>& camera) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateProjectionMatrix(camera);
    }
}

void CloudScene::onUpdateViewMatrix(const std::shared_ptr<Render::Camera>& camera) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateViewMatrix(camera);
    }
}

void CloudScene::onUpdateZRange(const std::shared_ptr<Render::Camera>& camera) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateZRange(camera);
    }
}

void CloudScene::onUpdateViewport(const std::shared_ptr<Render::Camera>& camera) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateViewport(camera);
    }
}

void CloudScene::onUpdateRenderMode(Render::RenderMode renderMode) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateRenderMode(renderMode);
    }
}

void CloudScene::onUpdateMeshForDistanceColorization(const std::shared_ptr<Math::TriangleMesh<float>>& mesh) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateMeshForDistanceColorization(mesh);
    }
}

void CloudScene::onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdatePlaneForDistanceColorization(plane);
    }
}

void CloudScene::onUpdateColorMap(Render::ColorMap colorMap) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateColorMap(colorMap);
    }
}

void CloudScene::onUpdateColorMapRange(float minDistance, float maxDistance) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateColorMapRange(minDistance, maxDistance);
    }
}

void CloudScene::onUpdatePassFailDistanceRange(float minDistance, float maxDistance) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdatePassFailDistanceRange(minDistance, maxDistance);
    }
}

void CloudScene::onUpdateWarnDistanceRange(float minDistance, float maxDistance) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateWarnDistanceRange(minDistance, maxDistance);
    }
}

void CloudScene::onUpdateUseSignedDistance(bool useSignedDistance) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateUseSignedDistance(useSignedDistance);
    }
}

void CloudScene::onUpdateTomographicColor(const Math::Color& color) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateTomographicColor(color);
    }
}

void CloudScene::onUpdateUseCloudColorsInTomographicRenderModes(bool useCloudColors) {
    for (const Cloud& cloud : mClouds) {
        cloud->onUpdateUseCloudColorsInTomographicRenderModes(useCloudColors);
    }
}

void CloudScene::render() {
    setNeedsRedraw(false);
    for (const Cloud& cloud : mClouds) {
        cloud->render();
    }
}

std::optional<Math::Color> CloudScene::backgroundColor() {
    return mClouds.front()->backgroundColor();
}

bool CloudScene::isTransparent() const {
    return mClouds.front()->isTransparent();
}

void CloudScene::brightnessAndContrast(float lower, float upper, float& brightness, float& contrast) {
    float darkest = 1.0f;
    float brightest = 0.0f;
    for (const Cloud& cloud : mClouds) {
        if (cloud->numVisiblePoints() > 0) {
            cloud->brightnessAndContrast(lower, upper, brightness, contrast);
            darkest = std::min(darkest, 0.5f - brightness - 0.5f / contrast);
            brightest = std::max(brightest, 0.5f - brightness + 0.5f / contrast);
        }
    }
    const bool any = darkest < brightest;
    brightness = any ? 0.5f - (darkest + brightest) / 2.0f : 0.0f;
    contrast = any ? 1.0f / (brightest - darkest) : 1.0f;
}

Math::NBoundingBox<float, 3> CloudScene::boundingBox() {
    Math::NBoundingBox<float, 3> box;
    for (const Cloud& cloud : mClouds) {
        box.extend(cloud->boundingBoxParent());
    }
    return box;
}

bool CloudScene::needsRedraw() const {
    return Renderable::needsRedraw() || std::any_of(mClouds.begin(), mClouds.end(),
                                                    [](const Cloud& cloud) { return cloud->needsRedraw(); });
}

}  // namespace Tool
