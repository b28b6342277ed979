#include <octree/PositionGrid.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace Octree {

namespace {

constexpr double LARGEST_WHOLE = 9007199254740992.0;  // 2^53: doubles hold all whole numbers up to it

/// Whether a product is a whole number but for the rounding of its factors, and of converters that have added
/// up an offset. Beyond `largest` that would mean nothing.
bool isNearlyWhole(double value, double largest) {
    constexpr double ROUNDING = 4.0 * std::numeric_limits<double>::epsilon();
    return std::abs(value) <= largest && std::abs(value - std::round(value)) <= ROUNDING * std::abs(value);
}

}  // namespace

PositionGrid::PositionGrid(const Math::Point<double, 3>& scale, const Math::Point<double, 3>& offset) {
    for (int axis = 0; axis < 3; ++axis) {
        if (!(scale[axis] > 0.0) || !std::isfinite(scale[axis]) || !std::isfinite(offset[axis])) {
            throw std::invalid_argument("A grid needs scales that are positive and finite, and offsets");
        }
        mAxes[static_cast<std::size_t>(axis)] = makeAxis(scale[axis], offset[axis]);
    }
}

PositionGrid::Axis PositionGrid::makeAxis(double scale, double offset) {
    constexpr int MOST_DECIMALS = 15;
    Axis axis{scale, offset};
    double unitsPerOne = 1.0;
    for (int decimals = 0; decimals <= MOST_DECIMALS; ++decimals, unitsPerOne *= 10.0) {
        const double scaleUnits = scale * unitsPerOne;
        const double offsetUnits = offset * unitsPerOne;
        if (scaleUnits > 0.5 && isNearlyWhole(scaleUnits, 1e6) && isNearlyWhole(offsetUnits, 1e13)) {
            axis.decimals = decimals;
            axis.scaleUnits = std::round(scaleUnits);
            axis.offsetUnits = std::round(offsetUnits);
            axis.unitsPerOne = unitsPerOne;
            return axis;
        }
    }
    axis.decimals = static_cast<int>(std::clamp(std::ceil(-std::log10(scale)) + 1.0, 0.0, 17.0));
    return axis;
}

std::int64_t PositionGrid::steps(double coordinate, int axis) const {
    constexpr double FARTHEST = 9e18;
    return std::llround(std::clamp((coordinate - offset(axis)) / scale(axis), -FARTHEST, FARTHEST));
}

double PositionGrid::coordinate(std::int64_t steps, int axis) const {
    const Axis& grid = at(axis);
    const auto count = static_cast<double>(steps);
    if (grid.unitsPerOne > 0.0) {
        // Whole numbers, so that the division alone is rounded, as reading the decimal fraction would be.
        const double units = count * grid.scaleUnits + grid.offsetUnits;
        if (std::abs(count * grid.scaleUnits) <= LARGEST_WHOLE && std::abs(units) <= LARGEST_WHOLE) {
            return units / grid.unitsPerOne;
        }
    }
    return count * grid.scale + grid.offset;
}

double PositionGrid::snapped(double coordinate, int axis) const {
    constexpr double NEAR_ENOUGH = 1e-3;  // of a step; rounding in double is far below
    const double place = this->coordinate(steps(coordinate, axis), axis);
    return std::abs(place - coordinate) <= NEAR_ENOUGH * scale(axis) ? place : coordinate;
}

Math::Point<double, 3> PositionGrid::snapped(const Math::Point<double, 3>& position) const {
    return {snapped(position.x(), 0), snapped(position.y(), 1), snapped(position.z(), 2)};
}

int PositionGrid::decimals() const {
    return std::max({mAxes[0].decimals, mAxes[1].decimals, mAxes[2].decimals});
}

}  // namespace Octree
