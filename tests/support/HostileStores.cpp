#include <octree/OctreeNodeId.h>
#include <tests/support/HostileStores.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

namespace Support::Hostile {

namespace {

using Octree::OctreeNodeId;

constexpr std::size_t RECORD = 22;

void setRoot(PotreeFixture& store, const std::string& records) {
    store.hierarchy = records;
    store.firstChunkSize = records.size();
    store.metadata["hierarchy"]["firstChunkSize"] = records.size();
}

void setR4(PotreeFixture& store, const std::string& records) {
    store.hierarchy.replace(2 * RECORD, RECORD, hierarchyRecord(2, 0, 0, 3 * RECORD, records.size()));
    store.hierarchy.replace(3 * RECORD, std::string::npos, records);
}

std::string repeated(const std::string& record, std::size_t times) {
    std::string result;
    result.reserve(times * record.size());
    for (std::size_t i = 0; i < times; ++i) {
        result += record;
    }
    return result;
}

template <class Record>
std::string completeTree(std::size_t levels, Record record) {
    std::string records;
    for (std::size_t level = 0, nodes = 1; level <= levels; ++level, nodes *= 8) {
        records += repeated(record(level < levels ? 255U : 0U), nodes);
    }
    return records;
}

/// The first node four levels further down whose hash falls into the lowest slots; the node if there is none.
OctreeNodeId collidingBelow(OctreeNodeId id) {
    constexpr std::size_t TABLE = std::size_t{1} << 23, SLOTS = std::size_t{1} << 11;
    for (std::size_t path = 0; path < 4096; ++path) {
        OctreeNodeId leaf = id;
        for (std::size_t level = 0; level < 4; ++level) {
            leaf = leaf.child(path >> 3 * level & 7);
        }
        if (std::hash<OctreeNodeId>()(leaf) % TABLE < SLOTS) {
            return leaf;
        }
    }
    return id;
}

/// In the order of a hierarchy chunk, from the root on.
std::string recordsOf(std::vector<OctreeNodeId> nodes) {
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (!nodes[i].isRoot() && (i == 0 || nodes[i].parent() != nodes[i - 1].parent())) {
            nodes.push_back(nodes[i].parent());
        }
    }
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    std::string records;
    auto child = nodes.begin() + 1;
    for (const OctreeNodeId node : nodes) {
        unsigned mask = 0;
        for (; child != nodes.end() && child->parent() == node; ++child) {
            mask |= 1U << child->childIndex();
        }
        records += hierarchyRecord(mask == 0 ? 1 : 0, mask, 0, 0, 0);
    }
    return records;
}

}  // namespace

void fillRoot(PotreeFixture& store, std::uint32_t points, unsigned moreBytes, std::size_t noise) {
    constexpr std::size_t BYTES_PER_POINT = 26;  // in Brotli
    std::string bytes((BYTES_PER_POINT + moreBytes) * points, '\0');
    if (moreBytes > 0) {
        store.metadata["attributes"].push_back(attribute("more", moreBytes, "undefined"));
    }
    std::mt19937 random;
    for (std::size_t i = 0; i < noise; ++i) {
        bytes[BYTES_PER_POINT * points + i] = static_cast<char>(random() & 0xff);
    }
    store.octree = brotliEncode(bytes);
    store.metadata["points"] = points;
    setRoot(store, hierarchyRecord(1, 0, points, 0, store.octree.size()));
}

void nameEightChildren(PotreeFixture& store, std::size_t records, bool isBelowR4) {
    const std::string chunk = repeated(hierarchyRecord(0, 255, 0, 0, 0), records);
    isBelowR4 ? setR4(store, chunk) : setRoot(store, chunk);
}

void growBelowR4(PotreeFixture& store, std::size_t levels) {
    setR4(store, completeTree(levels, [](unsigned mask) { return hierarchyRecord(0, mask, 0, 0, 0); }));
}

void shareBytes(PotreeFixture& store, std::size_t levels) {
    constexpr std::uint32_t POINTS = 1000;
    fillRoot(store, POINTS);
    store.metadata["scale"] = {1000.0, 1000.0, 1000.0};  // Every node is within some steps of every point.
    setRoot(store, completeTree(levels, [&](unsigned mask) {
                return hierarchyRecord(0, mask, POINTS, 0, store.octree.size());
            }));
}

void floodHash(PotreeFixture& store, std::size_t subtrees) {
    std::vector<OctreeNodeId> nodes;
    for (std::size_t i = 0; i < subtrees; ++i) {
        OctreeNodeId id;
        for (std::size_t level = 7; level-- > 0;) {
            id = id.child(i >> 3 * level & 7);
        }
        nodes.push_back(collidingBelow(id));
    }
    setRoot(store, recordsOf(std::move(nodes)));
}

}  // namespace Support::Hostile
