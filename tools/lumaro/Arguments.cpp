#include <tools/lumaro/Arguments.h>
#include <tools/lumaro/NumberText.h>

#include <Eigen/LU>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

namespace Tool {

namespace {

using Place = Math::Point<double, 3>;

template <class T, class... Format>
T parseWhole(const std::string& text, const char* expected, Format... format) {
    T value{};
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, value, format...);
    if (error != std::errc() || last != end) {
        throw UsageError("'" + text + "' is not " + expected);
    }
    return value;
}

Place placeFrom(const std::vector<double>& numbers) {
    return {numbers[0], numbers[1], numbers[2]};
}

}  // namespace

double parseNumber(const std::string& text, double low, double high) {
    const auto value = parseWhole<double>(text, "a number");
    if (!std::isfinite(value)) {
        throw UsageError("'" + text + "' is not a finite number");
    }
    if (value < low || value > high) {
        throw UsageError(text + " is not between " + shortText(low) + " and " + shortText(high));
    }
    return value;
}

std::vector<double> parseNumbers(const std::string& text, size_t count, const std::string& expected) {
    constexpr double FARTHEST = 1e12;
    std::vector<double> numbers;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        numbers.push_back(parseNumber(text.substr(begin, end - begin), -FARTHEST, FARTHEST));
        begin = end + 1;
    }
    if (numbers.size() != count) {
        throw UsageError("'" + text + "' is not " + expected);
    }
    return numbers;
}

uint64_t parseCount(const std::string& text, uint64_t low, uint64_t high) {
    const auto value = parseWhole<uint64_t>(text, "a whole number");
    if (value < low || value > high) {
        throw UsageError(text + " is not between " + std::to_string(low) + " and " + std::to_string(high));
    }
    return value;
}

PictureSize parseSize(const std::string& text) {
    const size_t cross = text.find('x');
    if (cross == std::string::npos) {
        throw UsageError("'" + text + "' is not a size such as 640x480");
    }
    return {static_cast<size_t>(parseCount(text.substr(0, cross), 1, MAX_PICTURE_SIDE)),
            static_cast<size_t>(parseCount(text.substr(cross + 1), 1, MAX_PICTURE_SIDE))};
}

Math::Color parseColor(const std::string& text) {
    const std::string digits = text.starts_with('#') ? text.substr(1) : text;
    if (digits.size() != 6) {
        throw UsageError("'" + text + "' is not a colour such as FF8000");
    }
    const auto rgb = parseWhole<uint32_t>(digits, "a colour such as FF8000", 16);
    return Math::Color(rgb | 0xff000000U);
}

Place parsePoint(const std::string& text) {
    return placeFrom(parseNumbers(text, 3, "a place such as 1.5,2,-3"));
}

Eigen::Matrix4d parseMatrix(const std::string& text) {
    const std::vector<double> numbers = parseNumbers(text, 16, "a matrix of 16 numbers, row by row");
    Eigen::Matrix4d matrix = Eigen::Map<const Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>(numbers.data());
    if (matrix.row(3) != Eigen::RowVector4d(0.0, 0.0, 0.0, 1.0)) {
        throw UsageError("the last row of the matrix is not 0,0,0,1");
    }
    if (!Eigen::FullPivLU<Eigen::Matrix3d>(matrix.topLeftCorner<3, 3>()).isInvertible()) {
        throw UsageError("the matrix has no inverse");
    }
    return matrix;
}

std::pair<double, double> parseRange(const std::string& text) {
    const std::vector<double> ends = parseNumbers(text, 2, "a range such as -0.5,2");
    if (!(ends[0] < ends[1])) {
        throw UsageError("'" + text + "' is no range: its first number is not below its second");
    }
    if (static_cast<float>(ends[0]) == static_cast<float>(ends[1])) {
        throw UsageError("'" + text + "' is too narrow");
    }
    return {ends[0], ends[1]};
}

std::pair<size_t, size_t> parsePixel(const std::string& text) {
    const size_t comma = text.find(',');
    if (comma == std::string::npos) {
        throw UsageError("'" + text + "' is not a pixel such as 320,240");
    }
    return {static_cast<size_t>(parseCount(text.substr(0, comma), 0, MAX_PICTURE_SIDE - 1)),
            static_cast<size_t>(parseCount(text.substr(comma + 1), 0, MAX_PICTURE_SIDE - 1))};
}

Math::NPlane<double, 3> parsePlane(const std::string& text) {
    const std::vector<double> numbers = parseNumbers(text, 4, "a plane such as 0,0,1,-185");
    const Place normal = placeFrom(numbers);
    const double length = normal.length();
    if (length == 0.0) {
        throw UsageError("'" + text + "' is no plane: its normal has no direction");
    }
    return {normal / length, numbers[3] / length};
}

std::pair<Place, Place> parsePlaces(const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        throw UsageError("'" + text + "' is not a pair of places such as 0,0,0:1,2,3");
    }
    return {parsePoint(text.substr(0, colon)), parsePoint(text.substr(colon + 1))};
}

std::pair<Place, Place> parseRamp(const std::string& text) {
    const std::pair<Place, Place> ends = parsePlaces(text);
    if (ends.first == ends.second) {
        throw UsageError("'" + text + "' has no length");
    }
    return ends;
}

std::vector<Math::NPlane<double, 3>> parseClip(const std::string& text) {
    if (text.find(':') == std::string::npos) {
        return {parsePlane(text)};
    }
    const auto [low, high] = parsePlaces(text);
    std::vector<Math::NPlane<double, 3>> sides;
    for (int axis = 0; axis < 3; ++axis) {
        if (!(low[axis] < high[axis])) {
            throw UsageError("'" + text + "' is no box: its second corner is not beyond its first");
        }
        Place normal;
        normal[axis] = 1.0;
        sides.emplace_back(normal, -low[axis]);
        sides.emplace_back(-normal, high[axis]);
    }
    return sides;
}

}  // namespace Tool
