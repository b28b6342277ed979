#include <tools/lumaro/SampledOctree.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace Tool {

namespace {

constexpr int GRID_SIDE = 128;
constexpr uint32_t NONE = 0xffffffffU;
constexpr uint32_t STOP_STEP = 1 << 14;  // Points between two looks at the stop token.

}  // namespace

struct SampledOctree::Cell {
    Octree::OctreeNodeId id;
    unsigned level = 0;
    std::array<int32_t, 3> min{};
};

/// Keeps points apart by one grid cell: 128 cells a side over a node's cube, each with a chain of kept
/// points.
class SampledOctree::SpacingGrid {
public:
    explicit SpacingGrid(const std::vector<StorePoint>& points)
        : mPoints(points),
          mHeads(size_t{GRID_SIDE} * GRID_SIDE * GRID_SIDE, NONE),
          mNext(points.size(), NONE) {}

    void begin(const std::array<int32_t, 3>& min, int32_t spacing) {
        for (const size_t cell : mTouched) {
            mHeads[cell] = NONE;
        }
        mTouched.clear();
        mMin = min;
        mSpacing = spacing;
    }

    /// True when the point was kept, false when a kept one is too close.
    bool tryKeep(uint32_t index) {
        std::array<int, 3> cell{};
        for (size_t axis = 0; axis < 3; ++axis) {
            cell[axis] = (mPoints[index].position[axis] - mMin[axis]) / mSpacing;
        }
        if (hasNeighbour(index, cell)) {
            return false;
        }
        const size_t at = flat(cell[0], cell[1], cell[2]);
        if (mHeads[at] == NONE) {
            mTouched.push_back(at);
        }
        mNext[index] = mHeads[at];
        mHeads[at] = index;
        return true;
    }

private:
    static size_t flat(int x, int y, int z) {
        constexpr size_t SIDE{GRID_SIDE};
        return (static_cast<size_t>(z) * SIDE + static_cast<size_t>(y)) * SIDE + static_cast<size_t>(x);
    }

    bool hasNeighbour(uint32_t index, const std::array<int, 3>& cell) const {
        const auto low = [](int c) { return std::max(c - 1, 0); };
        const auto high = [](int c) { return std::min(c + 1, GRID_SIDE - 1); };
        for (int z = low(cell[2]); z <= high(cell[2]); ++z) {
            for (int y = low(cell[1]); y <= high(cell[1]); ++y) {
                for (int x = low(cell[0]); x <= high(cell[0]); ++x) {
                    for (uint32_t other = mHeads[flat(x, y, z)]; other != NONE; other = mNext[other]) {
                        if (squaredDistance(index, other) < int64_t{mSpacing} * mSpacing) {
                            return true;
                        }
                    }
                }
            }
        }
        return false;
    }

    int64_t squaredDistance(uint32_t a, uint32_t b) const {
        int64_t sum = 0;
        for (size_t axis = 0; axis < 3; ++axis) {
            const int64_t d = int64_t{mPoints[a].position[axis]} - mPoints[b].position[axis];
            sum += d * d;
        }
        return sum;
    }

    const std::vector<StorePoint>& mPoints;
    std::vector<uint32_t> mHeads;
    std::vector<uint32_t> mNext;
    std::vector<size_t> mTouched;
    std::array<int32_t, 3> mMin{};
    int32_t mSpacing = 1;
};

SampledOctree::SampledOctree(const std::vector<StorePoint>& points, int32_t cubeSide, size_t maxLeafPoints,
                             std::stop_token stop)
    : mPoints(points), mCubeSide(cubeSide), mMaxLeafPoints(maxLeafPoints), mStop(std::move(stop)) {
    if (cubeSide <= 0 || cubeSide % (1 << MAX_LEVEL) != 0) {
        throw std::invalid_argument("the cube's side is not a multiple of 2^14 steps");
    }
    for (const StorePoint& point : points) {
        for (const int32_t coordinate : point.position) {
            if (coordinate < 0 || coordinate >= cubeSide) {
                throw std::invalid_argument("a point lies outside the cube");
            }
        }
    }

    std::vector<uint32_t> all(points.size());
    for (size_t i = 0; i < all.size(); ++i) {
        all[i] = static_cast<uint32_t>(i);
    }
    SpacingGrid grid(points);
    split(Cell{}, std::move(all), grid);
}

void SampledOctree::split(const Cell& cell, std::vector<uint32_t> indices, SpacingGrid& grid) {
    if (mStop.stop_requested()) {
        return;
    }
    if (indices.size() <= mMaxLeafPoints || cell.level == MAX_LEVEL) {
        mNodes.emplace(cell.id, std::move(indices));
        return;
    }

    grid.begin(cell.min, ((mCubeSide >> cell.level) + GRID_SIDE - 1) / GRID_SIDE);
    const int32_t half = mCubeSide >> (cell.level + 1);
    std::vector<uint32_t> kept;
    std::array<std::vector<uint32_t>, 8> below;
    for (const uint32_t index : indices) {
        if (index % STOP_STEP == 0 && mStop.stop_requested()) {
            return;
        }
        if (grid.tryKeep(index)) {
            kept.push_back(index);
            continue;
        }
        size_t child = 0;
        for (size_t axis = 0; axis < 3; ++axis) {
            child = child * 2 + (mPoints[index].position[axis] - cell.min[axis] >= half ? 1U : 0U);
        }
        below[child].push_back(index);
    }
    mNodes.emplace(cell.id, std::move(kept));
    indices = {};

    for (unsigned i = 0; i < 8; ++i) {
        if (below[i].empty()) {
            continue;
        }
        Cell next{cell.id.child(i), cell.level + 1, cell.min};
        for (unsigned axis = 0; axis < 3; ++axis) {
            if ((i >> (2U - axis) & 1U) != 0) {
                next.min[axis] += half;
            }
        }
        split(next, std::move(below[i]), grid);
    }
}

unsigned SampledOctree::childMask(Octree::OctreeNodeId id) const {
    unsigned mask = 0;
    if (id.level() >= MAX_LEVEL) {
        return mask;
    }
    for (unsigned i = 0; i < 8; ++i) {
        if (mNodes.count(id.child(i)) != 0) {
            mask |= 1U << i;
        }
    }
    return mask;
}

}  // namespace Tool
