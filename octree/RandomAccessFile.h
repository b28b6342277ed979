#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stop_token>

namespace Octree {

/// A file open for reading at any place, by any number of threads at once.
class RandomAccessFile {
public:
    /// Throws StoreError naming the file when it cannot be opened.
    explicit RandomAccessFile(const std::filesystem::path& path);
    RandomAccessFile(const RandomAccessFile&) = delete;
    RandomAccessFile& operator=(const RandomAccessFile&) = delete;
    ~RandomAccessFile();

    const std::filesystem::path& path() const { return mPath; }
    /// In bytes, as it was on opening.
    std::uint64_t size() const { return mSize; }
    bool contains(std::uint64_t offset, std::uint64_t size) const {
        return offset <= mSize && size <= mSize - offset;
    }

    /// Reads exactly size bytes at offset. False when stopped, which is looked at before every megabyte;
    /// throws StoreError when the bytes are not to be had, or when the file was written to since it was
    /// opened. A file that has just been slow is read in a Core::BlockingSection.
    bool read(std::uint64_t offset, std::size_t size, char* target, const std::stop_token& stop) const;

    /// Reads the whole file, size() bytes, and throws StoreError when it has grown meanwhile, too.
    bool readAll(char* target, const std::stop_token& stop) const;

private:
    std::size_t readSome(std::uint64_t offset, std::size_t size, char* target) const;
    std::int64_t lastWriteTime() const;

    std::filesystem::path mPath;
    std::uint64_t mSize = 0;
    std::int64_t mWriteTime = 0;               ///< In the system's own units.
    mutable std::atomic<bool> mIsSlow{false};  ///< As the last read showed.
#if defined(_WIN32)
    void* mHandle = nullptr;
#else
    int mDescriptor = -1;
#endif
};

}  // namespace Octree
