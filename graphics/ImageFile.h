#pragma once

#include <graphics/Image.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

/// What the readers and writers of the image formats share.
namespace Graphics {

struct CloseFile {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using FileStream = std::unique_ptr<std::FILE, CloseFile>;

/// Null on failure, errno tells why.
FileStream createImageFile(const std::filesystem::path& file);

/// Throws ImageError, also for folders and empty files.
FileStream openImageFile(const std::filesystem::path& file);

/// The meaning of errno.
std::string lastFileError();

enum class ImageKind { Unknown, Png, Jpeg, Pfm };

/// Looks at the first bytes, whatever the file is called. Throws ImageError as openImageFile.
ImageKind imageKind(const std::filesystem::path& file);

/// Throws ImageError for sides of 0 or above 65535 and for more than 2^28 texels.
void checkImageSize(const std::filesystem::path& file, size_t width, size_t height);

/// Throws ImageError when the size is not supported or when not even the best compression would bring so many
/// texels into the file's length, so that no short file makes us allocate a large image.
void checkImageSize(const std::filesystem::path& file, size_t width, size_t height, size_t maxTexelsPerByte);

/// Where a reader shall put the rows, top row first.
struct RowDestination {
    void* texels;
    size_t strideBytes;
};

/// Called once, when the header was read and its size found acceptable.
using AllocateRows = std::function<RowDestination(size_t width, size_t height)>;

/// Makes the image as large. Throws ImageError when so many bytes a texel, which reading it takes, are more
/// than the limit in all.
AllocateRows rowsOf(Image& image, const std::filesystem::path& file, size_t bytesPerTexel,
                    std::uint64_t memoryLimit);

/// Why a reader fails whose stop token is signalled.
inline constexpr const char* READING_WAS_STOPPED = "the reading was stopped";

}  // namespace Graphics
