// One walk over a tree that needs no disk: what each visited node costs in time and in allocations.

#include <bench/AllocationCounter.h>
#include <render/core/Camera.h>
#include <render/pointcloud/PointCloudStreamer.h>
#include <tests/support/SyntheticOctree.h>

#include <benchmark/benchmark.h>

#include <memory>

namespace {

class Walker {
public:
    explicit Walker(TestSupport::SyntheticOctreeShape shape)
        : mSource(std::make_shared<TestSupport::SyntheticOctree>(std::move(shape))),
          mCamera(std::make_shared<Render::Camera>(true)),
          mStreamer(TestSupport::SyntheticOctree::open(mSource), 1000000000) {
        // The cube stands around the origin; from here all of it is seen.
        mCamera->setPose(Math::Point<float, 3>(30.0f, 32.0f, 34.0f), Math::Point<float, 3>(0.0f, 0.0f, 0.0f),
                         Eigen::Vector3f::UnitZ());
        mStreamer.attach(sNextRenderer++, 0, mCamera, [] {});
        mStreamer.setPriorityThreshold(0.001f);
        walk();
    }

    void walk() { mStreamer.reloadPoints({}, 21, {}); }
    size_t nodes() const { return mSource->allNodes().size(); }
    size_t residentNodes() const { return mStreamer.prioritizer()->residentNodeCount(); }

private:
    static inline size_t sNextRenderer = 1000;

    std::shared_ptr<TestSupport::SyntheticOctree> mSource;
    std::shared_ptr<Render::Camera> mCamera;
    Render::PointCloudStreamer mStreamer;
};

void measure(benchmark::State& state, Walker& walker) {
    const auto nodes = static_cast<double>(walker.nodes());
    size_t allocations = 0;
    for (auto _ : state) {
        const size_t before = allocationCount();
        walker.walk();
        allocations += allocationCount() - before;
    }
    const auto rounds = static_cast<double>(state.iterations());
    state.counters["visited"] = nodes;
    state.counters["resident"] = static_cast<double>(walker.residentNodes());
    state.counters["allocationsPerNode"] = static_cast<double>(allocations) / (rounds * nodes);
    state.counters["timePerNode"] = benchmark::Counter(
        nodes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Five children a node down to level 8: 488 281 nodes. Only the first levels have points, so that as many
/// nodes are resident as a walk keeps in earnest; below a node without points the walk goes on.
void halfAMillionNodes(benchmark::State& state) {
    TestSupport::SyntheticOctreeShape shape;
    shape.depth = 8;
    shape.childMask = 0x1f;
    shape.pointCount = [levels = static_cast<size_t>(state.range(0))](Octree::OctreeNodeId id) {
        return id.level() < levels ? size_t{1} : size_t{0};
    };
    Walker walker(shape);
    measure(state, walker);
}

/// Every visited node is resident already, as after a small move of the camera.
void residentNodes(benchmark::State& state) {
    TestSupport::SyntheticOctreeShape shape;
    shape.depth = static_cast<size_t>(state.range(0));
    shape.childMask = 0x1f;
    shape.pointsPerNode = 10;
    Walker walker(shape);
    measure(state, walker);
}

BENCHMARK(halfAMillionNodes)
    ->Name("walk/halfAMillionNodes")
    ->ArgName("levelsWithPoints")
    ->Arg(0)
    ->Arg(4)
    ->Arg(5)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(residentNodes)
    ->Name("walk/residentNodes")
    ->ArgName("depth")
    ->Arg(3)
    ->Arg(4)
    ->Arg(5)
    ->Unit(benchmark::kMillisecond);

}  // namespace
