#pragma once

#include <render/core/Renderable.h>

#include <vector>

namespace Render {

/// Several renderables that a renderer treats as one: drawn in order, moved by the group's matrix on top of
/// their own.
///
/// The group shares its children and is their parent, until they leave or the group is destroyed. What the
/// renderer tells it goes to all of them, visible or not; invisible ones are only not drawn. Everything runs
/// on the rendering thread. What a child throws passes through, and the children after it are not reached.
///
/// A copy shares the children, whose parent stays the original; moving copies. What an assignment drops from
/// the list loses its parent.
class LUMARO_API GroupRenderable : public Renderable, public std::enable_shared_from_this<GroupRenderable> {
    struct Private {
        explicit Private() = default;
    };

public:
    using Children = std::vector<std::shared_ptr<Renderable>>;
    using iterator = Children::iterator;
    using const_iterator = Children::const_iterator;

    static std::shared_ptr<GroupRenderable> create(std::string name);
    GroupRenderable(Private, const std::string& name);
    GroupRenderable(const GroupRenderable& other);
    GroupRenderable& operator=(const GroupRenderable& other);
    ~GroupRenderable() override;

    /// Puts the child, which must not be null, at the end and becomes its parent. While the group belongs to
    /// a renderer the child is initialised at once and told render mode, mesh, colour map, signed-distance
    /// flag, colour-map range and plane; it hears of the other settings when they next change. A child whose
    /// init() throws stays in the group; remove() it. The second form names it first.
    void add(std::shared_ptr<Renderable> child);
    void add(const std::string& name, std::shared_ptr<Renderable> child);

    /// The first child of that name, or null.
    std::shared_ptr<Renderable> findByName(const std::string& name);

    // A child that leaves is de-initialised if the group is initialised, and loses its parent. One that was
    // added twice leaves with its last entry.

    /// Removes every child of that name. Each gap is filled with the last child that stays, so the order may
    /// change.
    void removeByName(const std::string& name);
    void remove(const_iterator position);
    /// All entries of that child. False, and nothing happens, when there is none.
    bool remove(std::shared_ptr<Renderable> child);
    void removeAll();

    iterator begin() { return mChildren.begin(); }
    iterator end() { return mChildren.end(); }
    const_iterator begin() const { return mChildren.begin(); }
    const_iterator end() const { return mChildren.end(); }
    /// The last child; there must be one.
    std::shared_ptr<Renderable>& back() { return mChildren.back(); }
    const std::shared_ptr<Renderable>& back() const { return mChildren.back(); }
    std::size_t size() const { return mChildren.size(); }
    bool empty() const { return mChildren.empty(); }

    void init(std::size_t rendererId, std::shared_ptr<Camera> camera, ATL::CComPtr<ID3D11Device> device,
              ATL::CComPtr<ID3D11DeviceContext> deviceContext) override;
    void deinit() override;
    /// Draws the visible children in order. The invisible ones ask for no further frame until they change
    /// again.
    void render() override;
    void skipRender() override;
    /// What the visible children need.
    void addZRangeNeeds(const Camera& camera, ZRangeNeeds& needs) override;

    void onUpdateProjectionMatrix(const std::shared_ptr<Camera>& camera) override;
    void onUpdateViewMatrix(const std::shared_ptr<Camera>& camera) override;
    void onUpdateZRange(const std::shared_ptr<Camera>& camera) override;
    void onUpdateViewport(const std::shared_ptr<Camera>& camera) override;

    // These reach the children at every call.
    void onUpdateRenderMode(RenderMode renderMode) override;
    void onUpdateTomographicColor(const Math::Color& color) override;
    void onUpdateUseCloudColorsInTomographicRenderModes(bool useCloudColors) override;
    void onUpdateMeshForDistanceColorization(const std::shared_ptr<Math::TriangleMesh<float>>& mesh) override;
    void onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) override;

    // These only when they change.
    void onUpdateColorMap(ColorMap colorMap) override;
    void onUpdateUseSignedDistance(bool useSignedDistance) override;
    void onUpdateColorMapRange(float minDistance, float maxDistance) override;
    void onUpdatePassFailDistanceRange(float minDistance, float maxDistance) override;
    void onUpdateWarnDistanceRange(float minDistance, float maxDistance) override;

    /// That of the first child that has one.
    std::optional<Math::Color> backgroundColor() override;
    std::optional<Math::Color> backgroundColor() const;
    /// Whether any child is.
    bool isTransparent() const override;
    /// The mean of the children's proposals; without children nothing is written.
    void brightnessAndContrast(float lower, float upper, float& brightness, float& contrast) override;
    Math::NBoundingBox<float, 3> boundingBox() override;
    Math::NBoundingBox<float, 3> boundingBox() const;
    void invalidateWorldMatrix() override;
    bool needsRedraw() const override;
    void setSelected(bool selected) override;

private:
    struct Range {
        float min;
        float max;
        bool operator==(const Range&) const = default;
    };

    /// As last forwarded.
    struct Settings {
        RenderMode renderMode = RenderMode::Default;
        std::shared_ptr<Math::TriangleMesh<float>> mesh;
        Math::NPlane<float, 3> plane;
        ColorMap colorMap = static_cast<ColorMap>(0);
        Range colorMapRange{0.0f, 1.0f};
        Range passFailRange{-0.5f, 0.5f};
        Range warnRange{-0.25f, 0.25f};
        bool useSignedDistance = true;
        Math::Color tomographicColor = Math::Color::black(255);
        bool useCloudColors = false;
    };

    bool isInitialized() const { return mCamera && mDevice && mDeviceContext; }
    void release(Renderable& child);
    void orphan(Renderable& child) const;
    template <class Tell>
    void tellAll(Tell tell) const;
    template <class Value, class Tell>
    void tellChange(Value& stored, const Value& value, Tell tell);

    std::size_t mRendererId = 0;
    std::shared_ptr<Camera> mCamera;
    ATL::CComPtr<ID3D11Device> mDevice;
    ATL::CComPtr<ID3D11DeviceContext> mDeviceContext;

    Settings mSettings;
    Children mChildren;
};

}  // namespace Render
