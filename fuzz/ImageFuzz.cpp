// The input is an image file. It is read as colours, as depths and as distances, and cut into a panorama's
// tiles.

#include <fuzz/FuzzTarget.h>
#include <graphics/ImageError.h>
#include <graphics/ImagePanoramaLoader.h>

#include <tests/support/PotreeFixture.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <vector>

namespace {

/// What a file may hold is more than a fuzzer has time for.
constexpr std::size_t MAX_TEXELS = std::size_t{1} << 16;

/// Calls with each depth of an image.
void forEach(const Graphics::DepthImage& image, const std::function<void(float)>& check) {
    for (std::size_t y = 0; y < image.height(); ++y) {
        for (std::size_t x = 0; x < image.width(); ++x) {
            check(image.pixel(x, y));
        }
    }
}

template <class Read>
auto tryTo(const Read& read) -> std::optional<decltype(read())> {
    try {
        auto image = read();
        Fuzz::require(image.width() > 0 && image.height() > 0);
        Fuzz::require(image.sizeInBytes() == 4 * image.width() * image.height());
        return image;
    } catch (const Graphics::ImageError&) {
        return std::nullopt;
    }
}

void requireDistance(float distance) {
    Fuzz::require(distance > 0.0f && distance <= Graphics::DepthImage::NOT_MEASURED);
}

void cut(const std::filesystem::path& file, bool hasDistances) {
    std::vector<std::filesystem::path> distances;
    if (hasDistances) {
        distances.push_back(file);
    }
    try {
        Graphics::ImagePanoramaLoader panorama({file}, distances);
        for (const std::uint64_t tile : panorama.colorTiles()) {
            const std::size_t level = panorama.level(tile);
            Fuzz::require(panorama.loadColorTile(tile).width() == panorama.tileWidth(level));
        }
        for (const std::uint64_t tile : panorama.depthTiles()) {
            forEach(panorama.loadDepthTile(tile), requireDistance);
        }
    } catch (const Graphics::ImageError&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Support::TemporaryFolder folder;
    const std::filesystem::path file = folder.path() / "image";
    folder.write("image", Fuzz::textOf(data, size));
    const auto colors = tryTo([&] { return Graphics::ColorImage::read(file); });
    const auto distances = tryTo([&] { return Graphics::DepthImage::readDistances(file, 0.5); });
    if (distances) {
        forEach(*distances, requireDistance);
    }
    if (colors && colors->width() * colors->height() <= MAX_TEXELS) {
        if (const auto depths = tryTo([&] { return Graphics::DepthImage::readPng(file); })) {
            forEach(*depths, [](float depth) { Fuzz::require(depth >= 0.0f && depth <= 1.0f); });
        }
        cut(file, distances.has_value());
    }
    return 0;
}
