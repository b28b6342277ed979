// The input is a choice of schema and data type in one byte, then the tile of the only node.

#include <fuzz/NodePointsCheck.h>
#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>

#include <tests/octree/entwine/EptFixture.h>

namespace {

using Support::dimension;

nlohmann::json schema(bool isPlain) {
    if (isPlain) {
        return {dimension("X", "signed", 4, 0.25), dimension("Y", "signed", 4, 0.25),
                dimension("Z", "signed", 4, 0.25), dimension("Intensity", "unsigned", 2)};
    }
    return {dimension("Red", "unsigned", 2),
            dimension("Green", "float", 4),
            dimension("Blue", "signed", 1),
            dimension("X", "float", 8),
            dimension("Y", "float", 4),
            dimension("Z", "signed", 8, 1e-9),
            dimension("Intensity", "float", 8),
            dimension("Classification", "signed", 4),
            dimension("PointSourceId", "float", 4),
            dimension("NormalX", "float", 8),
            dimension("NormalY", "float", 4),
            dimension("NormalZ", "signed", 2)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Support::EptFixture fixture;
    if (size < 1) {
        return 0;
    }
    fixture.metadata["schema"] = schema((data[0] & 1) != 0);
    fixture.metadata["dataType"] = (data[0] & 2) != 0 ? "zstandard" : "binary";
    fixture.metadata["bounds"] = {-128, -128, -128, 128, 128, 128};
    fixture.writeMetadata();
    fixture.folder.write(fixture.tileFile("0-0-0-0"), Fuzz::textOf(data + 1, size - 1));
    try {
        Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
        Octree::NodePointData points;
        tree.readNode(Octree::OctreeNodeId(), 1.0, points, {});
        Fuzz::requireSound(points, 129.5);  // Half of the cube and a few steps.
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
