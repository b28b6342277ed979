#pragma once

#include <math/Color.h>
#include <math/ConvexPolytope.h>
#include <math/NPlane.h>
#include <math/Point.h>
#include <math/TriangleMesh.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tool {

enum class PictureMode {
    Default,
    Intensity,
    Normal,
    Uniform,
    Height,  ///< The distance to a plane through the lowest point.
    PlaneDistance,
    MeshDistance,
    TomographicDark,
    TomographicBright
};

/// How a picture is coloured and what of the points it shows; coordinates are absolute.
struct DisplayOptions {
    using Range = std::pair<double, double>;
    using Plane = Math::NPlane<double, 3>;
    using Place = Math::Point<double, 3>;

    Math::Color background = Math::Color::white();
    double pointSize = 5.0;
    std::optional<PictureMode> mode;
    Render::ColorMap colorMap = Render::ColorMap::Turbo;
    std::optional<Range> range;
    std::optional<Range> passFail;
    std::optional<Range> warn;
    std::optional<Plane> plane;
    std::optional<std::pair<Place, Place>> ramp;
    std::string meshFile;
    bool unsignedDistance = false;
    std::optional<Math::Color> tomographicColor;
    bool cloudColors = false;
    std::optional<double> brightness;
    std::optional<double> contrast;
    std::optional<std::pair<double, double>> autoContrast;  ///< Shares of points that may be clipped.
    std::optional<double> opacity;
    std::vector<Plane> clips;
};

void addDisplayOptions(CLI::App& command, DisplayOptions& options);

/// Throws CLI::ValidationError when options lack others.
void checkDisplayOptions(const DisplayOptions& options);

using Cloud = std::shared_ptr<Render::PointCloudRenderable>;
using DistanceMesh = std::shared_ptr<Math::TriangleMesh<float>>;

/// What the options keep, in the coordinates of a scene whose origin is at that absolute position.
Math::ConvexPolytope<float, 3> clippingVolume(const DisplayOptions& options,
                                              const Math::Point<double, 3>& origin);

/// Prepares the renderer, whose scene holds the clouds; `origin` is the absolute position of the
/// scene's origin. `mesh`, in the scene's coordinates, may be null. The automatic contrast is left to be done
/// when the points are there.
void applyDisplay(Render::Renderer& renderer, const std::vector<Cloud>& clouds, const DisplayOptions& options,
                  const Math::Point<double, 3>& origin, bool colored, DistanceMesh mesh);

}  // namespace Tool
