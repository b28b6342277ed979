#include <graphics/ImageFile.h>

#include <graphics/ImageError.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace Graphics {

namespace {

constexpr size_t MAX_SIDE = 65535;
constexpr size_t MAX_TEXELS = size_t{1} << 28;

std::string sizeText(size_t width, size_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

}  // namespace

FileStream createImageFile(const std::filesystem::path& file) {
    errno = 0;
#if defined(_WIN32)
    return FileStream(_wfopen(file.c_str(), L"wb"));
#else
    return FileStream(std::fopen(file.c_str(), "wb"));
#endif
}

FileStream openImageFile(const std::filesystem::path& file) {
    // Asked first, because opening a folder succeeds on some systems.
    std::error_code code;
    const std::uintmax_t size = std::filesystem::file_size(file, code);
    if (code) {
        throw ImageError(file, "cannot be opened: " + code.message());
    }
    if (size == 0) {
        throw ImageError(file, "cannot be read: the file is empty");
    }
    errno = 0;
#if defined(_WIN32)
    FileStream stream(_wfopen(file.c_str(), L"rb"));
#else
    FileStream stream(std::fopen(file.c_str(), "rb"));
#endif
    if (!stream) {
        throw ImageError(file, "cannot be opened: " + lastFileError());
    }
    return stream;
}

std::string lastFileError() {
    return std::generic_category().message(errno);
}

ImageKind imageKind(const std::filesystem::path& file) {
    using namespace std::string_view_literals;
    const FileStream stream = openImageFile(file);
    std::array<char, 8> bytes{};
    const std::string_view start(bytes.data(), std::fread(bytes.data(), 1, bytes.size(), stream.get()));
    if (start == "\x89PNG\r\n\x1a\n"sv) {
        return ImageKind::Png;
    }
    if (start.substr(0, 3) == "\xff\xd8\xff"sv) {
        return ImageKind::Jpeg;
    }
    if (start.substr(0, 2) == "Pf"sv || start.substr(0, 2) == "PF"sv) {
        return ImageKind::Pfm;
    }
    return ImageKind::Unknown;
}

void checkImageSize(const std::filesystem::path& file, size_t width, size_t height) {
    if (width == 0 || height == 0 || width > MAX_SIDE || height > MAX_SIDE || width * height > MAX_TEXELS) {
        throw ImageError(file, "a size of " + sizeText(width, height) + " is not supported");
    }
}

void checkImageSize(const std::filesystem::path& file, size_t width, size_t height, size_t maxTexelsPerByte) {
    checkImageSize(file, width, height);
    std::error_code code;
    const std::uintmax_t size = std::filesystem::file_size(file, code);
    if (code) {
        throw ImageError(file, "cannot be read: " + code.message());
    }
    if (width * height / maxTexelsPerByte > size) {
        throw ImageError(file, "a size of " + sizeText(width, height) + " is impossible in " +
                                   std::to_string(size) + " bytes");
    }
}

AllocateRows rowsOf(Image& image, const std::filesystem::path& file, size_t bytesPerTexel,
                    std::uint64_t memoryLimit) {
    return [&image, &file, bytesPerTexel, memoryLimit](size_t width, size_t height) {
        const std::uint64_t bytes = std::uint64_t{width} * height * bytesPerTexel;
        if (bytes > memoryLimit) {
            throw ImageError(file, "a size of " + sizeText(width, height) + " asks for " +
                                       std::to_string(bytes) + " bytes of memory, its limit is " +
                                       std::to_string(memoryLimit));
        }
        image.resize(width, height);
        return RowDestination{image.data(), image.stride()};
    };
}

}  // namespace Graphics
