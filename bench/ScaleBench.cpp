// Large in two ways: a store of a billion points in a million nodes, and a thousand clouds that share a
// budget. Memory and threads are those of the process, so each of them wants a process of its own.

#include <bench/BenchStore.h>
#include <bench/Process.h>
#include <bench/StreamingHost.h>
#include <octree/potree/Store.h>
#include <tests/support/SyntheticOctree.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <thread>

namespace {

constexpr size_t BUDGET = 5000000;
constexpr double MEBIBYTE = 1048576.0;

double memory() {
    return static_cast<double>(processBytes()) / MEBIBYTE;
}

/// The hierarchy comes from a store, the points are made up.
class MillionNodes : public Octree::NodeSource {
public:
    const Octree::StoreFacts& storeFacts() const override { return mStore.storeFacts(); }
    bool nodeFacts(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override {
        return mStore.nodeFacts(id, facts, stop);
    }
    int nodeVisibility(Octree::OctreeNodeId id) override { return mStore.nodeVisibility(id); }
    int nodeVisibility(Octree::OctreeNodeId id, const std::stop_token& stop) override {
        return mStore.nodeVisibility(id, stop);
    }
    bool readNode(Octree::OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token& stop) override {
        return mPoints.readNode(id, unitScale, data, stop);
    }

private:
    PoTree::Store mStore{PoTree::FileSystemLocation(millionNodeStore())};
    TestSupport::SyntheticOctree mPoints{{.pointsPerNode = 1000, .edge = 16384.0}};
};

size_t visitAll(const Octree::Octree& octree) {
    std::vector<Octree::OctreeNodeId> pending{{}};
    size_t visited = 0;
    while (!pending.empty()) {
        const Octree::OctreeNodeId id = pending.back();
        pending.pop_back();
        ++visited;
        for (const Octree::OctreeNodeId child : octree.children(id)) {
            pending.push_back(child);
        }
    }
    return visited;
}

void millionNodes(benchmark::State& state) {
    millionNodeStore();
    for (auto _ : state) {
        const double before = memory();
        const Stopwatch opening;
        StreamingHost host(std::make_shared<MillionNodes>(), BUDGET, std::make_shared<Render::Camera>(true));
        state.counters["openMs"] = opening.milliseconds();
        state.counters["openMiB"] = memory() - before;
        host.seeAll();
        const Stopwatch loading;
        host.start();
        host.streamer().waitUntilIdle();
        state.counters["viewMs"] = loading.milliseconds();
        state.counters["viewMiB"] = memory() - before;
        const auto points = static_cast<double>(host.streamer().publishedPointCount());
        state.counters["resident"] = static_cast<double>(host.streamer().publishedNodeCount());
        state.counters["verticesMiB"] = points * sizeof(Render::VertexContainer::Vertex) / MEBIBYTE;
        const Stopwatch walk;
        host.streamer().reloadPoints({}, 21, {});
        state.counters["walkMs"] = walk.milliseconds();
        state.counters["nodes"] = static_cast<double>(visitAll(host.octree()));
        state.counters["allNodesMiB"] = memory() - before;
    }
}

/// Side by side on a square of 32 by 32.
std::vector<std::unique_ptr<StreamingHost>> makeClouds(size_t count,
                                                       const std::shared_ptr<Render::Camera>& camera) {
    TestSupport::SyntheticOctreeShape shape;
    shape.depth = 3;
    shape.childMask = 0x55;
    shape.pointsPerNode = 1000;
    const auto source = std::make_shared<TestSupport::SyntheticOctree>(shape);
    const size_t renderer = StreamingHost::newId();
    std::vector<std::unique_ptr<StreamingHost>> clouds;
    for (size_t i = 0; i < count; ++i) {
        auto& cloud = clouds.emplace_back(std::make_unique<StreamingHost>(source, BUDGET, camera, renderer));
        Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
        world(0, 3) = 16.0f * static_cast<float>(i % 32);
        world(1, 3) = 16.0f * static_cast<float>(i / 32);
        cloud->streamer().setWorldMatrix(world);
    }
    return clouds;
}

class LongestCall {
public:
    template <class Call>
    void measure(Call&& call) {
        const Stopwatch watch;
        call();
        mMilliseconds = std::max(mMilliseconds, watch.milliseconds());
    }
    double milliseconds() const { return mMilliseconds; }

private:
    double mMilliseconds = 0.0;
};

/// A picture of all clouds; returns how many have brought news.
size_t takeNewsOfAll(std::vector<std::unique_ptr<StreamingHost>>& clouds) {
    size_t news = 0;
    clouds.front()->beginFrame();
    for (const auto& cloud : clouds) {
        news += cloud->takeNews() ? 1U : 0U;
    }
    return news;
}

bool isAnyLoading(std::vector<std::unique_ptr<StreamingHost>>& clouds) {
    return std::any_of(clouds.begin(), clouds.end(),
                       [](const auto& cloud) { return cloud->streamer().isLoading(); });
}

/// What a group does when the camera moves: one call of the host for all of them.
void moveOverAll(std::vector<std::unique_ptr<StreamingHost>>& clouds, float step) {
    const Math::Point<float, 3> center(256.0f + step, 256.0f, 0.0f);
    clouds.front()->camera().setPose(center + Math::Point<float, 3>(-150.0f, -200.0f, 250.0f), center,
                                     Eigen::Vector3f::UnitZ());
    for (const auto& cloud : clouds) {
        cloud->streamer().onViewChanged();
    }
}

void thousandClouds(benchmark::State& state) {
    for (auto _ : state) {
        const auto camera = std::make_shared<Render::Camera>(true);
        auto clouds = makeClouds(1000, camera);
        moveOverAll(clouds, 0.0f);
        LongestCall starting;
        LongestCall moving;
        LongestCall drawing;
        const Stopwatch watch;
        for (const auto& cloud : clouds) {
            starting.measure([&] { cloud->start(); });
        }
        state.counters["allStartedMs"] = watch.milliseconds();
        state.counters["threads"] = static_cast<double>(processThreads());
        double first = 0.0;
        for (size_t frame = 0; frame < 60 || isAnyLoading(clouds); ++frame) {
            size_t news = 0;
            drawing.measure([&] { news = takeNewsOfAll(clouds); });
            first = first == 0.0 && news > 0 ? watch.milliseconds() : first;
            if (frame < 60) {
                moving.measure([&] { moveOverAll(clouds, static_cast<float>(frame)); });
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(16));
        }
        takeNewsOfAll(clouds);
        const Stopwatch leaving;
        state.counters["completeMs"] = watch.milliseconds();
        state.counters["shown"] = static_cast<double>(std::count_if(
            clouds.begin(), clouds.end(), [](const auto& cloud) { return cloud->shownPoints() > 0; }));
        state.counters["firstPictureMs"] = first;
        state.counters["threadsAtRest"] = static_cast<double>(processThreads());
        state.counters["longestStartMs"] = starting.milliseconds();
        state.counters["longestMoveMs"] = moving.milliseconds();
        state.counters["longestDrawMs"] = drawing.milliseconds();
        clouds.clear();
        state.counters["leaveMs"] = leaving.milliseconds();
    }
}

BENCHMARK(millionNodes)->Name("scale/millionNodes")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(thousandClouds)
    ->Name("scale/thousandClouds")
    ->UseRealTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
