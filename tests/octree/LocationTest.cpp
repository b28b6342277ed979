#include <octree/CacheIdentifier.h>
#include <octree/Location.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

#include <unordered_set>

using Octree::CacheIdentifier;
using Octree::Location;
using PoTree::FileSystemLocation;

TEST(Location, IsTheSameHoweverItsPathIsSpelled) {
    const Location plain = FileSystemLocation("clouds/lion");
    const Location spelled = FileSystemLocation("clouds/./other/../lion/");
    EXPECT_EQ(plain, spelled);
    EXPECT_EQ(std::hash<Location>()(plain), std::hash<Location>()(spelled));
    EXPECT_EQ(spelled.toString(), "clouds/lion");
    EXPECT_NE(plain, Location(FileSystemLocation("clouds/tiger")));
    EXPECT_NE(plain, Location());
}

TEST(Location, ExistsWhereMetadataIs) {
    const Support::TemporaryFolder folder;
    const Location location = FileSystemLocation(folder.path());
    EXPECT_FALSE(location.exists());
    folder.write("metadata.json", "{}");
    EXPECT_TRUE(location.exists());
    EXPECT_FALSE(Location().exists());
}

TEST(CacheIdentifier, TellsUnitScalesApart) {
    const Location location = FileSystemLocation("a");
    const std::unordered_set<CacheIdentifier> set{{location, 1.0}, {location, 0.3048}, {location, 1.0}};
    EXPECT_EQ(set.size(), 2u);
}
