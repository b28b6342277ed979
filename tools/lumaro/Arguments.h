#pragma once

#include <math/Color.h>
#include <math/NPlane.h>
#include <math/Point.h>

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Tool {

/// What stands behind an option cannot be used; the text says why.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct PictureSize {
    size_t width = 0;
    size_t height = 0;

    bool operator==(const PictureSize&) const = default;
};

constexpr size_t MAX_PICTURE_SIDE = 16384;

// Each reads the whole text or throws UsageError.

/// A finite number between two others.
double parseNumber(const std::string& text, double low, double high);

/// So many numbers with commas between them; `expected` describes them in the error.
std::vector<double> parseNumbers(const std::string& text, size_t count, const std::string& expected);

/// A whole number between two others, without a sign.
uint64_t parseCount(const std::string& text, uint64_t low, uint64_t high);

/// "640x480", sides from 1 to MAX_PICTURE_SIDE.
PictureSize parseSize(const std::string& text);

/// "RRGGBB", with or without a leading '#'.
Math::Color parseColor(const std::string& text);

/// "x,y,z"
Math::Point<double, 3> parsePoint(const std::string& text);

/// "m11,m12,…,m44", row by row: an affine transform that can be inverted.
Eigen::Matrix4d parseMatrix(const std::string& text);

/// "low,high", low the smaller one, as floats too.
std::pair<double, double> parseRange(const std::string& text);

/// "x,y" in pixels.
std::pair<size_t, size_t> parsePixel(const std::string& text);

/// "nx,ny,nz,d": the points p with n·p + d = 0. Comes back with a normal of unit length.
Math::NPlane<double, 3> parsePlane(const std::string& text);

/// "x,y,z:x,y,z"
std::pair<Math::Point<double, 3>, Math::Point<double, 3>> parsePlaces(const std::string& text);

/// "x,y,z:x,y,z", two different places.
std::pair<Math::Point<double, 3>, Math::Point<double, 3>> parseRamp(const std::string& text);

/// Half-spaces, the kept side where the normals point: one as a plane or six as a box "x0,y0,z0:x1,y1,z1".
std::vector<Math::NPlane<double, 3>> parseClip(const std::string& text);

}  // namespace Tool
