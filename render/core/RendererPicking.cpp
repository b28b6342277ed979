#include <math/PlaneFit.h>
#include <render/core/ReadMapping.h>
#include <render/core/Renderer.h>
#include <render/core/TargetNames.h>
#include <render/core/WorldPositions.h>

#include <cmath>
#include <optional>

namespace Render {

namespace {

/// Where the line of sight from the eye through another point meets the plane; nothing when that is behind
/// the eye.
std::optional<Math::Point<float, 3>> intersection(const Math::NPlane<float, 3>& plane,
                                                  const Math::Point<float, 3>& eye,
                                                  const Math::Point<float, 3>& through) {
    const Math::Point<float, 3> direction = through - eye;
    const float approach = plane.normal.dot(direction);
    const float distance = plane.signedDistance(eye);
    if (approach == 0.0f) {
        return distance == 0.0f ? std::optional(eye) : std::nullopt;
    }
    const float along = -distance / approach;
    return along >= 0.0f ? std::optional(eye + direction * along) : std::nullopt;
}

}  // namespace

// The sizes are those of the textures: the camera's viewport may have been changed since they were made.

template <class Look>
auto Renderer::lookAtPositions(Look look) {
    mExactWorldPositionStaging.copy(mDeviceContext, mScenePass.texture(TargetNames::exactWorldPosition));
    const ReadMapping mapped(mExactWorldPositionStaging, mDeviceContext);
    return look(WorldPositions(mapped->pData, mScenePass.width(), mScenePass.height(), mapped->RowPitch));
}

bool Renderer::pickPoint(size_t x, size_t y, Math::Point<float, 3>& point) {
    if (x >= mScenePass.width() || y >= mScenePass.height()) {
        return false;
    }
    return lookAtPositions([&](const WorldPositions& positions) {
        point = positions.at(x, y);
        return positions.isDrawn(x, y);
    });
}

bool Renderer::pickClosestPointWithTolerance(size_t x, size_t y, size_t tolerance,
                                             Math::Point<float, 3>& point) {
    const auto square =
        WorldPositions::squareAround(x, y, tolerance, mScenePass.width(), mScenePass.height());
    return !square.isEmpty() && lookAtPositions([&](const WorldPositions& positions) {
        return positions.closest(square, eye(), point);
    });
}

bool Renderer::pickPointWithDistanceToColorizationMesh(size_t x, size_t y, size_t tolerance,
                                                       Math::Point<float, 3>& point, float& distance) {
    if (!mMeshForDistanceColorization || mMeshForDistanceColorization->empty() ||
        !pickClosestPointWithTolerance(x, y, tolerance, point)) {
        return false;
    }
    distance = mUseSignedDistance ? mMeshForDistanceColorization->signedDistance(point)
                                  : mMeshForDistanceColorization->distance(point);
    return true;
}

bool Renderer::pickPointWithDistanceToColorizationPlane(size_t x, size_t y, size_t tolerance,
                                                        Math::Point<float, 3>& point, float& distance) {
    if (!mMeshForDistanceColorization || !pickClosestPointWithTolerance(x, y, tolerance, point)) {
        return false;
    }
    distance = mPlaneForDistanceColorization.signedDistance(point);
    if (!mUseSignedDistance) {
        distance = std::abs(distance);
    }
    return true;
}

bool Renderer::pickPlane(size_t x, size_t y, size_t tolerance, Math::NPlane<float, 3>& plane,
                         Math::Point<float, 3>& point, double maxDistance) {
    const auto square =
        WorldPositions::squareAround(x, y, tolerance, mScenePass.width(), mScenePass.height());
    if (square.isEmpty()) {
        return false;
    }
    const auto points =
        lookAtPositions([&](const WorldPositions& positions) { return positions.drawnPoints(square); });
    const auto robust = Math::PlaneFit::robust(points, maxDistance);
    if (!robust) {
        return false;
    }
    std::vector<Math::Point<float, 3>> inliers;
    for (const size_t i : robust->inliers) {
        inliers.push_back(points[i]);
    }
    const auto fitted = Math::PlaneFit::leastSquares(inliers);
    if (!fitted) {
        return false;
    }
    plane = *fitted;
    if (plane.signedDistance(eye()) < 0.0f) {
        plane.normal = -plane.normal;
        plane.offset = -plane.offset;
    }
    const auto hit = intersection(plane, eye(), unProject(x, y, 0.0f));
    if (hit) {
        point = *hit;
    }
    return hit.has_value();
}

Math::Point<float, 3> Renderer::unProject(size_t x, size_t y, float depth) {
    return mCamera->unProject(x, y, depth);
}

Math::Point<float, 3> Renderer::project(const Math::Point<float, 3>& point) {
    return mCamera->project(point);
}

}  // namespace Render
