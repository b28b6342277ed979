#include <core/File.h>
#include <tools/lumaro/OutputFile.h>

#ifdef _WIN32
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#endif

#include <cstddef>
#include <locale>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace Tool {

namespace fs = std::filesystem;

namespace {

constexpr size_t BUFFER_SIZE = size_t{1} << 16;

struct Created {
    std::FILE* file = nullptr;  ///< Null on failure.
    bool wasThere = false;
};

/// Never what is there already, nor what a link that is there leads to. It can be deleted while it is open.
Created create(const fs::path& path) {
#ifdef _WIN32
    const HANDLE handle =
        CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        return {nullptr, error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS};
    }
    const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_BINARY);
    if (descriptor < 0) {
        CloseHandle(handle);
        return {};
    }
    std::FILE* const file = _fdopen(descriptor, "wb");
    if (file == nullptr) {
        _close(descriptor);
    }
#else
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        return {nullptr, errno == EEXIST};
    }
    std::FILE* const file = fdopen(descriptor, "wb");
    if (file == nullptr) {
        close(descriptor);
    }
#endif
    return {file, false};
}

bool sendToDisk(std::FILE* file) {
    if (std::fflush(file) != 0) {
        return false;
    }
#ifdef _WIN32
    return _commit(_fileno(file)) == 0;
#else
    return fsync(fileno(file)) == 0;
#endif
}

}  // namespace

void requireFolderOf(const fs::path& file) {
    if (file.has_parent_path() && !fs::is_directory(file.parent_path())) {
        throw std::runtime_error("there is no folder " + Core::pathToUtf8(file.parent_path()));
    }
}

OutputFile::OutputFile(fs::path target) : mTarget(std::move(target)) {
    requireFolderOf(mTarget);
    fs::path path;
    Created created;
    for (int number = 1; number == 1 || created.wasThere; ++number) {
        path = mTarget;
        path += ".partial" + std::to_string(number);
        created = create(path);
    }
    mFile.reset(created.file);
    if (!mFile) {
        fail();
    }
    mPartial.emplace(std::move(path));
    std::setvbuf(mFile.get(), nullptr, _IOFBF, BUFFER_SIZE);
    mBuffer.emplace(mFile.get());
    mStream.rdbuf(&*mBuffer);
    mStream.imbue(std::locale::classic());
}

void OutputFile::moveIntoPlace() {
    const bool isWritten = mStream.good() && sendToDisk(mFile.get());
    mStream.setstate(std::ios::badbit);
    const bool isClosed = std::fclose(mFile.release()) == 0;
    std::error_code error;
    if (isWritten && isClosed) {
        fs::rename(mPartial->path(), mTarget, error);
    }
    if (!isWritten || !isClosed || error) {
        fail();
    }
}

void OutputFile::fail() const {
    throw std::runtime_error("cannot write " + Core::pathToUtf8(mTarget));
}

}  // namespace Tool
