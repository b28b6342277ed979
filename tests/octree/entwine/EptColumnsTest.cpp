#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>

#include <gtest/gtest.h>
#include <tests/octree/entwine/EptFixture.h>

#include <cmath>
#include <limits>

using Octree::Attribute;
using Octree::NodePointData;
using Octree::OctreeNodeId;
using Support::bytesOf;
using Support::dimension;
using Support::EptFixture;
using Position = Math::Point<double, 3>;

namespace {

/// A store of one node whose schema is X, Y, Z in whole steps from the cube's centre and more.
struct OneNode {
    OneNode() {
        fixture.hierarchy["0-0-0-0"] = {{"0-0-0-0", 1}};
        fixture.metadata["bounds"] = {-128, -128, -128, 128, 128, 128};
        fixture.metadata["schema"] = {dimension("X", "signed", 4), dimension("Y", "signed", 4),
                                      dimension("Z", "signed", 4)};
    }

    nlohmann::json& add(const std::string& name, const std::string& type, unsigned size) {
        fixture.metadata["schema"].push_back(dimension(name, type, size));
        return fixture.metadata["schema"].back();
    }

    /// The columns of points at the origin with these bytes for what was added.
    NodePointData read(const std::vector<std::string>& rest) {
        std::string tile;
        for (const std::string& bytes : rest) {
            tile += std::string(12, '\0') + bytes;
        }
        return readTile(tile);
    }

    NodePointData readTile(const std::string& tile) {
        fixture.tiles["0-0-0-0"] = tile;
        fixture.writeAll();
        Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
        hasColors = tree.storeFacts().hasColors;
        NodePointData data;
        tree.readNode(OctreeNodeId(), 1.0, data, {});
        return data;
    }

    EptFixture fixture;
    bool hasColors = false;
};

template <class T>
std::uint16_t intensityOf(T value, const std::string& type, double maximum = 0.0) {
    OneNode store;
    nlohmann::json& intensity = store.add("Intensity", type, sizeof(T));
    if (maximum > 0.0) {
        intensity["maximum"] = maximum;
    }
    return store.read({bytesOf(value)}).intensity(0);
}

template <class T>
Math::Color colorOf(T red, T green, T blue, const std::string& type, double maximum = 0.0) {
    OneNode store;
    for (const char* name : {"Red", "Green", "Blue"}) {
        nlohmann::json& channel = store.add(name, type, sizeof(T));
        if (maximum > 0.0) {
            channel["maximum"] = maximum;
        }
    }
    return store.read({bytesOf(red) + bytesOf(green) + bytesOf(blue)}).color(0);
}

template <class T>
void expectPositions(const std::string& type, T low, T high) {
    SCOPED_TRACE(type + " of " + std::to_string(sizeof(T)) + " bytes");
    OneNode store;
    store.fixture.metadata["schema"] = {dimension("X", type, sizeof(T), 0.5, -10),
                                        dimension("Y", type, sizeof(T)),
                                        dimension("Z", type, sizeof(T), 1.0, 3)};
    const NodePointData data = store.readTile(bytesOf(low) + bytesOf(T(5)) + bytesOf(high) + bytesOf(high) +
                                              bytesOf(low) + bytesOf(T(7)));
    ASSERT_EQ(data.size(), 2u);
    const auto a = static_cast<double>(low), b = static_cast<double>(high);
    EXPECT_EQ(data.position(0), Position(a * 0.5 - 10, 5, b + 3));
    EXPECT_EQ(data.position(1), Position(b * 0.5 - 10, a, 10));
}

}  // namespace

TEST(EptColumns, PositionsOfEveryType) {
    expectPositions<std::int8_t>("signed", -100, 100);
    expectPositions<std::int64_t>("signed", -100, 100);
    expectPositions<std::uint8_t>("unsigned", 0, 100);
    expectPositions<std::uint32_t>("unsigned", 1, 100);
    expectPositions<std::uint64_t>("unsigned", 1, 100);
    expectPositions<float>("float", -0.25f, 99.5f);
    expectPositions<double>("float", -0.125, 99.75);
}

TEST(EptColumns, PositionsAreWholeStepsFromAReferenceOnTheGrid) {
    // The centre of the cube, 1000.05, is not on the grid of X; Y is a float and Z has steps of 1.
    OneNode store;
    store.fixture.metadata["bounds"] = {872.05, -128, -127.7, 1128.05, 128, 128.3};
    store.fixture.metadata["schema"] = {dimension("X", "signed", 4, 0.01, 1000.003),
                                        dimension("Y", "float", 8), dimension("Z", "signed", 4)};
    store.fixture.tiles["0-0-0-0"] = bytesOf(1234567 % 12000) + bytesOf(0.5) + bytesOf(7);
    store.fixture.writeAll();
    Entwine::EntwineTree tree{Entwine::FileSystemLocation(store.fixture.folder.path())};
    const Position reference = tree.storeFacts().referencePosition;
    EXPECT_DOUBLE_EQ(reference[0], 1000.003 + 5 * 0.01);
    EXPECT_EQ(reference[1], 0.0);
    EXPECT_EQ(reference[2], 0.0);
    NodePointData data;
    ASSERT_TRUE(tree.readNode(OctreeNodeId(), 1000.0, data, {}));
    EXPECT_EQ(data.position(0), Position((1234567 % 12000 - 5) * (0.01 * 1000), 500, 7000));
}

TEST(EptColumns, CoordinatesThatAreNoNumbersAreOutsideTheBounds) {
    for (const double bad :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), -1e300, 128.1}) {
        OneNode store;
        store.fixture.metadata["schema"][1] = dimension("Y", "float", 8);
        EXPECT_THROW(store.readTile(bytesOf(1) + bytesOf(bad) + bytesOf(1)), Octree::StoreError);
    }
}

TEST(EptColumns, IntensitiesFillSixteenBits) {
    EXPECT_EQ(intensityOf<std::uint8_t>(255, "unsigned"), 65535);
    EXPECT_EQ(intensityOf<std::uint8_t>(1, "unsigned"), 257);
    EXPECT_EQ(intensityOf<std::uint16_t>(40000, "unsigned"), 40000);
    EXPECT_EQ(intensityOf<std::int16_t>(-5, "signed"), 0);
    EXPECT_EQ(intensityOf<std::uint32_t>(70000, "unsigned"), 65535);
    EXPECT_EQ(intensityOf<std::uint32_t>(70000, "unsigned", 140000), 32768);
    EXPECT_EQ(intensityOf<std::uint32_t>(300, "unsigned", 4000), 300);
    EXPECT_EQ(intensityOf<float>(0.5f, "float", 1.0), 32768);
    EXPECT_EQ(intensityOf<float>(0.5f, "float", 2.0), 1);
    EXPECT_EQ(intensityOf<double>(1e300, "float"), 65535);
    EXPECT_EQ(intensityOf<double>(std::numeric_limits<double>::quiet_NaN(), "float"), 0);
}

TEST(EptColumns, IntensityRangeIsDeclaredOrSeenInTheRootAndOneForAllNodes) {
    const auto rangeOf = [](unsigned size, std::uint32_t value, double maximum = 0.0) {
        OneNode store;
        nlohmann::json& intensity = store.add("Intensity", "unsigned", size);
        if (maximum > 0.0) {
            intensity["maximum"] = maximum;
        }
        return store.read({bytesOf(value).substr(0, size)}).intensityRange();
    };
    EXPECT_EQ(rangeOf(1, 3), 65535);  // spread over 16 bits by its type
    EXPECT_EQ(rangeOf(2, 3), 255);
    EXPECT_EQ(rangeOf(2, 256), 511);
    EXPECT_EQ(rangeOf(2, 3, 4000), 4095);
    EXPECT_EQ(rangeOf(2, 300, 255), 255);
    EXPECT_EQ(rangeOf(4, 3, 140000), 65535);

    // The child's are smaller than the root's.
    EptFixture fixture;
    const auto rangeOfChild = [&fixture] {
        Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
        NodePointData data(static_cast<unsigned>(Attribute::Intensity));
        tree.readNode(OctreeNodeId().child(1), 1.0, data, {});
        EXPECT_EQ(data.intensities(), std::vector<std::uint16_t>{30});
        return data.intensityRange();
    };
    EXPECT_EQ(rangeOfChild(), 65535);
    std::filesystem::remove(fixture.folder.path() / fixture.tileFile("0-0-0-0"));
    EXPECT_EQ(rangeOfChild(), 255);  // as good as it gets
}

TEST(EptColumns, ColorDepthIsDeclaredOrSeenInTheRoot) {
    EXPECT_EQ(colorOf<std::uint8_t>(1, 2, 255, "unsigned"), Math::Color(1, 2, 255));
    EXPECT_EQ(colorOf<std::uint16_t>(1, 2, 255, "unsigned"), Math::Color(1, 2, 255));
    EXPECT_EQ(colorOf<std::uint16_t>(1, 2, 256, "unsigned"), Math::Color(0, 0, 1));
    EXPECT_EQ(colorOf<std::uint16_t>(1, 2, 255, "unsigned", 65535), Math::Color(0, 0, 0));
    EXPECT_EQ(colorOf<std::uint16_t>(1, 2, 256, "unsigned", 255), Math::Color(1, 2, 255));
    EXPECT_EQ(colorOf<float>(1.0f, -2.0f, 1e30f, "float"), Math::Color(0, 0, 255));
}

TEST(EptColumns, ColorDepthIsOneForAllNodesWhicheverIsReadFirst) {
    // The child alone looks like 8 bits.
    EptFixture fixture;
    fixture.tiles["0-0-0-0"] = EptFixture::record(0, 0, 0, 0, 0, 0, 0x8000, 0);
    fixture.writeAll();
    const OctreeNodeId child = OctreeNodeId().child(1);
    const auto greenOfChild = [&fixture, child] {
        Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
        NodePointData data(static_cast<unsigned>(Attribute::Color));
        tree.readNode(child, 1.0, data, {});
        return data.color(0).g();
    };
    EXPECT_EQ(greenOfChild(), 0);
    std::filesystem::remove(fixture.folder.path() / fixture.tileFile("0-0-0-0"));
    EXPECT_EQ(greenOfChild(), 8);  // as good as it gets
}

TEST(EptColumns, OtherDimensionsAreFoundByNameWhateverTheirTypeAndPlace) {
    OneNode store;
    store.add("GpsTime", "float", 8);
    store.add("PointSourceId", "unsigned", 8);
    store.add("NormalZ", "signed", 1)["scale"] = 1.0 / 64;
    store.add("NormalX", "float", 8);
    store.add("NormalY", "float", 4);
    store.add("Classification", "float", 4);
    const NodePointData data =
        store.read({bytesOf(1e300) + bytesOf(std::uint64_t{70000}) + bytesOf(std::int8_t{-64}) +
                        bytesOf(0.0) + bytesOf(0.0f) + bytesOf(6.6f),
                    bytesOf(0.0) + bytesOf(~std::uint64_t{0}) + bytesOf(std::int8_t{0}) + bytesOf(1e300) +
                        bytesOf(std::nanf("")) + bytesOf(300.0f)});
    EXPECT_EQ(data.scanIndex(0), 70000u);
    EXPECT_EQ(data.scanIndex(1), 0xffffffffu);
    EXPECT_EQ(data.normal(0), (Math::Point<float, 3>(0, 0, -1)));
    EXPECT_EQ(data.normal(1), (Math::Point<float, 3>()));
    EXPECT_EQ(data.classification(0), 7);
    EXPECT_EQ(data.classification(1), 255);
    EXPECT_FALSE(store.hasColors);
    EXPECT_FALSE(data.has(Attribute::Color));
    EXPECT_FALSE(data.has(Attribute::Intensity));
}

TEST(EptColumns, OnlyWhatIsWantedIsThere) {
    const EptFixture fixture("zstandard");
    Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
    NodePointData data(static_cast<unsigned>(Attribute::Intensity));
    ASSERT_TRUE(tree.readNode(OctreeNodeId(), 1.0, data, {}));
    EXPECT_EQ(data.intensities(), (std::vector<std::uint16_t>{10, 20, 65535}));
    EXPECT_FALSE(data.has(Attribute::Position));
    EXPECT_FALSE(data.has(Attribute::Color));
    EXPECT_EQ(data.size(), 3u);
}
