#include <math/PlaneFit.h>

#include <Eigen/SVD>
#include <algorithm>
#include <array>
#include <limits>
#include <numeric>
#include <random>

namespace Math {

namespace {

constexpr int tries = 100;

using Triple = std::array<std::size_t, 3>;

std::optional<NPlane<float, 3>> planeThrough(const std::vector<Point<float, 3>>& points,
                                             const Triple& corners) {
    const Point<float, 3>& p0 = points[corners[0]];
    const Point<float, 3> cross = (points[corners[1]] - p0).cross(points[corners[2]] - p0);
    const float length = cross.length();
    if (!(length >= std::numeric_limits<float>::epsilon())) {
        return std::nullopt;
    }
    const Point<float, 3> normal = cross / length;
    return NPlane<float, 3>(normal, -normal.dot(p0));
}

void collectInliers(const std::vector<Point<float, 3>>& points, const NPlane<float, 3>& plane,
                    double maxDistance, std::vector<std::size_t>& inliers) {
    const NPlane<double, 3> exact(plane.normal.cast<double>(), double{plane.offset});
    inliers.clear();
    for (std::size_t i = 0; i < points.size(); ++i) {
        const double distance = exact.signedDistance(points[i].cast<double>());
        if (distance * distance < maxDistance * maxDistance) {
            inliers.push_back(i);
        }
    }
}

}  // namespace

std::optional<PlaneFit::Robust> PlaneFit::robust(const std::vector<Point<float, 3>>& points,
                                                 double maxDistance) {
    if (points.size() < 3) {
        return std::nullopt;
    }
    std::vector<std::size_t> indices(points.size());
    std::iota(indices.begin(), indices.end(), std::size_t{0});
    std::mt19937 random;
    Robust best;
    std::vector<std::size_t> inliers;
    for (int i = 0; i < tries; ++i) {
        Triple corners{};
        std::sample(indices.begin(), indices.end(), corners.begin(), 3, random);
        const auto plane = planeThrough(points, corners);
        if (!plane) {
            continue;
        }
        collectInliers(points, *plane, maxDistance, inliers);
        if (inliers.size() > best.inliers.size()) {
            best.plane = *plane;
            best.inliers.swap(inliers);
        }
    }
    return best.inliers.empty() ? std::nullopt : std::optional(std::move(best));
}

std::optional<NPlane<float, 3>> PlaneFit::leastSquares(const std::vector<Point<float, 3>>& points) {
    if (points.size() < 3) {
        return std::nullopt;
    }
    Point<double, 3> centroid;
    for (const Point<float, 3>& point : points) {
        centroid += point.cast<double>();
    }
    centroid /= static_cast<double>(points.size());
    Eigen::MatrixXd centered(static_cast<Eigen::Index>(points.size()), 3);
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Point<double, 3> offset = points[i].cast<double>() - centroid;
        centered.row(static_cast<Eigen::Index>(i)) << offset.x(), offset.y(), offset.z();
    }
    // Singular values come in decreasing order.
    const Eigen::JacobiSVD<Eigen::MatrixXd> decomposition(centered, Eigen::ComputeThinV);
    const Eigen::Vector3d least = decomposition.matrixV().col(2);
    const Point<double, 3> normal(least.x(), least.y(), least.z());
    return NPlane<float, 3>(normal.cast<float>(), static_cast<float>(-normal.dot(centroid)));
}

}  // namespace Math
