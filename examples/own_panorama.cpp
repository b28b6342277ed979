// own_panorama FILE.png: a panorama from a loader of one's own, here a room that is computed instead of read.

#include <graphics/PanoramaLoader.h>
#include <render/core/Renderer.h>
#include <render/renderables/PanoRenderable.h>

#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <numbers>

namespace {

/// A room of 8 x 6 x 3 metres around the centre: chequered walls, and distances, so that clouds and meshes in
/// the same scene hide and are hidden. One level of 4 x 8 tiles.
class Room : public Graphics::PanoramaLoader {
public:
    Room() : PanoramaLoader({ROWS, COLUMNS, {TILE}, {TILE}, 1, 1}) {}

    size_t tilesPerLevel() const override { return ROWS * COLUMNS; }
    std::vector<uint64_t> colorTiles() const override {
        std::vector<uint64_t> tiles;
        for (uint64_t tile = 0; tile < ROWS * COLUMNS; ++tile) {
            tiles.push_back(tile);
        }
        return tiles;
    }
    std::vector<uint64_t> depthTiles() const override { return colorTiles(); }

    Graphics::ColorImage loadColorTile(uint64_t tile) override {
        Graphics::ColorImage image(TILE, TILE);
        for (size_t i = 0; i < TILE * TILE; ++i) {
            const Eigen::Vector3f hit = wallAt(directionAt(tile, i % TILE, i / TILE));
            const auto square = std::lround(std::floor(hit.x()) + std::floor(hit.y()) + std::floor(hit.z()));
            const bool dark = square % 2 != 0;
            image.setPixel(i % TILE, i / TILE, dark ? Math::Color(70, 90, 110) : Math::Color(225, 220, 205));
        }
        return image;
    }
    Graphics::DepthImage loadDepthTile(uint64_t tile) override {
        Graphics::DepthImage image(TILE, TILE);
        for (size_t i = 0; i < TILE * TILE; ++i) {
            image.setPixel(i % TILE, i / TILE, wallAt(directionAt(tile, i % TILE, i / TILE)).norm());
        }
        return image;
    }
    Math::Point<float, 3> tileDirection(uint64_t tile) const override {
        const Eigen::Vector3f middle = directionAt(tile, TILE / 2, TILE / 2);
        return {middle.x(), middle.y(), middle.z()};
    }
    unsigned projectionKind() const override { return 0; }

private:
    static constexpr size_t ROWS = 4;
    static constexpr size_t COLUMNS = 8;
    static constexpr size_t TILE = 128;

    /// The equirectangular rule: +x in the middle of the image, +y to the left of it, +z at the top.
    static Eigen::Vector3f directionAt(uint64_t tile, size_t x, size_t y) {
        constexpr float pi = std::numbers::pi_v<float>;
        const float column = static_cast<float>(tile % COLUMNS * TILE + x) + 0.5f;
        const float row = static_cast<float>(tile / COLUMNS * TILE + y) + 0.5f;
        const float around = 2.0f * pi * (0.5f - column / (COLUMNS * TILE));
        const float up = pi * (0.5f - row / (ROWS * TILE));
        return {std::cos(up) * std::cos(around), std::cos(up) * std::sin(around), std::sin(up)};
    }

    static Eigen::Vector3f wallAt(const Eigen::Vector3f& direction) {
        const Eigen::Vector3f half(4.0f, 3.0f, 1.5f);
        return direction * (half.array() / direction.array().abs()).minCoeff();
    }
};

void drawRoom(const char* file) {
    const auto panorama = Render::PanoRenderable::create(std::make_shared<Room>(), "room");
    Render::Renderer renderer(true);
    renderer.setViewport(1280, 720);
    renderer.setScene(panorama);
    renderer.setPerspective(75.0f, 0.1f, 100.0f, 0.0f, 0.0f);
    renderer.setCameraPose(Math::Point<float, 3>(), Math::Point<float, 3>(1.0f, 0.4f, -0.1f),
                           Eigen::Vector3f::UnitZ());
    // A viewer calls startAsyncPanoramaTilesLoading() instead: what the camera faces comes first.
    panorama->loadPanoramaTiles();
    renderer.writePngImage(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: own_panorama FILE.png\n", stderr);
        return 2;
    }
    try {
        drawRoom(argv[1]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "own_panorama: %s\n", exception.what());
        return 1;
    }
}
