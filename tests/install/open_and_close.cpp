// open_and_close PROGRAM COMMAND LINE: runs the command line, waits until PROGRAM, a full path, shows a
// window that answers, closes it as its user would, and ends with the program's exit code. A message box is a
// failure.

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <cwchar>
#include <string>

namespace {

constexpr ULONGLONG PATIENCE = 120'000;  // milliseconds; software Direct3D on a busy machine

struct Wanted {
    std::wstring program;
    HWND window = nullptr;
    HANDLE process = nullptr;
    std::wstring complaint;
};

BOOL CALLBACK textOf(HWND child, LPARAM result) {
    wchar_t text[1024] = {};
    GetWindowTextW(child, text, 1024);
    *reinterpret_cast<std::wstring*>(result) += std::wstring(text) + L"\n";
    return TRUE;
}

BOOL CALLBACK look(HWND window, LPARAM parameter) {
    auto& wanted = *reinterpret_cast<Wanted*>(parameter);
    DWORD id = 0;
    GetWindowThreadProcessId(window, &id);
    const HANDLE process =
        OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id);
    wchar_t path[MAX_PATH] = {};
    wchar_t kind[64] = {};
    DWORD length = MAX_PATH;
    if (process == nullptr || !IsWindowVisible(window) ||
        !QueryFullProcessImageNameW(process, 0, path, &length) ||
        _wcsicmp(path, wanted.program.c_str()) != 0) {
        CloseHandle(process);
        return TRUE;
    }
    wanted.process = process;
    GetClassNameW(window, kind, 64);
    if (std::wstring(kind) == L"#32770") {
        EnumChildWindows(window, textOf, reinterpret_cast<LPARAM>(&wanted.complaint));
    } else {
        wanted.window = window;
    }
    return TRUE;
}

int fail(const Wanted& wanted, const char* text) {
    std::printf("%s\n%ls", text, wanted.complaint.c_str());
    if (wanted.process != nullptr) {
        TerminateProcess(wanted.process, 1);
    }
    return 1;
}

}  // namespace

int main() {
    int count = 0;
    wchar_t** const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    if (count < 3) {
        return fail({}, "open_and_close PROGRAM COMMAND LINE");
    }
    Wanted wanted;
    wanted.program = arguments[1];
    std::wstring command = arguments[2];
    for (int i = 3; i < count; ++i) {
        command += std::wstring(L" ") + arguments[i];
    }

    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started = {};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &started)) {
        return fail(wanted, "the command could not be started");
    }

    const ULONGLONG end = GetTickCount64() + PATIENCE;
    DWORD_PTR answer = 0;
    for (;; Sleep(100)) {
        wanted.window = nullptr;
        EnumWindows(look, reinterpret_cast<LPARAM>(&wanted));
        if (!wanted.complaint.empty()) {
            return fail(wanted, "the program shows a message:");
        }
        // It answers once it has opened what it was given.
        if (wanted.window != nullptr &&
            SendMessageTimeoutW(wanted.window, WM_NULL, 0, 0, 0, 100, &answer) != 0) {
            break;
        }
        if (GetTickCount64() > end) {
            return fail(wanted,
                        wanted.window != nullptr ? "the window does not answer" : "there is no window");
        }
    }

    // A complaint follows at once, if there is one.
    Sleep(500);
    EnumWindows(look, reinterpret_cast<LPARAM>(&wanted));
    RECT area{};
    GetClientRect(wanted.window, &area);
    wchar_t title[256] = {};
    GetWindowTextW(wanted.window, title, 256);
    std::printf("%ls, %ld x %ld\n", title, area.right, area.bottom);
    if (!wanted.complaint.empty() || area.right < 100 || area.bottom < 100) {
        return fail(wanted, "the window is not fit for use");
    }
    PostMessageW(wanted.window, WM_CLOSE, 0, 0);
    if (WaitForSingleObject(wanted.process, 30'000) != WAIT_OBJECT_0) {
        return fail(wanted, "the window does not close");
    }
    DWORD code = 1;
    GetExitCodeProcess(wanted.process, &code);
    return static_cast<int>(code);
}
