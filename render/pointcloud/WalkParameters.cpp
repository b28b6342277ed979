#include <render/pointcloud/WalkParameters.h>

#include <algorithm>
#include <cmath>

namespace Render {

namespace {

// Share by which bounds are widened, since shader and mesh distances are computed in single precision.
constexpr double slack = 1e-5;

}  // namespace

NodePriority WalkParameters::boundingBoxPriority(std::size_t level,
                                                 const Math::NBoundingBox<float, 3>& box) const {
    if (level > maxLevelToKeep) {
        return NodePriority::discard();
    }
    if (renderMode == RenderMode::MeshDistance && mesh && !needsMeshDistanceColorization(box)) {
        return NodePriority::discard();
    }
    if (renderMode == RenderMode::PlaneDistance && !needsPlaneDistanceColorization(box)) {
        return NodePriority::discard();
    }
    if (level < minLevelToKeep) {
        return NodePriority::keep();
    }
    if (isOrthographic) {
        return NodePriority::orthographic(box, frustum, clippingVolume, eye, modelScale, projection, viewport,
                                          threshold);
    }
    return NodePriority::perspective(box, frustum, clippingVolume, eye, modelScale, viewport, fovY,
                                     threshold);
}

bool WalkParameters::needsPlaneDistanceColorization(const Math::NBoundingBox<float, 3>& box) const {
    // The signed distance is linear over the box: its value at the centre plus or minus the reach of the
    // extents.
    double center = plane.offset;
    double reach = 0.0;
    double magnitude = std::abs(center);
    for (int row = 0; row < 3; ++row) {
        const double translation = double{plane.normal[row]} * world(row, 3);
        center += translation;
        magnitude += std::abs(translation);
    }
    for (int axis = 0; axis < 3; ++axis) {
        double slope = 0.0;
        double slopeMagnitude = 0.0;
        for (int row = 0; row < 3; ++row) {
            const double term = double{plane.normal[row]} * world(row, axis);
            slope += term;
            slopeMagnitude += std::abs(term);
        }
        center += slope * (double{box.min[axis]} + box.max[axis]) / 2.0;
        reach += std::abs(slope) * (double{box.max[axis]} - box.min[axis]) / 2.0;
        magnitude +=
            slopeMagnitude * (std::max)(std::abs(double{box.min[axis]}), std::abs(double{box.max[axis]}));
    }
    reach += slack * magnitude;
    double least = center - reach;
    double greatest = center + reach;
    if (!useSignedDistance) {
        greatest = (std::max)(std::abs(least), std::abs(greatest));
        least = std::abs(center) > reach ? std::abs(center) - reach : 0.0;
    }
    return least <= maxDistance && greatest >= minDistance;
}

bool WalkParameters::needsMeshDistanceColorization(const Math::NBoundingBox<float, 3>& box) const {
    if (mesh->empty()) {
        return false;
    }
    const Math::NBoundingBox<float, 3>& meshBox = mesh->get().boundingBox();
    double squaredGap = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
        const double below = double{meshBox.min[axis]} - box.max[axis];
        const double above = double{box.min[axis]} - meshBox.max[axis];
        const double gap = (std::max)({below, above, 0.0});
        squaredGap += gap * gap;
    }
    // No point of the box is nearer to the mesh than this; on which side it lies is open.
    const double least = std::sqrt(squaredGap) * modelScale * (1.0 - slack);
    return maxDistance >= least || (useSignedDistance && minDistance <= -least);
}

}  // namespace Render
