#include <graphics/ImagePanoramaLoader.h>
#include <octree/Octree.h>
#include <render/renderables/GroupRenderable.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/LoadingText.h>
#include <tools/lumaro/MemoryLimit.h>
#include <tools/lumaro/ObjMesh.h>
#include <tools/lumaro/Placement.h>
#include <tools/lumaro/SceneView.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>

namespace Tool {

namespace {

using Place = Math::Point<double, 3>;

std::shared_ptr<Render::MeshRenderable> meshOf(const Input& input, const Place& origin,
                                               const std::stop_token& stop) {
    // Relative to what comes to lie at the scene's origin, the vertices that matter keep their digits.
    const Place own = unplaced(input.placement, origin);
    const auto mesh = Render::MeshRenderable::create(
        Render::MeshLoader::fromObjFile(pathFromUtf8(input.path), own / input.unitScale, stop,
                                        meshMemoryLimit()),
        input.unitScale, input.path);
    mesh->setMatrix(sceneMatrix(input.placement, own, origin));
    return mesh;
}

/// A file, or the six cube faces in a folder.
std::vector<std::filesystem::path> imagesOf(const std::string& path) {
    const std::filesystem::path place = pathFromUtf8(path);
    if (!std::filesystem::is_directory(place)) {
        return {place};
    }
    std::vector<std::filesystem::path> faces = cubeFaces(place);
    if (faces.empty()) {
        throw std::runtime_error("the folder " + path + " does not hold the six faces of a cube");
    }
    return faces;
}

std::shared_ptr<Graphics::PanoramaLoader> loaderOf(const Input& input, const std::stop_token& stop) {
    Graphics::ImagePanoramaOptions options;
    options.memoryLimit = imageMemoryLimit();
    return std::make_shared<Graphics::ImagePanoramaLoader>(
        imagesOf(input.path),
        input.distances.empty() ? std::vector<std::filesystem::path>() : imagesOf(input.distances), options,
        stop);
}

std::shared_ptr<Render::PanoRenderable> panoramaOf(const Input& input, const Place& origin,
                                                   const std::stop_token& stop) {
    const auto panorama = Render::PanoRenderable::create(loaderOf(input, stop), input.path);
    panorama->setMatrix(sceneMatrix(input.placement, {0.0, 0.0, 0.0}, origin));
    return panorama;
}

}  // namespace

void addViewOptions(CLI::App& command, ViewOptions& options) {
    addInputOptions(command);
    addMemoryLimitOption(command);
    addCameraOptions(command, options.camera);
    addDisplayOptions(command, options.display);
    addParsed(
        command, "--budget", options.budget,
        [](const std::string& text) { return static_cast<size_t>(parseCount(text, 1, 1'000'000'000)); }, "N",
        "Most points in the picture, all stores together (default 10000000)");
    addParsed(
        command, "--max-level", options.maxLevel,
        [](const std::string& text) { return static_cast<size_t>(parseCount(text, 0, 21)); }, "N",
        "Deepest octree level to load (default: all)");
}

void completeViewOptions(const CLI::App& command, ViewOptions& options) {
    options.inputs = parsedInputs(command);
    checkDisplayOptions(options.display);
}

SceneView::Stores SceneView::openStores(const std::vector<Input>& inputs, const std::stop_token& stop) {
    Stores stores;
    for (const Input& input : inputs) {
        stores.push_back(nullptr);
        if (input.kind == InputKind::Store) {
            stores.back() = std::make_shared<Octree::Octree>(
                Octree::Location::fromPath(pathFromUtf8(input.path)), 1.0, stop, storeLimits());
        }
    }
    return stores;
}

/// Where the scene's coordinates begin: near its first store or else its first input, so that floats have
/// digits enough for what is there.
Place SceneView::originOf(const std::vector<Input>& inputs, const Stores& stores) {
    const auto store =
        std::find_if(stores.begin(), stores.end(), [](const auto& one) { return one != nullptr; });
    const Input& input = inputs[store != stores.end() ? static_cast<size_t>(store - stores.begin()) : 0];
    Place own(0.0, 0.0, 0.0);
    if (store != stores.end()) {
        own = (*store)->referencePosition();
    } else if (input.kind == InputKind::Mesh) {
        own = firstVertex(pathFromUtf8(input.path)) * input.unitScale;
    }
    return Math::transformPoint<double>(input.placement, own);
}

int SceneView::decimalsOf(const std::vector<Input>& inputs, const Stores& stores) {
    int decimals = 0;
    for (size_t i = 0; i < inputs.size(); ++i) {
        const auto grid = stores[i] ? stores[i]->positionGrid() : std::nullopt;
        const bool isOnGrid = grid && inputs[i].placement == Eigen::Matrix4d::Identity();
        decimals = std::max({decimals, grid ? grid->decimals() : 0, isOnGrid ? 0 : 4});
    }
    return decimals;
}

/// Unless there are stores and none has colours.
bool SceneView::wantsColors(const Stores& stores) {
    return std::any_of(stores.begin(), stores.end(),
                       [](const auto& store) { return store && store->hasColors(); }) ||
           std::all_of(stores.begin(), stores.end(), [](const auto& store) { return !store; });
}

SceneView::SceneView(const ViewOptions& options, const std::stop_token& stop)
    : SceneView(options, openStores(options.inputs, stop), stop) {}

SceneView::SceneView(const ViewOptions& options, const Stores& stores, const std::stop_token& stop)
    : mOptions(options),
      mOrigin(originOf(options.inputs, stores)),
      mDecimals(decimalsOf(options.inputs, stores)),
      mRenderer(true) {
    const auto scene = Render::GroupRenderable::create("scene");
    for (size_t i = 0; i < options.inputs.size(); ++i) {
        const Input& input = options.inputs[i];
        if (input.kind == InputKind::Store) {
            const Cloud cloud = Render::PointCloudRenderable::create(stores[i], input.path, options.budget);
            cloud->setMatrix(sceneMatrix(input.placement, cloud->referencePosition(), mOrigin));
            mClouds.push_back(cloud);
            scene->add(cloud);
        } else if (input.kind == InputKind::Mesh) {
            mMeshes.push_back(meshOf(input, mOrigin, stop));
            scene->add(mMeshes.back());
        } else {
            mPanoramas.push_back(panoramaOf(input, mOrigin, stop));
            scene->add(mPanoramas.back());
        }
    }
    if (!options.display.meshFile.empty()) {
        mMesh = readObjMesh(pathFromUtf8(options.display.meshFile), mOrigin, stop);
    }
    mRenderer.setViewport(options.camera.size.width, options.camera.size.height);
    mRenderer.setScene(scene);
    applyDisplay(mRenderer, mClouds, options.display, mOrigin, wantsColors(stores), mMesh);
    for (const auto& mesh : mMeshes) {
        mesh->setClippingVolume(clippingVolume(options.display, mOrigin));
    }
    placeCamera(mRenderer, options.camera, mOrigin);
}

bool SceneView::draw(const std::stop_token& stop, Progress& progress) {
    if (!load(stop, progress)) {
        return false;
    }
    progress.show("drawing");
    if (const auto& shares = mOptions.display.autoContrast) {
        mRenderer.autoAdjustBrightnessAndContrast(static_cast<float>(shares->first),
                                                  static_cast<float>(shares->second));
    }
    mRenderer.render();
    return !stop.stop_requested();
}

size_t SceneView::pointsShown() const {
    size_t points = 0;
    for (const Cloud& cloud : mClouds) {
        points += cloud->numVisiblePoints();
    }
    return points;
}

size_t SceneView::trianglesShown() const {
    size_t triangles = 0;
    for (const auto& mesh : mMeshes) {
        triangles += mesh->numTriangles();
    }
    return triangles;
}

bool SceneView::load(const std::stop_token& stop, Progress& progress) {
    for (const auto& panorama : mPanoramas) {
        progress.show("loading " + panorama->name());
        panorama->startAsyncPanoramaTilesLoading(nullptr);
        while (panorama->loadingState() == Core::JobState::Running) {
            if (stop.stop_requested()) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        if (!panorama->isLoadingComplete()) {
            throw std::runtime_error("the panorama " + panorama->name() + " could not be loaded");
        }
    }
    return loadClouds(stop, progress);
}

/// Walks each cloud to its end. The clouds share one budget, so what a later one pushed out of an earlier one
/// is settled by a second round.
bool SceneView::loadClouds(const std::stop_token& stop, Progress& progress) {
    for (size_t round = 0; round < (mClouds.size() > 1 ? 2U : 1U); ++round) {
        for (const Cloud& cloud : mClouds) {
            const auto report = [&] {
                progress.show((mClouds.size() > 1 ? cloud->name() + ": " : "") +
                              loadingText(cloud->loadingProgress()));
            };
            cloud->setUpdateInterval(std::chrono::milliseconds(250));
            cloud->reloadPoints(report, mOptions.maxLevel, stop);
            if (stop.stop_requested()) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace Tool
