#pragma once

#include <octree/OctreeNodeId.h>
#include <render/pointcloud/PublishedNodes.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

namespace Render {

/// Decides where the points of published nodes lie in pages of GPU memory, so that a publication sends only
/// what the previous ones did not. Knows no Direct3D: the caller keeps one buffer a page and sends what
/// uploads() lists.
///
/// A node keeps its place as long as it is published with the same vertices. New nodes go into the first gap
/// that is large enough; a node larger than a page gets one of its own; a page without nodes is given up at
/// once.
class PointPool {
public:
    struct Range {
        std::size_t page = 0;
        std::size_t first = 0;  ///< Point within the page.
    };

    explicit PointPool(std::size_t pointsPerPage) : mPointsPerPage(pointsPerPage) {}

    /// Makes room for these nodes and drops all others.
    void update(const std::vector<PublishedNode>& nodes);
    void clear();

    /// The place of each node of the last update; meaningless for a node without points.
    const std::vector<Range>& ranges() const { return mRanges; }
    /// Indices of the nodes of the last update whose points are not in their place yet.
    const std::vector<std::size_t>& uploads() const { return mUploads; }

    /// Pages are numbered from 0; those given up stay in the count until their number is used again.
    std::size_t pageCount() const { return mPages.size(); }
    /// In points; 0 for a page that was given up.
    std::size_t pageCapacity(std::size_t page) const { return mPages[page].capacity; }

private:
    struct Page {
        std::size_t capacity = 0;
        std::map<std::size_t, std::size_t> gaps;  ///< First point to count; never side by side.
    };
    struct Placed {
        Range range;
        std::size_t count = 0;
        std::uint64_t serial = 0;
        std::uint64_t update = 0;  ///< The last one that had this node.
    };

    Range allocate(std::size_t count);
    static bool takeGap(Page& page, std::size_t count, std::size_t& first);
    void release(const Range& range, std::size_t count);

    std::size_t mPointsPerPage;
    std::uint64_t mUpdateCount = 0;
    std::vector<Page> mPages;
    std::unordered_map<Octree::OctreeNodeId, Placed> mPlaced;
    std::vector<Range> mRanges;
    std::vector<std::size_t> mUploads;
};

}  // namespace Render
