#pragma once

#include <octree/OctreeNodeId.h>
#include <tests/support/PotreeFixture.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Support {

/// A small, valid COPC file of point format 7: a public encoder's LAZ file of one point a chunk, put in
/// order. Each node has one point. What lies below level 1 stands in pages of its own.
struct CopcFixture {
    struct Entry {
        Octree::OctreeNodeId id;
        std::uint64_t offset = 0;
        std::int32_t size = 0;
        std::int32_t count = 0;
    };

    CopcFixture();

    /// Of the LAZ file that it is made of.
    static std::string source();

    /// Writes pages, the file, and sets offset and size of the entries that are links.
    void write();
    std::filesystem::path path() const { return folder.path() / "cloud.copc.laz"; }

    TemporaryFolder folder;
    /// All up to the first page.
    std::string beginning;
    /// By the node that the page begins with.
    std::map<Octree::OctreeNodeId, std::vector<Entry>> pages;
    std::string file;

private:
    void appendRecords(const std::string& laz);
    void appendChunks(const std::string& laz);
};

/// Where the record that describes the octree has its numbers, in the file.
constexpr std::size_t COPC_INFO = 375 + 54;
constexpr std::size_t COPC_ROOT_PAGE = COPC_INFO + 40;

}  // namespace Support
