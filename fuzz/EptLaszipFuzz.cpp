// The input is a choice of bounds and dimensions in one byte, the points that the hierarchy says in two, then
// the LAS or LAZ tile of the only node.

#include <fuzz/NodePointsCheck.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>

#include <tests/octree/entwine/EptFixture.h>

namespace {

using Support::dimension;

constexpr double UNIT_SCALE = 0.1;

nlohmann::json schema(unsigned choice) {
    nlohmann::json result;
    for (const char* const name : {"X", "Y", "Z"}) {
        result.push_back((choice & 1) != 0 ? dimension(name, "float", 8)
                                           : dimension(name, "signed", 4, 0.25));
    }
    const auto add = [&](unsigned bit, std::initializer_list<const char*> names, const char* type,
                         unsigned size) {
        for (const char* const name : names) {
            if ((choice & bit) != 0) {
                result.push_back(dimension(name, type, size));
            }
        }
    };
    add(2, {"Intensity", "Classification", "PointSourceId"}, "unsigned", 2);
    add(4, {"Red", "Green", "Blue"}, "unsigned", 2);
    add(8, {"NormalX"}, "float", 4);
    add(16, {"NormalY", "NormalZ"}, "float", 8);
    add(32, {"Intensity2", "Deviation"}, "signed", 1);
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Support::EptFixture fixture("laszip");
    if (size < 3) {
        return 0;
    }
    // The larger cube holds most grids of 32-bit steps, the smaller one next to none.
    const double half = (data[0] & 64) != 0 ? 128.0 : 1e10;
    fixture.metadata["schema"] = schema(data[0]);
    fixture.metadata["bounds"] = {-half, -half, -half, half, half, half};
    fixture.writeMetadata();
    const nlohmann::json nodes{{"0-0-0-0", data[1] + 256 * data[2]}};
    fixture.folder.write(Support::EptFixture::hierarchyFile("0-0-0-0"), nodes.dump());
    fixture.folder.write(fixture.tileFile("0-0-0-0"), Fuzz::textOf(data + 3, size - 3));
    try {
        const Octree::Octree octree(Entwine::FileSystemLocation(fixture.folder.path()), UNIT_SCALE);
        Octree::NodePointData points;
        octree.getNodePointData(Octree::OctreeNodeId(), points);
        Fuzz::require(points.positions().size() == points.size());
        Fuzz::requireSound(points, 1.01 * half * UNIT_SCALE);
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
