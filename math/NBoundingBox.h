#pragma once

#include <math/Point.h>

#include <limits>

namespace Math {

// Calls of std::min, std::max and numeric_limits::max() stand in parentheses or are written out in these
// headers, so that a host that includes windows.h with its min and max macros can include them.

/// An axis-parallel box, both corners included. Empty when min > max on any axis, as it is by default.
template <class T, int N>
struct NBoundingBox {
    Point<T, N> min = filled((std::numeric_limits<T>::max)());
    Point<T, N> max = filled(std::numeric_limits<T>::lowest());

    constexpr NBoundingBox() = default;
    constexpr NBoundingBox(const Point<T, N>& minCorner, const Point<T, N>& maxCorner)
        : min{minCorner}, max{maxCorner} {}

    constexpr bool operator==(const NBoundingBox&) const = default;

    constexpr bool isEmpty() const {
        for (int i = 0; i < N; ++i) {
            if (min[i] > max[i]) {
                return true;
            }
        }
        return false;
    }

    constexpr void extend(const Point<T, N>& p) {
        for (int i = 0; i < N; ++i) {
            min[i] = p[i] < min[i] ? p[i] : min[i];
            max[i] = p[i] > max[i] ? p[i] : max[i];
        }
    }

    /// An empty box adds nothing.
    constexpr void extend(const NBoundingBox& box) {
        if (!box.isEmpty()) {
            extend(box.min);
            extend(box.max);
        }
    }

    constexpr Point<T, N> center() const { return (min + max) / T(2); }

    /// Extents along the axes; negative ones count as 0.
    constexpr Point<T, N> size() const {
        Point<T, N> extents = max - min;
        for (T& extent : extents.values) {
            extent = extent < T(0) ? T(0) : extent;
        }
        return extents;
    }

    constexpr bool contains(const Point<T, N>& p) const {
        for (int i = 0; i < N; ++i) {
            if (!(p[i] >= min[i] && p[i] <= max[i])) {
                return false;
            }
        }
        return true;
    }

    /// Corner 0 … 2^N − 1; the first axis is the highest bit, set where the corner lies at max.
    constexpr Point<T, N> corner(int index) const {
        Point<T, N> result;
        for (int i = 0; i < N; ++i) {
            result[i] = ((index >> (N - 1 - i)) & 1) != 0 ? max[i] : min[i];
        }
        return result;
    }

    /// The smallest box around this box moved by an affine matrix; an empty box stays empty.
    NBoundingBox transformed(const Eigen::Matrix<T, 4, 4>& m) const requires(N == 3) {
        if (isEmpty()) {
            return NBoundingBox();
        }
        NBoundingBox result;
        for (int row = 0; row < 3; ++row) {
            T low = T(0);
            T high = T(0);
            for (int i = 0; i < 3; ++i) {
                const T atMin = m(row, i) * min[i];
                const T atMax = m(row, i) * max[i];
                low += atMin < atMax ? atMin : atMax;
                high += atMin < atMax ? atMax : atMin;
            }
            result.min[row] = low + m(row, 3);
            result.max[row] = high + m(row, 3);
        }
        return result;
    }

private:
    static constexpr Point<T, N> filled(T value) {
        Point<T, N> result;
        for (T& v : result.values) {
            v = value;
        }
        return result;
    }
};

}  // namespace Math
