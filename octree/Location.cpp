#include <core/File.h>
#include <octree/Location.h>
#include <octree/StoreError.h>

#include <algorithm>
#include <system_error>

namespace Octree {

namespace {

namespace fs = std::filesystem;

constexpr const char* NOT_READ = "; only Potree 2.0 and Entwine stores and COPC files are";

/// Of the last part, in lower case as far as it is ASCII.
std::string lowerName(const fs::path& path) {
    std::string name = Core::pathToUtf8(path.filename());
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return name;
}

bool isFile(const fs::path& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

Location ofFolder(const fs::path& folder) {
    const bool hasMetadata = isFile(folder / "metadata.json");
    const bool isEntwine = isFile(folder / "ept.json");
    // The other name is a common one: beside an ept.json it says nothing by itself.
    if (hasMetadata && (!isEntwine || isFile(folder / "hierarchy.bin"))) {
        return PoTree::FileSystemLocation(folder);
    }
    if (isEntwine) {
        return Entwine::FileSystemLocation(folder);
    }
    if (isFile(folder / "cloud.js")) {
        throw StoreError(folder, std::string("is a Potree 1 store, which is not read") + NOT_READ);
    }
    throw StoreError(folder,
                     "is not a point cloud store: it has neither a metadata.json (Potree 2.0) nor an "
                     "ept.json (Entwine); of COPC, name the file");
}

Location ofFile(const fs::path& file) {
    const fs::path folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
    const std::string name = lowerName(file);
    if (name == "metadata.json") {
        return PoTree::FileSystemLocation(folder);
    }
    if (name == "ept.json") {
        return Entwine::FileSystemLocation(folder);
    }
    if (name == "cloud.js") {
        throw StoreError(file, std::string("belongs to a Potree 1 store, which is not read") + NOT_READ);
    }
    if (const Copc::FileLocation copc(file); copc.exists()) {
        return copc;
    }
    throw StoreError(file,
                     "is not a point cloud store: it is neither a folder nor a metadata.json (Potree 2.0), "
                     "an ept.json (Entwine) or a COPC file");
}

}  // namespace

Location Location::fromPath(const fs::path& path) {
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    if (!fs::exists(status)) {
        throw StoreError(path, "there is no such folder or file");
    }
    return fs::is_directory(status) ? ofFolder(path) : ofFile(path);
}

bool Location::exists() const {
    return (potree() != nullptr && potree()->exists()) || (entwine() != nullptr && entwine()->exists()) ||
           (copc() != nullptr && copc()->exists());
}

std::string Location::toString() const {
    return Core::pathToUtf8(path());
}

fs::path Location::path() const {
    return copc() != nullptr ? copc()->file() : folder();
}

fs::path Location::folder() const {
    if (potree() != nullptr) {
        return potree()->folder();
    }
    if (copc() != nullptr) {
        return copc()->file().parent_path();
    }
    return entwine() != nullptr ? entwine()->folder() : fs::path();
}

}  // namespace Octree
