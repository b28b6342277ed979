#include "ImageFileTest.h"
#include "JpegFile.h"

#include <graphics/ColorImage.h>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Graphics::ColorImage;
using Math::Color;
using namespace std::string_literals;

class JpegTest : public ImageFileTest {
protected:
    /// Smooth, so that little is lost.
    static std::vector<uint8_t> ramp(size_t width, size_t height, size_t components) {
        std::vector<uint8_t> samples;
        for (size_t y = 0; y < height; ++y) {
            for (size_t x = 0; x < width; ++x) {
                for (size_t c = 0; c < components; ++c) {
                    samples.push_back(static_cast<uint8_t>(40 * c + 3 * x + 5 * y));
                }
            }
        }
        return samples;
    }

    std::string readError(const std::string& bytes) {
        writeBytes(folder / "image.jpg", bytes);
        return errorOf([this] { ColorImage::read(folder / "image.jpg"); });
    }
};

TEST_F(JpegTest, BaselineProgressiveAndGreyFilesBecomeOpaqueColours) {
    const fs::path file = folder / fs::path(u8"全景.png");  // Neither the name nor its ending matter.
    for (const bool progressive : {false, true}) {
        const std::string colored = JpegFile::encode(21, 13, ramp(21, 13, 3), {3, JCS_RGB, progressive, 90});
        const std::string gray =
            JpegFile::encode(21, 13, ramp(21, 13, 1), {1, JCS_GRAYSCALE, progressive, 90});
        for (const std::string& bytes : {colored, gray}) {
            writeBytes(file, bytes);
            const ColorImage image = ColorImage::read(file);
            ASSERT_EQ(image.width(), 21u);
            ASSERT_EQ(image.height(), 13u);
            const std::vector<uint8_t> expected = JpegFile::decode(bytes);
            for (size_t i = 0; i < expected.size() / 3; ++i) {
                const Color color(expected[3 * i], expected[3 * i + 1], expected[3 * i + 2], 255);
                ASSERT_EQ(image.pixel(i % 21, i / 21).packed(), color.packed()) << i << ' ' << progressive;
            }
        }
    }
}

TEST_F(JpegTest, ColoursThatAreNotSupportedAreNamed) {
    const std::string cmyk = JpegFile::encode(8, 8, ramp(8, 8, 4), {4, JCS_CMYK});
    EXPECT_NE(readError(cmyk).find("image.jpg\": CMYK"), std::string::npos);
    const std::string two = JpegFile::encode(8, 8, ramp(8, 8, 2), {2, JCS_UNKNOWN});
    EXPECT_NE(readError(two).find("2 colour components"), std::string::npos);
}

TEST_F(JpegTest, WhatIsCutOffIsAnErrorAndPaddingIsNot) {
    for (const bool progressive : {false, true}) {
        const std::string good = JpegFile::encode(64, 64, ramp(64, 64, 3), {3, JCS_RGB, progressive, 90});
        for (const size_t missing : {size_t{2}, size_t{40}, good.size() / 2}) {
            EXPECT_NE(readError(good.substr(0, good.size() - missing)).find("image.jpg\": cannot be read"),
                      std::string::npos);
        }
        const size_t end = good.size() - 2;
        EXPECT_EQ(readError(good.substr(0, end) + std::string(7, '\0') + good.substr(end)), "no error");
    }
}

TEST_F(JpegTest, ShortFilesCannotMakeUsWorkOrAllocateWithoutLimit) {
    const std::string good = JpegFile::encode(8, 8, ramp(8, 8, 1), {1, JCS_GRAYSCALE});
    const size_t frame = good.find(std::string("\xff\xc0", 2));
    const auto declare = [&](unsigned width, unsigned height) {
        std::string bytes = good;
        for (const auto& [at, value] : {std::pair{5u, height}, {7u, width}}) {
            bytes[frame + at] = static_cast<char>(value >> 8);
            bytes[frame + at + 1] = static_cast<char>(value);
        }
        return readError(bytes);
    };
    EXPECT_EQ(declare(8, 8), "no error") << "the header is where it is looked for";
    EXPECT_NE(declare(60000, 30000).find("60000 x 30000 is not supported"), std::string::npos);
    EXPECT_NE(declare(16000, 16000).find("16000 x 16000 is impossible in"), std::string::npos);
    EXPECT_NE(declare(0, 8).find("cannot be read"), std::string::npos);

    // Of all coefficients of a progressive file there is a copy.
    std::string progressive = JpegFile::encode(8, 8, ramp(8, 8, 1), {1, JCS_GRAYSCALE, true});
    progressive.replace(progressive.find(std::string("\xff\xc2", 2)) + 5, 4, "\x40\x01\x20\x00"s);
    EXPECT_NE(readError(progressive + std::string(200'000, '?')).find("2^27 texels"), std::string::npos);

    // Each scan sends the lowest bit of one coefficient once more than the last.
    std::vector<jpeg_scan_info> scans = {{1, {0}, 0, 0, 0, 0}};
    for (int coefficient = 1; coefficient < 64; ++coefficient) {
        scans.push_back({1, {0}, coefficient, coefficient, 0, 1});
        scans.push_back({1, {0}, coefficient, coefficient, 1, 0});
    }
    const std::vector<jpeg_scan_info> few(scans.begin(), scans.begin() + 99);
    JpegFile::Kind kind{1, JCS_GRAYSCALE, false, 90, few};
    EXPECT_EQ(readError(JpegFile::encode(8, 8, ramp(8, 8, 1), kind)), "no error");
    kind.scans = scans;
    EXPECT_NE(readError(JpegFile::encode(8, 8, ramp(8, 8, 1), kind)).find("too many scans"),
              std::string::npos);
}

TEST_F(JpegTest, EveryDamagedByteIsAnImageOrAnError) {
    for (const bool progressive : {false, true}) {
        const std::string good = JpegFile::encode(17, 9, ramp(17, 9, 3), {3, JCS_RGB, progressive, 50});
        const size_t errors = readDamaged(good, [](const fs::path& file) { ColorImage::read(file); });
        EXPECT_GE(errors, good.size() * 5 / 4) << "every shorter file is refused, and some damage is seen";
    }
}

}  // namespace
