#include "Viewer.h"
#include "Text.h"

#include <core/ExceptionChain.h>

#include <commdlg.h>

#include <array>
#include <cmath>

namespace {

using Clock = std::chrono::steady_clock;
using Point = Math::Point<float, 3>;

constexpr int CLICK_PIXELS = 3;

}  // namespace

Viewer::Viewer(HWND window) : mWindow(window), mPresenter(window, mRenderer.device()), mScene(mRenderer) {
    mRenderer.setBackgroundColor(30, 34, 40, 255);
    resize();
    DragAcceptFiles(window, TRUE);
}

void Viewer::showOpened() {
    try {
        if (mScene.showOpened()) {
            fit();
        }
    } catch (const std::exception& error) {
        report(Core::exceptionChain(error));
    }
}

void Viewer::update() {
    showOpened();
    if (const auto error = mScene.takeError()) {
        report(*error);
    }
    if (IsIconic(mWindow) || !mRenderer.needsRedraw()) {
        showStatus();
        return;
    }
    const Clock::time_point begin = Clock::now();
    mRenderer.render();
    mFrameTime = Clock::now() - begin;
    ++mFrames;
    present();
    showStatus();
}

bool Viewer::handle(UINT message, WPARAM wParam, LPARAM lParam) {
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

void Viewer::report(const std::string& text) {
    MessageBoxW(mWindow, wide(text).c_str(), L"LumaroRender viewer", MB_OK | MB_ICONERROR);
}

void Viewer::resize() {
    RECT area{};
    GetClientRect(mWindow, &area);
    if (area.right > 0 && area.bottom > 0) {
        mRenderer.setViewport(static_cast<size_t>(area.right), static_cast<size_t>(area.bottom));
    }
}

void Viewer::fit() {
    mCamera.fit(mRenderer.boundingBox());
    mCamera.apply(mRenderer);
    const Math::NBoundingBox<float, 3> box = mRenderer.boundingBox();
    if (!box.isEmpty()) {
        // Heights, for the modes that show distances.
        mRenderer.setColorizationRange(Point(0, 0, box.min.z()), Point(0, 0, box.max.z() + 1e-3f),
                                       mRenderer.colorMap());
    }
}

void Viewer::drag(WPARAM buttons, int x, int y) {
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

void Viewer::zoom(POINT cursor, int wheel) {
    ScreenToClient(mWindow, &cursor);
    const float share = 1.0f - std::pow(0.8f, static_cast<float>(wheel) / WHEEL_DELTA);
    if (const std::optional<Point> place = placeAt(cursor.x, cursor.y)) {
        mCamera.approach(*place, share);
    } else {
        mCamera.approachTarget(share);
    }
    mCamera.apply(mRenderer);
}

std::optional<Point> Viewer::placeAt(LONG x, LONG y) {
    Point place;
    if (x < 0 || y < 0 ||
        !mRenderer.pickClosestPointWithTolerance(static_cast<size_t>(x), static_cast<size_t>(y), 4, place)) {
        return std::nullopt;
    }
    return place;
}

void Viewer::pick(int x, int y) {
    const std::optional<Point> picked = placeAt(x, y);
    if (!picked) {
        mMeasured.clear();
        mPicked.reset();
        return;
    }
    const Math::Point<double, 3> place = mScene.absolute(*picked);
    mMeasured = formatted("%.3f  %.3f  %.3f", place.x(), place.y(), place.z());
    if (mPicked) {
        mMeasured += formatted("   distance %.3f", Math::distance(*mPicked, place));
        mPicked.reset();
    } else {
        mPicked = place;
    }
}

bool Viewer::key(WPARAM code) {
    using Render::RenderMode;
    constexpr std::array modes{RenderMode::Default,          RenderMode::Intensity,
                               RenderMode::Normal,           RenderMode::UniformColor,
                               RenderMode::PlaneDistance,    RenderMode::TomographicDark,
                               RenderMode::TomographicBright};
    if (code >= '1' && code < '1' + modes.size()) {
        const RenderMode mode = modes[code - '1'];
        mRenderer.setRenderMode(mode);
        mRenderer.setTomographicColor(mode == RenderMode::TomographicBright ? Math::Color::white(255)
                                                                            : Math::Color::black(255));
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

void Viewer::openDropped(HDROP drop) {
    const UINT count = DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0);
    for (UINT i = 0; i < count; ++i) {
        std::wstring path(DragQueryFileW(drop, i, nullptr, 0) + 1, 0);
        DragQueryFileW(drop, i, path.data(), static_cast<UINT>(path.size()));
        path.pop_back();
        open(path);
    }
    DragFinish(drop);
}

void Viewer::openChosen() {
    std::wstring path(32768, 0);
    OPENFILENAMEW dialog = {};
    dialog.lStructSize = sizeof dialog;
    dialog.hwndOwner = mWindow;
    dialog.lpstrFilter =
        L"Stores, meshes, panoramas\0metadata.json;ept.json;*.laz;*.obj;*.png;*.jpg;*.jpeg\0";
    dialog.lpstrFile = path.data();
    dialog.nMaxFile = static_cast<DWORD>(path.size());
    dialog.Flags = OFN_FILEMUSTEXIST | OFN_NOCHANGEDIR;
    if (GetOpenFileNameW(&dialog)) {
        open(path.c_str());
    }
}

void Viewer::showStatus() {
    const double milliseconds = std::chrono::duration<double, std::milli>(mFrameTime).count();
    std::string status = formatted("LumaroRender   %zu points, %zu nodes, frame %zu, %.0f ms",
                                   mScene.points(), mScene.nodes(), mFrames, milliseconds);
    if (const std::optional<std::string> name = mScene.opening()) {
        status += ", loading " + *name;
    } else if (mScene.isLoading()) {
        const Render::LoadingProgress progress = mScene.loadingProgress();
        status += progress.wantedNodes == 0
                      ? ", loading"
                      : formatted(", loading %d %%", static_cast<int>(100 * progress.share()));
    }
    status += mMeasured.empty() ? "" : "   |   " + mMeasured;
    if (status != mStatus) {
        mStatus = status;
        SetWindowTextW(mWindow, wide(status).c_str());
    }
}
