#include <graphics/Image.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace Graphics {

void Image::Free::operator()(uint8_t* memory) const noexcept {
    std::free(memory);
}

Image::Image(const Image& other) {
    *this = other;
}

Image& Image::operator=(const Image& other) {
    if (this != &other) {
        resize(other.mWidth, other.mHeight, other.mStride);
        if (sizeInBytes() != 0) {
            std::memcpy(mData.get(), other.mData.get(), sizeInBytes());
        }
    }
    return *this;
}

Image& Image::operator=(Image&& other) noexcept {
    Image taken(std::move(other));
    swap(taken);
    return *this;
}

void Image::resize(size_t width, size_t height) {
    if (width > std::numeric_limits<size_t>::max() / BYTES_PER_TEXEL) {
        throw std::length_error("The image is too wide");
    }
    resize(width, height, width * BYTES_PER_TEXEL);
}

void Image::resize(size_t width, size_t height, size_t strideBytes) {
    if (strideBytes / BYTES_PER_TEXEL < width) {
        throw std::invalid_argument("The stride is smaller than a row of the image");
    }
    if (height != 0 && strideBytes > std::numeric_limits<size_t>::max() / height) {
        throw std::length_error("The image is too large");
    }
    const size_t size = strideBytes * height;
    if (size > mCapacity) {
        // Large blocks come zeroed from the system, page by page as they are touched.
        std::unique_ptr<uint8_t[], Free> memory(static_cast<uint8_t*>(std::calloc(size, 1)));
        if (!memory) {
            throw std::bad_alloc();
        }
        mData = std::move(memory);
        mCapacity = size;
    }
    mWidth = width;
    mHeight = height;
    mStride = strideBytes;
}

const uint8_t* Image::texel(size_t x, size_t y) const {
    if (x >= mWidth || y >= mHeight) {
        throw std::out_of_range("There is no such texel in the image");
    }
    return mData.get() + y * mStride + x * BYTES_PER_TEXEL;
}

uint8_t* Image::texel(size_t x, size_t y) {
    return const_cast<uint8_t*>(std::as_const(*this).texel(x, y));
}

void Image::fillTexels(const void* texelBytes) {
    for (size_t y = 0; y < mHeight; ++y) {
        uint8_t* row = mData.get() + y * mStride;
        for (size_t x = 0; x < mWidth; ++x) {
            std::memcpy(row + x * BYTES_PER_TEXEL, texelBytes, BYTES_PER_TEXEL);
        }
    }
}

void Image::swap(Image& other) noexcept {
    std::swap(mWidth, other.mWidth);
    std::swap(mHeight, other.mHeight);
    std::swap(mStride, other.mStride);
    std::swap(mCapacity, other.mCapacity);
    mData.swap(other.mData);
}

}  // namespace Graphics
