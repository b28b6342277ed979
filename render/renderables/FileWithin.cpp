#include <render/renderables/FileWithin.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>

namespace Render {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view separators = "/\\";

char upperCase(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// What Windows takes for a device in every folder, whatever follows a dot.
bool isDevice(std::string_view part) {
    part = part.substr(0, part.find('.'));
    part = part.substr(0, part.find_last_not_of(' ') + 1);
    std::string name(part);
    std::transform(name.begin(), name.end(), name.begin(), upperCase);
    constexpr std::array<std::string_view, 6> devices{"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
    if (std::find(devices.begin(), devices.end(), name) != devices.end()) {
        return true;
    }
    // Digits, also the raised 1 to 3, in UTF-8.
    constexpr std::string_view digits = "0 1 2 3 4 5 6 7 8 9 \xc2\xb9 \xc2\xb2 \xc2\xb3 ";
    return (name.starts_with("COM") || name.starts_with("LPT")) && name.size() > 3 &&
           digits.find(name.substr(3) + ' ') != std::string_view::npos;
}

bool isHarmless(std::string_view name) {
    const bool isAbsolute = name.empty() || separators.find(name.front()) != std::string_view::npos;
    // A colon is for drives and streams.
    if (isAbsolute || std::any_of(name.begin(), name.end(),
                                  [](char c) { return c == ':' || (static_cast<unsigned char>(c) < ' '); })) {
        return false;
    }
    while (!name.empty()) {
        const std::string_view part = name.substr(0, name.find_first_of(separators));
        // Windows drops dots and blanks at the end.
        const bool isTrimmed = part.ends_with('.') || part.ends_with(' ');
        if ((part != "." && isTrimmed) || isDevice(part)) {
            return false;
        }
        name.remove_prefix(std::min(part.size() + 1, name.size()));
    }
    return true;
}

}  // namespace

fs::path fileWithin(const fs::path& folder, const std::string& name) {
    if (!isHarmless(name)) {
        return {};
    }
    try {
        const fs::path root = fs::canonical(folder.empty() ? fs::path(".") : folder);
        const fs::path file = fs::canonical(root / fs::path(std::u8string(name.begin(), name.end())));
        const auto [end, rest] = std::mismatch(root.begin(), root.end(), file.begin(), file.end());
        // Neither a folder nor a pipe, which could be without end.
        return end == root.end() && fs::is_regular_file(file) ? file : fs::path();
    } catch (const std::system_error&) {  // There is none, or the name is no text.
        return {};
    }
}

}  // namespace Render
