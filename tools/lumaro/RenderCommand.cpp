#include <graphics/ColorImage.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/core/Renderer.h>
#include <tools/lumaro/CloudScene.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/StoreInfo.h>
#include <tools/lumaro/ViewFit.h>

#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <optional>
#include <utility>
#include <vector>

namespace Tool {

namespace {

using Place = Math::Point<double, 3>;
using Cloud = CloudScene::Cloud;

struct Mode {
    const char* name;
    Render::RenderMode mode;
};
constexpr std::array<Mode, 7> MODES{{{"default", Render::RenderMode::Default},
                                     {"intensity", Render::RenderMode::Intensity},
                                     {"normal", Render::RenderMode::Normal},
                                     {"uniform", Render::RenderMode::UniformColor},
                                     {"height", Render::RenderMode::PlaneDistance},
                                     {"tomographic-dark", Render::RenderMode::TomographicDark},
                                     {"tomographic-bright", Render::RenderMode::TomographicBright}}};

struct Options {
    std::vector<std::string> stores;
    std::string output;
    PictureSize size{1280, 720};
    Math::Color background = Math::Color::white();
    std::optional<Place> eye;
    std::optional<Place> target;
    Place up{0.0, 0.0, 1.0};
    double fovDegrees = 45.0;
    std::optional<double> orthoHeight;
    bool fitOrtho = false;
    size_t budget = 10'000'000;
    size_t maxLevel = 21;
    std::optional<Render::RenderMode> mode;
    double pointSize = 5.0;
};

Render::RenderMode parseMode(const std::string& text) {
    std::string known;
    for (const Mode& mode : MODES) {
        if (text == mode.name) {
            return mode.mode;
        }
        known += known.empty() ? mode.name : std::string(", ") + mode.name;
    }
    throw UsageError("'" + text + "' is not one of " + known);
}

std::vector<Cloud> openClouds(const Options& options) {
    std::vector<Cloud> clouds;
    for (const std::string& store : options.stores) {
        const Octree::Location location{PoTree::FileSystemLocation(pathFromUtf8(store))};
        if (!location.exists()) {
            throw std::runtime_error("there is no point cloud store in " + store);
        }
        clouds.push_back(Render::PointCloudRenderable::create(location, store, options.budget, 1.0));
        clouds.back()->setMaxPointSize(static_cast<float>(options.pointSize));
    }
    return clouds;
}

Place normalized(const Place& v) {
    return v / v.length();
}

/// Unit up direction perpendicular to the view, near to the one that was asked for.
Place uprightFor(const Place& forward, const Place& up) {
    Place right = forward.cross(up);
    if (right.length() < 1e-9 * up.length()) {
        right = forward.cross(std::abs(forward.y()) < 0.9 ? Place(0.0, 1.0, 0.0) : Place(0.0, 0.0, 1.0));
    }
    return normalized(normalized(right).cross(forward));
}

/// Looks from the eye that was given, or from a distance that shows everything, in the scene's coordinates.
void placeCamera(Render::Renderer& renderer, const Options& options, const Place& origin) {
    Math::NBoundingBox<double, 3> box;
    const Math::NBoundingBox<float, 3> sceneBox = renderer.boundingBox();
    box.min = sceneBox.isEmpty() ? Place() : sceneBox.min.cast<double>();
    box.max = sceneBox.isEmpty() ? Place() : sceneBox.max.cast<double>();

    const double aspect = static_cast<double>(options.size.width) / static_cast<double>(options.size.height);
    const double tanHalfFov = std::tan(options.fovDegrees * std::numbers::pi / 360.0);
    const Place target = options.target ? *options.target - origin : box.center();
    Place forward = normalized(Place(-1.0, -1.0, -0.8));
    if (options.eye) {
        const Place line = target - (*options.eye - origin);
        if (line.length() > 0.0) {
            forward = normalized(line);
        }
    }
    const Place upright = uprightFor(forward, options.up);
    const bool orthographic = options.orthoHeight || options.fitOrtho;
    const Place eye = options.eye    ? *options.eye - origin
                      : orthographic ? target - forward * std::max(box.size().length(), 1.0)
                                     : fittedEye(box, forward, upright, tanHalfFov, aspect);
    renderer.setAutoAdjustZRange(true);  // First, so that the walk's frustum follows the camera.
    renderer.setCameraPose(eye.cast<float>(), forward.cast<float>().vector(), upright.cast<float>().vector());
    if (orthographic) {
        const double height = options.orthoHeight.value_or(fittedHeight(box, forward, upright, aspect));
        renderer.setOrthographic(static_cast<float>(height), -1.0f, 1.0f);
    } else {
        renderer.setPerspective(static_cast<float>(options.fovDegrees), 0.01f, 1000.0f, 0.0f, 0.0f);
    }
}

/// Points without colours are white: their heights say more.
Render::RenderMode modeFor(const std::vector<std::string>& stores) {
    const bool colored = std::any_of(stores.begin(), stores.end(), [](const std::string& store) {
        return hasColors(PoTree::FileSystemLocation(pathFromUtf8(store)));
    });
    return colored ? Render::RenderMode::Default : Render::RenderMode::PlaneDistance;
}

void colorize(Render::Renderer& renderer, const Options& options) {
    const Render::RenderMode mode = options.mode.value_or(modeFor(options.stores));
    renderer.setBackgroundColor(options.background);
    renderer.setRenderMode(mode);
    const Math::NBoundingBox<float, 3> box = renderer.boundingBox();
    if (mode == Render::RenderMode::PlaneDistance && !box.isEmpty()) {
        const float height = box.max.z() - box.min.z();
        // A hair more on both sides, so that rounding does not drop the lowest and the highest points.
        const float margin = std::max(height * 1e-4f, 1e-6f);
        renderer.setColorizationRange(Math::Point<float, 3>(0.0f, 0.0f, box.min.z() - margin),
                                      Math::Point<float, 3>(0.0f, 0.0f, box.max.z() + margin),
                                      renderer.colorMap());
    }
}

size_t pointsShown(const std::vector<Cloud>& clouds) {
    size_t points = 0;
    for (const Cloud& cloud : clouds) {
        points += cloud->numVisiblePoints();
    }
    return points;
}

/// Walks each cloud to its end. The clouds share one budget, so what a later one pushed out of an earlier one
/// is settled by a second round.
bool loadAll(const std::vector<Cloud>& clouds, size_t maxLevel, const std::stop_token& stop,
             Progress& progress) {
    const std::function<void()> report = [&] {
        progress.show("loading, " + grouped(pointsShown(clouds)) + " points");
    };
    for (size_t round = 0; round < (clouds.size() > 1 ? 2U : 1U); ++round) {
        for (const Cloud& cloud : clouds) {
            cloud->setUpdateInterval(std::chrono::milliseconds(250));
            cloud->reloadPoints(report, maxLevel, stop);
            if (stop.stop_requested()) {
                return false;
            }
        }
    }
    return true;
}

bool renderStores(const Options& options, const std::stop_token& stop) {
    const std::filesystem::path output = pathFromUtf8(options.output);
    if (output.has_parent_path() && !std::filesystem::is_directory(output.parent_path())) {
        throw std::runtime_error("there is no folder " + utf8FromPath(output.parent_path()));
    }
    const std::vector<Cloud> clouds = openClouds(options);
    Render::Renderer renderer(true);
    renderer.setViewport(options.size.width, options.size.height);
    if (clouds.size() == 1) {
        renderer.setScene(clouds.front());
    } else {
        renderer.setScene(std::make_shared<CloudScene>(clouds));
    }
    colorize(renderer, options);
    placeCamera(renderer, options, clouds.front()->referencePosition());

    Progress progress;
    if (!loadAll(clouds, options.maxLevel, stop, progress)) {
        return false;
    }
    progress.show("drawing");
    renderer.render();
    Graphics::ColorImage image;
    renderer.getColorImage(image);
    image.writePng(output);
    progress.finish(grouped(pointsShown(clouds)) + " points drawn to " + options.output);
    return true;
}

void addCameraOptions(CLI::App& command, Options& options) {
    CLI::Option* const eye =
        addParsed(command, "--eye", options.eye, parsePoint, "X,Y,Z",
                  "Where the camera stands, in absolute coordinates (default: where all is seen)");
    addParsed(command, "--target", options.target, parsePoint, "X,Y,Z",
              "What it looks at, in absolute coordinates (default: the middle)")
        ->needs(eye);
    addParsed(
        command, "--up", options.up,
        [](const std::string& text) {
            const Place up = parsePoint(text);
            if (up.length() == 0.0) {
                throw UsageError("'" + text + "' has no direction");
            }
            return up;
        },
        "X,Y,Z", "What is up in the picture (default 0,0,1)");
    addParsed(
        command, "--fov", options.fovDegrees,
        [](const std::string& text) { return parseNumber(text, 0.1, 170.0); }, "DEG",
        "Vertical field of view in degrees (default 45)");
    addParsed(
        command, "--ortho", options.orthoHeight,
        [&options](const std::string& text) -> std::optional<double> {
            options.fitOrtho = text == "fit";
            return options.fitOrtho ? std::nullopt : std::optional(parseNumber(text, 1e-6, 1e9));
        },
        "HEIGHT", "Orthographic picture of that height in the store's units, or 'fit' to show all")
        ->excludes("--fov");
}

}  // namespace

void addRenderCommand(CLI::App& app, Job& job) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(
        "render", "Draw one or more stores as a PNG file, with every node loaded that the view asks for.");
    command->add_option("stores", options->stores, "Folders of the stores")->required()->type_name("STORE");
    command->add_option("-o,--output", options->output, "File to write")->required()->type_name("FILE");
    addParsed(*command, "--size", options->size, parseSize, "WxH",
              "Picture size in pixels (default 1280x720)");
    addParsed(*command, "--background", options->background, parseColor, "RRGGBB",
              "Background colour (default FFFFFF)");
    addCameraOptions(*command, *options);
    addParsed(*command, "--mode", options->mode, parseMode, "MODE",
              "What decides the colours: default, intensity, normal, uniform, height, tomographic-dark or "
              "tomographic-bright (default: default, and height for stores without colours)");
    addParsed(
        *command, "--point-size", options->pointSize,
        [](const std::string& text) { return parseNumber(text, 1.0, 100.0); }, "PIXELS",
        "Largest width of a point (default 5); near a finer level points shrink to fit");
    addParsed(
        *command, "--budget", options->budget,
        [](const std::string& text) { return static_cast<size_t>(parseCount(text, 1, 1'000'000'000)); }, "N",
        "Most points in the picture, all stores together (default 10000000)");
    addParsed(
        *command, "--max-level", options->maxLevel,
        [](const std::string& text) { return static_cast<size_t>(parseCount(text, 0, 21)); }, "N",
        "Deepest octree level to load (default: all)");
    command->callback([options, &job] {
        job = [options](const std::stop_token& stop) { return renderStores(*options, stop); };
    });
}

}  // namespace Tool
