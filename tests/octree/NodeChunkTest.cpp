#include <octree/StoreError.h>
#include <octree/potree/HierarchyChunk.h>
#include <octree/potree/NodeChunk.h>
#include <octree/potree/Store.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

using namespace PoTree;
using Octree::OctreeNodeId;
using Support::bytesOf;
using Support::hierarchyRecord;

namespace {

const Math::NBoundingBox<double, 3> UNIT_CUBE{{0.0, 0.0, 0.0}, {1.0, 1.0, 1.0}};

std::vector<std::shared_ptr<Node>> loadChunk(const std::string& bytes, OctreeNodeId root = OctreeNodeId()) {
    const Support::TemporaryFolder folder;
    folder.write("hierarchy.bin", bytes);
    folder.write("octree.bin", "");
    std::vector<std::shared_ptr<Node>> nodes;
    EXPECT_TRUE(loadHierarchyChunk(FileLoader(folder.path()), std::make_shared<Node>(root, UNIT_CUBE), 0,
                                   bytes.size(), {}, nodes));
    return nodes;
}

/// A store of one node with two points and these attributes after the position.
struct OneNodeStore {
    explicit OneNodeStore(nlohmann::json attributes, const std::string& columns) {
        fixture.metadata["attributes"] = std::move(attributes);
        fixture.metadata["attributes"].insert(fixture.metadata["attributes"].begin(),
                                              Support::attribute("position", 12, "int32"));
        const std::string positions = Support::positionCode(1, 2, 3) + Support::positionCode(4, 5, 6);
        fixture.octree = Support::brotliEncode(positions + columns);
        node.pointCount = 2;
        node.byteSize = fixture.octree.size();
        fixture.hierarchy = hierarchyRecord(0, 0, 2, 0, node.byteSize);
        fixture.metadata["hierarchy"]["firstChunkSize"] = fixture.hierarchy.size();
        fixture.writeAll();
    }

    Metadata metadata() const {
        Octree::MemoryBudget budget;
        return Metadata::read(fixture.folder.path() / "metadata.json", PoTree::StoreRole::Cloud, budget);
    }
    std::size_t decode(const RawColumns& columns, std::size_t count = 0) const {
        EXPECT_TRUE(decodeNodeChunk(node, metadata(), FileLoader(fixture.folder.path()), {}, columns, count));
        return count;
    }

    Support::PotreeFixture fixture;
    Node node{OctreeNodeId(), UNIT_CUBE};
};

}  // namespace

TEST(HierarchyChunk, ReadsOnlyWholeRecords) {
    const std::string records = hierarchyRecord(1, 0b10, 5, 100, 200, 2) + hierarchyRecord(0, 0, 9, 300, 400);
    EXPECT_TRUE(loadChunk(records.substr(0, 21)).empty());
    const auto nodes = loadChunk(records + "x");
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0]->type, NodeType::Leaf);
    EXPECT_EQ(nodes[0]->visibility, VisibilityType::AllHidden);
    EXPECT_EQ(nodes[0]->pointCount, 5u);
    EXPECT_EQ(nodes[1]->id.name(), "r1");
    EXPECT_EQ(nodes[1]->byteOffset, 300u);
    EXPECT_EQ(nodes[1]->byteSize, 400u);
}

TEST(HierarchyChunk, GivesChildrenTheirOctantsBreadthFirst) {
    const auto nodes =
        loadChunk(hierarchyRecord(0, 0b01000010, 0, 0, 0) + hierarchyRecord(0, 0b100, 0, 0, 0) +
                  hierarchyRecord(0, 0, 0, 0, 0) + hierarchyRecord(0, 0, 0, 0, 0));
    ASSERT_EQ(nodes.size(), 4u);
    EXPECT_EQ(nodes[2]->id.name(), "r6");
    EXPECT_EQ(nodes[2]->boundingBox, (Math::NBoundingBox<double, 3>{{0.5, 0.5, 0.0}, {1.0, 1.0, 0.5}}));
    EXPECT_EQ(nodes[3]->id.name(), "r12");
    EXPECT_EQ(nodes[3]->boundingBox, (Math::NBoundingBox<double, 3>{{0.0, 0.25, 0.5}, {0.25, 0.5, 0.75}}));
}

TEST(HierarchyChunk, ExpandsNeitherProxiesNorTheDeepestLevel) {
    EXPECT_EQ(loadChunk(hierarchyRecord(2, 255, 0, 0, 0) + hierarchyRecord(0, 0, 0, 0, 0)).size(), 1u);
    OctreeNodeId deepest;
    while (deepest.level() < OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
        deepest = deepest.child(3);
    }
    EXPECT_EQ(loadChunk(hierarchyRecord(0, 255, 0, 0, 0), deepest).size(), 1u);
    EXPECT_EQ(loadChunk(hierarchyRecord(0, 255, 0, 0, 0), deepest.parent()).size(), 9u);
}

TEST(HierarchyChunk, WithRecordsMissingIsRefusedBeforeNodesAreMade) {
    const Support::TemporaryFolder folder;
    const std::string full = hierarchyRecord(0, 255, 0, 0, 0);
    std::string bytes;
    for (int i = 0; i < 1000; ++i) {
        bytes += full;
    }
    folder.write("hierarchy.bin", bytes);
    folder.write("octree.bin", "");
    OctreeNodeId deepest;
    while (deepest.level() < OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
        deepest = deepest.child(0);
    }
    const FileLoader loader(folder.path());
    std::vector<std::shared_ptr<Node>> nodes;
    const auto load = [&](OctreeNodeId root, std::size_t recordCount) {
        return loadHierarchyChunk(loader, std::make_shared<Node>(root, UNIT_CUBE), 0, 22 * recordCount, {},
                                  nodes, MissingRecords::Refused);
    };
    EXPECT_THROW(load(OctreeNodeId(), 1000), Octree::StoreError);
    EXPECT_THROW(load(deepest.parent(), 8), Octree::StoreError);
    EXPECT_TRUE(nodes.empty());
    EXPECT_TRUE(load(deepest.parent(), 9));  // the deepest level's masks do not count
    EXPECT_EQ(nodes.size(), 9u);
    nodes.clear();
    EXPECT_TRUE(load(deepest.parent().parent(), 73));
    EXPECT_EQ(nodes.size(), 73u);
}

TEST(NodeChunk, CopiesKnownColumnsAndSkipsTheRest) {
    const OneNodeStore store(
        {Support::attribute("Intensity", 2, "uint16"), Support::attribute("rgb", 6, "uint16"),
         Support::attribute("classification", 1, "uint8"), Support::attribute("visibility", 1, "uint8"),
         Support::attribute("ScanIndex", 4, "uint32")},
        std::string("abcd") + Support::colorCode(1, 2, 3) + Support::colorCode(4, 5, 6) + "\x07\x08" +
            std::string("\0\1", 2) + bytesOf(70000) + bytesOf(80000));
    std::vector<std::array<std::byte, 16>> positions;
    std::vector<std::uint64_t> colors;
    std::vector<std::uint16_t> intensities{42};
    std::vector<std::uint32_t> scanIndices;
    std::vector<std::uint8_t> classifications, visibilities;
    EXPECT_EQ(
        store.decode({&positions, &colors, &intensities, &scanIndices, &classifications, &visibilities}), 2u);
    EXPECT_EQ(std::memcmp(positions[1].data(), Support::positionCode(4, 5, 6).data(), 16), 0);
    EXPECT_EQ(bytesOf(colors[1]), Support::colorCode(4, 5, 6));
    EXPECT_EQ(intensities, std::vector<std::uint16_t>{42});  // "Intensity" is another attribute
    EXPECT_EQ(scanIndices, (std::vector<std::uint32_t>{70000, 80000}));
    EXPECT_EQ(classifications, (std::vector<std::uint8_t>{7, 8}));
    EXPECT_EQ(visibilities, (std::vector<std::uint8_t>{0, 1}));
}

TEST(NodeChunk, TakesNormalsFromOctCodesOrFromAllThreeDoubles) {
    std::vector<Math::Point<float, 3>> normals;
    const std::string xyz =
        bytesOf(0.6) + bytesOf(0.0) + bytesOf(0.8) + bytesOf(1.0) + bytesOf(0.0) + bytesOf(0.5);
    const auto x = Support::attribute("NormalX", 8, "double");
    const auto y = Support::attribute("NormalY", 8, "double");
    const auto z = Support::attribute("NormalZ", 8, "double");
    const auto oct = Support::attribute("normal_oct16", 2, "uint16");

    OneNodeStore({x, y}, xyz.substr(0, 32)).decode({.normals = &normals});
    EXPECT_TRUE(normals.empty());
    OneNodeStore({x, y, z}, xyz).decode({.normals = &normals});
    ASSERT_EQ(normals.size(), 2u);
    EXPECT_EQ(normals[0], (Math::Point<float, 3>(0.6f, 0.8f, 0.0f)));
    EXPECT_EQ(normals[1], (Math::Point<float, 3>(0.0f, 1.0f, 0.5f)));
    OneNodeStore({x, y, z, oct}, xyz + "\xff\x80\x80\x80").decode({.normals = &normals});
    EXPECT_GT(normals[0].x(), 0.99f);
    EXPECT_GT(normals[1].z(), 0.99f);
}

TEST(NodeChunk, FillsUniformVisibilityWithoutReading) {
    OneNodeStore store(nlohmann::json::array(), "");
    store.fixture.metadata["nodeVisibility"] = true;
    store.fixture.writeMetadata();
    store.node.byteOffset = 1 << 20;  // a fetch would fail
    std::vector<std::uint8_t> visibilities;
    std::vector<std::uint64_t> colors{5};
    store.node.visibility = VisibilityType::AllHidden;
    EXPECT_EQ(store.decode({.colors = &colors, .visibilities = &visibilities}, 3), 3u);
    EXPECT_EQ(visibilities, (std::vector<std::uint8_t>{1, 1, 1}));
    EXPECT_EQ(colors.size(), 1u);
    store.node.visibility = VisibilityType::AllVisible;
    store.decode({.visibilities = &visibilities}, 2);
    EXPECT_EQ(visibilities, (std::vector<std::uint8_t>{0, 0}));
    store.node.visibility = VisibilityType{};
    EXPECT_ANY_THROW(store.decode({.visibilities = &visibilities}, 2));
}

TEST(NodeChunk, OfANodeWithoutPointsOrBytesIsEmptyWithoutReading) {
    OneNodeStore store(nlohmann::json::array(), "");
    store.node.byteOffset = 1 << 20;
    std::vector<std::uint64_t> colors{5};
    store.node.pointCount = 0;
    EXPECT_EQ(store.decode({.colors = &colors}, 3), 0u);
    EXPECT_TRUE(colors.empty());
    store.node.pointCount = 2;
    store.node.byteSize = 0;
    EXPECT_EQ(store.decode({}, 3), 0u);
}

TEST(Store, SaysWhichNodesAreHiddenOnlyWhereTheMetadataHasTheKey) {
    Support::PotreeFixture fixture;
    // Root: all hidden; r4, a proxy: all visible.
    fixture.hierarchy[0] = static_cast<char>(fixture.hierarchy[0] | 0x20);
    fixture.hierarchy[44] = static_cast<char>(fixture.hierarchy[44] | 0x10);
    fixture.writeAll();
    EXPECT_EQ(Store(FileSystemLocation(fixture.folder.path())).nodeVisibility(OctreeNodeId()), 0);

    fixture.metadata["nodeVisibility"] = true;
    fixture.writeMetadata();
    Store store{FileSystemLocation(fixture.folder.path())};
    EXPECT_EQ(store.nodeVisibility(OctreeNodeId()), 2);
    EXPECT_EQ(store.nodeVisibility(OctreeNodeId().child(4)), 1);
    EXPECT_EQ(store.nodeVisibility(OctreeNodeId().child(1)), 0);
    Octree::NodePointData data;
    store.readNode(OctreeNodeId(), 1.0, data, {});
    EXPECT_EQ(data.visibilities(), (std::vector<std::uint8_t>{1, 1, 1}));
    store.readNode(OctreeNodeId().child(1), 1.0, data, {});
    EXPECT_FALSE(data.has(Octree::Attribute::Visibility));
}

TEST(Store, HasNoPointsWithoutBytesAndPositionsWithoutOtherAttributes) {
    OneNodeStore store(nlohmann::json::array(), "");
    store.fixture.metadata["nodeVisibility"] = true;
    const auto readAll = [&](std::uint64_t byteSize) {
        store.fixture.hierarchy = hierarchyRecord(0, 0, 2, 0, byteSize, 2);
        store.fixture.writeAll();
        Store opened{FileSystemLocation(store.fixture.folder.path())};
        Octree::NodePointData data;
        EXPECT_TRUE(opened.readNode(OctreeNodeId(), 1.0, data, {}));
        Octree::NodeFacts facts;
        EXPECT_TRUE(opened.nodeFacts(OctreeNodeId(), facts, {}));
        EXPECT_EQ(facts.pointCount, data.size());
        EXPECT_EQ(data.positions().size(), data.size());
        return data.visibilities();
    };
    EXPECT_EQ(readAll(store.node.byteSize), (std::vector<std::uint8_t>{1, 1}));
    EXPECT_TRUE(readAll(0).empty());
}

TEST(Store, PutsPositionsOnItsGridAndColorsIntoBytes) {
    const Support::PotreeFixture fixture;
    Store store{FileSystemLocation(fixture.folder.path())};
    EXPECT_EQ(store.storeFacts().referencePosition, (Math::Point<double, 3>(1128.0, 2128.0, 3128.0)));
    Octree::NodePointData data;
    ASSERT_TRUE(store.readNode(OctreeNodeId().child(4).child(6), 2.0, data, {}));
    ASSERT_EQ(data.size(), 1u);
    EXPECT_EQ(data.position(0), (Math::Point<double, 3>(194.0, -6.0, -236.0)));
    EXPECT_EQ(data.color(0), Math::Color(900 & 255, 500 & 255, 17));
    EXPECT_EQ(data.intensity(0), 907);
    EXPECT_FALSE(data.has(Octree::Attribute::Classification));
}

TEST(Store, StopsBeforeReading) {
    const Support::PotreeFixture fixture;
    Store store{FileSystemLocation(fixture.folder.path())};
    std::stop_source stop;
    stop.request_stop();
    Octree::NodePointData data;
    Octree::NodeFacts facts;
    EXPECT_FALSE(store.readNode(OctreeNodeId(), 1.0, data, stop.get_token()));
    EXPECT_FALSE(store.nodeFacts(OctreeNodeId().child(4), facts, stop.get_token()));
    EXPECT_TRUE(store.nodeFacts(OctreeNodeId().child(4), facts, {}));
    EXPECT_EQ(facts.childMask, 0b01001000);
}
