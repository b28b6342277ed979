#pragma once

#include <render/pointcloud/filters/PolygonPrismFilter.h>

#include <filesystem>
#include <vector>

namespace Tool {

/// The rings of a polygon in a text file: one "x y" a line, with '#' before comments, or well-known text,
/// "POLYGON ((x y, …), …)". Throws std::runtime_error naming the file and the line of what is wrong, and for
/// a file of more than 32 MiB.
std::vector<Render::PolygonPrismFilter::Ring> readPolygonFile(const std::filesystem::path& file);

}  // namespace Tool
