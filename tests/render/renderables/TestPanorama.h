#pragma once

#include <graphics/PanoramaLoader.h>
#include <math/Color.h>

#include <Eigen/Core>
#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// A panorama whose texels tell level, face and place, and which writes down what it is asked for.
class TestPanorama : public Graphics::PanoramaLoader {
public:
    struct Shape {
        unsigned kind = 0;
        size_t rows = 2;
        size_t columns = 4;
        size_t colorLevels = 3;
        size_t depthLevels = 2;
        size_t size = 4;   ///< Texels of a tile's side in level 0; twice as many in each further level.
        size_t tiles = 0;  ///< Instead of what the grid needs.
    };

    explicit TestPanorama(const Shape& wanted) : PanoramaLoader(layoutOf(wanted)), shape(wanted) {}
    ~TestPanorama() override { ++destroyed(); }

    static std::atomic<int>& destroyed() {
        static std::atomic<int> count{0};
        return count;
    }

    /// Red and green count the texels of the whole level from its top left corner, blue tells level and face.
    static Math::Color color(size_t level, size_t face, size_t x, size_t y) {
        return {static_cast<uint8_t>(x * 3), static_cast<uint8_t>(y * 5),
                static_cast<uint8_t>(60 * level + 8 * face + 5)};
    }
    static float distance(size_t level, size_t face, size_t x, size_t y) {
        return 2.0f + static_cast<float>((x * 7 + y * 13 + face * 3) % 16) +
               0.25f * static_cast<float>(level);
    }

    /// To the right, downwards and to the centre of a cube's face, as seen from inside.
    static std::array<Eigen::Vector3d, 3> faceAxes(size_t face) {
        const Eigen::Vector3d x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
        const std::array<std::array<Eigen::Vector3d, 3>, 6> axes = {
            {{-y, -z, x}, {y, -z, -x}, {x, -z, y}, {-x, -z, -y}, {-y, x, z}, {-y, -x, -z}}};
        return axes[face];
    }

    size_t tilesPerLevel() const override {
        return shape.tiles != 0 ? shape.tiles : shape.rows * shape.columns * (shape.kind == 0 ? 1 : 6);
    }
    std::vector<uint64_t> colorTiles() const override { return tiles(shape.colorLevels, extraTile); }
    std::vector<uint64_t> depthTiles() const override { return tiles(shape.depthLevels, 0); }
    Graphics::ColorImage loadColorTile(uint64_t id) override {
        return image<Graphics::ColorImage>(id, "c", color);
    }
    Graphics::DepthImage loadDepthTile(uint64_t id) override {
        return image<Graphics::DepthImage>(id, "d", distance);
    }
    Math::Point<float, 3> tileDirection(uint64_t id) const override {
        const auto [face, row, column] = place(id);
        const double u = (static_cast<double>(column) + 0.5) / static_cast<double>(shape.columns);
        const double v = (static_cast<double>(row) + 0.5) / static_cast<double>(shape.rows);
        Eigen::Vector3d direction;
        if (shape.kind == 0) {
            const double azimuth = std::acos(-1.0) * (1 - 2 * u), height = std::acos(-1.0) * (0.5 - v);
            direction = {std::cos(height) * std::cos(azimuth), std::cos(height) * std::sin(azimuth),
                         std::sin(height)};
        } else {
            const auto axes = faceAxes(face);
            direction = (axes[0] * (2 * u - 1) + axes[1] * (2 * v - 1) + axes[2]).normalized();
        }
        return Math::Point<float, 3>(Eigen::Vector3f(direction.cast<float>()));
    }
    unsigned projectionKind() const override { return shape.kind; }

    /// What was loaded, as "c5" and "d7".
    std::vector<std::string> takeLoaded() {
        const std::lock_guard lock(mMutex);
        return std::exchange(mLoaded, {});
    }

    const Shape shape;
    std::function<void(const std::string&)> onLoad;  ///< Before each tile, on the loading thread.
    std::function<bool(uint64_t)> offers;            ///< Which tiles there are; all by default.
    uint64_t extraTile = 0;
    size_t padding = 0;      ///< Bytes after each row.
    size_t surplusRows = 0;  ///< A wrong size.

private:
    static Layout layoutOf(const Shape& wanted) {
        Layout layout{wanted.rows, wanted.columns, {}, {}, wanted.colorLevels, wanted.depthLevels};
        for (size_t level = 0; level < std::max(wanted.colorLevels, wanted.depthLevels); ++level) {
            layout.tileWidths.push_back(wanted.size << level);
            layout.tileHeights.push_back(wanted.size << level);
        }
        return layout;
    }
    std::vector<uint64_t> tiles(size_t levels, uint64_t extra) const {
        std::vector<uint64_t> all;
        for (uint64_t id = 0; id < levels * tilesPerLevel(); ++id) {
            if (!offers || offers(id)) {
                all.push_back(id);
            }
        }
        if (extra != 0) {
            all.push_back(extra);
        }
        return all;
    }
    std::array<size_t, 3> place(uint64_t id) const {
        const size_t index = tileIndexWithinLevel(id);
        return {index / (shape.rows * shape.columns), index / shape.columns % shape.rows,
                index % shape.columns};
    }
    template <class Image, class Texel>
    Image image(uint64_t id, const char* kind, Texel texel) {
        const std::string name = kind + std::to_string(id);
        if (onLoad) {
            onLoad(name);
        }
        const auto [face, row, column] = place(id);
        const size_t width = tileWidth(level(id)), height = tileHeight(level(id));
        Image result;
        result.resize(width, height + surplusRows, width * Image::BYTES_PER_TEXEL + padding);
        for (size_t y = 0; y < height; ++y) {
            for (size_t x = 0; x < width; ++x) {
                result.setPixel(x, y, texel(level(id), face, column * width + x, row * height + y));
            }
        }
        const std::lock_guard lock(mMutex);
        mLoaded.push_back(name);
        return result;
    }

    std::mutex mMutex;
    std::vector<std::string> mLoaded;
};
