#include <render/renderables/GroupRenderable.h>

#include <algorithm>
#include <utility>

namespace Render {

std::shared_ptr<GroupRenderable> GroupRenderable::create(std::string name) {
    return std::make_shared<GroupRenderable>(Private(), name);
}

GroupRenderable::GroupRenderable(Private, const std::string& name) : Renderable(name) {}

GroupRenderable::GroupRenderable(const GroupRenderable& other) = default;

GroupRenderable& GroupRenderable::operator=(const GroupRenderable& other) {
    const Children before = mChildren;
    Renderable::operator=(other);
    mRendererId = other.mRendererId;
    mCamera = other.mCamera;
    mDevice = other.mDevice;
    mDeviceContext = other.mDeviceContext;
    mSettings = other.mSettings;
    mChildren = other.mChildren;
    for (const std::shared_ptr<Renderable>& child : before) {
        if (std::find(mChildren.begin(), mChildren.end(), child) == mChildren.end()) {
            orphan(*child);
        }
    }
    invalidateWorldMatrix();
    return *this;
}

// This is no longer their parent, but they have not been told.
GroupRenderable::~GroupRenderable() {
    tellAll([](Renderable& child) {
        if (!child.parent()) {
            child.invalidateWorldMatrix();
        }
    });
}

template <class Tell>
void GroupRenderable::tellAll(Tell tell) const {
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
    child->onUpdateRenderMode(mSettings.renderMode);
    child->onUpdateMeshForDistanceColorization(mSettings.mesh);
    child->onUpdateColorMap(mSettings.colorMap);
    child->onUpdateUseSignedDistance(mSettings.useSignedDistance);
    child->onUpdateColorMapRange(mSettings.colorMapRange.min, mSettings.colorMapRange.max);
    child->onUpdatePlaneForDistanceColorization(mSettings.plane);
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
    orphan(child);
}

void GroupRenderable::orphan(Renderable& child) const {
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
    if (std::count(mChildren.begin(), mChildren.end(), *position) == 1) {
        release(**position);
    }
    mChildren.erase(position);
    setNeedsRedraw(true);
}

bool GroupRenderable::remove(std::shared_ptr<Renderable> child) {
    const auto first = std::remove(mChildren.begin(), mChildren.end(), child);
    if (first == mChildren.end()) {
        return false;
    }
    mChildren.erase(first, mChildren.end());
    release(*child);
    setNeedsRedraw(true);
    return true;
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
        } else {
            child.skipRender();
        }
    });
}

void GroupRenderable::skipRender() {
    Renderable::skipRender();
    tellAll([](Renderable& child) { child.skipRender(); });
}

void GroupRenderable::addZRangeNeeds(const Camera& camera, ZRangeNeeds& needs) {
    tellAll([&](Renderable& child) {
        if (child.visible()) {
            child.addZRangeNeeds(camera, needs);
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
    mSettings.renderMode = renderMode;
    tellAll([&](Renderable& child) { child.onUpdateRenderMode(renderMode); });
}

void GroupRenderable::onUpdateTomographicColor(const Math::Color& color) {
    mSettings.tomographicColor = color;
    tellAll([&](Renderable& child) { child.onUpdateTomographicColor(color); });
}

void GroupRenderable::onUpdateUseCloudColorsInTomographicRenderModes(bool useCloudColors) {
    mSettings.useCloudColors = useCloudColors;
    tellAll([&](Renderable& child) { child.onUpdateUseCloudColorsInTomographicRenderModes(useCloudColors); });
}

void GroupRenderable::onUpdateMeshForDistanceColorization(
    const std::shared_ptr<Math::TriangleMesh<float>>& mesh) {
    mSettings.mesh = mesh;
    tellAll([&](Renderable& child) { child.onUpdateMeshForDistanceColorization(mSettings.mesh); });
}

void GroupRenderable::onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) {
    mSettings.plane = plane;
    tellAll([&](Renderable& child) { child.onUpdatePlaneForDistanceColorization(mSettings.plane); });
}

void GroupRenderable::onUpdateColorMap(ColorMap colorMap) {
    tellChange(mSettings.colorMap, colorMap, [&](Renderable& child) { child.onUpdateColorMap(colorMap); });
}

void GroupRenderable::onUpdateUseSignedDistance(bool useSignedDistance) {
    tellChange(mSettings.useSignedDistance, useSignedDistance,
               [&](Renderable& child) { child.onUpdateUseSignedDistance(useSignedDistance); });
}

void GroupRenderable::onUpdateColorMapRange(float minDistance, float maxDistance) {
    tellChange(mSettings.colorMapRange, {minDistance, maxDistance},
               [&](Renderable& child) { child.onUpdateColorMapRange(minDistance, maxDistance); });
}

void GroupRenderable::onUpdatePassFailDistanceRange(float minDistance, float maxDistance) {
    tellChange(mSettings.passFailRange, {minDistance, maxDistance},
               [&](Renderable& child) { child.onUpdatePassFailDistanceRange(minDistance, maxDistance); });
}

void GroupRenderable::onUpdateWarnDistanceRange(float minDistance, float maxDistance) {
    tellChange(mSettings.warnRange, {minDistance, maxDistance},
               [&](Renderable& child) { child.onUpdateWarnDistanceRange(minDistance, maxDistance); });
}

std::optional<Math::Color> GroupRenderable::backgroundColor() {
    return std::as_const(*this).backgroundColor();
}

std::optional<Math::Color> GroupRenderable::backgroundColor() const {
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
    return std::as_const(*this).boundingBox();
}

Math::NBoundingBox<float, 3> GroupRenderable::boundingBox() const {
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
