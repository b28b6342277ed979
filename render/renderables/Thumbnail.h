#pragma once

#include <core/Export.h>
#include <math/Color.h>
#include <octree/Limits.h>
#include <octree/Location.h>
#include <render/pointcloud/LoadingProgress.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <stop_token>

namespace Render {

/// Draws the point cloud at `location` from an oblique view above, with a renderer of its own, and writes the
/// picture to `outputFile` as PNG. Loads nodes down to `maxLevel` on the calling thread and returns when the
/// file is written; a file of that name is replaced. The background is opaque whatever its alpha.
///
/// Throws std::invalid_argument "createThumbnail: locationPotree does not exist" when there is no cloud,
/// before anything is touched; std::filesystem::filesystem_error when the old file cannot be looked up or
/// removed; and whatever loading, drawing and writing throw.
LUMARO_API void createThumbnail(const Octree::Location& location, const std::filesystem::path& outputFile,
                                size_t width, size_t height, const Math::Color& backgroundColor,
                                size_t maxLevel);

/// The same, with news: `onProgress`, unless it is null, is called now and then on the calling thread while
/// nodes are loaded. False, with the file as it was, when `stop` was signalled before drawing.
LUMARO_API bool createThumbnail(const Octree::Location& location, const std::filesystem::path& outputFile,
                                size_t width, size_t height, const Math::Color& backgroundColor,
                                size_t maxLevel,
                                const std::function<void(const LoadingProgress&)>& onProgress,
                                std::stop_token stop, const Octree::Limits& limits = {});

/// The same for a Potree cloud stored in `directory`; writes "thumbnail.png" there.
LUMARO_API void createThumbnail(const std::filesystem::path& directory, size_t width, size_t height,
                                const Math::Color& backgroundColor, size_t maxLevel);

}  // namespace Render
