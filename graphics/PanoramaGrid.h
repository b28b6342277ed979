#pragma once

#include <cstddef>
#include <optional>

namespace Graphics {

/// How an image, or each face of a cube, divides into tiles and levels.
struct PanoramaGrid {
    static constexpr size_t MAX_TILES = 48;
    static constexpr size_t MAX_LEVELS = 4;
    static constexpr size_t MAX_TILE_SIDE = 16384;  ///< That of a texture.

    size_t rows = 0;
    size_t columns = 0;
    size_t levels = 0;

    /// The grid with the most levels, among those the one nearest to `preferred`, that divides an image of
    /// width x height texels. A number in `fixed` that is not 0 stays. None when no grid divides it.
    static std::optional<PanoramaGrid> choose(size_t width, size_t height, size_t faces, size_t minLevels,
                                              const PanoramaGrid& fixed, const PanoramaGrid& preferred);
};

}  // namespace Graphics
