#pragma once

#include <core/Export.h>
#include <math/Frustum.h>
#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <render/core/ZRangeNeeds.h>
#include <render/gpu/Viewport.h>

#include <Eigen/Core>
#include <atomic>
#include <cstddef>

#if defined(_MSC_VER)
#pragma warning(push)
#pragma warning(disable : 4324)  // Padding is what alignas is for.
#endif

namespace Render {

/// Viewport, view and projection of one renderer, shared with every renderable of its scene.
///
/// View space is right-handed and looks down -z, clip depth runs from 0 to 1, and pixel rows count downwards.
/// With a reversed depth buffer (chosen once, at construction) the near plane has depth 1 and the far plane
/// 0: every projection is then built with near and far swapped.
///
/// Matrices are only replaced when an element differs, and the products follow at once. Values that make no
/// view (NaN or infinity, a field of view outside 0 to 180 degrees, an extent of 0, equal near and far
/// planes, a view matrix without inverse) throw std::invalid_argument before anything is changed.
///
/// The redraw flag may be set from any thread; everything else belongs to the rendering thread. A host
/// usually moves the camera through its Renderer. What is set here directly shows at the next frame, and the
/// renderer's needsRedraw() asks for that frame.
class LUMARO_API Camera {
public:
    /// A perspective of 60 degrees, near 0.01, far 20000, in a viewport of 640 x 480.
    explicit Camera(bool isZBufferReversed);

    /// Stores the size. When the aspect ratio changes and neither the old nor the new height is zero, the
    /// projection follows with its vertical scale kept: a perspective is rebuilt from its parameters, an
    /// orthographic projection keeps its ratio of horizontal to vertical scale, and a custom projection
    /// (setPerspectiveOffCenter, setProjection) is scaled horizontally unless it was set as fixed.
    void setViewport(size_t width, size_t height);
    Viewport& viewport() { return mViewport; }
    const Viewport& viewport() const { return mViewport; }

    void setViewMatrix(const Eigen::Matrix4f& viewMatrix);

    /// Looks from `eye` along `viewDirection` (any length). An `up` that is zero or parallel to the view
    /// direction is replaced by +y, or by +z when looking along y, so that looking straight down on a z-up
    /// scene has north at the top. A zero view direction leaves the camera unchanged.
    void setPose(const Math::Point<float, 3>& eye, const Eigen::Vector3f& viewDirection,
                 const Eigen::Vector3f& up);
    /// The same with view direction `target` - `eye`.
    void setPose(const Math::Point<float, 3>& eye, const Math::Point<float, 3>& target,
                 const Eigen::Vector3f& up);

    /// Symmetric perspective with a vertical field of view in degrees; the offsets shift the picture's centre
    /// in normalised device coordinates per unit of view depth (elements (0,2) and (1,2) of the matrix).
    void setPerspective(float fovYDeg, float zNear, float zFar, float offCenterX, float offCenterY);

    /// Perspective through the rectangle left..right, bottom..top at distance zNear. fovY becomes the angle
    /// of a symmetric perspective with the same vertical scale. The projection stays off-centre through
    /// resizes and automatic near and far planes; with `fixed` a resize does not touch it at all.
    void setPerspectiveOffCenter(float left, float right, float bottom, float top, float zNear, float zFar,
                                 bool fixed);

    void setOrthographic(float horizontalExtent, float verticalExtent, float zNear, float zFar);
    /// The horizontal extent is verticalExtent times the viewport's aspect ratio.
    void setOrthographic(float verticalExtent, float zNear, float zFar);

    /// Takes the matrix as it is; it must already follow the camera's depth convention. fovY or the extents
    /// are derived from its diagonal. A resize scales its horizontal axis, with `fixed` it leaves the matrix
    /// alone. Automatic near and far planes replace its depth row only, and leave it alone altogether when
    /// its last row is neither (0, 0, -k, 0) nor (0, 0, 0, k).
    void setProjection(const Eigen::Matrix4f& projection, float zNear, float zFar, bool fixed);

    /// Near and far planes that just enclose a box in world coordinates; the rest of the projection stays as
    /// it was set. A perspective's near plane is at least 0.01 away and its far plane at least 0.0001 beyond
    /// that; orthographic planes may lie behind the eye. An empty box changes nothing.
    void setZNearAndFarViaBoundingBox(const Math::NBoundingBox<float, 3>& box);
    /// The same with room: for `needs`, and for the rounding of float positions, so that what lies exactly on
    /// the near or the far side of the box is drawn. Without a reversed depth buffer the far plane may move
    /// up to ten times as far away, because there the depths before it are nearly equal. With an empty box
    /// the planes only move apart, as far as `needs` asks.
    void fitZRange(const Math::NBoundingBox<float, 3>& box, const ZRangeNeeds& needs);

    float fovYRad() const { return mFovY; }
    float fovYDeg() const;
    float horizontalExtent() const { return mHorizontalExtent; }
    float verticalExtent() const { return mVerticalExtent; }
    float zNear() const { return mZNear; }
    float zFar() const { return mZFar; }

    const Eigen::Matrix4f& viewMatrix() const { return mViewMatrix; }
    const Eigen::Matrix4f& projectionMatrix() const { return mProjectionMatrix; }
    const Eigen::Matrix4f& viewProjectionMatrix() const { return mViewProjectionMatrix; }
    const Eigen::Matrix4f& invViewProjectionMatrix() const { return mInvViewProjectionMatrix; }

    bool isZBufferReversed() const { return mZBufferReversed; }
    bool isOrthographic() const { return mProjectionMatrix(3, 3) != 0.0f; }
    bool isPerspective() const { return !isOrthographic(); }
    /// The depth of what is infinitely far away: what the depth buffer is cleared to.
    float clearDepthValue() const;

    Math::Point<float, 3> eye() const;
    Eigen::Vector3f rightDirection() const;
    Eigen::Vector3f upDirection() const;
    Eigen::Vector3f viewDirection() const;

    /// World point at pixel corner (x, y) and clip depth `depth`.
    Math::Point<float, 3> unProject(size_t x, size_t y, float depth) const;
    /// Pixel coordinates of a world point in x and y; z is the point's own z, not a depth.
    Math::Point<float, 3> project(const Math::Point<float, 3>& point) const;

    /// The view volume in world coordinates.
    Math::Frustum<float> frustum() const;
    /// The view volume in the coordinates that `modelMatrix` takes to world coordinates.
    Math::Frustum<float> frustum(const Eigen::Matrix4f& modelMatrix) const;
    /// The same with the clip volume scaled about its centre, the point of the view axis in the middle of the
    /// depth range: `sx` and `sy` widen the picture's sides, `sz` the depth range. Factors above 1 enlarge.
    Math::Frustum<float> scaledFrustum(float sx, float sy, float sz,
                                       const Eigen::Matrix4f& modelMatrix) const;

    bool needsRedraw() const { return mNeedsRedraw.load(); }
    void setNeedsRedraw(bool needsRedraw) { mNeedsRedraw.exchange(needsRedraw); }

    /// Equal matrices, viewport rectangle and depth convention.
    bool operator==(const Camera& other) const;
    bool operator!=(const Camera& other) const { return !(*this == other); }

private:
    enum class ProjectionKind { Perspective, Orthographic, Custom };

    void buildPerspective();
    void buildOrthographic();
    void stretchExtent(double oldAspect, double newAspect);
    void followAspect(double oldAspect, double newAspect);
    struct DepthRange {
        double zNear;
        double zFar;
    };

    DepthRange depthRangeOf(const Math::NBoundingBox<float, 3>& box) const;
    DepthRange withRoomForRounding(DepthRange range, double largestCoordinate) const;
    void setDepthRange(DepthRange range);
    void setCustomDepthRange();
    Math::Frustum<float> frustumOf(const Eigen::Matrix4d& clipScaling, const Eigen::Matrix4d& model) const;
    void storeProjection(const Eigen::Matrix4f& projection);
    void updateProducts();
    float aspect() const;
    Eigen::Vector3d eyePosition() const;

    float mFovY = 1.0471976f;
    float mHorizontalExtent = 4.0f;
    float mVerticalExtent = 3.0f;
    float mZNear = 0.01f;
    float mZFar = 20000.0f;
    float mOffCenterX = 0.0f;
    float mOffCenterY = 0.0f;
    Viewport mViewport;
    // A host's compiler may align matrices more strictly than the library's, up to their size.
    alignas(64) Eigen::Matrix4f mViewMatrix = Eigen::Matrix4f::Identity();
    alignas(64) Eigen::Matrix4f mProjectionMatrix = Eigen::Matrix4f::Identity();
    alignas(64) Eigen::Matrix4f mViewProjectionMatrix = Eigen::Matrix4f::Identity();
    alignas(64) Eigen::Matrix4f mInvViewProjectionMatrix = Eigen::Matrix4f::Identity();
    bool mZBufferReversed;
    std::atomic<bool> mNeedsRedraw{true};

    ProjectionKind mKind = ProjectionKind::Perspective;
    /// The projection's depths are those of mZNear and mZFar; a matrix of the host's may say otherwise.
    bool mHasDepthRange = true;
    // A custom or stretched projection is always rescaled from what was set, so that resizing back and forth
    // does not drift.
    bool mCustomFixed = false;
    double mSetAspect = 0.0;  ///< Of the viewport when the projection was set; 0 until it has an area.
    float mSetHorizontalExtent = 0.0f;
    Eigen::Vector2f mCustomXRow = Eigen::Vector2f::Zero();
};

}  // namespace Render

#if defined(_MSC_VER)
#pragma warning(pop)
#endif
