#include <graphics/ColorImage.h>
#include <tests/lumaro/Program.h>
#include <tests/support/PotreeFixture.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Support::contents;
using Support::Program;
using Support::Result;

/// One small store for all tests, in a folder whose name no code page can spell.
class CommandLine : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sFolder = new Support::TemporaryFolder;
        const Result made = run({L"make-sample", L"Dörfli 点", L"--points", L"20000"});
        ASSERT_EQ(made.exitCode, 0U) << made.errors;
        ASSERT_EQ(made.output + made.errors, "");
    }
    static void TearDownTestSuite() { delete sFolder; }

    static Result run(const std::vector<std::wstring>& arguments) {
        return Program(folder(), arguments).wait();
    }
    static const fs::path& folder() { return sFolder->path(); }
    static fs::path store() { return folder() / L"Dörfli 点"; }

    /// Sizes as asked for, and something drawn in the middle.
    static void expectPicture(const fs::path& file, size_t width, size_t height,
                              const Math::Color& background) {
        ASSERT_TRUE(fs::exists(file)) << file;
        const Graphics::ColorImage image = Graphics::ColorImage::readPng(file);
        ASSERT_EQ(image.width(), width);
        ASSERT_EQ(image.height(), height);
        size_t drawn = 0;
        for (size_t y = 0; y < height; ++y) {
            for (size_t x = 0; x < width; ++x) {
                drawn += image.pixel(x, y) == background ? 0U : 1U;
            }
        }
        EXPECT_GT(drawn, width * height / 5);
        EXPECT_LT(drawn, width * height);
    }

    /// A copy of the store that is damaged where the points lie.
    static fs::path damagedStore() {
        const fs::path damaged = folder() / "damaged";
        fs::remove_all(damaged);
        fs::copy(store(), damaged);
        std::ofstream(damaged / "octree.bin", std::ios::binary | std::ios::in | std::ios::out)
            << std::string(4000, 'x');
        return damaged;
    }

    static inline Support::TemporaryFolder* sFolder = nullptr;
};

}  // namespace

TEST_F(CommandLine, WrongUsageEndsWithTwoAndSaysWhy) {
    const std::vector<std::pair<std::vector<std::wstring>, std::string>> cases{
        {{}, "A subcommand"},
        {{L"paint", L"a"}, "'paint' is no command"},
        {{L"info"}, "store"},
        {{L"info", L"a", L"b"}, "b"},
        {{L"render", L"/a"}, "--output"},
        {{L"thumbnail", L"a", L"--size", L"0x10"}, "--size"},
        {{L"thumbnail", L"a", L"--size", L"-5x10"}, "--size"},
        {{L"thumbnail", L"a", L"--size", L"16385x10"}, "16384"},
        {{L"thumbnail", L"a", L"--background", L"red"}, "red"},
        {{L"thumbnail", L"a", L"--max-level", L"22"}, "22"},
        {{L"render", L"a", L"-o", L"b", L"--fov", L"nan"}, "nan"},
        {{L"render", L"a", L"-o", L"b", L"--eye", L"1,2"}, "1,2"},
        {{L"render", L"a", L"-o", L"b", L"--up", L"0,0,0"}, "direction"},
        {{L"render", L"a", L"-o", L"b", L"--mode", L"rainbow"}, "tomographic-dark"},
        {{L"render", L"a", L"-o", L"b", L"--ortho", L"5", L"--fov", L"30"}, "--ortho"},
        {{L"render", L"a", L"-o", L"b", L"--budget", L"-1"}, "-1"},
        {{L"render", L"a", L"-o", L"b", L"--color-map", L"pink"}, "level-of-accuracy"},
        {{L"render", L"a", L"-o", L"b", L"--range", L"2,1"}, "2,1"},
        {{L"render", L"a", L"-o", L"b", L"--plane", L"0,0,0,5"}, "direction"},
        {{L"render", L"a", L"-o", L"b", L"--mode", L"plane-distance"}, "--ramp"},
        {{L"render", L"a", L"-o", L"b", L"--mesh", L"m.obj"}, "--range"},
        {{L"render", L"a", L"-o", L"b", L"--ramp", L"0,0,0:0,0,1", L"--range", L"0,1"}, "--range"},
        {{L"render", L"a", L"-o", L"b", L"--clip", L"0,0,0:1,1,1", L"--clip", L"0,0,0:1,1,1"}, "eight"},
        {{L"render", L"a", L"-o", L"b", L"--auto-contrast", L"0.1,2"}, "--auto-contrast"},
        {{L"render", L"--translate", L"1,2,3", L"a", L"-o", L"b"}, "no input before it"},
        {{L"render", L"a", L"--translate", L"1,2", L"-o", L"b"}, "--translate"},
        {{L"render", L"a.obj", L"--matrix", L"1,0,0,0,0,1,0,0,0,0,0,0,0,0,0,1", L"-o", L"b"}, "inverse"},
        {{L"render", L"a", L"--translate", L"1,2,3", L"--translate", L"1,2,3", L"-o", L"b"},
         "already placed"},
        {{L"render", L"a", L"--unit-scale", L"2", L"-o", L"b"}, "'a' is not a mesh"},
        {{L"render", L"a.obj", L"--distances", L"d.png", L"-o", L"b"}, "'a.obj' is not a panorama"},
        {{L"pick", L"a", L"--at", L"64,0", L"--size", L"64x64"}, "64x64"},
        {{L"pick", L"a", L"--at", L"1,1", L"--plane-fit", L"1"}, "--tolerance"},
        {{L"legend", L"-o", L"b"}, "--range"},
        {{L"legend", L"-o", L"b", L"--range", L"0,1", L"--size", L"20x400"}, "64x64"},
        {{L"make-sample", L"a", L"--points", L"0"}, "--points"}};
    for (const auto& [arguments, expected] : cases) {
        const Result result = run(arguments);
        EXPECT_EQ(result.exitCode, 2U) << expected;
        EXPECT_NE(result.errors.find(expected), std::string::npos) << result.errors;
        EXPECT_EQ(result.output, "");
    }
}

TEST_F(CommandLine, HelpGoesToStandardOutput) {
    for (const wchar_t* command :
         {L"thumbnail", L"render", L"pick", L"screen-points", L"legend", L"info", L"make-sample"}) {
        const Result result = run({command, L"--help"});
        EXPECT_EQ(result.exitCode, 0U);
        EXPECT_NE(result.output.find("Usage"), std::string::npos) << result.output;
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(CommandLine, InfoSpeaksTextAndJson) {
    const Result text = run({L"info", store().wstring()});
    EXPECT_EQ(text.exitCode, 0U);
    EXPECT_NE(text.output.find("points      20000"), std::string::npos) << text.output;
    const Result json = run({L"info", L"--json", store().wstring()});
    EXPECT_EQ(json.exitCode, 0U);
    EXPECT_EQ(nlohmann::json::parse(json.output)["points"], 20000);
    EXPECT_EQ(text.errors + json.errors, "");
}

TEST_F(CommandLine, ThumbnailReplacesThePictureInTheStore) {
    std::ofstream(store() / "thumbnail.png") << "old";
    const Result result =
        run({L"thumbnail", store().wstring(), L"--size", L"200x150", L"--background", L"102030"});
    EXPECT_EQ(result.exitCode, 0U) << result.errors;
    EXPECT_EQ(result.output + result.errors, "");
    expectPicture(store() / "thumbnail.png", 200, 150, Math::Color(0x10, 0x20, 0x30));
    fs::remove(store() / "thumbnail.png");
    EXPECT_EQ(std::distance(fs::directory_iterator(store()), {}), 3);
}

TEST_F(CommandLine, RenderDrawsOneStoreOrSeveral) {
    const Result one = run({L"render", store().wstring(), L"-o", L"one.png", L"--size", L"160x120"});
    EXPECT_EQ(one.exitCode, 0U) << one.errors;
    EXPECT_EQ(one.output + one.errors, "");
    expectPicture(folder() / "one.png", 160, 120, Math::Color::white());

    // The same cloud twice covers exactly the same pixels.
    const Result two =
        run({L"render", store().wstring(), store().wstring(), L"-o", L"two.png", L"--size", L"160x120"});
    EXPECT_EQ(two.exitCode, 0U) << two.errors;
    const auto first = Graphics::ColorImage::readPng(folder() / "one.png");
    const auto second = Graphics::ColorImage::readPng(folder() / "two.png");
    size_t different = 0;
    for (size_t y = 0; y < 120; ++y) {
        for (size_t x = 0; x < 160; ++x) {
            different += first.pixel(x, y) == second.pixel(x, y) ? 0U : 1U;
        }
    }
    EXPECT_LT(different, 160U * 120U / 50U);
}

TEST_F(CommandLine, RenderLooksFromWhereItIsTold) {
    // Straight down onto the pond, a dark blue-green, from 60 m above it; absolute coordinates.
    const Result down = run({L"render", store().wstring(), L"-o", L"pond.png", L"--size", L"64x64", L"--eye",
                             L"432528,5412429,250", L"--target", L"432528,5412429,185", L"--up", L"0,1,0",
                             L"--ortho", L"8", L"--point-size", L"20"});
    ASSERT_EQ(down.exitCode, 0U) << down.errors;
    const auto pond = Graphics::ColorImage::readPng(folder() / "pond.png");
    size_t water = 0;
    size_t other = 0;
    for (size_t y = 0; y < 64; ++y) {
        for (size_t x = 0; x < 64; ++x) {
            const Math::Color color = pond.pixel(x, y);
            (color.b() > color.r() ? water : other) += color == Math::Color::white() ? 0U : 1U;
        }
    }
    EXPECT_GT(water, 300U);
    EXPECT_EQ(other, 0U);
    // From far away just as well.
    const auto inkFrom = [&](const wchar_t* eye, const wchar_t* angle) {
        const Result distant = run({L"render", store().wstring(), L"-o", L"far.png", L"--size", L"64x64",
                                    L"--eye", eye, L"--target", L"432580,5412380,185", L"--up", L"0,1,0",
                                    L"--fov", angle, L"--point-size", L"1"});
        EXPECT_EQ(distant.exitCode, 0U) << distant.errors;
        const auto picture = Graphics::ColorImage::readPng(folder() / "far.png");
        size_t ink = 0;
        for (size_t i = 0; i < 64 * 64; ++i) {
            ink += picture.pixel(i % 64, i / 64) == Math::Color::white() ? 0U : 1U;
        }
        return static_cast<double>(ink);
    };
    const double closeBy = inkFrom(L"432580,5412380,585", L"25");
    EXPECT_NEAR(inkFrom(L"432580,5412380,20185", L"0.5"), closeBy, 0.1 * closeBy);
    // The other way there is only sky.
    const Result up = run({L"render", store().wstring(), L"-o", L"sky.png", L"--size", L"64x64", L"--eye",
                           L"432528,5412429,250", L"--target", L"432528,5412429,300", L"--up", L"0,1,0"});
    ASSERT_EQ(up.exitCode, 0U) << up.errors;
    EXPECT_EQ(Graphics::ColorImage::readPng(folder() / "sky.png").pixel(32, 32), Math::Color::white());
}

TEST_F(CommandLine, FailuresEndWithOneAndLeaveOldFiles) {
    const Result missing = run({L"info", L"no such folder"});
    EXPECT_EQ(missing.exitCode, 1U);
    EXPECT_NE(missing.errors.find("no such folder"), std::string::npos) << missing.errors;

    const std::wstring path = store().wstring();
    const std::vector<std::vector<std::wstring>> commands{
        {L"info", path}, {L"thumbnail", path}, {L"render", path, L"-o", L"limited.png"}};
    for (std::vector<std::wstring> command : commands) {
        command.insert(command.end(), {L"--memory-limit", L"10K"});
        const Result limited = run(command);
        EXPECT_EQ(limited.exitCode, 1U);
        EXPECT_NE(limited.errors.find("its limit is 10240"), std::string::npos) << limited.errors;
    }

    const fs::path damaged = damagedStore();
    std::ofstream(damaged / "thumbnail.png") << "old";
    std::ofstream(folder() / "kept.png") << "old";
    const Result thumbnail = run({L"thumbnail", damaged.wstring()});
    const Result render = run({L"render", damaged.wstring(), L"-o", L"kept.png"});
    for (const Result& result : {thumbnail, render}) {
        EXPECT_EQ(result.exitCode, 1U);
        // The library's fixed text and, behind it, the node it happened at.
        EXPECT_NE(result.errors.find("Error loading point data: "), std::string::npos) << result.errors;
        EXPECT_EQ(result.output, "");
    }
    EXPECT_EQ(contents(damaged / "thumbnail.png"), "old");
    EXPECT_EQ(contents(folder() / "kept.png"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(damaged), {}), 4);

    const Result foreign = run({L"make-sample", L"."});
    EXPECT_EQ(foreign.exitCode, 1U);
    EXPECT_NE(foreign.errors.find("not a point cloud store"), std::string::npos) << foreign.errors;
}
