#include <graphics/PanoramaGrid.h>

#include <algorithm>
#include <limits>

namespace Graphics {

namespace {

/// How far two numbers of tiles are apart: at least 1, the same for half as many and twice as many.
double ratio(size_t a, size_t b) {
    return static_cast<double>(std::max(a, b)) / static_cast<double>(std::min(a, b));
}

bool divides(const PanoramaGrid& grid, size_t width, size_t height) {
    const size_t coarsening = size_t{1} << (grid.levels - 1);
    return width % (grid.columns * coarsening) == 0 && height % (grid.rows * coarsening) == 0 &&
           width / grid.columns <= PanoramaGrid::MAX_TILE_SIDE &&
           height / grid.rows <= PanoramaGrid::MAX_TILE_SIDE;
}

}  // namespace

std::optional<PanoramaGrid> PanoramaGrid::choose(size_t width, size_t height, size_t faces, size_t minLevels,
                                                 const PanoramaGrid& fixed, const PanoramaGrid& preferred) {
    const size_t finest = fixed.levels != 0 ? fixed.levels : MAX_LEVELS;
    const size_t coarsest = fixed.levels != 0 ? fixed.levels : minLevels;
    for (size_t levels = finest; levels >= std::max<size_t>(coarsest, 1); --levels) {
        std::optional<PanoramaGrid> best;
        double bestDistance = std::numeric_limits<double>::infinity();
        for (size_t rows = 1; rows * faces <= MAX_TILES; ++rows) {
            for (size_t columns = 1; rows * columns * faces <= MAX_TILES; ++columns) {
                const PanoramaGrid grid{rows, columns, levels};
                const double distance = ratio(rows, preferred.rows) * ratio(columns, preferred.columns);
                if ((fixed.rows == 0 || rows == fixed.rows) &&
                    (fixed.columns == 0 || columns == fixed.columns) && divides(grid, width, height) &&
                    distance < bestDistance) {
                    best = grid;
                    bestDistance = distance;
                }
            }
        }
        if (best) {
            return best;
        }
    }
    return std::nullopt;
}

}  // namespace Graphics
