#include <core/File.h>
#include <gtest/gtest.h>
#include <math/NBoundingBox.h>
#include <render/renderables/FileWithin.h>
#include <render/renderables/LineBuffer.h>
#include <render/renderables/ObjMeshLoader.h>
#include <tests/support/HostileMeshes.h>
#include <tests/support/RealData.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

namespace {

using Math::Color;
using Render::LineBuffer;
using Vertex = Render::VertexPosNormalTexCoordColor;
using Part = std::vector<Vertex>;
using P = Math::Point<float, 3>;
using UV = Math::Point<float, 2>;

std::vector<Part> load(const std::filesystem::path& file, const Math::Point<double, 3>& origin = {}) {
    std::vector<Part> parts;
    Render::MeshLoader::fromObjFile(file, origin)->load([&](const Part& part) { parts.push_back(part); });
    return parts;
}

std::string repeated(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

const std::string triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";

class ObjMeshLoaderTest : public testing::Test {
protected:
    ObjMeshLoaderTest() {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
    }
    ~ObjMeshLoaderTest() override { std::filesystem::remove_all(folder); }

    std::filesystem::path write(const std::filesystem::path& name, const std::string& content) const {
        std::ofstream(folder / name, std::ios::binary) << content;
        return folder / name;
    }
    std::vector<Part> loadText(const std::string& content, const Math::Point<double, 3>& origin = {}) const {
        return load(write("mesh.obj", content), origin);
    }
    /// What load() throws; no part may have come before.
    static std::string errorOf(const std::filesystem::path& file) {
        try {
            Render::ObjMeshLoader(file).load([](const Part&) { ADD_FAILURE() << "a part of a bad file"; });
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "none";
    }
    void expectError(const std::string& content, const std::string& what) const {
        const std::filesystem::path file = write("mesh.obj", content);
        const std::string error = errorOf(file);
        EXPECT_NE(error.find(what), std::string::npos) << error;
        EXPECT_NE(error.find(Core::pathToUtf8(file)), std::string::npos) << error;
    }
    std::size_t trianglesOf(const std::string& content) const {
        std::size_t vertices = 0;
        for (const Part& part : loadText(content)) {
            vertices += part.size();
        }
        return vertices / 3;
    }

    std::filesystem::path folder =
        std::filesystem::temp_directory_path() / std::filesystem::path(u8"lumaro-obj-\u00e4\u65e5");
};

TEST_F(ObjMeshLoaderTest, CornersCarryPositionNormalTextureCoordinateAndColor) {
    const auto parts = loadText(
        "v 0 0 5 0 0.5 1\nv 2 0 5 1 1.2 -0.5\nv 0 3 5 1e30 1 0\n"
        "vt 0.25 0.75\nvn 0 0 -7\nvn 1 0 0\n"
        "f 1/1/1 2//2 3/1/1\nf 3//1 2/1 1/1/2\n");
    ASSERT_EQ(parts.size(), 1u);
    ASSERT_EQ(parts[0].size(), 6u);
    const Part& v = parts[0];
    EXPECT_EQ(v[1].position, P(2, 0, 5));
    EXPECT_EQ(v[0].normal, P(0, 0, -7)) << "as in the file";
    EXPECT_EQ(v[1].normal, P(1, 0, 0));
    EXPECT_EQ(v[0].texCoord, UV(0.25f, 0.75f));
    EXPECT_EQ(v[1].texCoord, UV(0, 0));
    EXPECT_EQ(v[0].color, Color(0, 127, 255, 255));
    EXPECT_EQ(v[1].color, Color(255, 50, 129, 255)) << "wrapped around";
    EXPECT_EQ(v[2].color, Color(0, 255, 0, 255));
    for (int i = 3; i < 6; ++i) {
        EXPECT_EQ(v[static_cast<std::size_t>(i)].normal, P(0, 0, -1)) << "one corner lacked its normal";
    }
    EXPECT_EQ(loadText(triangle + "f 1 2 3")[0][2].color, Color::white(255));
}

TEST_F(ObjMeshLoaderTest, EveryShapeIsAPartInFileOrder) {
    const auto parts = loadText(triangle +
                                "v 1 1 0\nvn 0 0 1\n"
                                "o lines\nl 1 2\nusemtl none\n"
                                "o quad\nf 1 2 4 3\n"
                                "g relative\nf -4 -3 -2//-1\n"
                                "o last\nf -1/-7/-7 1 2\nf 1 2\n");
    ASSERT_EQ(parts.size(), 4u);
    EXPECT_TRUE(parts[0].empty());
    EXPECT_EQ(parts[1].size(), 6u);
    ASSERT_EQ(parts[2].size(), 3u);
    EXPECT_EQ(parts[2][1].position, P(1, 0, 0));
    ASSERT_EQ(parts[3].size(), 3u) << "two corners make no face";
    EXPECT_EQ(parts[3][0].position, P(1, 1, 0));
    Render::ObjMeshLoader loader(folder / "mesh.obj");
    EXPECT_THROW(loader.load({}), std::bad_function_call);
    EXPECT_TRUE(loadText("").empty());
    EXPECT_EQ(trianglesOf("vw 0 -1 1\nvw 0 1e39 1\n" + triangle + "f 1 2 3\n"), 1u);
    EXPECT_TRUE(loadText("# nothing\n\n\t \n").empty());
}

TEST_F(ObjMeshLoaderTest, SurveyCoordinatesKeepTheirDigits) {
    const auto parts = loadText(
        "v 635619.125 4848899.6875 406.5\nv 635619.1875 4848899.6875 406.5\n"
        "v 635619.125 4848899.75 406.53125\nf 1 2 3\n",
        {635000, 4848000, 400});
    EXPECT_EQ(parts[0][0].position, P(619.125f, 899.6875f, 6.5f));
    EXPECT_EQ(parts[0][1].position, P(619.1875f, 899.6875f, 6.5f));
    EXPECT_EQ(parts[0][2].position, P(619.125f, 899.75f, 6.53125f));
}

TEST_F(ObjMeshLoaderTest, NormalsOfFacesAreFiniteWhateverTheirSize) {
    const auto normalOf = [&](const std::string& a, const std::string& b, const std::string& c) {
        return loadText("v " + a + "\nv " + b + "\nv " + c + "\nf 1 2 3\n")[0][0].normal;
    };
    EXPECT_EQ(normalOf("0 0 0", "1 1 1", "2 2 2"), P(0, 0, 0));
    EXPECT_EQ(normalOf("1 2 3", "1 2 3", "1 2 3"), P(0, 0, 0));
    EXPECT_EQ(normalOf("0 0 0", "1e30 0 0", "0 1e30 0"), P(0, 0, 1));
    EXPECT_EQ(normalOf("0 0 0", "1e-20 0 0", "0 0 1e-20"), P(0, -1, 0));
    EXPECT_EQ(normalOf("0 0 0", "nan 4 0", "inf 0 2"), P(1, 0, 0)) << "what is no number reads as 0";
}

TEST_F(ObjMeshLoaderTest, BadFacesAreErrorsThatNameFileFaceAndIndex) {
    EXPECT_EQ(trianglesOf(triangle + "f 1 2 4\nv 1 1\n"), 1u) << "what a face refers to may follow it";
    expectError(triangle + "f 1 2 3\nf 1 2 99\n", "line 5: face 2 refers to vertex 99 of 3");
    expectError(triangle + "f 1 2 3 99\n", "face 1 refers to vertex 99 of 3");
    expectError(triangle + "f 1 2 3 99 2\n", "face 1 refers to vertex 99 of 3");
    expectError(triangle + "f 1 2\t+99\n", "face 1 refers to vertex 99 of 3");
    expectError("f -1 -2 -3\n" + triangle, "line 1: face 1 refers to vertex -1 of 0");
    expectError(triangle + "vt 0 0\nf 1/1 2/2 3/1\n", "refers to texture coordinate 2 of 1");
    expectError(triangle + "f 1//1 2//1 3//1\n", "refers to normal 1 of 0");
    expectError(triangle + "f 4294967297 2 3\n", "refers to vertex 4294967297 of 3");
    expectError(triangle + "f 1 99999999999999999999 3\n", "refers to vertex");
    expectError(triangle + "f 1 2 -9223372036854775808\n", "refers to vertex");
    expectError(triangle + "f 1/ 7 2 3\n", "face");
    expectError(triangle + "f 0 1 2\n", "TinyObjReader: Failed parse `f' line");
    expectError("v 0 0 1e2147483649\n", "line 1: the exponent");
    expectError("v 1e39 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", "too far away");
}

TEST_F(ObjMeshLoaderTest, AMissingFileIsNamedWithTheReadersText) {
    EXPECT_EQ(errorOf(folder / "none.obj"),
              "TinyObjReader: Cannot open file [" + Core::pathToUtf8(folder / "none.obj") + "]");
    EXPECT_EQ(errorOf(folder), "TinyObjReader: Cannot open file [" + Core::pathToUtf8(folder) + "]");
}

TEST_F(ObjMeshLoaderTest, OnlyAnUnreasonableLineIsTooLong) {
    std::string polygon = "f";
    std::string corners;
    for (int i = 0; i < 10000; ++i) {
        corners += "v " + std::to_string(std::cos(i * 2e-4 * 3.14159265)) + ' ' +
                   std::to_string(std::sin(i * 2e-4 * 3.14159265)) + " 0\n";
        polygon += ' ' + std::to_string(i + 1) + "/1/1";
    }
    EXPECT_EQ(trianglesOf(corners + "vt 0 0\nvn 0 0 1\n" + polygon + '\n'), 9998u);
    const std::string comment = "#" + std::string(LineBuffer::maxLineLength - 1, 'x');
    EXPECT_EQ(trianglesOf(triangle + comment + "\r\n" + comment + "\nf 1 2 3"), 1u);
    expectError(triangle + comment + "x\nf 1 2 3", "line 4: longer than");
    expectError(triangle + comment + "xyz", "line 4: longer than");
}

TEST_F(ObjMeshLoaderTest, LargePolygonsAreCutWithoutGapsOrOverlaps) {
    constexpr std::size_t n = 3000;
    const std::vector<std::function<UV(std::size_t)>> shapes{
        [](std::size_t i) { return Support::Hostile::onCircle(static_cast<double>(i) / n, 100); },
        [](std::size_t i) {
            return Support::Hostile::onCircle(static_cast<double>(i) / n, i % 2 == 0 ? 100 : 1);
        },
        [](std::size_t i) { return Support::Hostile::onSpiral(i, n); },
        [](std::size_t i) { return UV(static_cast<float>(i / 2), i % 4 < 2 ? 0.0f : 1000.0f); }};
    for (std::size_t shape = 0; shape < shapes.size(); ++shape) {
        SCOPED_TRACE(shape);
        auto corner = shapes[shape];
        if (shape == 3) {  // A comb needs a back.
            corner = [at = shapes[3]](std::size_t i) {
                return i < n - 2 ? at(i) : UV(i == n - 2 ? 1499 : 0, -1);
            };
        }
        double expected = 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            const UV a = corner(i), b = corner((i + 1) % n);
            expected += (static_cast<double>(a.x()) * b.y() - static_cast<double>(a.y()) * b.x()) / 2;
        }
        const auto parts = loadText(Support::Hostile::faceFile(n, corner) + "f 1 2 3\n");
        ASSERT_EQ(parts.size(), 1u);
        ASSERT_EQ(parts[0].size(), 3 * (n - 2) + 3);
        double area = 0.0;
        for (std::size_t i = 0; i + 3 < parts[0].size(); i += 3) {
            const P u = parts[0][i + 1].position - parts[0][i].position;
            const P v = parts[0][i + 2].position - parts[0][i].position;
            const double share =
                (static_cast<double>(u.x()) * v.y() - static_cast<double>(u.y()) * v.x()) / 2;
            EXPECT_GE(expected > 0 ? share : -share, -1e-3);
            area += share;
        }
        EXPECT_NEAR(area, expected, 1e-4 * std::abs(expected));
    }
}

TEST_F(ObjMeshLoaderTest, HostilePolygonsTakeLittleTimeAndLoadingCanBeStopped) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(trianglesOf(Support::Hostile::faceOfOneCorner(260000) + "f 1 2 3\n"), 260000u - 2 + 1);
    trianglesOf(
        Support::Hostile::faceFile(30000, [](std::size_t i) { return Support::Hostile::onStar(i, 30000); }));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    const std::string large = "f" + repeated(" 1/1", 200);
    expectError(triangle + large + "\n", "face 1 refers to texture coordinate 1 of 0");
    expectError(triangle + large + " 4\n", "face 1 refers to vertex 4 of 3");
    expectError(triangle + "f" + repeated(" -1", 200) + " 0\n", "TinyObjReader: Failed parse `f' line");

    std::stop_source stop;
    stop.request_stop();
    Render::ObjMeshLoader stopped(write("mesh.obj", triangle + "f 1 2 3\n"), {}, stop.get_token());
    EXPECT_THROW(stopped.load([](const Part&) { ADD_FAILURE(); }), std::runtime_error);
}

TEST_F(ObjMeshLoaderTest, TakesNoMoreMemoryThanItsLimit) {
    constexpr std::uint64_t limit = 1000000;
    const std::string numbers = "v 1 2 3\nvn 1 2 3\nvt 1 2\n";
    for (const std::string& content :
         {repeated(numbers, 5000), triangle + repeated("f 1 2 3\n", 5000),
          triangle + "f" + repeated(" 1", 6000) + "\n", triangle + repeated("o a\nf 1 2 3\n", 900)}) {
        const std::filesystem::path file = write("mesh.obj", content);
        std::string error = "none";
        try {
            Render::ObjMeshLoader(file, {}, {}, limit).load([](const Part&) { ADD_FAILURE() << "a part"; });
        } catch (const std::runtime_error& caught) {
            error = caught.what();
        }
        EXPECT_NE(error.find("the mesh asks for more than the 1000000 bytes"), std::string::npos) << error;
        EXPECT_NE(error.find(", line "), std::string::npos) << error;
        const std::filesystem::path part = write("part.obj", content.substr(0, content.size() / 8));
        EXPECT_NO_THROW(Render::ObjMeshLoader(part, {}, {}, limit).load([](const Part&) {}));
    }
}

TEST_F(ObjMeshLoaderTest, LinesEndAsOnAnySystem) {
    // Comments bring a line end to the border of what is read at once.
    constexpr std::size_t border = 2 * LineBuffer::maxLineLength;
    for (const std::string end : {"\n", "\r\n", "\r"}) {
        const auto line = [&end](std::string text) { return text.append(end); };
        for (std::size_t size = border - 3; size < border + 2; ++size) {
            std::string content = line("v 0 0 0") + line("v 1 0 0") + line("v 0 1 0");
            content += repeated(line('#' + std::string(200000, 'x')), 5);
            content += line(line('#' + std::string(size - content.size() - 1, 'x')));
            content += line("f 1 2 3") + "f 1 2 9";
            expectError(content, "line 12: face 2 refers to vertex 9 of 3");
            content.back() = '3';
            EXPECT_EQ(trianglesOf(content), 2u);
        }
    }
    EXPECT_EQ(trianglesOf(triangle + std::string("f 1 2 3\0 99\n", 12)), 1u);
}

TEST_F(ObjMeshLoaderTest, MaterialFilesAreReadFromTheFilesOwnFolderOrMissed) {
    const auto loadWith = [&](const std::string& library) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(trianglesOf("mtllib " + library + '\n' + triangle + "usemtl red\nf 1 2 3"), 1u) << library;
        return testing::internal::GetCapturedStdout();
    };
    write(u8"r\u00f6t.mtl", "newmtl green\nKd 0 1 0\nnewmtl red\nKd 1 1e99999999999 0\nd 1e2147483649\n");
    std::filesystem::create_directory(folder / "folder.mtl");
    const std::string found(reinterpret_cast<const char*>(u8"r\u00f6t.mtl"));
    EXPECT_EQ(loadWith(found), "");
    EXPECT_EQ(loadWith("none.mtl " + found).find("TinyObjReader: Material file [ none.mtl ] not found"), 0u);
    const std::string absolute = Core::pathToUtf8(folder) + '/' + found;
    for (const std::string& missing :
         {std::string("none.mtl"), std::string("folder.mtl"), std::string("NUL"), absolute,
          std::string("../../../../../../../../dev/zero"), std::string("\xff\xfe.mtl"), std::string(" "),
          std::string(100000, 'x'), repeated("a ", 100000)}) {
        const std::string warnings = loadWith(missing);
        EXPECT_EQ(warnings.find("TinyObjReader: Material file ["), 0u) << missing.substr(0, 20);
        EXPECT_LT(warnings.size(), 150000u) << "however many names there are";
    }
}

TEST_F(ObjMeshLoaderTest, NoNameInAFileLeadsOutOfItsFolder) {
    const std::filesystem::path inside = folder / "inside";
    std::filesystem::create_directories(inside / "below");
    write("secret.mtl", "newmtl a\n");
    write("inside/below/own.mtl", "newmtl a\n");
    write("inside/aux.mtl", "newmtl a\n");
    EXPECT_EQ(Render::fileWithin(inside, "./below/own.mtl").filename(), "own.mtl");
    for (const char* const name :
         {"", ".", "below", "../secret.mtl", "below/../own.mtl", "/secret.mtl", "\\\\server\\share\\m.mtl",
          "//server/share/m.mtl", "C:own.mtl", "below/own.mtl:stream", "aux.mtl", "Nul", "com1.mtl",
          "LPT\xc2\xb2 .mtl", "conin$", ".. /secret.mtl", "a\nb"}) {
        EXPECT_EQ(Render::fileWithin(inside, name), "") << name;
    }
    std::error_code code;
    std::filesystem::create_symlink(folder / "secret.mtl", inside / "link.mtl", code);
    std::filesystem::create_directory_symlink(folder, inside / "up", code);
    if (!code) {  // Not every system lets everybody make them.
        EXPECT_EQ(Render::fileWithin(inside, "link.mtl"), "");
        EXPECT_EQ(Render::fileWithin(inside, "up/secret.mtl"), "");
    }
    testing::internal::CaptureStdout();
    loadText(triangle + "usemtl \x1b]0;title\x07" + std::string(100000, 'x') + "\nf 1 2 3\n");
    const std::string warnings = testing::internal::GetCapturedStdout();
    EXPECT_LT(warnings.size(), 5000u);
    EXPECT_EQ(warnings.find_first_of("\x1b\x07"), std::string::npos);
}

TEST_F(ObjMeshLoaderTest, HostileMaterialFilesAreErrorsOrHarmless) {
    const std::string obj = "mtllib m.mtl\n" + triangle + "f 1 2 3\n";
    const auto expectMaterialError = [&](const std::string& content, const std::string& what) {
        const std::filesystem::path file = write("m.mtl", content);
        const std::string error = errorOf(write("mesh.obj", obj));
        EXPECT_NE(error.find(Core::pathToUtf8(file) + what), std::string::npos) << error;
    };
    expectMaterialError("newmtl a\nmap_Kd " + std::string(LineBuffer::maxLineLength, 'x'),
                        ", line 2: longer than");
    expectMaterialError(repeated(std::string(999, '#') + '\n', 20000), ": the material files");
    // The reader's own record of a material takes kilobytes: this would be gigabytes.
    write("m.mtl", repeated("newmtl a\n", 1000000));
    EXPECT_EQ(trianglesOf(obj), 1u);
    // Lines and points would be stored anew at each change of material.
    write("m.mtl", "newmtl a\n");
    EXPECT_EQ(trianglesOf("mtllib m.mtl\n" + triangle + "l" + repeated(" 1", 200000) + '\n' +
                          repeated("usemtl a\nusemtl b\n", 50000) + "f 1 2 3\n"),
              1u);
    EXPECT_EQ(trianglesOf(repeated("t x 8192/8192/8192\n", 50000) + triangle + "f 1 2 3\n"), 1u);
}

TEST_F(ObjMeshLoaderTest, RealFilesHaveTheirTrianglesAndBounds) {
    const std::filesystem::path data = TestSupport::realData();
    std::ifstream truthFile(data / "truth" / "obj.json");
    if (!truthFile) {
        GTEST_SKIP() << "needs real meshes in " << data;
    }
    using Names = std::set<std::string>;
    const Names withoutTheirNormals{"tinyobj/catmark_torus_creases0.obj",
                                    "tinyobj/smoothing-group-two-squares.obj"};
    const Names withUnusedVertices{"tinyobj/issue-246-usemtl-whitespace.obj", "tinyobj/issue-330.obj"};
    const Names withPolygonsTheReaderGivesUp{"tinyobj/issue-319-002.obj"};
    std::size_t loaded = 0;
    for (const auto& truth : nlohmann::json::parse(truthFile)) {
        const std::string name = truth["file"];
        const std::filesystem::path file = data / "obj" / name;
        SCOPED_TRACE(file);
        if (truth["outOfRangeFaces"] != 0 || truth["zeroIndexFaces"] != 0 ||
            withoutTheirNormals.contains(name)) {
            EXPECT_NE(errorOf(file).find(Core::pathToUtf8(file)), std::string::npos) << errorOf(file);
            continue;
        }
        std::size_t triangles = 0;
        Math::NBoundingBox<float, 3> box;
        for (const Part& part : load(file)) {
            triangles += part.size() / 3;
            for (const Vertex& vertex : part) {
                box.extend(vertex.position);
                ASSERT_TRUE(std::isfinite(vertex.normal.squaredLength()));
            }
        }
        if (!withPolygonsTheReaderGivesUp.contains(name)) {
            EXPECT_EQ(triangles, truth["trianglesByFan"]);
        }
        if (triangles != 0 && truth["nonFiniteVertices"] == 0 && !withUnusedVertices.contains(name)) {
            for (int i = 0; i < 3; ++i) {
                const auto axis = static_cast<std::size_t>(i);
                EXPECT_EQ(box.min[i], truth["bbox"]["min"][axis].get<float>());
                EXPECT_EQ(box.max[i], truth["bbox"]["max"][axis].get<float>());
            }
        }
        ++loaded;
    }
    EXPECT_GT(loaded, 50u);
}

}  // namespace
