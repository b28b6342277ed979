#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

namespace Math {

/// The point of a triangle or of an edge that is nearest to the origin. Corners of an order of their own,
/// such as a sorted one, make the result independent of the order in which a mesh names them.
template <class T>
struct NearestToOrigin {
    using Vector = Point<T, 3>;

    static Vector onTriangle(const Vector& a, const Vector& b, const Vector& c);
    static Vector onEdge(const Vector& a, const Vector& b);

private:
    static Vector clamped(const Vector& v, const NBoundingBox<T, 3>& box);
};

// Above the inside, the foot of the perpendicular; everywhere else, and for triangles without area, the
// nearest point lies on an edge. Where the edges are almost parallel, rounding may place the foot anywhere,
// so the edges have their say as well.
template <class T>
typename NearestToOrigin<T>::Vector NearestToOrigin<T>::onTriangle(const Vector& a, const Vector& b,
                                                                   const Vector& c) {
    constexpr T THIN = T(1e-12);  // The squared sine of the angle between the edges.
    const Vector ab = b - a;
    const Vector ac = c - a;
    const Vector normal = ab.cross(ac);
    const T whole = normal.squaredLength();
    const T beyondAc = normal.dot(ac.cross(a));
    const T beyondAb = normal.dot(a.cross(ab));
    Vector nearest = a;
    if (beyondAc > T(0) && beyondAb > T(0) && beyondAc + beyondAb < whole) {
        NBoundingBox<T, 3> box(a, a);
        box.extend(b);
        box.extend(c);
        nearest = clamped(a + ab * (beyondAc / whole) + ac * (beyondAb / whole), box);
        if (whole > THIN * ab.squaredLength() * ac.squaredLength()) {
            return nearest;
        }
    }
    for (const Vector& candidate : {onEdge(a, b), onEdge(b, c), onEdge(a, c)}) {
        if (candidate.squaredLength() < nearest.squaredLength()) {
            nearest = candidate;
        }
    }
    return nearest;
}

template <class T>
typename NearestToOrigin<T>::Vector NearestToOrigin<T>::onEdge(const Vector& a, const Vector& b) {
    const Vector ab = b - a;
    const T along = -ab.dot(a);
    const T whole = ab.squaredLength();
    if (!(along > T(0))) {
        return a;
    }
    if (!(along < whole)) {
        return b;
    }
    NBoundingBox<T, 3> box(a, a);
    box.extend(b);
    return clamped(a + ab * (along / whole), box);
}

template <class T>
typename NearestToOrigin<T>::Vector NearestToOrigin<T>::clamped(const Vector& v,
                                                                const NBoundingBox<T, 3>& box) {
    Vector result;
    for (int i = 0; i < 3; ++i) {
        const T raised = v[i] < box.min[i] ? box.min[i] : v[i];
        result[i] = raised > box.max[i] ? box.max[i] : raised;
    }
    return result;
}

}  // namespace Math
