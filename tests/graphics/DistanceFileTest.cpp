#include "DistanceFile.h"
#include "ImageFileTest.h"

#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Graphics::ColorImage;
using Graphics::DepthImage;

constexpr float NONE = DepthImage::NOT_MEASURED;

class DistanceFileTest : public ImageFileTest {
protected:
    std::string readError(const std::string& bytes) {
        writeBytes(folder / "distances", bytes);
        return errorOf([this] { DepthImage::readDistances(folder / "distances"); });
    }
};

TEST_F(DistanceFileTest, MillimetresAreReadExactlyWhateverGammaIsDeclared) {
    const std::vector<uint16_t> millimeters = {0, 1, 2, 255, 256, 1000, 12345, 32768, 65534, 65535};
    const fs::path file = folder / fs::path(u8"расстояния.jpg");
    for (const bool hasGamma : {false, true}) {
        DistanceFile::writePng(file, 5, 2, millimeters, hasGamma);
        const DepthImage meters = DepthImage::readDistances(file);
        const DepthImage feet = DepthImage::readDistances(file, 3.25);
        for (size_t i = 0; i < millimeters.size(); ++i) {
            const double expected = millimeters[i] / 1000.0;
            EXPECT_EQ(meters.pixel(i % 5, i / 5), i == 0 ? NONE : static_cast<float>(expected)) << i;
            EXPECT_EQ(feet.pixel(i % 5, i / 5), i == 0 ? NONE : static_cast<float>(expected * 3.25)) << i;
        }
    }
}

TEST_F(DistanceFileTest, FloatMapsOfBothByteOrdersRunFromTheBottom) {
    const float infinity = std::numeric_limits<float>::infinity();
    const std::vector<float> top = {0.1f, -2.0f, infinity, 7e8f};
    const std::vector<float> bottom = {0.0f, std::numeric_limits<float>::quiet_NaN(), 1e-30f, NONE};
    for (const bool isLittleEndian : {true, false}) {
        std::string bytes = isLittleEndian ? "Pf\n4 2\n-1.000\n" : "Pf 4\t2 +1.0\r\n";
        for (const std::vector<float>& row : {bottom, top}) {
            bytes += DistanceFile::floatBytes(row, isLittleEndian);
        }
        writeBytes(folder / "map.pfm", bytes);
        const DepthImage image = DepthImage::readDistances(folder / "map.pfm", 2.0);
        const std::vector<float> expected = {0.2f, NONE, NONE, 14e8f, NONE, NONE, 2e-30f, NONE};
        for (size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(image.pixel(i % 4, i / 4), expected[i]) << i << ' ' << isLittleEndian;
        }
    }
}

TEST_F(DistanceFileTest, FloatMapsThatPromiseSomethingElseAreRefused) {
    const std::string floats(24, '\1');
    EXPECT_EQ(readError("Pf\n3 2\n-1\n" + floats), "no error");
    for (const char* header : {"Pf\n3 2\n-nan\n", "Pf\n3 2\nnan\n", "Pf\n3 2\n0\n", "Pf\n3 2\n-2.5\n",
                               "Pf\n3 2\n1x\n", "Pf\n3 2\ninf\n", "Pf\n3 2\n+\n", "Pf\n3 3\n-1\n",
                               "Pf\n3 1\n-1\n", "Pf\n3 2\n-1\n\n", "Pf\n-3 -2\n-1\n", "Pf\n0 2\n-1\n",
                               "Pf\n3.0 2\n-1\n", "Pf\n65535 65535\n-1\n", "Pf\n99999999999999999999 2\n-1\n",
                               "Pf\n3", "Pfx\n3 2\n-1\n", "PF\n3 2\n-1\n", "Pf\n# made by\n3 2\n-1\n"}) {
        const std::string error = readError(header + floats);
        EXPECT_EQ(error.find("Image \""), 0u) << header << error;
        EXPECT_NE(error.find("distances\": "), std::string::npos) << error;
    }
    EXPECT_NE(readError("Pf\n" + std::string(500, ' ') + "3 2\n-1\n" + floats).find("no end"),
              std::string::npos);
}

TEST_F(DistanceFileTest, OtherFilesAndUnitsAreRefusedWithWhatIsNeeded) {
    ColorImage(4, 4).writePng(folder / "colours.png");
    const std::string error = errorOf([this] { DepthImage::readDistances(folder / "colours.png"); });
    EXPECT_NE(error.find("colours.png\": one channel of 16 bits is needed, found 4 of 8"), std::string::npos);
    EXPECT_NE(readError("no image").find("16-bit grey PNG file or a portable float map"), std::string::npos);
    EXPECT_NE(readError("").find("empty"), std::string::npos);
    EXPECT_THROW(DepthImage::readDistances(folder), Graphics::ImageError) << "a folder";
    EXPECT_THROW(DepthImage::readDistances(folder / "absent"), Graphics::ImageError);
    EXPECT_NE(errorOf([this] { ColorImage::read(folder); }), "no error");
    writeBytes(folder / "map.pfm", "Pf\n1 1\n-1\n" + std::string(4, '\1'));
    EXPECT_NE(errorOf([this] { ColorImage::read(folder / "map.pfm"); }).find("neither"), std::string::npos);
    for (const double unit : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), HUGE_VAL}) {
        EXPECT_THROW(DepthImage::readDistances(folder / "map.pfm", unit), std::invalid_argument);
    }
}

TEST_F(DistanceFileTest, EveryDamagedByteIsAnImageOrAnError) {
    const auto read = [](const fs::path& file) { DepthImage::readDistances(file); };
    DistanceFile::writePng(folder / "good.png", 6, 5, std::vector<uint16_t>(30, 1234), true);
    const std::string png = bytesOf(folder / "good.png");
    EXPECT_GE(readDamaged(png, read), 2 * png.size()) << "most bytes stand under a checksum";
    const std::string pfm = "Pf\n3 2\n-1.0\n" + DistanceFile::floatBytes(std::vector<float>(6, 2.5f), true);
    EXPECT_GE(readDamaged(pfm, read), pfm.size()) << "every shorter file is refused";

    ColorImage colors(7, 5);
    colors.fill(Math::Color(1, 2, 3, 4));
    colors.writePng(folder / "colours.png");
    const std::string colored = bytesOf(folder / "colours.png");
    EXPECT_GE(readDamaged(colored, [](const fs::path& file) { ColorImage::read(file); }), 2 * colored.size());
}

}  // namespace
