#include <core/File.h>
#include <octree/StoreFolder.h>

#include <system_error>

namespace Octree {

StoreFolder::StoreFolder(const std::filesystem::path& folder) : mFolder(folder.lexically_normal()) {
    if (!mFolder.has_filename() && mFolder.has_relative_path()) {
        mFolder = mFolder.parent_path();
    }
}

std::string StoreFolder::toString() const {
    return Core::pathToUtf8(mFolder);
}

bool StoreFolder::holdsFile(const char* name) const {
    std::error_code ignored;
    return std::filesystem::is_regular_file(mFolder / name, ignored);
}

}  // namespace Octree
