#pragma once

#include <core/Export.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>

struct ID3D11DeviceContext;

namespace Render {

/// A rectangle of the render target in pixels and the depth range that it maps to. A plain value.
class LUMARO_API Viewport {
public:
    /// 640 × 480 pixels at the origin, depth 0 to 1.
    Viewport() = default;
    Viewport(int x, int y, size_t width, size_t height);
    Viewport(size_t width, size_t height);

    /// Sets the rectangle; the depth range stays as it was.
    void set(int x, int y, size_t width, size_t height);
    /// Sets the size and moves the rectangle to the origin; the depth range stays as it was.
    void set(size_t width, size_t height);
    void setDepthRange(float minDepth, float maxDepth);

    int x() const { return mX; }
    int y() const { return mY; }
    size_t width() const { return mWidth; }
    size_t height() const { return mHeight; }
    float minDepth() const { return mMinDepth; }
    float maxDepth() const { return mMaxDepth; }

    /// Width / height, divided in single precision.
    double aspectRatio() const;

    /// Binds this as the only viewport. Render thread; Windows only.
    void set(ID3D11DeviceContext* context) const;

    /// Compares the rectangles alone: viewports that differ only in their depth range are equal.
    bool operator==(const Viewport& other) const;

private:
    int32_t mX = 0;
    int32_t mY = 0;
    uint64_t mWidth = 640;
    uint64_t mHeight = 480;
    float mMinDepth = 0.0f;
    float mMaxDepth = 1.0f;
};

/// Writes "[x, y, width, height, minDepth, maxDepth]" with the stream's own formatting.
LUMARO_API std::ostream& operator<<(std::ostream& stream, const Viewport& viewport);

}  // namespace Render
