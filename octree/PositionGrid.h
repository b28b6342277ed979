#pragma once

#include <core/Export.h>
#include <math/Point.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Octree {

/// The grid of whole steps that a store's positions lie on: coordinate = steps * scale + offset, absolute.
///
/// Scales and offsets are decimal fractions nearly always, which doubles only come close to. Coordinates are
/// computed as the fractions that are meant, so that a point at 5412380.123 equals that number as written in
/// a program or a file, and prints as it.
class LUMARO_API PositionGrid {
public:
    /// Throws std::invalid_argument unless all is finite and scales are positive.
    PositionGrid(const Math::Point<double, 3>& scale, const Math::Point<double, 3>& offset);

    double scale(int axis) const { return at(axis).scale; }
    double offset(int axis) const { return at(axis).offset; }

    /// Of the nearest place of the grid on one axis.
    std::int64_t steps(double coordinate, int axis) const;
    double coordinate(std::int64_t steps, int axis) const;
    /// What a coordinate computed in double stands for: the place of the grid next to it, or itself when
    /// there is none.
    double snapped(double coordinate, int axis) const;
    Math::Point<double, 3> snapped(const Math::Point<double, 3>& position) const;

    /// How many digits behind the point coordinates have; on a grid that is not decimal, how many it takes to
    /// tell its places apart.
    int decimals() const;

    bool operator==(const PositionGrid&) const = default;

private:
    struct Axis {
        double scale = 1.0;
        double offset = 0.0;
        int decimals = 0;
        /// Both in units of the last decimal, whole numbers; with unitsPerOne 0 there are none.
        double scaleUnits = 0.0;
        double offsetUnits = 0.0;
        double unitsPerOne = 0.0;

        bool operator==(const Axis&) const = default;
    };

    static Axis makeAxis(double scale, double offset);
    const Axis& at(int axis) const { return mAxes[static_cast<std::size_t>(axis)]; }

    std::array<Axis, 3> mAxes;
};

}  // namespace Octree
