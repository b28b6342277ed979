#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <tests/lumaro/Program.h>
#include <tests/support/PotreeFixture.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Graphics::ColorImage;
using Support::Result;
using Words = std::vector<std::wstring>;

/// One small store for all tests: 160 m by 160 m, seen from above, east to the right, north up.
class View : public testing::Test {
protected:
    static constexpr double WEST = 432500.0;
    static constexpr double NORTH = 5412460.0;

    static void SetUpTestSuite() {
        sFolder = new Support::TemporaryFolder;
        const Result made = run({L"make-sample", L"site", L"--points", L"20000"}, {});
        ASSERT_EQ(made.exitCode, 0U) << made.errors;
    }
    static void TearDownTestSuite() { delete sFolder; }

    static Result run(Words words, const Words& more) {
        words.insert(words.end(), more.begin(), more.end());
        return Support::Program(folder(), words).wait();
    }
    /// Straight down, 80 pixels for 160 metres.
    static Result look(const std::wstring& command, const Words& more) {
        Words words{command, L"site", L"--size", L"80x80", L"--ortho", L"160", L"--up", L"0,1,0"};
        words.insert(words.end(), {L"--eye", L"432580,5412380,400", L"--target", L"432580,5412380,185"});
        return run(words, more);
    }
    static ColorImage picture(const Words& more) {
        Words words{L"-o", L"picture.png"};
        words.insert(words.end(), more.begin(), more.end());
        const Result result = look(L"render", words);
        EXPECT_EQ(result.exitCode, 0U) << result.errors;
        return ColorImage::readPng(folder() / "picture.png");
    }
    static bool drawn(const ColorImage& image, size_t x, size_t y) {
        return image.pixel(x, y) != Math::Color::white();
    }
    static size_t ink(const ColorImage& image) {
        size_t count = 0;
        for (size_t i = 0; i < 80 * 80; ++i) {
            count += drawn(image, i % 80, i / 80) ? 1U : 0U;
        }
        return count;
    }
    static const fs::path& folder() { return sFolder->path(); }
    static size_t files() { return static_cast<size_t>(std::distance(fs::directory_iterator(folder()), {})); }

    static inline Support::TemporaryFolder* sFolder = nullptr;
};

/// The numbers behind a title of the text output.
std::vector<double> numbersOf(const std::string& text, const std::string& title) {
    std::vector<double> numbers;
    const size_t line = text.find(title);
    std::istringstream stream(line == std::string::npos ? "" : text.substr(line + title.size()));
    for (double number = 0.0; stream >> number;) {
        numbers.push_back(number);
    }
    return numbers;
}

}  // namespace

TEST_F(View, PickFindsThePointUnderThePixel) {
    // The pond's bank; a wide tolerance makes sure that some of the few points is there.
    const Words where{L"--at",    L"30,20",      L"--tolerance", L"3",
                      L"--plane", L"0,0,-2,370", L"--plane-fit", L"5"};
    const Result text = look(L"pick", where);
    ASSERT_EQ(text.exitCode, 0U) << text.errors;
    const std::vector<double> point = numbersOf(text.output, "point ");
    ASSERT_EQ(point.size(), 3U) << text.output;
    EXPECT_NEAR(point[0], WEST + 2.0 * 30, 8.0);
    EXPECT_NEAR(point[1], NORTH - 2.0 * 20, 8.0);
    EXPECT_NEAR(numbersOf(text.output, "plane distance").at(0), 185.0 - point[2], 1e-3);

    Words asJson = where;
    asJson.insert(asJson.end(), {L"--json", L"--unsigned"});
    const Result other = look(L"pick", asJson);
    ASSERT_EQ(other.exitCode, 0U) << other.errors;
    const auto json = nlohmann::json::parse(other.output);
    const std::vector<double> plane = numbersOf(text.output, "\nplane  ");
    ASSERT_EQ(plane.size(), 4U) << text.output;
    double onPlane = json["plane"]["offset"];
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(json["point"][i].get<double>(), point[i], 1e-4);
        EXPECT_NEAR(json["plane"]["normal"][i].get<double>(), plane[i], 1e-6);
        onPlane += json["plane"]["normal"][i].get<double>() * json["onPlane"][i].get<double>();
    }
    EXPECT_NEAR(onPlane, 0.0, 0.01);
    EXPECT_GE(json["planeDistance"].get<double>(), 0.0);
    // The line of sight is upright and goes through the pixel's top left corner or its middle.
    EXPECT_NEAR(json["onPlane"][0].get<double>(), WEST + 2.0 * 30, 2.01);
    EXPECT_NEAR(json["onPlane"][1].get<double>(), NORTH - 2.0 * 20, 2.01);
}

TEST_F(View, PickOfNothingFails) {
    const Result result = look(L"pick", {L"--at", L"40,40", L"--clip", L"0,0,1,-900"});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_NE(result.errors.find("nothing is drawn there"), std::string::npos) << result.errors;
    EXPECT_EQ(result.output, "");
}

TEST_F(View, ScreenPointsAreTheDrawnPixels) {
    const ColorImage image = picture({});
    const Result result = look(L"screen-points", {L"-o", L"points.txt"});
    ASSERT_EQ(result.exitCode, 0U) << result.errors;
    std::ifstream stream(folder() / "points.txt");
    std::string line;
    std::getline(stream, line);
    EXPECT_EQ(line, "X Y Z Red Green Blue Alpha");
    size_t points = 0;
    // Row by row: each belongs to the next drawn pixel.
    for (size_t i = 0; i < 80 * 80; ++i) {
        if (!drawn(image, i % 80, i / 80)) {
            continue;
        }
        ++points;
        std::array<double, 3> place{};
        std::array<int, 4> color{};
        stream >> place[0] >> place[1] >> place[2] >> color[0] >> color[1] >> color[2] >> color[3];
        ASSERT_FALSE(stream.fail());
        ASSERT_NEAR(place[0], WEST + 2.0 * static_cast<double>(i % 80) + 1.0, 6.0);
        ASSERT_NEAR(place[1], NORTH - 2.0 * static_cast<double>(i / 80) - 1.0, 6.0);
        const Math::Color expected = image.pixel(i % 80, i / 80);
        ASSERT_EQ((std::array<int, 4>{expected.r(), expected.g(), expected.b(), expected.a()}), color);
    }
    EXPECT_GT(points, 3000U);
    EXPECT_FALSE(stream >> line) << line;

    const size_t before = files();
    fs::create_directory(folder() / "taken");
    for (const wchar_t* unwritable : {L"nowhere/points.txt", L"taken"}) {
        const Result refused = look(L"screen-points", {L"-o", unwritable});
        EXPECT_EQ(refused.exitCode, 1U);
        EXPECT_NE(refused.errors.find(unwritable[0] == L'n' ? "nowhere" : "taken"), std::string::npos)
            << refused.errors;
    }
    fs::remove(folder() / "taken");
    EXPECT_EQ(files(), before);
}

TEST_F(View, ClippingCutsInAbsoluteCoordinates) {
    const ColorImage whole = picture({});
    const ColorImage east = picture({L"--clip", L"1,0,0,-432580"});
    const ColorImage box = picture({L"--clip", L"432540,5412340,0:432620,5412420,999"});
    size_t wrong = 0;
    for (size_t y = 0; y < 80; ++y) {
        // Points are up to five pixels wide, two on each side.
        for (size_t x = 0; x < 80; ++x) {
            wrong += x < 37 && drawn(east, x, y) ? 1U : 0U;
            wrong += x > 43 && drawn(east, x, y) != drawn(whole, x, y) ? 1U : 0U;
            const bool outside = x < 17 || x > 62 || y < 17 || y > 62;
            const bool inside = x > 23 && x < 56 && y > 23 && y < 56;
            wrong += outside && drawn(box, x, y) ? 1U : 0U;
            wrong += inside && drawn(box, x, y) != drawn(whole, x, y) ? 1U : 0U;
        }
    }
    EXPECT_EQ(wrong, 0U);
    EXPECT_GT(ink(box), 500U);
}

TEST_F(View, DistancesDecideColorsAndWhatIsDrawn) {
    const size_t all = ink(picture({L"--mode", L"height"}));
    const ColorImage east = picture({L"--plane", L"1,0,0,-432580", L"--range", L"-40,40", L"--color-map",
                                     L"pass-fail", L"--pass-fail", L"-40,10"});
    // Points farther than 40 m are gone, those up to 10 m east of the plane pass.
    EXPECT_NEAR(static_cast<double>(ink(east)) / static_cast<double>(all), 0.5, 0.06);
    size_t wrong = 0;
    for (size_t i = 0; i < 80 * 80; ++i) {
        const size_t x = i % 80;
        const Math::Color color = east.pixel(x, i / 80);
        if (drawn(east, x, i / 80) && (x < 42 || x > 48)) {
            wrong += color == (x < 45 ? Math::Color(0, 128, 0) : Math::Color(255, 0, 0)) ? 0U : 1U;
        }
    }
    EXPECT_EQ(wrong, 0U);

    // A wall of two triangles in the same place says the same as the plane.
    std::ofstream(folder() / "wall.obj") << "v 432580 5412000 0\nv 432580 5413000 0\nv 432580 5413000 999\n"
                                            "v 432580 5412000 999\nf 1 2 3 4\n";
    const ColorImage wall = picture({L"--mesh", L"wall.obj", L"--range", L"-40,40", L"--color-map",
                                     L"pass-fail", L"--pass-fail", L"-40,10"});
    EXPECT_EQ(ink(wall), ink(east));
    EXPECT_EQ(wall.pixel(30, 40), east.pixel(30, 40));
    EXPECT_EQ(wall.pixel(55, 40), east.pixel(55, 40));
}

TEST_F(View, DepthGoesFromNearToFar) {
    const ColorImage image = picture({L"--depth", L"depth.png"});
    const auto depth = Graphics::DepthImage::readPng(folder() / "depth.png");
    ASSERT_EQ(depth.width(), 80U);
    for (size_t i = 0; i < 80 * 80; ++i) {
        ASSERT_EQ(depth.pixel(i % 80, i / 80) > 0.0f, drawn(image, i % 80, i / 80));
    }
    const Result failed = look(L"render", {L"-o", L"other.png", L"--depth", L"nowhere/depth.png"});
    EXPECT_EQ(failed.exitCode, 1U);
    EXPECT_FALSE(fs::exists(folder() / "other.png"));
}

TEST_F(View, LegendShowsTheColorsUpright) {
    const Result result =
        run({L"legend", L"--color-map", L"traffic-light", L"--range", L"-1,1", L"--pass-fail"},
            {L"-0.8,0.4", L"--warn", L"-0.2,0.2", L"-o", L"legend.png"});
    ASSERT_EQ(result.exitCode, 0U) << result.errors;
    const ColorImage legend = ColorImage::readPng(folder() / "legend.png");
    ASSERT_EQ(legend.height(), 480U);
    const auto at = [&](double value) {
        return legend.pixel(30, static_cast<size_t>(240.0 - 220.0 * value));
    };
    EXPECT_EQ(at(0.9), Math::Color(255, 0, 0));
    EXPECT_EQ(at(0.3), Math::Color(255, 255, 0));
    EXPECT_EQ(at(0.0), Math::Color(0, 128, 0));
    EXPECT_EQ(at(-0.5), Math::Color(255, 255, 0));
    EXPECT_EQ(at(-0.9), Math::Color(255, 0, 0));
    // Something dark is written beside the bar, and all is opaque.
    size_t dark = 0;
    for (size_t i = 0; i < 160 * 480; ++i) {
        const Math::Color color = legend.pixel(i % 160, i / 160);
        ASSERT_EQ(color.a(), 255);
        dark += i % 160 > 65 && color.g() < 100 ? 1U : 0U;
    }
    EXPECT_GT(dark, 200U);
}

TEST_F(View, SettingsReachSeveralStoresAsOne) {
    const Words traffic{L"--plane",       L"0,0,1,-186",  L"--range", L"-20,40", L"--color-map",
                        L"traffic-light", L"--pass-fail", L"-3,9",    L"--warn", L"-1,3"};
    const ColorImage plain = picture({});
    for (const Words& settings : {traffic, Words{L"--auto-contrast"}}) {
        Words twice{L"site"};
        twice.insert(twice.end(), settings.begin(), settings.end());
        const ColorImage one = picture(settings);
        const ColorImage two = picture(twice);
        size_t changed = 0;
        size_t different = 0;
        for (size_t i = 0; i < 80 * 80; ++i) {
            changed += one.pixel(i % 80, i / 80) == plain.pixel(i % 80, i / 80) ? 0U : 1U;
            different += one.pixel(i % 80, i / 80) == two.pixel(i % 80, i / 80) ? 0U : 1U;
        }
        const std::string name(settings.back().begin(), settings.back().end());
        EXPECT_GT(changed, 1000U) << name;
        EXPECT_LT(different, 80U * 80U / 50U) << name;
    }
    // Points of one colour, grey, against points of their own.
    const auto coloured = [](const ColorImage& image) {
        size_t count = 0;
        for (size_t i = 0; i < 80 * 80; ++i) {
            const Math::Color color = image.pixel(i % 80, i / 80);
            count += color.r() == color.g() && color.g() == color.b() ? 0U : 1U;
        }
        return count;
    };
    EXPECT_EQ(coloured(picture({L"--mode", L"tomographic-dark"})), 0U);
    EXPECT_GT(coloured(picture({L"site", L"--mode", L"tomographic-dark", L"--cloud-colors"})), 500U);
}
