#pragma once

#include <graphics/DepthImage.h>
#include <render/core/Camera.h>
#include <render/core/ZRangeNeeds.h>

#include <Eigen/Core>

namespace Render {

/// The smallest and the largest distance that a panorama has measured, in object units; at first none. A
/// value without a thread of its own.
class PanoDistances {
public:
    /// Takes in what the image measured: what is finite and above 0. Its rows have no padding.
    void extend(const Graphics::DepthImage& image);
    void extend(const PanoDistances& other);

    bool operator==(const PanoDistances&) const = default;

    /// What near and far planes must leave room for, so that each pixel can be drawn where it was measured,
    /// and what was not measured behind everything else. `world` takes object space to the world.
    void addZRangeNeeds(const Camera& camera, const Eigen::Matrix4f& world, ZRangeNeeds& needs) const;

private:
    float mNearest = Graphics::DepthImage::NOT_MEASURED;
    float mFarthest = 0.0f;
};

}  // namespace Render
