#include "DistanceFile.h"
#include "ImageFileTest.h"

#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <graphics/ImageError.h>

#include <gtest/gtest.h>

#include <iterator>
#include <limits>

namespace {

namespace fs = std::filesystem;
using Graphics::ColorImage;
using Graphics::DepthImage;
using Graphics::ImageError;
using Math::Color;

class PngTest : public ImageFileTest {
protected:
    /// Every texel another colour, alpha included.
    static ColorImage testImage(size_t width, size_t height, size_t stride) {
        ColorImage image;
        image.resize(width, height, stride);
        for (size_t y = 0; y < height; ++y) {
            for (size_t x = 0; x < width; ++x) {
                image.setPixel(x, y,
                               Color(uint8_t(x * 17), uint8_t(y * 31), uint8_t(x + y), uint8_t(255 - x * y)));
            }
        }
        return image;
    }

    size_t filesInFolder() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    }

    static std::string readError(const fs::path& file) {
        return errorOf([&file] { ColorImage::readPng(file); });
    }
};

TEST_F(PngTest, ColoursComeBackUnchangedWhateverTheStride) {
    const fs::path file = folder / fs::path(u8"картинка.png");
    for (const size_t stride : {52u, 56u, 64u, 55u}) {
        const ColorImage image = testImage(13, 7, stride);
        image.writePng(file);
        const ColorImage back = ColorImage::readPng(file);
        ASSERT_EQ(back.width(), 13u);
        ASSERT_EQ(back.height(), 7u);
        for (size_t y = 0; y < 7; ++y) {
            for (size_t x = 0; x < 13; ++x) {
                ASSERT_EQ(back.pixel(x, y).packed(), image.pixel(x, y).packed())
                    << x << ' ' << y << ' ' << stride;
            }
        }
    }
    EXPECT_EQ(filesInFolder(), 1u) << "written over, nothing left beside it";
}

TEST_F(PngTest, DepthBecomesSixteenBitGrey) {
    DepthImage image(5, 2);
    const float values[] = {0.0f,
                            1.0f,
                            0.5f,
                            1e-4f,
                            0.9999f,
                            -3.0f,
                            7.0f,
                            std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::infinity(),
                            0.25f};
    const float expected[] = {0.0f, 1.0f, 0.5f, 1e-4f, 0.9999f, 0.0f, 1.0f, 0.0f, 1.0f, 0.25f};
    for (size_t i = 0; i < 10; ++i) {
        image.setPixel(i % 5, i / 5, values[i]);
    }
    const fs::path file = folder / "depth.png";
    image.writePng(file);
    const std::string header = bytesOf(file);
    EXPECT_EQ(header[24], 16) << "bit depth";
    EXPECT_EQ(header[25], 0) << "grey";
    const DepthImage back = DepthImage::readPng(file);
    for (size_t i = 0; i < 10; ++i) {
        EXPECT_NEAR(back.pixel(i % 5, i / 5), expected[i], 0.5f / 65535.0f + 1e-7f) << i;
    }
}

TEST_F(PngTest, DamagedFilesAreRefusedByName) {
    const fs::path file = folder / "damaged.png";
    testImage(40, 40, 160).writePng(file);
    const std::string good = bytesOf(file);
    std::string flipped = good;
    flipped[good.size() / 2] = static_cast<char>(flipped[good.size() / 2] ^ 0x55);
    for (const std::string& bytes : {std::string(), std::string("not a picture at all"), good.substr(0, 20),
                                     good.substr(0, good.size() / 2), flipped}) {
        writeBytes(file, bytes);
        EXPECT_NE(readError(file).find("damaged.png\": cannot be read"), std::string::npos)
            << readError(file);
    }
    EXPECT_NE(readError(folder / "absent.png").find("absent.png\": cannot be opened"), std::string::npos);
}

uint32_t crc32(const std::string& bytes) {
    uint32_t crc = 0xffffffffu;
    for (const char byte : bytes) {
        crc ^= static_cast<uint8_t>(byte);
        for (int i = 0; i < 8; ++i) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xedb88320u : 0u);
        }
    }
    return ~crc;
}

std::string bigEndian(uint32_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

TEST_F(PngTest, HugeDeclaredSizesAreRefusedBeforeAnythingIsAllocated) {
    const fs::path file = folder / "huge.png";
    testImage(2, 2, 8).writePng(file);
    const std::string colors = bytesOf(file);
    DepthImage(2, 2).writePng(file);
    const std::string distances = bytesOf(file);
    const auto declare = [&](const std::string& good, uint32_t width, uint32_t height) {
        std::string header = "IHDR" + bigEndian(width) + bigEndian(height) + good.substr(24, 5);
        writeBytes(file, good.substr(0, 12) + header + bigEndian(crc32(header)) + good.substr(33));
        return &good == &colors ? readError(file) : errorOf([&] { DepthImage::readDistances(file); });
    };
    for (const std::string* good : {&colors, &distances}) {
        EXPECT_EQ(declare(*good, 2, 2), "no error") << "the header is built right";
        for (const auto& [width, height] :
             {std::pair{65536u, 1u}, {1u, 65536u}, {16385u, 16384u}, {65535u, 65535u}}) {
            const std::string error = declare(*good, width, height);
            ASSERT_NE(error.find("is not supported"), std::string::npos) << error;
        }
        const std::string error = declare(*good, 16000, 16000);
        EXPECT_NE(error.find("is impossible in"), std::string::npos) << error;
    }
}

#if defined(__linux__) && !defined(__SANITIZE_THREAD__)  // Which touches what is allocated.
/// The most memory that the process has used since the last call, in MiB.
size_t peakMemory() {
    size_t kilobytes = 0;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word && kilobytes == 0;) {
        if (word == "VmHWM:") {
            status >> kilobytes;
        }
    }
    std::ofstream("/proc/self/clear_refs") << 5;
    return kilobytes >> 10;
}

TEST_F(PngTest, RowsThatNeverComeTakeNoMemory) {
    const fs::path file = folder / "short.png";
    testImage(2, 2, 8).writePng(file);
    const std::string good = bytesOf(file);
    const std::string header = "IHDR" + bigEndian(16000) + bigEndian(16000) + good.substr(24, 5);
    const std::string padding(size_t{600} << 10, '?');  // Of a size that could hold the image.
    writeBytes(file, good.substr(0, 12) + header + bigEndian(crc32(header)) + good.substr(33) + padding);
    peakMemory();
    const size_t before = peakMemory();
    EXPECT_NE(readError(file).find("short.png\": cannot be read"), std::string::npos) << readError(file);
    EXPECT_NE(errorOf([&] { DepthImage::readPng(file); }).find("cannot be read"), std::string::npos);
    // The image has 976; the address sanitizer notes an eighth of it.
    EXPECT_LT(peakMemory(), before + 200);
}
#endif

TEST_F(PngTest, InterlacedRowsOfSixteenBitsKeepTheirTexels) {
    std::vector<uint16_t> samples;
    for (size_t i = 0; i < 99; ++i) {
        samples.push_back(i * i % 7 < 3 ? 0xffff : 0);
    }
    const fs::path file = folder / "interlaced.png";
    DistanceFile::writePng(file, 11, 9, samples);
    const ColorImage image = ColorImage::readPng(file);
    for (size_t i = 0; i < samples.size(); ++i) {
        const uint8_t gray = samples[i] != 0 ? 255 : 0;
        ASSERT_EQ(image.pixel(i % 11, i / 11), Color(gray, gray, gray, 255)) << i;
    }
}

TEST_F(PngTest, AFailedWriteLeavesNothingBehind) {
    const ColorImage image = testImage(4, 4, 16);
    EXPECT_THROW(image.writePng(folder / "absent" / "a.png"), ImageError);
    EXPECT_THROW(ColorImage().writePng(folder / "empty.png"), ImageError);

    std::stop_source stop;
    stop.request_stop();
    EXPECT_NE(errorOf([&] { image.writePng(folder / "stopped.png", stop.get_token()); }).find("was stopped"),
              std::string::npos);

    fs::create_directories(folder / "taken.png" / "inside");  // A folder that a file cannot replace.
    EXPECT_THROW(image.writePng(folder / "taken.png"), ImageError);
    EXPECT_EQ(filesInFolder(), 1u);
}

}  // namespace
