#pragma once

#include <render/core/Renderable.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// Writes down what a renderer tells it, one line an operation, and answers what the test sets.
class RecordingRenderable : public Render::Renderable {
public:
    explicit RecordingRenderable(std::string name = "scene") : Renderable(std::move(name)) {}

    std::vector<std::string> takeEvents() { return std::exchange(events, {}); }

    void init(size_t rendererId, std::shared_ptr<Render::Camera> camera, ATL::CComPtr<ID3D11Device> device,
              ATL::CComPtr<ID3D11DeviceContext> deviceContext) override {
        record("init", rendererId, camera != nullptr, device != nullptr, deviceContext != nullptr);
    }
    void deinit() override { record("deinit"); }
    void onUpdateProjectionMatrix(const std::shared_ptr<Render::Camera>& camera) override {
        record("projection", camera->projectionMatrix()(1, 1));
    }
    void onUpdateViewMatrix(const std::shared_ptr<Render::Camera>& camera) override {
        record("view", camera->viewMatrix()(2, 3));
    }
    void onUpdateZRange(const std::shared_ptr<Render::Camera>& camera) override {
        const auto rounded = [](float value) { return std::round(100.0f * value) / 100.0f; };
        record("zRange", rounded(camera->zNear()), rounded(camera->zFar()));
    }
    void onUpdateViewport(const std::shared_ptr<Render::Camera>& camera) override {
        record("viewport", camera->viewport().width(), camera->viewport().height());
    }
    void onUpdateRenderMode(Render::RenderMode mode) override {
        record("renderMode", static_cast<int>(mode));
    }
    void onUpdateMeshForDistanceColorization(
        const std::shared_ptr<Math::TriangleMesh<float>>& mesh) override {
        record("mesh", mesh != nullptr);
    }
    void onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) override {
        const Eigen::Vector3f normal = plane.normal.vector();
        record("plane", normal.x(), normal.y(), normal.z(), plane.offset);
    }
    void onUpdateColorMap(Render::ColorMap map) override { record("colorMap", static_cast<int>(map)); }
    void onUpdateUseSignedDistance(bool flag) override { record("signed", flag); }
    void onUpdateColorMapRange(float low, float high) override { record("range", low, high); }
    void onUpdatePassFailDistanceRange(float low, float high) override { record("passFail", low, high); }
    void onUpdateWarnDistanceRange(float low, float high) override { record("warn", low, high); }
    void onUpdateTomographicColor(const Math::Color& color) override {
        record("tomographic", color.packed());
    }
    void onUpdateUseCloudColorsInTomographicRenderModes(bool flag) override { record("cloudColors", flag); }
    void render() override {
        record("render");
        Renderable::render();
        if (draw) {
            draw();
        }
    }
    std::optional<Math::Color> backgroundColor() override { return background; }
    bool isTransparent() const override { return transparent; }
    void brightnessAndContrast(float lower, float upper, float& brightness, float& contrast) override {
        record("propose", lower, upper, brightness, contrast);
        brightness = 0.25f;
        contrast = 3.0f;
    }
    Math::NBoundingBox<float, 3> boundingBox() override { return box; }
    void addZRangeNeeds(const Render::Camera&, Render::ZRangeNeeds& asked) override {
        asked.nearest = std::min(asked.nearest, needs.nearest);
        asked.farthest = std::max(asked.farthest, needs.farthest);
        asked.room = std::max(asked.room, needs.room);
    }
    void setMatrix(const Eigen::Matrix4f& matrix) override {
        record("matrix", matrix(0, 3));
        Renderable::setMatrix(matrix);
    }

    std::vector<std::string> events;
    std::function<void()> draw;
    std::optional<Math::Color> background;
    bool transparent = false;
    Math::NBoundingBox<float, 3> box;
    Render::ZRangeNeeds needs;

private:
    template <class... Values>
    void record(const char* what, const Values&... values) {
        std::ostringstream line;
        line << what;
        ((line << ' ' << values), ...);
        events.push_back(line.str());
    }
};
