#include <core/File.h>
#include <octree/Printable.h>
#include <octree/StoreError.h>

namespace Octree {

namespace {

/// The longest text of the library's own is a third of it.
constexpr std::size_t MAX_TEXT = 1000;
constexpr std::size_t MAX_PATH_TEXT = 4096;

std::string fileText(const std::filesystem::path& file) {
    return printable(Core::pathToUtf8(file), MAX_PATH_TEXT);
}

}  // namespace

StoreError::StoreError(const std::string& message)
    : std::runtime_error(printable(message, MAX_PATH_TEXT + MAX_TEXT)) {}

StoreError::StoreError(const std::filesystem::path& file, std::string_view problem)
    : std::runtime_error(fileText(file).append(": ").append(printable(problem, MAX_TEXT))) {}

StoreError::StoreError(const std::filesystem::path& file, std::string_view node, std::string_view problem)
    : std::runtime_error(fileText(file)
                             .append(": node ")
                             .append(printable(node, MAX_TEXT))
                             .append(": ")
                             .append(printable(problem, MAX_TEXT))) {}

StoreError::~StoreError() = default;

}  // namespace Octree
