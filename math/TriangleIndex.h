#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace Math {

/// Finds the triangle nearest to a point: a tree of boxes over a copy of the triangles' corners, so it refers
/// to nothing outside. Immutable; any number of threads may search at once. n triangles take O(n log n) to
/// build; a search usually looks at O(log n) of them, and at all where all are equally near.
template <class T>
class TriangleIndex {
public:
    /// What is computed with: nothing coarser than double, as differences of coordinates far from the origin
    /// leave a float few digits.
    using Real = std::conditional_t<(sizeof(T) < sizeof(double)), double, T>;

    struct Nearest {
        Point<Real, 3> offset;  ///< From the given point to the nearest one.
        Real squaredDistance = std::numeric_limits<Real>::infinity();
        uint32_t triangle = 0;
    };

    /// All vertices that the triangles refer to must be there. Triangles with a corner that is not finite are
    /// left out. Throws std::length_error for 2^32 triangles or more.
    TriangleIndex(const std::vector<Point<T, 3>>& vertices,
                  const std::vector<std::array<uint32_t, 3>>& triangles);

    /// Of several equally near triangles the one with the lowest index. At infinite distance when the point
    /// is not finite or all triangles are left out.
    Nearest nearest(const Point<T, 3>& p) const;

private:
    using Vector = Point<Real, 3>;

    static constexpr uint32_t LEAF_SIZE = 4;

    struct Entry {
        std::array<Point<T, 3>, 3> corners;  // In ascending order.
        uint32_t triangle;
    };

    struct Node {
        NBoundingBox<T, 3> box;
        uint32_t first = 0;  // The leaf's first entry, or the first of two neighbouring children.
        uint32_t count = 0;  // Entries of a leaf; 0 for other nodes.
    };

    struct Item {
        Point<T, 3> center;
        uint32_t triangle;
    };

    static bool isFinite(const Point<T, 3>& p) {
        return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
    }

    static void split(std::vector<Item>& items, std::vector<Node>& nodes);
    static int widestAxis(const std::vector<Item>& items, size_t begin, size_t end);
    static Real squaredGap(const NBoundingBox<T, 3>& box, const Vector& p);

    // The point nearest to the origin.
    static Vector nearestOnTriangle(const Vector& a, const Vector& b, const Vector& c);
    static Vector nearestOnEdge(const Vector& a, const Vector& b);
    static Vector clamped(const Vector& v, const NBoundingBox<Real, 3>& box);

    std::vector<Node> mNodes;  // The root first, parents before their children; empty without entries.
    std::vector<Entry> mEntries;
};

template <class T>
TriangleIndex<T>::TriangleIndex(const std::vector<Point<T, 3>>& vertices,
                                const std::vector<std::array<uint32_t, 3>>& triangles) {
    if (triangles.size() > (std::numeric_limits<uint32_t>::max)()) {
        throw std::length_error("A mesh of too many triangles");
    }
    std::vector<Item> items;
    items.reserve(triangles.size());
    for (size_t i = 0; i < triangles.size(); ++i) {
        const Point<T, 3>& a = vertices[triangles[i][0]];
        const Point<T, 3>& b = vertices[triangles[i][1]];
        const Point<T, 3>& c = vertices[triangles[i][2]];
        if (isFinite(a) && isFinite(b) && isFinite(c)) {
            items.push_back({a / T(3) + b / T(3) + c / T(3), static_cast<uint32_t>(i)});
        }
    }
    split(items, mNodes);

    // Sorted corners make the distance independent of the order in which a triangle names them: back to back
    // triangles, and neighbours at their common edge, come out equally near to the last bit.
    mEntries.reserve(items.size());
    for (const Item& item : items) {
        const std::array<uint32_t, 3>& triangle = triangles[item.triangle];
        Entry entry{{vertices[triangle[0]], vertices[triangle[1]], vertices[triangle[2]]}, item.triangle};
        std::sort(entry.corners.begin(), entry.corners.end(), [](const Point<T, 3>& a, const Point<T, 3>& b) {
            return std::lexicographical_compare(a.values, a.values + 3, b.values, b.values + 3);
        });
        mEntries.push_back(entry);
    }
    for (size_t i = mNodes.size(); i-- > 0;) {
        Node& node = mNodes[i];
        for (uint32_t j = node.first; j < node.first + node.count; ++j) {
            for (const Point<T, 3>& corner : mEntries[j].corners) {
                node.box.extend(corner);
            }
        }
        if (node.count == 0) {
            node.box.extend(mNodes[node.first].box);
            node.box.extend(mNodes[node.first + 1].box);
        }
    }
}

// Halves by number, so that no input makes the tree deep.
template <class T>
void TriangleIndex<T>::split(std::vector<Item>& items, std::vector<Node>& nodes) {
    struct Range {
        size_t node;
        size_t begin;
        size_t end;
    };
    if (items.empty()) {
        return;
    }
    nodes.emplace_back();
    std::vector<Range> ranges{{0, 0, items.size()}};
    while (!ranges.empty()) {
        const Range range = ranges.back();
        ranges.pop_back();
        const size_t count = range.end - range.begin;
        if (count <= LEAF_SIZE) {
            nodes[range.node].first = static_cast<uint32_t>(range.begin);
            nodes[range.node].count = static_cast<uint32_t>(count);
            continue;
        }
        const size_t middle = range.begin + count / 2;
        const auto at = [&](size_t i) { return items.begin() + static_cast<std::ptrdiff_t>(i); };
        std::nth_element(at(range.begin), at(middle), at(range.end),
                         [axis = widestAxis(items, range.begin, range.end)](const Item& a, const Item& b) {
                             return a.center[axis] < b.center[axis];
                         });
        const size_t child = nodes.size();
        nodes[range.node].first = static_cast<uint32_t>(child);
        nodes.resize(child + 2);
        ranges.push_back({child, range.begin, middle});
        ranges.push_back({child + 1, middle, range.end});
    }
}

template <class T>
int TriangleIndex<T>::widestAxis(const std::vector<Item>& items, size_t begin, size_t end) {
    NBoundingBox<T, 3> centers;
    for (size_t i = begin; i < end; ++i) {
        centers.extend(items[i].center);
    }
    const Point<T, 3> size = centers.size();
    const int axis = size[1] > size[0] ? 1 : 0;
    return size[2] > size[axis] ? 2 : axis;
}

template <class T>
typename TriangleIndex<T>::Nearest TriangleIndex<T>::nearest(const Point<T, 3>& p) const {
    struct Pending {
        uint32_t node;
        Real squaredGap;
    };
    Nearest nearest;
    if (mNodes.empty() || !isFinite(p)) {
        return nearest;
    }
    const Vector center = p.template cast<Real>();
    std::array<Pending, 32>
        stack;  // One more than the tree's levels above the leaves: 2^32 triangles have 30.
    size_t size = 0;
    stack[size++] = {0, Real(0)};
    while (size > 0) {
        const Pending pending = stack[--size];
        if (pending.squaredGap > nearest.squaredDistance) {
            continue;
        }
        const Node& node = mNodes[pending.node];
        if (node.count == 0) {
            Pending nearer{node.first, squaredGap(mNodes[node.first].box, center)};
            Pending farther{node.first + 1, squaredGap(mNodes[node.first + 1].box, center)};
            if (farther.squaredGap < nearer.squaredGap) {
                std::swap(nearer, farther);
            }
            stack[size++] = farther;
            stack[size++] = nearer;
        }
        for (uint32_t i = node.first; i < node.first + node.count; ++i) {
            const Entry& entry = mEntries[i];
            const Vector offset = nearestOnTriangle(entry.corners[0].template cast<Real>() - center,
                                                    entry.corners[1].template cast<Real>() - center,
                                                    entry.corners[2].template cast<Real>() - center);
            const Real squared = offset.squaredLength();
            if (squared < nearest.squaredDistance ||
                (squared == nearest.squaredDistance && entry.triangle < nearest.triangle)) {
                nearest = {offset, squared, entry.triangle};
            }
        }
    }
    return nearest;
}

// Never more than the squared distance found for a triangle in the box, to the last bit: that one's offset is
// clamped to the offsets of its corners, and no step from there to the result makes a greater value smaller.
template <class T>
typename TriangleIndex<T>::Real TriangleIndex<T>::squaredGap(const NBoundingBox<T, 3>& box, const Vector& p) {
    Vector gap;
    for (int i = 0; i < 3; ++i) {
        const Real below = static_cast<Real>(box.min[i]) - p[i];
        const Real above = p[i] - static_cast<Real>(box.max[i]);
        const Real outside = below > above ? below : above;
        gap[i] = outside > Real(0) ? outside : Real(0);
    }
    return gap.squaredLength();
}

// Above the inside, the foot of the perpendicular; everywhere else, and for triangles without area, the
// nearest point lies on an edge. Where the edges are almost parallel, rounding may place the foot anywhere,
// so the edges have their say as well.
template <class T>
typename TriangleIndex<T>::Vector TriangleIndex<T>::nearestOnTriangle(const Vector& a, const Vector& b,
                                                                      const Vector& c) {
    constexpr Real THIN = Real(1e-12);  // The squared sine of the angle between the edges.
    const Vector ab = b - a;
    const Vector ac = c - a;
    const Vector normal = ab.cross(ac);
    const Real whole = normal.squaredLength();
    const Real beyondAc = normal.dot(ac.cross(a));
    const Real beyondAb = normal.dot(a.cross(ab));
    Vector nearest = a;
    if (beyondAc > Real(0) && beyondAb > Real(0) && beyondAc + beyondAb < whole) {
        NBoundingBox<Real, 3> box(a, a);
        box.extend(b);
        box.extend(c);
        nearest = clamped(a + ab * (beyondAc / whole) + ac * (beyondAb / whole), box);
        if (whole > THIN * ab.squaredLength() * ac.squaredLength()) {
            return nearest;
        }
    }
    for (const Vector& candidate : {nearestOnEdge(a, b), nearestOnEdge(b, c), nearestOnEdge(a, c)}) {
        if (candidate.squaredLength() < nearest.squaredLength()) {
            nearest = candidate;
        }
    }
    return nearest;
}

template <class T>
typename TriangleIndex<T>::Vector TriangleIndex<T>::nearestOnEdge(const Vector& a, const Vector& b) {
    const Vector ab = b - a;
    const Real along = -ab.dot(a);
    const Real whole = ab.squaredLength();
    if (!(along > Real(0))) {
        return a;
    }
    if (!(along < whole)) {
        return b;
    }
    NBoundingBox<Real, 3> box(a, a);
    box.extend(b);
    return clamped(a + ab * (along / whole), box);
}

template <class T>
typename TriangleIndex<T>::Vector TriangleIndex<T>::clamped(const Vector& v,
                                                            const NBoundingBox<Real, 3>& box) {
    Vector result;
    for (int i = 0; i < 3; ++i) {
        const Real raised = v[i] < box.min[i] ? box.min[i] : v[i];
        result[i] = raised > box.max[i] ? box.max[i] : raised;
    }
    return result;
}

}  // namespace Math
