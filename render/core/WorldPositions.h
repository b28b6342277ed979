#pragma once

#include <core/Export.h>
#include <math/Point.h>

#include <cstddef>
#include <vector>

namespace Render {

/// A look at the world positions of a picture, as the render targets hold them: rows from the top, four
/// floats a pixel, the fourth above 0 where something was drawn. Owns nothing; the memory stays the caller's.
class LUMARO_API WorldPositions {
public:
    /// Pixels `left` to `right - 1` of the rows `top` to `bottom - 1`.
    struct Square {
        std::size_t left = 0, right = 0, top = 0, bottom = 0;

        bool isEmpty() const { return left == right || top == bottom; }
    };

    /// `rowPitch` is the distance between rows in bytes; neither size is zero.
    WorldPositions(const void* texels, std::size_t width, std::size_t height, std::size_t rowPitch);

    std::size_t width() const { return mWidth; }
    std::size_t height() const { return mHeight; }

    bool isDrawn(std::size_t x, std::size_t y) const { return texel(x, y)[3] > 0.0f; }
    /// Zero where nothing was drawn.
    Math::Point<float, 3> at(std::size_t x, std::size_t y) const;

    /// What a tolerance pick looks at in a picture of that size: up to `tolerance` pixels to each side,
    /// except the last column and row. Empty for a tolerance of 0 and for a pixel outside the picture.
    static Square squareAround(std::size_t x, std::size_t y, std::size_t tolerance, std::size_t width,
                               std::size_t height);

    /// The drawn point of the square that is nearest to the eye; of several the first, column by column.
    /// False when there is none, which leaves `point` as it was.
    bool closest(const Square& square, const Math::Point<float, 3>& eye, Math::Point<float, 3>& point) const;

    /// All drawn points of the square, column by column, less those that equal the one before.
    std::vector<Math::Point<float, 3>> drawnPoints(const Square& square) const;

private:
    const float* texel(std::size_t x, std::size_t y) const;

    const std::byte* mTexels;
    std::size_t mWidth;
    std::size_t mHeight;
    std::size_t mRowPitch;
};

}  // namespace Render
