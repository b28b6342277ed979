// What loading adds to reading and decoding: the pool's share of a task, a hit in the cache, and the main
// memory that a resident point takes.

#include <bench/AllocationCounter.h>
#include <core/BlockingSection.h>
#include <core/LoadingQueue.h>
#include <core/LruCache.h>
#include <render/core/Camera.h>
#include <render/gpu/VertexContainer.h>
#include <render/pointcloud/PointCloudStreamer.h>
#include <tests/support/SyntheticOctree.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <future>
#include <memory>
#include <vector>

namespace {

using Render::VertexContainer;

constexpr size_t POINTS_PER_NODE = 10000;
constexpr size_t TASKS = 1000;

/// Stands for decoding: some work that cannot be left out.
void work(int64_t rounds) {
    for (int64_t i = 0; i < rounds; ++i) {
        benchmark::DoNotOptimize(i);
    }
}

void setTimePerTask(benchmark::State& state) {
    state.counters["timePerTask"] = benchmark::Counter(
        TASKS, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void plainLoop(benchmark::State& state) {
    for (auto _ : state) {
        for (size_t i = 0; i < TASKS; ++i) {
            work(state.range(0));
        }
    }
    setTimePerTask(state);
}

/// With one thread, so that it compares with the loop.
void poolTasks(benchmark::State& state) {
    Core::LoadingQueue queue(std::make_shared<Core::LoadingPool>(1));
    std::atomic<size_t> done = 0;
    for (auto _ : state) {
        done = 0;
        std::promise<void> all;
        for (size_t i = 0; i < TASKS; ++i) {
            queue.submit({.run = [&](std::stop_token) {
                work(state.range(0));
                if (++done == TASKS) {
                    all.set_value();
                }
            }});
        }
        all.get_future().wait();
    }
    setTimePerTask(state);
}

void stoppedTasks(benchmark::State& state) {
    Core::LoadingQueue queue(std::make_shared<Core::LoadingPool>(1));
    std::atomic<size_t> done = 0;
    std::stop_source stop;
    stop.request_stop();
    for (auto _ : state) {
        done = 0;
        std::promise<void> all;
        for (size_t i = 0; i < TASKS; ++i) {
            queue.submit({.run = [](std::stop_token) {},
                          .dropped =
                              [&] {
                                  if (++done == TASKS) {
                                      all.set_value();
                                  }
                              },
                          .stop = stop});
        }
        all.get_future().wait();
    }
    setTimePerTask(state);
}

void blockingSectionElsewhere(benchmark::State& state) {
    for (auto _ : state) {
        const Core::BlockingSection section;
        benchmark::ClobberMemory();
    }
}

bool unexpectedLoad(VertexContainer&) {
    return false;
}

void hit(benchmark::State& state) {
    Core::LruCache<int, VertexContainer> cache(POINTS_PER_NODE, 1);
    VertexContainer vertices;
    vertices.resize(POINTS_PER_NODE);
    vertices.complete();
    cache.insert(1, std::move(vertices));
    for (auto _ : state) {
        VertexContainer out;
        if (!cache.getOrLoad(1, out, unexpectedLoad) || out.size() != POINTS_PER_NODE) {
            state.SkipWithError("not a hit");
        }
        benchmark::DoNotOptimize(out);
    }
}

/// The least that a hit can take that copies the vertices.
void copyOfVertices(benchmark::State& state) {
    const std::vector<VertexContainer::Vertex> vertices(POINTS_PER_NODE);
    for (auto _ : state) {
        std::vector<VertexContainer::Vertex> copy(vertices);
        benchmark::DoNotOptimize(copy.data());
    }
}

/// A walk makes all nodes of a tree resident: vertex cache, resident set and publication together.
void residentPoint(benchmark::State& state) {
    TestSupport::SyntheticOctreeShape shape;
    shape.depth = 2;
    shape.pointsPerNode = POINTS_PER_NODE;
    const auto source = std::make_shared<TestSupport::SyntheticOctree>(shape);
    const auto camera = std::make_shared<Render::Camera>(true);
    camera->setPose(Math::Point<float, 3>(30.0f, 32.0f, 34.0f), Math::Point<float, 3>(0.0f, 0.0f, 0.0f),
                    Eigen::Vector3f::UnitZ());
    size_t renderer = 2000;
    double bytesPerPoint = 0.0;
    for (auto _ : state) {
        Render::PointCloudStreamer streamer(TestSupport::SyntheticOctree::open(source), 1000000000);
        streamer.attach(renderer++, 0, camera, [] {});
        streamer.setPriorityThreshold(0.001f);
        const size_t before = allocatedBytes();
        streamer.reloadPoints({}, 21, {});
        const size_t points = streamer.publishedPointCount();
        if (points != source->allNodes().size() * POINTS_PER_NODE) {
            state.SkipWithError("not all nodes are resident");
            return;
        }
        bytesPerPoint = static_cast<double>(allocatedBytes() - before) / static_cast<double>(points);
    }
    state.counters["bytesPerPoint"] = bytesPerPoint;
}

BENCHMARK(plainLoop)->Name("loading/plainLoop")->ArgName("work")->Arg(0)->Arg(100000);
BENCHMARK(poolTasks)->Name("loading/poolTasks")->ArgName("work")->Arg(0)->Arg(100000)->UseRealTime();
BENCHMARK(stoppedTasks)->Name("loading/stoppedTasks")->UseRealTime();
BENCHMARK(blockingSectionElsewhere)->Name("loading/blockingSectionElsewhere");
BENCHMARK(hit)->Name("loading/hit");
BENCHMARK(copyOfVertices)->Name("loading/copyOfVertices");
BENCHMARK(residentPoint)->Name("loading/residentPoint")->Unit(benchmark::kMillisecond);

}  // namespace
