#pragma once

#include <core/Export.h>
#include <core/JobState.h>
#include <graphics/PanoramaLoader.h>
#include <math/NBoundingBox.h>
#include <render/core/Renderable.h>
#include <render/renderables/PanoConstants.h>

#include <Eigen/Core>
#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace Render {

class PanoGpu;
class PanoLoading;
class PanoTiles;

/// Shows a panorama with measured distances: each pixel of the screen gets the colour that the panorama has
/// in its direction, at the place where it was measured, so that it hides and is hidden by the rest of the
/// scene.
///
/// Directions are those from the panorama's centre, the origin of its object space, to the far plane; the
/// picture is therefore true for a camera at the centre and a fair likeness near it. Tiles arrive from a
/// loader on a thread of its own, coarse levels first and in each level those first that the camera faces;
/// each pixel shows the finest level that its tile has. What has not arrived is black. Whatever has no
/// measured distance is shown one object unit before the far plane, and nothing behind that place or before
/// the near plane: choose planes around the measured distances, as automatic ones are chosen.
///
/// The tiles live on the device. Joining another renderer makes them be loaded anew if they were loaded or
/// were being loaded; after a stop or a failure they are gone until loading is started again. Leaving a
/// renderer frees nothing: tiles, and with them the device, are kept until the panorama joins another or is
/// destroyed. A failing Direct3D call in render() throws ComException; no tile is lost, and the next frame
/// draws.
///
/// Everything belongs to the rendering thread except where noted. Whatever is called within a callback, on
/// the loading thread, cannot wait for that thread: see the functions.
class LUMARO_API PanoRenderable : public Renderable, public std::enable_shared_from_this<PanoRenderable> {
    struct Private {
        explicit Private() = default;
    };

public:
    /// As the shader.
    static constexpr int MAX_TILES_PER_LEVEL = 48;

    /// Without a loader nothing is drawn and loading fails.
    static std::shared_ptr<PanoRenderable> create(const std::shared_ptr<Graphics::PanoramaLoader>& loader,
                                                  std::string name);
    PanoRenderable(Private, std::shared_ptr<Graphics::PanoramaLoader> loader, std::string name);
    PanoRenderable(const PanoRenderable&) = delete;
    PanoRenderable& operator=(const PanoRenderable&) = delete;
    /// Stops and joins the loading thread. Within a callback only stops it.
    ~PanoRenderable() override;

    /// Throws std::invalid_argument for a loader with more than 4 levels of colours or of depths, more than
    /// MAX_TILES_PER_LEVEL tiles in one, a grid that does not fit in, or tiles outside their level.
    void init(std::size_t rendererId, std::shared_ptr<Camera> camera, ATL::CComPtr<ID3D11Device> device,
              ATL::CComPtr<ID3D11DeviceContext> deviceContext) override;
    /// Nothing: tiles stay where they are.
    void deinit() override;
    /// Takes over the tiles that have arrived and draws.
    void render() override;

    /// Empty: what covers the whole screen takes no part in bounds.
    Math::NBoundingBox<float, 3> boundingBox() override;
    Math::NBoundingBox<float, 3> boundingBox() const;
    /// Room for the distances of the tiles that have arrived, and for what has none behind everything else.
    void addZRangeNeeds(const Camera& camera, ZRangeNeeds& needs) override;

    /// When a parent moves, the direction that decides what to load first follows at the next change of the
    /// camera.
    void setMatrix(const Eigen::Matrix4f& matrix) override;
    void invalidateWorldMatrix() override;

    void onUpdateViewMatrix(const std::shared_ptr<Camera>& camera) override;
    void onUpdateProjectionMatrix(const std::shared_ptr<Camera>& camera) override;
    void onUpdateZRange(const std::shared_ptr<Camera>& camera) override;
    void onUpdateViewport(const std::shared_ptr<Camera>& camera) override;
    void onUpdateRenderMode(RenderMode renderMode) override;

    /// Loads all tiles before it returns, on the calling thread, which may be any, after stopping the loading
    /// thread. Returns Completed or Failed. Within a callback it throws std::logic_error.
    Core::JobState loadPanoramaTiles();

    /// Starts loading all tiles, those that have arrived before as well. A loading thread that exists is
    /// stopped and joined first; within a callback it is only stopped, and the new one begins when the
    /// callback has returned.
    ///
    /// `onTileLoaded` is called on the loading thread after each tile, under no lock, and destroyed there in
    /// the end; it must not touch the device. What it or the loader throws is logged and ends the loading as
    /// Failed; tiles that have arrived stay.
    void startAsyncPanoramaTilesLoading(std::function<void()> onTileLoaded);
    void startAsyncPanoramaTilesLoading(void (*onTileLoaded)());
    // A captureless lambda fits both; this takes any function object.
    template <class OnTileLoaded>
    requires(std::is_class_v<OnTileLoaded>&& std::invocable<
             OnTileLoaded&>) void startAsyncPanoramaTilesLoading(OnTileLoaded onTileLoaded) {
        startAsyncPanoramaTilesLoading(std::function<void()>(std::move(onTileLoaded)));
    }

    /// Stops and joins the loading thread, which finishes the tile that it is at. Within a callback it only
    /// stops it.
    void stopAsyncPanoramaTilesLoading();

    /// Any thread. How far the last loading has come.
    Core::JobState loadingState() const;
    /// Any thread. Whether the last loading, if any, has loaded all tiles.
    bool isLoadingComplete() const;
    /// Any thread. False when the last loading has failed; with `rethrow` its error, with the causes nested
    /// inside, is thrown instead.
    bool isLoadingHealthy(bool rethrow) const;
    /// Any thread. Sleeps until no loading is in progress and returns how the last one ended, NotStarted when
    /// there was none. Within a callback it throws std::logic_error.
    Core::JobState waitForLoadingEnd() const;
    /// Any thread but the loading one. Sleeps until isLoadingComplete(): for ever when nothing was started
    /// and after a stop or a failure. waitForLoadingEnd() always returns.
    void waitForLoadingComplete() const;

private:
    void updateCameraConstants(const Camera& camera);
    void updateModelConstants();
    void updateViewDirection();
    void updateLoaderConstants();
    void updatePanoramaTextures();

    PanoConstants mConstants;
    bool mConstantsDirty = true;
    Eigen::Vector3f mViewDirection = Eigen::Vector3f::Zero();  ///< In world space.
    bool mTilesOnDevice = false;
    bool mPlanesAreAutomatic = false;  ///< In the frame to come.

    const std::shared_ptr<PanoTiles> mTiles;
    std::unique_ptr<PanoGpu> mGpu;  ///< Null before init().
    std::unique_ptr<PanoLoading> mLoading;
};

}  // namespace Render
