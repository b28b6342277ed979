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

/// How far aside an eye at this depth, behind the wedge's edge, sees the box in the middle.
double centeredAcross(const Math::NBoundingBox<double, 3>& box, const Math::Point<double, 3>& forward,
                      const Math::Point<double, 3>& sideways, double tangent, double depth) {
    // The narrower the wedge, the farther back is its edge.
    double narrow = 0.0;
    double wide = tangent;
    for (int step = 0; step < 50; ++step) {
        const double middle = (narrow + wide) / 2.0;
        (wedgeAround(box, forward, sideways, middle).depth < depth ? narrow : wide) = middle;
    }
    return wedgeAround(box, forward, sideways, wide).across;
}

}  // namespace

Math::Point<double, 3> fittedEye(const Math::NBoundingBox<double, 3>& box,
                                 const Math::Point<double, 3>& forward, const Math::Point<double, 3>& up,
                                 double tanHalfFov, double aspect) {
    const Math::Point<double, 3> right = forward.cross(up);
    const double high = tanHalfFov / MARGIN;
    const double wide = high * aspect;
    const double depth = std::min(
        {wedgeAround(box, forward, up, high).depth, wedgeAround(box, forward, right, wide).depth, -LEAST});
    return box.center() + forward * depth + up * centeredAcross(box, forward, up, high, depth) +
           right * centeredAcross(box, forward, right, wide, depth);
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
