// From the start of a loader to the complete view, beside bare decoding of the same nodes on as many threads
// that keep what they decode. LUMARO_BENCH_STORE may name an Entwine store, too.

#include <bench/BenchStore.h>
#include <bench/StreamingHost.h>
#include <core/LoadingPool.h>
#include <render/pointcloud/NodeVertexPacking.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace {

using Octree::OctreeNodeId;

std::unique_ptr<StreamingHost> makeHost(std::shared_ptr<Octree::NodeSource> source) {
    auto host = std::make_unique<StreamingHost>(std::move(source), StreamingHost::NO_LIMIT,
                                                std::make_shared<Render::Camera>(true));
    host->seeAll();
    host->streamer().setUpdateInterval(std::chrono::milliseconds(20));
    return host;
}

const std::vector<OctreeNodeId>& nodesOfView() {
    static const auto nodes = [] {
        const auto host = makeHost(openBenchSource());
        host->complete();
        return host->shown();
    }();
    return nodes;
}

void decodeOnThreads(const Octree::Octree& octree, std::vector<Render::VertexContainer>& decoded,
                     size_t threadCount) {
    std::atomic<size_t> next = 0;
    std::vector<std::jthread> threads;
    for (size_t t = 0; t < threadCount; ++t) {
        threads.emplace_back([&] {
            for (size_t i = next++; i < decoded.size(); i = next++) {
                Render::loadNodeVertices(octree, nodesOfView()[i], decoded[i], {});
            }
        });
    }
}

void bareDecode(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        const Octree::Octree octree(openBenchSource(), Octree::Location());
        std::vector<Render::VertexContainer> decoded(nodesOfView().size());
        state.ResumeTiming();
        decodeOnThreads(octree, decoded, static_cast<size_t>(state.range(0)));
        state.PauseTiming();
        decoded.clear();
        state.ResumeTiming();
    }
    state.counters["nodes"] = static_cast<double>(nodesOfView().size());
}

void completeView(benchmark::State& state) {
    Core::LoadingPool::setSharedThreadCount(static_cast<size_t>(state.range(0)));
    size_t reads = 0;
    size_t nodes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const auto source = std::make_shared<SlowSource>(openBenchSource());
        auto host = makeHost(source);
        state.ResumeTiming();
        host->start();
        host->streamer().waitUntilIdle();
        state.PauseTiming();
        reads = source->readCount();
        nodes = host->streamer().publishedNodeCount();
        host.reset();
        state.ResumeTiming();
    }
    state.counters["nodes"] = static_cast<double>(nodes);
    state.counters["reads"] = static_cast<double>(reads);
    Core::LoadingPool::setSharedThreadCount(Core::LoadingPool::defaultThreadCount());
}

double smallest(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}

void onOneAndMoreThreads(benchmark::internal::Benchmark* bench) {
    bench->ArgName("threads")->Arg(1)->Arg(2);
    if (std::thread::hardware_concurrency() > 2) {
        bench->Arg(std::thread::hardware_concurrency());
    }
    bench->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
    bench->ComputeStatistics("min", smallest);
}

BENCHMARK(bareDecode)->Name("view/bareDecode")->Apply(onOneAndMoreThreads);
BENCHMARK(completeView)->Name("view/complete")->Apply(onOneAndMoreThreads);

}  // namespace
