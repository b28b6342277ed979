#include <render/core/Renderable.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <cmath>
#include <stdexcept>
#include <utility>

#if defined(_MSC_VER)
template class LUMARO_API Core::InstanceId<Render::Renderable>;
#else
template class Core::InstanceId<Render::Renderable>;
#endif

namespace Render {

namespace {

// In double: far from the origin, a float product of two translations loses what the correspondence gains.
Eigen::Matrix4f placed(const Eigen::Affine3d& transform, const Eigen::Matrix4f& matrix) {
    return (transform.matrix() * matrix.cast<double>()).cast<float>();
}

Eigen::Vector3d toDouble(const Math::Point<float, 3>& point) {
    return point.vector().cast<double>();
}

// The turn about z from one direction to another as seen from above; none when either is vertical.
Eigen::AngleAxisd zRotation(const Eigen::Vector3d& from, const Eigen::Vector3d& to) {
    double angle = 0.0;
    if (!from.head<2>().isZero(0.0) && !to.head<2>().isZero(0.0)) {
        angle = std::atan2(to.y(), to.x()) - std::atan2(from.y(), from.x());
    }
    return {angle, Eigen::Vector3d::UnitZ()};
}

Eigen::Affine3d rotationThenTranslation(const Eigen::Vector3d& from, const Eigen::Vector3d& to,
                                        const Eigen::AngleAxisd& rotation) {
    return Eigen::Translation3d(to) * rotation * Eigen::Translation3d(-from);
}

}  // namespace

Renderable::Renderable(std::string name) : mName(std::move(name)) {}

Renderable::Renderable(const Renderable& other)
    : InstanceId(other),
      mName(other.mName),
      mParent(other.mParent),
      mMatrix(other.mMatrix),
      mWorldMatrixCache(other.mWorldMatrixCache),
      mVisible(other.mVisible),
      mWorldMatrixDirty(other.mWorldMatrixDirty),
      mNeedsRedraw(other.mNeedsRedraw.load()),
      mSelected(other.mSelected) {}

Renderable& Renderable::operator=(const Renderable& other) {
    InstanceId::operator=(other);
    mName = other.mName;
    mParent = other.mParent;
    mMatrix = other.mMatrix;
    mWorldMatrixCache = other.mWorldMatrixCache;
    mVisible = other.mVisible;
    mWorldMatrixDirty = other.mWorldMatrixDirty;
    mNeedsRedraw = other.mNeedsRedraw.load();
    mSelected = other.mSelected;
    return *this;
}

Renderable::~Renderable() = default;

void Renderable::init(size_t, std::shared_ptr<Camera>, ATL::CComPtr<ID3D11Device>,
                      ATL::CComPtr<ID3D11DeviceContext>) {}
void Renderable::deinit() {}
void Renderable::onUpdateProjectionMatrix(const std::shared_ptr<Camera>&) {}
void Renderable::onUpdateViewMatrix(const std::shared_ptr<Camera>&) {}
void Renderable::onUpdateZRange(const std::shared_ptr<Camera>&) {}
void Renderable::onUpdateViewport(const std::shared_ptr<Camera>&) {}
void Renderable::onUpdateRenderMode(RenderMode) {}
void Renderable::onUpdateMeshForDistanceColorization(const std::shared_ptr<Math::TriangleMesh<float>>&) {}
void Renderable::onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>&) {}
void Renderable::onUpdateColorMap(ColorMap) {}
void Renderable::onUpdateUseSignedDistance(bool) {}
void Renderable::onUpdateColorMapRange(float, float) {}
void Renderable::onUpdatePassFailDistanceRange(float, float) {}
void Renderable::onUpdateWarnDistanceRange(float, float) {}
void Renderable::onUpdateTomographicColor(const Math::Color&) {}
void Renderable::onUpdateUseCloudColorsInTomographicRenderModes(bool) {}

void Renderable::render() {
    mNeedsRedraw = false;
}

std::optional<Math::Color> Renderable::backgroundColor() {
    return std::nullopt;
}

bool Renderable::isTransparent() const {
    return false;
}

void Renderable::brightnessAndContrast(float, float, float& brightness, float& contrast) {
    brightness = 0.0f;
    contrast = 1.0f;
}

void Renderable::setMatrix(const Eigen::Matrix4f& matrix) {
    if (matrix == mMatrix) {
        return;
    }
    if (!matrix.allFinite()) {
        throw std::invalid_argument("Renderable: a matrix that is not finite");
    }
    mMatrix = matrix;
    invalidateWorldMatrix();
    setNeedsRedraw(true);
}

Eigen::Matrix4f Renderable::matrix() {
    return mMatrix;
}

Eigen::Matrix4f Renderable::worldMatrix() {
    if (mWorldMatrixDirty) {
        const std::shared_ptr<Renderable> holder = parent();
        const Eigen::Matrix4f own = mMatrix;
        mWorldMatrixCache = holder ? Eigen::Matrix4f(holder->worldMatrix() * own) : own;
        mWorldMatrixDirty = false;
    }
    return mWorldMatrixCache;
}

void Renderable::invalidateWorldMatrix() {
    mWorldMatrixDirty = true;
    setNeedsRedraw(true);
}

void Renderable::setVisible(bool visible) {
    if (visible != mVisible) {
        mVisible = visible;
        setNeedsRedraw(true);
    }
}

void Renderable::setNeedsRedraw(bool needsRedraw) {
    mNeedsRedraw = needsRedraw;
}

bool Renderable::needsRedraw() const {
    return mNeedsRedraw;
}

void Renderable::setSelected(bool selected) {
    if (selected != mSelected) {
        mSelected = selected;
        setNeedsRedraw(true);
    }
}

void Renderable::skipRender() {
    setNeedsRedraw(false);
}

void Renderable::addZRangeNeeds(const Camera&, ZRangeNeeds&) {}

void Renderable::setParent(std::weak_ptr<Renderable> parent) {
    mParent = std::move(parent);
    invalidateWorldMatrix();
}

Eigen::Matrix4f Renderable::invWorldMatrix() {
    return worldMatrix().inverse();
}

Math::NBoundingBox<float, 3> Renderable::boundingBoxWorld() {
    const Math::NBoundingBox<float, 3> box = boundingBox();
    return box.isEmpty() ? box : box.transformed(worldMatrix());
}

Math::NBoundingBox<float, 3> Renderable::boundingBoxParent() {
    const Math::NBoundingBox<float, 3> box = boundingBox();
    return box.isEmpty() ? box : box.transformed(matrix());
}

void Renderable::setTranslationByCorrespondences(const Math::Point<float, 3>& from,
                                                 const Math::Point<float, 3>& to) {
    setMatrix(placed(Eigen::Affine3d(Eigen::Translation3d(toDouble(to) - toDouble(from))), matrix()));
}

void Renderable::setZRotationByCorrespondences(const Math::Point<float, 3>& center,
                                               const Math::Point<float, 3>& from,
                                               const Math::Point<float, 3>& to) {
    const Eigen::Vector3d pivot = toDouble(center);
    const Eigen::AngleAxisd rotation = zRotation(toDouble(from) - pivot, toDouble(to) - pivot);
    setMatrix(placed(rotationThenTranslation(pivot, pivot, rotation), matrix()));
}

void Renderable::setTranslationAndZRotationByCorrespondences(const Math::Point<float, 3>& from,
                                                             const Math::Point<float, 3>& to,
                                                             const Eigen::Vector3f& fromDirection,
                                                             const Eigen::Vector3f& toDirection) {
    const Eigen::AngleAxisd rotation = zRotation(fromDirection.cast<double>(), toDirection.cast<double>());
    setMatrix(placed(rotationThenTranslation(toDouble(from), toDouble(to), rotation), matrix()));
}

}  // namespace Render
