#include <octree/Octree.h>
#include <octree/OctreeNodeId.h>
#include <octree/OpenStopped.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>
#include <render/renderables/Thumbnail.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <system_error>

namespace Render {

namespace {

constexpr size_t kPointBudget = 10000000;

// Looks at the box's centre from beyond its raised top corner.
void placeCamera(Renderer& renderer) {
    const Math::NBoundingBox<float, 3> box = renderer.boundingBox();
    const Math::Point<float, 3> center = box.center();
    const Eigen::Vector3f size = box.size().vector();
    Math::Point<float, 3> corner = box.max;
    corner.z() += 0.3f * size.maxCoeff();
    const Math::Point<float, 3> eye = corner + (corner - center) * 1.1f;
    renderer.setCameraPose(eye, center, Eigen::Vector3f::UnitZ());
    renderer.setPerspective(20.0f, 0.01f, 1000.0f, 0.0f, 0.0f);
    renderer.setZNearAndFarViaBoundingBox(box);
}

void removeExisting(const std::filesystem::path& file) {
    std::error_code error;
    const bool exists = std::filesystem::exists(file, error);
    if (error) {
        throw std::filesystem::filesystem_error("exists", file, error);
    }
    if (exists && (std::filesystem::remove(file, error), error)) {
        throw std::filesystem::filesystem_error("remove", file, error);
    }
}

}  // namespace

void createThumbnail(const Octree::Location& location, const std::filesystem::path& outputFile, size_t width,
                     size_t height, const Math::Color& backgroundColor, size_t maxLevel) {
    createThumbnail(location, outputFile, width, height, backgroundColor, maxLevel, nullptr, {});
}

bool createThumbnail(const Octree::Location& location, const std::filesystem::path& outputFile, size_t width,
                     size_t height, const Math::Color& backgroundColor, size_t maxLevel,
                     const std::function<void(const LoadingProgress&)>& onProgress, std::stop_token stop,
                     const Octree::Limits& limits) {
    if (!location.exists()) {
        throw std::invalid_argument("createThumbnail: locationPotree does not exist");
    }
    std::shared_ptr<Octree::Octree> octree;
    try {
        octree = std::make_shared<Octree::Octree>(location, 1.0, stop, limits);
    } catch (const Octree::OpenStopped&) {
        return false;
    }
    const auto cloud = PointCloudRenderable::create(octree, "", kPointBudget);
    Renderer renderer(true);
    renderer.setScene(cloud);
    renderer.setViewport(width, height);
    placeCamera(renderer);
    renderer.setBackgroundColor(backgroundColor);
    const auto tell = [&] {
        if (onProgress) {
            onProgress(cloud->loadingProgress());
        }
    };
    cloud->reloadPoints(
        tell, std::min(maxLevel, static_cast<size_t>(Octree::OctreeNodeId::MAX_REPRESENTABLE_LEVEL)), stop);
    if (stop.stop_requested()) {
        return false;
    }
    removeExisting(outputFile);
    renderer.render();
    Graphics::ColorImage image;
    renderer.getColorImage(image);
    image.writePng(outputFile);
    return true;
}

void createThumbnail(const std::filesystem::path& directory, size_t width, size_t height,
                     const Math::Color& backgroundColor, size_t maxLevel) {
    createThumbnail(Octree::Location(PoTree::FileSystemLocation(directory)), directory / "thumbnail.png",
                    width, height, backgroundColor, maxLevel);
}

}  // namespace Render
