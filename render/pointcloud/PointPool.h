#pragma once

#include <math/NBoundingBox.h>
#include <octree/OctreeNodeId.h>
#include <render/pointcloud/PublishedNodes.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <vector>

namespace Render {

/// Decides where the points of published nodes lie in pages of GPU memory, so that a publication sends only
/// what the previous ones did not. Knows no Direct3D: the caller keeps one buffer a page and sends what
/// uploads() lists.
///
/// A node keeps its place as long as it is published with the same vertices. New nodes go into the first gap
/// that is large enough; a node larger than a page gets one of its own; a page without nodes is given up at
/// once. While the pages hold more than twice the points that are in them, each update moves some nodes out
/// of the pages with the most gaps. Such a node is one of the uploads. It needs its vertices for that and
/// stays where it is without them.
///
/// Uploads may be limited. A node whose new vertices have to wait stays with its old ones, if it had some in
/// the same cube.
class PointPool {
public:
    struct Range {
        std::size_t page = 0;
        std::size_t first = 0;  ///< Point within the page.
        std::size_t count = 0;  ///< Points that are there; 0 without a place.
    };
    struct Limit {
        std::size_t points = (std::numeric_limits<std::size_t>::max)();
        bool isOneAllowed = true;  ///< A larger node may go by itself.
    };

    explicit PointPool(std::size_t pointsPerPage) : mPointsPerPage(pointsPerPage) {}

    /// Makes room for these nodes, which are in the order of a publication, and drops all others. The uploads
    /// are the first ones that are missing, as many as the limit lets through; call it again with the same
    /// nodes for the next ones.
    void update(const std::vector<PublishedNode>& nodes, const Limit& limit);
    void update(const std::vector<PublishedNode>& nodes) { update(nodes, Limit()); }
    void clear();

    /// The place of each node of the last update.
    const std::vector<Range>& ranges() const { return mRanges; }
    /// Indices of the nodes of the last update whose points are to be sent to their places now.
    const std::vector<std::size_t>& uploads() const { return mUploads; }
    /// Indices of the nodes of the last update that the limit held back.
    const std::vector<std::size_t>& pending() const { return mPending; }
    /// Points of the pending nodes and of those to be moved next.
    std::size_t pointsLeft() const { return mPointsLeft; }
    /// Whether another update with the same nodes would have nothing to upload.
    bool isSettled() const { return mPointsLeft == 0; }

    /// Pages are numbered from 0; those given up stay in the count until their number is used again.
    std::size_t pageCount() const { return mPages.size(); }
    /// In points; 0 for a page that was given up.
    std::size_t pageCapacity(std::size_t page) const { return mPages[page].capacity; }

private:
    struct Page {
        std::size_t capacity = 0;
        std::size_t used = 0;
        bool hasLostNodes = false;                ///< Since it was made.
        std::map<std::size_t, std::size_t> gaps;  ///< First point to count; never side by side.
    };
    struct Placed {
        Octree::OctreeNodeId id;
        std::uint64_t serial = 0;  ///< Of the vertices that are there.
        Math::NBoundingBox<float, 3> cube;
        Range range;
    };

    void keepPlaces(const std::vector<PublishedNode>& nodes);
    void chooseUploads(const std::vector<PublishedNode>& nodes, const Limit& limit);
    void placeUploads(const std::vector<PublishedNode>& nodes);
    void moveOutOfSparsePages(const std::vector<PublishedNode>& nodes, const Limit& limit);
    std::size_t pointsInPages() const;
    bool isSparse() const;
    bool mayBeEmptied(const Page& page) const;
    std::size_t sparsestPage() const;
    Range allocate(std::size_t count);
    Range allocateForMove(std::size_t count);
    Range addPage(std::size_t count, std::size_t capacity);
    static bool takeGap(Page& page, std::size_t count, std::size_t& first);
    void release(const Placed& placed);

    std::size_t mPointsPerPage;
    std::size_t mPointCount = 0;  ///< In all pages.
    std::vector<Page> mPages;
    std::vector<Placed> mPlaced;  ///< Of the nodes of the last update.
    std::vector<Range> mRanges;
    std::vector<std::size_t> mUploads;
    std::vector<std::size_t> mPending;
    std::size_t mPointsLeft = 0;
};

}  // namespace Render
