#include <core/File.h>
#include <octree/CacheIdentifier.h>
#include <octree/Location.h>
#include <octree/StoreError.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

#include <unordered_set>

using Octree::CacheIdentifier;
using Octree::Location;
using PoTree::FileSystemLocation;

namespace {

/// What is wrong with a path, without the path.
std::string errorOf(const std::filesystem::path& path) {
    try {
        return "found " + Location::fromPath(path).toString();
    } catch (const Octree::StoreError& error) {
        const std::string prefix = Core::pathToUtf8(path) + ": ";
        const std::string text = error.what();
        EXPECT_EQ(text.substr(0, prefix.size()), prefix);
        return text.substr(prefix.size());
    }
}

}  // namespace

TEST(Location, IsTheSameHoweverItsPathIsSpelled) {
    const Location plain = FileSystemLocation("clouds/lion");
    const Location spelled = FileSystemLocation("clouds/./other/../lion/");
    EXPECT_EQ(plain, spelled);
    EXPECT_EQ(std::hash<Location>()(plain), std::hash<Location>()(spelled));
    EXPECT_EQ(spelled.toString(), "clouds/lion");
    EXPECT_NE(plain, Location(FileSystemLocation("clouds/tiger")));
    EXPECT_NE(plain, Location(Entwine::FileSystemLocation("clouds/lion")));
    EXPECT_NE(plain, Location());
}

TEST(Location, ExistsWhereItsKindOfStoreIs) {
    const Support::TemporaryFolder folder;
    const Location potree = FileSystemLocation(folder.path());
    const Location entwine = Entwine::FileSystemLocation(folder.path());
    EXPECT_FALSE(potree.exists());
    folder.write("metadata.json", "{}");
    EXPECT_TRUE(potree.exists());
    EXPECT_FALSE(entwine.exists());
    folder.write("ept.json", "{}");
    EXPECT_TRUE(entwine.exists());
    EXPECT_FALSE(Location().exists());
}

TEST(Location, IsFoundByItsFolderOrItsFile) {
    const Support::TemporaryFolder folder;
    folder.write("ept.json", "{}");
    const Location entwine = Entwine::FileSystemLocation(folder.path());
    EXPECT_EQ(Location::fromPath(folder.path() / ""), entwine);
    EXPECT_EQ(Location::fromPath(folder.path() / "ept.json"), entwine);
    EXPECT_EQ(entwine.folder(), folder.path());

    folder.write("metadata.json", "{}");
    EXPECT_EQ(Location::fromPath(folder.path()), entwine);
    folder.write("hierarchy.bin", "");
    const Location potree = FileSystemLocation(folder.path());
    EXPECT_EQ(Location::fromPath(folder.path()), potree);
    EXPECT_EQ(Location::fromPath(folder.path() / "metadata.json"), potree);
    EXPECT_EQ(Location::fromPath(folder.path() / "ept.json"), entwine);
    std::filesystem::remove(folder.path() / "ept.json");
    EXPECT_EQ(Location::fromPath(folder.path()), potree);
}

TEST(Location, NamesWhatItIsNotAndWhatWasLookedFor) {
    const Support::TemporaryFolder folder;
    EXPECT_EQ(errorOf(folder.path() / "absent"), "there is no such folder or file");
    EXPECT_EQ(errorOf(folder.path()),
              "is not a point cloud store: it has neither a metadata.json (Potree 2.0) nor an ept.json "
              "(Entwine); of COPC, name the file");
    folder.write("scan.copc.laz", std::string("LASF") + std::string(1000, '\0'));
    EXPECT_EQ(errorOf(folder.path() / "scan.copc.laz"),
              "is not a point cloud store: it is neither a folder nor a metadata.json (Potree 2.0), an "
              "ept.json (Entwine) or a COPC file");

    const std::string others = "; only Potree 2.0 and Entwine stores and COPC files are";
    folder.write("cloud.js", "{}");
    EXPECT_EQ(errorOf(folder.path()), "is a Potree 1 store, which is not read" + others);
    EXPECT_EQ(errorOf(folder.path() / "cloud.js"), "belongs to a Potree 1 store, which is not read" + others);
    folder.write("ept.json", "{}");
    EXPECT_EQ(errorOf(folder.path()), "found " + Core::pathToUtf8(folder.path()));
}

TEST(CacheIdentifier, TellsUnitScalesAndExternalAttributesApart) {
    const Location location = FileSystemLocation("a");
    const Location external = FileSystemLocation("b");
    const std::unordered_set<CacheIdentifier> set{
        {location, 1.0}, {location, 0.3048}, {location, 1.0}, {location, 1.0, {external}}};
    EXPECT_EQ(set.size(), 3u);
}
