#include <core/BlockingSection.h>
#include <octree/RandomAccessFile.h>
#include <octree/StoreError.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <system_error>

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace Octree {

namespace {

constexpr std::size_t READ_STEP = std::size_t{1} << 20;
constexpr std::chrono::milliseconds QUICK_STEP{2};  ///< A step that comes out of memory takes less.

std::string lastSystemError() {
#if defined(_WIN32)
    return std::system_category().message(static_cast<int>(GetLastError()));
#else
    return std::generic_category().message(errno);
#endif
}

}  // namespace

#if defined(_WIN32)

RandomAccessFile::RandomAccessFile(const std::filesystem::path& path) : mPath(path) {
    mHandle = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (mHandle == INVALID_HANDLE_VALUE) {
        throw StoreError(path, "cannot be opened: " + lastSystemError());
    }
    LARGE_INTEGER size;
    if (GetFileSizeEx(mHandle, &size) == 0) {
        const std::string error = lastSystemError();
        CloseHandle(mHandle);
        throw StoreError(path, "has no size: " + error);
    }
    mSize = static_cast<std::uint64_t>(size.QuadPart);
    mWriteTime = lastWriteTime();
}

RandomAccessFile::~RandomAccessFile() {
    CloseHandle(mHandle);
}

std::size_t RandomAccessFile::readSome(std::uint64_t offset, std::size_t size, char* target) const {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD count = 0;
    if (ReadFile(mHandle, target, static_cast<DWORD>(size), &count, &place) == 0 &&
        GetLastError() != ERROR_HANDLE_EOF) {
        throw StoreError(mPath, "cannot be read: " + lastSystemError());
    }
    return count;
}

std::int64_t RandomAccessFile::lastWriteTime() const {
    FILETIME time{};
    GetFileTime(mHandle, nullptr, nullptr, &time);
    return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

#else

RandomAccessFile::RandomAccessFile(const std::filesystem::path& path) : mPath(path) {
    // Opening a pipe would wait for its writer.
    mDescriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (mDescriptor < 0) {
        throw StoreError(path, "cannot be opened: " + lastSystemError());
    }
    struct stat status {};
    const bool known = ::fstat(mDescriptor, &status) == 0;
    if (!known || !S_ISREG(status.st_mode)) {
        ::close(mDescriptor);
        throw StoreError(path, "is not a file");
    }
    mSize = static_cast<std::uint64_t>(status.st_size);
    mWriteTime = lastWriteTime();
}

RandomAccessFile::~RandomAccessFile() {
    ::close(mDescriptor);
}

std::size_t RandomAccessFile::readSome(std::uint64_t offset, std::size_t size, char* target) const {
    for (;;) {
        const ssize_t count = ::pread(mDescriptor, target, size, static_cast<off_t>(offset));
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EINTR) {
            throw StoreError(mPath, "cannot be read: " + lastSystemError());
        }
    }
}

std::int64_t RandomAccessFile::lastWriteTime() const {
    struct stat status {};
    ::fstat(mDescriptor, &status);
    return std::int64_t{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec;
}

#endif

bool RandomAccessFile::read(std::uint64_t offset, std::size_t size, char* target,
                            const std::stop_token& stop) const {
    // What the system has in memory is copied, which keeps a core busy.
    std::optional<Core::BlockingSection> waiting;
    if (mIsSlow.load(std::memory_order_relaxed)) {
        waiting.emplace();
    }
    const auto begin = std::chrono::steady_clock::now();
    const auto quick = QUICK_STEP * (1 + size / READ_STEP);
    while (size > 0) {
        if (stop.stop_requested()) {
            return false;
        }
        const std::size_t count = readSome(offset, std::min(size, READ_STEP), target);
        if (count == 0) {
            throw StoreError(mPath, "ends at byte " + std::to_string(offset));
        }
        offset += count;
        target += count;
        size -= count;
    }
    mIsSlow.store(std::chrono::steady_clock::now() - begin > quick, std::memory_order_relaxed);
    if (lastWriteTime() != mWriteTime) {
        throw StoreError(mPath, "was written to while it was open");
    }
    return true;
}

bool RandomAccessFile::readAll(char* target, const std::stop_token& stop) const {
    if (!read(0, static_cast<std::size_t>(mSize), target, stop)) {
        return false;
    }
    if (char beyond = 0; readSome(mSize, 1, &beyond) != 0) {
        throw StoreError(mPath, "grows while it is read");
    }
    return true;
}

}  // namespace Octree
