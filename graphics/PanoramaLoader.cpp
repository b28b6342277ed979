#include <graphics/PanoramaLoader.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Graphics {

namespace {

PanoramaLoader::Layout checked(PanoramaLoader::Layout layout) {
    const size_t levels = std::max(layout.colorLevels, layout.depthLevels);
    if (layout.tileRows == 0 || layout.tileColumns == 0 || layout.colorLevels == 0) {
        throw std::invalid_argument("A panorama needs tiles and at least one level of colours");
    }
    if (layout.tileWidths.size() < levels || layout.tileHeights.size() < levels) {
        throw std::invalid_argument("A panorama needs a tile size for each level");
    }
    for (size_t level = 0; level < levels; ++level) {
        if (layout.tileWidths[level] == 0 || layout.tileHeights[level] == 0) {
            throw std::invalid_argument("A panorama's tiles need texels");
        }
    }
    return layout;
}

}  // namespace

PanoramaLoader::PanoramaLoader(Layout layout) : mLayout(checked(std::move(layout))) {}

PanoramaLoader::~PanoramaLoader() = default;

size_t PanoramaLoader::level(uint64_t tileId) const {
    return static_cast<size_t>(tileId / tilesPerLevel());
}

size_t PanoramaLoader::tileIndexWithinLevel(uint64_t tileId) const {
    return static_cast<size_t>(tileId % tilesPerLevel());
}

}  // namespace Graphics
