#include <octree/potree/PointCodes.h>
#include <octree/potree/PointColumns.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

#include <limits>
#include <random>
#include <vector>

using namespace PoTree;

namespace {

const std::byte* asBytes(const std::string& text) {
    return reinterpret_cast<const std::byte*>(text.data());
}

}  // namespace

TEST(PointCodes, UnpackWhatWasInterleaved) {
    constexpr std::int32_t LOWEST = std::numeric_limits<std::int32_t>::min();
    const std::vector<std::int32_t> xs{0, 1, -1, LOWEST, 0x12345678};
    const std::vector<std::int32_t> ys{0, -2, 65536, 0x7fffffff, -0x12345678};
    const std::vector<std::int32_t> zs{0, 4, 65535, -1, 0x0f0f0f0f};
    std::string codes;
    for (std::size_t i = 0; i < xs.size(); ++i) {
        codes += Support::positionCode(xs[i], ys[i], zs[i]);
    }
    std::vector<std::int32_t> x(xs.size()), y(xs.size()), z(xs.size());
    portablePointCodeKernel().positions(asBytes(codes), xs.size(), x.data(), y.data(), z.data());
    EXPECT_EQ(x, xs);
    EXPECT_EQ(y, ys);
    EXPECT_EQ(z, zs);
}

TEST(PointCodes, TurnBothColorDepthsIntoBytes) {
    const std::string codes = Support::colorCode(7, 254, 255) + Support::colorCode(0x1234, 0xff00, 300);
    Math::Color colors[2];
    portablePointCodeKernel().colors(asBytes(codes), 2, ColorDepth::Eight, colors);
    EXPECT_EQ(colors[0], Math::Color(7, 254, 255));
    EXPECT_EQ(colors[1], Math::Color::white());
    portablePointCodeKernel().colors(asBytes(codes), 2, ColorDepth::Sixteen, colors);
    EXPECT_EQ(colors[1], Math::Color(0x12, 0xff, 1));
}

TEST(PointCodes, Bmi2AgreesWithThePortableForm) {
    const PointCodeKernel* bmi2 = bmi2PointCodeKernel();
    if (bmi2 == nullptr) {
        GTEST_SKIP() << "this CPU has no fast BMI2";
    }
    constexpr std::size_t COUNT = 20000;
    std::mt19937_64 random(1);
    std::string codes = "x";  // one byte off alignment
    for (std::size_t i = 0; i < 2 * COUNT; ++i) {
        codes += Support::bytesOf(random());
    }
    const std::byte* start = asBytes(codes) + 1;
    std::vector<std::int32_t> expected(3 * COUNT), actual(3 * COUNT);
    portablePointCodeKernel().positions(start, COUNT, &expected[0], &expected[COUNT], &expected[2 * COUNT]);
    bmi2->positions(start, COUNT, &actual[0], &actual[COUNT], &actual[2 * COUNT]);
    EXPECT_EQ(actual, expected);
    for (const ColorDepth depth : {ColorDepth::Eight, ColorDepth::Sixteen}) {
        std::vector<Math::Color> portable(COUNT), fast(COUNT);
        portablePointCodeKernel().colors(start, COUNT, depth, portable.data());
        bmi2->colors(start, COUNT, depth, fast.data());
        EXPECT_EQ(fast, portable);
    }
}

TEST(Oct16, DecodesToUnitVectorsInAllOctants) {
    for (unsigned code = 0; code < 65536; ++code) {
        ASSERT_NEAR(decodeOct16(static_cast<std::uint16_t>(code)).length(), 1.0f, 1e-6f) << code;
    }
    EXPECT_GT(decodeOct16(0x8080).z(), 0.99f);
    EXPECT_LT(decodeOct16(0xffff).z(), -0.99f);
    EXPECT_GT(decodeOct16(0x80ff).x(), 0.99f);
    EXPECT_LT(decodeOct16(0x0080).y(), -0.99f);
    // Between -z and +x: folded, not mirrored.
    const Math::Point<float, 3> folded = decodeOct16(0xc0f0);
    EXPECT_GT(folded.x(), 0.0f);
    EXPECT_LT(folded.z(), 0.0f);
}
