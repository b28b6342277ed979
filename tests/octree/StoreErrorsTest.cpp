#include <core/ExceptionChain.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>
#include <octree/potree/Metadata.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

#include <functional>

using Octree::OctreeNodeId;
using Support::bytesOf;
using Support::hierarchyRecord;
using Support::PotreeFixture;

namespace {

/// The error of opening the store and reading all of it, with the store's folder taken out; empty if there is
/// none.
std::string errorOf(const std::filesystem::path& folder) {
    try {
        const Octree::Octree octree{PoTree::FileSystemLocation(folder)};
        std::vector<OctreeNodeId> pending{OctreeNodeId()};
        while (!pending.empty()) {
            const OctreeNodeId id = pending.back();
            pending.pop_back();
            Octree::NodePointData data;
            octree.getNodePointData(id, data);
            const auto children = octree.children(id);
            pending.insert(pending.end(), children.begin(), children.end());
        }
        return "";
    } catch (const Octree::StoreError& error) {
        std::string text = Core::exceptionChain(error);
        const std::string prefix = PoTree::FileSystemLocation(folder).toString();
        for (std::size_t at; (at = text.find(prefix)) != std::string::npos;) {
            text.erase(at, prefix.size());
        }
        return text;
    }
}

std::string errorOf(const PotreeFixture& fixture) {
    return errorOf(fixture.folder.path());
}

std::string errorWithMetadata(const std::function<void(nlohmann::json&)>& change) {
    PotreeFixture fixture;
    change(fixture.metadata);
    fixture.writeMetadata();
    return errorOf(fixture);
}

/// With the root's point count, offset and size changed.
std::string errorWithRoot(std::uint32_t count, std::uint64_t offset, std::uint64_t size) {
    PotreeFixture fixture;
    fixture.hierarchy.replace(0, 22, hierarchyRecord(0, 0b00010010, count, offset, size));
    fixture.writeAll();
    return errorOf(fixture);
}

/// With the record of the proxy r4 naming this chunk.
std::string errorWithProxy(std::uint64_t offset, std::uint64_t size) {
    PotreeFixture fixture;
    fixture.hierarchy.replace(44, 22, hierarchyRecord(2, 0, 2, offset, size));
    fixture.writeAll();
    return errorOf(fixture);
}

/// With the root's chunk being these bytes.
std::string errorWithChunk(const std::string& chunk, std::uint32_t count = 3) {
    PotreeFixture fixture;
    fixture.hierarchy.replace(0, 22,
                              hierarchyRecord(0, 0b00010010, count, fixture.octree.size(), chunk.size()));
    fixture.octree += chunk;
    fixture.writeAll();
    return errorOf(fixture);
}

std::string pointsOf(std::size_t count, std::int32_t coordinate = 0) {
    std::string columns;
    for (std::size_t i = 0; i < count; ++i) {
        columns += Support::positionCode(coordinate, 0, 0);
    }
    return columns + std::string(10 * count, '\0');
}

}  // namespace

TEST(StoreErrors, TheFixtureItselfIsSound) {
    EXPECT_EQ(errorOf(PotreeFixture()), "");
}

TEST(StoreErrors, PlacesThatAreNoStore) {
    const Support::TemporaryFolder folder;
    EXPECT_EQ(errorOf(folder.path() / "absent"), ": there is no such folder");
    folder.write("file", "text");
    EXPECT_EQ(errorOf(folder.path() / "file"), ": is not a folder");
    EXPECT_EQ(errorOf(folder.path()).rfind("/metadata.json: cannot be opened: ", 0), 0u)
        << errorOf(folder.path());
}

TEST(StoreErrors, MissingFiles) {
    for (const std::string file : {"hierarchy.bin", "octree.bin"}) {
        const PotreeFixture fixture;
        std::filesystem::remove(fixture.folder.path() / file);
        EXPECT_EQ(errorOf(fixture).rfind("/" + file + ": cannot be opened: ", 0), 0u) << errorOf(fixture);
    }
}

TEST(StoreErrors, MetadataThatIsNotJson) {
    const PotreeFixture fixture;
    const std::vector<std::string> texts{"",
                                         "points: 7",
                                         "{\"version\": \"2.0\"",
                                         "{\"points\": 1e999}",
                                         "{\"scale\": [NaN, 1, 1]}",
                                         std::string("\0\xff\xfe", 3)};
    for (const std::string& text : texts) {
        fixture.folder.write("metadata.json", text);
        EXPECT_EQ(errorOf(fixture).rfind("/metadata.json: is not JSON: ", 0), 0u) << errorOf(fixture);
    }
    std::string objects;
    for (int depth = 0; depth < 100000; ++depth) {
        objects += "{\"a\":";
    }
    for (const std::string& nested : {std::string(1 << 20, '['), objects, "{\"version\": " + objects}) {
        fixture.folder.write("metadata.json", nested);
        EXPECT_EQ(errorOf(fixture), "/metadata.json: is nested deeper than any metadata.json");
    }
    fixture.folder.write("metadata.json", std::string((1 << 20) + 1, ' '));
    EXPECT_EQ(errorOf(fixture), "/metadata.json: is larger than any metadata.json: 1048577 bytes");
}

TEST(StoreErrors, MetadataOfAnotherKind) {
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["version"] = "1.8"; }),
              "/metadata.json: belongs to a Potree 1.8 store, only Potree 2.0 is supported");
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["version"] = "3.0"; }),
              "/metadata.json: version \"3.0\" is not supported, only \"2.0\" is");
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["encoding"] = "ZIP"; }),
              "/metadata.json: encoding \"ZIP\" is not supported, only \"BROTLI\", \"UNCOMPRESSED\" and "
              "\"DEFAULT\" are");
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["unheard"] = {{"of", 1}}; }), "");
}

TEST(StoreErrors, EveryKeyThatIsNeededIsNamedWhenItIsMissing) {
    for (const char* key : {"version", "points", "offset", "scale", "spacing", "boundingBox", "encoding",
                            "attributes", "hierarchy"}) {
        EXPECT_EQ(errorWithMetadata([key](auto& json) { json.erase(key); }),
                  std::string("/metadata.json: key \"") + key + "\" is missing");
    }
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["hierarchy"].erase("firstChunkSize"); }),
              "/metadata.json: key \"hierarchy.firstChunkSize\" is missing");
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["attributes"][1].erase("size"); }),
              "/metadata.json: key \"attributes[1].size\" is missing");
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["attributes"].erase(0); }),
              "/metadata.json: key \"attributes\" is not a list with an attribute \"position\" of 12 bytes");
}

TEST(StoreErrors, ValuesThatMakeNoSenseAreNamed) {
    const auto expect = [](const char* pointer, const nlohmann::json& value, const std::string& problem) {
        EXPECT_EQ(errorWithMetadata([&](auto& json) { json[nlohmann::json::json_pointer(pointer)] = value; }),
                  "/metadata.json: key " + problem);
    };
    expect("/points", -1, "\"points\" is not a whole number that is not negative");
    expect("/points", "7", "\"points\" is not a whole number that is not negative");
    expect("/scale/1", 0.0, "\"scale\" is not positive");
    expect("/scale/2", nullptr, "\"scale[2]\" is not a number of magnitude up to 1e15");
    expect("/scale", {1, 1}, "\"scale\" is not a list of three numbers");
    expect("/offset/2", 1e16, "\"offset[2]\" is not a number of magnitude up to 1e15");
    expect("/offset/2", nullptr, "\"offset[2]\" is not a number of magnitude up to 1e15");
    expect("/spacing", -1.0, "\"spacing\" is not a length");
    expect("/boundingBox/min/0", 2000.0, "\"boundingBox\" is not a box whose min is not above its max");
    expect("/boundingBox/max/2", 3256.0 + 0.3, "\"boundingBox\" is not a cube");
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["boundingBox"]["max"][2] = 3256.25; }), "");
    expect("/boundingBox/max/0", 1e12,
           "\"boundingBox\" is not within reach of 32-bit coordinates of this scale and offset");
    expect("/attributes/0/min/0", 2000.0, "\"attributes[0]\" is not a box whose min is not above its max");
    expect("/attributes/1/size", 0, "\"attributes[1].size\" is not a number from 1 to 65536");
    expect("/attributes/1/size", std::uint64_t{1} << 40,
           "\"attributes[1].size\" is not a number from 1 to 65536");
    expect("/attributes/1/max", 5, "\"attributes[1].max\" is not a list");
    expect("/nodeVisibility", 1, "\"nodeVisibility\" is not true or false");
}

TEST(StoreErrors, FirstHierarchyChunk) {
    const auto withSize = [](std::uint64_t size) {
        return errorWithMetadata([size](auto& json) { json["hierarchy"]["firstChunkSize"] = size; });
    };
    EXPECT_EQ(withSize(44),
              "/hierarchy.bin: node r: its hierarchy chunk is cut short: it names 3 nodes and has 2 "
              "records");
    EXPECT_EQ(withSize(21), "/hierarchy.bin: node r: its hierarchy chunk of 21 bytes holds no record");
    EXPECT_EQ(withSize(1000),
              "/hierarchy.bin: node r: its hierarchy chunk cannot be read: /hierarchy.bin: 990 "
              "bytes at 0 lie outside the file of 132 bytes");
    EXPECT_EQ(withSize(std::uint64_t{1} << 40),
              "/hierarchy.bin: node r: its hierarchy chunk of 1099511627776 bytes is too large");
}

TEST(StoreErrors, HierarchyChunksThatProxiesName) {
    const std::string node = "/hierarchy.bin: node r4: its hierarchy chunk ";
    const std::string overlaps = " overlaps one that belongs to another node";
    EXPECT_EQ(errorWithProxy(44, 22), node + "at 44" + overlaps);  // itself
    EXPECT_EQ(errorWithProxy(0, 66), node + "at 0" + overlaps);
    EXPECT_EQ(errorWithProxy(65, 66), node + "at 65" + overlaps);
    EXPECT_EQ(errorWithProxy(66, 44), node + "is cut short: it names 3 nodes and has 2 records");
    EXPECT_EQ(errorWithProxy(66, 0), node + "of 0 bytes holds no record");
    EXPECT_EQ(errorWithProxy(1000, 22),
              node + "cannot be read: /hierarchy.bin: 22 bytes at 1000 lie outside the file of 132 bytes");
    EXPECT_EQ(
        errorWithProxy(~std::uint64_t{0}, 22),
        node +
            "cannot be read: /hierarchy.bin: 22 bytes at 18446744073709551615 lie outside the file of 132 "
            "bytes");

    PotreeFixture fixture;
    fixture.hierarchy.replace(66, 22, hierarchyRecord(2, 0, 2, 88, 22));
    fixture.writeAll();
    EXPECT_EQ(errorOf(fixture), node + "begins with another reference instead of the node");
}

TEST(StoreErrors, NodesThatClaimTooMuch) {
    const std::uint64_t huge = std::uint64_t{1} << 40;
    EXPECT_EQ(errorWithRoot(8, 0, 10), "/hierarchy.bin: node r: it claims 8 points, the whole store has 7");
    EXPECT_EQ(errorWithRoot(3, 0, huge),
              "/octree.bin: node r: 1099511627776 bytes are too many for 3 points of 26 bytes");
    EXPECT_EQ(errorWithRoot(3, huge, 50)
                  .rfind("/octree.bin: node r: its points cannot be read: /octree.bin: 50 "
                         "bytes at 1099511627776 lie outside the file of ",
                         0),
              0u);

    // One that lies leaves the others alone.
    PotreeFixture liar;
    liar.hierarchy.replace(22, 22, hierarchyRecord(1, 0, 8, liar.chunks[1][0], liar.chunks[1][1]));
    liar.writeAll();
    EXPECT_EQ(errorOf(liar), "/hierarchy.bin: node r1: it claims 8 points, the whole store has 7");
    const Octree::Octree octree{PoTree::FileSystemLocation(liar.folder.path())};
    EXPECT_EQ(octree.children(OctreeNodeId()).size(), 2u);
    Octree::NodePointData data;
    EXPECT_TRUE(octree.getNodePointData(OctreeNodeId().child(4), data));

    PotreeFixture fixture;
    fixture.metadata["points"] = huge;
    fixture.hierarchy.replace(0, 22, hierarchyRecord(0, 0b00010010, 0xffffffffu, 0, 50));
    fixture.writeAll();
    EXPECT_EQ(errorOf(fixture),
              "/octree.bin: node r: its 4294967295 points of 26 bytes are more than a node may have");
}

TEST(StoreErrors, PointChunks) {
    const std::string node = "/octree.bin: node r: its chunk ";
    const std::string good = Support::brotliEncode(pointsOf(3));
    EXPECT_EQ(errorWithChunk(good), "");
    EXPECT_EQ(errorWithChunk("\xff\xff\xff\xff\xff\xff").rfind(node + "is damaged: ", 0), 0u);
    EXPECT_EQ(errorWithChunk(good.substr(0, good.size() - 1)).rfind(node + "is cut short after ", 0), 0u);
    const std::string claim = ", its 3 points of 26 bytes take 78";
    EXPECT_EQ(errorWithChunk(good + "xy"), node + "ends 2 bytes before its end" + claim);
    EXPECT_EQ(errorWithChunk(Support::brotliEncode(pointsOf(2))), node + "decompresses to 52 bytes" + claim);
    const std::string tooMuch = node + "decompresses to more than 78 bytes" + claim;
    EXPECT_EQ(errorWithChunk(Support::brotliEncode(pointsOf(4))), tooMuch);
    const std::string bomb = Support::brotliEncode(std::string(std::size_t{1} << 28, '\0'));
    ASSERT_LT(bomb.size(), 1100u);
    EXPECT_EQ(errorWithChunk(bomb), tooMuch);
}

TEST(StoreErrors, RecordsThatAreNotTheNodesPoints) {
    const auto withRoot = [](std::uint32_t count, std::uint64_t size, std::size_t cut = 0) {
        PotreeFixture fixture("UNCOMPRESSED");
        fixture.hierarchy.replace(0, 22, hierarchyRecord(0, 0, count, 0, size));
        fixture.hierarchy.resize(22);
        fixture.metadata["hierarchy"]["firstChunkSize"] = 22;
        fixture.octree.resize(fixture.octree.size() - cut);
        fixture.writeAll();
        return errorOf(fixture);
    };
    const std::string node = "/octree.bin: node r: its ";
    EXPECT_EQ(withRoot(3, 60), "");
    EXPECT_EQ(withRoot(3, 59), node + "chunk has 59 bytes, its 3 points of 20 bytes take 60");
    EXPECT_EQ(withRoot(2, 60), node + "chunk has 60 bytes, its 2 points of 20 bytes take 40");
    EXPECT_EQ(withRoot(7, 140, 1),
              node + "points cannot be read: /octree.bin: 140 bytes at 0 lie outside the file of 139 bytes");

    PotreeFixture outside("UNCOMPRESSED");
    outside.octree.replace(20, 4, bytesOf(std::int32_t{1029}));
    outside.writeAll();
    EXPECT_EQ(errorOf(outside), "/octree.bin: node r: point 1 lies outside the node's cube");
}

TEST(StoreErrors, PointsOutsideTheBox) {
    const auto withCoordinate = [](std::int32_t x) {
        return errorWithChunk(Support::brotliEncode(pointsOf(3, x)));
    };
    EXPECT_EQ(withCoordinate(-4), "");
    EXPECT_EQ(withCoordinate(1028), "");
    EXPECT_EQ(withCoordinate(-5), "/octree.bin: node r: point 0 lies outside the node's cube");
    EXPECT_EQ(withCoordinate(1029), "/octree.bin: node r: point 0 lies outside the node's cube");
}

TEST(StoreErrors, PointsOutsideTheirNode) {
    const OctreeNodeId r1 = OctreeNodeId().child(1);
    for (const std::int32_t x : {512 + 4, 512 + 5, -4, -5}) {
        PotreeFixture fixture("UNCOMPRESSED");
        fixture.octree.replace(fixture.chunks[1][0], 4, bytesOf(x));
        fixture.writeAll();
        const bool isFarOut = x == 512 + 5 || x == -5;
        EXPECT_EQ(errorOf(fixture),
                  isFarOut ? "/octree.bin: node r1: point 0 lies outside the node's cube" : "");
        if (!isFarOut) {
            const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
            Octree::NodePointData data;
            octree.getNodePointData(r1, data);
            EXPECT_TRUE(octree.pointBounds(r1).contains(data.position(0).cast<float>())) << x;
        }
    }
}

TEST(StoreErrors, NodesThatAreNotThere) {
    const PotreeFixture fixture;
    const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
    for (const OctreeNodeId id : {OctreeNodeId().child(0), OctreeNodeId().child(4).child(6).child(0)}) {
        try {
            octree.children(id);
            FAIL() << id.name();
        } catch (const Octree::StoreError& error) {
            EXPECT_NE(std::string(error.what()).find("node " + id.name() + ": there is no such node"),
                      std::string::npos);
        }
    }
}

TEST(StoreErrors, AStoreWithoutPointsIsNone) {
    PotreeFixture fixture;
    fixture.metadata["points"] = 0;
    fixture.metadata["hierarchy"]["firstChunkSize"] = 0;
    fixture.hierarchy.clear();
    fixture.octree.clear();
    fixture.writeAll();
    EXPECT_EQ(errorOf(fixture), "");
}
