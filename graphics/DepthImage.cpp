#include <graphics/DepthImage.h>

#include <graphics/ImageError.h>
#include <graphics/Pfm.h>
#include <graphics/Png.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace Graphics {

static_assert(sizeof(float) == Image::BYTES_PER_TEXEL);

namespace {

constexpr float GRAY_MAX = 65535.0f;

uint16_t toGray(float depth) {
    return depth > 0.0f ? static_cast<uint16_t>(std::lround(std::min(depth, 1.0f) * GRAY_MAX)) : uint16_t{0};
}

constexpr double MILLIMETERS_PER_METER = 1000.0;

float measured(double distance) {
    const bool isInRange = distance > 0.0 && distance <= DepthImage::NOT_MEASURED;
    const float rounded = isInRange ? static_cast<float>(distance) : 0.0f;
    return rounded > 0.0f ? rounded : DepthImage::NOT_MEASURED;
}

/// The row holds 16-bit numbers in its first half, which become floats.
template <class Convert>
void spread(uint8_t* row, size_t width, Convert convert) {
    for (size_t x = width; x-- > 0;) {  // From the end, which does not overtake what is still unread.
        uint16_t number = 0;
        std::memcpy(&number, row + x * sizeof number, sizeof number);
        const float depth = convert(number);
        std::memcpy(row + x * sizeof depth, &depth, sizeof depth);
    }
}

void scaleMeters(uint8_t* row, size_t width, double unitsPerMeter) {
    for (size_t x = 0; x < width; ++x) {
        float distance = 0.0f;
        std::memcpy(&distance, row + x * sizeof distance, sizeof distance);
        distance = measured(distance * unitsPerMeter);
        std::memcpy(row + x * sizeof distance, &distance, sizeof distance);
    }
}

}  // namespace

void DepthImage::fill(float depth) {
    fillTexels(&depth);
}

float DepthImage::pixel(size_t x, size_t y) const {
    float depth = 0.0f;
    std::memcpy(&depth, texel(x, y), sizeof depth);
    return depth;
}

void DepthImage::setPixel(size_t x, size_t y, float depth) {
    std::memcpy(texel(x, y), &depth, sizeof depth);
}

void DepthImage::writePng(const std::filesystem::path& file) const {
    std::vector<uint16_t> gray;
    gray.reserve(width() * height());
    for (size_t y = 0; y < height(); ++y) {
        for (size_t x = 0; x < width(); ++x) {
            gray.push_back(toGray(pixel(x, y)));
        }
    }
    Png::writeLinearGray16(file, width(), height(), gray.data());
}

DepthImage DepthImage::readPng(const std::filesystem::path& file) {
    DepthImage image;
    Png::readLinearGray16(file, rowsOf(image, file, BYTES_PER_TEXEL, DEFAULT_MEMORY_LIMIT));
    for (size_t y = 0; y < image.height(); ++y) {
        spread(image.data() + y * image.stride(), image.width(),
               [](uint16_t gray) { return static_cast<float>(gray) / GRAY_MAX; });
    }
    return image;
}

DepthImage DepthImage::readDistances(const std::filesystem::path& file, double unitsPerMeter,
                                     const std::stop_token& stop, std::uint64_t memoryLimit) {
    if (!std::isfinite(unitsPerMeter) || unitsPerMeter <= 0.0) {
        throw std::invalid_argument("Distances need a unit that is finite and above 0");
    }
    DepthImage image;
    const AllocateRows allocate = rowsOf(image, file, BYTES_PER_TEXEL, memoryLimit);
    const ImageKind kind = imageKind(file);
    if (kind == ImageKind::Png) {
        Png::readGray16(file, allocate, stop);
    } else if (kind == ImageKind::Pfm) {
        Pfm::read(file, allocate, stop);
    } else {
        throw ImageError(file, "distances need a 16-bit grey PNG file or a portable float map");
    }
    for (size_t y = 0; y < image.height(); ++y) {
        uint8_t* row = image.data() + y * image.stride();
        if (kind == ImageKind::Png) {
            spread(row, image.width(), [unitsPerMeter](uint16_t millimeters) {
                return measured(millimeters / MILLIMETERS_PER_METER * unitsPerMeter);
            });
        } else {
            scaleMeters(row, image.width(), unitsPerMeter);
        }
    }
    return image;
}

}  // namespace Graphics
