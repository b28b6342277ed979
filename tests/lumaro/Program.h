#pragma once

#include <windows.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Support {

/// What the program said; by then it has ended.
struct Result {
    DWORD exitCode = 0;
    std::string output;
    std::string errors;
};

std::string contents(const std::filesystem::path& file);

/// The program, run in a folder with its output going to files as if to a pipe.
class Program {
public:
    Program(const std::filesystem::path& folder, const std::vector<std::wstring>& arguments);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    Result wait() const;

private:
    std::filesystem::path mOutput;
    std::filesystem::path mErrors;
    PROCESS_INFORMATION mProcess{};
    bool mStarted = false;
};

}  // namespace Support
