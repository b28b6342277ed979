#include <tools/lumaro/NumberText.h>

#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

namespace Tool {

namespace {

template <class T, class... Format>
std::string textOf(T value, Format... format) {
    std::array<char, 400> text{};  // the longest double takes 310 before the point
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value, format...);
    return error == std::errc() ? std::string(text.data(), end) : std::string();
}

double numberIn(const std::string& text) {
    double value = 0.0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

}  // namespace

std::string shortText(double value) {
    const double size = std::abs(value);
    const bool isFixed = value == 0.0 || (size >= 1e-7 && size < 1e17);
    return isFixed ? textOf(value, std::chars_format::fixed) : textOf(value);
}

std::string fixedText(double value, int decimals) {
    return textOf(value, std::chars_format::fixed, decimals);
}

double rounded(double value, int decimals) {
    return numberIn(fixedText(value, decimals));
}

double widened(float value) {
    return numberIn(textOf(value));
}

}  // namespace Tool
