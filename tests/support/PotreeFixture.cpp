#include <brotli/encode.h>

#include <tests/support/PotreeFixture.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace Support {

namespace {

std::uint64_t interleave(std::uint64_t a, std::uint64_t b, std::uint64_t c) {
    std::uint64_t code = 0;
    for (unsigned bit = 0; bit < 16; ++bit) {
        code |=
            (a >> bit & 1) << (3 * bit) | (b >> bit & 1) << (3 * bit + 1) | (c >> bit & 1) << (3 * bit + 2);
    }
    return code;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    const auto base = std::filesystem::temp_directory_path();
    for (int attempt = 0;; ++attempt) {
        mPath = base / ("lumaro-test-" + std::to_string(now) + "-" + std::to_string(attempt));
        if (std::filesystem::create_directory(mPath)) {
            return;
        }
    }
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

void TemporaryFolder::write(const std::string& file, const std::string& bytes) const {
    std::ofstream stream(mPath / file, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + file);
    }
}

std::string TemporaryFolder::read(const std::string& file) const {
    std::ifstream stream(mPath / file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

std::string hierarchyRecord(unsigned type, unsigned childMask, std::uint32_t pointCount, std::uint64_t offset,
                            std::uint64_t size, unsigned visibility) {
    return bytesOf(static_cast<std::uint8_t>(type | visibility << 4)) +
           bytesOf(static_cast<std::uint8_t>(childMask)) + bytesOf(pointCount) + bytesOf(offset) +
           bytesOf(size);
}

std::string positionCode(std::int32_t x, std::int32_t y, std::int32_t z) {
    const auto a = static_cast<std::uint32_t>(x);
    const auto b = static_cast<std::uint32_t>(y);
    const auto c = static_cast<std::uint32_t>(z);
    return bytesOf(interleave(a >> 16, b >> 16, c >> 16)) + bytesOf(interleave(a, b, c));
}

std::string colorCode(unsigned r, unsigned g, unsigned b) {
    return bytesOf(interleave(r, g, b));
}

std::string brotliEncode(const std::string& bytes) {
    std::size_t size = BrotliEncoderMaxCompressedSize(bytes.size());
    std::string result(size, '\0');
    if (BrotliEncoderCompress(6, 22, BROTLI_MODE_GENERIC, bytes.size(),
                              reinterpret_cast<const std::uint8_t*>(bytes.data()), &size,
                              reinterpret_cast<std::uint8_t*>(result.data())) == BROTLI_FALSE) {
        throw std::runtime_error("Brotli could not encode");
    }
    result.resize(size);
    return result;
}

nlohmann::json attribute(const std::string& name, unsigned size, const std::string& type) {
    return {{"name", name}, {"size", size}, {"type", type}};
}

PotreeFixture::PotreeFixture(const std::string& encoding) {
    metadata = {{"version", "2.0"},
                {"name", "fixture"},
                {"points", 7},
                {"offset", {1000.0, 2000.0, 3000.0}},
                {"scale", {0.25, 0.25, 0.25}},
                {"spacing", 2.0},
                {"boundingBox", {{"min", {1000.0, 2000.0, 3000.0}}, {"max", {1256.0, 2256.0, 3256.0}}}},
                {"encoding", encoding}};
    metadata["attributes"] = {attribute("position", 12, "int32"), attribute("intensity", 2, "uint16"),
                              attribute("rgb", 6, "uint16")};
    metadata["attributes"][0]["min"] = {1000.0, 2000.0, 3000.0};
    metadata["attributes"][0]["max"] = {1256.0, 2128.0, 3256.0};
    metadata["attributes"][2]["max"] = {255, 255, 255};

    const auto addChunk = [&](const std::vector<std::array<std::int32_t, 3>>& points) {
        std::string positions, intensities, colors, records;
        for (const auto& point : points) {
            const auto [x, y, z] = point;
            const std::string intensity = bytesOf(static_cast<std::uint16_t>(x + 7));
            const std::array<std::uint16_t, 3> color{static_cast<std::uint16_t>(x & 255),
                                                     static_cast<std::uint16_t>(y & 255), 17};
            positions += positionCode(x, y, z);
            intensities += intensity;
            colors += colorCode(color[0], color[1], color[2]);
            records += bytesOf(point) + intensity + bytesOf(color);
        }
        const std::string chunk =
            encoding == "BROTLI" ? brotliEncode(positions + intensities + colors) : records;
        chunks.push_back({octree.size(), chunk.size()});
        octree += chunk;
    };
    addChunk({{0, 0, 0}, {1024, 512, 1024}, {600, 300, 20}});
    addChunk({{10, 20, 1000}});
    addChunk({{700, 100, 30}, {701, 101, 31}});
    addChunk({{900, 500, 40}});

    const auto record = [this](unsigned type, unsigned mask, std::uint32_t count, std::size_t chunk) {
        return hierarchyRecord(type, mask, count, chunks[chunk][0], chunks[chunk][1]);
    };
    hierarchy = record(0, 0b00010010, 3, 0) + record(1, 0, 1, 1) + hierarchyRecord(2, 0, 2, 66, 66);
    firstChunkSize = hierarchy.size();
    hierarchy += record(1, 0b01001000, 2, 2) + hierarchyRecord(0, 0, 0, 0, 0) + record(0, 0, 1, 3);
    metadata["hierarchy"] = {{"firstChunkSize", firstChunkSize}, {"stepSize", 1}, {"depth", 0}};
    writeAll();
}

void PotreeFixture::writeAll() const {
    writeMetadata();
    folder.write("hierarchy.bin", hierarchy);
    folder.write("octree.bin", octree);
}

}  // namespace Support
