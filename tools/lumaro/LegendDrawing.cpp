#include <tools/lumaro/LegendDrawing.h>
#include <tools/lumaro/Ticks.h>

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tool {

namespace {

/// A picture that the system can write on.
class Canvas {
public:
    explicit Canvas(const PictureSize& size) : mContext(CreateCompatibleDC(nullptr)) {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof info.bmiHeader;
        info.bmiHeader.biWidth = static_cast<LONG>(size.width);
        info.bmiHeader.biHeight = -static_cast<LONG>(size.height);  // Negative: top row first.
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        info.bmiHeader.biCompression = BI_RGB;
        void* texels = nullptr;
        mBitmap = CreateDIBSection(mContext, &info, DIB_RGB_COLORS, &texels, nullptr, 0);
        if (mBitmap == nullptr) {
            DeleteDC(mContext);
            throw std::runtime_error("there is no memory for the picture");
        }
        mTexels = static_cast<Math::Color*>(texels);
        mOldBitmap = SelectObject(mContext, mBitmap);
        mOldFont = GetCurrentObject(mContext, OBJ_FONT);
        SetBkMode(mContext, TRANSPARENT);
    }
    ~Canvas() {
        SelectObject(mContext, mOldFont);
        SelectObject(mContext, mOldBitmap);
        DeleteObject(mFont);
        DeleteObject(mBitmap);
        DeleteDC(mContext);
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    /// Row by row, without padding.
    Math::Color* texels() { return mTexels; }

    void setFont(int height, const Math::Color& color) {
        HFONT font =
            CreateFontW(-height, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET, OUT_TT_PRECIS,
                        CLIP_DEFAULT_PRECIS, ANTIALIASED_QUALITY, VARIABLE_PITCH | FF_SWISS, L"Arial");
        SelectObject(mContext, font);
        DeleteObject(mFont);
        mFont = font;
        SetTextColor(mContext, RGB(color.r(), color.g(), color.b()));
    }
    SIZE measure(const std::string& text) const {
        SIZE size{};
        GetTextExtentPoint32A(mContext, text.c_str(), static_cast<int>(text.size()), &size);
        return size;
    }
    void write(int x, int y, const std::string& text) {
        TextOutA(mContext, x, y, text.c_str(), static_cast<int>(text.size()));
        GdiFlush();
    }

private:
    HDC mContext;
    HBITMAP mBitmap = nullptr;
    HGDIOBJ mOldBitmap = nullptr;
    HGDIOBJ mOldFont = nullptr;
    HFONT mFont = nullptr;
    Math::Color* mTexels = nullptr;
};

struct Layout {
    int margin, barWidth, top, bottom;
    int tickLength() const { return std::max(barWidth / 5, 3); }
    int labelLeft() const { return margin + barWidth + tickLength() + 4; }
};

Math::Color inkFor(const Math::Color& background) {
    return 2 * background.r() + 5 * background.g() + background.b() > 8 * 127 ? Math::Color::black()
                                                                              : Math::Color::white();
}

Math::Color colorAt(const Legend& legend, double value) {
    const auto rgba =
        Math::Spectrum::colorizeByDistance(static_cast<float>(value), static_cast<float>(legend.low),
                                           static_cast<float>(legend.high), legend.spectrum, legend.limits);
    const auto byte = [](float channel) {
        return static_cast<uint8_t>(std::lround(std::clamp(channel, 0.0f, 1.0f) * 255.0f));
    };
    return {byte(rgba[0]), byte(rgba[1]), byte(rgba[2])};
}

void fillRow(Canvas& canvas, const PictureSize& size, int y, int left, int right, const Math::Color& color) {
    Math::Color* const row = canvas.texels() + static_cast<size_t>(y) * size.width;
    std::fill(row + left, row + std::min(right, static_cast<int>(size.width)), color);
}

/// A font so small that all labels fit beside the bar, unless that is too small to read.
void chooseFont(Canvas& canvas, const Legend& legend, const Layout& layout, const std::vector<Tick>& ticks) {
    const int room = static_cast<int>(legend.size.width) - layout.labelLeft() - 2;
    for (int height = std::clamp(static_cast<int>(legend.size.height) / 28, 11, 48);; --height) {
        canvas.setFont(height, inkFor(legend.background));
        const bool fits = std::all_of(ticks.begin(), ticks.end(), [&](const Tick& tick) {
            return canvas.measure(tick.label).cx <= room;
        });
        if (fits || height <= 8) {
            return;
        }
    }
}

void drawBar(Canvas& canvas, const Legend& legend, const Layout& layout) {
    const int rows = layout.bottom - layout.top;
    for (int row = 0; row < rows; ++row) {
        const double share = (row + 0.5) / rows;
        fillRow(canvas, legend.size, layout.top + row, layout.margin, layout.margin + layout.barWidth,
                colorAt(legend, legend.high + share * (legend.low - legend.high)));
    }
}

void drawTicks(Canvas& canvas, const Legend& legend, const Layout& layout, const std::vector<Tick>& ticks) {
    const int edge = layout.margin + layout.barWidth;
    for (const Tick& tick : ticks) {
        const double share = (legend.high - tick.value) / (legend.high - legend.low);
        const int rows = layout.bottom - layout.top;
        const int y = layout.top + std::min(static_cast<int>(std::lround(share * rows)), rows - 1);
        fillRow(canvas, legend.size, y, edge, edge + layout.tickLength(), inkFor(legend.background));
        canvas.write(layout.labelLeft(), y - canvas.measure(tick.label).cy / 2, tick.label);
    }
}

bool hasInk(Canvas& canvas, const Legend& legend, const Layout& layout) {
    for (size_t y = 0; y < legend.size.height; ++y) {
        const Math::Color* const row = canvas.texels() + y * legend.size.width;
        for (size_t x = static_cast<size_t>(layout.labelLeft()); x < legend.size.width; ++x) {
            if ((row[x].packed() & 0xffffffU) != (legend.background.packed() & 0xffffffU)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

Graphics::ColorImage drawLegend(const Legend& legend) {
    const int width = static_cast<int>(legend.size.width);
    const int height = static_cast<int>(legend.size.height);
    const Layout layout{width / 12, width / 4, std::max(height / 24, 9), height - std::max(height / 24, 9)};
    const auto most = static_cast<size_t>(std::clamp((layout.bottom - layout.top) / 30, 2, 11));
    const std::vector<Tick> ticks = roundTicks(legend.low, legend.high, most);

    Canvas canvas(legend.size);
    std::fill_n(canvas.texels(), legend.size.width * legend.size.height, legend.background);
    chooseFont(canvas, legend, layout, ticks);
    drawTicks(canvas, legend, layout, ticks);
    if (!ticks.empty() && !hasInk(canvas, legend, layout)) {
        throw std::runtime_error("the system has no font to write with");
    }
    drawBar(canvas, legend, layout);

    // The system's writing leaves alpha 0 behind.
    Graphics::ColorImage image(legend.size.width, legend.size.height);
    for (size_t y = 0; y < legend.size.height; ++y) {
        for (size_t x = 0; x < legend.size.width; ++x) {
            const Math::Color color = canvas.texels()[y * legend.size.width + x];
            image.setPixel(x, y, Math::Color(color.r(), color.g(), color.b()));
        }
    }
    return image;
}

}  // namespace Tool
