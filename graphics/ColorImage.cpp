#include <graphics/ColorImage.h>

#include <graphics/ImageError.h>
#include <graphics/Jpeg.h>
#include <graphics/Png.h>

#include <cstring>

namespace Graphics {

static_assert(sizeof(Math::Color) == Image::BYTES_PER_TEXEL);

void ColorImage::fill(const Math::Color& color) {
    fillTexels(&color);
}

Math::Color ColorImage::pixel(size_t x, size_t y) const {
    Math::Color color;
    std::memcpy(&color, texel(x, y), sizeof color);
    return color;
}

void ColorImage::setPixel(size_t x, size_t y, const Math::Color& color) {
    std::memcpy(texel(x, y), &color, sizeof color);
}

void ColorImage::writePng(const std::filesystem::path& file, const std::stop_token& stop) const {
    Png::writeBgra8(file, width(), height(), stride(), data(), stop);
}

ColorImage ColorImage::read(const std::filesystem::path& file, const std::stop_token& stop,
                            std::uint64_t memoryLimit) {
    // A progressive JPEG is read as a whole before its first row is.
    constexpr size_t JPEG_BYTES_PER_TEXEL = 10;
    const ImageKind kind = imageKind(file);
    ColorImage image;
    if (kind == ImageKind::Png) {
        Png::readBgra8(file, rowsOf(image, file, BYTES_PER_TEXEL, memoryLimit), stop);
        return image;
    }
    if (kind != ImageKind::Jpeg) {
        throw ImageError(file, "cannot be read: it is neither a PNG nor a JPEG file");
    }
    Jpeg::read(file, rowsOf(image, file, JPEG_BYTES_PER_TEXEL, memoryLimit), stop);
    return image;
}

ColorImage ColorImage::readPng(const std::filesystem::path& file, const std::stop_token& stop) {
    ColorImage image;
    Png::readBgra8(file, rowsOf(image, file, BYTES_PER_TEXEL, DEFAULT_MEMORY_LIMIT), stop);
    return image;
}

}  // namespace Graphics
