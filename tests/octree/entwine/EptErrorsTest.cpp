#include <core/ExceptionChain.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>

#include <gtest/gtest.h>
#include <tests/octree/entwine/EptFixture.h>
#include <tests/support/HostileTiles.h>
#include <tests/support/LargeAllocations.h>

#include <filesystem>
#include <functional>

using Octree::OctreeNodeId;
using Support::EptFixture;

namespace {

/// The error of opening the store and reading all of it, with the store's folder taken out; empty if there is
/// none.
std::string errorOf(const std::filesystem::path& folder) {
    try {
        Entwine::EntwineTree tree{Entwine::FileSystemLocation(folder)};
        for (const OctreeNodeId id : Support::allNodes(tree)) {
            Octree::NodePointData data;
            tree.readNode(id, 1.0, data, {});
        }
        return "";
    } catch (const Octree::StoreError& error) {
        std::string text = Core::exceptionChain(error);
        const std::string prefix = Entwine::FileSystemLocation(folder).toString();
        for (std::size_t at; (at = text.find(prefix)) != std::string::npos;) {
            text.erase(at, prefix.size());
        }
        return text;
    }
}

std::string errorOf(const EptFixture& fixture) {
    return errorOf(fixture.folder.path());
}

std::string errorWithMetadata(const std::function<void(nlohmann::json&)>& change) {
    EptFixture fixture;
    change(fixture.metadata);
    fixture.writeMetadata();
    return errorOf(fixture);
}

/// With the hierarchy's second file being this text.
std::string errorWithPage(const std::string& text) {
    EptFixture fixture;
    fixture.folder.write(EptFixture::hierarchyFile("1-1-0-0"), text);
    return errorOf(fixture);
}

/// With these bytes as the file of the root's tile.
std::string errorWithTile(const std::string& dataType, const std::string& bytes) {
    EptFixture fixture(dataType);
    fixture.folder.write(fixture.tileFile("0-0-0-0"), bytes);
    return errorOf(fixture);
}

bool startsWith(const std::string& text, const std::string& start) {
    return text.rfind(start, 0) == 0;
}

}  // namespace

TEST(EptErrors, PlacesThatAreNoStore) {
    const EptFixture fixture;
    EXPECT_EQ(errorOf(fixture.folder.path() / "absent"), ": there is no such folder");
    EXPECT_EQ(errorOf(fixture.folder.path() / "ept.json"), ": is not a folder");
    for (const std::string file : {"ept.json", "ept-hierarchy/0-0-0-0.json"}) {
        std::filesystem::remove(fixture.folder.path() / file);
        EXPECT_TRUE(startsWith(errorOf(fixture), "/" + file + ": cannot be ")) << errorOf(fixture);
        fixture.writeAll();
    }
}

TEST(EptErrors, MetadataThatIsNotJson) {
    const EptFixture fixture;
    for (const std::string& text :
         {std::string(), std::string("{\"points\": 1e999}"), std::string("\0\xff", 2)}) {
        fixture.folder.write("ept.json", text);
        EXPECT_TRUE(startsWith(errorOf(fixture), "/ept.json: is not JSON: ")) << errorOf(fixture);
    }
    fixture.folder.write("ept.json", std::string(100000, '['));
    EXPECT_EQ(errorOf(fixture), "/ept.json: is nested deeper than any ept.json");
    fixture.folder.write("ept.json", std::string((1 << 20) + 1, ' '));
    EXPECT_EQ(errorOf(fixture), "/ept.json: is larger than any ept.json: 1048577 bytes");
}

TEST(EptErrors, StoresOfAnotherKindAreRefusedByName) {
    const auto with = [](const char* key, const char* value) {
        return errorWithMetadata([&](auto& json) { json[key] = value; });
    };
    EXPECT_EQ(with("version", "0.0.0"), "");
    EXPECT_EQ(errorWithMetadata([](auto& json) {
                  json["version"] = "1.0.0";
                  json["ticks"] = json["span"];
                  json.erase("span");
                  json.erase("boundsConforming");
              }),
              "");
    EXPECT_EQ(with("version", "2.0.0"),
              "/ept.json: version \"2.0.0\" is not supported, only 1.0 and 1.1 are");
    EXPECT_EQ(with("hierarchyType", "gzip"),
              "/ept.json: hierarchyType \"gzip\" is not supported, only \"json\" is");
    EXPECT_EQ(with("dataType", "parquet"),
              "/ept.json: dataType \"parquet\" is not supported, only \"binary\", \"laszip\" and "
              "\"zstandard\" are");
}

TEST(EptErrors, MetadataThatIsMissingOrMakesNoSenseIsNamed) {
    for (const char* key : {"version", "dataType", "hierarchyType", "points", "span", "bounds", "schema"}) {
        EXPECT_EQ(errorWithMetadata([key](auto& json) { json.erase(key); }),
                  std::string("/ept.json: key \"") + key + "\" is missing");
    }
    EXPECT_EQ(errorWithMetadata([](auto& json) { json["schema"].erase(2); }),
              "/ept.json: key \"schema\" is not a list with the dimensions \"X\", \"Y\" and \"Z\"");
    const auto expect = [](const char* pointer, const nlohmann::json& value, const std::string& key,
                           const std::string& problem) {
        EXPECT_EQ(errorWithMetadata([&](auto& json) { json[nlohmann::json::json_pointer(pointer)] = value; }),
                  "/ept.json: key \"" + key + "\" is not " + problem);
    };
    expect("/points", -1, "points", "a whole number that is not negative");
    expect("/span", 0, "span", "a number from 1 to 2^30");
    expect("/bounds", {0, 0, 0, 1, 1}, "bounds", "a list of six numbers");
    expect("/bounds/0", 2000, "bounds", "a box whose minimum is not above its maximum");
    expect("/bounds/4", 2255, "bounds", "a cube");
    expect("/bounds", {1, 2, 3, 1, 2, 3}, "bounds", "a cube");
    expect("/bounds/0", nullptr, "bounds[0]", "a number of magnitude up to 1e15");
    expect("/boundsConforming/5", 0, "boundsConforming", "a box whose minimum is not above its maximum");
    expect("/schema/0/scale", 0, "schema[0].scale", "positive");
    expect("/schema/0/scale", "NaN", "schema[0].scale", "a number of magnitude up to 1e15");
    expect("/schema/0/scale", 1e-20, "bounds",
           "within reach of the scale and offset of \"X\", \"Y\" and \"Z\"");
    expect("/schema/3/size", std::uint64_t{1} << 40, "schema[3].size", "1, 2, 4 or 8");
    expect("/schema/3/type", "float", "schema[3].size", "4 or 8, which a float has");
    expect("/schema/3/type", "text", "schema[3].type", "\"signed\", \"unsigned\" or \"float\"");
    expect("/schema/3/name", "X", "schema[3].name", "a name of its own");
}

TEST(EptErrors, HierarchyFiles) {
    const auto expect = [](const std::string& text, const std::string& problem) {
        EXPECT_EQ(errorWithPage(text), "/ept-hierarchy/1-1-0-0.json: " + problem);
    };
    expect("", "is not JSON at byte 1");
    expect("5", "is not an object of point counts");
    expect(std::string(100000, '['), "is not an object of point counts");
    expect("{}", "node 1-1-0-0: is missing");
    expect(R"({"1-1-0-0": {"1-1-0-0": 2}})", "node 1-1-0-0: is not a point count");
    expect(R"({"1-1-0-0": 2.5})", "node 1-1-0-0: is not a point count");
    expect(R"({"1-1-0-0": -1})", "node 1-1-0-0: has -1 points");
    expect(R"({"1-1-0-0": -2})", "node 1-1-0-0: has -2 points");
    expect(R"({"1-1-0-0": 1099511627776})",
           "node 1-1-0-0: has 1099511627776 points, more than a node may have");
    expect(R"({"r4": 2})", "node r4: is not the name of a node");
    expect(R"({"1-1-0-0": 2, "1-1-0-0": 2})", "node 1-1-0-0: is there twice");
    expect(R"({"1-1-0-0": 2, "0-0-0-0": -1})", "node 0-0-0-0: is not below 1-1-0-0");
    expect(R"({"1-1-0-0": 2, "2-1-1-0": 1})", "node 2-1-1-0: is not below 1-1-0-0");
    expect(R"({"1-1-0-0": 2, "3-6-2-0": 1})", "node 3-6-2-0: its parent is missing");
    expect(R"({"1-1-0-0": 2, "2-2-1-0": -1, "3-4-2-0": 1})",
           "node 3-4-2-0: its parent stands in another file");
    EXPECT_TRUE(startsWith(errorWithPage(R"({"1-1-0-0": 2, "2-2-1-0": -1})"),
                           "/ept-hierarchy/2-2-1-0.json: cannot be opened: "));
}

TEST(EptErrors, TilesOfRecords) {
    const std::string node = "/ept-data/0-0-0-0.bin: node 0-0-0-0: ";
    const std::string good = EptFixture().tiles.at("0-0-0-0");
    EXPECT_EQ(errorWithTile("binary", good.substr(0, 21)), "");  // fewer than the hierarchy says
    EXPECT_EQ(errorWithTile("binary", good + good), "");
    EXPECT_EQ(errorWithTile("binary", good.substr(1)),
              node + "its tile holds 62 bytes, which are not points of 21 bytes");
    EXPECT_EQ(errorWithTile("binary", ""), node + "its tile holds 0 bytes, which are not points of 21 bytes");
    EXPECT_EQ(errorWithTile("binary", EptFixture::record(512, 0, 0) + EptFixture::record(0, 0, 517)),
              node + "point 1 lies outside the node's cube");
    EptFixture fixture;
    fixture.writeTile("1-0-0-1", EptFixture::record(4, -516, -4));
    EXPECT_EQ(errorOf(fixture), "");
    const Octree::Octree octree(Octree::Location::fromPath(fixture.folder.path()));
    Octree::NodePointData data;
    octree.getNodePointData(OctreeNodeId().child(1), data);
    EXPECT_TRUE(octree.pointBounds(OctreeNodeId().child(1)).contains(data.position(0).cast<float>()));
    fixture.writeTile("1-0-0-1", EptFixture::record(5, -300, 200));
    EXPECT_EQ(errorOf(fixture), "/ept-data/1-0-0-1.bin: node 1-0-0-1: point 0 lies outside the node's cube");
    fixture.writeAll();
    std::filesystem::remove(fixture.folder.path() / fixture.tileFile("2-2-1-0"));
    EXPECT_TRUE(startsWith(errorOf(fixture),
                           "/ept-data/2-2-1-0.bin: node 2-2-1-0: its points cannot be read: "
                           "/ept-data/2-2-1-0.bin: cannot be opened: "))
        << errorOf(fixture);
}

TEST(EptErrors, CompressedTiles) {
    const std::string node = "/ept-data/0-0-0-0.zst: node 0-0-0-0: its tile ";
    const std::string points = EptFixture().tiles.at("0-0-0-0");
    const std::string good = Support::zstandardEncode(points);
    EXPECT_EQ(errorWithTile("zstandard", good), "");
    EXPECT_EQ(errorWithTile("zstandard", points), node + "is no Zstandard frame");
    EXPECT_EQ(errorWithTile("zstandard", "\x27" + good.substr(1)), node + "is no Zstandard frame");
    EXPECT_EQ(errorWithTile("zstandard", good.substr(0, good.size() - 1)), node + "is cut short");
    EXPECT_EQ(errorWithTile("zstandard", ""), node + "is cut short");
    EXPECT_EQ(errorWithTile("zstandard", good + "xy"), node + "ends 2 bytes before its end");
    EXPECT_EQ(errorWithTile("zstandard", Support::zstandardEncode(points.substr(1))),
              node + "holds 62 bytes, which are not points of 21 bytes");
    std::string many;
    for (int i = 0; i < 100; ++i) {
        many += EptFixture::record(i, i, i);
    }
    EXPECT_EQ(errorWithTile("zstandard", Support::zstandardEncode(many)), "");
    const std::string bomb = Support::zstandardEncode(std::string(std::size_t{1} << 28, '\0'));
    ASSERT_LT(bomb.size(), 20000u);
    EXPECT_EQ(errorWithTile("zstandard", bomb), node + "decompresses to more than 1376382 bytes");
}

TEST(EptErrors, WhatATileAsksForIsBoundedByTheHierarchyAndByItsBytes) {
    using namespace std::string_literals;
    struct Attack {
        const char* dataType;
        std::uint32_t claim;
        std::string tile;
        const char* problem;
        Octree::Limits limits{};
    };
    const Octree::Limits small{.memory = 1000000};
    const Attack attacks[] = {
        {"binary", 60000, std::string(21 * 60000, '\0'), "asks for 1260000 bytes", small},
        {"zstandard", 60000, Support::zstandardEncode(std::string(21 * 60000, '\0')), "asks for ", small},
        {"laszip", 60000, Support::Hostile::lasTile(0.25, 60000), "asks for ", small},
        {"binary", 1, std::string(21 * 65539, '\0'),
         "is larger than the node's tile may be: 1376319 of 1376298"},
        {"zstandard", 1, std::string(2 << 20, '\0'), "is larger than the node's tile may be: "},
        // The end of a frame whose window has 128 MiB.
        {"zstandard", 1000000, "\x28\xb5\x2f\xfd\x00\x88\x01\x00\x00"s, "requires too much memory"},
        {"laszip", 3, Support::Hostile::lasTile(1e-300, 3),
         "the store's bounds are out of reach of its scale and offset"},
        {"laszip", 3, Support::Hostile::lasTile(0.25, 65543),
         "it has 65543 points where the hierarchy says 3"},
    };
    for (const Attack& attack : attacks) {
        EptFixture fixture(attack.dataType);
        fixture.hierarchy["0-0-0-0"]["0-0-0-0"] = attack.claim;
        fixture.writeAll();
        fixture.folder.write(fixture.tileFile("0-0-0-0"), attack.tile);
        Entwine::EntwineTree tree(Entwine::FileSystemLocation(fixture.folder.path()), {}, attack.limits);
        const TestSupport::LargeAllocations large(std::size_t{4} << 20);
        try {
            Octree::NodePointData data;
            tree.readNode(OctreeNodeId(), 1.0, data, {});
            ADD_FAILURE() << attack.problem;
        } catch (const Octree::StoreError& error) {
            const std::string message = Core::exceptionChain(error);
            EXPECT_NE(message.find(attack.problem), std::string::npos) << message;
        }
        EXPECT_EQ(large.here(), 0u) << attack.problem;
    }
}

TEST(EptErrors, AHierarchyThatTakesMoreMemoryThanTheStoreMay) {
    EptFixture fixture("binary");
    for (int i = 0; i < 2000; ++i) {
        fixture.hierarchy["1-1-0-0"]["9-" + std::to_string(i) + "-0-0"] = -1;
    }
    fixture.writeAll();
    Entwine::EntwineTree tree(Entwine::FileSystemLocation(fixture.folder.path()), {}, {.memory = 200000});
    try {
        Octree::NodeFacts facts;
        tree.nodeFacts(OctreeNodeId().child(4), facts, {});
        ADD_FAILURE() << "It was read";
    } catch (const Octree::StoreError& error) {
        EXPECT_NE(std::string(error.what()).find("asks for "), std::string::npos) << error.what();
    }
}

TEST(EptErrors, NodesThatAreNotThere) {
    const EptFixture fixture;
    Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
    EXPECT_EQ(tree.nodeVisibility(OctreeNodeId().child(4)), 0);
    for (const OctreeNodeId id : {OctreeNodeId().child(0), OctreeNodeId().child(4).child(6).child(0)}) {
        Octree::NodeFacts facts;
        EXPECT_THROW(tree.nodeFacts(id, facts, {}), Octree::StoreError);
        EXPECT_THROW(tree.nodeVisibility(id), Octree::StoreError);
    }
}

TEST(EptErrors, LevelsThatHaveNoIdentifierAreCutOff) {
    EptFixture fixture;
    nlohmann::json& page = fixture.hierarchy["1-1-0-0"];
    for (int depth = 2; depth < 25; ++depth) {
        page[std::to_string(depth) + "-" + std::to_string(std::uint64_t{1} << (depth - 1)) + "-0-0"] = 0;
    }
    fixture.writeAll();
    Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
    EXPECT_EQ(Support::allNodes(tree).back().level(), OctreeNodeId::MAX_REPRESENTABLE_LEVEL);
}

TEST(EptErrors, AStoreWithoutPointsIsNone) {
    EptFixture fixture;
    fixture.metadata["points"] = 0;
    fixture.hierarchy["0-0-0-0"] = nlohmann::json::object();
    fixture.writeAll();
    EXPECT_EQ(errorOf(fixture), "");
}
