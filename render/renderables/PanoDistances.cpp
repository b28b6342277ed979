#include <render/renderables/PanoDistances.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace Render {

namespace {

// For what the shader and the planes round differently.
constexpr float slack = 0.01f;

// Of the picture's pixels seen from the centre, the smallest cosine between direction and view. Rays of an
// orthographic picture start from everywhere, so from the centre its pixels lie in all directions ahead.
float smallestCosine(const Camera& camera) {
    if (camera.isOrthographic()) {
        return 0.0f;
    }
    const Eigen::Matrix4d toView = camera.projectionMatrix().cast<double>().inverse();
    double smallest = 1.0;
    for (const double x : {-1.0, 1.0}) {
        for (const double y : {-1.0, 1.0}) {
            const Eigen::Vector3d corner = (toView * Eigen::Vector4d(x, y, 0.5, 1.0)).hnormalized();
            smallest = std::min(smallest, std::abs(corner.z()) / corner.norm());
        }
    }
    return static_cast<float>(smallest);
}

}  // namespace

void PanoDistances::extend(const Graphics::DepthImage& image) {
    for (std::size_t at = 0; at < image.sizeInBytes(); at += sizeof(float)) {
        float distance = 0.0f;
        std::memcpy(&distance, image.data() + at, sizeof distance);
        if (distance > 0.0f && distance < Graphics::DepthImage::NOT_MEASURED) {
            mNearest = std::min(mNearest, distance);
            mFarthest = std::max(mFarthest, distance);
        }
    }
}

void PanoDistances::extend(const PanoDistances& other) {
    mNearest = std::min(mNearest, other.mNearest);
    mFarthest = std::max(mFarthest, other.mFarthest);
}

// The shader limits depths as seen from the centre, up to one object unit before the far plane; what is drawn
// and cut off is measured from the eye.
void PanoDistances::addZRangeNeeds(const Camera& camera, const Eigen::Matrix4f& world,
                                   ZRangeNeeds& needs) const {
    const float scale = world.col(0).head<3>().norm();
    const Eigen::Vector3f toCenter = world.topRightCorner<3, 1>() - camera.eye().vector();
    const float ahead = toCenter.dot(camera.viewDirection());
    const float room = scale * (1.0f + slack) + std::max(-ahead, 0.0f);
    const float farthest = mFarthest * scale + std::max(ahead, 0.0f);
    if (!std::isfinite(room) || !std::isfinite(farthest)) {
        return;
    }
    needs.room = std::max(needs.room, room);
    if (mFarthest > 0.0f) {
        const float nearest = mNearest * scale * smallestCosine(camera) * (1.0f - slack) - toCenter.norm();
        needs.nearest = std::min(needs.nearest, nearest);
        needs.farthest = std::max(needs.farthest, farthest);
    }
}

}  // namespace Render
