#pragma once

#include <chrono>
#include <filesystem>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace Tool {

/// The program's arguments without its name, in UTF-8 whatever the code page.
std::vector<std::string> commandLine(int argc, char** argv);

std::filesystem::path pathFromUtf8(const std::string& text);
std::string utf8FromPath(const std::filesystem::path& path);

/// Of a program that was asked to stop, and did.
constexpr int STOPPED_EXIT_CODE = 130;
constexpr const char* STOPPED_MESSAGE = "lumaro: stopped\n";

/// Lets console windows show UTF-8 while it lives and turns Ctrl-C, Ctrl-Break and closing the window into a
/// stop request; one more a second later ends the process at once, without what is unfinished. One at a time.
class ConsoleSession {
public:
    ConsoleSession();
    ~ConsoleSession();
    ConsoleSession(const ConsoleSession&) = delete;
    ConsoleSession& operator=(const ConsoleSession&) = delete;

    std::stop_token stopToken() const;

private:
    unsigned mOldCodePage = 0;
};

/// Writes to standard output; throws std::runtime_error when it does not arrive.
void writeOutput(std::string_view text);

/// A line on standard error that is rewritten in place; silent when standard error is not a terminal.
class Progress {
public:
    Progress();
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// At most ten times a second reaches the terminal.
    void show(const std::string& text);
    /// Ends the line with this text.
    void finish(const std::string& text);

private:
    void put(const std::string& text);

    bool mTerminal;
    size_t mShown = 0;
    std::chrono::steady_clock::time_point mLast;
};

/// 1234567 as "1 234 567".
std::string grouped(uint64_t value);

}  // namespace Tool
