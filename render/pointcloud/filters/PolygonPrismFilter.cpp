#include <render/pointcloud/filters/PolygonPrismFilter.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <string>

namespace Render {

namespace {

using Octree::BoxTestResult;

/// More than the rounding of a few products and sums, as a share of their magnitudes.
constexpr double ROUNDING = 1e-14;
/// Of a polygon with edges enough for four in each.
constexpr std::size_t MIN_BANDS = 256;
constexpr std::size_t MAX_ENTRIES_PER_EDGE = 16;  // 64 bytes beside the edge's own 32

}  // namespace

PolygonPrismFilter::PolygonPrismFilter(const std::vector<Ring>& rings, double minZ, double maxZ)
    : mMinZ(minZ), mMaxZ(maxZ) {
    if (!(minZ <= maxZ)) {
        throw std::invalid_argument("A prism needs heights with min <= max");
    }
    if (rings.empty()) {
        throw std::invalid_argument("A polygon needs a ring");
    }
    for (const Ring& ring : rings) {
        if (ring.size() > MAX_CORNERS - mEdges.size()) {
            throw std::invalid_argument("A polygon has at most " + std::to_string(MAX_CORNERS) + " corners");
        }
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
            mEdges.push_back(a.y() <= b.y() ? Edge{a, b} : Edge{b, a});
        }
    }
    mMargin = ROUNDING * std::max({std::abs(mBounds.min.x()), std::abs(mBounds.max.x()),
                                   std::abs(mBounds.min.y()), std::abs(mBounds.max.y())});
    makeBands();
}

// As many as an edge of average length reaches into few of; edges that reach through all of them would only
// be listed more often.
void PolygonPrismFilter::makeBands() {
    const double height = mBounds.max.y() - mBounds.min.y();
    std::size_t bands =
        std::max({std::min(mEdges.size() / 4, MIN_BANDS),
                  static_cast<std::size_t>(std::sqrt(static_cast<double>(mEdges.size()))), std::size_t{1}});
    for (std::size_t entries = 0;; bands /= 2) {
        mBandBegins.assign(bands + 1, 0);
        mBandsPerUnit = height > 0.0 ? static_cast<double>(bands) / height : 0.0;
        entries = 0;
        for (const Edge& edge : mEdges) {
            entries += bandOf(edge.high.y()) - bandOf(edge.low.y()) + 1;
        }
        if (bands == 1 || entries <= MAX_ENTRIES_PER_EDGE * mEdges.size()) {
            mBandEdges.resize(entries);
            break;
        }
    }
    for (const Edge& edge : mEdges) {
        for (std::size_t band = bandOf(edge.low.y()); band <= bandOf(edge.high.y()); ++band) {
            ++mBandBegins[band];
        }
    }
    // Filled from their ends, which leaves where they begin.
    std::partial_sum(mBandBegins.begin(), mBandBegins.end(), mBandBegins.begin());
    for (std::size_t i = 0; i < mEdges.size(); ++i) {
        for (std::size_t band = bandOf(mEdges[i].low.y()); band <= bandOf(mEdges[i].high.y()); ++band) {
            mBandEdges[--mBandBegins[band]] = static_cast<std::uint32_t>(i);
        }
    }
}

// Never falls as y rises.
std::size_t PolygonPrismFilter::bandOf(double y) const {
    const double band = (y - mBounds.min.y()) * mBandsPerUnit;
    if (!(band > 0.0)) {
        return 0;
    }
    return band < static_cast<double>(bandCount()) ? static_cast<std::size_t>(band) : bandCount() - 1;
}

template <class Test>
bool PolygonPrismFilter::anyInBand(std::size_t band, Test test) const {
    for (std::size_t i = mBandBegins[band]; i < mBandBegins[band + 1]; ++i) {
        if (test(mEdges[mBandEdges[i]])) {
            return true;
        }
    }
    return false;
}

bool PolygonPrismFilter::isInPolygon(double x, double y) const {
    // Not closer: an edge on a border of the bounds may be crossed a little beyond it, and the polygon on the
    // edge's other side sees it crossed there too.
    if (!(x >= mBounds.min.x() - mMargin && x <= mBounds.max.x() + mMargin)) {
        return false;
    }
    bool isInside = false;
    anyInBand(bandOf(y), [&](const Edge& edge) {
        const auto& [low, high] = edge;
        // The crossing is the same number for all polygons that have this edge, whichever way they run.
        if (low.y() <= y && y < high.y() &&
            x < low.x() + (y - low.y()) / (high.y() - low.y()) * (high.x() - low.x())) {
            isInside = !isInside;
        }
        return false;
    });
    return isInside;
}

bool PolygonPrismFilter::contains(const Math::Point<double, 3>& position) const {
    return position.z() >= mMinZ && position.z() <= mMaxZ && isInPolygon(position.x(), position.y());
}

bool PolygonPrismFilter::mayTouchBorder(const Math::NBoundingBox<double, 3>& box) const {
    const Math::Point<double, 2> min(box.min.x() - mMargin, box.min.y() - mMargin);
    const Math::Point<double, 2> max(box.max.x() + mMargin, box.max.y() + mMargin);
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
        if (anyInBand(band, touches)) {
            return true;
        }
    }
    return false;
}

BoxTestResult PolygonPrismFilter::classify(const Math::NBoundingBox<double, 3>& box) const {
    const bool isApart = box.max.z() < mMinZ || box.min.z() > mMaxZ ||
                         box.max.x() < mBounds.min.x() - mMargin || box.min.x() > mBounds.max.x() + mMargin ||
                         box.max.y() < mBounds.min.y() || box.min.y() > mBounds.max.y();
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
