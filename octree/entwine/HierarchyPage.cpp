#include <octree/OpenStopped.h>
#include <octree/RandomAccessFile.h>
#include <octree/StoreError.h>
#include <octree/entwine/HierarchyPage.h>
#include <octree/entwine/NodeKey.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

namespace Entwine {

namespace {

using Octree::OctreeNodeId;
using Octree::StoreError;

/// More than a million nodes in one file, where stores have thousands.
constexpr std::uint64_t MAX_FILE_SIZE = std::uint64_t{32} << 20;
/// In memory for one of a file while it is parsed: "0-0-0-0":1, becomes an entry in a list that doubles.
constexpr std::uint64_t PARSED_BYTES_PER_BYTE = 8;
constexpr std::uint64_t MAX_POINT_COUNT = 0xffffffffu;
constexpr std::size_t MAX_SHOWN_KEY = 100;
/// Nodes compared or joined with their parents between two looks at the stop token.
constexpr std::size_t STOP_STEP = 65536;

struct Entry {
    OctreeNodeId id;
    std::uint32_t pointCount = 0;
    bool isLink = false;
};

/// Takes the file's keys and counts as the parser meets them.
class PageBuilder final : public nlohmann::json_sax<nlohmann::json> {
public:
    PageBuilder(const std::filesystem::path& file, OctreeNodeId root, const std::stop_token& stop)
        : mFile(file), mRoot(root), mStop(stop) {}

    // The nodes in the order of their ids. Throws OpenStopped.
    std::unique_ptr<HierarchyNode[]> finish(Octree::MemoryBudget& budget, std::vector<OctreeNodeId>& ids) {
        sort();
        if (mEntries.empty() && mRoot.isRoot()) {
            mEntries.emplace_back();
        }
        if (mEntries.empty() || mEntries.front().id != mRoot) {
            throw StoreError(mFile, NodeKey(mRoot).text(), "is missing");
        }
        const std::uint64_t kept = mEntries.size() * (sizeof(HierarchyNode) + sizeof(OctreeNodeId));
        budget.keep(kept, mFile, NodeKey(mRoot).text());
        auto nodes = std::make_unique<HierarchyNode[]>(mEntries.size());
        ids.reserve(mEntries.size());
        for (const Entry& entry : mEntries) {
            HierarchyNode& node = nodes[ids.size()];
            node.pointCount = entry.pointCount;
            node.isLink = entry.isLink;
            if (!ids.empty()) {
                addToParent(entry.id, ids, nodes.get());
            }
            ids.push_back(entry.id);
            lookAtStop();
        }
        return nodes;
    }

    bool start_object(std::size_t) override {
        if (mIsOpen) {
            failHere("is not a point count");
        }
        mIsOpen = true;
        return true;
    }
    bool end_object() override { return true; }

    bool key(std::string& text) override {
        mKey = NodeKey::parse(text);
        mKeyText = text.substr(0, MAX_SHOWN_KEY);
        if (!mKey) {
            failHere("is not the name of a node");
        }
        return !mStop.stop_requested();
    }

    bool number_integer(std::int64_t value) override {
        if (value != -1 || mKey == NodeKey(mRoot)) {
            failHere("has " + std::to_string(value) + " points");
        }
        add(0, true);
        return true;
    }

    bool number_unsigned(std::uint64_t value) override {
        if (value > MAX_POINT_COUNT) {
            failHere("has " + std::to_string(value) + " points, more than a node may have");
        }
        add(value, false);
        return true;
    }

    bool null() override { failHere("is not a point count"); }
    bool boolean(bool) override { failHere("is not a point count"); }
    bool number_float(double, const std::string&) override { failHere("is not a point count"); }
    bool string(std::string&) override { failHere("is not a point count"); }
    bool binary(binary_t&) override { failHere("is not a point count"); }
    bool start_array(std::size_t) override { failHere("is not a point count"); }
    bool end_array() override { return true; }

    bool parse_error(std::size_t position, const std::string&, const nlohmann::json::exception&) override {
        throw StoreError(mFile, "is not JSON at byte " + std::to_string(position));
    }

private:
    [[noreturn]] void failHere(const std::string& problem) const {
        if (mKeyText.empty()) {
            throw StoreError(mFile, "is not an object of point counts");
        }
        throw StoreError(mFile, mKeyText, problem);
    }

    void add(std::uint64_t pointCount, bool isLink) {
        if (!mKey) {
            failHere("is not below any");
        }
        const OctreeNodeId id = mKey->id();
        if (!isBelowRoot(id)) {
            failHere("is not below " + NodeKey(mRoot).text());
        }
        if (mKey->depth > OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
            return;
        }
        mEntries.push_back({id, static_cast<std::uint32_t>(pointCount), isLink});
    }

    void lookAtStop() {
        if (++mSteps % STOP_STEP == 0 && mStop.stop_requested()) {
            throw Octree::OpenStopped();
        }
    }

    void sort() {
        std::sort(mEntries.begin(), mEntries.end(), [this](const Entry& a, const Entry& b) {
            lookAtStop();
            return a.id < b.id;
        });
        const auto twice = std::adjacent_find(mEntries.begin(), mEntries.end(),
                                              [](const Entry& a, const Entry& b) { return a.id == b.id; });
        if (twice != mEntries.end()) {
            throw StoreError(mFile, NodeKey(twice->id).text(), "is there twice");
        }
    }

    // Parents stand before their children.
    void addToParent(OctreeNodeId id, const std::vector<OctreeNodeId>& ids, HierarchyNode* nodes) const {
        const auto parent = std::lower_bound(ids.begin(), ids.end(), id.parent());
        if (parent == ids.end() || *parent != id.parent()) {
            throw StoreError(mFile, NodeKey(id).text(), "its parent is missing");
        }
        HierarchyNode& node = nodes[parent - ids.begin()];
        if (node.isLink) {
            throw StoreError(mFile, NodeKey(id).text(), "its parent stands in another file");
        }
        node.childMask = static_cast<std::uint8_t>(node.childMask | 1u << id.childIndex());
    }

    bool isBelowRoot(OctreeNodeId id) const {
        return id.level() >= mRoot.level() && id.code() >> (3 * (id.level() - mRoot.level())) == mRoot.code();
    }

    const std::filesystem::path& mFile;
    const OctreeNodeId mRoot;
    const std::stop_token& mStop;
    std::vector<Entry> mEntries;
    std::size_t mSteps = 0;
    bool mIsOpen = false;
    std::optional<NodeKey> mKey;
    std::string mKeyText;
};

}  // namespace

std::unique_ptr<const HierarchyPage> HierarchyPage::read(const std::filesystem::path& path, OctreeNodeId root,
                                                         Octree::MemoryBudget& budget,
                                                         const std::stop_token& stop) {
    const Octree::RandomAccessFile file(path);
    if (file.size() > MAX_FILE_SIZE) {
        throw StoreError(path,
                         "is larger than any hierarchy file: " + std::to_string(file.size()) + " bytes");
    }
    budget.require(PARSED_BYTES_PER_BYTE * file.size(), path);
    std::string text(static_cast<std::size_t>(file.size()), '\0');
    if (!file.readAll(text.data(), stop)) {
        return nullptr;
    }
    PageBuilder builder(path, root, stop);
    if (!nlohmann::json::sax_parse(text, &builder)) {
        return nullptr;
    }
    try {
        std::vector<OctreeNodeId> ids;
        auto nodes = builder.finish(budget, ids);
        return std::unique_ptr<const HierarchyPage>(new HierarchyPage(std::move(ids), std::move(nodes)));
    } catch (const Octree::OpenStopped&) {
        return nullptr;
    }
}

HierarchyPage::HierarchyPage(std::vector<OctreeNodeId> ids, std::unique_ptr<HierarchyNode[]> nodes)
    : mIds(std::move(ids)), mNodes(std::move(nodes)) {}

const HierarchyNode* HierarchyPage::find(OctreeNodeId id) const {
    const auto found = std::lower_bound(mIds.begin(), mIds.end(), id);
    return found != mIds.end() && *found == id ? &mNodes[static_cast<std::size_t>(found - mIds.begin())]
                                               : nullptr;
}

}  // namespace Entwine
