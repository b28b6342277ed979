#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Octree {

/// A text from a file as it can be shown to people: each control character, of which terminals do what they
/// like, is a question mark. What is longer than maxSize bytes ends in an ellipsis.
inline std::string printable(std::string_view text, std::size_t maxSize) {
    std::string result(text.substr(0, maxSize));
    if (text.size() > maxSize) {
        while (!result.empty() && (static_cast<unsigned char>(result.back()) & 0xc0u) == 0x80u) {
            result.pop_back();  // the rest of a letter cut in two, but for its first byte
        }
        if (!result.empty() && static_cast<unsigned char>(result.back()) >= 0xc0u) {
            result.pop_back();
        }
        result += "...";
    }
    for (std::size_t i = 0; i < result.size(); ++i) {
        const auto byte = static_cast<unsigned char>(result[i]);
        // The second set of control characters takes two bytes in UTF-8, of which the first tells.
        const bool isSecondSet =
            byte == 0xc2u && i + 1 < result.size() && static_cast<unsigned char>(result[i + 1]) < 0xa0u;
        if (byte < 0x20u || byte == 0x7fu || isSecondSet) {
            result.replace(i, isSecondSet ? 2 : 1, "?");
        }
    }
    return result;
}

}  // namespace Octree
