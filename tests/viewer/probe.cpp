// viewer_probe DESKTOP run PROGRAM ARGUMENT…
//     runs the viewer on a desktop of its own, out of reach of other programs' windows, mice and keys
// viewer_probe DESKTOP state | picture [OTHER-HASH] | message
//     tells how it looks from outside, in lines "NAME VALUE", or the text of its message box
// viewer_probe DESKTOP rest [STATUS]
//     waits until everything is drawn and the title says so
// viewer_probe DESKTOP minimise | restore | cover
//     does to its window what a user does with others around

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr uint32_t BACKGROUND = 0x1e2228;

void require(bool good, const char* what) {
    if (!good) {
        throw std::runtime_error(std::string(what) + " failed, error " + std::to_string(GetLastError()));
    }
}

int run(std::wstring desktop, const std::vector<std::wstring>& arguments) {
    std::wstring command;
    for (const std::wstring& argument : arguments) {
        command += (command.empty() ? L"\"" : L" \"") + argument + L"\"";
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.lpDesktop = desktop.data();
    PROCESS_INFORMATION process{};
    require(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                           &process),
            "CreateProcess");
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    require(GetExitCodeProcess(process.hProcess, &code), "GetExitCodeProcess");
    if (code != 0) {
        std::fprintf(stderr, "exit code 0x%lx\n", code);
    }
    return code == 0 ? 0 : 1;
}

/// Of kernel objects. Wine's GetProcessHandleCount always says 0.
size_t openHandles(DWORD process) {
    struct Entry {
        void* object;
        ULONG_PTR owner;
        ULONG_PTR handle;
        ULONG access;
        USHORT creator;
        USHORT type;
        ULONG attributes;
        ULONG reserved;
    };
    constexpr ULONG allHandles = 64;
    using Query = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll"), "NtQuerySystemInformation")));
    std::vector<char> buffer(1 << 20);
    require(query != nullptr && query(allHandles, buffer.data(), 1 << 20, nullptr) == 0,
            "NtQuerySystemInformation");
    std::array<ULONG_PTR, 2> head{};
    std::memcpy(head.data(), buffer.data(), sizeof head);
    std::vector<Entry> entries(head[0]);
    std::memcpy(entries.data(), buffer.data() + sizeof head, entries.size() * sizeof(Entry));
    return static_cast<size_t>(std::count_if(entries.begin(), entries.end(),
                                             [&](const Entry& entry) { return entry.owner == process; }));
}

int printState(HWND window) {
    DWORD process = 0;
    const DWORD thread = GetWindowThreadProcessId(window, &process);
    size_t windows = 0;
    const auto count = [](HWND, LPARAM sum) -> BOOL { return ++*reinterpret_cast<size_t*>(sum), TRUE; };
    EnumThreadWindows(thread, count, reinterpret_cast<LPARAM>(&windows));
    std::printf("handles %zu\nwindows %zu\n", openHandles(process), windows);
    return 0;
}

/// The window's part of the screen, in which no function of the viewer takes part.
std::vector<uint32_t> pixelsOnScreen(HWND window) {
    RECT area{};
    GetClientRect(window, &area);
    POINT origin{};
    ClientToScreen(window, &origin);
    const HDC screen = GetDC(nullptr);
    const HDC memory = CreateCompatibleDC(screen);
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = area.right;
    info.bmiHeader.biHeight = area.bottom;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    void* bits = nullptr;
    const HBITMAP bitmap = CreateDIBSection(memory, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    require(bitmap != nullptr, "CreateDIBSection");
    SelectObject(memory, bitmap);
    require(BitBlt(memory, 0, 0, area.right, area.bottom, screen, origin.x, origin.y, SRCCOPY), "BitBlt");
    GdiFlush();
    std::vector<uint32_t> pixels(static_cast<size_t>(area.right) * static_cast<size_t>(area.bottom));
    std::memcpy(pixels.data(), bits, pixels.size() * sizeof(uint32_t));
    DeleteDC(memory);
    DeleteObject(bitmap);
    ReleaseDC(nullptr, screen);
    for (uint32_t& pixel : pixels) {
        pixel &= 0xffffff;
    }
    return pixels;
}

std::string hashOf(const std::vector<uint32_t>& pixels) {
    uint64_t hash = 14695981039346656037u;
    for (const uint32_t pixel : pixels) {
        hash = (hash ^ pixel) * 1099511628211u;
    }
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(hash));
    return text.data();
}

/// Of a picture that has come to rest and is not the one with that hash.
int printPicture(HWND window, const std::string& other) {
    std::vector<uint32_t> pixels;
    std::string hash;
    for (const ULONGLONG end = GetTickCount64() + 20'000;;) {
        const std::string last = hash;
        pixels = pixelsOnScreen(window);
        hash = hashOf(pixels);
        if (hash == last && hash != other) {
            break;
        }
        if (GetTickCount64() > end) {
            throw std::runtime_error("waited in vain for another picture than " + other);
        }
        Sleep(150);
    }
    std::sort(pixels.begin(), pixels.end());
    const auto background = std::count(pixels.begin(), pixels.end(), BACKGROUND);
    const size_t covered = pixels.size() - static_cast<size_t>(background);
    std::printf("hash %s\ncovered %zu\ncolors %zu\n", hash.c_str(), 1000 * covered / pixels.size(),
                static_cast<size_t>(std::unique(pixels.begin(), pixels.end()) - pixels.begin()));
    return 0;
}

std::wstring titleOf(HWND window) {
    std::array<wchar_t, 512> text{};
    GetWindowTextW(window, text.data(), static_cast<int>(text.size()));
    return text.data();
}

/// Has seen all of its messages, twice, and had nothing to draw in between.
void awaitRest(HWND window, const std::wstring& status) {
    for (const ULONGLONG end = GetTickCount64() + 30'000;;) {
        const std::wstring title = titleOf(window);
        for (int i = 0; i < 2; ++i) {
            DWORD_PTR result = 0;
            require(SendMessageTimeoutW(window, WM_NULL, 0, 0, SMTO_NORMAL, 20'000, &result) != 0,
                    "answering a message");
        }
        if (titleOf(window) == title && title.find(status) != std::wstring::npos &&
            title.find(L"loading") == std::wstring::npos) {
            return;
        }
        require(GetTickCount64() < end, "coming to rest");
        Sleep(20);
    }
}

/// The text of the message box.
int printMessage() {
    constexpr int textId = 0xffff;
    const HWND box = FindWindowW(L"#32770", L"LumaroRender viewer");
    require(box != nullptr, "FindWindow");
    std::array<char, 2048> text{};
    SendDlgItemMessageA(box, textId, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    std::puts(text.data());
    return 0;
}

/// Part of it with another window, until that is seen.
void cover(HWND window) {
    POINT origin{};
    ClientToScreen(window, &origin);
    constexpr int width = 300;
    constexpr int height = 300;
    const HWND other = CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW | WS_EX_NOACTIVATE, L"STATIC", L"",
                                       WS_POPUP | WS_VISIBLE | SS_WHITERECT, origin.x + 100, origin.y + 100,
                                       width, height, nullptr, nullptr, nullptr, nullptr);
    require(other != nullptr, "CreateWindow");
    const HDC screen = GetDC(nullptr);
    const ULONGLONG end = GetTickCount64() + 10'000;
    while (GetPixel(screen, origin.x + 100 + width / 2, origin.y + 100 + height / 2) != RGB(255, 255, 255)) {
        require(GetTickCount64() < end, "covering the window");
        for (MSG message{}; PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);) {
            DispatchMessageW(&message);
        }
        Sleep(20);
    }
    ReleaseDC(nullptr, screen);
    DestroyWindow(other);
}

void showAs(HWND window, int how, bool iconic) {
    ShowWindowAsync(window, how);
    for (const ULONGLONG end = GetTickCount64() + 10'000; (IsIconic(window) != 0) != iconic;) {
        require(GetTickCount64() < end, "ShowWindowAsync");
        Sleep(10);
    }
}

int ask(HWND window, const std::wstring& command, const std::wstring& argument) {
    if (command == L"state") {
        return printState(window);
    }
    if (command == L"picture") {
        return printPicture(window, {argument.begin(), argument.end()});
    }
    if (command == L"message") {
        return printMessage();
    }
    if (command == L"rest") {
        awaitRest(window, argument);
    } else if (command == L"minimise") {
        showAs(window, SW_MINIMIZE, true);
    } else if (command == L"restore") {
        showAs(window, SW_RESTORE, false);
    } else if (command == L"cover") {
        cover(window);
    } else {
        return 2;
    }
    return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    try {
        const std::wstring name = argc > 2 ? argv[1] : L"";
        const HDESK desktop = CreateDesktopW(name.c_str(), nullptr, nullptr, 0, GENERIC_ALL, nullptr);
        require(desktop != nullptr && SetThreadDesktop(desktop), "CreateDesktop");
        const std::vector<std::wstring> arguments(argv + 2, argv + argc);
        if (arguments[0] == L"run") {
            return run(name, {arguments.begin() + 1, arguments.end()});
        }
        const HWND window = FindWindowW(L"LumaroViewer", nullptr);
        require(window != nullptr, "FindWindow");
        return ask(window, arguments[0], arguments.size() > 1 ? arguments[1] : L"");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "viewer_probe: %s\n", error.what());
        return 1;
    }
}
