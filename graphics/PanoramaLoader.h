#pragma once

#include <core/Export.h>
#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <math/Point.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Graphics {

/// A panorama as tiles: colours and distances seen from one point in all directions, in levels that get
/// finer. Hosts derive their own from it; ImagePanoramaLoader serves image files.
///
/// Every level covers all directions with the same grid, tileRows() x tileColumns() an image or cube face,
/// and shows a tile with tileWidth(level) x tileHeight(level) texels; level 0 is the coarsest. Colours and
/// distances share grid and tile sizes and may differ in the number of levels.
///
/// Object space is right-handed with z up. An equirectangular image has -x at its left and right edges, +y a
/// quarter from the left, +x in its middle, -y three quarters from the left, and +z along its top. Cube faces
/// are numbered +x, -x, +y, -y, +z, -z; seen from inside, the upright faces have z up, the top of +z adjoins
/// -x, and the top of -z adjoins +x.
///
/// Tile identifiers count all tiles of the coarser levels first: level * tilesPerLevel() + index within the
/// level. Colour and depth tiles of the same place have the same identifier. The loading functions are called
/// by one thread at a time, all others by any thread at any time.
class LUMARO_API PanoramaLoader {
public:
    /// Tile grid and sizes of a panorama.
    struct Layout {
        size_t tileRows = 0;
        size_t tileColumns = 0;
        /// Texels of a tile, by level; as many as the larger number of levels.
        std::vector<size_t> tileWidths;
        std::vector<size_t> tileHeights;
        size_t colorLevels = 0;
        size_t depthLevels = 0;  ///< 0: no distances.
    };

    PanoramaLoader(const PanoramaLoader&) = delete;
    PanoramaLoader& operator=(const PanoramaLoader&) = delete;

    size_t numColorLevels() const { return mLayout.colorLevels; }
    size_t numDepthLevels() const { return mLayout.depthLevels; }
    /// Of one of the levels. Throw std::out_of_range.
    size_t tileWidth(size_t level) const { return mLayout.tileWidths.at(level); }
    size_t tileHeight(size_t level) const { return mLayout.tileHeights.at(level); }
    /// Of an equirectangular image, or of each cube face.
    size_t tileRows() const { return mLayout.tileRows; }
    size_t tileColumns() const { return mLayout.tileColumns; }

    size_t level(uint64_t tileId) const;
    /// Row by row, face by face; below tilesPerLevel().
    size_t tileIndexWithinLevel(uint64_t tileId) const;

    /// Tiles of each level, 48 at most: rows x columns, on all faces.
    virtual size_t tilesPerLevel() const = 0;
    /// The tiles of all levels.
    virtual std::vector<uint64_t> colorTiles() const = 0;
    virtual std::vector<uint64_t> depthTiles() const = 0;
    /// An image of the size of the tile's level. May throw.
    virtual ColorImage loadColorTile(uint64_t tileId) = 0;
    /// Distances from the centre in object units; the largest float where nothing was measured. May throw.
    virtual DepthImage loadDepthTile(uint64_t tileId) = 0;
    /// Unit vector from the centre to the middle of the tile, in object space.
    virtual Math::Point<float, 3> tileDirection(uint64_t tileId) const = 0;
    /// 0 equirectangular, 1 cube map.
    virtual unsigned projectionKind() const = 0;

    virtual ~PanoramaLoader();

protected:
    /// Throws std::invalid_argument when the layout has no tiles, no colours, a tile of no size, or fewer
    /// sizes than levels.
    explicit PanoramaLoader(Layout layout);

private:
    const Layout mLayout;
};

}  // namespace Graphics
