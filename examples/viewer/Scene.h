#pragma once

#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>
#include <render/renderables/GroupRenderable.h>
#include <render/renderables/MeshRenderable.h>
#include <render/renderables/PanoRenderable.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What the viewer shows: any number of stores, meshes and panoramas in one group. Everything loads in the
/// background except meshes.
class Scene {
public:
    explicit Scene(Render::Renderer& renderer);

    /// Adds a store (a folder or its metadata.json or ept.json), an .obj or an equirectangular .png or .jpg.
    /// Throws, and adds nothing, when it cannot be opened.
    void open(const std::filesystem::path& path);

    /// In absolute coordinates, which have more digits than a float.
    Math::Point<double, 3> absolute(const Math::Point<float, 3>& point) const;

    void changePointSize(float factor);
    void toggleBoxes();
    /// Keeps the middle half of the scene along each axis, or all of it again.
    void toggleClipping();

    size_t points() const;
    size_t nodes() const;
    bool isLoading() const;
    /// Of all stores together.
    Render::LoadingProgress loadingProgress() const;
    /// What went wrong while loading, once.
    std::optional<std::string> takeError();

private:
    void openCloud(const std::filesystem::path& path);
    void openMesh(const std::filesystem::path& path);
    void openPanorama(const std::filesystem::path& path);
    void clip();

    Render::Renderer& mRenderer;
    std::shared_ptr<Render::GroupRenderable> mGroup = Render::GroupRenderable::create("scene");
    std::vector<std::shared_ptr<Render::PointCloudRenderable>> mClouds;
    std::vector<std::shared_ptr<Render::MeshRenderable>> mMeshes;
    std::vector<std::shared_ptr<Render::PanoRenderable>> mPanoramas;
    std::optional<Math::Point<double, 3>> mOrigin;  ///< Of the first thing opened.
    float mPointSize = 5.0f;
    bool mBoxes = false;
    bool mClipped = false;
    bool mErrorTaken = false;
};
