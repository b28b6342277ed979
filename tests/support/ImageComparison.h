#pragma once

#include <graphics/ColorImage.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>

namespace TestSupport {

/// Exact unless told otherwise.
struct ImageTolerance {
    int channelError = 0;        ///< largest difference of a channel that still counts as equal
    double badPixelShare = 0.0;  ///< share of the pixels that may differ by more
};

struct ImageDifference {
    size_t badPixels = 0;
    size_t pixels = 0;
    int largestError = 0;
    Graphics::ColorImage picture;  ///< grey where equal, red by the amount of the error

    bool within(const ImageTolerance& tolerance) const;
};

/// Both images have the same size, or every pixel is bad.
ImageDifference compareImages(const Graphics::ColorImage& actual, const Graphics::ColorImage& expected,
                              int channelError);

/// Compares with GOLDEN_FOLDER/name.png. On failure the actual picture, the expected one and their difference
/// are written to the folder "image-failures" beside the test program. With the environment variable
/// LUMARO_UPDATE_GOLDENS set, the reference is written instead (scripts/update-goldens).
testing::AssertionResult matchesGolden(const Graphics::ColorImage& actual, const std::string& name,
                                       const ImageTolerance& tolerance);

}  // namespace TestSupport
