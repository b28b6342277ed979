#include <core/ExceptionChain.h>
#include <octree/Octree.h>
#include <octree/OpenStopped.h>
#include <octree/StoreError.h>
#include <octree/potree/Store.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

#include <atomic>
#include <thread>

using Octree::Attribute;
using Octree::Location;
using Octree::NodePointData;
using Octree::OctreeNodeId;
using Support::hierarchyRecord;

namespace {

constexpr unsigned VISIBLE = 1, HIDDEN = 2;
const OctreeNodeId ROOT, R1 = ROOT.child(1), R4 = ROOT.child(4), R46 = R4.child(6);

/// For the nodes of a PotreeFixture, visibilities alone: the root's second point is hidden, r1 is hidden as a
/// whole, r4 visible as a whole, both without bytes, and r46 has a hidden point.
struct VisibilityStore {
    VisibilityStore() {
        fixture.metadata["nodeVisibility"] = true;
        fixture.metadata["attributes"] = {Support::attribute("visibility", 1, "uint8")};
        fixture.octree = std::string("\0\x05\0\1", 4);
        setHierarchy(3);
    }

    void setHierarchy(std::uint32_t rootCount, unsigned rootMask = 0b00010010) {
        fixture.hierarchy = hierarchyRecord(0, rootMask, rootCount, 0, rootCount);
        if ((rootMask & 0b10) != 0) {
            fixture.hierarchy += hierarchyRecord(0, 0, 1, 0, 0, HIDDEN);
        }
        const std::size_t firstChunkSize = fixture.hierarchy.size() + 22;
        fixture.hierarchy += hierarchyRecord(2, 0, 2, firstChunkSize, 66, VISIBLE);
        fixture.hierarchy += hierarchyRecord(0, 0b01001000, 2, 0, 0, VISIBLE) +
                             hierarchyRecord(0, 0, 0, 0, 0) + hierarchyRecord(0, 0, 1, 3, 1);
        fixture.metadata["hierarchy"]["firstChunkSize"] = firstChunkSize;
        fixture.writeAll();
    }

    Location location() const { return Location::fromPath(fixture.folder.path()); }

    Support::PotreeFixture fixture{"UNCOMPRESSED"};
};

std::vector<std::uint8_t> visibilitiesOf(const Octree::Octree& octree, OctreeNodeId id) {
    NodePointData data;
    EXPECT_TRUE(octree.getNodePointData(id, data));
    EXPECT_EQ(data.has(Attribute::Position), !data.empty());
    return data.visibilities();
}

std::string errorOf(const Octree::Octree& octree, OctreeNodeId id) {
    try {
        visibilitiesOf(octree, id);
        return "";
    } catch (const Octree::StoreError& error) {
        return Core::exceptionChain(error);
    }
}

class ExternalAttributes : public testing::Test {
protected:
    Support::PotreeFixture main;
    Octree::Octree octree{Location::fromPath(main.folder.path())};
    VisibilityStore external;
};

}  // namespace

TEST_F(ExternalAttributes, HidePointsAndWholeNodes) {
    EXPECT_EQ(visibilitiesOf(octree, ROOT), std::vector<std::uint8_t>());
    octree.addExternalAttributeLocation(external.location());
    EXPECT_EQ(visibilitiesOf(octree, ROOT), (std::vector<std::uint8_t>{0, 5, 0}));
    EXPECT_EQ(visibilitiesOf(octree, R1), (std::vector<std::uint8_t>{1}));
    EXPECT_EQ(visibilitiesOf(octree, R4), (std::vector<std::uint8_t>{0, 0}));
    EXPECT_EQ(visibilitiesOf(octree, R4.child(3)), std::vector<std::uint8_t>());
    EXPECT_EQ(visibilitiesOf(octree, R46), (std::vector<std::uint8_t>{1}));

    EXPECT_EQ(octree.nodeVisibility(R1), 2);
    EXPECT_EQ(octree.nodeVisibility(R4), 0);  // the cloud itself does not say that all are visible
    Octree::NodeFacts facts;
    octree.nodeFacts(R1, facts);
    EXPECT_EQ(facts.visibility, 2);
}

TEST_F(ExternalAttributes, AreNotWaitedForWhenStopped) {
    // r46 lies below a reference, so the external hierarchy must be read to know that it is hidden.
    std::string& hierarchy = external.fixture.hierarchy;
    hierarchy.replace(hierarchy.size() - 22, 22, hierarchyRecord(0, 0, 1, 0, 0, HIDDEN));
    external.fixture.writeAll();
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(octree.addExternalAttributeLocation(external.location(), stop.get_token()),
                 Octree::OpenStopped);
    EXPECT_EQ(octree.nodeVisibility(R46), 0) << "nothing is added";
    octree.addExternalAttributeLocation(external.location());
    EXPECT_EQ(octree.pointCount(R46), 1u);
    Octree::NodeFacts facts;
    EXPECT_EQ(octree.nodeVisibility(R46, stop.get_token()), 0);
    EXPECT_FALSE(octree.nodeFacts(R46, facts, stop.get_token()));
    EXPECT_EQ(octree.nodeVisibility(R46), 2);
}

TEST_F(ExternalAttributes, HideWhatAnyOfThemHides) {
    main.metadata["nodeVisibility"] = true;
    // r1 as a whole visible, the root hidden.
    main.hierarchy[0] = static_cast<char>(main.hierarchy[0] | 0x20);
    main.hierarchy[22] = static_cast<char>(main.hierarchy[22] | 0x10);
    main.writeAll();
    Octree::Octree own(Location::fromPath(main.folder.path()));
    VisibilityStore second;
    second.fixture.hierarchy.replace(22, 22, hierarchyRecord(0, 0, 1, 0, 0, VISIBLE));
    second.fixture.writeAll();
    own.addExternalAttributeLocation(second.location());
    EXPECT_EQ(own.nodeVisibility(ROOT), 2);
    EXPECT_EQ(own.nodeVisibility(R1), 1);
    EXPECT_EQ(visibilitiesOf(own, R1), (std::vector<std::uint8_t>{0}));
    own.addExternalAttributeLocation(external.location());
    EXPECT_EQ(own.nodeVisibility(R1), 2);
    EXPECT_EQ(visibilitiesOf(own, R1), (std::vector<std::uint8_t>{1}));
}

TEST_F(ExternalAttributes, FillColumnsThatTheCloudLacksAndNoOthers) {
    Support::PotreeFixture more("UNCOMPRESSED");
    more.metadata["attributes"] = {Support::attribute("intensity", 2, "uint16"),
                                   Support::attribute("classification", 1, "uint8")};
    more.octree = std::string("ab\4cd\5ef\6", 9);
    more.hierarchy = hierarchyRecord(0, 0, 3, 0, 9);
    more.metadata["hierarchy"]["firstChunkSize"] = 22;
    more.writeAll();
    octree.addExternalAttributeLocation(Location::fromPath(more.folder.path()));
    NodePointData data;
    ASSERT_TRUE(octree.getNodePointData(ROOT, data));
    EXPECT_EQ(data.classifications(), (std::vector<std::uint8_t>{4, 5, 6}));
    EXPECT_EQ(data.intensity(0), 7);
    EXPECT_EQ(octree.nodeVisibility(R1), 0);  // it has no say, nor such a node

    EXPECT_EQ(data.intensityRange(), 65535);

    // One that lacks intensities takes over their range with them.
    more.metadata["attributes"][0]["max"] = {4000};
    more.writeMetadata();
    main.metadata["attributes"][1]["name"] = "echo";
    main.writeMetadata();
    Octree::Octree lacking(octree.location());
    lacking.addExternalAttributeLocation(Location::fromPath(more.folder.path()));
    ASSERT_TRUE(lacking.getNodePointData(ROOT, data));
    EXPECT_EQ(data.intensity(0), 'a' + 256 * 'b');
    EXPECT_EQ(data.intensityRange(), 4095);

    NodePointData colors(static_cast<unsigned>(Attribute::Color));
    EXPECT_TRUE(octree.getNodePointData(R1, colors));
    EXPECT_THROW(octree.getNodePointData(R1, data), Octree::StoreError);
}

TEST_F(ExternalAttributes, OfOtherNodesAreAnErrorThatNamesBothStoresAndTheNode) {
    const std::string mainName = octree.location().toString();
    const std::string externalName = external.location().toString();
    const auto prefix = [&](const std::string& node) {
        return mainName + ": node " + node + ": its external attributes in " + externalName +
               " cannot be used: " + externalName;
    };
    external.setHierarchy(2);
    octree.addExternalAttributeLocation(external.location());
    EXPECT_EQ(errorOf(octree, ROOT), prefix("r") + ": node r: it has 2 points, in the cloud it has 3");

    external.setHierarchy(3, 0b00010000);
    Octree::Octree another(octree.location());
    another.addExternalAttributeLocation(external.location());
    EXPECT_EQ(errorOf(another, ROOT), "");
    EXPECT_EQ(errorOf(another, R1), prefix("r1") + "/hierarchy.bin: node r1: there is no such node");
    EXPECT_THROW(another.nodeVisibility(R1), Octree::StoreError);
    EXPECT_EQ(another.children(ROOT).size(), 2u);
}

TEST_F(ExternalAttributes, ThatCannotBeOpenedChangeNothing) {
    external.fixture.metadata["attributes"] = nlohmann::json::array();
    external.fixture.writeMetadata();
    EXPECT_THROW(octree.addExternalAttributeLocation(external.location()), Octree::StoreError);
    EXPECT_THROW(octree.addExternalAttributeLocation(Location()), std::invalid_argument);
    EXPECT_TRUE(octree.cacheIdentifier().externalAttributes.empty());
    EXPECT_EQ(visibilitiesOf(octree, ROOT), std::vector<std::uint8_t>());
    EXPECT_THROW(Octree::Octree{VisibilityStore().location()}, Octree::StoreError);  // no cloud by itself
}

TEST_F(ExternalAttributes, CountOnceAndNeverReachASnapshot) {
    const std::shared_ptr<Octree::Octree> before = octree.snapshot();
    octree.addExternalAttributeLocation(external.location());
    octree.addExternalAttributeLocation(external.location());
    octree.addExternalAttributes(
        std::make_shared<PoTree::Store>(*external.location().potree(), PoTree::StoreRole::ExternalAttributes),
        external.location());
    EXPECT_EQ(octree.cacheIdentifier().externalAttributes, std::vector<Location>{external.location()});
    EXPECT_EQ(octree.snapshot()->cacheIdentifier(), octree.cacheIdentifier());
    EXPECT_EQ(octree.snapshot()->nodeVisibility(R1), 2);
    EXPECT_TRUE(before->cacheIdentifier().externalAttributes.empty());
    EXPECT_EQ(before->nodeVisibility(R1), 0);
}

TEST_F(ExternalAttributes, MayBeAddedWhileOthersRead) {
    std::vector<std::unique_ptr<VisibilityStore>> stores;
    for (int i = 0; i < 8; ++i) {
        stores.push_back(std::make_unique<VisibilityStore>());
    }
    std::atomic<bool> done = false;
    {
        std::vector<std::jthread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                bool wasHidden = false;
                while (!done) {
                    const bool isHidden = octree.nodeVisibility(R1) == 2;
                    EXPECT_TRUE(isHidden || !wasHidden);
                    wasHidden = isHidden;
                    const std::vector<std::uint8_t> visibilities = visibilitiesOf(octree, ROOT);
                    EXPECT_TRUE(!isHidden || visibilities == (std::vector<std::uint8_t>{0, 5, 0}));
                    EXPECT_LE(octree.snapshot()->cacheIdentifier().externalAttributes.size(), 8u);
                }
            });
        }
        std::vector<std::jthread> writers;
        for (const auto& store : stores) {
            writers.emplace_back([&octree = octree, location = store->location()] {
                octree.addExternalAttributeLocation(location);
            });
        }
        writers.clear();
        done = true;
    }
    EXPECT_EQ(octree.cacheIdentifier().externalAttributes.size(), 8u);
}
