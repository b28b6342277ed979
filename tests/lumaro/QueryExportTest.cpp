#include <octree/potree/FileSystemLocation.h>
#include <render/pointcloud/filters/BoxFilter.h>
#include <render/pointcloud/filters/SphereFilter.h>
#include <tests/support/PotreeFixture.h>
#include <tools/lumaro/LasGrid.h>
#include <tools/lumaro/LasPointWriter.h>
#include <tools/lumaro/NumberText.h>
#include <tools/lumaro/PlyPointWriter.h>
#include <tools/lumaro/PolygonFile.h>
#include <tools/lumaro/QueryExport.h>
#include <tools/lumaro/SampleScene.h>
#include <tools/lumaro/StoreInfo.h>
#include <tools/lumaro/TextPointWriter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <vector>

namespace {

using Place = Math::Point<double, 3>;
using Octree::PositionGrid;
using Tool::LasVersion;

/// Position, colour, intensity and class of a point.
using Row = std::array<double, 8>;

template <class T>
T valueAt(const std::string& bytes, size_t offset) {
    T value{};
    EXPECT_LE(offset + sizeof value, bytes.size());
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

std::vector<Row> readText(const std::string& bytes) {
    std::istringstream stream(bytes);
    std::string header;
    std::getline(stream, header);
    EXPECT_EQ(header, "X Y Z Red Green Blue Alpha");
    std::vector<Row> rows;
    double alpha = 0.0;
    for (Row row{}; stream >> row[0] >> row[1] >> row[2] >> row[3] >> row[4] >> row[5] >> alpha;) {
        EXPECT_EQ(alpha, 255.0);
        rows.push_back(row);
    }
    EXPECT_TRUE(stream.eof());
    return rows;
}

std::vector<Row> readPly(const std::string& bytes) {
    const size_t body = bytes.find("end_header\n") + 11;
    std::istringstream header(bytes.substr(0, body));
    std::string properties;
    size_t count = 0;
    for (std::string line; std::getline(header, line);) {
        if (line.starts_with("element vertex ")) {
            count = std::stoul(line.substr(15));
        } else if (line.starts_with("property ")) {
            properties += line.substr(9) + ",";
        }
    }
    EXPECT_EQ(properties,
              "double x,double y,double z,uchar red,uchar green,uchar blue,uchar alpha,ushort intensity,"
              "uchar classification,");
    EXPECT_EQ(bytes.size(), body + count * 31);
    std::vector<Row> rows;
    for (size_t at = body; rows.size() < count; at += 31) {
        Row& row = rows.emplace_back();
        for (size_t i = 0; i < 3; ++i) {
            row[i] = valueAt<double>(bytes, at + 8 * i);
            row[3 + i] = valueAt<uint8_t>(bytes, at + 24 + i);
        }
        row[6] = valueAt<uint16_t>(bytes, at + 28);
        row[7] = valueAt<uint8_t>(bytes, at + 30);
    }
    return rows;
}

std::vector<Row> readLas(const std::string& bytes, LasVersion version) {
    const bool isNew = version == LasVersion::OneFour;
    EXPECT_EQ(bytes.substr(0, 4), "LASF");
    EXPECT_EQ(valueAt<uint8_t>(bytes, 25), isNew ? 4 : 2);
    EXPECT_EQ(valueAt<uint8_t>(bytes, 104), isNew ? 7 : 2);
    EXPECT_EQ(valueAt<uint16_t>(bytes, 94), isNew ? 375 : 227);
    const size_t begin = valueAt<uint32_t>(bytes, 96);
    const size_t length = valueAt<uint16_t>(bytes, 105);
    const uint64_t count = isNew ? valueAt<uint64_t>(bytes, 247) : valueAt<uint32_t>(bytes, 107);
    EXPECT_EQ(isNew ? valueAt<uint64_t>(bytes, 255) : valueAt<uint32_t>(bytes, 111), count);
    EXPECT_EQ(valueAt<uint32_t>(bytes, 107), isNew ? 0 : count);
    EXPECT_EQ(bytes.size(), begin + count * length);
    std::vector<Row> rows;
    Math::NBoundingBox<double, 3> box;
    for (size_t at = begin; rows.size() < count; at += length) {
        Row& row = rows.emplace_back();
        for (size_t i = 0; i < 3; ++i) {
            const auto steps = valueAt<int32_t>(bytes, at + 4 * i);
            row[i] = steps * valueAt<double>(bytes, 131 + 8 * i) + valueAt<double>(bytes, 155 + 8 * i);
            row[3 + i] = valueAt<uint16_t>(bytes, at + length - 6 + 2 * i) / 257.0;
        }
        row[6] = valueAt<uint16_t>(bytes, at + 12);
        row[7] = valueAt<uint8_t>(bytes, at + (isNew ? 16 : 15));
        EXPECT_EQ(valueAt<uint8_t>(bytes, at + 14), isNew ? 0x11 : 0x09);
        box.extend({row[0], row[1], row[2]});
    }
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(valueAt<double>(bytes, 179 + 16 * i), rows.empty() ? 0.0 : box.max[static_cast<int>(i)]);
        EXPECT_EQ(valueAt<double>(bytes, 187 + 16 * i), rows.empty() ? 0.0 : box.min[static_cast<int>(i)]);
    }
    return rows;
}

/// The sample scene as a store, and its points as they went into it.
class QueryExport : public testing::Test {
protected:
    static constexpr size_t POINTS = 20000;

    static void SetUpTestSuite() {
        sFolder = new Support::TemporaryFolder;
        Tool::StoreWriteOptions options;
        options.maxLeafPoints = 300;
        ASSERT_TRUE(Tool::writeSampleStore(sFolder->path() / "store", POINTS, options));
    }
    static void TearDownTestSuite() { delete sFolder; }

    static Octree::Location location() { return PoTree::FileSystemLocation(sFolder->path() / "store"); }

    /// A coordinate as one would write it down.
    static double decimal(int64_t steps, double offset) {
        const Tool::StoreDescription description = Tool::sampleDescription();
        EXPECT_EQ(description.scale, 0.001);
        const int64_t thousandths = steps + std::llround(offset * 1000.0);
        const std::string digits = std::to_string(1000 + thousandths % 1000);
        return std::stod(std::to_string(thousandths / 1000) + '.' + digits.substr(1));
    }

    /// The rows of all points whose position passes.
    static std::vector<Row> expected(const std::function<bool(const Place&)>& passes) {
        const Tool::StoreDescription description = Tool::sampleDescription();
        std::vector<Row> rows;
        for (const Tool::StorePoint& point : Tool::samplePoints(POINTS)) {
            Row row{};
            for (size_t i = 0; i < 3; ++i) {
                row[i] = decimal(point.position[i], description.offset[i]);
                row[3 + i] = point.color[i] >> 8;
            }
            row[6] = point.intensity;
            row[7] = point.classification;
            if (passes({row[0], row[1], row[2]})) {
                rows.push_back(row);
            }
        }
        std::sort(rows.begin(), rows.end());
        return rows;
    }

    template <class Writer, class... Settings>
    static std::string write(const std::shared_ptr<Render::RegionFilter>& region, Settings... settings) {
        std::ostringstream stream;
        Writer writer(stream, settings...);
        const auto octree = std::make_shared<Octree::Octree>(location());
        Tool::ExportRequest request;
        request.region = region;
        EXPECT_TRUE(Tool::exportPoints(octree, request, writer, [](uint64_t) { return true; }));
        return stream.str();
    }

    static inline Support::TemporaryFolder* sFolder = nullptr;
};

std::vector<Row> sorted(std::vector<Row> rows) {
    std::sort(rows.begin(), rows.end());
    return rows;
}

std::string polygonError(const std::string& text) {
    const Support::TemporaryFolder folder;
    folder.write("area.txt", text);
    try {
        Tool::readPolygonFile(folder.path() / "area.txt");
    } catch (const std::runtime_error& error) {
        const std::string what = error.what();
        return what.substr(std::min(what.find("area.txt"), what.size()));
    }
    return "none";
}

}  // namespace

TEST_F(QueryExport, EveryFormatHoldsThePointsToTheLastDigit) {
    const std::vector<Row> all = expected([](const Place&) { return true; });
    ASSERT_EQ(all.size(), POINTS);
    const std::optional<PositionGrid> grid = Octree::Octree(location()).positionGrid();
    ASSERT_TRUE(grid);
    EXPECT_EQ(sorted(readPly(write<Tool::PlyPointWriter>(nullptr))), all);
    for (const LasVersion version : {LasVersion::OneTwo, LasVersion::OneFour}) {
        std::vector<Row> rows = readLas(write<Tool::LasPointWriter>(nullptr, version, *grid), version);
        for (Row& row : rows) {
            std::transform(row.begin(), row.begin() + 3, row.begin(),
                           [](double coordinate) { return Tool::rounded(coordinate, 3); });
        }
        EXPECT_EQ(sorted(rows), all);
    }
    std::vector<Row> plain = all;
    for (Row& row : plain) {
        row[6] = row[7] = 0.0;
    }
    EXPECT_EQ(sorted(readText(write<Tool::TextPointWriter>(nullptr))), sorted(plain));
}

TEST_F(QueryExport, NoLocaleChangesANumber) {
    class Foreign final : public std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const auto everything = [] {
        const Tool::StoreInfo info = Tool::readStoreInfo(location());
        return write<Tool::TextPointWriter>(nullptr) + write<Tool::PlyPointWriter>(nullptr) +
               Tool::infoText(info) + Tool::infoJson(info) + Tool::fixedText(1234.5, 2);
    };
    const std::string expected = everything();
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Foreign));
    const std::string foreign = everything();
    std::locale::global(before);
    EXPECT_TRUE(foreign == expected);
}

TEST_F(QueryExport, RegionsAreExactOnBordersThatPointsLieOn) {
    // A box with points of the store on its faces, and a sphere with one on its surface.
    const std::vector<Row> all = expected([](const Place&) { return true; });
    std::mt19937 random(5);
    for (int i = 0; i < 20; ++i) {
        Math::NBoundingBox<double, 3> box;
        for (int n = 0; n < 2; ++n) {
            const Row& row = all[random() % all.size()];
            box.extend({row[0], row[1], row[2]});
        }
        box.min[2] = -1e9;
        const auto rows = expected([&](const Place& p) { return box.contains(p); });
        ASSERT_GT(rows.size(), 1U);
        EXPECT_EQ(sorted(readPly(write<Tool::PlyPointWriter>(std::make_shared<Render::BoxFilter>(box)))),
                  rows);
    }
    const Place center(432580.0, 5412380.0, 190.0);
    const Place onSurface(all[POINTS / 3][0], all[POINTS / 3][1], all[POINTS / 3][2]);
    const auto ball = std::make_shared<Render::SphereFilter>(center, 40.0);
    const auto rows = expected([&](const Place& p) { return ball->contains(p); });
    EXPECT_GT(rows.size(), POINTS / 20);
    EXPECT_EQ(sorted(readPly(write<Tool::PlyPointWriter>(ball))), rows);
    EXPECT_TRUE(readLas(write<Tool::LasPointWriter>(std::make_shared<Render::SphereFilter>(Place(), 1.0),
                                                    LasVersion::OneFour, PositionGrid({1.0, 1.0, 1.0}, {})),
                        LasVersion::OneFour)
                    .empty());
}

TEST_F(QueryExport, FindsAPointThatLiesAStepOutsideItsNode) {
    // Node r1 ends at x = 1128; its only point lies beyond.
    Support::PotreeFixture fixture;
    const std::string chunk = Support::brotliEncode(
        Support::positionCode(513, 20, 1000) + Support::bytesOf(uint16_t{7}) + Support::colorCode(1, 2, 3));
    fixture.hierarchy.replace(22, 22, Support::hierarchyRecord(1, 0, 1, fixture.octree.size(), chunk.size()));
    fixture.octree += chunk;
    fixture.writeAll();
    const Octree::Location place = PoTree::FileSystemLocation(fixture.folder.path());
    std::ostringstream stream;
    Tool::PlyPointWriter writer(stream);
    Tool::ExportRequest request;
    request.region = std::make_shared<Render::BoxFilter>(
        Math::NBoundingBox<double, 3>({1128.25, 2004.0, 3249.0}, {1129.0, 2006.0, 3251.0}));
    const auto octree = std::make_shared<Octree::Octree>(place);
    EXPECT_EQ(Tool::exportPoints(octree, request, writer, [](uint64_t) { return true; }), 1U);
}

TEST_F(QueryExport, StopsWhenToldTo) {
    std::ostringstream stream;
    Tool::PlyPointWriter writer(stream);
    const auto octree = std::make_shared<Octree::Octree>(location());
    EXPECT_FALSE(Tool::exportPoints(octree, {}, writer, [](uint64_t) { return false; }));
}

TEST(PositionGrid, IsMovedOrMadeCoarserWhereItMustBe) {
    const Math::NBoundingBox<double, 3> far({5e6, 5e6, 0.0}, {5e6 + 1000.0, 5e6 + 3e7, 100.0});
    const PositionGrid fine{{0.001, 0.001, 0.001}, {1.0, 2.0, 3.0}};
    const PositionGrid grid = Tool::gridFor32Bits(fine, far);
    EXPECT_EQ(Place(grid.scale(0), grid.scale(1), grid.scale(2)), Place(0.001, 0.01, 0.001));
    EXPECT_EQ(grid.offset(2), 3.0);
    for (int axis = 0; axis < 3; ++axis) {
        for (const double end : {far.min[axis], far.max[axis]}) {
            EXPECT_LE(std::abs(grid.steps(end, axis)), std::numeric_limits<int32_t>::max());
        }
    }
    // Moved by whole steps, a place of the old grid is one of the new.
    EXPECT_EQ(grid.snapped({5000001.234000001, 5e6 + 0.02, 7.0}).x(), 5000001.234);
    const PositionGrid decimal = Tool::gridFor32Bits(std::nullopt, far);
    EXPECT_EQ(Place(decimal.scale(0), decimal.scale(1), decimal.scale(2)), Place(1e-6, 0.1, 1e-7));
}

TEST(PositionGrid, MeansDecimalFractionsWhereItCan) {
    // Offsets as converters leave them, among them sums of decimal fractions.
    const PositionGrid grid({0.001, 0.00025, 0.01}, {-4.984999999999999, 4918340.3625, 406.59000000000003});
    EXPECT_EQ(grid.decimals(), 5);
    EXPECT_EQ(grid.coordinate(-4, 0), -4.989);
    EXPECT_EQ(grid.coordinate(1, 1), 4918340.36275);
    EXPECT_EQ(grid.coordinate(7, 2), 406.66);
    EXPECT_EQ(grid.snapped({-4.9880000001, 4918340.3651, 3.0}), Place(-4.988, 4918340.3651, 3.0));
    const PositionGrid binary({std::ldexp(1.0, -31), 1.0 / 3.0, 7.0}, {0.1, 1.0 / 3.0, 0.5});
    EXPECT_EQ(binary.coordinate(-3, 0), -3 * std::ldexp(1.0, -31) + 0.1);
    EXPECT_EQ(binary.coordinate(5, 1), 5 * (1.0 / 3.0) + 1.0 / 3.0);
    EXPECT_EQ(binary.coordinate(int64_t{1} << 60, 2), 7.0 * std::ldexp(1.0, 60) + 0.5);
    EXPECT_EQ(binary.decimals(), 11);
    EXPECT_THROW(PositionGrid({1.0, 0.0, 1.0}, {}), std::invalid_argument);
}

TEST(LasPointWriter, RefusesWhatTheFormatHasNoRoomFor) {
    std::ostringstream stream;
    Tool::LasPointWriter writer(stream, LasVersion::OneTwo, PositionGrid{{0.5, 1.0, 1.0}, {}});
    Render::QueryPoint point;
    point.position = Place(0.75, 0.0, 0.0);
    writer.write(&point, 1);
    EXPECT_EQ(writer.largestMove(), 0.25);
    point.classification = 32;
    EXPECT_THROW(writer.write(&point, 1), std::runtime_error);
    point.classification = 31;
    point.position = Place(0.0, -2147483649.0, 0.0);
    EXPECT_THROW(writer.write(&point, 1), std::runtime_error);
}

TEST(PolygonFile, ReadsLinesAndWellKnownText) {
    const Support::TemporaryFolder folder;
    folder.write("lines.txt", "\xEF\xBB\xBF# corners\r\n0 0\r\n 10.5\t-2e0 # one\r\n\r\n3 4\r\n");
    const auto lines = Tool::readPolygonFile(folder.path() / "lines.txt");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0], (Render::PolygonPrismFilter::Ring{{0, 0}, {10.5, -2}, {3, 4}}));
    folder.write("wkt.txt", "Polygon((0 0, 4 0,\n4 4,0 0 ),( 1 1,2 1,2 2) )\n");
    const auto rings = Tool::readPolygonFile(folder.path() / "wkt.txt");
    ASSERT_EQ(rings.size(), 2U);
    EXPECT_EQ(rings[0].size(), 4U);
    EXPECT_EQ(rings[1], (Render::PolygonPrismFilter::Ring{{1, 1}, {2, 1}, {2, 2}}));
}

TEST(PolygonFile, SaysWhereAndWhatIsWrong) {
    EXPECT_EQ(polygonError("0 0\n1 x\n"), "area.txt, line 2: 'x' is not a number");
    EXPECT_EQ(polygonError("0 0\n\n1\n2 2\n"), "area.txt, line 3: there is one number, not two");
    EXPECT_EQ(polygonError("0 0\n1 1 1\n2 2"), "area.txt, line 2: more than two numbers: '1'");
    EXPECT_EQ(polygonError("0 0\n1 nan\n"), "area.txt, line 2: 'nan' is too far away");
    EXPECT_EQ(polygonError("0 0\n1 1\n0 0\n"), "area.txt, line 4: a polygon needs three corners");
    EXPECT_EQ(polygonError(""), "area.txt, line 1: a polygon needs three corners");
    EXPECT_EQ(polygonError("POLYGON ((0 0, 1 0,\n 1 1"), "area.txt, line 2: ')' is missing");
    EXPECT_EQ(polygonError("POLYGON EMPTY"), "area.txt, line 1: '(' is missing before 'EMPTY'");
    EXPECT_EQ(polygonError("POLYGON ((0 0, 1 0, 1 1)) 7"),
              "area.txt, line 1: there is more after the polygon: '7'");

    const Support::TemporaryFolder folder;
    folder.write("huge.txt", "0 0\n");
    std::filesystem::resize_file(folder.path() / "huge.txt", std::uintmax_t{1} << 40);  // Takes no place.
    EXPECT_THROW(Tool::readPolygonFile(folder.path() / "huge.txt"), std::runtime_error);
}
