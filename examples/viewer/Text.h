#pragma once

#include <windows.h>

#include <array>
#include <cstdio>
#include <string>

/// UTF-8 as Windows wants it.
inline std::wstring wide(const std::string& utf8) {
    const int bytes = static_cast<int>(utf8.size());
    const int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0);
    std::wstring text(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, text.data(), length);
    return text;
}

/// printf into a string.
template <class... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}
