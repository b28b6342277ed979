#include <core/File.h>
#include <octree/StoreError.h>

namespace Octree {

StoreError::StoreError(const std::string& message) : std::runtime_error(message) {}

StoreError::StoreError(const std::filesystem::path& file, std::string_view problem)
    : std::runtime_error(Core::pathToUtf8(file).append(": ").append(problem)) {}

StoreError::StoreError(const std::filesystem::path& file, std::string_view node, std::string_view problem)
    : std::runtime_error(Core::pathToUtf8(file).append(": node ").append(node).append(": ").append(problem)) {
}

StoreError::~StoreError() = default;

}  // namespace Octree
