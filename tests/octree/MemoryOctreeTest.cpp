#include <octree/Octree.h>

#include <gtest/gtest.h>

#include <limits>

using Octree::NodePointData;
using Octree::OctreeNodeId;

namespace {

using Point = Math::Point<double, 3>;

/// A root with children 0 and 5; positions are the reference plus (1, 2, 3).
class MemorySource : public Octree::NodeSource {
public:
    MemorySource() {
        mFacts.boundingCube = {Point(500000.0, 4000000.0, -100.0), Point(501000.0, 4001000.0, 900.0)};
        mFacts.boundingBox = {Point(500000.0, 4000000.0, 0.0), Point(500800.0, 4000900.0, 50.0)};
        mFacts.referencePosition = {500500.0, 4000500.0, 400.0};
        mFacts.spacing = 8.0;
    }

    const Octree::StoreFacts& storeFacts() const override { return mFacts; }
    bool nodeFacts(OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override {
        if (stop.stop_requested()) {
            return false;
        }
        facts.childMask = id.isRoot() ? 0b00100001 : 0;
        facts.visibility = id.isRoot() ? 1 : 2;
        return true;
    }
    bool readNode(OctreeNodeId, double unitScale, NodePointData& data, const std::stop_token&) override {
        data.setPositions({Point(1.0, 2.0, 3.0) * unitScale});
        data.setIntensities({9});
        return true;
    }

    Octree::StoreFacts mFacts;
};

std::shared_ptr<Octree::Octree> makeOctree(double unitScale) {
    return std::make_shared<Octree::Octree>(std::make_shared<MemorySource>(), Octree::Location(), unitScale);
}

}  // namespace

TEST(MemoryOctree, PutsBoxesIntoModelUnitsAroundTheReference) {
    const auto octree = makeOctree(2.0);
    using Box = Math::NBoundingBox<float, 3>;
    EXPECT_EQ(octree->boundingCube(), Box({-1000.0f, -1000.0f, -1000.0f}, {1000.0f, 1000.0f, 1000.0f}));
    EXPECT_EQ(octree->boundingBox(), Box({-1000.0f, -1000.0f, -800.0f}, {600.0f, 800.0f, -700.0f}));
    EXPECT_EQ(octree->boundingCube(OctreeNodeId()), octree->boundingCube());
    EXPECT_EQ(octree->boundingCube(OctreeNodeId().child(5).child(4)),
              Box({500.0f, -1000.0f, 0.0f}, {1000.0f, -500.0f, 500.0f}));
    EXPECT_EQ(octree->spacing(3), 2.0f);
    EXPECT_EQ(octree->spacing(std::size_t{1} << 32), 0.0f);
    octree->setUnitScale(1.0);
    EXPECT_EQ(octree->boundingCube().max.x(), 500.0f);
    EXPECT_EQ(octree->spacing(), 8.0f);
    EXPECT_EQ(octree->cacheIdentifier(), (Octree::CacheIdentifier{Octree::Location(), 1.0}));
}

TEST(MemoryOctree, AnswersForNodesAndStops) {
    const auto octree = makeOctree(1.0);
    const Octree::NodeChildren children = octree->children(OctreeNodeId());
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(children[1].name(), "r5");
    EXPECT_FALSE(octree->isLeaf(OctreeNodeId()));
    EXPECT_TRUE(octree->isLeaf(children[0]));
    EXPECT_EQ(octree->nodeVisibility(children[0]), 2);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_TRUE(octree->children(OctreeNodeId(), stop.get_token()).empty());
}

TEST(MemoryOctree, RefusesUnitScalesThatAreNone) {
    for (const double bad :
         {0.0, -1.0, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_THROW(makeOctree(bad), std::invalid_argument);
        EXPECT_THROW(makeOctree(1.0)->setUnitScale(bad), std::invalid_argument);
    }
    EXPECT_THROW(Octree::Octree(nullptr, Octree::Location()), std::invalid_argument);
    EXPECT_THROW(Octree::Octree(Octree::Location{}), std::invalid_argument);
}

TEST(NodePointData, KeepsOnlyTheColumnsAskedForAndOneLength) {
    NodePointData data(static_cast<unsigned>(Octree::Attribute::Intensity));
    makeOctree(1.0)->getNodePointData(OctreeNodeId(), data);
    EXPECT_FALSE(data.has(Octree::Attribute::Position));
    EXPECT_TRUE(data.positions().empty());
    EXPECT_EQ(data.intensity(0), 9);
    EXPECT_EQ(data.size(), 1u);
    EXPECT_THROW(data.setNormals({}), std::invalid_argument);
    data.reset(2);
    EXPECT_FALSE(data.has(Octree::Attribute::Intensity));
    data.setIntensities({1, 2});
    EXPECT_EQ(data.size(), 2u);
}
