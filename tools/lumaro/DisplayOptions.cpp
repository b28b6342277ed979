#include <tools/lumaro/ColorMaps.h>
#include <tools/lumaro/Commands.h>
#include <tools/lumaro/DisplayOptions.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace Tool {

namespace {

using Box = Math::NBoundingBox<float, 3>;
using Plane = DisplayOptions::Plane;
using Place = DisplayOptions::Place;

constexpr size_t MOST_CLIPS = 8;

struct NamedMode {
    const char* name;
    PictureMode mode;
    Render::RenderMode renderMode;
};
constexpr std::array<NamedMode, 9> MODES{
    {{"default", PictureMode::Default, Render::RenderMode::Default},
     {"intensity", PictureMode::Intensity, Render::RenderMode::Intensity},
     {"normal", PictureMode::Normal, Render::RenderMode::Normal},
     {"uniform", PictureMode::Uniform, Render::RenderMode::UniformColor},
     {"height", PictureMode::Height, Render::RenderMode::PlaneDistance},
     {"plane-distance", PictureMode::PlaneDistance, Render::RenderMode::PlaneDistance},
     {"mesh-distance", PictureMode::MeshDistance, Render::RenderMode::MeshDistance},
     {"tomographic-dark", PictureMode::TomographicDark, Render::RenderMode::TomographicDark},
     {"tomographic-bright", PictureMode::TomographicBright, Render::RenderMode::TomographicBright}}};

Render::RenderMode renderModeOf(PictureMode mode) {
    return std::find_if(MODES.begin(), MODES.end(), [mode](const NamedMode& m) { return m.mode == mode; })
        ->renderMode;
}

PictureMode modeFor(const DisplayOptions& options, bool colored) {
    if (options.mode) {
        return *options.mode;
    }
    if (options.plane || options.ramp) {
        return PictureMode::PlaneDistance;
    }
    if (!options.meshFile.empty()) {
        return PictureMode::MeshDistance;
    }
    // Points without colours are white: their heights say more.
    return colored ? PictureMode::Default : PictureMode::Height;
}

Math::NPlane<float, 3> planeIn(const Plane& plane, const Place& origin) {
    return {plane.normal.cast<float>(), static_cast<float>(plane.offset + plane.normal.dot(origin))};
}

void setRange(Render::Renderer& renderer, double low, double high) {
    renderer.setColorMapRange(static_cast<float>(low), static_cast<float>(high));
}

/// From the nearest to the farthest corner of the scene.
void fitRange(Render::Renderer& renderer, const Math::NPlane<float, 3>& plane, bool isUnsigned) {
    const Box box = renderer.boundingBox();
    float low = std::numeric_limits<float>::max();
    float high = std::numeric_limits<float>::lowest();
    for (int i = 0; i < 8 && !box.isEmpty(); ++i) {
        const float distance = plane.signedDistance(box.corner(i));
        low = std::min(low, distance);
        high = std::max(high, distance);
    }
    if (low > high) {
        return;
    }
    if (isUnsigned) {
        const float farthest = std::max(std::abs(low), std::abs(high));
        low = low <= 0.0f && high >= 0.0f ? 0.0f : std::min(std::abs(low), std::abs(high));
        high = farthest;
    }
    const float margin = std::max((high - low) * 1e-4f, 1e-6f);
    renderer.setColorMapRange(low - margin, high + margin);
}

void applyHeight(Render::Renderer& renderer, bool hasRange) {
    const Box box = renderer.boundingBox();
    if (box.isEmpty()) {
        return;
    }
    const float height = box.max.z() - box.min.z();
    // A hair more on both sides, so that rounding does not drop the lowest and the highest points.
    const float margin = hasRange ? 0.0f : std::max(height * 1e-4f, 1e-6f);
    renderer.setColorizationRange(Math::Point<float, 3>(0.0f, 0.0f, box.min.z() - margin),
                                  Math::Point<float, 3>(0.0f, 0.0f, box.max.z() + std::max(margin, 1e-6f)),
                                  renderer.colorMap());
}

void applyDistances(Render::Renderer& renderer, const DisplayOptions& options, PictureMode mode,
                    const Place& origin) {
    if (mode == PictureMode::Height) {
        applyHeight(renderer, options.range.has_value());
    } else if (options.ramp) {
        renderer.setColorizationRange((options.ramp->first - origin).cast<float>(),
                                      (options.ramp->second - origin).cast<float>(), renderer.colorMap());
    } else if (options.plane) {
        const Math::NPlane<float, 3> plane = planeIn(*options.plane, origin);
        renderer.setPlaneForDistanceColorization(plane);
        fitRange(renderer, plane, options.unsignedDistance);
    }
    if (options.range) {
        setRange(renderer, options.range->first, options.range->second);
    }
    if (options.passFail) {
        renderer.setPassFailDistanceRange(static_cast<float>(options.passFail->first),
                                          static_cast<float>(options.passFail->second));
    }
    if (options.warn) {
        renderer.setWarnDistanceRange(static_cast<float>(options.warn->first),
                                      static_cast<float>(options.warn->second));
    }
}

template <class Target>
CLI::Option* addNumber(CLI::App& command, const std::string& name, Target& target, double low, double high,
                       const std::string& typeName, const std::string& description) {
    return addParsed(
        command, name, target, [low, high](const std::string& text) { return parseNumber(text, low, high); },
        typeName, description);
}

void addDistanceOptions(CLI::App& command, DisplayOptions& options) {
    addParsed(
        command, "--mode", options.mode, [](const std::string& text) { return parseName(text, MODES).mode; },
        "MODE",
        "What decides the colours: default, intensity, normal, uniform, height, plane-distance, "
        "mesh-distance, tomographic-dark or tomographic-bright (default: what --plane, --ramp or --mesh "
        "ask for, else default, and height for stores without colours)");
    addParsed(command, "--color-map", options.colorMap, parseColorMap, "NAME",
              "Colours of heights and distances: turbo, inferno, magma, viridis, plasma, gray, bone, "
              "red-white-blue, cool-warm, level-of-accuracy, level-of-accuracy-imperial, pass-fail or "
              "traffic-light (default turbo)");
    CLI::Option* const range = addParsed(
        command, "--range", options.range, parseRange, "A,B",
        "Distances at the two ends of the colour map, in the store's units; what lies outside is not "
        "drawn. Heights count from the lowest point (default: the whole scene)");
    addParsed(command, "--pass-fail", options.passFail, parseRange, "A,B",
              "Distances that pass, for the colour maps pass-fail and traffic-light (default -0.5,0.5)");
    addParsed(command, "--warn", options.warn, parseRange, "A,B",
              "Distances that pass without a warning, for the colour map traffic-light (default -0.25,0.25)");
    CLI::Option* const plane = addParsed(command, "--plane", options.plane, parsePlane, "NX,NY,NZ,D",
                                         "Measure distances to the plane n*p + d = 0, in absolute "
                                         "coordinates; the normal may have any length");
    addParsed(command, "--ramp", options.ramp, parseRamp, "X,Y,Z:X,Y,Z",
              "Spread the colour map from one place to another, in absolute coordinates")
        ->excludes(plane)
        ->excludes(range);
    command
        .add_option("--mesh", options.meshFile,
                    "Measure distances to the faces of this OBJ file, in absolute coordinates; needs --range "
                    "unless --mode names another mode")
        ->type_name("FILE");
    command.add_flag("--unsigned", options.unsignedDistance, "Take distances without their sign");
}

void addColorOptions(CLI::App& command, DisplayOptions& options) {
    addParsed(command, "--background", options.background, parseColor, "RRGGBB",
              "Background colour (default FFFFFF; transparent in the tomographic modes)");
    addParsed(command, "--tomographic-color", options.tomographicColor, parseColor, "RRGGBB",
              "Colour of the points in the tomographic modes (default 000000)");
    command.add_flag("--cloud-colors", options.cloudColors,
                     "Let points keep their own colours in the tomographic modes");
    CLI::Option* const brightness = addNumber(command, "--brightness", options.brightness, -1.0, 1.0, "B",
                                              "Added to the colours, -1 to 1 (default 0)");
    CLI::Option* const contrast = addNumber(command, "--contrast", options.contrast, 0.0, 100.0, "C",
                                            "Stretches the colours around the middle (default 1)");
    addParsed(
        command, "--auto-contrast", options.autoContrast,
        [](const std::string& text) {
            const size_t comma = std::min(text.find(','), text.size());
            return std::pair(parseNumber(text.substr(0, comma), 0.0, 1.0),
                             parseNumber(text.substr(std::min(comma + 1, text.size())), 0.0, 1.0));
        },
        "LOWER,UPPER",
        "Stretch the colours over the full range; may clip these shares of the darkest and the brightest "
        "points (default 0.01,0.01)")
        ->expected(0, 1)
        ->default_str("0.01,0.01")
        ->excludes(brightness)
        ->excludes(contrast);
    addNumber(command, "--opacity", options.opacity, 0.0, 1.0, "O", "Of the points, 0 to 1 (default 1)");
}

}  // namespace

void addDisplayOptions(CLI::App& command, DisplayOptions& options) {
    addDistanceOptions(command, options);
    addColorOptions(command, options);
    addNumber(command, "--point-size", options.pointSize, 1.0, 100.0, "PIXELS",
              "Largest width of a point (default 5); near a finer level points shrink to fit");
    command
        .add_option_function<std::vector<std::string>>(
            "--clip",
            [&options](const std::vector<std::string>& texts) {
                try {
                    for (const std::string& text : texts) {
                        const std::vector<Plane> planes = parseClip(text);
                        options.clips.insert(options.clips.end(), planes.begin(), planes.end());
                    }
                } catch (const UsageError& error) {
                    throw CLI::ValidationError("--clip", error.what());
                }
            },
            "Keep only points with n*p + d >= 0, given as NX,NY,NZ,D, or those in a box, X,Y,Z:X,Y,Z, which "
            "counts as six; absolute coordinates, up to eight in all")
        ->type_name("CLIP")
        ->allow_extra_args(false);
}

void checkDisplayOptions(const DisplayOptions& options) {
    const auto refuse = [](const char* option, const char* reason) {
        throw CLI::ValidationError(option, reason);
    };
    const PictureMode mode = modeFor(options, true);
    if (mode == PictureMode::PlaneDistance && !options.plane && !options.ramp) {
        refuse("--mode", "plane-distance needs --plane or --ramp");
    }
    if (mode == PictureMode::MeshDistance && options.meshFile.empty()) {
        refuse("--mode", "mesh-distance needs --mesh");
    }
    if (mode == PictureMode::MeshDistance && !options.range) {
        refuse("--mode", "mesh-distance needs --range");
    }
    if (options.clips.size() > MOST_CLIPS) {
        refuse("--clip", "more than eight half-spaces");
    }
}

Math::ConvexPolytope<float, 3> clippingVolume(const DisplayOptions& options, const Place& origin) {
    std::vector<Math::HalfSpace<float, 3>> sides;
    for (const Plane& clip : options.clips) {
        sides.emplace_back(planeIn(clip, origin));
    }
    return Math::ConvexPolytope<float, 3>(std::move(sides));
}

void applyDisplay(Render::Renderer& renderer, const std::vector<Cloud>& clouds, const DisplayOptions& options,
                  const Place& origin, bool colored, DistanceMesh mesh) {
    const PictureMode mode = modeFor(options, colored);
    renderer.setBackgroundColor(options.background);
    renderer.setRenderMode(renderModeOf(mode));
    renderer.setColorMap(options.colorMap);
    renderer.setUseSignedDistance(!options.unsignedDistance);
    renderer.setMeshForDistanceColorization(std::move(mesh));
    applyDistances(renderer, options, mode, origin);
    renderer.setTomographicColor(options.tomographicColor.value_or(renderer.tomographicColor()));
    renderer.setUseCloudColorsInTomographicRenderModes(options.cloudColors);
    renderer.setBrightness(static_cast<float>(options.brightness.value_or(0.0)));
    renderer.setContrast(static_cast<float>(options.contrast.value_or(1.0)));
    renderer.setOpacity(static_cast<float>(options.opacity.value_or(1.0)));

    const Math::ConvexPolytope<float, 3> clips = clippingVolume(options, origin);
    for (const Cloud& cloud : clouds) {
        cloud->setMaxPointSize(static_cast<float>(options.pointSize));
        cloud->setClippingVolume(clips.halfSpaces());
    }
}

}  // namespace Tool
