#include <graphics/ImagePanoramaLoader.h>

#include <graphics/ImageError.h>
#include <graphics/PanoramaGrid.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace Graphics {

namespace {

using Files = std::vector<std::filesystem::path>;

constexpr size_t CUBE_FACES = 6;

std::string sizeText(size_t width, size_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

void checkArguments(const Files& colors, const Files& distances, const ImagePanoramaOptions& options) {
    if (colors.size() != 1 && colors.size() != CUBE_FACES) {
        throw std::invalid_argument("A panorama needs one image or six cube faces, not " +
                                    std::to_string(colors.size()));
    }
    const std::string name = "Panorama \"" + Core::pathToUtf8(colors.front()) + "\": ";
    if (!distances.empty() && distances.size() != colors.size()) {
        throw std::invalid_argument(name + std::to_string(distances.size()) + " distance images for " +
                                    std::to_string(colors.size()) + " of colours");
    }
    if (options.levels > PanoramaGrid::MAX_LEVELS) {
        throw std::invalid_argument(name + std::to_string(options.levels) +
                                    " levels, 4 at most are possible");
    }
    const size_t rows = std::max<size_t>(options.tileRows, 1);
    const size_t columns = std::max<size_t>(options.tileColumns, 1);
    const size_t most = PanoramaGrid::MAX_TILES / colors.size();
    if (rows > most || columns > most || rows * columns > most) {
        throw std::invalid_argument(name + std::to_string(rows) + " x " + std::to_string(columns) +
                                    " tiles on " + std::to_string(colors.size()) +
                                    " images, 48 at most are possible");
    }
}

/// All of one size, and square if they are cube faces.
template <class ImageType, class Read>
std::vector<ImageType> readImages(const Files& files, std::uint64_t& memoryLeft, Read read) {
    std::vector<ImageType> images;
    for (const std::filesystem::path& file : files) {
        images.push_back(read(file));
        memoryLeft -= std::min<std::uint64_t>(memoryLeft, images.back().sizeInBytes());
        const Image& first = images.front();
        const Image& last = images.back();
        if (files.size() == CUBE_FACES && last.width() != last.height()) {
            throw ImageError(file,
                             "a cube face must be square, not " + sizeText(last.width(), last.height()));
        }
        if (last.width() != first.width() || last.height() != first.height()) {
            throw ImageError(file, "its size of " + sizeText(last.width(), last.height()) + " is not the " +
                                       sizeText(first.width(), first.height()) + " of the first face");
        }
    }
    return images;
}

/// How often `small` doubles to `large`, if it does.
std::optional<size_t> doublings(const Image& small, const Image& large) {
    for (size_t n = 0; n < PanoramaGrid::MAX_LEVELS; ++n) {
        if (small.width() << n == large.width() && small.height() << n == large.height()) {
            return n;
        }
    }
    return std::nullopt;
}

/// Levels that the smaller of two sets of images lacks.
struct Missing {
    size_t colorLevels = 0;
    size_t depthLevels = 0;
};

Missing missingLevels(const std::filesystem::path& distanceFile, const Image& color, const Image& distance) {
    if (const std::optional<size_t> n = doublings(color, distance)) {
        return {*n, 0};
    }
    if (const std::optional<size_t> n = doublings(distance, color)) {
        return {0, *n};
    }
    throw ImageError(distanceFile, "its size of " + sizeText(distance.width(), distance.height()) +
                                       " is not that of the colours, " +
                                       sizeText(color.width(), color.height()) +
                                       ", nor 2, 4 or 8 times more or less along both sides");
}

PanoramaLoader::Layout chooseLayout(const std::filesystem::path& file, const Image& larger, size_t faces,
                                    const Missing& missing, const ImagePanoramaOptions& options) {
    const size_t lacking = std::max(missing.colorLevels, missing.depthLevels);
    const PanoramaGrid wanted{options.tileRows, options.tileColumns, options.levels};
    const PanoramaGrid preferred = faces == CUBE_FACES ? PanoramaGrid{2, 2, 0} : PanoramaGrid{4, 8, 0};
    if (options.levels != 0 && options.levels <= lacking) {
        throw ImageError(file, std::to_string(options.levels) + " levels do not reach from " +
                                   sizeText(larger.width() >> lacking, larger.height() >> lacking) + " to " +
                                   sizeText(larger.width(), larger.height()) + " texels");
    }
    const std::optional<PanoramaGrid> grid =
        PanoramaGrid::choose(larger.width(), larger.height(), faces, lacking + 1, wanted, preferred);
    if (!grid) {
        const auto text = [](size_t number) { return number != 0 ? std::to_string(number) : "any number"; };
        throw ImageError(file, sizeText(larger.width(), larger.height()) + " texels do not divide into " +
                                   text(wanted.rows) + " of rows, " + text(wanted.columns) +
                                   " of columns and " + text(wanted.levels) + " of levels");
    }
    PanoramaLoader::Layout layout;
    layout.tileRows = grid->rows;
    layout.tileColumns = grid->columns;
    layout.colorLevels = grid->levels - missing.colorLevels;
    layout.depthLevels = grid->levels - missing.depthLevels;
    for (size_t halvings = grid->levels; halvings-- > 0;) {
        layout.tileWidths.push_back((larger.width() >> halvings) / grid->columns);
        layout.tileHeights.push_back((larger.height() >> halvings) / grid->rows);
    }
    return layout;
}

/// Rounded half up.
std::array<uint8_t, Image::BYTES_PER_TEXEL> meanTexel(const uint8_t* block, size_t stride, size_t side) {
    std::array<uint64_t, Image::BYTES_PER_TEXEL> sums{};
    for (size_t y = 0; y < side; ++y) {
        for (size_t byte = 0; byte < side * Image::BYTES_PER_TEXEL; ++byte) {
            sums[byte % Image::BYTES_PER_TEXEL] += block[y * stride + byte];
        }
    }
    const uint64_t count = uint64_t{side} * side;
    std::array<uint8_t, Image::BYTES_PER_TEXEL> mean{};
    std::transform(sums.begin(), sums.end(), mean.begin(),
                   [count](uint64_t sum) { return static_cast<uint8_t>((sum + count / 2) / count); });
    return mean;
}

/// Byte offsets of a block's texels, from its middle outwards, then row by row.
std::vector<size_t> fromTheMiddle(size_t stride, size_t side) {
    const auto fromMiddle = [side](size_t at) {
        return static_cast<int>(2 * at + 1) - static_cast<int>(side);
    };
    std::vector<std::pair<int, size_t>> byDistance;
    byDistance.reserve(side * side);
    for (size_t y = 0; y < side; ++y) {
        for (size_t x = 0; x < side; ++x) {
            byDistance.emplace_back(fromMiddle(x) * fromMiddle(x) + fromMiddle(y) * fromMiddle(y),
                                    y * stride + x * Image::BYTES_PER_TEXEL);
        }
    }
    std::sort(byDistance.begin(), byDistance.end());
    std::vector<size_t> offsets(byDistance.size());
    std::transform(byDistance.begin(), byDistance.end(), offsets.begin(),
                   [](const auto& texel) { return texel.second; });
    return offsets;
}

float firstMeasured(const uint8_t* block, const std::vector<size_t>& order) {
    for (const size_t offset : order) {
        float distance = 0.0f;
        std::memcpy(&distance, block + offset, sizeof distance);
        if (distance != DepthImage::NOT_MEASURED) {
            return distance;
        }
    }
    return DepthImage::NOT_MEASURED;
}

/// From the middle of the cube to a place on a face, u to the right and v downwards, both -1 … 1.
std::array<double, 3> cubeDirection(size_t face, double u, double v) {
    switch (face) {
        case 0:
            return {1.0, -u, -v};
        case 1:
            return {-1.0, u, -v};
        case 2:
            return {u, 1.0, -v};
        case 3:
            return {-u, -1.0, -v};
        case 4:
            return {v, -u, 1.0};
        default:
            return {-v, -u, -1.0};
    }
}

/// u to the right and v downwards, both 0 … 1.
std::array<double, 3> equirectangularDirection(double u, double v) {
    const double longitude = (0.5 - u) * 2.0 * std::numbers::pi;
    const double latitude = (0.5 - v) * std::numbers::pi;
    return {std::cos(latitude) * std::cos(longitude), std::cos(latitude) * std::sin(longitude),
            std::sin(latitude)};
}

}  // namespace

struct ImagePanoramaLoader::Images {
    std::vector<ColorImage> colors;
    std::vector<DepthImage> distances;
    Layout layout;

    static Images open(const Files& colorFiles, const Files& distanceFiles,
                       const ImagePanoramaOptions& options, const std::stop_token& stop) {
        checkArguments(colorFiles, distanceFiles, options);
        Images images;
        std::uint64_t memoryLeft = options.memoryLimit;
        images.colors = readImages<ColorImage>(
            colorFiles, memoryLeft,
            [&](const std::filesystem::path& file) { return ColorImage::read(file, stop, memoryLeft); });
        images.distances =
            readImages<DepthImage>(distanceFiles, memoryLeft, [&](const std::filesystem::path& file) {
                return DepthImage::readDistances(file, options.metersToObjectUnits, stop, memoryLeft);
            });
        const size_t faces = colorFiles.size();
        const Image& color = images.colors.front();
        if (distanceFiles.empty()) {
            images.layout = chooseLayout(colorFiles.front(), color, faces, {}, options);
            images.layout.depthLevels = 0;
            return images;
        }
        const Image& distance = images.distances.front();
        const Missing missing = missingLevels(distanceFiles.front(), color, distance);
        const bool areDistancesLarger = missing.colorLevels != 0;
        images.layout = chooseLayout(areDistancesLarger ? distanceFiles.front() : colorFiles.front(),
                                     areDistancesLarger ? distance : color, faces, missing, options);
        return images;
    }
};

struct ImagePanoramaLoader::Tile {
    size_t level = 0;
    size_t face = 0;
    size_t row = 0;
    size_t column = 0;
    size_t blockSide = 1;  ///< A texel of the tile covers a square of the image's.

    /// First byte of the square that the texel (x, y) of the cut tile covers.
    const uint8_t* block(const Image& image, const Image& cut, size_t x, size_t y) const {
        return image.data() + (row * cut.height() + y) * blockSide * image.stride() +
               (column * cut.width() + x) * blockSide * Image::BYTES_PER_TEXEL;
    }
};

ImagePanoramaLoader::ImagePanoramaLoader(const Files& colors, const Files& distances,
                                         const ImagePanoramaOptions& options, const std::stop_token& stop)
    : ImagePanoramaLoader(Images::open(colors, distances, options, stop)) {}

ImagePanoramaLoader::ImagePanoramaLoader(Images images)
    : PanoramaLoader(std::move(images.layout)),
      mColors(std::move(images.colors)),
      mDistances(std::move(images.distances)) {}

ImagePanoramaLoader::Tile ImagePanoramaLoader::tile(uint64_t tileId, size_t levels) const {
    if (tileId / tilesPerLevel() >= levels) {
        throw std::out_of_range("The panorama has no tile " + std::to_string(tileId));
    }
    Tile found;
    found.level = level(tileId);
    const size_t index = tileIndexWithinLevel(tileId);
    const size_t tilesPerFace = tileRows() * tileColumns();
    found.face = index / tilesPerFace;
    found.row = index % tilesPerFace / tileColumns();
    found.column = index % tileColumns();
    found.blockSide = size_t{1} << (levels - 1 - found.level);
    return found;
}

size_t ImagePanoramaLoader::tilesPerLevel() const {
    return mColors.size() * tileRows() * tileColumns();
}

std::vector<uint64_t> ImagePanoramaLoader::colorTiles() const {
    std::vector<uint64_t> tiles(numColorLevels() * tilesPerLevel());
    std::iota(tiles.begin(), tiles.end(), uint64_t{0});
    return tiles;
}

std::vector<uint64_t> ImagePanoramaLoader::depthTiles() const {
    std::vector<uint64_t> tiles(numDepthLevels() * tilesPerLevel());
    std::iota(tiles.begin(), tiles.end(), uint64_t{0});
    return tiles;
}

ColorImage ImagePanoramaLoader::loadColorTile(uint64_t tileId) {
    const Tile place = tile(tileId, numColorLevels());
    ColorImage image(tileWidth(place.level), tileHeight(place.level));
    const ColorImage& source = mColors[place.face];
    for (size_t y = 0; y < image.height(); ++y) {
        uint8_t* row = image.data() + y * image.stride();
        if (place.blockSide <= 1) {
            std::memcpy(row, place.block(source, image, 0, y), image.stride());
            continue;
        }
        for (size_t x = 0; x < image.width(); ++x) {
            const auto texel = meanTexel(place.block(source, image, x, y), source.stride(), place.blockSide);
            std::memcpy(row + x * texel.size(), texel.data(), texel.size());
        }
    }
    return image;
}

DepthImage ImagePanoramaLoader::loadDepthTile(uint64_t tileId) {
    const Tile place = tile(tileId, numDepthLevels());
    DepthImage image(tileWidth(place.level), tileHeight(place.level));
    const DepthImage& source = mDistances[place.face];
    const std::vector<size_t> order = fromTheMiddle(source.stride(), place.blockSide);
    for (size_t y = 0; y < image.height(); ++y) {
        uint8_t* row = image.data() + y * image.stride();
        for (size_t x = 0; x < image.width(); ++x) {
            const float distance = firstMeasured(place.block(source, image, x, y), order);
            std::memcpy(row + x * sizeof distance, &distance, sizeof distance);
        }
    }
    return image;
}

Math::Point<float, 3> ImagePanoramaLoader::tileDirection(uint64_t tileId) const {
    const Tile place = tile(tileId, std::max(numColorLevels(), numDepthLevels()));
    const double u = (static_cast<double>(place.column) + 0.5) / static_cast<double>(tileColumns());
    const double v = (static_cast<double>(place.row) + 0.5) / static_cast<double>(tileRows());
    const std::array<double, 3> direction = mColors.size() == CUBE_FACES
                                                ? cubeDirection(place.face, 2.0 * u - 1.0, 2.0 * v - 1.0)
                                                : equirectangularDirection(u, v);
    const double length = std::hypot(direction[0], direction[1], direction[2]);
    return {static_cast<float>(direction[0] / length), static_cast<float>(direction[1] / length),
            static_cast<float>(direction[2] / length)};
}

unsigned ImagePanoramaLoader::projectionKind() const {
    return mColors.size() == CUBE_FACES ? 1 : 0;
}

}  // namespace Graphics
