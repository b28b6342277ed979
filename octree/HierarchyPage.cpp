#include <octree/HierarchyPage.h>
#include <octree/NodeKey.h>
#include <octree/OpenStopped.h>
#include <octree/StoreError.h>

#include <algorithm>
#include <string>
#include <utility>

namespace Octree {

namespace {

/// Nodes compared or joined with their parents between two looks at the stop token.
constexpr std::size_t STOP_STEP = 65536;

std::string keyOf(OctreeNodeId id) {
    return NodeKey(id).text();
}

}  // namespace

class HierarchyPage::Builder {
public:
    Builder(std::vector<HierarchyEntry>& entries, OctreeNodeId root, const std::filesystem::path& file,
            const std::stop_token& stop)
        : mEntries(entries), mRoot(root), mFile(file), mStop(stop) {}

    // Throws OpenStopped.
    void sort() {
        std::sort(mEntries.begin(), mEntries.end(), [this](const HierarchyEntry& a, const HierarchyEntry& b) {
            lookAtStop();
            return a.id < b.id;
        });
        const auto twice =
            std::adjacent_find(mEntries.begin(), mEntries.end(),
                               [](const HierarchyEntry& a, const HierarchyEntry& b) { return a.id == b.id; });
        if (twice != mEntries.end()) {
            fail(twice->id, "is there twice");
        }
        if (mEntries.empty() && mRoot.isRoot()) {
            mEntries.emplace_back();
        }
        if (!mEntries.empty()) {
            requireBelowRoot(mEntries.front().id);
        }
        if (mEntries.empty() || mEntries.front().id != mRoot) {
            fail(mRoot, "is missing");
        }
    }

    void fill(HierarchyPage& page, bool hasRanges) {
        page.mNodes = std::make_unique<HierarchyNode[]>(mEntries.size());
        page.mIds.reserve(mEntries.size());
        page.mRanges.reserve(hasRanges ? mEntries.size() : 0);
        for (const HierarchyEntry& entry : mEntries) {
            HierarchyNode& node = page.mNodes[page.mIds.size()];
            node.pointCount = entry.pointCount;
            node.isLink = entry.isLink;
            if (!page.mIds.empty()) {
                addToParent(entry.id, page);
            }
            page.mIds.push_back(entry.id);
            if (hasRanges) {
                page.mRanges.push_back(entry.range);
            }
            lookAtStop();
        }
    }

private:
    [[noreturn]] void fail(OctreeNodeId id, const std::string& problem) const {
        throw StoreError(mFile, keyOf(id), problem);
    }

    void lookAtStop() {
        if (++mSteps % STOP_STEP == 0 && mStop.stop_requested()) {
            throw OpenStopped();
        }
    }

    void requireBelowRoot(OctreeNodeId id) const {
        if (id.level() < mRoot.level() || id.code() >> (3 * (id.level() - mRoot.level())) != mRoot.code()) {
            fail(id, "is not below " + keyOf(mRoot));
        }
    }

    // Parents stand before their children.
    void addToParent(OctreeNodeId id, const HierarchyPage& page) const {
        requireBelowRoot(id);
        const HierarchyNode* const parent = page.find(id.parent());
        if (parent == nullptr) {
            fail(id, "its parent is missing");
        }
        HierarchyNode& node = page.mNodes[static_cast<std::size_t>(parent - page.mNodes.get())];
        if (node.isLink) {
            fail(id, "its parent stands in another file");
        }
        node.childMask = static_cast<std::uint8_t>(node.childMask | 1u << id.childIndex());
    }

    std::vector<HierarchyEntry>& mEntries;
    const OctreeNodeId mRoot;
    const std::filesystem::path& mFile;
    const std::stop_token& mStop;
    std::size_t mSteps = 0;
};

std::unique_ptr<const HierarchyPage> HierarchyPage::make(std::vector<HierarchyEntry> entries,
                                                         OctreeNodeId root, bool hasRanges,
                                                         const std::filesystem::path& file,
                                                         MemoryBudget& budget, const std::stop_token& stop) {
    try {
        Builder builder(entries, root, file, stop);
        builder.sort();
        const std::size_t nodeSize =
            sizeof(HierarchyNode) + sizeof(OctreeNodeId) + (hasRanges ? sizeof(ByteRange) : 0);
        budget.require(entries.size() * nodeSize, file, keyOf(root));
        std::unique_ptr<HierarchyPage> page(new HierarchyPage());
        builder.fill(*page, hasRanges);
        budget.keep(entries.size() * nodeSize, file, keyOf(root));  // Not for a page that is tried again.
        return page;
    } catch (const OpenStopped&) {
        return nullptr;
    }
}

const HierarchyNode* HierarchyPage::find(OctreeNodeId id) const {
    const auto found = std::lower_bound(mIds.begin(), mIds.end(), id);
    return found != mIds.end() && *found == id ? &mNodes[static_cast<std::size_t>(found - mIds.begin())]
                                               : nullptr;
}

}  // namespace Octree
