// viewer [STORE | FILE.obj | PANORAMA.jpg]…: a window on point clouds, meshes and panoramas.
//
//   left drag  orbit          click     pick; the second click also measures
//   right drag pan            wheel     zoom to the point under the cursor
//   O open  F fit  1…8 colour by  C colour map  + - point size  B boxes  X clip  [ ] brightness  Esc quit

#include "OrbitCamera.h"
#include "Presenter.h"
#include "Scene.h"

#include <core/ExceptionChain.h>

#include <windows.h>

#include <commdlg.h>
#include <shellapi.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;
using Point = Math::Point<float, 3>;

constexpr int CLICK_PIXELS = 3;

std::wstring wide(const std::string& utf8) {
    const int bytes = static_cast<int>(utf8.size());
    std::wstring text(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0)),
                      0);
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, text.data(), static_cast<int>(text.size()));
    return text;
}

class Viewer {
public:
    explicit Viewer(HWND window)
        : mWindow(window), mPresenter(window, mRenderer.device()), mScene(mRenderer) {
        mRenderer.setBackgroundColor(30, 34, 40, 255);
        resize();
        DragAcceptFiles(window, TRUE);
    }

    void open(const std::filesystem::path& path) {
        SetCursor(LoadCursor(nullptr, IDC_WAIT));
        try {
            mScene.open(path);
            fit();
        } catch (const std::exception& error) {
            report(Core::exceptionChain(error));
        }
    }

    /// Draws and presents when something changed; without a change it does nothing at all.
    void update() {
        if (IsIconic(mWindow) || !mRenderer.needsRedraw()) {
            showStatus();
            return;
        }
        const Clock::time_point begin = Clock::now();
        mRenderer.render();
        mFrameTime = Clock::now() - begin;
        present();
        showStatus();
        if (const auto error = mScene.takeError()) {
            report(*error);
        }
    }

    bool handle(UINT message, WPARAM wParam, LPARAM lParam) {
        const int x = static_cast<short>(LOWORD(lParam));
        const int y = static_cast<short>(HIWORD(lParam));
        switch (message) {
            case WM_SIZE:
                resize();
                update();
                return true;
            case WM_PAINT:
                ValidateRect(mWindow, nullptr);
                present();
                return true;
            case WM_ERASEBKGND:
                return true;
            case WM_LBUTTONDOWN:
            case WM_RBUTTONDOWN:
                SetCapture(mWindow);
                mPress = mLast = POINT{x, y};
                return true;
            case WM_MOUSEMOVE:
                drag(wParam, x, y);
                return true;
            case WM_LBUTTONUP:
                ReleaseCapture();
                if (std::abs(x - mPress.x) <= CLICK_PIXELS && std::abs(y - mPress.y) <= CLICK_PIXELS) {
                    pick(x, y);
                }
                return true;
            case WM_RBUTTONUP:
                ReleaseCapture();
                return true;
            case WM_MOUSEWHEEL:
                zoom(POINT{x, y}, static_cast<short>(HIWORD(wParam)));
                return true;
            case WM_DROPFILES:
                openDropped(reinterpret_cast<HDROP>(wParam));
                return true;
            case WM_KEYDOWN:
                return key(wParam);
            default:
                return false;
        }
    }

private:
    void resize() {
        RECT area{};
        GetClientRect(mWindow, &area);
        if (area.right > 0 && area.bottom > 0) {
            mRenderer.setViewport(static_cast<size_t>(area.right), static_cast<size_t>(area.bottom));
        }
    }

    void present() { mPresenter.present(mRenderer.deviceContext(), mRenderer.outputTexture()); }

    void fit() {
        mCamera.fit(mRenderer.boundingBox());
        mCamera.apply(mRenderer);
        const Math::NBoundingBox<float, 3> box = mRenderer.boundingBox();
        if (!box.isEmpty()) {
            // Heights, for the modes that show distances.
            mRenderer.setColorizationRange(Point(0, 0, box.min.z()), Point(0, 0, box.max.z() + 1e-3f),
                                           mRenderer.colorMap());
        }
    }

    void drag(WPARAM buttons, int x, int y) {
        const auto right = static_cast<float>(x - mLast.x);
        const auto down = static_cast<float>(y - mLast.y);
        mLast = POINT{x, y};
        if ((buttons & MK_LBUTTON) != 0) {
            mCamera.orbit(right, down);
        } else if ((buttons & MK_RBUTTON) != 0) {
            mCamera.pan(right, down, static_cast<float>(mRenderer.viewport().height()));
        } else {
            return;
        }
        mCamera.apply(mRenderer);
    }

    void zoom(POINT cursor, int wheel) {
        ScreenToClient(mWindow, &cursor);
        const float share = 1.0f - std::pow(0.8f, static_cast<float>(wheel) / WHEEL_DELTA);
        if (const std::optional<Point> place = placeAt(cursor.x, cursor.y)) {
            mCamera.approach(*place, share);
        } else {
            mCamera.approachTarget(share);
        }
        mCamera.apply(mRenderer);
    }

    std::optional<Point> placeAt(LONG x, LONG y) {
        Point place;
        if (x < 0 || y < 0 ||
            !mRenderer.pickClosestPointWithTolerance(static_cast<size_t>(x), static_cast<size_t>(y), 4,
                                                     place)) {
            return std::nullopt;
        }
        return place;
    }

    void pick(int x, int y) {
        const std::optional<Point> picked = placeAt(x, y);
        if (!picked) {
            mMeasured.clear();
            mPicked.reset();
            return;
        }
        const Math::Point<double, 3> place = mScene.absolute(*picked);
        std::array<char, 160> text{};
        std::snprintf(text.data(), text.size(), "%.3f  %.3f  %.3f", place.x(), place.y(), place.z());
        mMeasured = text.data();
        if (mPicked) {
            std::snprintf(text.data(), text.size(), "   distance %.3f", Math::distance(*mPicked, place));
            mMeasured += text.data();
            mPicked.reset();
        } else {
            mPicked = place;
        }
    }

    bool key(WPARAM code) {
        using Render::RenderMode;
        constexpr std::array modes{RenderMode::Default,          RenderMode::Intensity,
                                   RenderMode::Normal,           RenderMode::UniformColor,
                                   RenderMode::PlaneDistance,    RenderMode::TomographicDark,
                                   RenderMode::TomographicBright};
        if (code >= '1' && code < '1' + modes.size()) {
            mRenderer.setRenderMode(modes[code - '1']);
            return true;
        }
        switch (code) {
            case 'O':
                openChosen();
                return true;
            case 'F':
                fit();
                return true;
            case 'C':
                mRenderer.setColorMap(
                    static_cast<Render::ColorMap>((static_cast<int>(mRenderer.colorMap()) + 1) % 13));
                return true;
            case VK_ADD:
            case VK_OEM_PLUS:
                mScene.changePointSize(1.25f);
                return true;
            case VK_SUBTRACT:
            case VK_OEM_MINUS:
                mScene.changePointSize(0.8f);
                return true;
            case 'B':
                mScene.toggleBoxes();
                return true;
            case 'X':
                mScene.toggleClipping();
                return true;
            case VK_OEM_4:
                mRenderer.setBrightness(mRenderer.brightness() - 0.05f);
                return true;
            case VK_OEM_6:
                mRenderer.setBrightness(mRenderer.brightness() + 0.05f);
                return true;
            case VK_ESCAPE:
                PostMessage(mWindow, WM_CLOSE, 0, 0);
                return true;
            default:
                return false;
        }
    }

    void openDropped(HDROP drop) {
        const UINT count = DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0);
        for (UINT i = 0; i < count; ++i) {
            std::wstring path(DragQueryFileW(drop, i, nullptr, 0) + 1, 0);
            DragQueryFileW(drop, i, path.data(), static_cast<UINT>(path.size()));
            path.pop_back();
            open(path);
        }
        DragFinish(drop);
    }

    void openChosen() {
        std::wstring path(32768, 0);
        OPENFILENAMEW dialog = {};
        dialog.lStructSize = sizeof dialog;
        dialog.hwndOwner = mWindow;
        dialog.lpstrFilter = L"Stores, meshes, panoramas\0metadata.json;ept.json;*.obj;*.png;*.jpg;*.jpeg\0";
        dialog.lpstrFile = path.data();
        dialog.nMaxFile = static_cast<DWORD>(path.size());
        dialog.Flags = OFN_FILEMUSTEXIST | OFN_NOCHANGEDIR;
        if (GetOpenFileNameW(&dialog)) {
            open(path.c_str());
        }
    }

    void report(const std::string& text) {
        MessageBoxW(mWindow, wide(text).c_str(), L"LumaroRender viewer", MB_OK | MB_ICONERROR);
    }

    void showStatus() {
        std::array<char, 160> text{};
        const double milliseconds = std::chrono::duration<double, std::milli>(mFrameTime).count();
        std::snprintf(text.data(), text.size(), "LumaroRender   %zu points, %zu nodes, %.0f ms%s",
                      mScene.points(), mScene.nodes(), milliseconds, mScene.isLoading() ? ", loading" : "");
        std::string status = text.data();
        status += mMeasured.empty() ? "" : "   |   " + mMeasured;
        if (status != mStatus) {
            mStatus = status;
            SetWindowTextW(mWindow, wide(status).c_str());
        }
    }

    HWND mWindow;
    Render::Renderer mRenderer{true};
    Presenter mPresenter;
    Scene mScene;
    OrbitCamera mCamera;
    POINT mPress{};
    POINT mLast{};
    std::optional<Math::Point<double, 3>> mPicked;  ///< Where a measurement begins; absolute.
    std::string mMeasured;
    std::string mStatus;
    Clock::duration mFrameTime{};
};

LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const viewer = reinterpret_cast<Viewer*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == WM_DESTROY) {
        PostQuitMessage(0);
        return 0;
    }
    return viewer != nullptr && viewer->handle(message, wParam, lParam)
               ? 0
               : DefWindowProcW(window, message, wParam, lParam);
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
