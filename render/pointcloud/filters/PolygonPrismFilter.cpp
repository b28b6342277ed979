#include <render/pointcloud/filters/PolygonPrismFilter.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace Render {

namespace {

using Octree::BoxTestResult;

/// More than the rounding of a few products and sums, as a share of their magnitudes.
constexpr double ROUNDING = 1e-14;
constexpr std::size_t MAX_BANDS = 256;

}  // namespace

PolygonPrismFilter::PolygonPrismFilter(const std::vector<Ring>& rings, double minZ, double maxZ)
    : mMinZ(minZ), mMaxZ(maxZ) {
    if (!(minZ <= maxZ)) {
        throw std::invalid_argument("A prism needs heights with min <= max");
    }
    if (rings.empty()) {
        throw std::invalid_argument("A polygon needs a ring");
    }
    std::vector<Edge> edges;
    for (const Ring& ring : rings) {
        if (ring.size() < 3) {
            throw std::invalid_argument("A ring of a polygon needs three corners");
        }
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const Math::Point<double, 2>& a = ring[i];
            const Math::Point<double, 2>& b = ring[(i + 1) % ring.size()];
            if (!std::isfinite(a.squaredLength())) {
                throw std::invalid_argument("A polygon needs finite corners");
            }
            mBounds.extend(a);
            edges.push_back(a.y() <= b.y() ? Edge{a, b} : Edge{b, a});
        }
    }
    mBands.resize(std::clamp<std::size_t>(edges.size() / 4, 1, MAX_BANDS));
    const double height = mBounds.max.y() - mBounds.min.y();
    mBandsPerUnit = height > 0.0 ? static_cast<double>(mBands.size()) / height : 0.0;
    for (const Edge& edge : edges) {
        for (std::size_t band = bandOf(edge.low.y()); band <= bandOf(edge.high.y()); ++band) {
            mBands[band].push_back(edge);
        }
    }
}

// Never falls as y rises.
std::size_t PolygonPrismFilter::bandOf(double y) const {
    const double band = (y - mBounds.min.y()) * mBandsPerUnit;
    if (!(band > 0.0)) {
        return 0;
    }
    return band < static_cast<double>(mBands.size()) ? static_cast<std::size_t>(band) : mBands.size() - 1;
}

bool PolygonPrismFilter::isInPolygon(double x, double y) const {
    if (!mBounds.contains({x, y})) {
        return false;
    }
    bool isInside = false;
    for (const auto& [low, high] : mBands[bandOf(y)]) {
        // The crossing is the same number for all polygons that have this edge, whichever way they run.
        if (low.y() <= y && y < high.y() &&
            x < low.x() + (y - low.y()) * ((high.x() - low.x()) / (high.y() - low.y()))) {
            isInside = !isInside;
        }
    }
    return isInside;
}

bool PolygonPrismFilter::contains(const Math::Point<double, 3>& position) const {
    return position.z() >= mMinZ && position.z() <= mMaxZ && isInPolygon(position.x(), position.y());
}

bool PolygonPrismFilter::mayTouchBorder(const Math::NBoundingBox<double, 3>& box) const {
    const double magnitude = std::max({std::abs(mBounds.min.x()), std::abs(mBounds.max.x()),
                                       std::abs(mBounds.min.y()), std::abs(mBounds.max.y())});
    const double margin = ROUNDING * magnitude;
    const Math::Point<double, 2> min(box.min.x() - margin, box.min.y() - margin);
    const Math::Point<double, 2> max(box.max.x() + margin, box.max.y() + margin);
    const Math::Point<double, 2> center = (min + max) * 0.5;
    const Math::Point<double, 2> half = (max - min) * 0.5;
    const auto touches = [&](const Edge& edge) {
        const auto& [low, high] = edge;
        if (high.y() < min.y() || low.y() > max.y() || std::max(low.x(), high.x()) < min.x() ||
            std::min(low.x(), high.x()) > max.x()) {
            return false;
        }
        const Math::Point<double, 2> along = high - low;
        const Math::Point<double, 2> offset = center - low;
        const double left = along.y() * offset.x();
        const double right = along.x() * offset.y();
        const double reach = along.y() * half.x() + std::abs(along.x()) * half.y();
        return !(std::abs(left - right) > reach + ROUNDING * (std::abs(left) + std::abs(right) + reach));
    };
    for (std::size_t band = bandOf(min.y()); band <= bandOf(max.y()); ++band) {
        if (std::any_of(mBands[band].begin(), mBands[band].end(), touches)) {
            return true;
        }
    }
    return false;
}

BoxTestResult PolygonPrismFilter::classify(const Math::NBoundingBox<double, 3>& box) const {
    const bool isApart = box.max.z() < mMinZ || box.min.z() > mMaxZ || box.max.x() < mBounds.min.x() ||
                         box.min.x() > mBounds.max.x() || box.max.y() < mBounds.min.y() ||
                         box.min.y() > mBounds.max.y();
    if (isApart) {
        return BoxTestResult::Outside;
    }
    if (mayTouchBorder(box)) {
        return BoxTestResult::Intersecting;
    }
    // Without a border in it, all of the box is where one corner is.
    if (!isInPolygon(box.min.x(), box.min.y())) {
        return BoxTestResult::Outside;
    }
    const bool isBetween = box.min.z() >= mMinZ && box.max.z() <= mMaxZ;
    return isBetween ? BoxTestResult::Inside : BoxTestResult::Intersecting;
}

}  // namespace Render
