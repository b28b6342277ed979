#include <core/File.h>
#include <graphics/Image.h>
#include <render/renderables/MeshLoader.h>
#include <tools/lumaro/Arguments.h>
#include <tools/lumaro/MemoryLimit.h>

#include <limits>
#include <optional>
#include <stdexcept>

namespace Tool {

namespace {

std::optional<std::uint64_t> memoryLimit;

}  // namespace

std::uint64_t parseBytes(const std::string& text) {
    const std::size_t unit = text.empty() ? std::string::npos : std::string("KMGT").find(text.back());
    const unsigned shift = unit == std::string::npos ? 0 : 10 * (static_cast<unsigned>(unit) + 1);
    const std::string number = shift == 0 ? text : text.substr(0, text.size() - 1);
    return parseCount(number, 1, std::numeric_limits<std::uint64_t>::max() >> shift) << shift;
}

void setMemoryLimit(std::uint64_t bytes) {
    memoryLimit = bytes;
}

Octree::Limits storeLimits() {
    return memoryLimit ? Octree::Limits{.memory = *memoryLimit} : Octree::Limits();
}

std::uint64_t meshMemoryLimit() {
    return memoryLimit.value_or(Render::MeshLoader::DEFAULT_MEMORY_LIMIT);
}

std::uint64_t imageMemoryLimit() {
    return memoryLimit.value_or(Graphics::Image::DEFAULT_MEMORY_LIMIT);
}

void requireMemoryForPolygon(const std::filesystem::path& file, std::uint64_t fileSize) {
    // A corner takes four bytes at least; in memory 16, in a list that doubles, and again in the filter.
    constexpr std::uint64_t BYTES_PER_BYTE = 16;
    if (memoryLimit && fileSize > *memoryLimit / BYTES_PER_BYTE) {
        throw std::runtime_error(Core::pathToUtf8(file) + ": asks for " +
                                 std::to_string(fileSize * BYTES_PER_BYTE) +
                                 " bytes of memory, its limit is " + std::to_string(*memoryLimit));
    }
}

}  // namespace Tool
