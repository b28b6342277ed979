#include <core/ExceptionChain.h>
#include <octree/JsonDocument.h>
#include <octree/Octree.h>
#include <octree/OpenStopped.h>
#include <octree/RandomAccessFile.h>
#include <octree/StoreError.h>

#include <gtest/gtest.h>
#include <tests/support/HostileStores.h>
#include <tests/support/LargeAllocations.h>
#include <tests/support/PotreeFixture.h>

#include <functional>
#include <thread>

#if !defined(_WIN32)
#include <sys/stat.h>
#endif

using Octree::OctreeNodeId;
using Support::hierarchyRecord;
using Support::PotreeFixture;
using TestSupport::LargeAllocations;

namespace {

constexpr std::size_t MEBIBYTE = std::size_t{1} << 20;

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Octree::StoreError& error) {
        return Core::exceptionChain(error);
    }
    return "none";
}

/// Of opening the store and reading its root; allocations count from that many bytes on.
std::string messageOf(const PotreeFixture& fixture, std::size_t large, std::size_t& allocations) {
    const LargeAllocations counter(large);
    const std::string message = messageOf([&] {
        const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
        Octree::NodePointData data;
        octree.getNodePointData(OctreeNodeId(), data);
    });
    allocations = counter.here();
    return message;
}

void setRoot(PotreeFixture& fixture, std::uint32_t count, std::uint64_t size) {
    fixture.metadata["points"] = count;
    fixture.hierarchy.replace(0, 22, hierarchyRecord(0, 0b00010010, count, 0, size));
}

}  // namespace

TEST(HostileStore, IsRefusedBeforeItCostsAnything) {
    struct Attack {
        std::function<void(PotreeFixture&)> change;
        const char* message;
        std::size_t large = MEBIBYTE;
    };
    const auto list = [](std::size_t count) { return nlohmann::json(std::vector<int>(count, 1)); };
    const Attack attacks[] = {
        {[](auto& store) { setRoot(store, (1u << 21) + 1, 50); },
         "its 2097153 points of 26 bytes are more than a node may have"},
        {[](auto& store) {
             store.metadata["attributes"].push_back(Support::attribute("x", 65000, "undefined"));
             setRoot(store, 1u << 20, 50);
         },
         "its 1048576 points of 65026 bytes are too many for 50 bytes in the file"},
        {[](auto& store) { Support::Hostile::nameEightChildren(store, 50000); },
         "is cut short: it names 400001 nodes and has 50000 records", 2 * MEBIBYTE},
        {[&](auto& store) { store.metadata["scale"] = list(200000); },
         "key \"scale\" is not a list of at most 65536 elements", 32 * MEBIBYTE},
        {[](auto& store) { store.metadata["name"] = std::string(MEBIBYTE, 'x'); },
         "is larger than any metadata.json"},
        {[](auto& store) { store.metadata["version"] = std::string(500000, '3'); }, "333...", 4 * MEBIBYTE},
        {[](auto& store) { store.metadata["encoding"] = "\x1b]0;gone\a\xc2\x9b"; },
         "encoding \"?]0;gone??\" is not supported"}};
    for (const Attack& attack : attacks) {
        PotreeFixture fixture;
        attack.change(fixture);
        fixture.writeAll();
        std::size_t allocations = 0;
        const std::string message = messageOf(fixture, attack.large, allocations);
        EXPECT_NE(message.find(attack.message), std::string::npos) << message;
        EXPECT_LT(message.size(), 3000u);
        EXPECT_EQ(allocations, 0u) << message;
    }
}

TEST(HostileStore, TakesNoMoreMemoryThanItsLimit) {
    for (const char* encoding : {"BROTLI", "UNCOMPRESSED"}) {
        PotreeFixture fixture(encoding);
        Support::Hostile::growBelowR4(fixture, 4);
        fixture.writeAll();
        const Octree::Location location{PoTree::FileSystemLocation(fixture.folder.path())};
        std::size_t refusedAt = 0;
        for (std::uint64_t limit = 1; limit <= 4 * MEBIBYTE; limit *= 2) {
            const LargeAllocations counter(limit + 65536);  // What is there whatever the files say.
            const std::string message = messageOf([&] {
                const Octree::Octree octree(location, 1.0, {}, {.memory = limit});
                Octree::NodePointData data;
                octree.getNodePointData(OctreeNodeId(), data);
                octree.children(OctreeNodeId().child(4).child(0));
            });
            EXPECT_EQ(counter.here(), 0u) << limit;
            const bool isRefused = message.find("its limit is " + std::to_string(limit)) != std::string::npos;
            EXPECT_TRUE(isRefused || message == "none") << message;
            refusedAt += isRefused ? 1 : 0;
        }
        // The description of a thousand bytes is parsed in 64 thousand, 4681 nodes take 900 thousand.
        EXPECT_EQ(refusedAt, 20u) << encoding;
    }
}

TEST(HostileStore, GivesBytesOutOnce) {
    PotreeFixture fixture("UNCOMPRESSED");
    fixture.hierarchy.replace(22, 22, hierarchyRecord(1, 0, 3, 0, 60));  // r1 has the bytes of the root
    const auto read = [&fixture](const std::vector<OctreeNodeId>& ids) {
        fixture.writeAll();
        return messageOf([&] {
            const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
            for (const OctreeNodeId id : ids) {
                Octree::NodePointData data(static_cast<unsigned>(Octree::Attribute::Color));
                octree.getNodePointData(id, data);
            }
        });
    };
    const OctreeNodeId r, r1 = r.child(1), r4 = r.child(4);
    EXPECT_EQ(read({r, r, r, r1, r}), "none");
    const auto hasText = [](const std::string& text, const char* part) {
        return text.find(part) != std::string::npos;
    };
    EXPECT_TRUE(hasText(read({r, r1, r4}),
                        "r4: with its 2 points the nodes read have more than the 7 of the whole store"));
    fixture.metadata["points"] = 100;
    fixture.hierarchy.replace(66, 22, hierarchyRecord(0, 0b01001000, 3, 0, 60));
    EXPECT_TRUE(hasText(read({r, r1, r4}),
                        "r4: with its 60 bytes the nodes read take more than the 140 of octree.bin"));
}

TEST(HostileStore, NamesOfAttributesCanBeShown) {
    PotreeFixture fixture;
    fixture.metadata["attributes"][1]["name"] = "\x1b]0;gone\x07" + std::string(1000, 'x');
    fixture.writeAll();
    const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
    EXPECT_EQ(octree.attributes()[1].name, "?]0;gone?" + std::string(247, 'x') + "...");
}

TEST(JsonDocument, IsDestroyedWithoutAllocating) {
    auto document = std::make_unique<Octree::JsonDocument>(Octree::JsonDocument::parse(
        R"({"a": [[1, [2, {"b": "long enough for the heap, surely"}]], []]})", "f"));
    const LargeAllocations counter(1);
    document.reset();
    EXPECT_EQ(counter.here(), 0u);
}

TEST(HostileStore, FilesThatChangeWhileTheyAreReadAreNoticed) {
    struct Change {
        const char* content;
        int seconds;
        const char* problem;
    };
    const Support::TemporaryFolder folder;
    const std::filesystem::path path = folder.path() / "file";
    char bytes[4];
    for (const Change& change : {Change{"1234", 0, "none"}, Change{"4321", 1, "was written to while"},
                                 Change{"12345", 0, "grows while"}, Change{"123", 0, "ends at byte 3"}}) {
        folder.write("file", "1234");
        // A time that file systems can hold as it is.
        const auto time = std::chrono::floor<std::chrono::seconds>(std::filesystem::last_write_time(path));
        std::filesystem::last_write_time(path, time);
        const Octree::RandomAccessFile file(path);
        folder.write("file", change.content);
        std::filesystem::last_write_time(path, time + std::chrono::seconds(change.seconds));
        const std::string message = messageOf([&] { file.readAll(bytes, {}); });
        EXPECT_NE(message.find(change.problem), std::string::npos) << message;
    }
}

#if !defined(_WIN32)
TEST(HostileStore, PipesAreNoFiles) {
    const PotreeFixture fixture;
    const auto file = fixture.folder.path() / "octree.bin";
    std::filesystem::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    const std::string message =
        messageOf([&] { Octree::Octree(PoTree::FileSystemLocation(fixture.folder.path())); });
    EXPECT_NE(message.find("octree.bin: is not a file"), std::string::npos) << message;
    EXPECT_THROW(Octree::Location::fromPath(file), Octree::StoreError);
}
#endif

TEST(StoreOpening, Stops) {
    const PotreeFixture fixture;
    std::stop_source stop;
    const Octree::Location location{PoTree::FileSystemLocation(fixture.folder.path())};
    EXPECT_NO_THROW(Octree::Octree(location, 1.0, stop.get_token()));
    stop.request_stop();
    EXPECT_THROW(Octree::Octree(location, 1.0, stop.get_token()), Octree::OpenStopped);
}

TEST(StoreOpening, AStoppedHierarchyChunkIsLoadedByTheNextWhoAsks) {
    PotreeFixture fixture;
    Support::Hostile::growBelowR4(fixture, 5);
    fixture.writeAll();
    const OctreeNodeId r4 = OctreeNodeId().child(4);
    const OctreeNodeId deep = r4.child(7).child(0).child(5).child(1).child(6);
    for (int i = 0; i < 20; ++i) {
        const Octree::Octree octree{PoTree::FileSystemLocation(fixture.folder.path())};
        std::stop_source stop;
        std::jthread stopping([&stop, i] {
            std::this_thread::sleep_for(std::chrono::milliseconds(i));
            stop.request_stop();
        });
        octree.children(deep, stop.get_token());
        EXPECT_TRUE(octree.children(deep).empty());
        EXPECT_EQ(octree.children(r4).size(), 8u);
        EXPECT_EQ(octree.children(deep.parent()).size(), 8u);
    }
}
