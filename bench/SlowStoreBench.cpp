// A store behind a delay of some milliseconds a read: nodes a second, the first picture, and what a jump of
// the camera costs. "limit" is what as many reads as may wait at a time could reach.

#include <bench/StreamingHost.h>
#include <core/LoadingPool.h>
#include <tests/support/SyntheticOctree.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>

namespace {

using Octree::OctreeNodeId;
using std::chrono::milliseconds;

/// A square of ground, 1024 across: 341 nodes down to level 4, or 5461 down to level 6.
std::shared_ptr<SlowSource> slowGround(size_t depth, const benchmark::State& state) {
    TestSupport::SyntheticOctreeShape shape;
    shape.depth = depth;
    shape.childMask = 0x55;
    shape.pointsPerNode = 1000;
    shape.edge = 1024.0;
    shape.spacing = 8.0;
    const milliseconds delay(state.range(0));
    return std::make_shared<SlowSource>(std::make_shared<TestSupport::SyntheticOctree>(shape),
                                        Delays{delay, state.range(1) != 0 ? delay : milliseconds()});
}

StreamingHost hostOf(const std::shared_ptr<SlowSource>& source) {
    return StreamingHost(source, StreamingHost::NO_LIMIT, std::make_shared<Render::Camera>(true));
}

void complete(benchmark::State& state) {
    for (auto _ : state) {
        const auto source = slowGround(4, state);
        StreamingHost host = hostOf(source);
        host.seeAll();
        const Stopwatch watch;
        host.start();
        host.waitForNews();
        const double first = watch.milliseconds();
        while (host.waitForNews()) {
        }
        const double seconds = watch.milliseconds() / 1000.0;
        state.counters["firstPictureMs"] = first;
        state.counters["nodes"] = static_cast<double>(host.shown().size());
        state.counters["reads"] = static_cast<double>(source->readCount());
        state.counters["nodesPerSecond"] = static_cast<double>(host.shown().size()) / seconds;
        state.counters["limit"] = static_cast<double>(Core::LoadingPool::MAX_WAITING_TASKS) * 1000.0 /
                                  static_cast<double>(state.range(0));
    }
}

/// Low over one corner of the ground, looking at it.
void lookAtCorner(StreamingHost& host, float side) {
    const Math::Point<float, 3> ground(side * 400.0f, side * 400.0f, -512.0f);
    host.lookAt(ground + Math::Point<float, 3>(20.0f, 10.0f, 150.0f), ground);
}

/// Halfway through loading one corner, to the opposite one.
void jump(benchmark::State& state) {
    constexpr size_t READS_BEFORE = 60;
    for (auto _ : state) {
        const auto source = slowGround(6, state);
        StreamingHost host = hostOf(source);
        lookAtCorner(host, -1.0f);
        host.start();
        while (source->readCount() < READS_BEFORE && host.streamer().isLoading()) {
            host.waitForNews();
        }
        host.takeNews();
        const std::vector<OctreeNodeId> before = host.shown();
        const size_t underWay = source->underWay();
        const Stopwatch watch;
        lookAtCorner(host, 1.0f);
        const double call = watch.milliseconds();
        const size_t readBefore = source->reads().size();
        const auto isNewAndWanted = [&](OctreeNodeId id) {
            return host.wants(id) && !std::binary_search(before.begin(), before.end(), id);
        };
        while (host.waitForNews() && std::none_of(host.shown().begin(), host.shown().end(), isNewAndWanted)) {
        }
        const double news = watch.milliseconds();
        host.streamer().waitUntilIdle();
        const std::vector<OctreeNodeId> reads = source->reads();
        state.counters["callMs"] = call;
        state.counters["firstNewsMs"] = news;
        state.counters["completeMs"] = watch.milliseconds();
        state.counters["underWay"] = static_cast<double>(underWay);
        state.counters["readsBefore"] = static_cast<double>(readBefore);
        state.counters["readsAfter"] = static_cast<double>(reads.size() - readBefore);
        state.counters["staleReads"] = static_cast<double>(
            std::count_if(reads.begin() + static_cast<std::ptrdiff_t>(readBefore), reads.end(),
                          [&](OctreeNodeId id) { return !id.isRoot() && !host.wants(id); }));
    }
}

void delays(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"delay", "hierarchyToo"})->ArgsProduct({{5, 50}, {0, 1}});
    bench->UseRealTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

BENCHMARK(complete)->Name("slow/complete")->Apply(delays);
BENCHMARK(jump)->Name("slow/jump")->Apply(delays);

}  // namespace
