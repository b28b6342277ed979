#pragma once

#include <core/Export.h>
#include <graphics/Image.h>
#include <graphics/PanoramaLoader.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <vector>

namespace Graphics {

/// How ImagePanoramaLoader cuts its images. A number of 0 is chosen: as many levels as the sizes divide into,
/// then the grid that divides them and is nearest to 4 rows x 8 columns, of a cube face to 2 x 2.
struct ImagePanoramaOptions {
    size_t tileRows = 0;
    size_t tileColumns = 0;  ///< rows x columns, on all faces, may be 48 at most.
    /// Of the larger of colour and distance images, 1 … 4; the smaller has one less each time it is halved.
    size_t levels = 0;
    /// Object units in a metre: finite and above 0.
    double metersToObjectUnits = 1.0;
    /// Most bytes that each image may take while it is read, and all together while they are held.
    std::uint64_t memoryLimit = Image::DEFAULT_MEMORY_LIMIT;
};

/// A panorama from image files: one equirectangular image or six cube faces, oriented as PanoramaLoader says.
///
/// Colours are PNG files of any kind or JPEG files, grey or coloured, baseline or progressive. Their
/// orientation tags are not applied: turn the texels first. An equirectangular image may be of any
/// proportions and spans all directions; cube faces are square and of one size.
///
/// Distances are optional, one file for each of the colours'. They count from the centre along the ray of the
/// texel, not along the axis of the face, and stand in PNG files of one 16-bit grey channel in millimetres,
/// up to 65.535 m, or in portable float maps ("Pf", either byte order) in metres. What is 0, negative or not
/// finite was not measured and becomes the largest float. The size is that of the colours, or twice, four or
/// eight times more or less along both sides.
///
/// Files are told apart by their contents. Sides reach 65535 texels and an image 2^28, in progressive JPEG
/// files 2^27; a tile's reach 16384.
///
/// The finest levels show the images as they are, and each coarser level halves width and height. A coarser
/// colour is the mean of all texels that it covers, each channel, alpha too, by itself and rounded half up;
/// the mean is taken of the sRGB values as stored, not of linear light, as a renderer without gamma blends
/// them. A coarser distance is one of those that it covers, since a mean would lie beside both sides of an
/// edge: the measured one nearest to the middle, of equally near ones that in the upper row and there the
/// left one.
///
/// All images are decoded when it is constructed and held at 4 bytes a texel; tiles are cut when asked for.
/// Unlike the base class asks for, every function may be called by any thread at any time.
class LUMARO_API ImagePanoramaLoader : public PanoramaLoader {
public:
    /// One file or six, and as many distances or none.
    /// Throws ImageError, which names the file, when one cannot be read or its size does not fit the others
    /// or does not divide into tiles and levels, and when `stop` is signalled; std::invalid_argument for
    /// another number of files and for options outside their ranges.
    explicit ImagePanoramaLoader(const std::vector<std::filesystem::path>& colors,
                                 const std::vector<std::filesystem::path>& distances = {},
                                 const ImagePanoramaOptions& options = {}, const std::stop_token& stop = {});

    size_t tilesPerLevel() const override;
    std::vector<uint64_t> colorTiles() const override;
    std::vector<uint64_t> depthTiles() const override;
    /// These three throw std::out_of_range for identifiers that are not among the colour and depth tiles.
    ColorImage loadColorTile(uint64_t tileId) override;
    DepthImage loadDepthTile(uint64_t tileId) override;
    Math::Point<float, 3> tileDirection(uint64_t tileId) const override;
    unsigned projectionKind() const override;

private:
    struct Images;
    /// A tile and the texels that it covers in the image of its face.
    struct Tile;

    explicit ImagePanoramaLoader(Images images);
    Tile tile(uint64_t tileId, size_t levels) const;

    const std::vector<ColorImage> mColors;  ///< One, or six cube faces.
    const std::vector<DepthImage> mDistances;
};

}  // namespace Graphics
