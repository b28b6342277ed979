#include <core/File.h>
#include <octree/entwine/FileSystemLocation.h>

#include <system_error>

namespace Entwine {

FileSystemLocation::FileSystemLocation(const std::filesystem::path& folder)
    : mFolder(folder.lexically_normal()) {
    if (!mFolder.has_filename() && mFolder.has_relative_path()) {
        mFolder = mFolder.parent_path();
    }
}

bool FileSystemLocation::exists() const {
    std::error_code ignored;
    return std::filesystem::is_regular_file(mFolder / "ept.json", ignored);
}

std::string FileSystemLocation::toString() const {
    return Core::pathToUtf8(mFolder);
}

}  // namespace Entwine
