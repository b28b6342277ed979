#include <render/core/WorldPositions.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace Render {

namespace {

constexpr std::size_t texelSize = 4 * sizeof(float);

std::int64_t toSigned(std::size_t value) {
    constexpr std::size_t largest = (std::numeric_limits<std::int32_t>::max)();
    return static_cast<std::int64_t>((std::min)(value, largest));
}

std::size_t clamped(std::int64_t value, std::size_t size) {
    return static_cast<std::size_t>(std::clamp(value, std::int64_t{0}, toSigned(size) - 1));
}

}  // namespace

WorldPositions::WorldPositions(const void* texels, std::size_t width, std::size_t height,
                               std::size_t rowPitch)
    : mTexels(static_cast<const std::byte*>(texels)), mWidth(width), mHeight(height), mRowPitch(rowPitch) {}

Math::Point<float, 3> WorldPositions::at(std::size_t x, std::size_t y) const {
    const float* const values = texel(x, y);
    return {values[0], values[1], values[2]};
}

WorldPositions::Square WorldPositions::squareAround(std::size_t x, std::size_t y, std::size_t tolerance,
                                                    std::size_t width, std::size_t height) {
    if (x >= width || y >= height) {
        return {};
    }
    const std::int64_t t = toSigned(tolerance);
    return {clamped(toSigned(x) - t, width), clamped(toSigned(x) + t, width),
            clamped(toSigned(y) - t, height), clamped(toSigned(y) + t, height)};
}

bool WorldPositions::closest(const Square& square, const Math::Point<float, 3>& eye,
                             Math::Point<float, 3>& point) const {
    constexpr float none = (std::numeric_limits<float>::max)();
    float best = none;
    for (std::size_t x = square.left; x < square.right; ++x) {
        for (std::size_t y = square.top; y < square.bottom; ++y) {
            if (!isDrawn(x, y)) {
                continue;
            }
            const Math::Point<float, 3> candidate = at(x, y);
            const float squared = Math::squaredDistance(eye, candidate);
            if (squared < best) {
                best = squared;
                point = candidate;
            }
        }
    }
    return best != none;
}

std::vector<Math::Point<float, 3>> WorldPositions::drawnPoints(const Square& square) const {
    std::vector<Math::Point<float, 3>> points;
    for (std::size_t x = square.left; x < square.right; ++x) {
        for (std::size_t y = square.top; y < square.bottom; ++y) {
            if (isDrawn(x, y) && (points.empty() || points.back() != at(x, y))) {
                points.push_back(at(x, y));
            }
        }
    }
    return points;
}

const float* WorldPositions::texel(std::size_t x, std::size_t y) const {
    return reinterpret_cast<const float*>(mTexels + y * mRowPitch + x * texelSize);
}

}  // namespace Render
