#pragma once

#include <core/Export.h>
#include <core/InstanceId.h>
#include <math/Color.h>
#include <math/NBoundingBox.h>
#include <math/NPlane.h>
#include <math/Point.h>
#include <math/StoredMatrix.h>
#include <math/TriangleMesh.h>
#include <render/core/Camera.h>
#include <render/core/RenderMode.h>
#include <render/core/ZRangeNeeds.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ColorMap.h>

#include <d3d11.h>

#include <Eigen/Core>
#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace Render {
class Renderable;
}

// One counter per process, whichever module a renderable is created in.
#if defined(_MSC_VER) && defined(LUMARO_EXPORTS)
extern template class Core::InstanceId<Render::Renderable>;
#else
extern template class LUMARO_API Core::InstanceId<Render::Renderable>;
#endif

namespace Render {

/// Base of everything that a renderer draws: name, parent, transform, visibility, selection, redraw flag, and
/// the operations through which the renderer initialises a drawable, tells it of changes and draws it.
///
/// Held by std::shared_ptr; parents hold children, children know their parent weakly. init() is called when
/// the renderable joins a renderer, deinit() when it leaves; it may be initialised again afterwards.
/// Everything runs on the rendering thread, except that loader threads may call setNeedsRedraw(). A copy
/// keeps the identifier of its source.
class LUMARO_API Renderable : public Core::InstanceId<Renderable> {
public:
    explicit Renderable(std::string name);
    Renderable(const Renderable& other);
    Renderable& operator=(const Renderable& other);
    ~Renderable() override;

    /// Gives the renderable what it needs to create GPU objects and to follow the camera. The camera is the
    /// renderer's own; read from it during notifications.
    virtual void init(size_t rendererId, std::shared_ptr<Camera> camera, ATL::CComPtr<ID3D11Device> device,
                      ATL::CComPtr<ID3D11DeviceContext> deviceContext);
    virtual void deinit();

    virtual void onUpdateProjectionMatrix(const std::shared_ptr<Camera>& camera);
    virtual void onUpdateViewMatrix(const std::shared_ptr<Camera>& camera);
    virtual void onUpdateZRange(const std::shared_ptr<Camera>& camera);
    virtual void onUpdateViewport(const std::shared_ptr<Camera>& camera);
    virtual void onUpdateRenderMode(RenderMode renderMode);
    virtual void onUpdateMeshForDistanceColorization(const std::shared_ptr<Math::TriangleMesh<float>>& mesh);
    virtual void onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane);
    virtual void onUpdateColorMap(ColorMap colorMap);
    virtual void onUpdateUseSignedDistance(bool useSignedDistance);
    virtual void onUpdateColorMapRange(float minDistance, float maxDistance);
    virtual void onUpdatePassFailDistanceRange(float minDistance, float maxDistance);
    virtual void onUpdateWarnDistanceRange(float minDistance, float maxDistance);
    virtual void onUpdateTomographicColor(const Math::Color& color);
    virtual void onUpdateUseCloudColorsInTomographicRenderModes(bool useCloudColors);

    /// Draws into the bound render targets and clears the redraw flag. The base only clears the flag.
    virtual void render();
    /// A colour that replaces the renderer's background behind this renderable.
    virtual std::optional<Math::Color> backgroundColor();
    /// Transparent scenes are blended by source alpha and do not write depth.
    virtual bool isTransparent() const;
    /// Proposes brightness and contrast for the picture. The base proposes 0 and 1.
    virtual void brightnessAndContrast(float lower, float upper, float& brightness, float& contrast);
    /// Bounds in the renderable's own coordinates.
    virtual Math::NBoundingBox<float, 3> boundingBox() = 0;

    /// The transform relative to the parent. Nothing happens when it is set to its current value; one that is
    /// not finite throws std::invalid_argument.
    virtual void setMatrix(const Eigen::Matrix4f& matrix);
    virtual Eigen::Matrix4f matrix();
    /// The parent's world matrix times matrix(), cached until invalidated.
    virtual Eigen::Matrix4f worldMatrix();
    /// To be called whenever a parent's transform changes; also asks for a redraw.
    virtual void invalidateWorldMatrix();

    virtual void setVisible(bool visible);
    virtual void setNeedsRedraw(bool needsRedraw);
    virtual bool needsRedraw() const;
    virtual void setSelected(bool selected);

    /// Called instead of render() in a frame that leaves this renderable out because it is hidden, itself or
    /// with a group above it. Clears the redraw flag: a hidden renderable asks for one frame, not for ever.
    virtual void skipRender();
    /// Called with automatic near and far planes, before they are set, unless the renderable is hidden:
    /// extends `needs` by what is drawn outside boundingBox(). The base adds nothing.
    virtual void addZRangeNeeds(const Camera& camera, ZRangeNeeds& needs);

    std::string name() const { return mName; }
    void setName(const std::string& name) { mName = name; }
    /// Also invalidates the world matrix, which depends on the parent's.
    void setParent(std::weak_ptr<Renderable> parent);
    std::shared_ptr<Renderable> parent() const { return mParent.lock(); }
    bool visible() const { return mVisible; }
    bool selected() const { return mSelected; }

    Eigen::Matrix4f invWorldMatrix();
    /// boundingBox() as an axis-aligned box in world or parent coordinates; an empty box stays as it is.
    Math::NBoundingBox<float, 3> boundingBoxWorld();
    Math::NBoundingBox<float, 3> boundingBoxParent();

    /// Placement by correspondences, in the parent's coordinates: each applies a further transform on top of
    /// matrix(). The first moves `from` onto `to`.
    void setTranslationByCorrespondences(const Math::Point<float, 3>& from, const Math::Point<float, 3>& to);
    /// Turns about the vertical through `center` until center->from points, seen from above, like center->to.
    void setZRotationByCorrespondences(const Math::Point<float, 3>& center, const Math::Point<float, 3>& from,
                                       const Math::Point<float, 3>& to);
    /// Turns about the vertical through `from` until fromDirection points, seen from above, like toDirection,
    /// then moves `from` onto `to`. A direction without horizontal part causes no rotation.
    void setTranslationAndZRotationByCorrespondences(const Math::Point<float, 3>& from,
                                                     const Math::Point<float, 3>& to,
                                                     const Eigen::Vector3f& fromDirection,
                                                     const Eigen::Vector3f& toDirection);

private:
    std::string mName;
    std::weak_ptr<Renderable> mParent;
    Math::StoredMatrix4f mMatrix = Math::StoredMatrix4f::Identity();
    Math::StoredMatrix4f mWorldMatrixCache = Math::StoredMatrix4f::Identity();
    bool mVisible = true;
    bool mWorldMatrixDirty = false;
    std::atomic<bool> mNeedsRedraw{true};
    bool mSelected = false;
};

}  // namespace Render
