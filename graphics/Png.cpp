#include <graphics/Png.h>

#include <graphics/ImageError.h>

#include <png.h>

#include <bit>
#include <csetjmp>
#include <cstdint>
#include <cstring>
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

private:
    png_image mImage;
};

/// Where libpng's errors jump to, and why.
struct Exit {
    std::jmp_buf leave;
    char message[128] = "";

    static void onError(png_structp png, png_const_charp message) {
        Exit* exit = static_cast<Exit*>(png_get_error_ptr(png));
        std::snprintf(exit->message, sizeof exit->message, "%s", message);
        std::longjmp(exit->leave, 1);
    }
    static void onWarning(png_structp, png_const_charp) {}
};

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
    const char* message() const { return mExit.message; }

    bool readHeader() {
        if (setjmp(mExit.leave) != 0) {
            return false;
        }
        mPng = png_create_read_struct(PNG_LIBPNG_VER_STRING, &mExit, Exit::onError, Exit::onWarning);
        mInfo = mPng != nullptr ? png_create_info_struct(mPng) : nullptr;
        if (mInfo == nullptr) {
            std::snprintf(mExit.message, sizeof mExit.message, "the decoder could not be made");
            return false;
        }
        png_set_benign_errors(mPng, 1);
        png_init_io(mPng, mStream);
        png_read_info(mPng, mInfo);
        return true;
    }

    bool readGray16(const RowDestination& destination) {
        if (setjmp(mExit.leave) != 0) {
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
        if (setjmp(mExit.leave) != 0) {
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

    std::FILE* mStream;
    const std::stop_token& mStop;
    png_structp mPng = nullptr;
    png_infop mInfo = nullptr;
    Exit mExit;
};

/// The same for writing; there is one function that returns false.
class RowEncoder {
public:
    RowEncoder(std::FILE* stream, const std::stop_token& stop) : mStream(stream), mStop(stop) {}
    ~RowEncoder() { png_destroy_write_struct(&mPng, &mInfo); }
    RowEncoder(const RowEncoder&) = delete;
    RowEncoder& operator=(const RowEncoder&) = delete;

    const char* message() const { return mExit.message; }

    bool writeBgra8(size_t width, size_t height, size_t strideBytes, const uint8_t* texels) {
        if (setjmp(mExit.leave) != 0) {
            return false;
        }
        mPng = png_create_write_struct(PNG_LIBPNG_VER_STRING, &mExit, Exit::onError, Exit::onWarning);
        mInfo = mPng != nullptr ? png_create_info_struct(mPng) : nullptr;
        if (mInfo == nullptr) {
            std::snprintf(mExit.message, sizeof mExit.message, "the encoder could not be made");
            return false;
        }
        png_init_io(mPng, mStream);
        png_set_IHDR(mPng, mInfo, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
                     PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        png_set_sRGB(mPng, mInfo, PNG_sRGB_INTENT_PERCEPTUAL);
        png_write_info(mPng, mInfo);
        png_set_bgr(mPng);
        for (size_t y = 0; y < height; ++y) {
            if (mStop.stop_requested()) {
                png_error(mPng, "the writing was stopped");
            }
            png_write_row(mPng, texels + y * strideBytes);
        }
        png_write_end(mPng, mInfo);
        return true;
    }

private:
    std::FILE* mStream;
    const std::stop_token& mStop;
    png_structp mPng = nullptr;
    png_infop mInfo = nullptr;
    Exit mExit;
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

/// `encode` returns what went wrong.
template <class Encode>
void replaceFile(const std::filesystem::path& file, size_t width, size_t height, Encode encode) {
    checkImageSize(file, width, height);
    TemporaryFile temporary(file);
    FileStream stream = createImageFile(temporary.path());
    if (!stream) {
        throw ImageError(file, "cannot be created: " + lastFileError());
    }
    const std::string problem = encode(stream.get());
    if (!problem.empty()) {
        throw ImageError(file, "cannot be written: " + problem);
    }
    if (std::fclose(stream.release()) != 0) {
        throw ImageError(file, "cannot be written: " + lastFileError());
    }
    temporary.moveTo(file);
}

}  // namespace

void writeBgra8(const std::filesystem::path& file, size_t width, size_t height, size_t strideBytes,
                const uint8_t* texels, const std::stop_token& stop) {
    replaceFile(file, width, height, [&](std::FILE* stream) {
        RowEncoder encoder(stream, stop);
        const bool isDone = encoder.writeBgra8(width, height, strideBytes, texels);
        return isDone ? std::string() : encoder.message();
    });
}

void writeLinearGray16(const std::filesystem::path& file, size_t width, size_t height,
                       const uint16_t* texels) {
    replaceFile(file, width, height, [&](std::FILE* stream) {
        Codec codec;
        codec.image().width = static_cast<png_uint_32>(width);
        codec.image().height = static_cast<png_uint_32>(height);
        codec.image().format = PNG_FORMAT_LINEAR_Y;
        const bool isDone = png_image_write_to_stdio(&codec.image(), stream, 0, texels, 0, nullptr) != 0;
        return isDone ? std::string() : codec.message();
    });
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
    codec.image().format = PNG_FORMAT_LINEAR_Y;
    const RowDestination destination = allocate(codec.image().width, codec.image().height);
    const png_color background = {0, 0, 0};  // Of transparent files.
    const auto stride = static_cast<png_int_32>(destination.strideBytes / sizeof(uint16_t));  // In samples.
    if (png_image_finish_read(&codec.image(), &background, destination.texels, stride, nullptr) == 0) {
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
