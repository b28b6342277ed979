#pragma once

#include <math/Point.h>
#include <render/core/Renderer.h>
#include <tools/lumaro/Arguments.h>

#include <CLI/CLI.hpp>

#include <optional>

namespace Tool {

/// Where a picture is taken from; places are absolute.
struct CameraOptions {
    PictureSize size{1280, 720};
    std::optional<Math::Point<double, 3>> eye;
    std::optional<Math::Point<double, 3>> target;
    Math::Point<double, 3> up{0.0, 0.0, 1.0};
    double fovDegrees = 45.0;
    std::optional<double> orthoHeight;
    bool fitOrtho = false;
};

void addCameraOptions(CLI::App& command, CameraOptions& options);

/// Looks from the eye that was given, or from where everything is seen. `origin` is the absolute position of
/// the scene's origin.
void placeCamera(Render::Renderer& renderer, const CameraOptions& options,
                 const Math::Point<double, 3>& origin);

}  // namespace Tool
