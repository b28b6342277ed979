#pragma once

#include <graphics/ColorImage.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// libjpeg's header relies on the two above it.
#include <jpeglib.h>

/// JPEG files straight from and to libjpeg; the process ends where it fails.
namespace JpegFile {

struct Kind {
    int components = 3;
    J_COLOR_SPACE colorSpace = JCS_RGB;
    bool progressive = false;
    int quality = 90;
    std::vector<jpeg_scan_info> scans = {};  ///< Instead of the usual ones.
};

/// samples: width x height x components.
inline std::string encode(size_t width, size_t height, std::vector<uint8_t> samples, const Kind& kind) {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* data = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &data, &size);
    info.image_width = static_cast<JDIMENSION>(width);
    info.image_height = static_cast<JDIMENSION>(height);
    info.input_components = kind.components;
    info.in_color_space = kind.colorSpace;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, kind.quality, TRUE);
    if (kind.progressive) {
        jpeg_simple_progression(&info);
    }
    if (!kind.scans.empty()) {
        info.scan_info = kind.scans.data();
        info.num_scans = static_cast<int>(kind.scans.size());
    }
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        JSAMPROW row =
            samples.data() + info.next_scanline * width * static_cast<size_t>(info.input_components);
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    std::string bytes(reinterpret_cast<const char*>(data), size);
    jpeg_destroy_compress(&info);
    std::free(data);
    return bytes;
}

/// Red, green and blue of every texel.
inline std::vector<uint8_t> decode(const std::string& bytes) {
    jpeg_decompress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, reinterpret_cast<const unsigned char*>(bytes.data()),
                 static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_RGB;
    jpeg_start_decompress(&info);
    const size_t rowBytes = size_t{info.output_width} * 3;
    std::vector<uint8_t> samples(rowBytes * info.output_height);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = samples.data() + info.output_scanline * rowBytes;
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_destroy_decompress(&info);
    return samples;
}

}  // namespace JpegFile
