#include "DistanceFile.h"
#include "ImageFileTest.h"
#include "JpegFile.h"

#include <graphics/ImagePanoramaLoader.h>
#include <gtest/gtest.h>
#include <tests/support/RealData.h>

#include <cmath>
#include <future>
#include <limits>
#include <numbers>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Graphics::ColorImage;
using Graphics::DepthImage;
using Graphics::ImagePanoramaLoader;
using Graphics::ImagePanoramaOptions;
using Math::Color;

constexpr float NONE = DepthImage::NOT_MEASURED;

class ImagePanoramaLoaderTest : public ImageFileTest {
protected:
    /// Noise, and the face in the alpha channel.
    static ColorImage noise(size_t width, size_t height, size_t face = 0) {
        ColorImage image(width, height);
        uint32_t state = static_cast<uint32_t>(face) + 1;
        const auto next = [&state] {
            return static_cast<uint8_t>((state = state * 1664525u + 1013904223u) >> 24);
        };
        for (size_t i = 0; i < width * height; ++i) {
            const uint8_t red = next();
            const uint8_t green = next();
            image.setPixel(i % width, i / width, Color(red, green, next(), static_cast<uint8_t>(face)));
        }
        return image;
    }

    fs::path colorFile(size_t width, size_t height, size_t face = 0) {
        fs::path file = folder / ("colours" + std::to_string(face) + ".png");
        noise(width, height, face).writePng(file);
        return file;
    }

    fs::path distanceFile(size_t width, size_t height, const std::vector<uint16_t>& millimeters = {}) {
        fs::path file = folder / "distances.png";
        DistanceFile::writePng(file, width, height,
                               millimeters.empty() ? std::vector<uint16_t>(width * height, 1) : millimeters);
        return file;
    }

    std::vector<fs::path> cubeFiles(size_t side) {
        std::vector<fs::path> files;
        for (size_t face = 0; face < 6; ++face) {
            files.push_back(colorFile(side, side, face));
        }
        return files;
    }

    /// "levels: rows x columns" of an image, distances in brackets.
    std::string grid(size_t width, size_t height, const ImagePanoramaOptions& options = {},
                     const std::vector<fs::path>& distances = {}) {
        const ImagePanoramaLoader loader({colorFile(width, height)}, distances, options);
        const size_t finest = loader.numColorLevels() - 1;
        EXPECT_EQ(loader.tileWidth(finest) * loader.tileColumns(), width);
        EXPECT_EQ(loader.tileHeight(finest) * loader.tileRows(), height);
        EXPECT_EQ(loader.colorTiles().size(), loader.tilesPerLevel() * loader.numColorLevels());
        EXPECT_EQ(loader.depthTiles().size(), loader.tilesPerLevel() * loader.numDepthLevels());
        return std::to_string(loader.numColorLevels()) + "(" + std::to_string(loader.numDepthLevels()) +
               "): " + std::to_string(loader.tileRows()) + " x " + std::to_string(loader.tileColumns());
    }
};

/// All tiles of a level, put together, compared with the mean of each block of the image.
void expectBoxFiltered(ImagePanoramaLoader& loader, size_t level, size_t face, const ColorImage& image) {
    const size_t side = size_t{1} << (loader.numColorLevels() - 1 - level);
    const size_t tilesPerFace = loader.tileRows() * loader.tileColumns();
    for (size_t tile = 0; tile < tilesPerFace; ++tile) {
        const ColorImage cut =
            loader.loadColorTile(level * loader.tilesPerLevel() + face * tilesPerFace + tile);
        ASSERT_EQ(cut.width(), loader.tileWidth(level));
        ASSERT_EQ(cut.height(), loader.tileHeight(level));
        const size_t left = tile % loader.tileColumns() * cut.width();
        const size_t top = tile / loader.tileColumns() * cut.height();
        for (size_t i = 0; i < cut.width() * cut.height(); ++i) {
            const size_t x = i % cut.width();
            const size_t y = i / cut.width();
            for (size_t channel = 0; channel < 4; ++channel) {
                double sum = 0.0;
                for (size_t j = 0; j < side * side; ++j) {
                    const size_t row = (top + y) * side + j / side;
                    sum += image.data()[row * image.stride() + ((left + x) * side + j % side) * 4 + channel];
                }
                const double mean = std::floor(sum / static_cast<double>(side * side) + 0.5);
                ASSERT_EQ(cut.data()[y * cut.stride() + x * 4 + channel], mean)
                    << "texel " << x << ' ' << y << " of tile " << tile;
            }
        }
    }
}

TEST_F(ImagePanoramaLoaderTest, EveryLevelShowsTheWholeImageHalvedEachTime) {
    const fs::path file = colorFile(128, 64);
    ImagePanoramaLoader loader({file});
    EXPECT_EQ(loader.projectionKind(), 0u);
    EXPECT_EQ(loader.tilesPerLevel(), 32u);
    ASSERT_EQ(loader.numColorLevels(), 4u);
    EXPECT_EQ(loader.numDepthLevels(), 0u);
    for (size_t level = 0; level < 4; ++level) {
        expectBoxFiltered(loader, level, 0, noise(128, 64));
    }
    EXPECT_THROW(loader.loadColorTile(128), std::out_of_range);
    EXPECT_THROW(loader.loadDepthTile(0), std::out_of_range);
    EXPECT_THROW(loader.tileDirection(std::numeric_limits<uint64_t>::max()), std::out_of_range);
}

TEST_F(ImagePanoramaLoaderTest, CubeFacesKeepTheirOrder) {
    ImagePanoramaLoader loader(cubeFiles(16));
    EXPECT_EQ(loader.projectionKind(), 1u);
    EXPECT_EQ(loader.tilesPerLevel(), 24u);
    ASSERT_EQ(loader.numColorLevels(), 4u);
    for (size_t face = 0; face < 6; ++face) {
        expectBoxFiltered(loader, 1, face, noise(16, 16, face));
        expectBoxFiltered(loader, 3, face, noise(16, 16, face));
    }
}

TEST_F(ImagePanoramaLoaderTest, ACoarseDistanceIsTheMeasuredOneNearestToTheMiddle) {
    // One texel of level 0 covers each 4 x 4 block.
    std::vector<uint16_t> millimeters(32, 0);
    const auto put = [&](size_t x, size_t y, uint16_t value) { millimeters[y * 8 + x] = value; };
    put(0, 0, 1000);
    put(3, 0, 2000);
    put(2, 0, 3000);  // Nearer than the corners; nothing further in was measured.
    put(5, 2, 4000);
    put(6, 1, 5000);  // As near as the one before, in the row above.
    put(7, 3, 6000);
    ImagePanoramaLoader loader({colorFile(8, 4)}, {distanceFile(8, 4, millimeters)}, {1, 2, 3, 2.0});
    ASSERT_EQ(loader.numDepthLevels(), 3u);
    EXPECT_EQ(loader.loadDepthTile(0).pixel(0, 0), 6.0f);
    EXPECT_EQ(loader.loadDepthTile(1).pixel(0, 0), 10.0f);
    const DepthImage left = loader.loadDepthTile(2);
    EXPECT_EQ(left.pixel(0, 0), 2.0f);
    EXPECT_EQ(left.pixel(1, 0), 6.0f) << "of two in a row the left one";
    EXPECT_EQ(left.pixel(0, 1), NONE) << "nothing measured in the block";
    const DepthImage finest = loader.loadDepthTile(5);
    EXPECT_EQ(finest.pixel(1, 2), 8.0f);
    EXPECT_EQ(finest.pixel(1, 1), NONE);
}

/// Where the renderer looks a direction up: the linear tile index, and the place in the tile.
std::pair<size_t, std::pair<double, double>> lookUp(const ImagePanoramaLoader& loader,
                                                    const Math::Point<float, 3>& direction) {
    const double x = direction.x();
    const double y = direction.y();
    const double z = direction.z();
    const double ax = std::abs(x);
    const double ay = std::abs(y);
    const double az = std::abs(z);
    double face = 0.0;
    double u = 0.5 - std::atan2(y, x) / (2.0 * std::numbers::pi);
    double v = 0.5 - std::asin(z) / std::numbers::pi;
    if (loader.projectionKind() != 0) {
        if (ax >= ay && ax >= az) {
            face = x > 0.0 ? 0.0 : 1.0;
            u = 0.5 * (x > 0.0 ? -y : y) / ax + 0.5;
            v = 0.5 * -z / ax + 0.5;
        } else if (ay > az) {
            face = y > 0.0 ? 2.0 : 3.0;
            u = 0.5 * (y > 0.0 ? x : -x) / ay + 0.5;
            v = 0.5 * -z / ay + 0.5;
        } else {
            face = z > 0.0 ? 4.0 : 5.0;
            u = 0.5 * -y / az + 0.5;
            v = 0.5 * (z > 0.0 ? x : -x) / az + 0.5;
        }
    }
    const double rows = static_cast<double>(loader.tileRows());
    const double columns = static_cast<double>(loader.tileColumns());
    const double index = face * rows * columns + std::floor(v * rows) * columns + std::floor(u * columns);
    return {static_cast<size_t>(index),
            {u * columns - std::floor(u * columns), v * rows - std::floor(v * rows)}};
}

TEST_F(ImagePanoramaLoaderTest, ATilesDirectionIsLookedUpInTheMiddleOfTheTile) {
    const ImagePanoramaLoader sphere({colorFile(64, 32)}, {}, {4, 8, 2});
    const ImagePanoramaLoader cube(cubeFiles(8), {}, {4, 2, 2});
    for (const ImagePanoramaLoader* loader : {&sphere, &cube}) {
        for (const uint64_t tile : loader->colorTiles()) {
            const Math::Point<float, 3> direction = loader->tileDirection(tile);
            EXPECT_NEAR(std::hypot(direction.x(), direction.y(), direction.z()), 1.0, 1e-6);
            const auto [index, place] = lookUp(*loader, direction);
            EXPECT_EQ(index, loader->tileIndexWithinLevel(tile));
            EXPECT_NEAR(place.first, 0.5, 1e-5) << tile;
            EXPECT_NEAR(place.second, 0.5, 1e-5) << tile;
        }
    }
}

TEST_F(ImagePanoramaLoaderTest, AGridThatDividesIsChosen) {
    EXPECT_EQ(grid(128, 64), "4(0): 4 x 8");
    EXPECT_EQ(grid(500, 250), "2(0): 5 x 5") << "125 and 250 texels, of which neither halves";
    EXPECT_EQ(grid(1000, 500), "3(0): 5 x 5");
    EXPECT_EQ(grid(101, 103), "1(0): 1 x 1");
    EXPECT_EQ(grid(100, 50, {5, 0, 1}), "1(0): 5 x 5");
    EXPECT_EQ(grid(128, 64, {2, 4, 3}), "3(0): 2 x 4");
    EXPECT_EQ(grid(96, 48, {0, 12, 0}), "4(0): 3 x 12");
    EXPECT_EQ(grid(96, 48, {4, 12, 0}), "3(0): 4 x 12") << "48 tiles";
}

TEST_F(ImagePanoramaLoaderTest, DistancesOfAnotherSizeHaveAsManyLevelsLessOrMore) {
    EXPECT_EQ(grid(128, 64, {}, {distanceFile(32, 16)}), "4(2): 4 x 8");
    EXPECT_EQ(grid(128, 64, {}, {distanceFile(512, 256)}), "2(4): 4 x 8");
    EXPECT_EQ(grid(128, 64, {4, 8, 1}, {distanceFile(128, 64)}), "1(1): 4 x 8");
    for (const auto& size : {std::pair{128u, 32u}, {96u, 48u}, {8u, 4u}, {2048u, 1024u}}) {
        const fs::path distances = distanceFile(size.first, size.second);
        const std::string error = errorOf([&] { grid(128, 64, {}, {distances}); });
        EXPECT_NE(error.find("distances.png\": its size of " + std::to_string(size.first)), std::string::npos)
            << error;
        EXPECT_NE(error.find("128 x 64"), std::string::npos) << error;
    }
    EXPECT_NE(errorOf([&] {
                  grid(128, 64, {0, 0, 2}, {distanceFile(32, 16)});
              }).find("2 levels"),
              std::string::npos);
}

TEST_F(ImagePanoramaLoaderTest, WhatCannotBeCutIsRefusedWhenItIsOpened) {
    EXPECT_NE(errorOf([&] {
                  grid(100, 50, {4, 8, 1});
              }).find("colours0.png\": 100 x 50 texels do not divide"),
              std::string::npos);
    EXPECT_NE(errorOf([&] { grid(128, 100, {0, 0, 4}); }), "no error");
    EXPECT_NE(errorOf([&] { grid(16411, 1); }), "no error") << "a prime wider than a tile may be";
    using Invalid = std::invalid_argument;
    EXPECT_NE(errorOf<Invalid>([&] {
                  grid(128, 64, {0, 0, 5});
              }).find("colours0.png\": 5 levels"),
              std::string::npos);
    EXPECT_NE(errorOf<Invalid>([&] { grid(128, 64, {7, 7, 1}); }).find("7 x 7 tiles"), std::string::npos);
    EXPECT_NE(errorOf<Invalid>([&] { ImagePanoramaLoader(cubeFiles(16), {}, {3, 3, 1}); }), "no error");
    EXPECT_NE(errorOf<Invalid>([&] { ImagePanoramaLoader({colorFile(8, 8), colorFile(8, 8)}); }), "no error");
    EXPECT_NE(errorOf<Invalid>([&] { ImagePanoramaLoader(cubeFiles(8), {distanceFile(8, 8)}); }), "no error");

    ImagePanoramaOptions limited;
    limited.memoryLimit = 6 * 16 * 16 * 4;
    std::vector<fs::path> files = cubeFiles(16);
    ImagePanoramaLoader(files, {}, limited);
    --limited.memoryLimit;
    EXPECT_NE(errorOf([&] {
                  ImagePanoramaLoader(files, {}, limited);
              }).find("colours5.png\": a size of 16 x 16 asks for 1024 bytes of memory, its limit is 1023"),
              std::string::npos);
    noise(8, 8).writePng(files[3]);
    EXPECT_NE(errorOf([&] { ImagePanoramaLoader loader(files); }).find("colours3.png\": its size of 8 x 8"),
              std::string::npos);
    noise(16, 8).writePng(files[0]);
    EXPECT_NE(errorOf([&] { ImagePanoramaLoader loader(files); }).find("colours0.png\": a cube face must be"),
              std::string::npos);
    writeBytes(files[0], "no image");
    EXPECT_NE(errorOf([&] { ImagePanoramaLoader loader(files); }).find("colours0.png"), std::string::npos);
}

TEST_F(ImagePanoramaLoaderTest, ReadersOfEachFormatStop) {
    const std::vector<uint8_t> samples(64, 7);
    ColorImage(8, 8).writePng(folder / "c.png");
    writeBytes(folder / "b.jpg", JpegFile::encode(8, 8, samples, {1, JCS_GRAYSCALE}));
    writeBytes(folder / "p.jpg", JpegFile::encode(8, 8, samples, {1, JCS_GRAYSCALE, true}));
    std::stop_source stop;
    stop.request_stop();
    const auto stops = [](const std::string& error) {
        return error.find("the reading was stopped") != std::string::npos;
    };
    for (const char* const name : {"c.png", "b.jpg", "p.jpg"}) {
        EXPECT_TRUE(stops(errorOf([&] { ImagePanoramaLoader({folder / name}, {}, {}, stop.get_token()); })))
            << name;
    }
    DistanceFile::writePng(folder / "d.png", 2, 2, {1, 2, 3, 4});
    writeBytes(folder / "d.pfm", "Pf\n1 1\n-1\n" + DistanceFile::floatBytes({1.0f}, true));
    for (const char* const name : {"d.png", "d.pfm"}) {
        EXPECT_TRUE(stops(errorOf([&] { DepthImage::readDistances(folder / name, 1.0, stop.get_token()); })))
            << name;
    }
}

TEST_F(ImagePanoramaLoaderTest, ManyThreadsMayLoadAtOnce) {
    ImagePanoramaLoader loader({colorFile(128, 64)}, {distanceFile(128, 64)});
    std::vector<std::future<size_t>> loads(4);
    for (std::future<size_t>& load : loads) {
        load = std::async(std::launch::async, [&loader] {
            size_t texels = 0;
            for (const uint64_t tile : loader.colorTiles()) {
                texels += loader.loadColorTile(tile).width() * loader.loadDepthTile(tile).height();
                loader.tileDirection(tile);
            }
            return texels;
        });
    }
    for (std::future<size_t>& load : loads) {
        EXPECT_EQ(load.get(), 128u * 64u * (64 + 16 + 4 + 1) / 64);
    }
}

TEST_F(ImagePanoramaLoaderTest, RealPanoramasAreCutWithoutALoss) {
    const fs::path data = TestSupport::realData() / "pano";
    if (!fs::exists(data)) {
        GTEST_SKIP() << "the real panoramas are not here: " << data;
    }
    const auto decoded = [](const fs::path& file, size_t width) {
        const std::vector<uint8_t> samples = JpegFile::decode(bytesOf(file));
        ColorImage image(width, samples.size() / 3 / width);
        for (size_t i = 0; i * 3 < samples.size(); ++i) {
            image.setPixel(i % width, i / width,
                           Color(samples[3 * i], samples[3 * i + 1], samples[3 * i + 2], 255));
        }
        return image;
    };
    const fs::path sphereFile = data / "examplepano-equirect.jpg";
    ImagePanoramaLoader sphere({sphereFile});
    EXPECT_EQ(sphere.tileWidth(3), 512u);
    const ColorImage sphereImage = decoded(sphereFile, 4096);
    for (const size_t level : {3u, 2u, 0u}) {
        expectBoxFiltered(sphere, level, 0, sphereImage);
    }
    const fs::path cubeData = data / "cube-miramar";
    const std::vector<fs::path> faces = {cubeData / "px.jpg", cubeData / "nx.jpg", cubeData / "py.jpg",
                                         cubeData / "ny.jpg", cubeData / "pz.jpg", cubeData / "nz.jpg"};
    ImagePanoramaLoader cube(faces);
    EXPECT_EQ(cube.tileWidth(3), 512u);
    expectBoxFiltered(cube, 3, 4, decoded(faces[4], 1024));
    expectBoxFiltered(cube, 0, 4, decoded(faces[4], 1024));
}

}  // namespace
