#pragma once

#include <render/pointcloud/LoadingProgress.h>
#include <tools/lumaro/Console.h>

#include <string>

namespace Tool {

/// "loading 45 %, 1 234 567 points".
inline std::string loadingText(const Render::LoadingProgress& progress) {
    return "loading " + std::to_string(static_cast<int>(100.0 * progress.share())) + " %, " +
           grouped(progress.residentPoints) + " points";
}

}  // namespace Tool
