#include <tools/lumaro/ViewFit.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tool {

namespace {

constexpr double MARGIN = 1.04;
constexpr double LEAST = 1e-3;

/// The place between two planes that open along the view from a common edge, so that all offsets lie between
/// them.
struct Wedge {
    double depth = 0.0;   ///< Of the edge; the larger, the nearer to the box.
    double across = 0.0;  ///< Of the edge.
};

Wedge wedgeAround(const Math::NBoundingBox<double, 3>& box, const Math::Point<double, 3>& forward,
                  const Math::Point<double, 3>& sideways, double tangent) {
    // Each corner asks for |across' - across| <= tangent * (depth' - depth).
    double above = -std::numeric_limits<double>::infinity();
    double below = above;
    for (int i = 0; i < 8; ++i) {
        const Math::Point<double, 3> offset = box.corner(i) - box.center();
        const double reach = tangent * offset.dot(forward);
        above = std::max(above, offset.dot(sideways) - reach);
        below = std::max(below, -offset.dot(sideways) - reach);
    }
    return {-(above + below) / (2.0 * tangent), (above - below) / 2.0};
}

}  // namespace

Math::Point<double, 3> fittedEye(const Math::NBoundingBox<double, 3>& box,
                                 const Math::Point<double, 3>& forward, const Math::Point<double, 3>& up,
                                 double tanHalfFov, double aspect) {
    const Math::Point<double, 3> right = forward.cross(up);
    const Wedge vertical = wedgeAround(box, forward, up, tanHalfFov / MARGIN);
    const Wedge horizontal = wedgeAround(box, forward, right, tanHalfFov * aspect / MARGIN);
    const double depth = std::min({vertical.depth, horizontal.depth, -LEAST});
    return box.center() + forward * depth + up * vertical.across + right * horizontal.across;
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
