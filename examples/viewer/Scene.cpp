#include "Scene.h"

#include <core/ExceptionChain.h>
#include <math/ConvexPolytope.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace {

constexpr size_t POINT_BUDGET = 3'000'000;
constexpr size_t DEEPEST_LEVEL = 21;

/// Six half-spaces around the middle half of a box.
std::vector<Math::HalfSpace<float, 3>> middleHalf(const Math::NBoundingBox<float, 3>& box) {
    std::vector<Math::HalfSpace<float, 3>> sides;
    for (int axis = 0; axis < 3; ++axis) {
        Math::Point<float, 3> normal;
        normal[axis] = 1.0f;
        const float quarter = 0.25f * box.size()[axis];
        sides.emplace_back(Math::NPlane<float, 3>(normal, -box.min[axis] - quarter));
        sides.emplace_back(Math::NPlane<float, 3>(-normal, box.max[axis] - quarter));
    }
    return sides;
}

std::string nameOf(const std::filesystem::path& path) {
    const std::u8string name = path.filename().u8string();
    return {name.begin(), name.end()};
}

}  // namespace

Scene::Scene(Render::Renderer& renderer) : mRenderer(renderer) {
    mRenderer.setScene(mGroup);
}

void Scene::open(const std::filesystem::path& path) {
    mToOpen.push_back(path);
}

bool Scene::showOpened() {
    const bool hasNews = mOpening && mOpening->hasEnded();
    if (hasNews) {
        const auto ended = std::move(mOpening);
        add(ended->take(), nameOf(ended->path()));
    }
    if (!mOpening && !mToOpen.empty()) {
        // Only now it is known where the scene's coordinates begin.
        mOpening =
            std::make_unique<Opening>(mToOpen.front(), mOrigin.value_or(Math::Point<double, 3>(0, 0, 0)));
        mToOpen.pop_front();
    }
    return hasNews;
}

std::optional<std::string> Scene::opening() const {
    return mOpening ? std::optional(nameOf(mOpening->path())) : std::nullopt;
}

void Scene::add(const Opened& opened, const std::string& name) {
    if (opened.store) {
        addCloud(opened.store, name);
    } else if (opened.mesh) {
        addMesh(opened.mesh, name);
    } else {
        addPanorama(opened.panorama, name);
    }
    if (mClipped) {
        clip();
    }
    mErrorTaken = false;
}

void Scene::addCloud(const std::shared_ptr<Octree::Octree>& octree, const std::string& name) {
    const auto cloud = Render::PointCloudRenderable::create(octree, name, POINT_BUDGET);
    const auto position = cloud->referencePosition();
    const auto shift = (position - mOrigin.value_or(position)).cast<float>();
    Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
    matrix.topRightCorner<3, 1>() = shift.vector();
    cloud->setMatrix(matrix);
    cloud->setMaxPointSize(mPointSize);
    cloud->setShowBoundingBoxes(mBoxes);
    mGroup->add(cloud);
    cloud->onUpdateTomographicColor(mRenderer.tomographicColor());  // Those who join late do not hear of it.
    cloud->startAsyncReload(nullptr, DEEPEST_LEVEL);
    mOrigin = mOrigin.value_or(position);
    mClouds.push_back(cloud);
}

void Scene::addMesh(const std::shared_ptr<Render::MeshLoader>& loader, const std::string& name) {
    const auto mesh = Render::MeshRenderable::create(loader, 1.0, name);
    try {
        mGroup->add(mesh);
    } catch (...) {
        mGroup->remove(mesh);
        throw;
    }
    mOrigin = mOrigin.value_or(Math::Point<double, 3>(0.0, 0.0, 0.0));
    mMeshes.push_back(mesh);
}

void Scene::addPanorama(const std::shared_ptr<Graphics::PanoramaLoader>& loader, const std::string& name) {
    const auto panorama = Render::PanoRenderable::create(loader, name);
    mGroup->add(panorama);
    panorama->startAsyncPanoramaTilesLoading(nullptr);
    mPanoramas.push_back(panorama);
}

Math::Point<double, 3> Scene::absolute(const Math::Point<float, 3>& point) const {
    return mOrigin.value_or(Math::Point<double, 3>(0.0, 0.0, 0.0)) + point.cast<double>();
}

void Scene::changePointSize(float factor) {
    mPointSize = std::clamp(mPointSize * factor, 1.0f, 100.0f);
    for (const auto& cloud : mClouds) {
        cloud->setMaxPointSize(mPointSize);
    }
}

void Scene::toggleBoxes() {
    mBoxes = !mBoxes;
    for (const auto& cloud : mClouds) {
        cloud->setShowBoundingBoxes(mBoxes);
    }
}

void Scene::toggleClipping() {
    mClipped = !mClipped;
    clip();
}

void Scene::clip() {
    std::vector<Math::HalfSpace<float, 3>> sides;
    if (mClipped && !mRenderer.boundingBox().isEmpty()) {
        sides = middleHalf(mRenderer.boundingBox());
    }
    for (const auto& cloud : mClouds) {
        cloud->setClippingVolume(sides);
    }
    for (const auto& mesh : mMeshes) {
        mesh->setClippingVolume(Math::ConvexPolytope<float, 3>(sides));
    }
}

size_t Scene::points() const {
    size_t sum = 0;
    for (const auto& cloud : mClouds) {
        sum += cloud->numVisiblePoints();
    }
    return sum;
}

size_t Scene::nodes() const {
    size_t sum = 0;
    for (const auto& cloud : mClouds) {
        sum += cloud->numVisibleOctreeNodes();
    }
    return sum;
}

Render::LoadingProgress Scene::loadingProgress() const {
    Render::LoadingProgress sum;
    for (const auto& cloud : mClouds) {
        sum += cloud->loadingProgress();
    }
    return sum;
}

bool Scene::isLoading() const {
    return std::any_of(mClouds.begin(), mClouds.end(),
                       [](const auto& cloud) { return cloud->isLoading(); }) ||
           std::any_of(mPanoramas.begin(), mPanoramas.end(), [](const auto& panorama) {
               return panorama->loadingState() == Core::JobState::Running;
           });
}

std::optional<std::string> Scene::takeError() {
    if (mErrorTaken) {
        return std::nullopt;
    }
    try {
        for (const auto& cloud : mClouds) {
            cloud->isAsyncReloadHealthy(true);
        }
        for (const auto& panorama : mPanoramas) {
            panorama->isLoadingHealthy(true);
        }
    } catch (const std::exception& error) {
        mErrorTaken = true;
        return Core::exceptionChain(error);
    }
    return std::nullopt;
}
