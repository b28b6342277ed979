#pragma once

#include <utility>

namespace Render {

/// Internal: what a projection does to z, which is row 2 of its matrix in columns 2 and 3. `scale` is that of
/// the matrix's last row. A reversed depth buffer swaps near and far.
struct DepthTerms {
    float z;
    float offset;

    static DepthTerms perspective(float zNear, float zFar, bool isReversed, float scale) {
        if (isReversed) {
            std::swap(zNear, zFar);
        }
        const float range = zNear - zFar;
        return {scale * (zFar / range), scale * (zNear * zFar / range)};
    }

    static DepthTerms orthographic(float zNear, float zFar, bool isReversed, float scale) {
        if (isReversed) {
            std::swap(zNear, zFar);
        }
        const float range = zNear - zFar;
        return {scale / range, scale * (zNear / range)};
    }
};

}  // namespace Render
