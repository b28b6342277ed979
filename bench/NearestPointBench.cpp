// Distances to a closed mesh with its index, and by looking at every triangle.

#include <math/TriangleMesh.h>
#include <render/pointcloud/MeshDistances.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <random>

namespace {

using Mesh = Math::TriangleMesh<float>;
using P = Math::Point<float, 3>;
using D = Math::Point<double, 3>;

struct Parts {
    std::vector<P> vertices;
    std::vector<Mesh::Triangle> triangles;
};

/// A bumpy ball of about 10 across, without its index: 2 * segments * (rings - 1) triangles.
Parts ball(uint32_t segments, uint32_t rings) {
    Parts parts;
    parts.vertices.emplace_back(0.0f, 0.0f, 5.0f);
    for (uint32_t ring = 1; ring < rings; ++ring) {
        const float theta = std::numbers::pi_v<float> * float(ring) / float(rings);
        for (uint32_t i = 0; i < segments; ++i) {
            const float phi = 2 * std::numbers::pi_v<float> * float(i) / float(segments);
            const float bump = std::sin(theta) * std::sin(9 * theta) * std::cos(7 * phi);
            const P direction(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                              std::cos(theta));
            parts.vertices.push_back(direction * (5 + 0.4f * bump));
        }
    }
    parts.vertices.emplace_back(0.0f, 0.0f, -5.0f);
    const auto last = static_cast<uint32_t>(parts.vertices.size() - 1);
    for (uint32_t i = 0; i < segments; ++i) {
        const uint32_t next = (i + 1) % segments;
        parts.triangles.push_back({0, 1 + i, 1 + next});
        for (uint32_t upper = 1; upper + segments < last; upper += segments) {
            const uint32_t lower = upper + segments;
            parts.triangles.push_back({upper + i, lower + i, lower + next});
            parts.triangles.push_back({upper + i, lower + next, upper + next});
        }
        parts.triangles.push_back({last, last - segments + next, last - segments + i});
    }
    return parts;
}

const Parts& parts(int64_t triangles) {
    static std::map<int64_t, Parts> made;
    Parts& result = made[triangles];
    if (result.triangles.empty()) {
        result = triangles == 14'000 ? ball(100, 71) : ball(1000, 501);
    }
    return result;
}

/// Points within `away` along each axis of the mesh's vertices.
std::vector<P> pointsAbout(const Parts& mesh, float away, size_t count = 4096) {
    std::mt19937 random(3);
    std::uniform_int_distribution<size_t> vertex(0, mesh.vertices.size() - 1);
    std::uniform_real_distribution<float> offset(-away, away);
    std::vector<P> points(count);
    for (P& p : points) {
        p = mesh.vertices[vertex(random)] + P(offset(random), offset(random), offset(random));
    }
    return points;
}

/// As the index measures, in double, but one triangle after the other.
double bruteForceSquaredDistance(const Parts& mesh, const P& point) {
    const D p = point.cast<double>();
    const auto toEdge = [&](const D& a, const D& ab) {
        const double along = ab.dot(p - a) / ab.squaredLength();
        return (a + ab * std::clamp(along, 0.0, 1.0) - p).squaredLength();
    };
    double best = std::numeric_limits<double>::infinity();
    for (const Mesh::Triangle& triangle : mesh.triangles) {
        const D a = mesh.vertices[triangle[0]].cast<double>();
        const D b = mesh.vertices[triangle[1]].cast<double>();
        const D c = mesh.vertices[triangle[2]].cast<double>();
        const D ab = b - a;
        const D ac = c - a;
        const D normal = ab.cross(ac);
        const double whole = normal.squaredLength();
        const double beyondAc = normal.dot((p - a).cross(ac));
        const double beyondAb = normal.dot(ab.cross(p - a));
        if (beyondAc > 0 && beyondAb > 0 && beyondAc + beyondAb < whole) {
            const double height = normal.dot(p - a);
            best = std::min(best, height * height / whole);
        } else {
            best = std::min({best, toEdge(a, ab), toEdge(b, c - b), toEdge(c, -ac)});
        }
    }
    return best;
}

void build(benchmark::State& state) {
    const Parts& mesh = parts(state.range(0));
    for (auto _ : state) {
        const Math::TriangleIndex<float> index(mesh.vertices, mesh.triangles);
        benchmark::DoNotOptimize(&index);
    }
}

void withIndex(benchmark::State& state) {
    const Parts& ofMesh = parts(state.range(0));
    const Mesh mesh(ofMesh.vertices, ofMesh.triangles);
    const std::vector<P> points = pointsAbout(ofMesh, static_cast<float>(state.range(1)) / 100);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(mesh.signedDistance(points[i++ % points.size()]));
    }
    state.SetItemsProcessed(state.iterations());
}

/// A node of 20,000 points in an eighth of the space, in rows of cells or shuffled.
void ofANode(benchmark::State& state) {
    const Parts& ofMesh = parts(state.range(0));
    const Mesh mesh(ofMesh.vertices, ofMesh.triangles);
    std::vector<P> points;
    for (const P& p : pointsAbout(ofMesh, static_cast<float>(state.range(1)) / 100, 200'000)) {
        if (p[0] > 0 && p[1] > 0 && p[2] > 0 && points.size() < 20'000) {
            points.push_back(p);
        }
    }
    if (state.range(2) == 0) {
        const auto cell = [](const P& p) {
            return std::floor(p[0] * 4) * 4096 + std::floor(p[1] * 4) * 64 + p[2];
        };
        std::sort(points.begin(), points.end(), [&](const P& a, const P& b) { return cell(a) < cell(b); });
    }
    Render::VertexContainer vertices;
    vertices.resize(points.size());
    for (size_t i = 0; i < points.size(); ++i) {
        vertices.setPosition(i, double(points[i][0]), double(points[i][1]), double(points[i][2]));
    }
    Render::MeshDistanceCache cache(1);
    for (auto _ : state) {
        Render::updateMeshDistances({}, vertices, mesh, 1, Render::nextMeshDistanceGroup(), cache, {});
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(points.size()));
}

void everyTriangle(benchmark::State& state) {
    const Parts& mesh = parts(state.range(0));
    const std::vector<P> points = pointsAbout(mesh, 0.1f);
    const Mesh indexed(mesh.vertices, mesh.triangles);
    size_t i = 0;
    for (auto _ : state) {
        const P& p = points[i++ % points.size()];
        const double distance = std::sqrt(bruteForceSquaredDistance(mesh, p));
        if (std::abs(distance - double(indexed.distance(p))) > 1e-6 * distance) {
            state.SkipWithError("the index finds another distance");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(build)
    ->Name("nearest/build")
    ->ArgName("triangles")
    ->Arg(14'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond);
// The points lie within so many hundredths of the surface along each axis; the ball is 10 across.
BENCHMARK(withIndex)
    ->Name("nearest/withIndex")
    ->ArgNames({"triangles", "within"})
    ->ArgsProduct({{14'000, 1'000'000}, {1, 10, 100, 1000}})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(ofANode)
    ->Name("nearest/node")
    ->ArgNames({"triangles", "within", "shuffled"})
    ->ArgsProduct({{14'000, 1'000'000}, {10, 1000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(everyTriangle)
    ->Name("nearest/everyTriangle")
    ->ArgName("triangles")
    ->Arg(14'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
