#include <tools/lumaro/PotreeStoreWriter.h>

#include <octree/OctreeNodeId.h>
#include <tools/lumaro/NodeEncoder.h>
#include <tools/lumaro/PotreeMetadata.h>
#include <tools/lumaro/Random.h>
#include <tools/lumaro/SampledOctree.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace Tool {

namespace {

namespace fs = std::filesystem;
using Octree::OctreeNodeId;

constexpr size_t RECORD_SIZE = 22;
constexpr unsigned STEP_SIZE = HIERARCHY_STEP_SIZE;

struct Span {
    uint64_t offset = 0;
    uint64_t size = 0;
};

/// The nodes of one hierarchy chunk in breadth-first order; all but the first of a step level are proxies.
struct Chunk {
    std::vector<OctreeNodeId> nodes;
    Span span;
};

std::string utf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

/// The folder's path with the suffix and, where that name is taken, a number.
fs::path unusedSibling(fs::path folder, const char* suffix) {
    if (!folder.has_filename()) {
        folder = folder.parent_path();
    }
    folder += suffix;
    fs::path candidate = folder;
    for (int number = 2; fs::exists(candidate); ++number) {
        candidate = folder;
        candidate += std::to_string(number);
    }
    return candidate;
}

class OutputFile {
public:
    explicit OutputFile(const fs::path& path)
        : mPath(path), mStream(path, std::ios::binary | std::ios::trunc) {
        check();
    }
    Span append(std::string_view bytes) {
        const Span span{mSize, bytes.size()};
        mStream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        mSize += bytes.size();
        check();
        return span;
    }
    void close() {
        mStream.close();
        check();
    }

private:
    void check() const {
        if (!mStream) {
            throw std::runtime_error("cannot write " + utf8(mPath));
        }
    }

    fs::path mPath;
    std::ofstream mStream;
    uint64_t mSize = 0;
};

/// Removes the unfinished folder on every way out that does not end in the rename.
class PartialFolder {
public:
    explicit PartialFolder(fs::path path) : mPath(std::move(path)) { fs::create_directories(mPath); }
    ~PartialFolder() {
        std::error_code ignored;
        fs::remove_all(mPath, ignored);
    }
    PartialFolder(const PartialFolder&) = delete;
    PartialFolder& operator=(const PartialFolder&) = delete;

    const fs::path& path() const { return mPath; }

private:
    fs::path mPath;
};

void requireReplaceable(const fs::path& folder) {
    if (!fs::exists(folder)) {
        return;
    }
    if (!fs::is_directory(folder)) {
        throw std::runtime_error(utf8(folder) + " exists and is not a folder");
    }
    size_t files = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string name = utf8(entry.path().filename());
        const bool ofStore = name == "metadata.json" || name == "hierarchy.bin" || name == "octree.bin";
        if (!ofStore && name != "thumbnail.png") {
            throw std::runtime_error(utf8(folder) + " is not a point cloud store (it holds " + name +
                                     "): not replaced");
        }
        files += ofStore ? 1U : 0U;
    }
    if (files != 3 && !fs::is_empty(folder)) {
        throw std::runtime_error(utf8(folder) + " is not a complete point cloud store: not replaced");
    }
}

void moveIntoPlace(const fs::path& partial, const fs::path& folder) {
    if (!fs::exists(folder)) {
        fs::rename(partial, folder);
        return;
    }
    const fs::path old = unusedSibling(folder, ".old");
    fs::rename(folder, old);
    try {
        fs::rename(partial, folder);
    } catch (...) {
        std::error_code ignored;
        fs::rename(old, folder, ignored);
        throw;
    }
    fs::remove_all(old);
}

std::vector<Chunk> hierarchyChunks(const SampledOctree& tree) {
    std::vector<Chunk> chunks(1);
    chunks[0].nodes = {OctreeNodeId()};
    uint64_t offset = 0;
    for (size_t c = 0; c < chunks.size(); ++c) {
        for (size_t n = 0; n < chunks[c].nodes.size(); ++n) {
            const OctreeNodeId id = chunks[c].nodes[n];
            if (n > 0 && id.level() % STEP_SIZE == 0) {
                chunks.push_back({{id}, {}});
                continue;
            }
            const unsigned mask = tree.childMask(id);
            for (unsigned i = 0; i < 8; ++i) {
                if ((mask >> i & 1U) != 0) {
                    chunks[c].nodes.push_back(id.child(i));
                }
            }
        }
        chunks[c].span = {offset, chunks[c].nodes.size() * RECORD_SIZE};
        offset += chunks[c].span.size;
    }
    return chunks;
}

void appendLittleEndian(std::string& bytes, uint64_t value, unsigned size) {
    for (unsigned i = 0; i < size; ++i) {
        bytes.push_back(static_cast<char>(value >> (8 * i) & 0xffU));
    }
}

std::string hierarchyBytes(const SampledOctree& tree, const std::vector<Chunk>& chunks,
                           const std::map<OctreeNodeId, Span>& payloads) {
    std::map<OctreeNodeId, Span> chunkOfRoot;
    for (const Chunk& chunk : chunks) {
        chunkOfRoot.emplace(chunk.nodes.front(), chunk.span);
    }

    std::string bytes;
    for (const Chunk& chunk : chunks) {
        for (size_t n = 0; n < chunk.nodes.size(); ++n) {
            const OctreeNodeId id = chunk.nodes[n];
            const bool proxy = n > 0 && id.level() % STEP_SIZE == 0;
            const unsigned mask = proxy ? 0 : tree.childMask(id);
            const Span span = proxy ? chunkOfRoot.at(id) : payloads.at(id);
            const unsigned type = proxy ? 2 : (mask == 0 ? 1 : 0);
            appendLittleEndian(bytes, type, 1);
            appendLittleEndian(bytes, mask, 1);
            appendLittleEndian(bytes, tree.nodes().at(id).size(), 4);
            appendLittleEndian(bytes, span.offset, 8);
            appendLittleEndian(bytes, span.size, 8);
        }
    }
    return bytes;
}

std::string nodeBytes(const std::vector<StorePoint>& points, const std::vector<uint32_t>& indices,
                      const StoreWriteOptions& options) {
    return options.encoding == StoreEncoding::Uncompressed
               ? encodeNodeRecords(points, indices)
               : brotliEncode(encodeNodeColumns(points, indices), options.brotliQuality);
}

/// The smallest cube whose borders stay whole steps down to the deepest level.
int32_t cubeSideOf(const std::vector<StorePoint>& points) {
    constexpr int32_t UNIT = 1 << SampledOctree::MAX_LEVEL;
    int32_t highest = 0;
    for (const StorePoint& point : points) {
        for (const int32_t coordinate : point.position) {
            highest = std::max(highest, coordinate);
        }
    }
    if (highest >= 0x7fffffff - UNIT) {
        throw std::invalid_argument("the points lie too far apart for the store's scale");
    }
    return (highest / UNIT + 1) * UNIT;
}

}  // namespace

bool writePotreeStore(const fs::path& folder, const StoreDescription& description,
                      std::vector<StorePoint> points, const StoreWriteOptions& options) {
    requireReplaceable(folder);
    Random(1).shuffle(points, options.stop);
    const int32_t cubeSide = cubeSideOf(points);
    const SampledOctree tree(points, cubeSide, options.maxLeafPoints, options.stop);
    if (options.stop.stop_requested()) {
        return false;
    }

    const PartialFolder partial(unusedSibling(folder, ".partial"));
    OutputFile octreeFile(partial.path() / "octree.bin");
    std::map<OctreeNodeId, Span> payloads;
    size_t written = 0;
    for (const auto& [id, indices] : tree.nodes()) {
        if (options.stop.stop_requested()) {
            return false;
        }
        payloads[id] = indices.empty() ? Span{} : octreeFile.append(nodeBytes(points, indices, options));
        written += indices.size();
        if (options.onProgress && written != 0) {
            options.onProgress(static_cast<double>(written) / static_cast<double>(points.size()));
        }
    }
    octreeFile.close();

    const std::vector<Chunk> chunks = hierarchyChunks(tree);
    OutputFile hierarchyFile(partial.path() / "hierarchy.bin");
    hierarchyFile.append(hierarchyBytes(tree, chunks, payloads));
    hierarchyFile.close();
    OutputFile metadataFile(partial.path() / "metadata.json");
    metadataFile.append(potreeMetadata(description, points, cubeSide,
                                       static_cast<size_t>(chunks.front().span.size),
                                       tree.nodes().rbegin()->first.level(), options.encoding));
    metadataFile.close();
    moveIntoPlace(partial.path(), folder);
    return true;
}

}  // namespace Tool
