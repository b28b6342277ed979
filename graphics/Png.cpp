#include <graphics/Png.h>

#include <graphics/ImageError.h>

#include <png.h>

#include <bit>
#include <csetjmp>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <system_error>

namespace Graphics::Png {

namespace {

/// What deflate reaches at best, for texels of one bit.
constexpr size_t MAX_DEFLATE_RATIO = 1032;
constexpr size_t MAX_TEXELS_PER_BYTE = MAX_DEFLATE_RATIO * 8;
constexpr size_t MAX_GRAY16_PER_BYTE = MAX_DEFLATE_RATIO / 2;

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

/// libpng row by row. Errors jump back into the functions that return false; nothing with a destructor
/// may live in those.
class RowDecoder {
public:
    RowDecoder(std::FILE* stream, const std::stop_token& stop) : mStream(stream), mStop(stop) {}
    ~RowDecoder() { png_destroy_read_struct(&mPng, &mInfo, nullptr); }
    RowDecoder(const RowDecoder&) = delete;
    RowDecoder& operator=(const RowDecoder&) = delete;

    size_t width() const { return png_get_image_width(mPng, mInfo); }
    size_t height() const { return png_get_image_height(mPng, mInfo); }
    int channels() const { return png_get_channels(mPng, mInfo); }
    int bitDepth() const { return png_get_bit_depth(mPng, mInfo); }
    bool hasPalette() const { return png_get_color_type(mPng, mInfo) == PNG_COLOR_TYPE_PALETTE; }
    const char* message() const { return mMessage; }

    bool readHeader() {
        if (setjmp(mLeave) != 0) {
            return false;
        }
        mPng = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, onError, onWarning);
        mInfo = mPng != nullptr ? png_create_info_struct(mPng) : nullptr;
        if (mInfo == nullptr) {
            std::snprintf(mMessage, sizeof mMessage, "the decoder could not be made");
            return false;
        }
        png_set_benign_errors(mPng, 1);
        png_init_io(mPng, mStream);
        png_read_info(mPng, mInfo);
        return true;
    }

    bool readGray16(const RowDestination& destination) {
        if (setjmp(mLeave) != 0) {
            return false;
        }
        if (std::endian::native == std::endian::little) {
            png_set_swap(mPng);
        }
        readRows(destination);
        png_read_end(mPng, nullptr);
        return true;
    }

    /// What lies behind the last row does not matter.
    bool readBgra8(const RowDestination& destination) {
        if (setjmp(mLeave) != 0) {
            return false;
        }
        const int colorType = png_get_color_type(mPng, mInfo);
        const bool hasAlpha =
            (colorType & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(mPng, mInfo, PNG_INFO_tRNS) != 0;
        png_set_expand(mPng);
        if ((colorType & PNG_COLOR_MASK_COLOR) == 0) {
            png_set_gray_to_rgb(mPng);
        }
        // The first sets the gamma of files that name none: 16 bits are linear.
        png_set_alpha_mode_fixed(mPng, PNG_ALPHA_PNG, bitDepth() == 16 ? PNG_GAMMA_LINEAR : PNG_DEFAULT_sRGB);
        png_set_scale_16(mPng);
        if (!hasAlpha) {
            png_set_add_alpha(mPng, 255, PNG_FILLER_AFTER);
        }
        png_set_alpha_mode_fixed(mPng, PNG_ALPHA_PNG, PNG_DEFAULT_sRGB);
        png_set_bgr(mPng);
        readRows(destination);
        return true;
    }

private:
    void readRows(const RowDestination& destination) {
        const int passes = png_set_interlace_handling(mPng);
        png_read_update_info(mPng, mInfo);
        const size_t rows = height();
        for (int pass = 0; pass < passes; ++pass) {
            for (size_t y = 0; y < rows; ++y) {
                if (mStop.stop_requested()) {
                    png_error(mPng, READING_WAS_STOPPED);
                }
                png_read_row(mPng, static_cast<png_bytep>(destination.texels) + y * destination.strideBytes,
                             nullptr);
            }
        }
    }

    static void onError(png_structp png, png_const_charp message) {
        RowDecoder* decoder = static_cast<RowDecoder*>(png_get_error_ptr(png));
        std::snprintf(decoder->mMessage, sizeof decoder->mMessage, "%s", message);
        std::longjmp(decoder->mLeave, 1);
    }
    static void onWarning(png_structp, png_const_charp) {}

    std::FILE* mStream;
    const std::stop_token& mStop;
    png_structp mPng = nullptr;
    png_infop mInfo = nullptr;
    std::jmp_buf mLeave;
    char mMessage[128] = "";
};

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
    checkImageSize(file, width, height);
    TemporaryFile temporary(file);
    FileStream stream = createImageFile(temporary.path());
    if (!stream) {
        throw ImageError(file, "cannot be created: " + lastFileError());
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
        throw ImageError(file, "cannot be written: " + lastFileError());
    }
    temporary.moveTo(file);
}

void readBgra8(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop) {
    const FileStream stream = openImageFile(file);
    RowDecoder decoder(stream.get(), stop);
    if (!decoder.readHeader()) {
        throw ImageError(file, std::string("cannot be read: ") + decoder.message());
    }
    checkImageSize(file, decoder.width(), decoder.height(), MAX_TEXELS_PER_BYTE);
    if (!decoder.readBgra8(allocate(decoder.width(), decoder.height()))) {
        throw ImageError(file, std::string("cannot be read: ") + decoder.message());
    }
}

void readLinearGray16(const std::filesystem::path& file, const AllocateRows& allocate) {
    const FileStream stream = openImageFile(file);
    Codec codec;
    if (png_image_begin_read_from_stdio(&codec.image(), stream.get()) == 0) {
        throw ImageError(file, "cannot be read: " + codec.message());
    }
    checkImageSize(file, codec.image().width, codec.image().height, MAX_TEXELS_PER_BYTE);
    codec.setFormat(Format::LinearGray16);
    const RowDestination destination = allocate(codec.image().width, codec.image().height);
    const png_color background = {0, 0, 0};  // Of transparent files.
    if (png_image_finish_read(&codec.image(), &background, destination.texels,
                              componentStride(file, Format::LinearGray16, destination.strideBytes),
                              nullptr) == 0) {
        throw ImageError(file, "cannot be read: " + codec.message());
    }
}

void readGray16(const std::filesystem::path& file, const AllocateRows& allocate,
                const std::stop_token& stop) {
    const FileStream stream = openImageFile(file);
    RowDecoder decoder(stream.get(), stop);
    if (!decoder.readHeader()) {
        throw ImageError(file, std::string("cannot be read: ") + decoder.message());
    }
    if (decoder.channels() != 1 || decoder.bitDepth() != 16 || decoder.hasPalette()) {
        throw ImageError(
            file, "one channel of 16 bits is needed, found " + std::to_string(decoder.channels()) + " of " +
                      std::to_string(decoder.bitDepth()) + (decoder.hasPalette() ? " with a palette" : ""));
    }
    checkImageSize(file, decoder.width(), decoder.height(), MAX_GRAY16_PER_BYTE);
    if (!decoder.readGray16(allocate(decoder.width(), decoder.height()))) {
        throw ImageError(file, std::string("cannot be read: ") + decoder.message());
    }
}

}  // namespace Graphics::Png
