#pragma once

#include <math/Point.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <vector>

namespace Render {

/// Cuts a polygon of many corners, convex or not, into triangles by clipping ears.
///
/// Looks at a corner anew only when something about it has changed, and for the corners within an ear only
/// where it lies. The time is bounded by a multiple of n log n, which only polygons made for it exceed.
class PolygonCutter {
public:
    using Corner = Math::Point<double, 3>;
    using Triangle = std::array<std::uint32_t, 3>;

    /// The corners must outlive it; a plane that they lie in about is found for them.
    explicit PolygonCutter(const std::vector<Corner>& corners);

    /// Numbers of corners, wound as the polygon. Two triangles less than corners; fewer where the polygon
    /// crosses itself and what is left has no ear. Throws std::runtime_error when the bound is exceeded;
    /// stopped, it ends early. To be called once.
    std::vector<Triangle> cut(const std::stop_token& stop);

private:
    using Place = std::array<double, 2>;

    struct Node {
        Place min{};
        Place max{};
        std::uint32_t begin = 0;  ///< In mInner.
        std::uint32_t end = 0;
        std::uint32_t secondChild = 0;  ///< 0 in a leaf.
    };

    void project(const std::vector<Corner>& corners);
    std::uint32_t addNode(std::uint32_t begin, std::uint32_t end);
    void clipEars(const std::stop_token& stop);
    bool isEar(std::uint32_t corner);
    std::uint32_t findWithin(const Triangle& ear, std::uint32_t node);
    bool isApart(const Triangle& ear, std::uint32_t node) const;
    bool contains(const Triangle& ear, std::uint32_t corner) const;
    double turn(const Place& a, const Place& b, const Place& c) const;
    double turn(std::uint32_t corner) const;
    void wait(std::uint32_t corner, std::uint32_t blocker);
    void stopWaiting(std::uint32_t corner);
    void clip(std::uint32_t corner);
    void enqueue(std::uint32_t corner);
    void work(std::size_t steps);

    static constexpr std::uint32_t none = ~std::uint32_t{0};

    std::vector<Place> mPlaces;  ///< Counterclockwise.
    std::vector<std::uint32_t> mNext;
    std::vector<std::uint32_t> mPrevious;
    std::vector<bool> mIsClipped;
    std::vector<bool> mIsQueued;
    std::vector<std::uint32_t> mQueue;  ///< A ring.
    std::size_t mQueueBegin = 0;
    std::size_t mQueueSize = 0;
    /// Corners whose ears another one lies in wait for that one to go, in a list of its own.
    std::vector<std::uint32_t> mFirstWaiting;
    std::vector<std::uint32_t> mNextWaiting;
    std::vector<std::uint32_t> mPreviousWaiting;
    std::vector<std::uint32_t> mBlocker;
    bool mMayTouch = false;  ///< Whether corners may lie on an ear's sides.

    /// What may lie in an ear: the corners that do not point outwards, in a tree of boxes. Each node's first
    /// child comes after it.
    std::vector<std::uint32_t> mInner;
    std::vector<Node> mNodes;

    std::vector<Triangle> mTriangles;
    std::size_t mRemaining;
    std::size_t mSteps = 0;
    std::size_t mMaxSteps;
};

}  // namespace Render
