#pragma once

#include <octree/NodeSource.h>
#include <tests/support/PotreeFixture.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Support {

/// Every node of a source, parents first; an exception when there are more than 1000.
std::vector<Octree::OctreeNodeId> allNodes(Octree::NodeSource& source);

std::string zstandardEncode(const std::string& bytes);

/// A dimension of a schema; scale and offset 1 and 0 are left out.
nlohmann::json dimension(const std::string& name, const std::string& type, unsigned size, double scale = 1.0,
                         double offset = 0.0);

/// A small, valid store with a cube from (1000, 2000, 3000) of side 256 in steps of 1/4, intensities, classes
/// and colours of 8 bits. Its nodes are 0-0-0-0 (3 points), 1-0-0-1 (1 point), and in a hierarchy file of
/// their own 1-1-0-0 (2 points), 2-2-1-0 (1 point) and 2-2-1-1 (empty).
struct EptFixture {
    explicit EptFixture(const std::string& dataType = "binary");

    /// A point's record, by its steps from the cube's centre.
    static std::string record(std::int32_t x, std::int32_t y, std::int32_t z, unsigned intensity = 0,
                              unsigned classification = 0, unsigned r = 0, unsigned g = 0, unsigned b = 0);

    void writeAll() const;
    void writeMetadata() const { folder.write("ept.json", metadata.dump()); }
    /// Replaces the file of a tile; compresses the records if the store's tiles are.
    void writeTile(const std::string& key, const std::string& records) const;
    std::string tileFile(const std::string& key) const;
    static std::string hierarchyFile(const std::string& key) { return "ept-hierarchy/" + key + ".json"; }

    TemporaryFolder folder;
    nlohmann::json metadata;
    /// By the key that names the file.
    std::map<std::string, nlohmann::json> hierarchy;
    std::map<std::string, std::string> tiles;
};

}  // namespace Support
