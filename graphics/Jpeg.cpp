#include <graphics/Jpeg.h>

#include <graphics/ImageError.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

// libjpeg's headers rely on the two above them.
#include <jpeglib.h>

#include <jerror.h>

namespace Graphics::Jpeg {

namespace {

constexpr int MAX_SCANS = 100;

/// Of files that come in several scans: the coefficients of the whole image are held, up to six bytes a
/// texel.
constexpr size_t MAX_TEXELS_IN_SCANS = size_t{1} << 27;

/// A block of 64 samples takes a bit at least; sampling factors let one stand for more texels.
constexpr size_t MAX_TEXELS_PER_BYTE = 1024;

struct Errors {
    jpeg_error_mgr manager;  // First, because libjpeg hands back its address.
    std::jmp_buf leave;
    const std::stop_token* stop;
    char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void leave(j_common_ptr info) {
    Errors* errors = reinterpret_cast<Errors*>(info->err);
    std::longjmp(errors->leave, 1);
}

[[noreturn]] void onError(j_common_ptr info) {
    Errors* errors = reinterpret_cast<Errors*>(info->err);
    errors->manager.format_message(info, errors->message);
    leave(info);
}

/// libjpeg warns and goes on where data are damaged.
void onMessage(j_common_ptr info, int level) {
    const jpeg_error_mgr& manager = *info->err;
    const bool isPadding = manager.msg_code == JWRN_EXTRANEOUS_DATA && manager.msg_parm.i[1] == JPEG_EOI;
    const bool isHarmless =
        isPadding || manager.msg_code == JWRN_JFIF_MAJOR || manager.msg_code == JWRN_ADOBE_XFORM;
    if (level < 0 && !isHarmless) {
        onError(info);
    }
}

void onOutput(j_common_ptr) {}

/// Comes now and then. Each scan is a pass over the whole image, however short its data.
void onProgress(j_common_ptr info) {
    Errors* errors = reinterpret_cast<Errors*>(info->err);
    if (errors->stop->stop_requested()) {
        std::snprintf(errors->message, sizeof errors->message, "%s", READING_WAS_STOPPED);
        leave(info);
    }
    if (reinterpret_cast<j_decompress_ptr>(info)->input_scan_number > MAX_SCANS) {
        std::strcpy(errors->message, "too many scans");
        leave(info);
    }
}

/// libjpeg with its memory. Errors jump back into the two functions that return false; nothing with a
/// destructor may live in those.
class Decoder {
public:
    Decoder(std::FILE* stream, const std::stop_token& stop) : mStream(stream) {
        std::memset(&mInfo, 0, sizeof mInfo);
        std::memset(&mErrors, 0, sizeof mErrors);
        std::memset(&mProgress, 0, sizeof mProgress);
        mInfo.err = jpeg_std_error(&mErrors.manager);
        mErrors.stop = &stop;
        mErrors.manager.error_exit = onError;
        mErrors.manager.emit_message = onMessage;
        mErrors.manager.output_message = onOutput;
        mProgress.progress_monitor = onProgress;
    }
    ~Decoder() { jpeg_destroy_decompress(&mInfo); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    const jpeg_decompress_struct& info() const { return mInfo; }
    bool comesInScans() { return jpeg_has_multiple_scans(&mInfo) != FALSE; }
    const char* message() const { return mErrors.message; }

    bool readHeader() {
        if (setjmp(mErrors.leave) != 0) {
            return false;
        }
        jpeg_create_decompress(&mInfo);
        mInfo.progress = &mProgress;
        jpeg_stdio_src(&mInfo, mStream);
        jpeg_read_header(&mInfo, TRUE);
        return true;
    }

    bool readRows(const RowDestination& destination) {
        if (setjmp(mErrors.leave) != 0) {
            return false;
        }
        mInfo.out_color_space = JCS_EXT_BGRA;
        jpeg_start_decompress(&mInfo);
        while (mInfo.output_scanline < mInfo.output_height) {
            JSAMPROW row =
                static_cast<uint8_t*>(destination.texels) + mInfo.output_scanline * destination.strideBytes;
            jpeg_read_scanlines(&mInfo, &row, 1);
        }
        jpeg_finish_decompress(&mInfo);
        return true;
    }

private:
    std::FILE* mStream;
    jpeg_decompress_struct mInfo;
    Errors mErrors;
    jpeg_progress_mgr mProgress;
};

void checkKind(const std::filesystem::path& file, const jpeg_decompress_struct& info) {
    switch (info.jpeg_color_space) {
        case JCS_GRAYSCALE:
        case JCS_RGB:
        case JCS_YCbCr:
            break;
        case JCS_CMYK:
        case JCS_YCCK:
            throw ImageError(file, "CMYK colours are not supported");
        default:
            throw ImageError(file,
                             std::to_string(info.num_components) + " colour components are not supported");
    }
    if (info.arith_code != FALSE) {
        throw ImageError(file, "arithmetic coding is not supported");
    }
}

}  // namespace

void read(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop) {
    const FileStream stream = openImageFile(file);
    Decoder decoder(stream.get(), stop);
    if (!decoder.readHeader()) {
        throw ImageError(file, std::string("cannot be read: ") + decoder.message());
    }
    const size_t width = decoder.info().image_width;
    const size_t height = decoder.info().image_height;
    checkImageSize(file, width, height, MAX_TEXELS_PER_BYTE);
    checkKind(file, decoder.info());
    if (decoder.comesInScans() && width * height > MAX_TEXELS_IN_SCANS) {
        throw ImageError(file, "more than 2^27 texels are not supported in a progressive file");
    }
    if (!decoder.readRows(allocate(width, height))) {
        throw ImageError(file, std::string("cannot be read: ") + decoder.message());
    }
}

}  // namespace Graphics::Jpeg
