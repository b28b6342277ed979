#pragma once

#include <tools/lumaro/FileBuffer.h>
#include <tools/lumaro/PartialPath.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>

namespace Tool {

/// Throws std::runtime_error when a file cannot be there for want of a folder.
void requireFolderOf(const std::filesystem::path& file);

/// A file that stands beside its target until it is complete.
class OutputFile {
public:
    /// Both throw std::runtime_error naming the target.
    explicit OutputFile(std::filesystem::path target);
    /// When the disk has all of it.
    void moveIntoPlace();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& stream() { return mStream; }

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    [[noreturn]] void fail() const;

    std::filesystem::path mTarget;
    std::optional<PartialPath> mPartial;  // Removed when the file is closed.
    std::unique_ptr<std::FILE, CloseFile> mFile;
    std::optional<FileBuffer> mBuffer;
    std::ostream mStream{nullptr};
};

}  // namespace Tool
