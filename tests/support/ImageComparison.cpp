#include <tests/support/ImageComparison.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>

namespace TestSupport {

namespace {

namespace fs = std::filesystem;

int channelDifference(const Math::Color& a, const Math::Color& b) {
    return std::max(
        {std::abs(a.r() - b.r()), std::abs(a.g() - b.g()), std::abs(a.b() - b.b()), std::abs(a.a() - b.a())});
}

std::string saveFailure(const Graphics::ColorImage& actual, const Graphics::ColorImage& expected,
                        const Graphics::ColorImage& difference, const std::string& name) {
    const fs::path folder = fs::current_path() / "image-failures";
    fs::create_directories(folder);
    actual.writePng(folder / (name + "-actual.png"));
    expected.writePng(folder / (name + "-expected.png"));
    difference.writePng(folder / (name + "-difference.png"));
    return folder.string();
}

}  // namespace

bool ImageDifference::within(const ImageTolerance& tolerance) const {
    return static_cast<double>(badPixels) <= tolerance.badPixelShare * static_cast<double>(pixels);
}

ImageDifference compareImages(const Graphics::ColorImage& actual, const Graphics::ColorImage& expected,
                              int channelError) {
    ImageDifference result;
    result.pixels = std::max(actual.width() * actual.height(), size_t{1});
    result.picture =
        Graphics::ColorImage(std::max(actual.width(), size_t{1}), std::max(actual.height(), size_t{1}));
    result.picture.fill(Math::Color(255, 0, 0));
    if (actual.width() != expected.width() || actual.height() != expected.height()) {
        result.badPixels = result.pixels;
        result.largestError = 255;
        return result;
    }
    for (size_t y = 0; y < actual.height(); ++y) {
        for (size_t x = 0; x < actual.width(); ++x) {
            const Math::Color a = actual.pixel(x, y);
            const int error = channelDifference(a, expected.pixel(x, y));
            const auto gray = static_cast<uint8_t>(160 + (a.r() + a.g() + a.b()) / 9);
            const auto fade = static_cast<uint8_t>(std::max(160 - error * 4, 0));
            result.picture.setPixel(
                x, y, error <= channelError ? Math::Color::gray(gray) : Math::Color(255, fade, fade));
            result.badPixels += error <= channelError ? 0U : 1U;
            result.largestError = std::max(result.largestError, error);
        }
    }
    return result;
}

testing::AssertionResult matchesGolden(const Graphics::ColorImage& actual, const std::string& name,
                                       const ImageTolerance& tolerance) {
    const fs::path file = fs::path(LUMARO_SOURCE_DIR) / "tests" / "golden" / (name + ".png");
    if (std::getenv("LUMARO_UPDATE_GOLDENS") != nullptr) {
        fs::create_directories(file.parent_path());
        actual.writePng(file);
        return testing::AssertionSuccess();
    }
    Graphics::ColorImage expected;
    try {
        expected = Graphics::ColorImage::readPng(file);
    } catch (const std::exception& error) {
        return testing::AssertionFailure() << error.what();
    }
    const ImageDifference difference = compareImages(actual, expected, tolerance.channelError);
    if (difference.within(tolerance)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << name << ": " << difference.badPixels << " of " << difference.pixels
           << " pixels differ by more than " << tolerance.channelError << " (at most "
           << tolerance.badPixelShare * 100.0 << " % may), the most by " << difference.largestError
           << "; pictures in " << saveFailure(actual, expected, difference.picture, name);
}

}  // namespace TestSupport
