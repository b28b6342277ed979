// viewer [STORE | FILE.obj | PANORAMA.jpg]…: a window on point clouds, meshes and panoramas.
//
//   left drag  orbit          click     pick; the second click also measures
//   right drag pan            wheel     zoom to the point under the cursor
//   O open  F fit  1…7 colour by  C colour map  + - point size  B boxes  X clip  [ ] brightness  Esc quit

#include "Text.h"
#include "Viewer.h"

#include <core/ExceptionChain.h>

#include <memory>

namespace {

LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const viewer = reinterpret_cast<Viewer*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == WM_DESTROY) {
        PostQuitMessage(0);
        return 0;
    }
    try {
        if (viewer != nullptr && viewer->handle(message, wParam, lParam)) {
            return 0;
        }
    } catch (const std::exception& error) {  // None may pass through the system's code.
        viewer->report(Core::exceptionChain(error));
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

void run(HINSTANCE instance) {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = windowProcedure;
    windowClass.hInstance = instance;
    windowClass.hCursor = LoadCursor(nullptr, IDC_ARROW);
    windowClass.lpszClassName = L"LumaroViewer";
    RegisterClassW(&windowClass);
    const HWND window = CreateWindowW(L"LumaroViewer", L"LumaroRender", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT,
                                      CW_USEDEFAULT, 1280, 800, nullptr, nullptr, instance, nullptr);
    const auto viewer = std::make_unique<Viewer>(window);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(viewer.get()));
    ShowWindow(window, SW_SHOW);

    int count = 0;
    wchar_t** const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; i < count; ++i) {
        viewer->open(arguments[i]);
    }
    LocalFree(arguments);

    for (MSG message{};;) {
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == WM_QUIT) {
                return;
            }
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        viewer->update();
        // Loaders ask for redraws without sending a message.
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 15, QS_ALLINPUT);
    }
}

}  // namespace

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR, int) {
    try {
        run(instance);
    } catch (const std::exception& error) {
        MessageBoxW(nullptr, wide(Core::exceptionChain(error)).c_str(), L"LumaroRender viewer", MB_ICONERROR);
        return 1;
    }
    return 0;
}
