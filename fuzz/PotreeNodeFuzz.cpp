// The input is a point count in one byte, then the chunk of a node with every attribute that is decoded; it
// is read once in each encoding.

#include <fuzz/NodePointsCheck.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>

#include <tests/support/PotreeFixture.h>

namespace {

nlohmann::json allAttributes() {
    using Support::attribute;
    return {attribute("position", 12, "int32"),      attribute("intensity", 2, "uint16"),
            attribute("classification", 1, "uint8"), attribute("visibility", 1, "uint8"),
            attribute("ScanIndex", 4, "uint32"),     attribute("rgb", 6, "uint16"),
            attribute("normal_oct16", 2, "uint16"),  attribute("other", 3, "uint8")};
}

/// Reads a store of one node with this chunk.
void read(const char* encoding, unsigned count, const std::string& chunk) {
    static Support::PotreeFixture fixture;
    fixture.metadata["encoding"] = encoding;
    fixture.metadata["attributes"] = allAttributes();
    fixture.metadata["points"] = count;
    fixture.hierarchy = Support::hierarchyRecord(0, 0, count, 0, chunk.size());
    fixture.metadata["hierarchy"]["firstChunkSize"] = fixture.hierarchy.size();
    fixture.octree = chunk;
    fixture.writeAll();
    try {
        const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
        Octree::NodePointData points;
        octree.getNodePointData(Octree::OctreeNodeId(), points);
        Fuzz::require(points.size() == octree.pointCount(Octree::OctreeNodeId()));
        Fuzz::requireSound(points, 129.5);  // Half of the fixture's cube and a few of its steps.
    } catch (const Octree::StoreError&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    const std::string chunk = Fuzz::textOf(data + 1, size - 1);
    read("BROTLI", data[0], chunk);
    read("UNCOMPRESSED", data[0], chunk);
    return 0;
}
