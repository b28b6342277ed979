#pragma once

#include <core/Export.h>
#include <core/InstanceId.h>
#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <math/Color.h>
#include <math/NBoundingBox.h>
#include <math/NPlane.h>
#include <math/Point.h>
#include <math/StoredMatrix.h>
#include <math/TriangleMesh.h>
#include <render/core/Camera.h>
#include <render/core/PostProcess.h>
#include <render/core/RenderMode.h>
#include <render/core/RenderPass.h>
#include <render/core/Renderable.h>
#include <render/gpu/BlendState.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ColorMap.h>
#include <render/gpu/DepthStencilState.h>
#include <render/gpu/RasterizerState.h>
#include <render/gpu/Texture2d.h>
#include <render/gpu/VertexTypes.h>

#include <d3d11.h>

#include <Eigen/Core>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <vector>

namespace Render {
class Renderer;
class ShaderWarmUp;
class UploadAllowance;
}  // namespace Render

// One counter per process, whichever module a renderer is created in.
#if defined(_MSC_VER) && defined(LUMARO_EXPORTS)
extern template class Core::InstanceId<Render::Renderer>;
#else
extern template class LUMARO_API Core::InstanceId<Render::Renderer>;
#endif

namespace Render {

/// Owns the Direct3D device, the camera and the display settings, and draws one scene off-screen.
///
/// A host gives it a scene, moves the camera, calls render() whenever needsRedraw() says so, and reads the
/// picture back. Everything runs on the thread that owns the immediate context; only the camera's redraw flag
/// may be set from elsewhere.
///
/// Every setter compares first: setting a current value does nothing. A change is told to the scene through
/// the onUpdate... operations of Renderable and sets the camera's redraw flag. A value that is not a number
/// throws std::invalid_argument and changes nothing. Failing Direct3D calls throw ComException and leave the
/// renderer as it was at that point; the next frame draws again.
class LUMARO_API Renderer : public Core::InstanceId<Renderer> {
public:
    /// Creates the device (hardware, feature level 11.0 or std::runtime_error), passes and states. The depth
    /// convention is fixed for the renderer's life. Starts with an orthographic camera of extent 2 x 2, near
    /// -1, far 1.
    explicit Renderer(bool isZBufferReversed);
    /// De-initialises the scene.
    ~Renderer() override;
    Renderer(const Renderer&) = delete;
    Renderer& operator=(const Renderer&) = delete;

    /// Not to be assigned to: setScene() initialises.
    std::shared_ptr<Renderable>& scene() { return mScene; }
    const std::shared_ptr<Renderable>& scene() const { return mScene; }
    /// Replaces the scene, which must not be null: the old one is de-initialised, the new one initialised and
    /// told render mode, tomographic colour, colour map, signed-distance flag and colour-map range. The other
    /// settings reach it when they next change. Does not set the redraw flag. To show nothing, set an empty
    /// group.
    void setScene(std::shared_ptr<Renderable> scene);

    /// Not to be assigned to: every renderable shares this one. What is changed on the camera itself, its
    /// viewport included, reaches the scene at the next render(), and needsRedraw() asks for that.
    std::shared_ptr<Camera>& camera() { return mCamera; }
    const std::shared_ptr<Camera>& camera() const { return mCamera; }
    const ATL::CComPtr<ID3D11Device>& device() const { return mDevice; }
    const ATL::CComPtr<ID3D11DeviceContext>& deviceContext() const { return mDeviceContext; }

    /// Size of the picture in pixels; re-creates the render targets. A size of zero or beyond the device's
    /// limit throws ComException, with the size in the nested exception, and leaves the old targets with
    /// their picture. For a moment there are old and new targets, 100 bytes a pixel each, with the staging
    /// textures.
    void setViewport(size_t width, size_t height);
    const Viewport& viewport() const { return mCamera->viewport(); }
    double aspectRatio() const;

    /// The alpha is the scene's to see; the picture is opaque where nothing is drawn.
    void setBackgroundColor(unsigned char r, unsigned char g, unsigned char b, unsigned char a);
    void setBackgroundColor(const Math::Color& color);
    const Math::Color& backgroundColor() const { return mBackgroundColor; }

    // The camera's operations of the same names. With automatic near and far planes these are fitted first;
    // the scene is told if the matrix is another one then.
    void setCameraPose(const Math::Point<float, 3>& eye, const Eigen::Vector3f& viewDirection,
                       const Eigen::Vector3f& up);
    void setCameraPose(const Math::Point<float, 3>& eye, const Math::Point<float, 3>& target,
                       const Eigen::Vector3f& up);
    void setViewMatrix(const Eigen::Matrix4f& viewMatrix);
    void setPerspective(float fovYDeg, float zNear, float zFar, float offCenterX, float offCenterY);
    void setPerspectiveOffCenter(float left, float right, float bottom, float top, float zNear, float zFar,
                                 bool fixed);
    void setOrthographic(float horizontalExtent, float verticalExtent, float zNear, float zFar);
    void setOrthographic(float verticalExtent, float zNear, float zFar);
    void setProjection(const Eigen::Matrix4f& projection, float zNear, float zFar, bool fixed);
    void setZNearAndFarViaBoundingBox(const Math::NBoundingBox<float, 3>& box);

    Math::Point<float, 3> eye() { return mCamera->eye(); }
    Eigen::Vector3f rightDirection() { return mCamera->rightDirection(); }
    Eigen::Vector3f upDirection() { return mCamera->upDirection(); }
    Eigen::Vector3f viewDirection() { return mCamera->viewDirection(); }
    const Eigen::Matrix4f& viewMatrix() const { return mCamera->viewMatrix(); }
    const Eigen::Matrix4f& projectionMatrix() const { return mCamera->projectionMatrix(); }
    Eigen::Matrix4f modelViewProjectionMatrix();
    bool isOrthographic() const { return mCamera->isOrthographic(); }
    bool isPerspective() const { return mCamera->isPerspective(); }
    void getZRange(float& zNear, float& zFar) const;
    /// Handed to the scene as its matrix.
    void setModelMatrix(const Eigen::Matrix4f& modelMatrix);
    /// When on, near and far follow the scene's world bounding box and Renderable::addZRangeNeeds() at every
    /// camera change and every frame (Camera::fitZRange()); so switch it on before placing the camera, or the
    /// points beyond the old far plane are loaded a frame late.
    void setAutoAdjustZRange(bool autoAdjustZRange);
    bool autoAdjustZRangeEnabled() const { return mAutoAdjustZRange; }

    /// Draws one frame and clears the camera's redraw flag.
    void render();
    /// Bytes of points that a frame sends to the GPU at most, all point clouds together: 40'000'000 unless
    /// set, about 4 ms of a bus of 10 GB/s. What is left follows in the next frames, coarsest nodes first,
    /// and needsRedraw() asks for those. A node of more bytes goes by itself, so 0 makes one node a frame;
    /// the largest size_t is no limit. Without limit too: writePngImage(), writePoints(), and the points of a
    /// cloud that the host has waited for (PointCloudRenderable::reloadPoints(), waitUntilLoaded()).
    void setUploadBytesPerFrame(size_t bytes) { mUploadBytesPerFrame = bytes; }
    size_t uploadBytesPerFrame() const { return mUploadBytesPerFrame; }
    /// The camera's redraw flag, a change of the camera that was not drawn yet, or the scene's flag. A frame
    /// clears all of them, also those of hidden renderables.
    bool needsRedraw() const;
    /// The scene's bounds in world coordinates; empty without a scene.
    Math::NBoundingBox<float, 3> boundingBox();

    void setRenderMode(RenderMode renderMode);
    RenderMode renderMode() const { return mRenderMode; }
    void setColorMap(ColorMap colorMap);
    ColorMap colorMap() const { return mColorMap; }
    /// Distances that map to the two ends of the colour map.
    void setColorMapRange(float minDistance, float maxDistance);
    float minDistance() const { return mMinDistance; }
    float maxDistance() const { return mMaxDistance; }
    /// The tolerance within which a distance passes, in the units of the data.
    void setPassFailDistanceRange(float minDistance, float maxDistance);
    float minDistancePassFail() const { return mMinDistancePassFail; }
    float maxDistancePassFail() const { return mMaxDistancePassFail; }
    /// The narrower tolerance within which a distance passes without warning.
    void setWarnDistanceRange(float minDistance, float maxDistance);
    float minDistanceWarn() const { return mMinDistanceWarn; }
    float maxDistanceWarn() const { return mMaxDistanceWarn; }
    void setUseSignedDistance(bool useSignedDistance);
    bool useSignedDistance() const { return mUseSignedDistance; }
    void setPlaneForDistanceColorization(const Math::NPlane<float, 3>& plane);
    /// Shared with the scene; another pointer counts as another mesh, whatever its contents. May be null.
    void setMeshForDistanceColorization(std::shared_ptr<Math::TriangleMesh<float>> mesh);
    bool hasMeshForDistanceColorization() const { return mMeshForDistanceColorization != nullptr; }
    void setTomographicColor(Math::Color color);
    const Math::Color& tomographicColor() const { return mTomographicColor; }
    void setUseCloudColorsInTomographicRenderModes(bool useCloudColors);
    bool useCloudColorsInTomographicRenderModes() const { return mUseCloudColorsInTomographicRenderModes; }
    /// Brightness and contrast act in RenderMode::Default only.
    void setBrightness(float brightness);
    float brightness() const { return mPostProcess.brightness(); }
    void setContrast(float contrast);
    float contrast() const { return mPostProcess.contrast(); }
    void setOpacity(float opacity);
    float opacity() const { return mPostProcess.opacity(); }
    /// A linear ramp from one point to another: sets the colorization plane through `from`, perpendicular to
    /// the way to `to`, and the colour-map range from 0 to their distance. The colour map itself is not
    /// changed; the third argument is ignored.
    void setColorizationRange(const Math::Point<float, 3>& from, const Math::Point<float, 3>& to, ColorMap);
    /// Takes over the scene's proposal; nothing happens without a scene.
    void autoAdjustBrightnessAndContrast(float lower, float upper);

    // Picking looks at the last render(), in pixels from the top left corner; nothing is drawn again. Points
    // are in world coordinates. All return false where there is nothing to pick, outside the picture as well.

    /// The point under a pixel. Zero, and false, where nothing was drawn; outside the picture `point` is left
    /// alone.
    bool pickPoint(size_t x, size_t y, Math::Point<float, 3>& point);
    /// The point nearest to the eye among the pixels from x - tolerance to x + tolerance - 1, y likewise; so
    /// a tolerance of 0 finds nothing.
    bool pickClosestPointWithTolerance(size_t x, size_t y, size_t tolerance, Math::Point<float, 3>& point);
    /// The same and its distance to the mesh for distance colorization, signed if useSignedDistance():
    /// negative behind the nearest triangle. False without a mesh or with an empty one.
    bool pickPointWithDistanceToColorizationMesh(size_t x, size_t y, size_t tolerance,
                                                 Math::Point<float, 3>& point, float& distance);
    /// The same with the plane for distance colorization, in units of its normal. False without a mesh, too:
    /// a distance is only measured while one is set.
    bool pickPointWithDistanceToColorizationPlane(size_t x, size_t y, size_t tolerance,
                                                  Math::Point<float, 3>& point, float& distance);
    /// The plane of least squares through those points around the pixel that lie closer than maxDistance to a
    /// common plane; its unit normal points towards the eye. `point` is where the line of sight through the
    /// pixel meets it. False with fewer than three points, or when the line of sight misses the plane, which
    /// is set even then. The line of sight begins at the eye in an orthographic view too, where the pixel's
    /// own line is another: there, use the plane alone.
    bool pickPlane(size_t x, size_t y, size_t tolerance, Math::NPlane<float, 3>& plane,
                   Math::Point<float, 3>& point, double maxDistance);

    Math::Point<float, 3> unProject(size_t x, size_t y, float depth);
    Math::Point<float, 3> project(const Math::Point<float, 3>& point);

    /// The picture of the last render() where it is, on the GPU: DXGI_FORMAT_B8G8R8A8_UNORM, of the
    /// viewport's size, bindable as shader resource. What a host that presents copies or samples, on this
    /// renderer's device and context. Lent, not given, and another one after setViewport(). A host that draws
    /// with the context unbinds its shaders and sets its blend state back before the next render().
    ID3D11Texture2D* outputTexture() const;
    /// The picture of the last render(), with the row pitch that the device chose (ColorImage::stride()).
    /// Throws std::runtime_error "image size does not match" when the image does not take that layout.
    void getColorImage(Graphics::ColorImage& image);
    /// The depth buffer of the last render(), likewise.
    void getDepthImage(Graphics::DepthImage& image);
    /// Renders, then writes the picture.
    void writePngImage(const std::filesystem::path& path);

    /// The drawn pixels of the last render() as points in world coordinates with the colours of the picture,
    /// row by row: the next maxCount of them, fewer at the end, then none. Copies two whole targets at every
    /// call. render(), resetPointChunkPosition() and getPoints() begin anew.
    size_t getNextPointChunk(VertexPosColor* buffer, size_t maxCount);
    /// The same as three doubles a point and one int: red in the lowest byte, then green and blue.
    size_t getNextPointChunk(double* xyz, int* rgb, size_t maxCount);
    void resetPointChunkPosition();
    /// All of them at once.
    void getPoints(std::vector<VertexPosColor>& points);
    /// Renders, then writes all points as text: a line of titles, then "X Y Z Red Green Blue Alpha" with
    /// seven significant digits, a decimal point whatever the locale, and colours from 0 to 255. That writing
    /// failed is not reported.
    void writePoints(const std::filesystem::path& path);

private:
    void createDevice();
    void createTargets(unsigned width, unsigned height);
    RenderPass createScenePass(unsigned width, unsigned height) const;
    RenderPass createOutputPass(unsigned width, unsigned height) const;
    void createStates();
    bool hasTargetsOf(size_t width, size_t height) const;
    void resize(size_t width, size_t height);
    Math::Color frameBackground();
    void drawScene();
    void drawPostProcess();
    template <class Change>
    void changeView(Change change);
    template <class Change>
    void changeProjection(Change change, bool followedByZRange = true);
    void tellView();
    void tellProjection();
    void tellZRange();
    void renderFrame(size_t uploadBytes);
    bool isCameraTold() const;
    void tellCamera();
    template <class Notify>
    void settingChanged(Notify notify);
    bool fitZRangeIfNeeded();
    void updateZRangeIfNeeded();
    template <class Look>
    auto lookAtPositions(Look look);
    template <class Write>
    size_t nextPoints(size_t maxCount, Write write);
    template <class Image>
    void readBack(Texture2d& staging, const Texture2d& source, Image& image);

    std::unique_ptr<ShaderWarmUp> mShaderWarmUp;
    std::shared_ptr<Camera> mCamera;
    std::shared_ptr<Renderable> mScene;
    Math::Color mBackgroundColor;
    Math::StoredMatrix4f mModelMatrix;
    ATL::CComPtr<ID3D11Device> mDevice;
    ATL::CComPtr<ID3D11DeviceContext> mDeviceContext;
    DepthStencilState mDepthWriteState;
    DepthStencilState mDepthReadOnlyState;
    BlendState mAlphaBlendState;
    BlendState mOpaqueBlendState;
    RasterizerState mRasterizerState;
    RenderPass mScenePass;
    RenderPass mOutputPass;
    Texture2d mColorStaging;
    Texture2d mDepthStaging;
    Texture2d mWorldPositionStaging;
    Texture2d mExactWorldPositionStaging;
    PostProcess mPostProcess;
    bool mAutoAdjustZRange;
    std::shared_ptr<UploadAllowance> mUploadAllowance;
    size_t mUploadBytesPerFrame = 40'000'000;
    size_t mChunkColumn = 0;  ///< Where the next point chunk begins.
    size_t mChunkRow = 0;
    /// What the scene was told of the camera last.
    Math::StoredMatrix4f mToldView = Math::StoredMatrix4f::Identity();
    Math::StoredMatrix4f mToldProjection = Math::StoredMatrix4f::Identity();

    RenderMode mRenderMode = RenderMode::Default;
    ColorMap mColorMap = static_cast<ColorMap>(0);
    std::shared_ptr<Math::TriangleMesh<float>> mMeshForDistanceColorization;
    Math::NPlane<float, 3> mPlaneForDistanceColorization;
    float mMinDistance = 0.0f;
    float mMaxDistance = 1.0f;
    float mMinDistancePassFail = -0.5f;
    float mMaxDistancePassFail = 0.5f;
    float mMinDistanceWarn = -0.25f;
    float mMaxDistanceWarn = 0.25f;
    bool mUseSignedDistance = true;
    Math::Color mTomographicColor = Math::Color::black(255);
    bool mUseCloudColorsInTomographicRenderModes = false;
};

}  // namespace Render
