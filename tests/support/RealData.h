#pragma once

#include <cstdlib>
#include <filesystem>

namespace TestSupport {

/// Where real stores, meshes and panoramas lie: the folder that the environment variable LUMARO_DATA_DIR
/// names, or else the one known at build time. A user has neither, so tests skip where it does not exist.
inline std::filesystem::path realData() {
    const char* folder = std::getenv("LUMARO_DATA_DIR");
    return folder != nullptr ? folder : LUMARO_DATA_DIR;
}

}  // namespace TestSupport
