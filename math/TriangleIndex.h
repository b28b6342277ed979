#pragma once

#include <math/NBoundingBox.h>
#include <math/NearestOnTriangle.h>
#include <math/Point.h>
#include <math/TriangleTree.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>
#include <vector>

namespace Math {

/// Finds the triangle nearest to a point. Refers to nothing outside. Immutable; any number of threads may
/// search at once. n triangles take O(n log n) to build; a search usually looks at O(log n) of them, and at
/// all where all are equally near.
template <class T>
class TriangleIndex {
public:
    /// What is computed with: nothing coarser than double, as differences of coordinates far from the origin
    /// leave a float few digits.
    using Real = typename TriangleTree<T>::Real;

    struct Nearest {
        Point<Real, 3> offset;  ///< From the given point to the nearest one.
        Real squaredDistance = std::numeric_limits<Real>::infinity();
        uint32_t triangle = 0;
    };

    /// All vertices that the triangles refer to must be there. Triangles with a corner that is not finite are
    /// left out. Throws std::length_error for 2^32 triangles or more.
    TriangleIndex(const std::vector<Point<T, 3>>& vertices,
                  const std::vector<std::array<uint32_t, 3>>& triangles)
        : mTree(vertices, triangles) {}

    /// Of several equally near triangles the one with the lowest index. At infinite distance when the point
    /// is not finite or all triangles are left out.
    Nearest nearest(const Point<T, 3>& p) const;

    /// The same for each of many points, in less time where neighbours in the list lie close together. There
    /// must be as many results as points.
    void nearest(std::span<const Point<T, 3>> points, std::span<Nearest> results) const;

private:
    using Tree = TriangleTree<T>;
    using Vector = Point<Real, 3>;

    static constexpr uint32_t WIDTH = Tree::WIDTH;
    static constexpr T ROUNDING = Tree::ROUNDING;

    static constexpr std::array<uint32_t, 1> ROOT{0};

    // How many neighbours in a list share a way down the tree.
    static constexpr size_t PACKET = 16;

    // Squared gaps above this one may have overflowed.
    static constexpr T LARGEST = (std::numeric_limits<T>::max)() / T(8);

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

    static T limit(Real squaredDistance);
    void nearestOfPacket(std::span<const Point<T, 3>> points, std::span<Nearest> results) const;
    Front frontOf(std::span<const Point<T, 3>> points, const Vector& onMesh) const;
    Nearest nearestBehind(const Front& front, const Point<T, 3>& p, const Vector& onMesh) const;
    void search(std::span<const uint32_t> nodes, const Point<T, 3>& p, T most, Nearest& nearest) const;
    void expand(std::span<const uint32_t> nodes, const Point<T, 3>& p, T most, Stack& stack) const;
    static void measure(const typename Tree::Entry& entry, const Vector& p, Nearest& nearest);

    Tree mTree;
};

template <class T>
typename TriangleIndex<T>::Nearest TriangleIndex<T>::nearest(const Point<T, 3>& p) const {
    Nearest nearest;
    if (!mTree.nodes().empty() && Tree::isFinite(p)) {
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
    if (std::isinf(results[0].squaredDistance) ||
        !std::all_of(points.begin(), points.end(), Tree::isFinite)) {
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
    NBoundingBox<T, 3> box;
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
        const typename Tree::Node& node = mTree.nodes()[front.nodes[i]];
        const std::array<T, WIDTH> gaps = node.squaredGaps(front.center);
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
        measure(mTree.entries()[pending.index], center, nearest);
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
        const typename Tree::Node& node = mTree.nodes()[index];
        const std::array<T, WIDTH> gaps = node.squaredGaps(p);
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
void TriangleIndex<T>::measure(const typename Tree::Entry& entry, const Vector& p, Nearest& nearest) {
    const Vector offset = NearestToOrigin<Real>::onTriangle(entry.corners[0].template cast<Real>() - p,
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

}  // namespace Math
