#pragma once

#include "OrbitCamera.h"
#include "Presenter.h"
#include "Scene.h"

#include <windows.h>

#include <shellapi.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

/// What the window shows and how it answers to mouse and keys.
class Viewer {
public:
    explicit Viewer(HWND window);

    void open(const std::filesystem::path& path) { mScene.open(path); }
    /// Draws and presents when something changed; without a change it does nothing at all.
    void update();
    /// False for messages that are not its own.
    bool handle(UINT message, WPARAM wParam, LPARAM lParam);
    void report(const std::string& text);

private:
    void resize();
    void present() { mPresenter.present(mRenderer.deviceContext(), mRenderer.outputTexture()); }
    void showOpened();
    void fit();
    void drag(WPARAM buttons, int x, int y);
    void zoom(POINT cursor, int wheel);
    std::optional<Math::Point<float, 3>> placeAt(LONG x, LONG y);
    void pick(int x, int y);
    bool key(WPARAM code);
    void openDropped(HDROP drop);
    void openChosen();
    void showStatus();

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
    size_t mFrames = 0;  ///< Drawn so far: stands still while the view does.
    std::chrono::steady_clock::duration mFrameTime{};
};
