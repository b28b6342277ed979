#include <tests/lumaro/Program.h>
#include <tests/support/PotreeFixture.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Support::contents;
using Support::Result;
using Words = std::vector<std::wstring>;

/// The seven points of a fixture's store: steps of 1/4 above (1000, 2000, 3000).
class Query : public testing::Test {
protected:
    Result run(const Words& more) {
        Words words{L"query", store.folder.path().wstring()};
        words.insert(words.end(), more.begin(), more.end());
        return Support::Program(folder.path(), words).wait();
    }
    /// The lines of a text export, sorted, without header and colours.
    std::string points(const Words& more) {
        Words words{L"-o", L"out.txt"};
        words.insert(words.end(), more.begin(), more.end());
        const Result result = run(words);
        EXPECT_EQ(result.exitCode, 0U) << result.errors;
        std::istringstream stream(contents(folder.path() / "out.txt"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);) {
            size_t end = 0;
            for (int word = 0; word < 3; ++word) {
                end = line.find(' ', end + 1);
            }
            lines.push_back(line.substr(0, end));
        }
        std::sort(lines.begin(), lines.end());
        std::string all;
        for (const std::string& line : lines) {
            all += line == "X Y Z" ? "" : line + '\n';
        }
        return all;
    }

    Support::PotreeFixture store;
    Support::TemporaryFolder folder;
};

}  // namespace

TEST_F(Query, RegionsLevelsAndSpacingChooseThePoints) {
    const std::string root = "1000 2000 3000\n1150 2075 3005\n1256 2128 3256\n";
    EXPECT_EQ(points({L"--max-level", L"0"}), root);
    EXPECT_EQ(points({L"--min-spacing", L"1"}), root);
    EXPECT_EQ(points({}),
              "1000 2000 3000\n1002.5 2005 3250\n1150 2075 3005\n1175 2025 3007.5\n"
              "1175.25 2025.25 3007.75\n1225 2125 3010\n1256 2128 3256\n");
    EXPECT_EQ(points({L"--box", L"1150,2025,3005:1175,2075,3007.5"}), "1150 2075 3005\n1175 2025 3007.5\n");
    EXPECT_EQ(points({L"--sphere", L"1000,2000,2995,5"}), "1000 2000 3000\n");
    folder.write("area.txt",
                 "POLYGON ((1100 2000, 1300 2000, 1300 2100, 1100 2100),\n"
                 "(1170 2020, 1175.1 2020, 1175.1 2030, 1170 2030))\n");
    EXPECT_EQ(points({L"--polygon", L"area.txt"}), "1150 2075 3005\n1175.25 2025.25 3007.75\n");
    EXPECT_EQ(points({L"--box", L"0,0,0:1,1,1"}), "");
}

TEST_F(Query, TheEndingDecidesTheFormat) {
    ASSERT_EQ(run({L"-o", L"ü.LAS"}).exitCode, 0U);
    const std::string newer = contents(folder.path() / L"ü.LAS");
    ASSERT_EQ(newer.size(), 375U + 7U * 36U);
    EXPECT_EQ(newer.substr(0, 4) + newer[25], "LASF\4");
    double numbers[6];
    std::memcpy(numbers, newer.data() + 131, sizeof numbers);
    EXPECT_EQ(numbers[0], 0.25);
    EXPECT_EQ(numbers[4], 2000.0);
    ASSERT_EQ(run({L"-o", L"old.las", L"--las-version", L"1.2"}).exitCode, 0U);
    EXPECT_EQ(fs::file_size(folder.path() / "old.las"), 227U + 7U * 26U);
    ASSERT_EQ(run({L"-o", L"points.ply"}).exitCode, 0U);
    const std::string ply = contents(folder.path() / "points.ply");
    EXPECT_NE(ply.find("\nelement vertex 7\n"), std::string::npos);
}

TEST_F(Query, WhatFailsSaysWhyAndLeavesNothing) {
    folder.write("bad.txt", "1 2\n3\n");
    const struct {
        Words words;
        DWORD exitCode;
        std::string expected;
    } cases[] = {{{L"-o", L"a.obj"}, 2, "'a.obj'"},
                 {{L"-o", L"a.ply", L"--box", L"0,0,0,1,1"}, 2, "--box"},
                 {{L"-o", L"a.ply", L"--box", L"0,0,1:1,1,0"}, 2, "no box"},
                 {{L"-o", L"a.ply", L"--sphere", L"0,0,0,-1"}, 2, "negative"},
                 {{L"-o", L"a.ply", L"--sphere", L"0,0,0,1", L"--polygon", L"p"}, 2, "excludes"},
                 {{L"-o", L"a.las", L"--las-version", L"1.3"}, 2, "1.3"},
                 {{L"-o", L"no/a.las"}, 1, "there is no folder"},
                 {{L"-o", L"a.las", L"--polygon", L"bad.txt"}, 1, "bad.txt, line 2: "},
                 {{L"-o", L"a.las", L"--polygon", L"none.txt"}, 1, "none.txt"}};
    for (const auto& [words, exitCode, expected] : cases) {
        const Result result = run(words);
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        EXPECT_NE(result.errors.find(expected), std::string::npos) << result.errors;
    }
    store.folder.write("octree.bin", std::string(store.octree.size(), 'x'));
    const Result damaged = run({L"-o", L"a.las"});
    EXPECT_EQ(damaged.exitCode, 1U);
    EXPECT_NE(damaged.errors.find("node r"), std::string::npos) << damaged.errors;
    for (const auto& entry : fs::directory_iterator(folder.path())) {
        EXPECT_EQ(entry.path().extension(), ".txt") << entry.path();
    }
}
