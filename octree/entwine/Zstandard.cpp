#include <core/GrowingBuffer.h>
#include <octree/entwine/Zstandard.h>

#include <zstd.h>
#include <zstd_errors.h>
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <new>
#include <string>

namespace Entwine {

namespace {

using Core::GrowingBuffer;

/// 8 MiB, as much as every decoder is asked to have.
constexpr int ALWAYS_WINDOW_LOG = 23;

struct ContextDeleter {
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

[[noreturn]] void failDamaged(std::size_t error) {
    throw FrameError(std::string("is damaged: ") + ZSTD_getErrorName(error));
}

void checkExtent(std::span<const std::byte> frame) {
    // The library may read frames of its first versions, too, which nobody tests any more.
    constexpr std::array<unsigned char, 4> MAGIC{0x28, 0xb5, 0x2f, 0xfd};
    if (frame.size() >= MAGIC.size() && std::memcmp(frame.data(), MAGIC.data(), MAGIC.size()) != 0) {
        throw FrameError("is no Zstandard frame");
    }
    const std::size_t extent = ZSTD_findFrameCompressedSize(frame.data(), frame.size());
    if (ZSTD_isError(extent) != 0) {
        if (ZSTD_getErrorCode(extent) == ZSTD_error_srcSize_wrong) {
            throw FrameError("is cut short");
        }
        failDamaged(extent);
    }
    if (extent != frame.size()) {
        throw FrameError("ends " + std::to_string(frame.size() - extent) + " bytes before its end");
    }
}

// Without the window that streaming copies through; nullptr when the content is larger than expected.
std::unique_ptr<std::byte[]> decompressAtOnce(ZSTD_DCtx* context, std::span<const std::byte> frame,
                                              std::size_t expectedSize, std::size_t& size) {
    auto bytes = std::make_unique_for_overwrite<std::byte[]>(expectedSize);
    size = ZSTD_decompressDCtx(context, bytes.get(), expectedSize, frame.data(), frame.size());
    if (ZSTD_isError(size) == 0) {
        return bytes;
    }
    if (ZSTD_getErrorCode(size) != ZSTD_error_dstSize_tooSmall) {
        failDamaged(size);
    }
    return nullptr;
}

std::unique_ptr<std::byte[]> decompressStepwise(ZSTD_DCtx* context, std::span<const std::byte> frame,
                                                std::size_t limit, std::size_t& size,
                                                const std::stop_token& stop) {
    // A window is memory that a header of some bytes can ask for.
    const int windowLog = std::max(ALWAYS_WINDOW_LOG, static_cast<int>(std::bit_width(limit)));
    ZSTD_DCtx_setParameter(context, ZSTD_d_windowLogMax,
                           std::min(windowLog, ZSTD_dParam_getBounds(ZSTD_d_windowLogMax).upperBound));
    GrowingBuffer output(limit, frame.size());
    ZSTD_inBuffer input{frame.data(), frame.size(), 0};
    for (;;) {
        std::size_t available = 0;
        std::byte* const next = output.next(available);
        ZSTD_outBuffer step{next, available, 0};
        const std::size_t left = ZSTD_decompressStream(context, &step, &input);
        output.wrote(step.pos);
        if (ZSTD_isError(left) != 0) {
            failDamaged(left);
        }
        if (left == 0) {
            size = output.used();
            return output.take();
        }
        if (input.pos == input.size && step.pos < step.size) {
            throw FrameError("is cut short");
        }
        if (output.used() == limit) {
            throw FrameError("decompresses to more than " + std::to_string(limit) + " bytes");
        }
        if (stop.stop_requested()) {
            return nullptr;
        }
    }
}

}  // namespace

std::unique_ptr<std::byte[]> decompressFrame(std::span<const std::byte> frame, std::size_t expectedSize,
                                             std::size_t limit, std::size_t& size,
                                             const std::stop_token& stop) {
    checkExtent(frame);
    const std::unique_ptr<ZSTD_DCtx, ContextDeleter> context(ZSTD_createDCtx());
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    if (expectedSize <= GrowingBuffer::OUTPUT_STEP) {
        if (auto bytes = decompressAtOnce(context.get(), frame, expectedSize, size)) {
            return bytes;
        }
        ZSTD_DCtx_reset(context.get(), ZSTD_reset_session_only);
    }
    return decompressStepwise(context.get(), frame, limit, size, stop);
}

}  // namespace Entwine
