#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
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

    /// The same for each of many points, in less time where neighbours in the list lie close together. There
    /// must be as many results as points.
    void nearest(std::span<const Point<T, 3>> points, std::span<Nearest> results) const;

private:
    using Vector = Point<Real, 3>;
    using Box = NBoundingBox<T, 3>;

    // Children of a node, and triangles of a leaf.
    static constexpr uint32_t WIDTH = 8;

    // How many triangles are few enough that they face about the same way.
    static constexpr size_t PATCH = WIDTH * WIDTH * WIDTH;

    static constexpr std::array<uint32_t, 1> ROOT{0};

    // How many neighbours in a list share a way down the tree.
    static constexpr size_t PACKET = 16;

    // What a coordinate along a node's axis is wrong by at most, per distance from the node's origin: twice
    // the sum of all roundings on the way to it.
    static constexpr T ROUNDING = T(16) * std::numeric_limits<T>::epsilon();

    // Squared gaps above this one may have overflowed.
    static constexpr T LARGEST = (std::numeric_limits<T>::max)() / T(8);

    struct Entry {
        std::array<Point<T, 3>, 3> corners;  // In ascending order.
        uint32_t triangle;
    };

    // The children's boxes stand along axes of the node's own: one of them is the normal of a patch, so that
    // boxes are thin and a far point is as near to few of them as to the nearest triangle.
    struct Node {
        Point<T, 3> origin;
        std::array<Point<T, 3>, 3> axes{Point<T, 3>(1, 0, 0), Point<T, 3>(0, 1, 0), Point<T, 3>(0, 0, 1)};
        T center[3][WIDTH]{};
        T half[3][WIDTH]{};
        uint32_t first = 0;  // The first of neighbouring entries of a leaf, or else of neighbouring nodes.
        uint16_t count = 0;
        bool leaf = false;
    };

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

    // A node, or an entry, that is yet to be looked at.
    struct Pending {
        T squaredGap;
        uint32_t index;
        bool isEntry;
    };

    // 2^32 triangles make 11 levels, each of which leaves 7 children behind; a front adds those of 7 more
    // nodes.
    struct Stack {
        std::array<Pending, 160> items;
        size_t size = 0;
    };

    // Nodes that hold whatever is as near to the center as `reach`, or nearer.
    struct Front {
        Point<T, 3> center;
        Real reach = Real(0);
        std::array<uint32_t, 2 * WIDTH> nodes{};
        std::array<T, 2 * WIDTH> gaps{};  // Between their boxes and the center.
        size_t size = 1;
    };

    static bool isFinite(const Point<T, 3>& p) {
        return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
    }
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

    static T limit(Real squaredDistance);
    static std::array<T, WIDTH> squaredGaps(const Node& node, const Point<T, 3>& p);
    void nearestOfPacket(std::span<const Point<T, 3>> points, std::span<Nearest> results) const;
    Front frontOf(std::span<const Point<T, 3>> points, const Vector& onMesh) const;
    Nearest nearestBehind(const Front& front, const Point<T, 3>& p, const Vector& onMesh) const;
    void search(std::span<const uint32_t> nodes, const Point<T, 3>& p, T most, Nearest& nearest) const;
    void expand(std::span<const uint32_t> nodes, const Point<T, 3>& p, T most, Stack& stack) const;
    void measure(const Entry& entry, const Vector& p, Nearest& nearest) const;

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
    std::vector<Range> ranges = split(items, mNodes);
    addEntries(items, vertices, triangles);
    for (size_t i = mNodes.size(); i-- > 0;) {
        bound(i, ranges);
    }
}

// All children but a node's last are full, so that nodes waste no room and no input makes the tree deep.
template <class T>
std::vector<typename TriangleIndex<T>::Range> TriangleIndex<T>::split(std::vector<Item>& items,
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
void TriangleIndex<T>::divide(std::vector<Item>& items, size_t begin, size_t end, size_t share) {
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
int TriangleIndex<T>::widestAxis(const std::vector<Item>& items, size_t begin, size_t end) {
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
void TriangleIndex<T>::addEntries(const std::vector<Item>& items, const std::vector<Point<T, 3>>& vertices,
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
void TriangleIndex<T>::bound(size_t index, std::vector<Range>& ranges) {
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
void TriangleIndex<T>::turnLeaf(Node& node) const {
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
void TriangleIndex<T>::turnPatch(Node& node) const {
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
void TriangleIndex<T>::turn(Node& node, const Vector& normal, const Vector& along) {
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
void TriangleIndex<T>::boundTriangles(Node& node, uint32_t child, size_t begin, size_t end) const {
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
void TriangleIndex<T>::setBox(Node& node, uint32_t child, const Box& box, T farthest) {
    for (int k = 0; k < 3; ++k) {
        node.center[k][child] = box.min[k] / T(2) + box.max[k] / T(2);
        node.half[k][child] = box.max[k] / T(2) - box.min[k] / T(2) + ROUNDING * farthest;
    }
}

template <class T>
typename TriangleIndex<T>::Nearest TriangleIndex<T>::nearest(const Point<T, 3>& p) const {
    Nearest nearest;
    if (!mNodes.empty() && isFinite(p)) {
        search(ROOT, p, std::numeric_limits<T>::infinity(), nearest);
    }
    return nearest;
}

template <class T>
void TriangleIndex<T>::nearest(std::span<const Point<T, 3>> points, std::span<Nearest> results) const {
    for (size_t begin = 0; begin < points.size(); begin += PACKET) {
        const size_t count = (std::min)(PACKET, points.size() - begin);
        nearestOfPacket(points.subspan(begin, count), results.subspan(begin, count));
    }
}

template <class T>
void TriangleIndex<T>::nearestOfPacket(std::span<const Point<T, 3>> points,
                                       std::span<Nearest> results) const {
    results[0] = nearest(points[0]);
    if (std::isinf(results[0].squaredDistance) || !std::all_of(points.begin(), points.end(), isFinite)) {
        std::transform(points.begin(), points.end(), results.begin(),
                       [this](const Point<T, 3>& p) { return nearest(p); });
        return;
    }
    Vector onMesh = points[0].template cast<Real>() + results[0].offset;
    const Front front = frontOf(points, onMesh);
    for (size_t i = 1; i < points.size(); ++i) {
        results[i] = nearestBehind(front, points[i], onMesh);
        onMesh = points[i].template cast<Real>() + results[i].offset;
    }
}

// Reaches as far as any of the points needs, as a point of the mesh is known.
template <class T>
typename TriangleIndex<T>::Front TriangleIndex<T>::frontOf(std::span<const Point<T, 3>> points,
                                                           const Vector& onMesh) const {
    Front front;
    Box box;
    for (const Point<T, 3>& p : points) {
        box.extend(p);
    }
    front.center = box.min / T(2) + box.max / T(2);
    for (const Point<T, 3>& p : points) {
        const Vector from = p.template cast<Real>();
        const Real reach = distance(from, onMesh) + distance(from, front.center.template cast<Real>());
        front.reach = reach > front.reach ? reach : front.reach;
    }
    const T most = limit(front.reach * front.reach);
    for (size_t i = 0; i < front.size;) {
        const Node& node = mNodes[front.nodes[i]];
        const std::array<T, WIDTH> gaps = squaredGaps(node, front.center);
        size_t end = front.size;
        for (uint32_t child = 0; child < node.count; ++child) {
            front.nodes[end] = node.first + child;
            front.gaps[end] = std::sqrt((std::min)(gaps[child], LARGEST));
            end += gaps[child] > most ? 0u : 1u;
        }
        if (node.leaf || end > WIDTH + 1) {
            ++i;
            continue;
        }
        --end;
        front.nodes[i] = front.nodes[end];
        front.gaps[i] = front.gaps[end];
        front.size = end;
    }
    return front;
}

// Looks behind the front no farther than to a known point of the mesh. What it finds there counts when it
// lies within both, which only rounding can prevent.
template <class T>
typename TriangleIndex<T>::Nearest TriangleIndex<T>::nearestBehind(const Front& front, const Point<T, 3>& p,
                                                                   const Vector& onMesh) const {
    const Vector from = p.template cast<Real>();
    const Real away = distance(from, front.center.template cast<Real>());
    const T most = limit(squaredDistance(from, onMesh));
    const Real reach = (std::sqrt(Real(most)) + away) * (Real(1) + Real(ROUNDING));
    std::array<uint32_t, WIDTH> nodes;
    size_t count = 0;
    for (size_t i = 0; i < front.size; ++i) {
        nodes[count] = front.nodes[i];
        count += Real(front.gaps[i]) > reach ? 0u : 1u;
    }
    Nearest nearest;
    search({nodes.data(), count}, p, most, nearest);
    if (!(nearest.squaredDistance <= Real(most) &&
          std::sqrt(nearest.squaredDistance) + away <= front.reach)) {
        search(ROOT, p, limit(nearest.squaredDistance), nearest);
    }
    return nearest;
}

template <class T>
void TriangleIndex<T>::search(std::span<const uint32_t> nodes, const Point<T, 3>& p, T most,
                              Nearest& nearest) const {
    const Vector center = p.template cast<Real>();
    Stack stack;
    expand(nodes, p, most, stack);
    while (stack.size > 0) {
        const Pending pending = stack.items[--stack.size];
        if (pending.squaredGap > most) {
            continue;
        }
        if (!pending.isEntry) {
            expand({&pending.index, 1}, p, most, stack);
            continue;
        }
        measure(mEntries[pending.index], center, nearest);
        most = (std::min)(most, limit(nearest.squaredDistance));
    }
}

// Puts on the stack what is within these nodes and may be near enough, the nearest on top.
template <class T>
void TriangleIndex<T>::expand(std::span<const uint32_t> nodes, const Point<T, 3>& p, T most,
                              Stack& stack) const {
    T least = std::numeric_limits<T>::infinity();
    size_t closest = stack.size;
    for (const uint32_t index : nodes) {
        const Node& node = mNodes[index];
        const std::array<T, WIDTH> gaps = squaredGaps(node, p);
        for (uint32_t i = 0; i < node.count; ++i) {
            stack.items[stack.size] = {gaps[i], node.first + i, node.leaf};
            const bool isCloser = gaps[i] < least;
            closest = isCloser ? stack.size : closest;
            least = isCloser ? gaps[i] : least;
            stack.size += gaps[i] > most ? 0u : 1u;
        }
    }
    if (closest < stack.size) {
        std::swap(stack.items[closest], stack.items[stack.size - 1]);
    }
}

template <class T>
void TriangleIndex<T>::measure(const Entry& entry, const Vector& p, Nearest& nearest) const {
    const Vector offset = nearestOnTriangle(entry.corners[0].template cast<Real>() - p,
                                            entry.corners[1].template cast<Real>() - p,
                                            entry.corners[2].template cast<Real>() - p);
    const Real squared = offset.squaredLength();
    if (squared < nearest.squaredDistance ||
        (squared == nearest.squaredDistance && entry.triangle < nearest.triangle)) {
        nearest = {offset, squared, entry.triangle};
    }
}

// No triangle in a box whose squared gap is greater can be as near, however either was rounded.
template <class T>
T TriangleIndex<T>::limit(Real squaredDistance) {
    const Real raised = squaredDistance * (Real(1) + Real(ROUNDING)) + Real((std::numeric_limits<T>::min)());
    return raised < Real(LARGEST) ? static_cast<T>(raised) : std::numeric_limits<T>::infinity();
}

// Without a branch or a comparison, as compilers turn such loops into vector instructions: x + |x| is twice x
// or 0. Not a number, which is above no limit, where an endless box is involved.
template <class T>
std::array<T, TriangleIndex<T>::WIDTH> TriangleIndex<T>::squaredGaps(const Node& node, const Point<T, 3>& p) {
    const Point<T, 3> d = p - node.origin;
    const T rounding = ROUNDING * reach(d);
    const Point<T, 3> along(node.axes[0].dot(d), node.axes[1].dot(d), node.axes[2].dot(d));
    std::array<T, WIDTH> result;
    for (size_t i = 0; i < WIDTH; ++i) {
        const T x = std::abs(along[0] - node.center[0][i]) - node.half[0][i] - rounding;
        const T y = std::abs(along[1] - node.center[1][i]) - node.half[1][i] - rounding;
        const T z = std::abs(along[2] - node.center[2][i]) - node.half[2][i] - rounding;
        const T twiceX = x + std::abs(x);
        const T twiceY = y + std::abs(y);
        const T twiceZ = z + std::abs(z);
        result[i] = (twiceX * twiceX + twiceY * twiceY + twiceZ * twiceZ) / T(4);
    }
    return result;
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
