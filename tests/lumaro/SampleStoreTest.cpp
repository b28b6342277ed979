#include <core/Brotli.h>
#include <octree/Octree.h>
#include <octree/potree/FileSystemLocation.h>
#include <tests/support/PotreeFixture.h>
#include <tools/lumaro/Random.h>
#include <tools/lumaro/SampleScene.h>
#include <tools/lumaro/SampledOctree.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using Octree::OctreeNodeId;
using Tool::StorePoint;

namespace {

constexpr size_t POINTS = 30000;

/// What our own reader gives back of a point.
StorePoint readable(const StorePoint& point) {
    StorePoint kept;
    kept.position = point.position;
    for (size_t channel = 0; channel < 3; ++channel) {
        kept.color[channel] = static_cast<uint16_t>(point.color[channel] / 257 * 257);
    }
    kept.intensity = point.intensity;
    kept.classification = point.classification;
    return kept;
}

struct DecodedStore {
    explicit DecodedStore(const std::filesystem::path& folder)
        : octree(Octree::Location(PoTree::FileSystemLocation(folder))) {
        std::vector<OctreeNodeId> open{OctreeNodeId()};
        while (!open.empty()) {
            const OctreeNodeId id = open.back();
            open.pop_back();
            read(id);
            const Octree::NodeChildren children = octree.children(id);
            open.insert(open.end(), children.begin(), children.end());
        }
    }

    Octree::Octree octree;
    std::vector<StorePoint> points;
    size_t deepest = 0;
    size_t outside = 0;

private:
    void read(OctreeNodeId id) {
        Octree::NodePointData data;
        ASSERT_TRUE(octree.getNodePointData(id, data));
        const Tool::StoreDescription description = Tool::sampleDescription();
        const auto cube = octree.boundingCube(id);
        for (size_t i = 0; i < data.size(); ++i) {
            StorePoint point;
            const Math::Point<double, 3> absolute = data.position(i) + octree.referencePosition();
            for (int axis = 0; axis < 3; ++axis) {
                const auto a = static_cast<size_t>(axis);
                point.position[a] = static_cast<int32_t>(
                    std::lround((absolute[axis] - description.offset[a]) / description.scale));
            }
            const Math::Color color = data.color(i);
            point.color = {static_cast<uint16_t>(color.r() * 257), static_cast<uint16_t>(color.g() * 257),
                           static_cast<uint16_t>(color.b() * 257)};
            point.intensity = data.intensity(i);
            point.classification = data.classification(i);
            points.push_back(point);
            outside += cube.contains(data.position(i).cast<float>()) ? 0U : 1U;
        }
        deepest = std::max(deepest, id.level());
    }
};

uint64_t mixed(uint64_t hash, uint64_t value) {
    return (hash ^ value) * 0x100000001b3U;
}

uint64_t checksum(const std::string& bytes) {
    uint64_t hash = 0xcbf29ce484222325U;
    for (const char byte : bytes) {
        hash = mixed(hash, static_cast<unsigned char>(byte));
    }
    return hash;
}

uint64_t littleEndian(const std::string& bytes, size_t offset, size_t size) {
    uint64_t value = 0;
    for (size_t i = size; i > 0; --i) {
        value = value << 8U | static_cast<unsigned char>(bytes[offset + i - 1]);
    }
    return value;
}

/// Of the points as they are before compression, node by node: other versions of Brotli compress otherwise.
uint64_t contentChecksum(const Support::TemporaryFolder& folder, const std::string& store) {
    const std::string hierarchy = folder.read(store + "/hierarchy.bin");
    const std::string octree = folder.read(store + "/octree.bin");
    uint64_t hash = 0;
    for (size_t record = 0; record < hierarchy.size(); record += 22) {
        hash = mixed(hash, littleEndian(hierarchy, record, 6));
        if (hierarchy[record] != 2) {
            const std::string chunk = octree.substr(littleEndian(hierarchy, record + 6, 8),
                                                    littleEndian(hierarchy, record + 14, 8));
            hash = mixed(hash, checksum(Core::brotliDecode(chunk)));
        }
    }
    return mixed(hash, checksum(folder.read(store + "/metadata.json")));
}

}  // namespace

TEST(SampleStore, HoldsEveryGeneratedPointOnceInsideItsNode) {
    const Support::TemporaryFolder folder;
    std::vector<StorePoint> expected = Tool::samplePoints(POINTS);
    // A dense spot makes the tree deep enough for two generations of hierarchy chunks.
    Tool::Random random(5);
    for (int i = 0; i < 3000; ++i) {
        StorePoint point = expected.front();
        for (int32_t& coordinate : point.position) {
            coordinate = static_cast<int32_t>(7000 + random.below(300));
        }
        expected.push_back(point);
    }
    Tool::StoreWriteOptions options;
    options.maxLeafPoints = 100;
    ASSERT_TRUE(
        Tool::writePotreeStore(folder.path() / "store", Tool::sampleDescription(), expected, options));
    DecodedStore decoded(folder.path() / "store");

    std::transform(expected.begin(), expected.end(), expected.begin(), readable);
    std::sort(expected.begin(), expected.end());
    std::sort(decoded.points.begin(), decoded.points.end());
    EXPECT_EQ(decoded.points.size(), expected.size());
    EXPECT_TRUE(decoded.points == expected);
    EXPECT_EQ(decoded.octree.totalPointCount(), expected.size());
    EXPECT_GT(decoded.deepest, 8U);
    EXPECT_EQ(decoded.outside, 0U);
}

TEST(SampleStore, IsTheSameOnEveryMachine) {
    const Support::TemporaryFolder folder;
    ASSERT_TRUE(Tool::writeSampleStore(folder.path() / "first", POINTS));
    ASSERT_TRUE(Tool::writeSampleStore(folder.path() / "second", POINTS));
    for (const char* file : {"/metadata.json", "/hierarchy.bin", "/octree.bin"}) {
        EXPECT_TRUE(folder.read(std::string("first") + file) == folder.read(std::string("second") + file))
            << file;
    }
    EXPECT_EQ(contentChecksum(folder, "first"), 6106928219418493178U);
}

TEST(SampleStore, HoldsTheSamePointsUncompressed) {
    const Support::TemporaryFolder folder;
    Tool::StoreWriteOptions options;
    options.encoding = Tool::StoreEncoding::Uncompressed;
    ASSERT_TRUE(Tool::writeSampleStore(folder.path() / "plain", POINTS, options));
    ASSERT_TRUE(Tool::writeSampleStore(folder.path() / "brotli", POINTS));
    const DecodedStore plain(folder.path() / "plain");
    const DecodedStore brotli(folder.path() / "brotli");
    EXPECT_EQ(plain.octree.encoding(), "UNCOMPRESSED");
    EXPECT_EQ(plain.points.size(), POINTS);
    EXPECT_TRUE(plain.points == brotli.points);
}

TEST(SampleStore, ShowsAllThatBelongsToTheVillage) {
    std::vector<size_t> classes(256, 0);
    for (const StorePoint& point : Tool::samplePoints(POINTS)) {
        ++classes[point.classification];
    }
    for (const size_t present : {1U, 2U, 3U, 5U, 6U, 9U, 11U}) {
        EXPECT_GT(classes[present], 0U) << "class " << present;
    }
    EXPECT_GT(classes[2], POINTS / 5);
}

TEST(SampleStore, ReplacesAStoreButNothingElse) {
    const Support::TemporaryFolder folder;
    const auto store = folder.path() / "store";
    ASSERT_TRUE(Tool::writeSampleStore(store, 500));
    folder.write("store/thumbnail.png", "picture");
    ASSERT_TRUE(Tool::writeSampleStore(store, 700));
    EXPECT_EQ(Octree::Octree(Octree::Location(PoTree::FileSystemLocation(store))).totalPointCount(), 700U);

    folder.write("store/notes.txt", "mine");
    EXPECT_THROW(Tool::writeSampleStore(store, 500), std::runtime_error);
    EXPECT_EQ(folder.read("store/notes.txt"), "mine");
    folder.write("file", "mine");
    EXPECT_THROW(Tool::writeSampleStore(folder.path() / "file", 500), std::runtime_error);
    std::filesystem::create_directory(folder.path() / "half");
    folder.write("half/metadata.json", "{}");
    EXPECT_THROW(Tool::writeSampleStore(folder.path() / "half", 500), std::runtime_error);
    std::filesystem::create_directory(folder.path() / "empty");
    EXPECT_TRUE(Tool::writeSampleStore(folder.path() / "empty", 500));
    // store, file, half, empty: neither unfinished nor old folders remain.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 4);
}

TEST(SampleStore, StoppedLeavesTheOldStore) {
    const Support::TemporaryFolder folder;
    const auto store = folder.path() / "store";
    ASSERT_TRUE(Tool::writeSampleStore(store, 500));
    std::stop_source source;
    Tool::StoreWriteOptions options;
    options.maxLeafPoints = 100;
    options.stop = source.get_token();
    options.onProgress = [&](double) { source.request_stop(); };
    EXPECT_FALSE(Tool::writeSampleStore(store, 5000, options));
    EXPECT_EQ(Octree::Octree(Octree::Location(PoTree::FileSystemLocation(store))).totalPointCount(), 500U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(SampledOctree, KeepsPointsOfInnerNodesTheSpacingApart) {
    const std::vector<StorePoint> points = Tool::samplePoints(5000);
    constexpr int32_t SIDE = 163840;
    const Tool::SampledOctree tree(points, SIDE, 50);
    size_t checked = 0;
    for (const auto& [id, indices] : tree.nodes()) {
        const int64_t spacing = (SIDE >> id.level()) / 128;
        for (size_t i = 0; tree.childMask(id) != 0 && i < indices.size(); ++i) {
            for (size_t j = 0; j < i; ++j) {
                int64_t squared = 0;
                for (size_t axis = 0; axis < 3; ++axis) {
                    const int64_t d = points[indices[i]].position[axis] - points[indices[j]].position[axis];
                    squared += d * d;
                }
                ASSERT_GE(squared, spacing * spacing) << id.name();
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 1000U);
}

TEST(SampledOctree, EndsAtEqualPointsAndRefusesPointsOutside) {
    const std::vector<StorePoint> equal(1000);
    const Tool::SampledOctree tree(equal, 16384, 10);
    size_t total = 0;
    for (const auto& [id, indices] : tree.nodes()) {
        total += indices.size();
    }
    EXPECT_EQ(total, equal.size());
    EXPECT_EQ(tree.nodes().rbegin()->first.level(), Tool::SampledOctree::MAX_LEVEL);

    std::vector<StorePoint> outside(1);
    outside[0].position = {0, 16384, 0};
    EXPECT_THROW(Tool::SampledOctree(outside, 16384, 10), std::invalid_argument);
    EXPECT_THROW(Tool::SampledOctree(equal, 16383, 10), std::invalid_argument);
}
