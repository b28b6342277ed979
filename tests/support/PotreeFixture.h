#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Support {

/// A folder of its own under the system's temporary folder, removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::filesystem::path& path() const { return mPath; }
    void write(const std::string& file, const std::string& bytes) const;
    std::string read(const std::string& file) const;

private:
    std::filesystem::path mPath;
};

/// The pieces of a store, byte by byte; codes are Brotli's.
std::string hierarchyRecord(unsigned type, unsigned childMask, std::uint32_t pointCount, std::uint64_t offset,
                            std::uint64_t size, unsigned visibility = 0);
std::string positionCode(std::int32_t x, std::int32_t y, std::int32_t z);
std::string colorCode(unsigned r, unsigned g, unsigned b);
std::string brotliEncode(const std::string& bytes);
template <class T>
std::string bytesOf(T value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}
nlohmann::json attribute(const std::string& name, unsigned size, const std::string& type);

/// A small, valid store, in Brotli or, with another encoding, of records: coordinates 0 … 1024 in steps of
/// 1/4 from offset (1000, 2000, 3000), colours of 8 bits and intensities, in the nodes r (3 points), r1 (1
/// point), r4 (a proxy: 2 points), r43 (empty) and r46 (1 point).
struct PotreeFixture {
    explicit PotreeFixture(const std::string& encoding = "BROTLI");

    void writeAll() const;
    void writeMetadata() const { folder.write("metadata.json", metadata.dump()); }

    TemporaryFolder folder;
    nlohmann::json metadata;
    std::string hierarchy;
    std::string octree;
    std::size_t firstChunkSize = 0;
    /// Of each node's chunk in octree, in the order r, r1, r4, r46.
    std::vector<std::array<std::uint64_t, 2>> chunks;
};

}  // namespace Support
