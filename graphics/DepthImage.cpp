#include <graphics/DepthImage.h>

#include <graphics/Png.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace Graphics {

static_assert(sizeof(float) == Image::BYTES_PER_TEXEL);

namespace {

constexpr float GRAY_MAX = 65535.0f;

uint16_t toGray(float depth) {
    return depth > 0.0f ? static_cast<uint16_t>(std::lround(std::min(depth, 1.0f) * GRAY_MAX)) : uint16_t{0};
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
    Png::write(file, Png::Format::LinearGray16, width(), height(), width() * sizeof(uint16_t), gray.data());
}

DepthImage DepthImage::readPng(const std::filesystem::path& file) {
    DepthImage image;
    std::vector<uint16_t> gray;
    Png::read(file, Png::Format::LinearGray16, [&](size_t width, size_t height) {
        image.resize(width, height);
        gray.resize(width * height);
        return Png::Destination{gray.data(), width * sizeof(uint16_t)};
    });
    for (size_t y = 0; y < image.height(); ++y) {
        for (size_t x = 0; x < image.width(); ++x) {
            image.setPixel(x, y, static_cast<float>(gray[y * image.width() + x]) / GRAY_MAX);
        }
    }
    return image;
}

}  // namespace Graphics
