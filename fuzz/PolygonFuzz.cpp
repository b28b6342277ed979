// The input is a polygon file. Boxes around its polygon are classified, and corners and middles of those that
// lie inside or outside as a whole must do so too.

#include <fuzz/FuzzTarget.h>
#include <tools/lumaro/PolygonFile.h>

#include <tests/support/PotreeFixture.h>

#include <cmath>
#include <stdexcept>

namespace {

using Point = Math::Point<double, 3>;
using Render::PolygonPrismFilter;

void check(const PolygonPrismFilter& filter, const Point& min, const Point& max) {
    const Octree::BoxTestResult result = filter.classify({min, max});
    if (result == Octree::BoxTestResult::Intersecting) {
        return;
    }
    const bool isInside = result == Octree::BoxTestResult::Inside;
    const Point middle = (min + max) * 0.5;
    for (const double x : {min.x(), middle.x(), max.x()}) {
        for (const double y : {min.y(), middle.y(), max.y()}) {
            Fuzz::require(filter.contains({x, y, 0.0}) == isInside);
        }
    }
}

/// Boxes of a grid that reaches a little beyond the polygon.
void checkGrid(const PolygonPrismFilter& filter, const std::vector<PolygonPrismFilter::Ring>& rings) {
    Math::NBoundingBox<double, 2> bounds;
    for (const PolygonPrismFilter::Ring& ring : rings) {
        for (const Math::Point<double, 2>& corner : ring) {
            Fuzz::require(std::isfinite(corner.x()) && std::isfinite(corner.y()));
            bounds.extend(corner);
        }
    }
    constexpr int CELLS = 7;
    const Math::Point<double, 2> cell = (bounds.max - bounds.min) * (1.0 / (CELLS - 2));
    for (int x = -1; x < CELLS; ++x) {
        for (int y = -1; y < CELLS; ++y) {
            const Point min(bounds.min.x() + cell.x() * x, bounds.min.y() + cell.y() * y, -1.0);
            check(filter, min, min + Point(cell.x(), cell.y(), 2.0));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Support::TemporaryFolder folder;
    folder.write("area.txt", Fuzz::textOf(data, size));
    try {
        const auto rings = Tool::readPolygonFile(folder.path() / "area.txt");
        checkGrid(PolygonPrismFilter(rings), rings);
    } catch (const std::runtime_error&) {
    }
    return 0;
}
