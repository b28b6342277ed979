#include <tools/lumaro/CameraOptions.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/ViewFit.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Tool {

namespace {

using Place = Math::Point<double, 3>;

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

}  // namespace

void placeCamera(Render::Renderer& renderer, const CameraOptions& options, const Place& origin) {
    Math::NBoundingBox<double, 3> box;
    const Math::NBoundingBox<float, 3> sceneBox = renderer.boundingBox();
    box.min = sceneBox.isEmpty() ? Place() : sceneBox.min.cast<double>();
    box.max = sceneBox.isEmpty() ? Place() : sceneBox.max.cast<double>();

    const double aspect = static_cast<double>(options.size.width) / static_cast<double>(options.size.height);
    const double tanHalfFov = std::tan(options.fovDegrees * std::numbers::pi / 360.0);
    const Place target = options.target ? *options.target - origin : box.center();
    // Without bounds there are only panoramas: one looks at their middle, from within.
    const bool inside = sceneBox.isEmpty();
    Place forward = inside ? Place(1.0, 0.0, 0.0) : normalized(Place(-1.0, -1.0, -0.8));
    if (options.eye) {
        const Place line = target - (*options.eye - origin);
        if (line.length() > 0.0) {
            forward = normalized(line);
        }
    }
    const Place upright = uprightFor(forward, options.up);
    const bool orthographic = options.orthoHeight || options.fitOrtho;
    const Place eye = options.eye    ? *options.eye - origin
                      : inside       ? Place()
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

void addCameraOptions(CLI::App& command, CameraOptions& options) {
    addParsed(command, "--size", options.size, parseSize, "WxH", "Picture size in pixels (default 1280x720)");
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

}  // namespace Tool
