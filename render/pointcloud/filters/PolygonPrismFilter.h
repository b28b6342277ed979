#pragma once

#include <core/Export.h>
#include <render/pointcloud/filters/RegionFilter.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace Render {

/// What stands above and below a polygon in the xy plane, between two heights that belong to it.
///
/// The polygon is one ring or several, convex or not, of either direction, closed or not (the last corner is
/// joined to the first). A place is inside when a ray from it crosses the rings an odd number of times: a
/// ring within a ring is a hole. On the border, left and lower edges belong to the polygon and right and
/// upper ones do not, so that of polygons which tile an area each place belongs to exactly one.
class LUMARO_API PolygonPrismFilter final : public RegionFilter {
public:
    using Ring = std::vector<Math::Point<double, 2>>;

    /// Of all rings together. Each takes up to 100 bytes.
    static constexpr std::size_t MAX_CORNERS = std::size_t{1} << 22;

    /// Heights may be infinite. Throws std::invalid_argument without rings, for a ring of fewer than three
    /// corners, for more than MAX_CORNERS in all, for corners that are not finite, for heights that are NaN
    /// and where minZ > maxZ.
    explicit PolygonPrismFilter(const std::vector<Ring>& rings,
                                double minZ = -std::numeric_limits<double>::infinity(),
                                double maxZ = std::numeric_limits<double>::infinity());

    bool contains(const Math::Point<double, 3>& position) const override;
    /// Looser than need be only by rounding.
    Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const override;

private:
    struct Edge {
        Math::Point<double, 2> low, high;  ///< By y.
    };

    void makeBands();
    std::size_t bandCount() const { return mBandBegins.size() - 1; }
    std::size_t bandOf(double y) const;
    /// Whether any of the band's edges passes.
    template <class Test>
    bool anyInBand(std::size_t band, Test test) const;
    bool isInPolygon(double x, double y) const;
    bool mayTouchBorder(const Math::NBoundingBox<double, 3>& box) const;

    std::vector<Edge> mEdges;
    /// For each of several bands of equal height across the polygon, the edges that reach into it: those at
    /// mBandEdges[mBandBegins[band]] to mBandEdges[mBandBegins[band + 1]].
    std::vector<std::size_t> mBandBegins;
    std::vector<std::uint32_t> mBandEdges;
    double mBandsPerUnit = 0.0;
    Math::NBoundingBox<double, 2> mBounds;
    double mMargin = 0.0;  ///< More than the rounding where an edge is crossed.
    double mMinZ;
    double mMaxZ;
};

}  // namespace Render
