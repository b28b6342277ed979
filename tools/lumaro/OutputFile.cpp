#include <tools/lumaro/Console.h>
#include <tools/lumaro/OutputFile.h>

#include <locale>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace Tool {

namespace fs = std::filesystem;

void requireFolderOf(const fs::path& file) {
    if (file.has_parent_path() && !fs::is_directory(file.parent_path())) {
        throw std::runtime_error("there is no folder " + utf8FromPath(file.parent_path()));
    }
}

OutputFile::OutputFile(fs::path target) : mTarget(std::move(target)) {
    requireFolderOf(mTarget);
    int number = 0;
    do {
        mPartial = mTarget;
        mPartial += ".partial" + std::to_string(++number);
    } while (fs::exists(mPartial));
    mStream.imbue(std::locale::classic());
    mStream.open(mPartial, std::ios::binary);
    if (!mStream) {
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
    throw std::runtime_error("cannot write " + utf8FromPath(mTarget));
}

}  // namespace Tool
