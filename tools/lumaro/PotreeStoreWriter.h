#pragma once

#include <tools/lumaro/StorePoint.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

namespace Tool {

struct StoreDescription {
    std::string name;
    std::string description;
    std::array<double, 3> offset{};  ///< absolute position of the cube's minimum corner
    double scale = 0.001;            ///< one integer step, the same on every axis
};

/// How a store's octree.bin holds the points.
enum class StoreEncoding { Brotli, Uncompressed };

struct StoreWriteOptions {
    size_t maxLeafPoints = 5000;
    StoreEncoding encoding = StoreEncoding::Brotli;
    int brotliQuality = 6;                   ///< 0 to 11
    std::function<void(double)> onProgress;  ///< share of the points written, 0 to 1
    std::stop_token stop;
};

/// Writes the points as a Potree 2.0 store: metadata.json, hierarchy.bin, octree.bin.
///
/// The same points in the same order give the same bytes. Everything is written to "FOLDER.partial" first and
/// renamed when complete. A folder that already exists is replaced only when it is empty or holds nothing but
/// a store (and its thumbnail.png); otherwise std::runtime_error. Other errors: std::invalid_argument for a
/// negative coordinate, filesystem_error, runtime_error naming the file that could not be written.
/// Returns false, leaving the old state, when stopped.
bool writePotreeStore(const std::filesystem::path& folder, const StoreDescription& description,
                      std::vector<StorePoint> points, const StoreWriteOptions& options = {});

}  // namespace Tool
