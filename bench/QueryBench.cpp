// A query of a tenth of a store beside the bare decode of the nodes that it touches. "points" is what one
// round decodes, "found" what the query hands out of it.

#include <bench/BenchStore.h>
#include <octree/Octree.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/pointcloud/PointCloudQuery.h>
#include <render/pointcloud/filters/BoxFilter.h>
#include <render/pointcloud/filters/PolygonPrismFilter.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

using Math::Point;

const std::shared_ptr<Octree::Octree>& octree() {
    static const auto opened =
        std::make_shared<Octree::Octree>(Octree::Location(PoTree::FileSystemLocation(benchStore())));
    return opened;
}

/// A slab of the x axis with a tenth of the points.
Math::NBoundingBox<double, 3> tenth() {
    std::vector<double> places;
    Octree::NodePointData data;
    for (const NodeChunk& chunk : readNodeChunks(benchStore())) {
        octree()->getNodePointData(chunk.id, data);
        for (size_t i = 0; i < data.size(); ++i) {
            places.push_back(data.position(i).x());
        }
    }
    const auto rank = [&](double share) {
        const auto at =
            places.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(places.size()));
        std::nth_element(places.begin(), at, places.end());
        return *at;
    };
    const double low = rank(0.45);
    const double high = rank(0.55);
    return {{low, -INFINITY, -INFINITY}, {high, INFINITY, INFINITY}};
}

const Math::NBoundingBox<double, 3>& region() {
    static const auto found = tenth();
    return found;
}

std::vector<Octree::OctreeNodeId> nodesOf(Render::IFilter& filter) {
    std::vector<Octree::OctreeNodeId> nodes{Octree::OctreeNodeId()};
    for (size_t i = 0; i < nodes.size(); ++i) {
        const Octree::OctreeNodeId id = nodes[i];
        for (const Octree::OctreeNodeId child : octree()->children(id)) {
            if (filter.testBox(octree()->pointBounds(child)) != Octree::BoxTestResult::Outside) {
                nodes.push_back(child);
            }
        }
    }
    return nodes;
}

void bareDecode(benchmark::State& state) {
    Render::BoxFilter filter(region());
    const std::vector<Octree::OctreeNodeId> nodes = nodesOf(filter);
    int64_t points = 0;
    for (auto _ : state) {
        points = 0;
        for (const Octree::OctreeNodeId id : nodes) {
            Octree::NodePointData data;
            octree()->getNodePointData(id, data);
            points += static_cast<int64_t>(data.size());
            benchmark::DoNotOptimize(data.positions().data());
        }
    }
    state.counters["points"] = static_cast<double>(points);
    state.SetItemsProcessed(points * state.iterations());
}

/// `absolute` is the same region in absolute coordinates; null for a query in model coordinates.
template <class Vertex>
void run(benchmark::State& state, Render::IFilter& filter, Render::IFilter* absolute = nullptr) {
    int64_t points = 0;
    for (const Octree::OctreeNodeId id : nodesOf(filter)) {
        points += static_cast<int64_t>(octree()->pointCount(id));
    }
    std::vector<Vertex> chunk(65536);
    size_t found = 0;
    for (auto _ : state) {
        Render::PointCloudQuery query(octree(), nullptr, Eigen::Matrix4f::Identity(),
                                      absolute != nullptr ? absolute : &filter, 21, 0.0f, {});
        query.setAbsoluteCoordinates(absolute != nullptr);
        found = 0;
        while (const size_t count = query.getNextPointChunk(chunk.data(), chunk.size())) {
            found += count;
            benchmark::DoNotOptimize(chunk.data());
        }
    }
    state.counters["points"] = static_cast<double>(points);
    state.counters["found"] = static_cast<double>(found);
    state.SetItemsProcessed(points * state.iterations());
}

template <class Vertex>
void boxQuery(benchmark::State& state) {
    Render::BoxFilter filter(region());
    run<Vertex>(state, filter);
}

void absoluteQuery(benchmark::State& state) {
    Render::BoxFilter filter(region());
    const Math::Point<double, 3>& reference = octree()->referencePosition();
    Render::BoxFilter absolute({region().min + reference, region().max + reference});
    run<Render::QueryPoint>(state, filter, &absolute);
}

/// The same slab with 2000 corners on its sides.
void polygonQuery(benchmark::State& state) {
    const auto box = octree()->boundingCube();
    const double low = static_cast<double>(box.min.y()) - 1.0;
    const double step = (static_cast<double>(box.max.y()) + 1.0 - low) / 1000.0;
    Render::PolygonPrismFilter::Ring ring;
    for (int i = 0; i <= 1000; ++i) {
        ring.emplace_back(region().min.x(), low + i * step);
    }
    for (int i = 1000; i >= 0; --i) {
        ring.emplace_back(region().max.x(), low + i * step);
    }
    Render::PolygonPrismFilter filter({ring});
    run<Render::QueryPoint>(state, filter);
}

BENCHMARK(bareDecode)->Name("query/bareDecode")->Unit(benchmark::kMillisecond);
BENCHMARK(boxQuery<Render::VertexPosColor>)->Name("query/floats")->Unit(benchmark::kMillisecond);
BENCHMARK(boxQuery<Render::QueryPoint>)->Name("query/doubles")->Unit(benchmark::kMillisecond);
BENCHMARK(absoluteQuery)->Name("query/absolute")->Unit(benchmark::kMillisecond);
BENCHMARK(polygonQuery)->Name("query/polygon2000")->Unit(benchmark::kMillisecond);

}  // namespace
