#include <core/File.h>

#include <cerrno>
#include <fstream>
#include <system_error>

namespace Core {

namespace {

[[noreturn]] void fail(std::error_code code, const char* action, const std::filesystem::path& file) {
    throw std::system_error(code, std::string(action) + " \"" + pathToUtf8(file) + '"');
}

std::error_code lastError() {
    return errno != 0 ? std::error_code(errno, std::generic_category())
                      : std::make_error_code(std::errc::io_error);
}

}  // namespace

std::string readLocalFile(const std::filesystem::path& file) {
    // Asked first, because opening a folder succeeds on some systems.
    std::error_code code;
    const std::uintmax_t size = std::filesystem::file_size(file, code);
    if (code) {
        fail(code, "Cannot open", file);
    }
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        fail(lastError(), "Cannot open", file);
    }
    std::string content(static_cast<size_t>(size), '\0');
    if (!stream.read(content.data(), static_cast<std::streamsize>(size))) {
        fail(lastError(), "Cannot read", file);
    }
    return content;
}

std::string pathToUtf8(const std::filesystem::path& path) {
    const std::u8string text = path.generic_u8string();
    return std::string(text.begin(), text.end());
}

}  // namespace Core
