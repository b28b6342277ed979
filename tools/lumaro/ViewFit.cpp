#include <tools/lumaro/ViewFit.h>

#include <algorithm>
#include <cmath>

namespace Tool {

namespace {

constexpr double MARGIN = 1.04;
constexpr double LEAST = 1e-3;

}  // namespace

double fittedDistance(const Math::NBoundingBox<double, 3>& box, const Math::Point<double, 3>& forward,
                      const Math::Point<double, 3>& up, double tanHalfFov, double aspect) {
    const Math::Point<double, 3> right = forward.cross(up);
    double distance = LEAST;
    for (int i = 0; i < 8; ++i) {
        // A corner at depth `distance + ahead` is inside while its offsets are below tan * depth.
        const Math::Point<double, 3> offset = box.corner(i) - box.center();
        const double ahead = offset.dot(forward);
        const double vertical = std::abs(offset.dot(up)) * MARGIN / tanHalfFov;
        const double horizontal = std::abs(offset.dot(right)) * MARGIN / (tanHalfFov * aspect);
        distance = std::max(distance, std::max(vertical, horizontal) - ahead);
    }
    return distance;
}

double fittedHeight(const Math::NBoundingBox<double, 3>& box, const Math::Point<double, 3>& forward,
                    const Math::Point<double, 3>& up, double aspect) {
    const Math::Point<double, 3> right = forward.cross(up);
    double height = LEAST;
    for (int i = 0; i < 8; ++i) {
        const Math::Point<double, 3> offset = box.corner(i) - box.center();
        height = std::max({height, 2.0 * MARGIN * std::abs(offset.dot(up)),
                           2.0 * MARGIN * std::abs(offset.dot(right)) / aspect});
    }
    return height;
}

}  // namespace Tool
