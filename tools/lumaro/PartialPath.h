#pragma once

#include <filesystem>

namespace Tool {

/// A file or folder that is not complete yet. What is there goes with this object, or with the process where
/// that is ended at once.
class PartialPath {
public:
    /// Whose it is already.
    explicit PartialPath(std::filesystem::path path);
    ~PartialPath();
    PartialPath(const PartialPath&) = delete;
    PartialPath& operator=(const PartialPath&) = delete;

    const std::filesystem::path& path() const { return mPath; }

    /// Those of all that live, by the thread that ends the process: from here on the others wait who make or
    /// destroy one.
    static void removeAll() noexcept;

private:
    const std::filesystem::path mPath;
    PartialPath* mNext;
};

}  // namespace Tool
