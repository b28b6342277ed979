#include <tests/octree/entwine/EptFixture.h>

#include <zstd.h>
#include <filesystem>
#include <stdexcept>

namespace Support {

std::vector<Octree::OctreeNodeId> allNodes(Octree::NodeSource& source) {
    std::vector<Octree::OctreeNodeId> nodes{Octree::OctreeNodeId()};
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        Octree::NodeFacts facts;
        source.nodeFacts(nodes[i], facts, {});
        for (std::size_t child = 0; child < 8; ++child) {
            if ((facts.childMask >> child & 1) != 0) {
                nodes.push_back(nodes[i].child(child));
            }
        }
        if (i == 1000) {
            throw std::runtime_error("there is no end to the nodes");
        }
    }
    return nodes;
}

std::string zstandardEncode(const std::string& bytes) {
    // Streamed, as stores have it: the frame does not say how large its content is.
    ZSTD_CStream* const stream = ZSTD_createCStream();
    std::string result(ZSTD_compressBound(bytes.size()) + 64, '\0');
    ZSTD_outBuffer output{result.data(), result.size(), 0};
    ZSTD_inBuffer input{bytes.data(), bytes.size(), 0};
    ZSTD_initCStream(stream, 3);
    ZSTD_compressStream(stream, &output, &input);
    const std::size_t left = ZSTD_endStream(stream, &output);
    ZSTD_freeCStream(stream);
    if (left != 0) {
        throw std::runtime_error("zstd could not encode");
    }
    result.resize(output.pos);
    return result;
}

nlohmann::json dimension(const std::string& name, const std::string& type, unsigned size, double scale,
                         double offset) {
    nlohmann::json result{{"name", name}, {"type", type}, {"size", size}};
    if (scale != 1.0) {
        result["scale"] = scale;
    }
    if (offset != 0.0) {
        result["offset"] = offset;
    }
    return result;
}

EptFixture::EptFixture(const std::string& dataType) {
    metadata = {{"version", "1.1.0"},
                {"dataType", dataType},
                {"hierarchyType", "json"},
                {"points", 7},
                {"span", 128},
                {"bounds", {1000, 2000, 3000, 1256, 2256, 3256}},
                {"boundsConforming", {1001, 2001, 3001, 1255, 2255, 3255}},
                {"schema",
                 {dimension("X", "signed", 4, 0.25, 1128), dimension("Y", "signed", 4, 0.25, 2128),
                  dimension("Z", "signed", 4, 0.25, 3128), dimension("Intensity", "unsigned", 2),
                  dimension("Classification", "unsigned", 1), dimension("Red", "unsigned", 2),
                  dimension("Green", "unsigned", 2), dimension("Blue", "unsigned", 2)}}};
    hierarchy["0-0-0-0"] = {{"0-0-0-0", 3}, {"1-0-0-1", 1}, {"1-1-0-0", -1}};
    hierarchy["1-1-0-0"] = {{"1-1-0-0", 2}, {"2-2-1-0", 1}, {"2-2-1-1", 0}};
    tiles["0-0-0-0"] = record(-500, -500, -500, 10, 2, 1, 2, 3) + record(0, 0, 0, 20, 3, 4, 5, 6) +
                       record(500, 500, 500, 65535, 4, 255, 254, 253);
    tiles["1-0-0-1"] = record(-400, -300, 200, 30, 5, 7, 8, 9);
    tiles["1-1-0-0"] = record(100, -100, -200, 40) + record(200, -200, -100, 50);
    tiles["2-2-1-0"] = record(128, -128, -400, 60);
    for (const char* const name : {"ept-data", "ept-hierarchy"}) {
        std::filesystem::create_directory(folder.path() / name);
    }
    writeAll();
}

std::string EptFixture::record(std::int32_t x, std::int32_t y, std::int32_t z, unsigned intensity,
                               unsigned classification, unsigned r, unsigned g, unsigned b) {
    const auto u16 = [](unsigned value) { return bytesOf(static_cast<std::uint16_t>(value)); };
    return bytesOf(x) + bytesOf(y) + bytesOf(z) + u16(intensity) +
           bytesOf(static_cast<std::uint8_t>(classification)) + u16(r) + u16(g) + u16(b);
}

void EptFixture::writeAll() const {
    writeMetadata();
    for (const auto& [key, nodes] : hierarchy) {
        folder.write(hierarchyFile(key), nodes.dump());
    }
    for (const auto& [key, records] : tiles) {
        writeTile(key, records);
    }
}

void EptFixture::writeTile(const std::string& key, const std::string& records) const {
    folder.write(tileFile(key), metadata["dataType"] == "zstandard" ? zstandardEncode(records) : records);
}

std::string EptFixture::tileFile(const std::string& key) const {
    const std::string type = metadata["dataType"];
    return "ept-data/" + key + (type == "zstandard" ? ".zst" : type == "laszip" ? ".laz" : ".bin");
}

}  // namespace Support
