#pragma once

#include <png.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

/// Files of distances; the process ends where libpng fails.
namespace DistanceFile {

inline void writePng(const std::filesystem::path& file, size_t width, size_t height,
                     std::vector<uint16_t> millimeters, bool hasGamma = false) {
#if defined(_WIN32)
    std::FILE* stream = _wfopen(file.c_str(), L"wb");
#else
    std::FILE* stream = std::fopen(file.c_str(), "wb");
#endif
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (stream == nullptr || setjmp(png_jmpbuf(png)) != 0) {
        std::abort();
    }
    png_init_io(png, stream);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 16,
                 PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_ADAM7, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (hasGamma) {
        png_set_gAMA(png, info, 0.45455);
    }
    png_write_info(png, info);
    if (std::endian::native == std::endian::little) {
        png_set_swap(png);
    }
    std::vector<png_bytep> rows;
    for (size_t y = 0; y < height; ++y) {
        rows.push_back(reinterpret_cast<png_bytep>(millimeters.data() + y * width));
    }
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(stream);
}

inline std::string floatBytes(const std::vector<float>& floats, bool isLittleEndian) {
    std::string bytes(floats.size() * sizeof(float), '\0');
    std::memcpy(bytes.data(), floats.data(), bytes.size());
    if (isLittleEndian != (std::endian::native == std::endian::little)) {
        for (size_t i = 0; i < bytes.size(); i += sizeof(float)) {
            std::reverse(bytes.data() + i, bytes.data() + i + sizeof(float));
        }
    }
    return bytes;
}

}  // namespace DistanceFile
