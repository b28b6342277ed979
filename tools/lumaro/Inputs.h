#pragma once

#include <CLI/CLI.hpp>

#include <Eigen/Core>
#include <filesystem>
#include <string>
#include <vector>

namespace Tool {

enum class InputKind { Store, Mesh, Panorama };

/// One thing to draw and where it is put.
struct Input {
    std::string path;
    InputKind kind = InputKind::Store;
    /// From the input's own coordinates, in its unit times unitScale, to absolute ones.
    Eigen::Matrix4d placement = Eigen::Matrix4d::Identity();
    double unitScale = 1.0;
    std::string distances;  ///< A panorama's distance image, or the folder with those of its cube faces.
};

/// The inputs and the options that belong to the input before them.
void addInputOptions(CLI::App& command);

/// What the command line gave to those. Throws CLI::ValidationError when an option has no input before it, or
/// not one that it could belong to.
std::vector<Input> parsedInputs(const CLI::App& command);

/// The six images of a cube panorama in a folder, named px, nx, py, ny, pz and nz after the direction in
/// which they look; none when any is missing.
std::vector<std::filesystem::path> cubeFaces(const std::filesystem::path& folder);

}  // namespace Tool
