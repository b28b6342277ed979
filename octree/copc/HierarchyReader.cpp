#include <octree/NodeKey.h>
#include <octree/StoreError.h>
#include <octree/copc/HierarchyReader.h>
#include <octree/las/LittleEndian.h>

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Copc {

namespace {

using Octree::HierarchyEntry;
using Octree::NodeKey;
using Octree::OctreeNodeId;
using Octree::StoreError;

constexpr std::size_t ENTRY_SIZE = 32;
/// A million nodes in one page, where files have thousands.
constexpr std::uint64_t MAX_PAGE_SIZE = std::uint64_t{32} << 20;
/// Entries read between two looks at the stop token.
constexpr std::size_t STOP_STEP = 65536;

class EntryReader {
public:
    EntryReader(const Octree::RandomAccessFile& file, OctreeNodeId root) : mFile(file), mRoot(root) {}

    // Of one entry; false for a node too deep to have an identifier.
    bool read(std::span<const std::byte> bytes, HierarchyEntry& entry) const {
        Las::FieldReader reader(bytes, "an entry");
        NodeKey key;
        key.depth = nextPlace(reader);
        key.x = nextPlace(reader);
        key.y = nextPlace(reader);
        key.z = nextPlace(reader);
        if (key.depth > NodeKey::MAX_DEPTH || (key.x | key.y | key.z) >> key.depth != 0) {
            fail(key, "is not the place of a node");
        }
        entry.range.offset = reader.next<std::uint64_t>();
        const auto size = reader.next<std::int32_t>();
        const auto count = reader.next<std::int32_t>();
        const bool isOwnLink = count == -1 && key == NodeKey(mRoot);
        if (count < -1 || size < 0 || isOwnLink || (count == 0 && size != 0)) {
            fail(key, "has " + std::to_string(count) + " points in " + std::to_string(size) + " bytes");
        }
        entry.range.size = static_cast<std::uint64_t>(size);
        entry.isLink = count == -1;
        entry.pointCount = entry.isLink ? 0 : static_cast<std::uint32_t>(count);
        if (count != 0 && !mFile.contains(entry.range.offset, entry.range.size)) {
            fail(key, std::to_string(size) + " bytes at " + std::to_string(entry.range.offset) +
                          " lie outside the file of " + std::to_string(mFile.size()) + " bytes");
        }
        entry.id = key.id();
        return key.depth <= OctreeNodeId::MAX_REPRESENTABLE_LEVEL;
    }

private:
    [[noreturn]] void fail(const NodeKey& key, const std::string& problem) const {
        throw StoreError(mFile.path(), key.text(), problem);
    }

    // A negative one becomes a place that no node has.
    static std::uint64_t nextPlace(Las::FieldReader& reader) {
        return static_cast<std::uint32_t>(reader.next<std::int32_t>());
    }

    const Octree::RandomAccessFile& mFile;
    const OctreeNodeId mRoot;
};

}  // namespace

HierarchyReader::HierarchyReader(std::shared_ptr<const Octree::RandomAccessFile> file,
                                 std::uint64_t pointCount, std::shared_ptr<Octree::MemoryBudget> budget)
    : mFile(std::move(file)), mPointCount(pointCount), mBudget(std::move(budget)) {}

void HierarchyReader::fail(OctreeNodeId root, const std::string& problem) const {
    throw StoreError(mFile->path(), NodeKey(root).text(), problem);
}

std::unique_ptr<const Octree::HierarchyPage> HierarchyReader::read(OctreeNodeId root,
                                                                   const Octree::ByteRange& range,
                                                                   const std::stop_token& stop) {
    std::vector<HierarchyEntry> entries;
    Totals totals = mTotals;
    --totals.openPages;
    if (!readEntries(root, range, entries, totals, stop)) {
        return nullptr;
    }
    if (totals.points > mPointCount || (totals.openPages == 0 && totals.points < mPointCount)) {
        fail(root, "with its hierarchy page the nodes have " + std::to_string(totals.points) +
                       " points, the header says " + std::to_string(mPointCount));
    }
    auto page = Octree::HierarchyPage::make(std::move(entries), root, true, mFile->path(), *mBudget, stop);
    if (page != nullptr) {
        mTotals = totals;
    }
    return page;
}

bool HierarchyReader::readEntries(OctreeNodeId root, const Octree::ByteRange& range,
                                  std::vector<HierarchyEntry>& entries, Totals& totals,
                                  const std::stop_token& stop) const {
    if (range.size % ENTRY_SIZE != 0 || range.size > MAX_PAGE_SIZE ||
        !mFile->contains(range.offset, range.size)) {
        fail(root, std::to_string(range.size) + " bytes at " + std::to_string(range.offset) +
                       " cannot be its hierarchy page");
    }
    const auto count = static_cast<std::size_t>(range.size / ENTRY_SIZE);
    mBudget->require(range.size + count * sizeof(HierarchyEntry), mFile->path(), NodeKey(root).text());
    std::vector<std::byte> bytes(static_cast<std::size_t>(range.size));
    if (!mFile->read(range.offset, bytes.size(), reinterpret_cast<char*>(bytes.data()), stop)) {
        return false;
    }
    const EntryReader reader(*mFile, root);
    entries.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (i % STOP_STEP == 0 && stop.stop_requested()) {
            return false;
        }
        HierarchyEntry entry;
        const bool hasId = reader.read(std::span(bytes).subspan(i * ENTRY_SIZE, ENTRY_SIZE), entry);
        totals.points += entry.pointCount;
        totals.openPages += entry.isLink ? 1 : 0;
        if (hasId) {
            entries.push_back(entry);
        }
    }
    return true;
}

}  // namespace Copc
