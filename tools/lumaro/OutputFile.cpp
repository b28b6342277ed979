#include <core/File.h>
#include <tools/lumaro/OutputFile.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#endif

#include <locale>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace Tool {

namespace fs = std::filesystem;

namespace {

enum class Creation { Done, Exists, Failed };

/// Never what is there already, nor what a link that is there leads to.
Creation create(const fs::path& file) {
#ifdef _WIN32
    const HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                      FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle != INVALID_HANDLE_VALUE) {
        CloseHandle(handle);
        return Creation::Done;
    }
    const DWORD error = GetLastError();
    return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS ? Creation::Exists : Creation::Failed;
#else
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor >= 0) {
        close(descriptor);
        return Creation::Done;
    }
    return errno == EEXIST ? Creation::Exists : Creation::Failed;
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
    int number = 0;
    Creation creation = Creation::Exists;
    while (creation == Creation::Exists) {
        mPartial = mTarget;
        mPartial += ".partial" + std::to_string(++number);
        creation = create(mPartial);
    }
    if (creation == Creation::Failed) {
        fail();
    }
    mStream.imbue(std::locale::classic());
    mStream.open(mPartial, std::ios::binary);
    if (!mStream) {
        std::error_code ignored;
        fs::remove(mPartial, ignored);
        fail();
    }
}

OutputFile::~OutputFile() {
    if (mStream.is_open()) {
        mStream.close();
    }
    std::error_code ignored;
    fs::remove(mPartial, ignored);
}

void OutputFile::moveIntoPlace() {
    mStream.close();
    std::error_code error;
    if (mStream) {
        fs::rename(mPartial, mTarget, error);
    }
    if (!mStream || error) {
        fail();
    }
}

void OutputFile::fail() const {
    throw std::runtime_error("cannot write " + Core::pathToUtf8(mTarget));
}

}  // namespace Tool
