#pragma once

#include <core/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Graphics {

/// Rows of 4-byte texels in memory, top row first, each row `stride` bytes after the one before. The base of
/// ColorImage and DepthImage; a value, with no thread of its own. New memory is zero, and takes up none until
/// it is touched.
class LUMARO_API Image {
public:
    static constexpr size_t BYTES_PER_TEXEL = 4;
    /// Of what reads images: more than the largest that can be read take, six cube faces and their distances.
    static constexpr std::uint64_t DEFAULT_MEMORY_LIMIT = std::uint64_t{16} << 30;

    /// Rows without padding. Otherwise as below.
    void resize(size_t width, size_t height);

    /// Rows of strideBytes, padding included. The contents are unspecified afterwards. Throws
    /// std::invalid_argument when a row does not fit into the stride, std::length_error when the image cannot
    /// be addressed, std::bad_alloc when there is no memory for it; each leaves the image as it was.
    void resize(size_t width, size_t height, size_t strideBytes);

    uint8_t* data() { return mData.get(); }
    const uint8_t* data() const { return mData.get(); }

    size_t width() const { return mWidth; }
    size_t height() const { return mHeight; }
    size_t stride() const { return mStride; }  ///< Bytes per row, padding included.
    size_t sizeInBytes() const { return mStride * mHeight; }

protected:
    Image() = default;
    ~Image() = default;
    Image(const Image& other);
    Image& operator=(const Image& other);
    Image(Image&& other) noexcept { swap(other); }  ///< The source is empty afterwards.
    Image& operator=(Image&& other) noexcept;

    /// First byte of a texel. Throws std::out_of_range outside the image.
    const uint8_t* texel(size_t x, size_t y) const;
    uint8_t* texel(size_t x, size_t y);

    /// Copies the 4 bytes to every texel, not to the padding.
    void fillTexels(const void* texelBytes);

private:
    struct Free {
        LUMARO_API void operator()(uint8_t* memory) const noexcept;
    };

    void swap(Image& other) noexcept;

    size_t mWidth = 0;
    size_t mHeight = 0;
    size_t mStride = 0;
    size_t mCapacity = 0;
    std::unique_ptr<uint8_t[], Free> mData;
};

}  // namespace Graphics
