#include <octree/potree/FileSystemLocation.h>
#include <render/renderables/GroupRenderable.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/ObjMesh.h>
#include <tools/lumaro/StoreInfo.h>
#include <tools/lumaro/StoreView.h>

#include <algorithm>
#include <memory>

namespace Tool {

namespace {

std::vector<Cloud> openClouds(const ViewOptions& options) {
    std::vector<Cloud> clouds;
    for (const std::string& store : options.stores) {
        const Octree::Location location{PoTree::FileSystemLocation(pathFromUtf8(store))};
        if (!location.exists()) {
            throw std::runtime_error("there is no point cloud store in " + store);
        }
        clouds.push_back(Render::PointCloudRenderable::create(location, store, options.budget, 1.0));
    }
    return clouds;
}

bool anyHasColors(const std::vector<std::string>& stores) {
    return std::any_of(stores.begin(), stores.end(), [](const std::string& store) {
        return hasColors(PoTree::FileSystemLocation(pathFromUtf8(store)));
    });
}

/// All of them in the coordinates of the first.
std::shared_ptr<Render::GroupRenderable> groupOf(const std::vector<Cloud>& clouds) {
    const auto group = Render::GroupRenderable::create("clouds");
    for (const Cloud& cloud : clouds) {
        const Math::Point<double, 3> shift = cloud->referencePosition() - clouds.front()->referencePosition();
        Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
        matrix.topRightCorner<3, 1>() = shift.cast<float>().vector();
        cloud->setMatrix(matrix);
        group->add(cloud);
    }
    return group;
}

}  // namespace

void addViewOptions(CLI::App& command, ViewOptions& options) {
    command.add_option("stores", options.stores, "Folders of the stores")->required()->type_name("STORE");
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

StoreView::StoreView(const ViewOptions& options)
    : mOptions(options),
      mClouds(openClouds(options)),
      mMesh(options.display.meshFile.empty() ? nullptr
                                             : readObjMesh(pathFromUtf8(options.display.meshFile), origin())),
      mRenderer(true) {
    mRenderer.setViewport(options.camera.size.width, options.camera.size.height);
    if (mClouds.size() == 1) {
        mRenderer.setScene(mClouds.front());
    } else {
        mRenderer.setScene(groupOf(mClouds));
    }
    applyDisplay(mRenderer, mClouds, options.display, origin(), anyHasColors(options.stores), mMesh);
    placeCamera(mRenderer, options.camera, origin());
}

bool StoreView::draw(const std::stop_token& stop, Progress& progress) {
    if (!load(stop, progress)) {
        return false;
    }
    progress.show("drawing");
    if (const auto& shares = mOptions.display.autoContrast) {
        mRenderer.autoAdjustBrightnessAndContrast(static_cast<float>(shares->first),
                                                  static_cast<float>(shares->second));
    }
    mRenderer.render();
    return true;
}

size_t StoreView::pointsShown() const {
    size_t points = 0;
    for (const Cloud& cloud : mClouds) {
        points += cloud->numVisiblePoints();
    }
    return points;
}

/// Walks each cloud to its end. The clouds share one budget, so what a later one pushed out of an earlier one
/// is settled by a second round.
bool StoreView::load(const std::stop_token& stop, Progress& progress) {
    const std::function<void()> report = [&] {
        progress.show("loading, " + grouped(pointsShown()) + " points");
    };
    for (size_t round = 0; round < (mClouds.size() > 1 ? 2U : 1U); ++round) {
        for (const Cloud& cloud : mClouds) {
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
