#include <tools/lumaro/Console.h>
#include <tools/lumaro/PartialPath.h>

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Tool {

namespace {

std::stop_source& stopSource() {
    static std::stop_source source;
    return source;
}

/// The process may be where nobody looks at the token, and hold any lock.
void endAtOnce() {
    PartialPath::removeAll();
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), STOPPED_MESSAGE,
              static_cast<DWORD>(std::strlen(STOPPED_MESSAGE)), &written, nullptr);
    TerminateProcess(GetCurrentProcess(), STOPPED_EXIT_CODE);
}

/// The system calls this on a thread of its own.
BOOL WINAPI onControl(DWORD event) {
    constexpr ULONGLONG breath = 1000;  // Milliseconds; some terminals pass one Ctrl-C on twice.
    constexpr DWORD lastBreath = 4000;
    static const ULONGLONG first = GetTickCount64();
    stopSource().request_stop();
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        Sleep(lastBreath);  // The window closes, and the system ends the process when this returns.
    } else if (GetTickCount64() - first < breath) {
        return TRUE;
    }
    endAtOnce();
    return TRUE;
}

std::string utf8FromWide(const wchar_t* text) {
    return utf8FromPath(std::filesystem::path(text));
}

bool isTerminal(DWORD which) {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(which), &mode) != 0;
}

}  // namespace

std::vector<std::string> commandLine(int, char**) {
    int count = 0;
    const std::unique_ptr<LPWSTR, decltype(&LocalFree)> wide(CommandLineToArgvW(GetCommandLineW(), &count),
                                                             &LocalFree);
    std::vector<std::string> arguments;
    for (int i = 1; wide != nullptr && i < count; ++i) {
        arguments.push_back(utf8FromWide(wide.get()[i]));
    }
    return arguments;
}

std::filesystem::path pathFromUtf8(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::string utf8FromPath(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

ConsoleSession::ConsoleSession() : mOldCodePage(GetConsoleOutputCP()) {
    if (mOldCodePage != 0) {
        SetConsoleOutputCP(CP_UTF8);
    }
    SetConsoleCtrlHandler(onControl, TRUE);
}

ConsoleSession::~ConsoleSession() {
    SetConsoleCtrlHandler(onControl, FALSE);
    if (mOldCodePage != 0) {
        SetConsoleOutputCP(mOldCodePage);
    }
}

std::stop_token ConsoleSession::stopToken() const {
    return stopSource().get_token();
}

void writeOutput(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
        throw std::runtime_error("cannot write to standard output");
    }
}

Progress::Progress() : mTerminal(isTerminal(STD_ERROR_HANDLE)) {}

Progress::~Progress() {
    if (mShown > 0) {
        put("");
        std::fputs("\r", stderr);
    }
}

void Progress::show(const std::string& text) {
    const auto now = std::chrono::steady_clock::now();
    if (mTerminal && now - mLast >= std::chrono::milliseconds(100)) {
        mLast = now;
        put(text);
    }
}

void Progress::finish(const std::string& text) {
    if (mTerminal) {
        put(text);
        std::fputs("\n", stderr);
        mShown = 0;
    }
}

void Progress::put(const std::string& text) {
    const size_t blanks = mShown > text.size() ? mShown - text.size() : 0;
    std::fprintf(stderr, "\r%s%s", text.c_str(), std::string(blanks, ' ').c_str());
    mShown = text.size();
}

std::string grouped(uint64_t value) {
    std::string text = std::to_string(value);
    for (size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, 1, ' ');
    }
    return text;
}

}  // namespace Tool
