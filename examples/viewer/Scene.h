#pragma once

#include "Opening.h"

#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>
#include <render/renderables/GroupRenderable.h>
#include <render/renderables/MeshRenderable.h>
#include <render/renderables/PanoRenderable.h>

#include <cstddef>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What the viewer shows: any number of stores, meshes and panoramas in one group. Everything is opened, one
/// after the other, and loaded in the background.
class Scene {
public:
    explicit Scene(Render::Renderer& renderer);

    /// To be shown: a store (a folder, its metadata.json or ept.json, or a COPC file), an .obj or an
    /// equirectangular .png or .jpg.
    void open(const std::filesystem::path& path);
    /// To be called again and again. True when there is something new to see; throws when something could not
    /// be opened, which is left out.
    bool showOpened();
    /// The name of what is being opened.
    std::optional<std::string> opening() const;

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
    void add(const Opened& opened, const std::string& name);
    void addCloud(const std::shared_ptr<Octree::Octree>& octree, const std::string& name);
    void addMesh(const std::shared_ptr<Render::MeshLoader>& loader, const std::string& name);
    void addPanorama(const std::shared_ptr<Graphics::PanoramaLoader>& loader, const std::string& name);
    void clip();

    Render::Renderer& mRenderer;
    std::shared_ptr<Render::GroupRenderable> mGroup = Render::GroupRenderable::create("scene");
    std::vector<std::shared_ptr<Render::PointCloudRenderable>> mClouds;
    std::vector<std::shared_ptr<Render::MeshRenderable>> mMeshes;
    std::vector<std::shared_ptr<Render::PanoRenderable>> mPanoramas;
    std::optional<Math::Point<double, 3>> mOrigin;  ///< Of the first thing shown.
    std::deque<std::filesystem::path> mToOpen;
    std::unique_ptr<Opening> mOpening;
    float mPointSize = 5.0f;
    bool mBoxes = false;
    bool mClipped = false;
    bool mErrorTaken = false;
};
