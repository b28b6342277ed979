#pragma once

#include <core/Export.h>
#include <math/Color.h>
#include <math/Frustum.h>
#include <math/HalfSpace.h>
#include <math/NBoundingBox.h>
#include <math/NPlane.h>
#include <math/Point.h>
#include <math/TriangleMesh.h>
#include <octree/Location.h>
#include <octree/Octree.h>
#include <octree/OctreeNodeId.h>
#include <render/core/Renderable.h>
#include <render/gpu/PointCloudConstants.h>
#include <render/pointcloud/IFilter.h>
#include <render/pointcloud/LoadingProgress.h>
#include <render/pointcloud/NodeCaches.h>
#include <render/pointcloud/NodePriority.h>
#include <render/pointcloud/PointCloudQuery.h>

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <ratio>
#include <stop_token>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Render {

class PointCloudGpu;
class PointCloudStreamer;
class UploadAllowance;

/// Shows one octree point cloud without ever holding it whole: a walk visits the octree from its root, most
/// important node first, and keeps what is worth most within a budget in points that the point clouds of a
/// renderer share; each frame draws what the last publication of a walk held, as far as it is on the GPU.
///
/// Life: created, initialised by joining a renderer, loading between startAsyncReload() and stopAsyncReload()
/// (or during reloadPoints()), deinitialised by leaving the renderer, and so on again. Whatever changes which
/// nodes matter restarts the loader, and never waits for it unless noted.
///
/// A setter that is given its present value does nothing. One that is given NaN or another number without
/// sense throws std::invalid_argument and changes nothing.
///
/// All members belong to the rendering thread except where noted. Callbacks run on the thread of the walk,
/// under no lock; they may read counts and ask for redraws but must not start, stop or deinitialise anything.
/// They may drop the last reference to the point cloud. What those of a loader hold is released when it is
/// stopped.
class LUMARO_API PointCloudRenderable : public Renderable,
                                        public std::enable_shared_from_this<PointCloudRenderable> {
    struct Private {
        explicit Private() = default;
    };

public:
    using UpdateInterval = std::chrono::duration<std::int64_t, std::ratio<1, 10000000>>;

    /// `budget` counts points; the smallest budget of the point clouds of a renderer holds for all of them
    /// together. Throws as opening an octree does.
    static std::shared_ptr<PointCloudRenderable> create(const Octree::Location& location,
                                                        const std::string& name, std::size_t budget,
                                                        double unitScale);
    static std::shared_ptr<PointCloudRenderable> create(std::shared_ptr<Octree::Octree> octree,
                                                        const std::string& name, std::size_t budget);

    PointCloudRenderable(Private, const Octree::Location& location, const std::string& name,
                         std::size_t budget, double unitScale);
    PointCloudRenderable(Private, std::shared_ptr<Octree::Octree> octree, const std::string& name,
                         std::size_t budget);
    PointCloudRenderable(const PointCloudRenderable&) = delete;
    PointCloudRenderable& operator=(const PointCloudRenderable&) = delete;
    ~PointCloudRenderable() override;

    /// Adds a store of the same nodes that carries further columns; the points that it hides are neither
    /// drawn nor picked nor queried. What is shown is loaded anew. Throws StoreError when it cannot be
    /// opened; a mismatch shows when nodes are loaded.
    void addExternalAttributeLocation(const Octree::Location& location) const;

    /// The caches that all point clouds of a location at a unit scale share; see NodeCaches.h.
    static std::shared_ptr<VertexContainerCache> createOrGetSharedVertexContainerCache(
        const Octree::Location& location, double unitScale, std::size_t capacity,
        std::size_t expectedEntries);
    static std::shared_ptr<MeshDistanceCache> createOrGetSharedMeshDistanceCache(
        const Octree::Location& location, double unitScale, std::size_t capacity);

    /// Throws std::runtime_error when it is initialised already.
    void init(std::size_t rendererId, std::shared_ptr<Camera> camera, ATL::CComPtr<ID3D11Device> device,
              ATL::CComPtr<ID3D11DeviceContext> deviceContext) override;
    /// Stops the loader and gives up all GPU resources. Synchronous.
    void deinit() override;
    /// A frame that fails throws ComException and can be tried again.
    void render() override;
    void skipRender() override;
    /// Also true when the octree has another unit scale than the last frame.
    bool needsRedraw() const override;

    /// One walk on the calling thread, down to maxLevel. Returns quietly when `stop` is signalled. Throws
    /// std::runtime_error when it is not initialised and when point data cannot be loaded; the cause of the
    /// latter is nested inside. `onProgress` is called after each publication; it may be null. The next frame
    /// shows all of it, whatever Renderer::uploadBytesPerFrame() says.
    void reloadPoints(std::function<void()> onProgress, std::size_t maxLevel, std::stop_token stop);
    void reloadPoints(void (*onProgress)(), std::size_t maxLevel, std::stop_token stop);

    /// Starts the loader: one walk now and one after each restart. Does nothing when it exists already: to
    /// give it other callbacks or another level, stop it first. An invisible point cloud's loader only calls
    /// `onProgress`.
    void startAsyncReload(std::function<void()> onProgress, std::size_t maxLevel);
    void startAsyncReload(void (*onProgress)(), std::size_t maxLevel);
    /// `onEnded` is called when a walk has ended, after its last publication: with null when all is loaded
    /// that this view can have, or with what failed, as isAsyncReloadHealthy() throws it. Not for a walk that
    /// a restart cut short. isLoading() is still true during the call.
    void startAsyncReload(std::function<void()> onProgress, std::size_t maxLevel,
                          std::function<void(std::exception_ptr)> onEnded);
    /// Stops and joins. Synchronous.
    void stopAsyncReload();
    bool isAsyncReloadActive() const;
    /// False while the loader's last walk has failed; with `rethrow` that failure is thrown instead.
    bool isAsyncReloadHealthy(bool rethrow) const;
    /// Whether the loader is at work: false when what it can load for this view is there, or when there is no
    /// loader.
    bool isLoading() const;
    /// How much is there and how much is still to load. Any thread, at any time, at no cost. Nothing is
    /// wanted when nothing walks.
    LoadingProgress loadingProgress() const;
    /// Blocks until the loader has nothing to do. The next frame then shows all of it.
    void waitUntilLoaded();

    // A captureless lambda fits both callbacks above; these take any function object.
    template <class OnProgress>
    requires(std::is_class_v<OnProgress>&& std::invocable<OnProgress&>) void reloadPoints(
        OnProgress onProgress, std::size_t maxLevel, std::stop_token stop) {
        reloadPoints(std::function<void()>(std::move(onProgress)), maxLevel, std::move(stop));
    }
    template <class OnProgress>
    requires(std::is_class_v<OnProgress>&& std::invocable<OnProgress&>) void startAsyncReload(
        OnProgress onProgress, std::size_t maxLevel) {
        startAsyncReload(std::function<void()>(std::move(onProgress)), maxLevel);
    }

    /// In points, as given to create(). The smallest budget of the point clouds of a renderer holds for all
    /// of them together.
    std::size_t budget() const;
    /// At any time. A smaller budget evicts at once: the next frame draws no more of this point cloud than
    /// that, and of the others when their loaders have walked. A larger one has the loaders fetch what they
    /// lack.
    void setBudget(std::size_t budget);
    /// How often a running walk publishes its progress; more than 0.
    UpdateInterval updateInterval() const;
    void setUpdateInterval(UpdateInterval interval);
    /// Whether a new view matrix restarts the loader.
    bool restartLoadingAfterCameraChange() const;
    void setRestartLoadingAfterCameraChange(bool restart);
    /// Least size of a loaded node on screen, in pixels; a change drops all nodes first.
    float octreeNodePriorityThreshold() const;
    void setOctreeNodePriorityThreshold(float threshold);
    /// Nodes of levels above this one are always loaded.
    std::size_t minLevelToKeep() const;
    void setMinLevelToKeep(std::size_t level);
    /// Nodes of levels below this one never are.
    std::size_t maxLevelToKeep() const;
    void setMaxLevelToKeep(std::size_t level);
    /// What a walk that started now would make of a node. Any thread.
    NodePriority boundingBoxPriority(std::size_t level, const Math::NBoundingBox<float, 3>& box) const;

    void clearVisibleOctreeNodes();
    /// Of the last publication. Any thread.
    std::size_t numVisibleOctreeNodes() const;
    std::size_t numVisiblePoints() const;
    /// Bytes of point data sent to the GPU since init().
    std::size_t uploadedPointBytes() const;
    /// Bytes that the frames drawn so far had no room for (Renderer::setUploadBytesPerFrame()). While there
    /// are some, each frame asks for the next one.
    std::size_t pendingUploadBytes() const;

    // Geometry, in model coordinates: (absolute - referencePosition()) * unitScale().
    Math::NBoundingBox<float, 3> boundingBox() override;
    Math::NBoundingBox<float, 3> boundingCube() const;
    Math::NBoundingBox<float, 3> boundingCube(Octree::OctreeNodeId id) const;
    Math::Point<double, 3> referencePosition() const;
    float spacing(std::size_t level) const;
    double unitScale() const;
    /// Positive and finite. Drops all vertices, here and in the shared caches, and sets the default point
    /// size. Synchronous. Other point clouds over the same octree, and all of them when the scale is set at
    /// the octree itself, follow in their next frame.
    void setUnitScale(double unitScale);
    void setMatrix(const Eigen::Matrix4f& matrix) override;
    void invalidateWorldMatrix() override;
    /// World coordinates, all finite. More than 8 half-spaces throw std::runtime_error and change nothing.
    void setClippingVolume(const std::vector<Math::HalfSpace<float, 3>>& halfSpaces);
    Math::Frustum<float> frustumModelCs() const;

    /// Model units, not negative.
    float pointSize() const;
    void setPointSize(float size);
    float defaultPointSize() const;
    /// Pixels, not negative.
    float maxPointSize() const;
    void setMaxPointSize(float size);
    /// Opacity at the centre of a point, not negative.
    float tomographicContrast() const;
    void setTomographicContrast(float contrast);
    /// At first a colour that all point clouds of this location have.
    Math::Color uniformColor() const;
    void setUniformColor(const Math::Color& color);
    bool showBoundingBoxes() const;
    void setShowBoundingBoxes(bool show);
    void setSelected(bool selected) override;
    /// An invisible point cloud holds no nodes.
    void setVisible(bool visible) override;
    bool isTransparent() const override;
    std::optional<Math::Color> backgroundColor() override;
    /// Stretches the resident points' colours over the full range; `lower` and `upper` are the shares of the
    /// darkest and brightest points that may be clipped.
    void brightnessAndContrast(float lower, float upper, float& brightness, float& contrast) override;

    void onUpdateProjectionMatrix(const std::shared_ptr<Camera>& camera) override;
    void onUpdateViewMatrix(const std::shared_ptr<Camera>& camera) override;
    void onUpdateZRange(const std::shared_ptr<Camera>& camera) override;
    void onUpdateViewport(const std::shared_ptr<Camera>& camera) override;
    void onUpdateRenderMode(RenderMode renderMode) override;
    void onUpdateMeshForDistanceColorization(const std::shared_ptr<Math::TriangleMesh<float>>& mesh) override;
    void onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) override;
    void onUpdateColorMap(ColorMap colorMap) override;
    void onUpdateUseSignedDistance(bool useSignedDistance) override;
    void onUpdateColorMapRange(float minDistance, float maxDistance) override;
    void onUpdatePassFailDistanceRange(float minDistance, float maxDistance) override;
    void onUpdateWarnDistanceRange(float minDistance, float maxDistance) override;
    void onUpdateTomographicColor(const Math::Color& color) override;
    void onUpdateUseCloudColorsInTomographicRenderModes(bool useCloudColors) override;

    /// The filter stays the caller's and must outlive the query.
    std::shared_ptr<PointCloudQuery> createPointCloudQuery(IFilter* filter, std::size_t maxLevel,
                                                           float minSpacing,
                                                           std::chrono::nanoseconds timeLimit);

private:
    template <class T>
    bool setConstant(T& constant, const std::type_identity_t<T>& value);
    void setRange(float& least, float& greatest, float newLeast, float newGreatest);
    void setNotNegative(float& constant, float value, const char* name);
    void drawFrame();
    void takeOverPublication();
    void followUnitScale();
    void updateCameraConstants();
    void updateClippingConstants();
    void updateWorldMatrix();

    const std::shared_ptr<Octree::Octree> mOctree;
    std::shared_ptr<Camera> mCamera;
    Math::Color mUniformColor;
    bool mShowBoundingBoxes = false;
    double mUnitScale;  ///< The octree's, as the constants know it.

    PointCloudFrameConstants mConstants;
    bool mConstantsDirty = true;
    bool mPublicationPending = false;  ///< One was taken over but is not all on the GPU yet.
    bool mUploadsAtOnce = false;       ///< In the next frame: the host has waited already.
    std::shared_ptr<UploadAllowance> mUploadAllowance;

    std::shared_ptr<PointCloudStreamer> mStreamer;  ///< Shared with a walk that is under way.
    std::unique_ptr<PointCloudGpu> mGpu;            ///< Null unless initialised.
};

}  // namespace Render
