#pragma once

#include <graphics/PanoramaLoader.h>
#include <math/Point.h>
#include <octree/Octree.h>
#include <render/renderables/MeshLoader.h>

#include <filesystem>
#include <future>
#include <memory>
#include <stop_token>

/// What was in a file: one of these.
struct Opened {
    std::shared_ptr<Octree::Octree> store;
    std::shared_ptr<Render::MeshLoader> mesh;  ///< In memory, so that the render thread reads no file.
    std::shared_ptr<Graphics::PanoramaLoader> panorama;
};

/// Opens a file on a thread of its own, and stops when it is destroyed.
class Opening {
public:
    /// Meshes are read relative to `origin`.
    Opening(std::filesystem::path path, const Math::Point<double, 3>& origin);
    ~Opening();
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;

    const std::filesystem::path& path() const { return mPath; }
    bool hasEnded() const;
    /// Once, when it has ended. Throws what went wrong.
    Opened take() { return mOpened.get(); }

private:
    const std::filesystem::path mPath;
    std::stop_source mStop;
    std::future<Opened> mOpened;
};
