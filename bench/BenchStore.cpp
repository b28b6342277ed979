#include <bench/BenchStore.h>

#include <core/File.h>
#include <tools/lumaro/SampleScene.h>

#include <cstdlib>
#include <cstring>
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
