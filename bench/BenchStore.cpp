#include <bench/BenchStore.h>

#include <core/File.h>
#include <octree/Location.h>
#include <octree/NodeChildren.h>
#include <octree/copc/Store.h>
#include <octree/entwine/EntwineTree.h>
#include <octree/potree/Store.h>
#include <tools/lumaro/SampleScene.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using Octree::OctreeNodeId;

template <class T>
T valueAt(const std::string& bytes, size_t offset) {
    T value{};
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

template <class T>
void append(std::string& bytes, T value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Ground of four children a node; the nodes after the first million, level by level, are left out.
bool isInMillion(OctreeNodeId id) {
    uint64_t number = 0;
    uint64_t before = 0;
    for (size_t level = 0; level < id.level(); ++level) {
        number = number << 2U | (id.code() >> 3U * (id.level() - 1 - level) & 7U) >> 1U;
        before = before * 4 + 1;
    }
    return before + number < 1000000;
}

unsigned childMask(OctreeNodeId id) {
    unsigned mask = 0;
    for (unsigned child = 0; child < 8; child += 2) {
        mask |= isInMillion(id.child(child)) ? 1U << child : 0U;
    }
    return mask;
}

constexpr uint32_t POINTS_OF_MILLION = 1000;
constexpr uint64_t BYTES_OF_MILLION = 18000;

/// Records of the subtree of four levels below a root of one; those of the level after that stand for
/// subtrees of their own, which begin where next says.
std::string hierarchyOfMillion(size_t& firstChunkSize) {
    constexpr uint64_t RECORD = 22;
    std::vector<std::vector<OctreeNodeId>> chunks{{OctreeNodeId()}};
    std::vector<uint64_t> offsets{0};
    for (size_t c = 0; c < chunks.size(); ++c) {
        for (size_t n = 0; n < chunks[c].size(); ++n) {
            const OctreeNodeId id = chunks[c][n];
            if (n > 0 && id.level() % 4 == 0) {
                chunks.push_back({id});
                continue;
            }
            for (const OctreeNodeId child : Octree::NodeChildren(id, static_cast<uint8_t>(childMask(id)))) {
                chunks[c].push_back(child);
            }
        }
        offsets.push_back(offsets.back() + chunks[c].size() * RECORD);
    }
    firstChunkSize = offsets[1];
    std::string bytes;
    size_t next = 1;
    for (const auto& chunk : chunks) {
        for (size_t n = 0; n < chunk.size(); ++n) {
            const bool isProxy = n > 0 && chunk[n].level() % 4 == 0;
            const unsigned mask = isProxy ? 0 : childMask(chunk[n]);
            append(bytes, static_cast<uint8_t>(isProxy ? 2 : mask == 0 ? 1 : 0));
            append(bytes, static_cast<uint8_t>(mask));
            append(bytes, POINTS_OF_MILLION);
            append(bytes, isProxy ? offsets[next] : uint64_t{0});
            append(bytes, isProxy ? offsets[next + 1] - offsets[next] : BYTES_OF_MILLION);
            next += isProxy ? 1 : 0;
        }
    }
    return bytes;
}

nlohmann::json attribute(const char* name, const char* type, int size, double max) {
    const std::vector<double> low(3, 0.0);
    const std::vector<double> high(3, max);
    return {{"name", name},        {"type", type}, {"size", 3 * size}, {"numElements", 3},
            {"elementSize", size}, {"min", low},   {"max", high}};
}

nlohmann::json metadataOfMillion(size_t firstChunkSize) {
    const std::vector<double> low(3, 0.0);
    const std::vector<double> high(3, 16384.0);
    return {
        {"version", "2.0"},
        {"name", "million nodes"},
        {"points", 1000000000},
        {"hierarchy", {{"firstChunkSize", firstChunkSize}, {"stepSize", 4}, {"depth", 10}}},
        {"offset", low},
        {"scale", std::vector<double>(3, 0.01)},
        {"spacing", 128.0},
        {"boundingBox", {{"min", low}, {"max", high}}},
        {"encoding", "UNCOMPRESSED"},
        {"attributes", {attribute("position", "int32", 4, 16384.0), attribute("rgb", "uint16", 2, 65535.0)}}};
}

void write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

fs::path benchStore() {
    if (const char* const named = std::getenv("LUMARO_BENCH_STORE")) {
        return named;
    }
    fs::path store = fs::temp_directory_path() / "lumaro-bench-sample-1m";
    if (!fs::exists(store / "metadata.json")) {
        Tool::writeSampleStore(store, Tool::DEFAULT_SAMPLE_POINTS);
    }
    return store;
}

std::shared_ptr<Octree::NodeSource> openBenchSource() {
    const Octree::Location location = Octree::Location::fromPath(benchStore());
    if (const Entwine::FileSystemLocation* const entwine = location.entwine()) {
        return std::make_shared<Entwine::EntwineTree>(*entwine);
    }
    if (const Copc::FileLocation* const copc = location.copc()) {
        return std::make_shared<Copc::Store>(*copc);
    }
    return std::make_shared<PoTree::Store>(*location.potree());
}

fs::path millionNodeStore() {
    const fs::path store = fs::temp_directory_path() / "lumaro-bench-million-nodes";
    if (!fs::exists(store / "metadata.json")) {
        size_t firstChunkSize = 0;
        fs::create_directories(store);
        write(store / "octree.bin", "no points");
        write(store / "hierarchy.bin", hierarchyOfMillion(firstChunkSize));
        write(store / "metadata.json", metadataOfMillion(firstChunkSize).dump(1));
    }
    return store;
}

std::vector<NodeChunk> readNodeChunks(const fs::path& store) {
    constexpr size_t RECORD = 22;
    const std::string hierarchy = Core::readLocalFile(store / "hierarchy.bin");
    const std::string octree = Core::readLocalFile(store / "octree.bin");
    const auto metadata = nlohmann::json::parse(Core::readLocalFile(store / "metadata.json"));

    struct HierarchyChunk {
        OctreeNodeId root;
        uint64_t offset;
        uint64_t size;
    };
    std::vector<HierarchyChunk> open{
        {OctreeNodeId(), 0, metadata["hierarchy"]["firstChunkSize"].get<uint64_t>()}};
    std::vector<NodeChunk> chunks;
    while (!open.empty()) {
        const HierarchyChunk chunk = open.back();
        open.pop_back();
        std::vector<OctreeNodeId> ids{chunk.root};
        for (size_t n = 0; n < chunk.size / RECORD; ++n) {
            const size_t at = chunk.offset + n * RECORD;
            const auto offset = valueAt<uint64_t>(hierarchy, at + 6);
            const auto size = valueAt<uint64_t>(hierarchy, at + 14);
            const auto points = valueAt<uint32_t>(hierarchy, at + 2);
            if ((hierarchy[at] & 15) == 2) {
                open.push_back({ids[n], offset, size});
                continue;
            }
            for (unsigned i = 0; i < 8; ++i) {
                if ((static_cast<unsigned char>(hierarchy[at + 1]) >> i & 1U) != 0) {
                    ids.push_back(ids[n].child(i));
                }
            }
            if (points > 0 && size > 0) {
                chunks.push_back({ids[n], points, octree.substr(offset, size)});
            }
        }
    }
    return chunks;
}
