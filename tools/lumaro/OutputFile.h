#pragma once

#include <filesystem>
#include <fstream>

namespace Tool {

/// Throws std::runtime_error when a file cannot be there for want of a folder.
void requireFolderOf(const std::filesystem::path& file);

/// A file that stands beside its target until it is complete.
class OutputFile {
public:
    /// Both throw std::runtime_error naming the target.
    explicit OutputFile(std::filesystem::path target);
    void moveIntoPlace();

    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& stream() { return mStream; }

private:
    [[noreturn]] void fail() const;

    std::filesystem::path mTarget;
    std::filesystem::path mPartial;
    std::ofstream mStream;
};

}  // namespace Tool
