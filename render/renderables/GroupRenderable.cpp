#include <render/renderables/GroupRenderable.h>

#include <algorithm>
#include <utility>

namespace Render {

std::shared_ptr<GroupRenderable> GroupRenderable::create(std::string name) {
    return std::make_shared<GroupRenderable>(Private(), name);
}

GroupRenderable::GroupRenderable(Private, const std::string& name) : Renderable(name) {}

template <class Tell>
void GroupRenderable::tellAll(Tell tell) {
    for (const std::shared_ptr<Renderable>& child : mChildren) {
        tell(*child);
    }
}

template <class Value, class Tell>
void GroupRenderable::tellChange(Value& stored, const Value& value, Tell tell) {
    if (stored == value) {
        return;
    }
    stored = value;
    tellAll(tell);
}

void GroupRenderable::add(std::shared_ptr<Renderable> child) {
    mChildren.push_back(child);
    child->setParent(shared_from_this());
    if (!isInitialized()) {
        return;
    }
    child->init(mRendererId, mCamera, mDevice, mDeviceContext);
    child->onUpdateRenderMode(mRenderMode);
    child->onUpdateMeshForDistanceColorization(mMesh);
    child->onUpdateColorMap(mColorMap);
    child->onUpdateUseSignedDistance(mUseSignedDistance);
    child->onUpdateColorMapRange(mColorMapRange.min, mColorMapRange.max);
    child->onUpdatePlaneForDistanceColorization(mPlane);
}

void GroupRenderable::add(const std::string& name, std::shared_ptr<Renderable> child) {
    child->setName(name);
    add(std::move(child));
}

std::shared_ptr<Renderable> GroupRenderable::findByName(const std::string& name) {
    const auto found = std::find_if(mChildren.begin(), mChildren.end(),
                                    [&](const auto& child) { return child->name() == name; });
    return found == mChildren.end() ? nullptr : *found;
}

void GroupRenderable::release(Renderable& child) {
    if (isInitialized()) {
        child.deinit();
    }
    if (child.parent().get() == this) {
        child.setParent({});
    }
}

void GroupRenderable::removeByName(const std::string& name) {
    const auto stays = [&](const std::shared_ptr<Renderable>& child) { return child->name() != name; };
    auto first = mChildren.begin();
    auto last = mChildren.end();
    for (;;) {
        first = std::find_if_not(first, last, stays);
        while (first != last && !stays(*std::prev(last))) {
            --last;
        }
        if (first == last) {
            break;
        }
        std::iter_swap(first, --last);
    }
    std::for_each(first, mChildren.end(), [this](const auto& child) { release(*child); });
    mChildren.erase(first, mChildren.end());
    setNeedsRedraw(true);
}

void GroupRenderable::remove(const_iterator position) {
    release(**position);
    mChildren.erase(position);
    setNeedsRedraw(true);
}

void GroupRenderable::removeAll() {
    tellAll([this](Renderable& child) { release(child); });
    mChildren.clear();
    setNeedsRedraw(true);
}

void GroupRenderable::init(std::size_t rendererId, std::shared_ptr<Camera> camera,
                           ATL::CComPtr<ID3D11Device> device,
                           ATL::CComPtr<ID3D11DeviceContext> deviceContext) {
    mRendererId = rendererId;
    mCamera = std::move(camera);
    mDevice = std::move(device);
    mDeviceContext = std::move(deviceContext);
    tellAll([this](Renderable& child) { child.init(mRendererId, mCamera, mDevice, mDeviceContext); });
}

void GroupRenderable::deinit() {
    tellAll([](Renderable& child) { child.deinit(); });
    mCamera.reset();
    mDevice.Release();
    mDeviceContext.Release();
}

void GroupRenderable::render() {
    Renderable::render();
    tellAll([](Renderable& child) {
        if (child.visible()) {
            child.render();
        }
    });
}

void GroupRenderable::onUpdateProjectionMatrix(const std::shared_ptr<Camera>& camera) {
    tellAll([&](Renderable& child) { child.onUpdateProjectionMatrix(camera); });
}

void GroupRenderable::onUpdateViewMatrix(const std::shared_ptr<Camera>& camera) {
    tellAll([&](Renderable& child) { child.onUpdateViewMatrix(camera); });
}

void GroupRenderable::onUpdateZRange(const std::shared_ptr<Camera>& camera) {
    tellAll([&](Renderable& child) { child.onUpdateZRange(camera); });
}

void GroupRenderable::onUpdateViewport(const std::shared_ptr<Camera>& camera) {
    tellAll([&](Renderable& child) { child.onUpdateViewport(camera); });
}

void GroupRenderable::onUpdateRenderMode(RenderMode renderMode) {
    mRenderMode = renderMode;
    tellAll([&](Renderable& child) { child.onUpdateRenderMode(renderMode); });
}

void GroupRenderable::onUpdateTomographicColor(const Math::Color& color) {
    mTomographicColor = color;
    tellAll([&](Renderable& child) { child.onUpdateTomographicColor(color); });
}

void GroupRenderable::onUpdateUseCloudColorsInTomographicRenderModes(bool useCloudColors) {
    mUseCloudColors = useCloudColors;
    tellAll([&](Renderable& child) { child.onUpdateUseCloudColorsInTomographicRenderModes(useCloudColors); });
}

void GroupRenderable::onUpdateMeshForDistanceColorization(
    const std::shared_ptr<Math::TriangleMesh<float>>& mesh) {
    mMesh = mesh;
    tellAll([&](Renderable& child) { child.onUpdateMeshForDistanceColorization(mMesh); });
}

void GroupRenderable::onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) {
    mPlane = plane;
    tellAll([&](Renderable& child) { child.onUpdatePlaneForDistanceColorization(mPlane); });
}

void GroupRenderable::onUpdateColorMap(ColorMap colorMap) {
    tellChange(mColorMap, colorMap, [&](Renderable& child) { child.onUpdateColorMap(colorMap); });
}

void GroupRenderable::onUpdateUseSignedDistance(bool useSignedDistance) {
    tellChange(mUseSignedDistance, useSignedDistance,
               [&](Renderable& child) { child.onUpdateUseSignedDistance(useSignedDistance); });
}

void GroupRenderable::onUpdateColorMapRange(float minDistance, float maxDistance) {
    tellChange(mColorMapRange, {minDistance, maxDistance},
               [&](Renderable& child) { child.onUpdateColorMapRange(minDistance, maxDistance); });
}

void GroupRenderable::onUpdatePassFailDistanceRange(float minDistance, float maxDistance) {
    tellChange(mPassFailRange, {minDistance, maxDistance},
               [&](Renderable& child) { child.onUpdatePassFailDistanceRange(minDistance, maxDistance); });
}

void GroupRenderable::onUpdateWarnDistanceRange(float minDistance, float maxDistance) {
    tellChange(mWarnRange, {minDistance, maxDistance},
               [&](Renderable& child) { child.onUpdateWarnDistanceRange(minDistance, maxDistance); });
}

std::optional<Math::Color> GroupRenderable::backgroundColor() {
    for (const std::shared_ptr<Renderable>& child : mChildren) {
        if (const auto color = child->backgroundColor()) {
            return color;
        }
    }
    return std::nullopt;
}

bool GroupRenderable::isTransparent() const {
    return std::any_of(mChildren.begin(), mChildren.end(),
                       [](const auto& child) { return child->isTransparent(); });
}

void GroupRenderable::brightnessAndContrast(float lower, float upper, float& brightness, float& contrast) {
    if (mChildren.empty()) {
        return;
    }
    float brightnessSum = 0.0f;
    float contrastSum = 0.0f;
    tellAll([&](Renderable& child) {
        float childBrightness = 0.0f;
        float childContrast = 0.0f;
        child.brightnessAndContrast(lower, upper, childBrightness, childContrast);
        brightnessSum += childBrightness;
        contrastSum += childContrast;
    });
    brightness = brightnessSum / static_cast<float>(mChildren.size());
    contrast = contrastSum / static_cast<float>(mChildren.size());
}

Math::NBoundingBox<float, 3> GroupRenderable::boundingBox() {
    Math::NBoundingBox<float, 3> box;
    tellAll([&](Renderable& child) { box.extend(child.boundingBoxParent()); });
    return box;
}

void GroupRenderable::invalidateWorldMatrix() {
    Renderable::invalidateWorldMatrix();
    tellAll([](Renderable& child) { child.invalidateWorldMatrix(); });
}

bool GroupRenderable::needsRedraw() const {
    return std::any_of(mChildren.begin(), mChildren.end(),
                       [](const auto& child) { return child->needsRedraw(); }) ||
           Renderable::needsRedraw();
}

void GroupRenderable::setSelected(bool selected) {
    Renderable::setSelected(selected);
    tellAll([&](Renderable& child) { child.setSelected(selected); });
}

}  // namespace Render
