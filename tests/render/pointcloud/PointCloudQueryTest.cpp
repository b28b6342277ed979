#include <core/ExceptionChain.h>
#include <gtest/gtest.h>
#include <octree/StoreError.h>
#include <render/pointcloud/PointCloudQuery.h>

#include <tests/support/SyntheticOctree.h>

#include <algorithm>
#include <array>

namespace {

using Math::Point;
using Octree::BoxTestResult;
using Render::PointCloudQuery;
using Render::VertexPosColor;

// The points with x below a limit.
class BelowX final : public Render::IFilter {
public:
    explicit BelowX(float limit) : mLimit(limit) {}
    bool testPosition(const Point<float, 3>& position) override { return position.x() < mLimit; }
    BoxTestResult testBox(const Math::NBoundingBox<float, 3>& box) override {
        return box.max.x() < mLimit    ? BoxTestResult::Inside
               : box.min.x() >= mLimit ? BoxTestResult::Outside
                                       : BoxTestResult::Intersecting;
    }

private:
    float mLimit;
};

class PointCloudQueryTest : public testing::Test {
protected:
    PointCloudQuery query(Render::IFilter* filter, std::size_t maxLevel = 21, float minSpacing = 0.0f,
                          std::shared_ptr<PointCloudQuery::Cache> cache = nullptr) {
        return {octree, std::move(cache), world, filter, maxLevel, minSpacing, {}};
    }

    static std::vector<VertexPosColor> drain(PointCloudQuery& query, std::size_t chunk) {
        std::vector<VertexPosColor> all;
        std::vector<VertexPosColor> buffer(chunk);
        while (const std::size_t count = query.getNextPointChunk(buffer.data(), chunk)) {
            all.insert(all.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
        }
        return all;
    }

    std::shared_ptr<TestSupport::SyntheticOctree> source = std::make_shared<TestSupport::SyntheticOctree>(
        TestSupport::SyntheticOctreeShape{.depth = 2, .pointsPerNode = 7});
    std::shared_ptr<Octree::Octree> octree = TestSupport::SyntheticOctree::open(source);
    Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
};

TEST_F(PointCloudQueryTest, ChunksOfAnySizeGiveThePointsOfTheRegionOnce) {
    world(0, 3) = 100.0f;
    world.topLeftCorner<3, 3>() *= 2.0f;
    BelowX filter(101.0f);
    std::vector<std::array<float, 3>> expected;
    for (const Octree::OctreeNodeId id : source->allNodes()) {
        for (std::size_t i = 0; i < 7; ++i) {
            const Point<float, 3> p = Math::transformPoint(world, source->position(id, i).cast<float>());
            if (p.x() < 101.0f) {
                expected.push_back({p.x(), p.y(), p.z()});
            }
        }
    }
    for (const std::size_t chunk : {1u, 5u, 100u, 100000u}) {
        auto narrow = query(&filter);
        std::vector<std::array<float, 3>> found;
        for (const VertexPosColor& v : drain(narrow, chunk)) {
            found.push_back({v.position.x(), v.position.y(), v.position.z()});
        }
        EXPECT_EQ(found, expected) << chunk;  // Breadth first is the order of allNodes().
    }
}

TEST_F(PointCloudQueryTest, LevelSpacingAndRegionBoundTheNodes) {
    auto root = query(nullptr, 0);
    const auto points = drain(root, 3);
    EXPECT_EQ(points.size(), 7u);
    EXPECT_EQ(points[0].color, TestSupport::SyntheticOctree::color({}));
    auto coarse = query(nullptr, 21, 0.25f);  // Level 2 has exactly this spacing.
    EXPECT_EQ(drain(coarse, 64).size(), 9u * 7u);
    BelowX nothing(-1000.0f);
    auto empty = query(&nothing);
    const std::size_t readsBefore = source->readCount();
    EXPECT_TRUE(drain(empty, 64).empty());
    EXPECT_EQ(source->readCount(), readsBefore);
}

TEST_F(PointCloudQueryTest, AFailureTellsItsCauseAndCanBeTriedAgain) {
    source->setReadHook([](Octree::OctreeNodeId id) {
        if (id.level() == 1) {
            throw Octree::StoreError("bad node");
        }
    });
    const auto cache = PointCloudQuery::createOrGetSharedCache({}, 1.0, 1000, 10);
    auto failing = query(nullptr, 1, 0.0f, cache);
    VertexPosColor points[100];
    try {
        failing.getNextPointChunk(points, 100);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(Core::exceptionChain(error), "Querying node data failed: bad node");
    }
    source->setReadHook(nullptr);
    EXPECT_EQ(drain(failing, 100).size(), 8u * 7u);
    auto again = query(nullptr, 1, 0.0f, cache);
    const std::size_t readsBefore = source->readCount();
    EXPECT_EQ(drain(again, 100).size(), 9u * 7u);
    EXPECT_EQ(source->readCount(), readsBefore);
}

}  // namespace
