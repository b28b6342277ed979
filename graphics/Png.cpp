#include <graphics/Png.h>

#include <graphics/ImageError.h>

#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <system_error>

namespace Graphics::Png {

namespace {

constexpr size_t MAX_SIDE = 65535;
constexpr size_t MAX_TEXELS = size_t{1} << 28;

struct CloseFile {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseFile>;

Stream open(const std::filesystem::path& file, bool forWriting) {
    errno = 0;
#if defined(_WIN32)
    return Stream(_wfopen(file.c_str(), forWriting ? L"wb" : L"rb"));
#else
    return Stream(std::fopen(file.c_str(), forWriting ? "wb" : "rb"));
#endif
}

std::string lastError() {
    return std::generic_category().message(errno);
}

/// libpng's simplified interface with its memory: failures come back as a text, never as a jump.
class Codec {
public:
    Codec() {
        std::memset(&mImage, 0, sizeof mImage);
        mImage.version = PNG_IMAGE_VERSION;
    }
    ~Codec() { png_image_free(&mImage); }
    Codec(const Codec&) = delete;
    Codec& operator=(const Codec&) = delete;

    png_image& image() { return mImage; }
    std::string message() const { return mImage.message; }

    void setFormat(Format format) {
        mImage.format = format == Format::Bgra8 ? PNG_FORMAT_BGRA : PNG_FORMAT_LINEAR_Y;
    }

private:
    png_image mImage;
};

/// libpng counts a stride in components.
png_int_32 componentStride(const std::filesystem::path& file, Format format, size_t strideBytes) {
    const size_t componentSize = format == Format::Bgra8 ? sizeof(uint8_t) : sizeof(uint16_t);
    const size_t components = strideBytes / componentSize;
    if (components > static_cast<size_t>(std::numeric_limits<png_int_32>::max())) {
        throw ImageError(file, "the rows are too long");
    }
    return static_cast<png_int_32>(components);
}

void checkSize(const std::filesystem::path& file, size_t width, size_t height) {
    if (width == 0 || height == 0 || width > MAX_SIDE || height > MAX_SIDE || width * height > MAX_TEXELS) {
        throw ImageError(file, "a size of " + std::to_string(width) + " x " + std::to_string(height) +
                                   " is not supported");
    }
}

/// A file that disappears unless it is moved to its target.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::filesystem::path& target) : mPath(target) {
        mPath += '.';
        mPath += std::to_string(std::random_device()());
        mPath += ".tmp";
    }
    ~TemporaryFile() {
        std::error_code ignored;
        std::filesystem::remove(mPath, ignored);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::filesystem::path& path() const { return mPath; }

    void moveTo(const std::filesystem::path& target) {
        std::error_code code;
        std::filesystem::rename(mPath, target, code);
        if (code) {
            throw ImageError(target, "cannot be replaced: " + code.message());
        }
    }

private:
    std::filesystem::path mPath;
};

}  // namespace

void write(const std::filesystem::path& file, Format format, size_t width, size_t height, size_t strideBytes,
           const void* texels) {
    checkSize(file, width, height);
    TemporaryFile temporary(file);
    Stream stream = open(temporary.path(), true);
    if (!stream) {
        throw ImageError(file, "cannot be created: " + lastError());
    }
    Codec codec;
    codec.image().width = static_cast<png_uint_32>(width);
    codec.image().height = static_cast<png_uint_32>(height);
    codec.setFormat(format);
    if (png_image_write_to_stdio(&codec.image(), stream.get(), 0, texels,
                                 componentStride(file, format, strideBytes), nullptr) == 0) {
        throw ImageError(file, "cannot be written: " + codec.message());
    }
    if (std::fclose(stream.release()) != 0) {
        throw ImageError(file, "cannot be written: " + lastError());
    }
    temporary.moveTo(file);
}

void read(const std::filesystem::path& file, Format format,
          const std::function<Destination(size_t width, size_t height)>& allocate) {
    const Stream stream = open(file, false);
    if (!stream) {
        throw ImageError(file, "cannot be opened: " + lastError());
    }
    Codec codec;
    if (png_image_begin_read_from_stdio(&codec.image(), stream.get()) == 0) {
        throw ImageError(file, "cannot be read: " + codec.message());
    }
    checkSize(file, codec.image().width, codec.image().height);
    codec.setFormat(format);
    const Destination destination = allocate(codec.image().width, codec.image().height);
    // The black background counts for transparent files read as grey only.
    const png_color background = {0, 0, 0};
    if (png_image_finish_read(&codec.image(), &background, destination.texels,
                              componentStride(file, format, destination.strideBytes), nullptr) == 0) {
        throw ImageError(file, "cannot be read: " + codec.message());
    }
}

}  // namespace Graphics::Png
