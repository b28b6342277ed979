#pragma once

#include <Eigen/Core>
#include <cmath>
#include <cstddef>
#include <type_traits>

namespace Math {

/// A point or vector of N coordinates: exactly N values of T in memory, zero unless given.
template <class T, int N>
struct Point {
    T values[static_cast<size_t>(N)]{};

    constexpr Point() = default;
    constexpr Point(T x, T y) requires(N == 2) : values{x, y} {}
    constexpr Point(T x, T y, T z) requires(N == 3) : values{x, y, z} {}
    constexpr Point(T x, T y, T z, T w) requires(N == 4) : values{x, y, z, w} {}
    explicit Point(const Eigen::Matrix<T, N, 1>& vector) {
        for (int i = 0; i < N; ++i) {
            values[i] = vector[i];
        }
    }

    constexpr T& operator[](int i) { return values[i]; }
    constexpr const T& operator[](int i) const { return values[i]; }
    constexpr T& x() { return values[0]; }
    constexpr const T& x() const { return values[0]; }
    constexpr T& y() requires(N >= 2) { return values[1]; }
    constexpr const T& y() const requires(N >= 2) { return values[1]; }
    constexpr T& z() requires(N >= 3) { return values[2]; }
    constexpr const T& z() const requires(N >= 3) { return values[2]; }

    constexpr bool operator==(const Point&) const = default;

    constexpr Point& operator+=(const Point& other) {
        for (int i = 0; i < N; ++i) {
            values[i] += other.values[i];
        }
        return *this;
    }
    constexpr Point& operator-=(const Point& other) {
        for (int i = 0; i < N; ++i) {
            values[i] -= other.values[i];
        }
        return *this;
    }
    constexpr Point& operator*=(T factor) {
        for (T& value : values) {
            value *= factor;
        }
        return *this;
    }
    constexpr Point& operator/=(T divisor) {
        for (T& value : values) {
            value /= divisor;
        }
        return *this;
    }

    friend constexpr Point operator+(Point a, const Point& b) { return a += b; }
    friend constexpr Point operator-(Point a, const Point& b) { return a -= b; }
    friend constexpr Point operator-(const Point& a) { return a * T(-1); }
    friend constexpr Point operator*(Point a, T factor) { return a *= factor; }
    friend constexpr Point operator*(T factor, Point a) { return a *= factor; }
    friend constexpr Point operator/(Point a, T divisor) { return a /= divisor; }

    constexpr T dot(const Point& other) const {
        T sum = values[0] * other.values[0];
        for (int i = 1; i < N; ++i) {
            sum += values[i] * other.values[i];
        }
        return sum;
    }
    constexpr Point cross(const Point& b) const requires(N == 3) {
        return Point(values[1] * b.values[2] - values[2] * b.values[1],
                     values[2] * b.values[0] - values[0] * b.values[2],
                     values[0] * b.values[1] - values[1] * b.values[0]);
    }
    constexpr T squaredLength() const { return dot(*this); }
    T length() const { return std::sqrt(squaredLength()); }

    Eigen::Matrix<T, N, 1> vector() const { return Eigen::Map<const Eigen::Matrix<T, N, 1>>(values); }

    /// Each coordinate converted by static_cast.
    template <class U>
    constexpr Point<U, N> cast() const {
        Point<U, N> result;
        for (int i = 0; i < N; ++i) {
            result[i] = static_cast<U>(values[i]);
        }
        return result;
    }
};

static_assert(sizeof(Point<float, 3>) == 12 && std::is_trivially_copyable_v<Point<float, 3>>);

template <class T, int N>
constexpr T squaredDistance(const Point<T, N>& a, const Point<T, N>& b) {
    return (a - b).squaredLength();
}

template <class T, int N>
T distance(const Point<T, N>& a, const Point<T, N>& b) {
    return (a - b).length();
}

/// The point moved by an affine matrix; the matrix's last row is taken as (0, 0, 0, 1).
template <class T>
Point<T, 3> transformPoint(const Eigen::Matrix<T, 4, 4>& m, const Point<T, 3>& p) {
    return Point<T, 3>(m(0, 0) * p[0] + m(0, 1) * p[1] + m(0, 2) * p[2] + m(0, 3),
                       m(1, 0) * p[0] + m(1, 1) * p[1] + m(1, 2) * p[2] + m(1, 3),
                       m(2, 0) * p[0] + m(2, 1) * p[1] + m(2, 2) * p[2] + m(2, 3));
}

/// The point moved by a projective matrix, divided by its w; not finite where w is 0.
template <class T>
Point<T, 3> projectPoint(const Eigen::Matrix<T, 4, 4>& m, const Point<T, 3>& p) {
    return transformPoint(m, p) / (m(3, 0) * p[0] + m(3, 1) * p[1] + m(3, 2) * p[2] + m(3, 3));
}

}  // namespace Math
