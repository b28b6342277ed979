#include <octree/potree/FileSystemLocation.h>
#include <tests/support/PotreeFixture.h>
#include <tests/support/RealData.h>
#include <tools/lumaro/Arguments.h>
#include <tools/lumaro/MemoryLimit.h>
#include <tools/lumaro/OutputFile.h>
#include <tools/lumaro/SampleScene.h>
#include <tools/lumaro/StoreInfo.h>
#include <tools/lumaro/Ticks.h>
#include <tools/lumaro/ViewFit.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

using Place = Math::Point<double, 3>;
using Tool::UsageError;

TEST(Arguments, ReadWhatTheyShould) {
    EXPECT_EQ(Tool::parseSize("640x480"), (Tool::PictureSize{640, 480}));
    EXPECT_EQ(Tool::parseSize("16384x1"), (Tool::PictureSize{16384, 1}));
    EXPECT_EQ(Tool::parseColor("FF8000"), Math::Color(255, 128, 0));
    EXPECT_EQ(Tool::parseColor("#01020a"), Math::Color(1, 2, 10));
    EXPECT_EQ(Tool::parsePoint("-1.5,2e3,0"), Place(-1.5, 2000.0, 0.0));
    EXPECT_EQ(Tool::parseNumber("-2.5", -3, 3), -2.5);
    EXPECT_EQ(Tool::parseCount("18446744073709551615", 0, UINT64_MAX), UINT64_MAX);
    EXPECT_EQ(Tool::parseBytes("100"), 100u);
    EXPECT_EQ(Tool::parseBytes("512M"), 512u << 20);
    EXPECT_EQ(Tool::parseBytes("16777215T"), std::uint64_t{16777215} << 40);
}

TEST(Arguments, RefuseEverythingElse) {
    for (const char* bytes : {"", "0", "M", "-1G", "1.5G", "1MB", "16777216T"}) {
        EXPECT_THROW(Tool::parseBytes(bytes), UsageError) << bytes;
    }
    for (const char* size : {"", "640", "x480", "640x", "0x480", "640x0", "-1x480", "16385x1", "640x480x2",
                             "640 x480", "6.5x480", "99999999999999999999x1"}) {
        EXPECT_THROW(Tool::parseSize(size), UsageError) << size;
    }
    for (const char* color : {"", "FFF", "GGGGGG", "FF80001", "-F8000", "##F800", "12 456"}) {
        EXPECT_THROW(Tool::parseColor(color), UsageError) << color;
    }
    for (const char* place : {"", "1,2", "1,2,3,4", "1,2,nan", "1,inf,2", "1,,2", "1,2,3 ", "1e99,0,0"}) {
        EXPECT_THROW(Tool::parsePoint(place), UsageError) << place;
    }
    for (const char* number : {"", "nan", "inf", "3.1", "-3.1", "1x", "0x1", "+1"}) {
        EXPECT_THROW(Tool::parseNumber(number, -3, 3), UsageError) << number;
    }
}

TEST(Arguments, ReadPlanesAndBoxes) {
    const auto plane = Tool::parsePlane("0,3,-4,-10");
    EXPECT_NEAR(plane.signedDistance(Place(0.0, 0.0, 0.0)), -2.0, 1e-12);
    EXPECT_NEAR(plane.signedDistance(Place(7.0, 5.0, 0.0)), 1.0, 1e-12);

    const auto box = Tool::parseClip("-1,2,3:4,5,6");
    ASSERT_EQ(box.size(), 6U);
    const auto sidesAround = [&](const Place& p) {
        return std::count_if(box.begin(), box.end(),
                             [&](const auto& side) { return side.signedDistance(p) >= 0; });
    };
    EXPECT_EQ(sidesAround(Place(-1.0, 5.0, 4.0)), 6);
    for (const Place& outside : {Place(-1.1, 3, 4), Place(4.1, 3, 4), Place(0, 1.9, 4), Place(0, 5.1, 4),
                                 Place(0, 3, 2.9), Place(0, 3, 6.1)}) {
        EXPECT_EQ(sidesAround(outside), 5);
    }
    for (const char* clip :
         {"", "1,2,3", "0,0,0,1", "1,2,3,4,5", "0,0,0:1,1", "0,0,0:1,1,0", "0,0,0:1,1,1:2,2,2"}) {
        EXPECT_THROW(Tool::parseClip(clip), UsageError) << clip;
    }
    for (const char* range : {"1", "1,1", "2,1", "1,2,3", "1,nan", "1,", "5e9,5000000001"}) {
        EXPECT_THROW(Tool::parseRange(range), UsageError) << range;
    }
}

TEST(Ticks, AreRoundNumbersWithinTheRange) {
    const auto labels = [](double low, double high, size_t most) {
        std::string text;
        for (const Tool::Tick& tick : Tool::roundTicks(low, high, most)) {
            text += (text.empty() ? "" : " ") + tick.label;
        }
        return text;
    };
    EXPECT_EQ(labels(-2.5, 17.0, 11), "-2 0 2 4 6 8 10 12 14 16");
    EXPECT_EQ(labels(-0.3, 0.3, 7), "-0.3 -0.2 -0.1 0.0 0.1 0.2 0.3");
    EXPECT_EQ(labels(-0.3, 0.3, 6), "-0.2 0.0 0.2");
    EXPECT_EQ(labels(0.0, 1.0, 3), "0.0 0.5 1.0");
    EXPECT_EQ(labels(432500.0, 432500.1, 3), "432500.00 432500.05 432500.10");
    EXPECT_EQ(labels(-3e9, 4e9, 4), "-2000000000 0 2000000000 4000000000");
}

namespace {

/// The part of the picture that the box covers, seen from the eye: -1 to 1 from border to border.
Math::NBoundingBox<double, 2> covered(const Math::NBoundingBox<double, 3>& box, const Place& forward,
                                      const Place& up, double tanHalfFov, double aspect, const Place& eye) {
    Math::NBoundingBox<double, 2> part;
    for (int i = 0; i < 8; ++i) {
        const Place offset = box.corner(i) - eye;
        const double depth = offset.dot(forward);
        EXPECT_GT(depth, 0.0);
        part.extend(Math::Point<double, 2>(offset.dot(forward.cross(up)) / (depth * tanHalfFov * aspect),
                                           offset.dot(up) / (depth * tanHalfFov)));
    }
    return part;
}

}  // namespace

TEST(ViewFit, ShowsTheWholeBoxWithASmallMargin) {
    Math::NBoundingBox<double, 3> box;
    box.extend(Place(100.0, 200.0, 300.0));
    box.extend(Place(180.0, 210.0, 304.0));
    const Place forward(-0.6, 0.0, -0.8);
    const Place up(-0.8, 0.0, 0.6);
    for (const double aspect : {0.5, 1.0, 3.0}) {
        for (const double tanHalfFov : {0.05, 0.4, 3.0}) {
            const Place eye = Tool::fittedEye(box, forward, up, tanHalfFov, aspect);
            const auto part = covered(box, forward, up, tanHalfFov, aspect, eye);
            EXPECT_NEAR(std::max(part.max[0], part.max[1]), 1 / 1.04, 1e-9);
            EXPECT_NEAR(part.center()[0], 0.0, 1e-9);
            EXPECT_NEAR(part.center()[1], 0.0, 1e-9);
        }
    }
    // Seen flat, the box is 10 wide and 80 * 0.8 + 4 * 0.6 high.
    EXPECT_NEAR(Tool::fittedHeight(box, forward, up, 1.0), 66.4 * 1.04, 1e-9);
    EXPECT_NEAR(Tool::fittedHeight(box, forward, up, 0.1), 100.0 * 1.04, 1e-9);
    EXPECT_GT(-Tool::fittedEye({Place(), Place()}, forward, up, 0.4, 1.0).dot(forward), 0.0);
}

TEST(StoreInfo, TellsAbsoluteFacts) {
    const Support::TemporaryFolder folder;
    Tool::StoreWriteOptions options;
    options.maxLeafPoints = 100;
    ASSERT_TRUE(Tool::writeSampleStore(folder.path() / "store", 5000, options));
    const Tool::StoreInfo info = Tool::readStoreInfo(PoTree::FileSystemLocation(folder.path() / "store"));

    const auto json = nlohmann::json::parse(Tool::infoJson(info));
    EXPECT_EQ(json["format"], "Potree 2.0");
    EXPECT_EQ(json["encoding"], "BROTLI");
    EXPECT_EQ(json["points"], 5000);
    EXPECT_EQ(json["attributes"].size(), 9U);
    EXPECT_EQ(json["attributes"][8]["name"], "rgb");
    EXPECT_GT(json["levels"], 1);
    EXPECT_GT(json["nodes"], json["levels"]);

    Place low(1e9, 1e9, 1e9);
    const Tool::StoreDescription description = Tool::sampleDescription();
    for (const Tool::StorePoint& point : Tool::samplePoints(5000)) {
        for (int axis = 0; axis < 3; ++axis) {
            const auto a = static_cast<size_t>(axis);
            low[axis] = std::min(low[axis], point.position[a] * description.scale + description.offset[a]);
        }
    }
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(json["bounds"]["min"][static_cast<size_t>(axis)].get<double>(), low[axis], 1e-9);
        EXPECT_NEAR(json["cube"]["min"][static_cast<size_t>(axis)].get<double>(),
                    description.offset[static_cast<size_t>(axis)], 1e-4);
    }
    EXPECT_EQ(json["spacing"], 1.28);
    EXPECT_NE(Tool::infoText(info).find("format      Potree 2.0, BROTLI\npoints      5000\n"),
              std::string::npos);
}

TEST(StoreInfo, HasTheDigitsOfTheStoresGrid) {
    const std::filesystem::path store = TestSupport::realData() / "potree" / "lion-brotli";
    if (!std::filesystem::exists(store)) {
        GTEST_SKIP() << "there is no store " << store;
    }
    // Its metadata has -4.984999999999999 and 1.0390000000000001.
    const Tool::StoreInfo info = Tool::readStoreInfo(PoTree::FileSystemLocation(store));
    EXPECT_EQ(info.bounds.min, Place(-4.985, 1.039, -3.445));
    EXPECT_EQ(info.cube.max, Place(0.7, 6.724, 2.24));
    EXPECT_NE(Tool::infoText(info).find("minimum     -4.985 1.039 -3.445\n"), std::string::npos);
    EXPECT_NE(Tool::infoJson(info).find("-0.789"), std::string::npos);
}

TEST(OutputFile, IsWrittenBesideWhatIsThereAndThroughNoLink) {
    const Support::TemporaryFolder folder;
    const std::filesystem::path target = folder.path() / "out.txt";
    const std::filesystem::path elsewhere = folder.path() / "elsewhere.txt";
    std::filesystem::create_symlink(elsewhere, folder.path() / "out.txt.partial1");  // Leads to nothing yet.
    folder.write("out.txt.partial2", "another's");
    {
        Tool::OutputFile file(target);
        file.stream() << "given up";
    }
    EXPECT_FALSE(std::filesystem::exists(target));
    Tool::OutputFile file(target);
    file.stream() << "content";
    file.moveIntoPlace();
    EXPECT_FALSE(std::filesystem::exists(elsewhere));
    EXPECT_FALSE(std::filesystem::is_symlink(target));
    EXPECT_EQ(std::filesystem::file_size(target), 7U);
    EXPECT_EQ(std::filesystem::file_size(folder.path() / "out.txt.partial2"), 9U);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "out.txt.partial3"));
    EXPECT_THROW(Tool::OutputFile(folder.path() / "none" / "out.txt"), std::runtime_error);
}
