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
#include <vector>

namespace Math {

/// The tree of a TriangleIndex: boxes over a copy of the triangles' corners, so it refers to nothing outside.
/// Immutable. n triangles take O(n log n) to build.
template <class T>
class TriangleTree {
public:
    using Real = std::conditional_t<(sizeof(T) < sizeof(double)), double, T>;

    /// Children of a node, and triangles of a leaf, at most.
    static constexpr uint32_t WIDTH = 8;

    /// What a coordinate along a node's axis is wrong by at most, per distance from the node's origin: twice
    /// the sum of all roundings on the way to it.
    static constexpr T ROUNDING = T(16) * std::numeric_limits<T>::epsilon();

    struct Entry {
        std::array<Point<T, 3>, 3> corners;  ///< In ascending order.
        uint32_t triangle;
    };

    /// The children's boxes stand along axes of the node's own: one of them is the normal of a patch, so that
    /// boxes are thin and a far point is as near to few of them as to the nearest triangle.
    struct Node {
        Point<T, 3> origin;
        std::array<Point<T, 3>, 3> axes{Point<T, 3>(1, 0, 0), Point<T, 3>(0, 1, 0), Point<T, 3>(0, 0, 1)};
        T center[3][WIDTH]{};
        T half[3][WIDTH]{};
        uint32_t first = 0;  ///< The first of neighbouring entries of a leaf, or else of neighbouring nodes.
        uint16_t count = 0;
        bool leaf = false;

        /// Between the point and the children's boxes, no more than it is. Not a number, which is above no
        /// limit, where an endless box is involved.
        std::array<T, WIDTH> squaredGaps(const Point<T, 3>& p) const;
    };

    /// As a TriangleIndex is made.
    TriangleTree(const std::vector<Point<T, 3>>& vertices,
                 const std::vector<std::array<uint32_t, 3>>& triangles);

    /// The root first, parents before their children; empty without entries.
    const std::vector<Node>& nodes() const { return mNodes; }
    const std::vector<Entry>& entries() const { return mEntries; }

    static bool isFinite(const Point<T, 3>& p) {
        return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
    }

private:
    using Vector = Point<Real, 3>;
    using Box = NBoundingBox<T, 3>;

    // How many triangles are few enough that they face about the same way.
    static constexpr size_t PATCH = WIDTH * WIDTH * WIDTH;

    // A node while the tree is built, and the entries below it.
    struct Range {
        size_t begin;
        size_t end;
        Box box;
    };

    struct Item {
        Point<T, 3> center;
        uint32_t triangle;
    };

    static T reach(const Point<T, 3>& d) { return std::abs(d[0]) + std::abs(d[1]) + std::abs(d[2]); }

    static std::vector<Range> split(std::vector<Item>& items, std::vector<Node>& nodes);
    static void divide(std::vector<Item>& items, size_t begin, size_t end, size_t share);
    static int widestAxis(const std::vector<Item>& items, size_t begin, size_t end);

    void addEntries(const std::vector<Item>& items, const std::vector<Point<T, 3>>& vertices,
                    const std::vector<std::array<uint32_t, 3>>& triangles);
    void bound(size_t index, std::vector<Range>& ranges);
    void turnLeaf(Node& node) const;
    void turnPatch(Node& node) const;
    static void turn(Node& node, const Vector& normal, const Vector& along);
    void boundTriangles(Node& node, uint32_t child, size_t begin, size_t end) const;
    static void setBox(Node& node, uint32_t child, const Box& box, T farthest);

    std::vector<Node> mNodes;
    std::vector<Entry> mEntries;
};

template <class T>
TriangleTree<T>::TriangleTree(const std::vector<Point<T, 3>>& vertices,
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
    std::vector<Range> ranges = split(items, mNodes);
    addEntries(items, vertices, triangles);
    for (size_t i = mNodes.size(); i-- > 0;) {
        bound(i, ranges);
    }
}

// All children but a node's last are full, so that nodes waste no room and no input makes the tree deep.
template <class T>
std::vector<typename TriangleTree<T>::Range> TriangleTree<T>::split(std::vector<Item>& items,
                                                                    std::vector<Node>& nodes) {
    std::vector<Range> ranges;
    if (!items.empty()) {
        ranges.push_back({0, items.size(), Box()});
    }
    for (size_t i = 0; i < ranges.size(); ++i) {
        const size_t begin = ranges[i].begin;
        const size_t end = ranges[i].end;
        Node& node = nodes.emplace_back();
        node.leaf = end - begin <= WIDTH;
        if (node.leaf) {
            node.first = static_cast<uint32_t>(begin);
            node.count = static_cast<uint16_t>(end - begin);
            continue;
        }
        size_t share = WIDTH;
        while (share * WIDTH < end - begin) {
            share *= WIDTH;
        }
        divide(items, begin, end, share);
        node.first = static_cast<uint32_t>(ranges.size());
        for (size_t next = begin; next < end; next += share) {
            ranges.push_back({next, (std::min)(next + share, end), Box()});
            ++node.count;
        }
    }
    return ranges;
}

// Orders the items so that each run of `share` lies together.
template <class T>
void TriangleTree<T>::divide(std::vector<Item>& items, size_t begin, size_t end, size_t share) {
    if (end - begin <= share) {
        return;
    }
    const size_t middle = begin + (end - begin + share - 1) / share / 2 * share;
    const auto at = [&](size_t i) { return items.begin() + static_cast<std::ptrdiff_t>(i); };
    std::nth_element(at(begin), at(middle), at(end),
                     [axis = widestAxis(items, begin, end)](const Item& a, const Item& b) {
                         return a.center[axis] < b.center[axis];
                     });
    divide(items, begin, middle, share);
    divide(items, middle, end, share);
}

template <class T>
int TriangleTree<T>::widestAxis(const std::vector<Item>& items, size_t begin, size_t end) {
    Box centers;
    for (size_t i = begin; i < end; ++i) {
        centers.extend(items[i].center);
    }
    const Point<T, 3> size = centers.size();
    const int axis = size[1] > size[0] ? 1 : 0;
    return size[2] > size[axis] ? 2 : axis;
}

// Sorted corners make the distance independent of the order in which a triangle names them: back to back
// triangles, and neighbours at their common edge, come out equally near to the last bit.
template <class T>
void TriangleTree<T>::addEntries(const std::vector<Item>& items, const std::vector<Point<T, 3>>& vertices,
                                 const std::vector<std::array<uint32_t, 3>>& triangles) {
    mEntries.reserve(items.size());
    for (const Item& item : items) {
        const std::array<uint32_t, 3>& triangle = triangles[item.triangle];
        Entry entry{{vertices[triangle[0]], vertices[triangle[1]], vertices[triangle[2]]}, item.triangle};
        std::sort(entry.corners.begin(), entry.corners.end(), [](const Point<T, 3>& a, const Point<T, 3>& b) {
            return std::lexicographical_compare(a.values, a.values + 3, b.values, b.values + 3);
        });
        mEntries.push_back(entry);
    }
}

// Sets the boxes of a node's children, whose own boxes are set.
template <class T>
void TriangleTree<T>::bound(size_t index, std::vector<Range>& ranges) {
    Node& node = mNodes[index];
    Range& range = ranges[index];
    const bool isPatch = range.end - range.begin <= PATCH;
    node.origin = mEntries[range.begin].corners[0];
    if (node.leaf) {
        turnLeaf(node);
        for (uint32_t child = 0; child < node.count; ++child) {
            boundTriangles(node, child, node.first + child, node.first + child + 1);
            for (const Point<T, 3>& corner : mEntries[node.first + child].corners) {
                range.box.extend(corner);
            }
        }
        return;
    }
    if (isPatch) {
        turnPatch(node);
    }
    for (uint32_t child = 0; child < node.count; ++child) {
        const Range& below = ranges[node.first + child];
        range.box.extend(below.box);
        if (isPatch) {
            boundTriangles(node, child, below.begin, below.end);
        } else {
            const Box box(below.box.min - node.origin, below.box.max - node.origin);
            setBox(node, child, box, reach(box.min) + reach(box.max));
        }
    }
}

// A box along a triangle's longest edge is the tightest in its plane.
template <class T>
void TriangleTree<T>::turnLeaf(Node& node) const {
    Vector normal;
    Vector longest;
    for (uint32_t i = node.first; i < node.first + node.count; ++i) {
        const Vector a = mEntries[i].corners[0].template cast<Real>();
        const Vector ab = mEntries[i].corners[1].template cast<Real>() - a;
        const Vector ac = mEntries[i].corners[2].template cast<Real>() - a;
        const Vector own = ab.cross(ac);
        normal += normal.dot(own) < Real(0) ? -own : own;
        longest = ac.squaredLength() > longest.squaredLength() ? ac : longest;
    }
    turn(node, normal, longest);
}

// Items are divided along the axes of the world, so boxes overlap least near to these.
template <class T>
void TriangleTree<T>::turnPatch(Node& node) const {
    Vector normal;
    for (uint32_t i = node.first; i < node.first + node.count; ++i) {
        const Vector own = mNodes[i].axes[2].template cast<Real>();
        normal += normal.dot(own) < Real(0) ? -own : own;
    }
    int flattest = 0;
    for (int k = 1; k < 3; ++k) {
        flattest = std::abs(normal[k]) < std::abs(normal[flattest]) ? k : flattest;
    }
    Vector along;
    along[flattest] = Real(1);
    turn(node, normal, along);
}

// Leaves the axes as they are where the normal or the direction are nothing.
template <class T>
void TriangleTree<T>::turn(Node& node, const Vector& normal, const Vector& along) {
    const Vector up = normal / normal.length();
    const Vector across = up.cross(along);
    const Vector aside = across / across.length();
    const std::array<Point<T, 3>, 3> axes{aside.cross(up).template cast<T>(), aside.template cast<T>(),
                                          up.template cast<T>()};
    if (isFinite(axes[0]) && isFinite(axes[1]) && isFinite(axes[2])) {
        node.axes = axes;
    }
}

template <class T>
void TriangleTree<T>::boundTriangles(Node& node, uint32_t child, size_t begin, size_t end) const {
    Box box;
    T farthest = T(0);
    for (size_t i = begin; i < end; ++i) {
        for (const Point<T, 3>& corner : mEntries[i].corners) {
            const Point<T, 3> d = corner - node.origin;
            box.extend({node.axes[0].dot(d), node.axes[1].dot(d), node.axes[2].dot(d)});
            farthest = reach(d) > farthest ? reach(d) : farthest;
        }
    }
    setBox(node, child, box, farthest);
}

// Endless where a corner is too far away for a coordinate.
template <class T>
void TriangleTree<T>::setBox(Node& node, uint32_t child, const Box& box, T farthest) {
    for (int k = 0; k < 3; ++k) {
        node.center[k][child] = box.min[k] / T(2) + box.max[k] / T(2);
        node.half[k][child] = box.max[k] / T(2) - box.min[k] / T(2) + ROUNDING * farthest;
    }
}

// Without a branch or a comparison, as compilers turn such loops into vector instructions: x + |x| is twice x
// or 0.
template <class T>
std::array<T, TriangleTree<T>::WIDTH> TriangleTree<T>::Node::squaredGaps(const Point<T, 3>& p) const {
    const Point<T, 3> d = p - origin;
    const T rounding = ROUNDING * reach(d);
    const Point<T, 3> along(axes[0].dot(d), axes[1].dot(d), axes[2].dot(d));
    std::array<T, WIDTH> result;
    for (size_t i = 0; i < WIDTH; ++i) {
        const T x = std::abs(along[0] - center[0][i]) - half[0][i] - rounding;
        const T y = std::abs(along[1] - center[1][i]) - half[1][i] - rounding;
        const T z = std::abs(along[2] - center[2][i]) - half[2][i] - rounding;
        const T twiceX = x + std::abs(x);
        const T twiceY = y + std::abs(y);
        const T twiceZ = z + std::abs(z);
        result[i] = (twiceX * twiceX + twiceY * twiceY + twiceZ * twiceZ) / T(4);
    }
    return result;
}

}  // namespace Math
