#include <render/gpu/Viewport.h>

#include <ostream>

namespace Render {

Viewport::Viewport(int x, int y, size_t width, size_t height)
    : mX(x), mY(y), mWidth(width), mHeight(height) {}

Viewport::Viewport(size_t width, size_t height) : mWidth(width), mHeight(height) {}

void Viewport::set(int x, int y, size_t width, size_t height) {
    mX = x;
    mY = y;
    mWidth = width;
    mHeight = height;
}

void Viewport::set(size_t width, size_t height) {
    set(0, 0, width, height);
}

void Viewport::setDepthRange(float minDepth, float maxDepth) {
    mMinDepth = minDepth;
    mMaxDepth = maxDepth;
}

double Viewport::aspectRatio() const {
    return static_cast<float>(mWidth) / static_cast<float>(mHeight);
}

bool Viewport::operator==(const Viewport& other) const {
    return mX == other.mX && mY == other.mY && mWidth == other.mWidth && mHeight == other.mHeight;
}

std::ostream& operator<<(std::ostream& stream, const Viewport& viewport) {
    return stream << "[" << viewport.x() << ", " << viewport.y() << ", " << viewport.width() << ", "
                  << viewport.height() << ", " << viewport.minDepth() << ", " << viewport.maxDepth() << "]";
}

}  // namespace Render
