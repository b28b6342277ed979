#include <tools/lumaro/Commands.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/NumberText.h>
#include <tools/lumaro/SceneView.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace Tool {

namespace {

using Place = Math::Point<double, 3>;
using Plane = Math::NPlane<double, 3>;

constexpr int LENGTH_DECIMALS = 4;  // at least, of what was computed and lies on no grid

struct Options {
    ViewOptions view;
    std::pair<size_t, size_t> pixel;
    std::optional<size_t> tolerance;
    std::optional<double> planeFit;
    bool json = false;
};

/// In absolute coordinates.
struct Picked {
    Place point;
    std::optional<double> planeDistance;
    std::optional<double> meshDistance;
    std::optional<Plane> plane;
    Place onPlane;
};

void fitPlane(SceneView& view, const Options& options, Picked& picked) {
    Math::NPlane<float, 3> plane;
    Math::Point<float, 3> point;
    if (!view.renderer().pickPlane(options.pixel.first, options.pixel.second, *options.tolerance, plane,
                                   point, *options.planeFit)) {
        throw std::runtime_error("there is no plane there");
    }
    const Place normal = plane.normal.cast<double>();
    picked.plane = Plane(normal, double{plane.offset} - normal.dot(view.origin()));
    picked.onPlane = view.absolute(point);
}

Picked pick(SceneView& view, const Options& options) {
    const auto [x, y] = options.pixel;
    Math::Point<float, 3> point;
    const bool found = options.tolerance
                           ? view.renderer().pickClosestPointWithTolerance(x, y, *options.tolerance, point)
                           : view.renderer().pickPoint(x, y, point);
    if (!found) {
        throw std::runtime_error("nothing is drawn there");
    }
    Picked picked;
    picked.point = view.absolute(point);
    const DisplayOptions& display = options.view.display;
    const auto signAsWanted = [&](double distance) {
        return display.unsignedDistance ? std::abs(distance) : distance;
    };
    if (display.plane) {
        picked.planeDistance = signAsWanted(display.plane->signedDistance(picked.point));
    }
    if (view.mesh()) {
        picked.meshDistance = signAsWanted(double{view.mesh()->signedDistance(point)});
    }
    if (options.planeFit) {
        fitPlane(view, options, picked);
    }
    return picked;
}

std::string textOf(const Picked& picked, int decimals) {
    const auto line = [](std::string title, const Place& place, int digits) {
        title.resize(15, ' ');
        return title + fixedText(place.x(), digits) + ' ' + fixedText(place.y(), digits) + ' ' +
               fixedText(place.z(), digits);
    };
    const int lengthDecimals = std::max(decimals, LENGTH_DECIMALS);
    std::string text = line("point", picked.point, decimals) + '\n';
    if (picked.planeDistance) {
        text += "plane distance " + fixedText(*picked.planeDistance, lengthDecimals) + '\n';
    }
    if (picked.meshDistance) {
        text += "mesh distance  " + fixedText(*picked.meshDistance, lengthDecimals) + '\n';
    }
    if (picked.plane) {
        // Of the normal, more digits count: it is multiplied by absolute coordinates.
        text += line("plane", picked.plane->normal, 12) + ' ' +
                fixedText(picked.plane->offset, lengthDecimals) + '\n' +
                line("on plane", picked.onPlane, lengthDecimals) + '\n';
    }
    return text;
}

std::string jsonOf(const Picked& picked, int decimals) {
    const auto numbers = [](const Place& place) {
        return nlohmann::ordered_json{place.x(), place.y(), place.z()};
    };
    const auto coordinates = [&](const Place& place, int digits) {
        return numbers({rounded(place.x(), digits), rounded(place.y(), digits), rounded(place.z(), digits)});
    };
    const int lengthDecimals = std::max(decimals, LENGTH_DECIMALS);
    nlohmann::ordered_json json;
    json["point"] = coordinates(picked.point, decimals);
    if (picked.planeDistance) {
        json["planeDistance"] = rounded(*picked.planeDistance, lengthDecimals);
    }
    if (picked.meshDistance) {
        json["meshDistance"] = rounded(*picked.meshDistance, lengthDecimals);
    }
    if (picked.plane) {
        json["plane"]["normal"] = numbers(picked.plane->normal);
        json["plane"]["offset"] = picked.plane->offset;
        json["onPlane"] = coordinates(picked.onPlane, lengthDecimals);
    }
    return json.dump(2) + "\n";
}

bool pickAndPrint(const Options& options, const std::stop_token& stop) {
    Picked picked;
    int decimals = 0;
    {
        Progress progress;
        SceneView view(options.view, stop);
        if (!view.draw(stop, progress)) {
            return false;
        }
        picked = pick(view, options);
        decimals = view.decimals();
    }
    writeOutput(options.json ? jsonOf(picked, decimals) : textOf(picked, decimals));
    return true;
}

void check(const Options& options) {
    const PictureSize& size = options.view.camera.size;
    if (options.pixel.first >= size.width || options.pixel.second >= size.height) {
        throw CLI::ValidationError("--at", "the pixel is not in the picture, which has " +
                                               std::to_string(size.width) + "x" +
                                               std::to_string(size.height));
    }
}

}  // namespace

void addPickCommand(CLI::App& app, Job& job) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(
        "pick",
        "Draw the same picture as render without writing it, then print what is under one of its pixels, in "
        "absolute coordinates.");
    addViewOptions(*command, options->view);
    addParsed(*command, "--at", options->pixel, parsePixel, "X,Y", "Pixel, from the top left corner")
        ->required();
    CLI::Option* const tolerance = addParsed(
        *command, "--tolerance", options->tolerance,
        [](const std::string& text) { return static_cast<size_t>(parseCount(text, 1, 1000)); }, "PIXELS",
        "Take the nearest point around the pixel, up to so far away (default: the pixel alone)");
    addParsed(
        *command, "--plane-fit", options->planeFit,
        [](const std::string& text) { return parseNumber(text, 1e-9, 1e9); }, "D",
        "Also fit a plane to the points around the pixel that lie within this distance of it, and print its "
        "normal, its offset and where the line of sight meets it")
        ->needs(tolerance);
    command->add_flag("--json", options->json, "Print one JSON object instead of text");
    command->callback([options, command, &job] {
        completeViewOptions(*command, options->view);
        check(*options);
        job = [options](const std::stop_token& stop) { return pickAndPrint(*options, stop); };
    });
}

}  // namespace Tool
