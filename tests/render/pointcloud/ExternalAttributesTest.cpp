#include <render/pointcloud/PointCloudQuery.h>

#include <tests/render/pointcloud/StreamerFixture.h>

#include <future>

namespace {

using Octree::Location;
using Octree::OctreeNodeId;
using TestSupport::SyntheticOctree;
using TestSupport::SyntheticOctreeShape;

constexpr std::size_t POINTS = 4;
const SyntheticOctreeShape CLOUD{.depth = 1, .pointsPerNode = POINTS};

/// Hides every other point of CLOUD, and r3 as a whole.
class HidingSource : public SyntheticOctree {
public:
    HidingSource()
        : SyntheticOctree({.depth = 1, .pointsPerNode = POINTS, .visibility = [](OctreeNodeId id) {
                               return id == OctreeNodeId().child(3) ? 2 : 0;
                           }}) {}

    bool readNode(OctreeNodeId, double, Octree::NodePointData& data, const std::stop_token&) override {
        data.reset(POINTS);
        data.setVisibilities({0, 1, 0, 1});
        return true;
    }
};

class ExternalAttributesTest : public TestSupport::StreamerFixture {
protected:
    explicit ExternalAttributesTest() { streamer = attached(octree); }

    std::unique_ptr<Streamer> attached(const std::shared_ptr<Octree::Octree>& cloud) {
        auto result = std::make_unique<Streamer>(cloud, 1000);
        result->attach(nextId(), nextId(), camera, nullptr);
        result->setPriorityThreshold(1.0f);
        return result;
    }

    void hide() {
        octree->addExternalAttributes(std::make_shared<HidingSource>(), hiding);
        streamer->onOctreeChanged();
    }

    static void expectHidden(Streamer& shown) {
        EXPECT_EQ(published(shown), (std::set<std::string>{"r", "r0", "r1", "r2", "r4", "r5", "r6", "r7"}));
        EXPECT_EQ(shown.publishedPointCount(), 8 * POINTS / 2);
    }

    static std::size_t queriedPoints(const Streamer& from) {
        const auto access = from.queryAccess();
        Render::PointCloudQuery query(access.octree, access.cache, Eigen::Matrix4f::Identity(), nullptr, 21,
                                      0.0f, std::chrono::nanoseconds(0));
        std::vector<Render::VertexPosColor> points(100);
        return query.getNextPointChunk(points.data(), points.size());
    }

    const Location location = PoTree::FileSystemLocation("external-attributes/cloud");
    const Location hiding = PoTree::FileSystemLocation("external-attributes/hiding");
    const std::shared_ptr<SyntheticOctree> source = sourceOf(CLOUD);
    const std::shared_ptr<Octree::Octree> octree = SyntheticOctree::open(source, location);
    /// Of the same location, without external attributes.
    const std::unique_ptr<Streamer> plain = attached(SyntheticOctree::open(source, location));
    std::unique_ptr<Streamer> streamer;
};

TEST_F(ExternalAttributesTest, HidePointsOfAnOpenCloudAndOfNoOther) {
    streamer->startAsyncReload(nullptr, 21);
    streamer->waitUntilIdle();
    EXPECT_EQ(streamer->publishedPointCount(), 9 * POINTS);
    EXPECT_EQ(streamer->vertexCache(), plain->vertexCache());
    EXPECT_EQ(queriedPoints(*streamer), 9 * POINTS);

    hide();
    streamer->waitUntilIdle();
    expectHidden(*streamer);
    EXPECT_EQ(queriedPoints(*streamer), 8 * POINTS / 2);
    EXPECT_NE(streamer->vertexCache(), plain->vertexCache());

    walk(*plain);
    EXPECT_EQ(plain->publishedPointCount(), 9 * POINTS);
    EXPECT_EQ(queriedPoints(*plain), 9 * POINTS);
}

TEST_F(ExternalAttributesTest, ReachEveryCloudOverTheSameOctree) {
    const auto sibling = attached(octree);
    walk(*sibling);
    EXPECT_EQ(sibling->publishedPointCount(), 9 * POINTS);
    hide();
    EXPECT_EQ(queriedPoints(*sibling), 8 * POINTS / 2);
    walk(*sibling);
    expectHidden(*sibling);
}

TEST_F(ExternalAttributesTest, AddedDuringAWalkLeaveNoNodeInTheWrongCache) {
    std::promise<void> reached, proceed;
    std::atomic<bool> isFirst = true;
    source->setReadHook([&](OctreeNodeId id) {
        if (id == OctreeNodeId().child(5) && isFirst.exchange(false)) {
            reached.set_value();
            proceed.get_future().wait();
        }
    });
    streamer->startAsyncReload(nullptr, 21);
    reached.get_future().wait();
    hide();
    proceed.set_value();
    streamer->waitUntilIdle();
    expectHidden(*streamer);
    walk(*plain);
    EXPECT_EQ(plain->publishedPointCount(), 9 * POINTS);
}

}  // namespace
