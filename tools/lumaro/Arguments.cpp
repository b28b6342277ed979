#include <tools/lumaro/Arguments.h>

#include <charconv>
#include <cmath>
#include <system_error>

namespace Tool {

namespace {

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

std::string shortText(double value) {
    std::string text = std::to_string(value);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') {
        text.pop_back();
    }
    return text;
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

Math::Point<double, 3> parsePoint(const std::string& text) {
    const size_t first = text.find(',');
    const size_t second = first == std::string::npos ? first : text.find(',', first + 1);
    if (second == std::string::npos) {
        throw UsageError("'" + text + "' is not a place such as 1.5,2,-3");
    }
    constexpr double FARTHEST = 1e12;
    return {parseNumber(text.substr(0, first), -FARTHEST, FARTHEST),
            parseNumber(text.substr(first + 1, second - first - 1), -FARTHEST, FARTHEST),
            parseNumber(text.substr(second + 1), -FARTHEST, FARTHEST)};
}

}  // namespace Tool
