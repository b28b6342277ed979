#include <tools/lumaro/TextPointWriter.h>

#include <array>
#include <charconv>

namespace Tool {

namespace {

template <class T, class... Format>
void appendNumber(std::string& text, T value, Format... format) {
    std::array<char, 400> digits;  // the longest double takes 310 before the point
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value, format...);
    text.append(digits.data(), end);
}

}  // namespace

TextPointWriter::TextPointWriter(std::ostream& stream) : mStream(stream) {
    mStream << "X Y Z Red Green Blue Alpha\n";
}

void TextPointWriter::write(const Render::QueryPoint* points, size_t count) {
    std::string lines;
    for (const Render::QueryPoint* point = points; point != points + count; ++point) {
        for (const double coordinate : point->position.values) {
            appendNumber(lines, coordinate, std::chars_format::fixed);
            lines += ' ';
        }
        const Math::Color& color = point->color;
        for (const unsigned channel : {color.r(), color.g(), color.b()}) {
            appendNumber(lines, channel);
            lines += ' ';
        }
        appendNumber(lines, unsigned{color.a()});
        lines += '\n';
    }
    mStream.write(lines.data(), static_cast<std::streamsize>(lines.size()));
}

}  // namespace Tool
