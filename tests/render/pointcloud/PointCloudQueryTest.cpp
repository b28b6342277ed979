#include <core/ExceptionChain.h>
#include <gtest/gtest.h>
#include <octree/ChildCube.h>
#include <octree/StoreError.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/pointcloud/PointCloudQuery.h>
#include <render/pointcloud/filters/BoxFilter.h>
#include <render/pointcloud/filters/ComplementFilter.h>
#include <render/pointcloud/filters/OrientedBoxFilter.h>
#include <render/pointcloud/filters/PolygonPrismFilter.h>
#include <render/pointcloud/filters/SphereFilter.h>

#include <tests/support/RealData.h>
#include <tests/support/SyntheticOctree.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>

namespace {

using Math::Point;
using Octree::BoxTestResult;
using Octree::OctreeNodeId;
using Render::PointCloudQuery;
using Render::QueryPoint;
using Render::VertexPosColor;
using TestSupport::SyntheticOctree;

// A point as a row that sorts and compares.
using Row = std::array<double, 6>;

Row row(const QueryPoint& p) {
    return {p.position.x(),
            p.position.y(),
            p.position.z(),
            static_cast<double>(p.color.packed()),
            static_cast<double>(p.intensity),
            static_cast<double>(p.classification)};
}

Row row(const VertexPosColor& p) {
    return row(QueryPoint{p.position.cast<double>(), p.color});
}

template <class Vertex>
std::vector<Row> drain(PointCloudQuery& query, std::size_t chunk) {
    std::vector<Row> rows;
    std::vector<Vertex> buffer(chunk);
    while (!query.isExhausted()) {
        const std::size_t count = query.getNextPointChunk(buffer.data(), chunk);
        for (std::size_t i = 0; i < count; ++i) {
            rows.push_back(row(buffer[i]));
        }
    }
    return rows;
}

struct Request {
    Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
    std::shared_ptr<Render::IFilter> filter;
    std::size_t maxLevel = 21;
    float minSpacing = 0.0f;
};

struct Expected {
    std::vector<Row> floats, doubles;
    std::size_t nodes = 0;
};

// Every point of every node, level by level, each looked at by itself.
Expected bruteForce(const Octree::Octree& octree, const Request& request) {
    Expected expected;
    std::vector<OctreeNodeId> nodes{OctreeNodeId()};
    const float worldScale = request.world.col(0).head<3>().norm();
    const Eigen::Matrix4d exactWorld = request.world.cast<double>();
    for (std::size_t n = 0; n < nodes.size(); ++n) {
        const OctreeNodeId id = nodes[n];
        if (id.level() > request.maxLevel ||
            !(octree.spacing(id.level()) * worldScale > request.minSpacing)) {
            continue;
        }
        ++expected.nodes;
        for (const OctreeNodeId child : octree.children(id)) {
            nodes.push_back(child);
        }
        Octree::NodePointData data;
        octree.getNodePointData(id, data);
        for (std::size_t i = 0; i < data.size(); ++i) {
            const auto narrow = Math::transformPoint(request.world, data.position(i).cast<float>());
            const bool isHidden = octree.nodeVisibility(id) == 2 ||
                                  (data.has(Octree::Attribute::Visibility) && data.visibility(i) != 0);
            QueryPoint point;
            point.position = Math::transformPoint(exactWorld, data.position(i));
            const auto* const region = dynamic_cast<const Render::RegionFilter*>(request.filter.get());
            if (isHidden || (region != nullptr ? !region->contains(point.position)
                                               : request.filter && !request.filter->testPosition(narrow))) {
                continue;
            }
            point.color = data.has(Octree::Attribute::Color) ? data.color(i) : Math::Color::white();
            point.intensity = data.intensity(i);
            point.classification = data.classification(i);
            expected.doubles.push_back(row(point));
            expected.floats.push_back(row(VertexPosColor(narrow, point.color)));
        }
    }
    return expected;
}

// A region of a host's own, which knows floats only.
class FloatFilter final : public Render::IFilter {
public:
    explicit FloatFilter(std::shared_ptr<Render::IFilter> filter) : mFilter(std::move(filter)) {}
    bool testPosition(const Point<float, 3>& position) override { return mFilter->testPosition(position); }
    BoxTestResult testBox(const Math::NBoundingBox<float, 3>& box) override { return mFilter->testBox(box); }

private:
    std::shared_ptr<Render::IFilter> mFilter;
};

Eigen::Matrix4f turned(const Eigen::Vector3f& scale) {
    Eigen::Affine3f world(Eigen::Translation3f(100.0f, -20.0f, 3.0f));
    world.rotate(Eigen::AngleAxisf(0.8f, Eigen::Vector3f(1, 2, 3).normalized()));
    world.scale(scale);
    return world.matrix();
}

// Regions that cut through a cube of the given side around the place that `world` takes the origin to.
std::vector<std::shared_ptr<Render::IFilter>> regions(const Eigen::Matrix4f& world, double side) {
    const Point<double, 3> c(world(0, 3), world(1, 3), world(2, 3));
    const double s = side * static_cast<double>(world.col(0).head<3>().norm());
    const Eigen::Matrix3d axes =
        Eigen::AngleAxisd(1.1, Eigen::Vector3d(3, 1, 2).normalized()).toRotationMatrix();
    const auto at = [&](double x, double y) { return Point<double, 2>(c.x() + x * s, c.y() + y * s); };
    const auto sphere = std::make_shared<Render::SphereFilter>(c, 0.37 * s);
    return {
        nullptr,
        std::make_shared<Render::BoxFilter>(Math::NBoundingBox<double, 3>(
            {c.x() - 0.31 * s, c.y() - s, c.z() - 0.23 * s}, {c.x() + 0.11 * s, c.y() + 0.2 * s, c.z() + s})),
        std::make_shared<Render::OrientedBoxFilter>(c, axes, Point<double, 3>(0.4, 0.3, 0.2) * s),
        sphere,
        std::make_shared<Render::ComplementFilter>(sphere),
        std::make_shared<FloatFilter>(sphere),
        std::make_shared<Render::ComplementFilter>(std::make_shared<FloatFilter>(sphere)),
        std::make_shared<Render::PolygonPrismFilter>(
            std::vector<Render::PolygonPrismFilter::Ring>{
                {at(-0.4, -0.4), at(0.3, -0.35), at(0.0, 0.0), at(0.45, 0.4), at(-0.3, 0.2)}},
            c.z() - 0.3 * s, c.z() + 0.4 * s)};
}

void expectSamePoints(const std::shared_ptr<Octree::Octree>& octree, const Request& request) {
    const Expected expected = bruteForce(*octree, request);
    const auto query = [&] {
        return PointCloudQuery(octree, nullptr, request.world, request.filter.get(), request.maxLevel,
                               request.minSpacing, {});
    };
    auto floats = query();
    auto doubles = query();
    // Level by level is the order of a query too.
    EXPECT_EQ(drain<VertexPosColor>(floats, 1000), expected.floats);
    EXPECT_EQ(drain<QueryPoint>(doubles, 1000), expected.doubles);
}

// Hides every third point of the level-1 nodes.
class HidingOctree final : public SyntheticOctree {
public:
    using SyntheticOctree::SyntheticOctree;
    bool readNode(OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token& stop) override {
        SyntheticOctree::readNode(id, unitScale, data, stop);
        if (id.level() == 1) {
            std::vector<std::uint8_t> column(data.size());
            for (std::size_t i = 0; i < column.size(); i += 3) {
                column[i] = static_cast<std::uint8_t>(i + 1);
            }
            data.setVisibilities(std::move(column));
        }
        return true;
    }
};

class PointCloudQueryTest : public testing::Test {
protected:
    PointCloudQuery query(Render::IFilter* filter, std::size_t maxLevel = 21, float minSpacing = 0.0f,
                          std::shared_ptr<PointCloudQuery::Cache> cache = nullptr,
                          std::chrono::nanoseconds timeLimit = {}) {
        return {octree,     std::move(cache), Eigen::Matrix4f::Identity(), filter, maxLevel,
                minSpacing, timeLimit};
    }
    void use(std::shared_ptr<SyntheticOctree> other) {
        source = std::move(other);
        octree = SyntheticOctree::open(source);
    }

    std::shared_ptr<SyntheticOctree> source =
        std::make_shared<SyntheticOctree>(TestSupport::SyntheticOctreeShape{.depth = 2, .pointsPerNode = 7});
    std::shared_ptr<Octree::Octree> octree = SyntheticOctree::open(source);
};

TEST_F(PointCloudQueryTest, GivesThePointsThatAreInTheRegion) {
    use(std::make_shared<HidingOctree>(TestSupport::SyntheticOctreeShape{
        .depth = 3,
        .childMask = 0xd7,
        .pointCount = [](OctreeNodeId id) { return id.code() % 5 == 0 ? 0 : id.code() % 17; },
        .visibility = [](OctreeNodeId id) { return id.code() % 7 == 0 ? 2 : 0; }}));
    const Eigen::Matrix4f worlds[] = {Eigen::Matrix4f::Identity(), turned({1, 1, 1}),
                                      turned({2.5f, 2.5f, 2.5f}), turned({0.4f, 0.4f, -0.4f})};
    for (const Eigen::Matrix4f& world : worlds) {
        for (const auto& filter : regions(world, 16.0)) {
            expectSamePoints(octree, {world, filter});
        }
    }
    const auto box = regions(worlds[2], 16.0)[1];
    for (const std::size_t maxLevel : {0U, 1U, 2U}) {
        expectSamePoints(octree, {worlds[2], box, maxLevel});
    }
    // The spacing of the levels is 2.5, 1.25, 0.625 …: a node with exactly the least spacing is left out.
    const auto nodes = [&](float minSpacing) {
        expectSamePoints(octree, {worlds[2], box, 21, minSpacing});
        return bruteForce(*octree, {worlds[2], box, 21, minSpacing}).nodes;
    };
    EXPECT_EQ(nodes(3.0f), 0U);
    EXPECT_EQ(nodes(worlds[2].col(0).head<3>().norm() * 0.5f), 1U);
    EXPECT_EQ(nodes(1.2f), 7U);
}

TEST_F(PointCloudQueryTest, GivesThePointsOfRealStoresThatAreInTheRegion) {
    const std::filesystem::path stores = TestSupport::realData() / "potree";
    if (!std::filesystem::exists(stores)) {
        GTEST_SKIP() << "there are no stores in " << stores;
    }
    for (const char* store : {"colour-1k-brotli", "lion-brotli", "autzen-trim-brotli"}) {
        SCOPED_TRACE(store);
        const auto real =
            std::make_shared<Octree::Octree>(Octree::Location(PoTree::FileSystemLocation(stores / store)));
        const double side = static_cast<double>(real->boundingCube().size().x());
        for (const Eigen::Matrix4f& world :
             {Eigen::Matrix4f(Eigen::Matrix4f::Identity()), turned({2, 2, -2})}) {
            for (const auto& filter : regions(world, side * 0.8)) {
                expectSamePoints(real, {world, filter, 21, 0.05f});
            }
        }
        // Some points lie a step outside their node, and so outside a region that ends with it.
        for (std::size_t child = 0; child < 8; ++child) {
            const auto cube = real->boundingCube(OctreeNodeId().child(child));
            expectSamePoints(
                real, {.filter = std::make_shared<Render::BoxFilter>(
                           Math::NBoundingBox<double, 3>(cube.min.cast<double>(), cube.max.cast<double>()))});
        }
    }
}

TEST_F(PointCloudQueryTest, ChunksOfAnySizeAndFormContinueEachOther) {
    const Request request{.filter = regions(Eigen::Matrix4f::Identity(), 16.0)[3]};
    const Expected expected = bruteForce(*octree, request);
    ASSERT_GT(expected.doubles.size(), 50U);
    for (const std::size_t chunk : {1U, 7U, 1000000U}) {
        auto plain = query(request.filter.get());
        EXPECT_EQ(drain<VertexPosColor>(plain, chunk), expected.floats) << chunk;
        auto mixed = query(request.filter.get());
        std::vector<VertexPosColor> floats(chunk);
        std::vector<QueryPoint> doubles(chunk);
        for (std::size_t at = 0;;) {
            const bool isEven = at % 2 == 0;
            const std::size_t count = isEven ? mixed.getNextPointChunk(floats.data(), chunk)
                                             : mixed.getNextPointChunk(doubles.data(), chunk);
            for (std::size_t i = 0; i < count; ++i, ++at) {
                EXPECT_EQ(isEven ? row(floats[i]) : row(doubles[i]),
                          (isEven ? expected.floats : expected.doubles)[at]);
            }
            if (count == 0) {
                EXPECT_EQ(at, expected.doubles.size());
                break;
            }
        }
    }
}

TEST_F(PointCloudQueryTest, OutsideTheRegionNothingIsRead) {
    Render::BoxFilter nothing({{100, 100, 100}, {101, 101, 101}});
    auto empty = query(&nothing);
    EXPECT_TRUE(drain<QueryPoint>(empty, 64).empty());
    EXPECT_EQ(source->readCount(), 0U);
    EXPECT_THROW(PointCloudQuery(nullptr, nullptr, Eigen::Matrix4f::Identity(), nullptr, 0, 0.0f, {}),
                 std::invalid_argument);
}

// Of so many points each a box that it is the corner of.
void expectPointsOnFacesInside(const std::shared_ptr<Octree::Octree>& octree, const Eigen::Matrix4f& world,
                               bool isAbsolute, std::size_t boxes) {
    const auto query = [&](Render::IFilter* filter) {
        PointCloudQuery result(octree, nullptr, world, filter, 21, 0.0f, {});
        result.setAbsoluteCoordinates(isAbsolute);
        return result;
    };
    auto everything = query(nullptr);
    const std::vector<Row> all = drain<QueryPoint>(everything, 1000);
    for (std::size_t n = 0; n < all.size(); n += all.size() / boxes) {
        Render::BoxFilter box({{-1e9, all[n][1], -1e9}, {all[n][0], 1e9, 1e9}});
        std::vector<Row> inside;
        std::copy_if(all.begin(), all.end(), std::back_inserter(inside), [&](const Row& p) {
            return box.contains({p[0], p[1], p[2]});
        });
        auto boxed = query(&box);
        EXPECT_EQ(drain<QueryPoint>(boxed, 1000), inside) << all[n][0];
        EXPECT_FALSE(inside.empty());
        auto narrow = query(&box);
        EXPECT_EQ(drain<VertexPosColor>(narrow, 1000).size(), inside.size());
    }
}

// Its points lie in the corners of their nodes.
class CornerOctree final : public SyntheticOctree {
public:
    using SyntheticOctree::SyntheticOctree;
    bool readNode(OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token&) override {
        Math::NBoundingBox<double, 3> cube = storeFacts().boundingCube;
        for (std::size_t shift = 3 * id.level(); shift > 0;) {
            shift -= 3;
            cube = Octree::childCube(cube, id.code() >> shift & 7);
        }
        std::vector<Point<double, 3>> corners;
        for (int i = 0; i < 8; ++i) {
            corners.push_back((cube.corner(i) - storeFacts().referencePosition) * unitScale);
        }
        data.reset(corners.size());
        data.setPositions(std::move(corners));
        return true;
    }
};

TEST_F(PointCloudQueryTest, PointsOnAFaceAreInside) {
    use(std::make_shared<CornerOctree>(TestSupport::SyntheticOctreeShape{.depth = 2, .edge = 16.1}));
    Eigen::Matrix4f far = turned({0.3f, 0.3f, 0.3f});
    far.topRightCorner<3, 1>() *= 1e4f;
    for (const Eigen::Matrix4f& world : {Eigen::Matrix4f(Eigen::Matrix4f::Identity()), far}) {
        expectPointsOnFacesInside(octree, world, false, 100);
    }
    octree->setUnitScale(0.3048);
    expectPointsOnFacesInside(octree, far, true, 100);
}

TEST_F(PointCloudQueryTest, AbsoluteCoordinatesAreTheDecimalFractionsOfTheStore) {
    const std::filesystem::path stores = TestSupport::realData();
    if (!std::filesystem::exists(stores)) {
        GTEST_SKIP() << "there are no stores in " << stores;
    }
    const std::pair<const char*, std::size_t> cases[] = {
        {"potree/lion-brotli", 3}, {"potree/lone-star-brotli", 5}, {"potree/autzen-trim-brotli", 2},
        {"ept/lion-laszip", 3},    {"ept/lone-star-laszip", 5},    {"ept/ellipsoid-binary", 2}};
    for (const auto& [store, decimals] : cases) {
        SCOPED_TRACE(store);
        // Neither the unit nor the place in the world matters.
        const auto real =
            std::make_shared<Octree::Octree>(Octree::Location::fromPath(stores / store), 0.3048);
        PointCloudQuery query(real, nullptr, turned({2, 2, 2}), nullptr, 1, 0.0f, {});
        query.setAbsoluteCoordinates(true);
        for (const Row& p : drain<QueryPoint>(query, 1000)) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                char text[64];
                std::snprintf(text, sizeof text, "%.*f", static_cast<int>(decimals), p[axis]);
                ASSERT_EQ(std::strtod(text, nullptr), p[axis]) << text;
            }
        }
        if (std::string_view(store).ends_with("lion-brotli")) {
            expectPointsOnFacesInside(real, turned({2, 2, 2}), true, 5);
        }
    }
    FloatFilter floats(nullptr);
    auto narrow = query(&floats);
    EXPECT_THROW(narrow.setAbsoluteCoordinates(true), std::invalid_argument);
}

TEST_F(PointCloudQueryTest, HiddenPointsComeWhenAskedFor) {
    use(std::make_shared<HidingOctree>(
        TestSupport::SyntheticOctreeShape{.depth = 2, .pointsPerNode = 7, .visibility = [](OctreeNodeId id) {
                                              return id.code() % 7 == 0 ? 2 : 0;
                                          }}));
    auto visible = query(nullptr);
    auto all = query(nullptr);
    all.setIncludesHidden(true);
    std::vector<QueryPoint> points(1000);
    const std::size_t count = all.getNextPointChunk(points.data(), points.size());
    EXPECT_EQ(count, 73U * 7U);
    EXPECT_EQ(static_cast<std::size_t>(std::count_if(points.begin(), points.end(),
                                                     [](const QueryPoint& p) { return p.isHidden; })),
              count - drain<VertexPosColor>(visible, 1000).size());
}

TEST_F(PointCloudQueryTest, AShortCallOrAStoppedOneLosesNothing) {
    use(std::make_shared<SyntheticOctree>(
        TestSupport::SyntheticOctreeShape{.depth = 1, .pointsPerNode = 1000}));
    const std::vector<Row> all = bruteForce(*octree, {}).doubles;
    auto patient = query(nullptr, 21, 0.0f, nullptr, std::chrono::hours(1));
    EXPECT_EQ(drain<QueryPoint>(patient, 100000), all);

    // A filter that rejects every point but no box: the time is up all the same.
    class Nothing final : public Render::IFilter {
        bool testPosition(const Point<float, 3>&) override { return false; }
        BoxTestResult testBox(const Math::NBoundingBox<float, 3>&) override {
            return BoxTestResult::Intersecting;
        }
    } nothing;
    auto vain = query(&nothing, 21, 0.0f, nullptr, std::chrono::nanoseconds(1));
    QueryPoint point;
    const std::size_t readsBefore = source->readCount();
    EXPECT_EQ(vain.getNextPointChunk(&point, 1), 0U);
    EXPECT_EQ(source->readCount() - readsBefore, 1U);
    EXPECT_FALSE(vain.isExhausted());
    EXPECT_TRUE(drain<QueryPoint>(vain, 1).empty());
    auto hasty = query(nullptr, 21, 0.0f, nullptr, std::chrono::nanoseconds(1));
    EXPECT_EQ(drain<QueryPoint>(hasty, 100000), all);

    // Stopped while the third node is read.
    std::stop_source stopSource;
    source->setReadHook([&](OctreeNodeId id) { id.code() == 9 ? stopSource.request_stop() : false; });
    auto stopped = query(nullptr);
    std::vector<QueryPoint> points(100000);
    std::vector<Row> rows;
    for (const std::stop_token& stop : {stopSource.get_token(), stopSource.get_token(), std::stop_token()}) {
        const std::size_t count = stopped.getNextPointChunk(points.data(), points.size(), stop);
        EXPECT_EQ(stopped.isExhausted(), !stop.stop_possible());
        std::transform(points.begin(), points.begin() + static_cast<std::ptrdiff_t>(count),
                       std::back_inserter(rows), [](const QueryPoint& p) { return row(p); });
        EXPECT_EQ(rows.size(), stop.stop_possible() ? 2000U : 9000U);
    }
    EXPECT_EQ(rows, all);
    EXPECT_EQ(stopped.getNextPointChunk(nullptr, 0), 0U);
    EXPECT_THROW(stopped.getNextPointChunk(nullptr, 1), std::invalid_argument);
}

// What calls that go on whatever happens return and throw.
std::string story(PointCloudQuery& query) {
    std::string text;
    std::vector<VertexPosColor> points(1000);
    while (!query.isExhausted()) {
        try {
            text += std::to_string(query.getNextPointChunk(points.data(), points.size())) + "; ";
        } catch (const std::runtime_error& error) {
            text += Core::exceptionChain(error) + "; ";
        }
    }
    return text;
}

TEST_F(PointCloudQueryTest, ADamagedNodeCostsItsOwnPointsOnly) {
    // Of r1 only the points are damaged, of r5 the hierarchy too.
    class Damaged final : public SyntheticOctree {
    public:
        using SyntheticOctree::SyntheticOctree;
        bool nodeFacts(OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override {
            return id.code() == 13 ? throw Octree::StoreError("bad facts")
                                   : SyntheticOctree::nodeFacts(id, facts, stop);
        }
    };
    use(std::make_shared<Damaged>(TestSupport::SyntheticOctreeShape{.depth = 2, .pointsPerNode = 7}));
    source->setReadHook([](OctreeNodeId id) {
        if (id.code() == 9) {
            throw Octree::StoreError("bad node");
        }
    });
    auto damaged = query(nullptr, 21, 0.0f, PointCloudQuery::createOrGetSharedCache({}, 1.0, 1000, 10));
    EXPECT_EQ(story(damaged),
              "14; Querying node data failed: bad node; 21; Querying node data failed: bad facts; 406; ");
}

TEST_F(PointCloudQueryTest, AFilterThatThrowsLosesNoPointButTheOneItThrewFor) {
    // Throws at one test of each kind.
    class Thrower final : public Render::IFilter {
        bool testPosition(const Point<float, 3>&) override { return pass(mPositionTests, "point"); }
        BoxTestResult testBox(const Math::NBoundingBox<float, 3>&) override {
            pass(mBoxTests, "box");
            return BoxTestResult::Intersecting;
        }
        static bool pass(int& left, const char* what) {
            return --left != 0 ? true : throw std::runtime_error(what);
        }
        int mPositionTests = 5;
        int mBoxTests = 12;
    } thrower;
    auto interrupted = query(&thrower);
    EXPECT_EQ(story(interrupted), "4; point; 2; box; 504; ");
}

TEST_F(PointCloudQueryTest, QueriesOnManyThreadsShareACache) {
    const auto cache = std::make_shared<PointCloudQuery::Cache>(100, 10);
    const auto filter = regions(Eigen::Matrix4f::Identity(), 16.0).back();
    const std::vector<Row> expected = bruteForce(*octree, {.filter = filter}).doubles;
    std::array<std::vector<Row>, 3> found;
    std::vector<std::thread> threads;
    threads.reserve(found.size());
    for (std::vector<Row>& rows : found) {
        threads.emplace_back([&] {
            auto own = query(filter.get(), 21, 0.0f, cache);
            rows = drain<QueryPoint>(own, 5);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::vector<Row>& rows : found) {
        EXPECT_EQ(rows, expected);
    }
}

}  // namespace
