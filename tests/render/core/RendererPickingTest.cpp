#include <gtest/gtest.h>
#include <math/PlaneFit.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>
#include <tests/support/PotreeFixture.h>
#include <tests/support/RealData.h>
#include <tests/support/SyntheticOctree.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <locale>
#include <optional>
#include <random>
#include <set>
#include <sstream>

namespace {

using Math::TriangleMesh;
using P = Math::Point<float, 3>;
using Plane = Math::NPlane<float, 3>;
using TestSupport::SyntheticOctree;

constexpr size_t kWidth = 61;
constexpr size_t kHeight = 47;

/// Numbers as German and French write them.
struct CommaForAPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

/// A cloud that fills most of the picture, seen at a slant, and all of its positions picked one by one.
class RendererPicking : public testing::TestWithParam<bool> {
protected:
    RendererPicking() {
        renderer.setViewport(kWidth, kHeight);
        renderer.setBackgroundColor(255, 255, 255, 255);
    }

    void show(const std::shared_ptr<Render::PointCloudRenderable>& cloud) {
        renderer.setScene(cloud);
        renderer.setAutoAdjustZRange(true);
        renderer.setPerspective(40, 0.1f, 100, 0, 0);
        const auto box = cloud->boundingBox();
        renderer.setCameraPose(box.center() + P(0.4f, -1.0f, 0.8f) * box.size().length(), box.center(),
                               Eigen::Vector3f::UnitZ());
        cloud->reloadPoints(nullptr, 21, {});
        renderer.render();
        for (size_t y = 0; y < kHeight; ++y) {
            for (size_t x = 0; x < kWidth; ++x) {
                Pixel& pixel = pixels[y * kWidth + x];
                pixel.drawn = renderer.pickPoint(x, y, pixel.point);
            }
        }
    }

    void showSynthetic() {
        source = std::make_shared<SyntheticOctree>(
            TestSupport::SyntheticOctreeShape{.depth = 2, .pointsPerNode = 40});
        show(Render::PointCloudRenderable::create(SyntheticOctree::open(source), "cloud", 1000000));
    }

    struct Pixel {
        bool drawn = false;
        P point;
    };

    /// The pixels of a tolerance pick, column by column.
    template <class Visit>
    void visitSquare(int x, int y, int t, Visit visit) const {
        if (x >= static_cast<int>(kWidth) || y >= static_cast<int>(kHeight)) {
            return;
        }
        constexpr int w = kWidth - 1;
        constexpr int h = kHeight - 1;
        for (int i = std::clamp(x - t, 0, w); i < std::clamp(x + t, 0, w); ++i) {
            for (int j = std::clamp(y - t, 0, h); j < std::clamp(y + t, 0, h); ++j) {
                const Pixel& pixel = pixels[static_cast<size_t>(j) * kWidth + static_cast<size_t>(i)];
                if (pixel.drawn) {
                    visit(pixel.point);
                }
            }
        }
    }

    void expectRandomPicksRight(int count) {
        std::mt19937 random(5);
        std::uniform_int_distribution<int> column(0, kWidth + 2);
        std::uniform_int_distribution<int> row(0, kHeight + 2);
        const auto mesh =
            std::make_shared<TriangleMesh<float>>(std::vector<P>{P(-9, -9, -1), P(9, -9, 0), P(0, 9, 2)},
                                                  std::vector<TriangleMesh<float>::Triangle>{{0, 1, 2}});
        const Plane plane(P(0.6f, 0, 0.8f), 0.5f);
        renderer.setMeshForDistanceColorization(mesh);
        renderer.setPlaneForDistanceColorization(plane);
        int hits = 0;
        for (int i = 0; i < count; ++i) {
            const int x = column(random);
            const int y = row(random);
            const int t = static_cast<int>(random() % 5);
            const bool isSigned = random() % 2 == 0;
            renderer.setUseSignedDistance(isSigned);
            bool expected = false;
            P nearest(7, 7, 7);
            visitSquare(x, y, t, [&](const P& point) {
                if (!expected || Math::squaredDistance(renderer.eye(), point) <
                                     Math::squaredDistance(renderer.eye(), nearest)) {
                    nearest = point;
                }
                expected = true;
            });
            const auto at = [&](auto pick) {
                return pick(static_cast<size_t>(x), static_cast<size_t>(y), static_cast<size_t>(t));
            };
            P point(7, 7, 7);
            float distance = 77;
            ASSERT_EQ(at([&](size_t a, size_t b, size_t c) {
                          return renderer.pickClosestPointWithTolerance(a, b, c, point);
                      }),
                      expected);
            EXPECT_EQ(point, nearest);
            point = P(7, 7, 7);
            ASSERT_EQ(at([&](size_t a, size_t b, size_t c) {
                          return renderer.pickPointWithDistanceToColorizationPlane(a, b, c, point, distance);
                      }),
                      expected);
            EXPECT_EQ(point, nearest);
            const float toPlane = 0.6f * nearest.x() + 0.8f * nearest.z() + 0.5f;
            EXPECT_NEAR(distance, !expected ? 77 : isSigned ? toPlane : std::abs(toPlane), 1e-5);
            ASSERT_EQ(at([&](size_t a, size_t b, size_t c) {
                          return renderer.pickPointWithDistanceToColorizationMesh(a, b, c, point, distance);
                      }),
                      expected);
            expectPlanePickRight(x, y, t);
            if (expected) {
                EXPECT_NEAR(distance, isSigned ? mesh->signedDistance(nearest) : mesh->distance(nearest),
                            1e-5);
                ++hits;
            }
        }
        EXPECT_GT(hits, count / 5);
        EXPECT_LT(hits, count);
    }

    /// The steps of a plane pick once more, on the positions picked one by one.
    void expectPlanePickRight(int x, int y, int t) {
        std::vector<P> points;
        visitSquare(x, y, t, [&](const P& point) {
            if (points.empty() || points.back() != point) {
                points.push_back(point);
            }
        });
        std::optional<Plane> fitted;
        if (const auto robust = Math::PlaneFit::robust(points, 0.2)) {
            std::vector<P> inliers;
            for (const size_t i : robust->inliers) {
                inliers.push_back(points[i]);
            }
            fitted = Math::PlaneFit::leastSquares(inliers);
        }
        Plane plane(P(9, 9, 9), 9);
        P point(9, 9, 9);
        const bool hit = renderer.pickPlane(static_cast<size_t>(x), static_cast<size_t>(y),
                                            static_cast<size_t>(t), plane, point, 0.2);
        if (!fitted) {
            EXPECT_FALSE(hit);
            EXPECT_EQ(plane.offset, 9);
            return;
        }
        const P eye = renderer.eye();
        const float side = fitted->signedDistance(eye) < 0 ? -1.0f : 1.0f;
        EXPECT_EQ(plane.normal, fitted->normal * side);
        EXPECT_EQ(plane.offset, fitted->offset * side);
        const P sight = renderer.unProject(static_cast<size_t>(x), static_cast<size_t>(y), 0.0f) - eye;
        EXPECT_EQ(hit, plane.normal.dot(sight) < 0 || plane.signedDistance(eye) == 0);
        if (hit) {
            EXPECT_NEAR(plane.signedDistance(point), 0, 1e-3f * (1 + (point - eye).length()));
            EXPECT_NEAR((point - eye).cross(sight).length() / sight.length(), 0,
                        1e-3f * (1 + (point - eye).length()));
            EXPECT_GE((point - eye).dot(sight), 0);
        }
    }

    Render::Renderer renderer{GetParam()};
    std::shared_ptr<SyntheticOctree> source;
    std::vector<Pixel> pixels = std::vector<Pixel>(kWidth * kHeight);
};

TEST_P(RendererPicking, PickedPointsAreStoredPointsUnderTheMouse) {
    showSynthetic();
    std::vector<P> stored;
    for (const Octree::OctreeNodeId id : source->allNodes()) {
        for (size_t i = 0; i < source->pointCount(id); ++i) {
            stored.push_back(source->position(id, i).cast<float>());
        }
    }
    size_t drawn = 0;
    for (size_t y = 0; y < kHeight; ++y) {
        for (size_t x = 0; x < kWidth; ++x) {
            const Pixel& pixel = pixels[y * kWidth + x];
            if (!pixel.drawn) {
                EXPECT_EQ(pixel.point, P(0, 0, 0));
                continue;
            }
            ++drawn;
            EXPECT_NE(std::find(stored.begin(), stored.end(), pixel.point), stored.end());
            const P onScreen = renderer.project(pixel.point);
            EXPECT_NEAR(onScreen.x(), static_cast<float>(x), 4) << x << ' ' << y;
            EXPECT_NEAR(onScreen.y(), static_cast<float>(y), 4) << x << ' ' << y;
        }
    }
    EXPECT_GT(drawn, kWidth * kHeight / 10);
    EXPECT_LT(drawn, kWidth * kHeight);
    P untouched(1, 2, 3);
    EXPECT_FALSE(renderer.pickPoint(kWidth, 0, untouched));
    EXPECT_FALSE(renderer.pickPoint(0, kHeight, untouched));
    EXPECT_EQ(untouched, P(1, 2, 3));
}

TEST_P(RendererPicking, RandomPicksAgreeWithALookAtEveryPixel) {
    showSynthetic();
    P point;
    float distance = 0;
    EXPECT_FALSE(renderer.pickPointWithDistanceToColorizationMesh(30, 25, 5, point, distance));
    EXPECT_FALSE(renderer.pickPointWithDistanceToColorizationPlane(30, 25, 5, point, distance))
        << "without a mesh the plane is not measured either";
    expectRandomPicksRight(500);
}

TEST_P(RendererPicking, RandomPicksAgreeOnARealCloud) {
    const std::filesystem::path store = TestSupport::realData() / "potree" / "lion-brotli";
    if (!std::filesystem::exists(store)) {
        GTEST_SKIP() << "needs " << store;
    }
    show(Render::PointCloudRenderable::create(PoTree::FileSystemLocation(store), "lion", 1000000, 1.0));
    expectRandomPicksRight(10000);
}

TEST_P(RendererPicking, AbsoluteCoordinatesFarFromTheOriginAreRightToTheStoresScale) {
    const std::filesystem::path folder = TestSupport::realData() / "potree" / "lone-star-brotli";
    if (!std::filesystem::exists(folder)) {
        GTEST_SKIP() << "needs " << folder;
    }
    const PoTree::FileSystemLocation location(folder);
    show(Render::PointCloudRenderable::create(location, "lone star", 1000000, 1.0));
    // Around 4,918,340 m, in steps of a quarter of a millimetre: the steps from the store's offset.
    constexpr double scale = 0.00025;
    const Octree::Octree octree{Octree::Location(location)};
    const auto stepsOf = [&octree](const Math::Point<double, 3>& model) {
        const auto absolute = model + octree.referencePosition();
        return std::array<double, 3>{(absolute.x() - 515368.6) / scale, (absolute.y() - 4918340.3625) / scale,
                                     (absolute.z() - 2322.895) / scale};
    };
    std::set<std::array<long long, 3>> stored;
    std::vector<Octree::OctreeNodeId> open{Octree::OctreeNodeId()};
    while (!open.empty()) {
        const Octree::OctreeNodeId id = open.back();
        open.pop_back();
        const Octree::NodeChildren children = octree.children(id);
        open.insert(open.end(), children.begin(), children.end());
        Octree::NodePointData data(static_cast<unsigned>(Octree::Attribute::Position));
        ASSERT_TRUE(octree.getNodePointData(id, data));
        for (size_t i = 0; i < data.size(); ++i) {
            const auto steps = stepsOf(data.position(i));
            stored.insert({std::llround(steps[0]), std::llround(steps[1]), std::llround(steps[2])});
        }
    }
    size_t drawn = 0;
    for (const Pixel& pixel : pixels) {
        if (pixel.drawn) {
            const auto steps = stepsOf(pixel.point.cast<double>());
            for (const double step : steps) {
                EXPECT_NEAR(step, std::round(step), 0.05);
            }
            EXPECT_TRUE(
                stored.contains({std::llround(steps[0]), std::llround(steps[1]), std::llround(steps[2])}));
            ++drawn;
        }
    }
    EXPECT_GT(drawn, 300u);
}

TEST_P(RendererPicking, ThePickedPlaneFacesTheEyeAndMeetsTheLineOfSight) {
    showSynthetic();
    Plane plane(P(9, 9, 9), 9);
    P point(9, 9, 9);
    EXPECT_FALSE(renderer.pickPlane(30, 25, 0, plane, point, 1));
    EXPECT_FALSE(renderer.pickPlane(30, 25, 10, plane, point, 0));
    EXPECT_EQ(plane.offset, 9);
    int met = 0;
    for (size_t i = 0; i < 40; ++i) {
        const size_t x = 10 + i;
        if (!renderer.pickPlane(x, 25, 8, plane, point, 1.0)) {
            continue;
        }
        ++met;
        EXPECT_NEAR(plane.normal.length(), 1, 1e-5);
        EXPECT_GE(plane.signedDistance(renderer.eye()), 0);
        EXPECT_NEAR(plane.signedDistance(point), 0, 1e-3);
        EXPECT_NEAR(renderer.project(point).x(), static_cast<float>(x), 0.6);
        EXPECT_NEAR(renderer.project(point).y(), 25.0f, 0.6);
        size_t close = 0;
        size_t all = 0;
        visitSquare(static_cast<int>(x), 25, 8, [&](const P& p) {
            close += std::abs(plane.signedDistance(p)) < 1.5f ? 1u : 0u;
            ++all;
        });
        EXPECT_GE(3 * close, all);
    }
    EXPECT_GT(met, 20);
}

TEST_P(RendererPicking, PointsAreTheDrawnPixelsRowByRow) {
    showSynthetic();
    Graphics::ColorImage image;
    renderer.getColorImage(image);
    std::vector<Render::VertexPosColor> points;
    renderer.getPoints(points);
    std::vector<Render::VertexPosColor> chunk(100);
    std::vector<double> xyz(3 * 37);
    std::vector<int> rgb(37);
    EXPECT_EQ(renderer.getNextPointChunk(chunk.data(), chunk.size()), 0u)
        << "getPoints leaves the end behind";
    renderer.resetPointChunkPosition();
    ASSERT_EQ(renderer.getNextPointChunk(chunk.data(), chunk.size()), 100u);
    ASSERT_EQ(renderer.getNextPointChunk(xyz.data(), rgb.data(), 37), 37u);
    size_t drawn = 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        if (!pixels[i].drawn) {
            continue;
        }
        ASSERT_LT(drawn, points.size());
        const Render::VertexPosColor& point = points[drawn];
        EXPECT_EQ(point.color, image.pixel(i % kWidth, i / kWidth));
        const P onScreen = renderer.project(point.position);
        EXPECT_NEAR(onScreen.x(), static_cast<float>(i % kWidth), 1.1);
        EXPECT_NEAR(onScreen.y(), static_cast<float>(i / kWidth), 1.1);
        if (drawn < 100) {
            EXPECT_EQ(chunk[drawn].position, point.position);
            EXPECT_EQ(chunk[drawn].color, point.color);
        } else if (drawn < 137) {
            EXPECT_EQ(xyz[3 * (drawn - 100) + 1], double{point.position.y()});
            EXPECT_EQ(rgb[drawn - 100], point.color.r() | point.color.g() << 8 | point.color.b() << 16);
        }
        ++drawn;
    }
    EXPECT_EQ(drawn, points.size());
    renderer.setViewport(20, 10);  // The cursor is in column and row of a larger picture.
    renderer.render();
    renderer.getPoints(points);
    EXPECT_LE(points.size(), 200u);
}

TEST_P(RendererPicking, PointsAreWrittenAsText) {
    showSynthetic();
    const Support::TemporaryFolder folder;
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaForAPoint));
    renderer.writePoints(folder.path() / "points.txt");
    std::locale::global(before);
    std::vector<Render::VertexPosColor> points;
    renderer.getPoints(points);
    std::ifstream file(folder.path() / "points.txt");
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, "X Y Z Red Green Blue Alpha");
    for (const Render::VertexPosColor& point : points) {
        std::getline(file, line);
        std::ostringstream expected;
        expected.precision(7);
        expected << point.position.x() << ' ' << point.position.y() << ' ' << point.position.z() << ' '
                 << +point.color.r() << ' ' << +point.color.g() << ' ' << +point.color.b() << ' '
                 << +point.color.a();
        ASSERT_EQ(line, expected.str());
    }
    EXPECT_FALSE(std::getline(file, line));
    EXPECT_NO_THROW(renderer.writePoints(folder.path() / "no such folder" / "points.txt"));
}

INSTANTIATE_TEST_SUITE_P(Conventions, RendererPicking, testing::Bool(),
                         [](const auto& convention) { return convention.param ? "reversed" : "normal"; });

}  // namespace
