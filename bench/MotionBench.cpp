// A flight over the store, ten seconds at 60 pictures a second: how steadily news comes, what the host's
// calls take, and, in the CSV file that LUMARO_BENCH_CSV names, what is drawn over time. bench/plot_motion.py
// draws that.

#include <bench/BenchStore.h>
#include <bench/StreamingHost.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

namespace {

constexpr size_t FRAMES = 600;
constexpr std::chrono::microseconds FRAME_TIME(16667);
constexpr size_t BUDGET = 10000000;

struct Frame {
    size_t points = 0;
    bool isWaiting = false;  ///< Nodes were being read since the last frame.
    bool hasNews = false;
    double callMs = 0.0;  ///< The longest call but for the one that sends points.
    double sendMs = 0.0;
};

/// Most of a circle around the middle, looking ahead and down.
void fly(StreamingHost& host, float progress) {
    const Math::NBoundingBox<float, 3> box = host.octree().boundingBox();
    const float size = std::min(box.size().x(), box.size().y());
    const float angle = 5.0f * progress;
    const Math::Point<float, 3> eye =
        box.center() + Math::Point<float, 3>(std::cos(angle), std::sin(angle), 0.4f) * (0.35f * size);
    const Math::Point<float, 3> ahead(-std::sin(angle), std::cos(angle), -0.7f);
    host.lookAt(eye, eye + ahead * size);
}

Frame playFrame(StreamingHost& host, const SlowSource& source, size_t number, size_t& readsBefore) {
    Frame frame;
    const size_t underWay = source.underWay();
    const size_t reads = source.readCount();
    frame.isWaiting = underWay > 0 || reads > readsBefore;
    readsBefore = reads;
    host.beginFrame();
    const Stopwatch sending;
    frame.hasNews = host.takeNews();
    frame.sendMs = sending.milliseconds();
    const Stopwatch moving;
    fly(host, static_cast<float>(number) / FRAMES);
    frame.callMs = moving.milliseconds();
    frame.points = host.shownPoints();
    return frame;
}

void writeCsv(const std::vector<Frame>& frames, const std::string& name) {
    const char* const folder = std::getenv("LUMARO_BENCH_CSV");
    if (folder == nullptr) {
        return;
    }
    std::ofstream file(std::filesystem::path(folder) / (name + ".csv"));
    file << "seconds,points,waiting,news,callMs,sendMs\n";
    for (size_t i = 0; i < frames.size(); ++i) {
        const Frame& frame = frames[i];
        file << static_cast<double>(i) / 60.0 << ',' << frame.points << ',' << frame.isWaiting << ','
             << frame.hasNews << ',' << frame.callMs << ',' << frame.sendMs << '\n';
    }
}

void setCounters(benchmark::State& state, const std::vector<Frame>& frames) {
    size_t waiting = 0;
    size_t withoutNews = 0;
    size_t run = 0;
    size_t longestRun = 0;
    double call = 0.0;
    double send = 0.0;
    double points = 0.0;
    for (const Frame& frame : frames) {
        waiting += frame.isWaiting ? 1 : 0;
        run = frame.isWaiting && !frame.hasNews ? run + 1 : 0;
        withoutNews += run > 0 ? 1 : 0;
        longestRun = std::max(longestRun, run);
        call = std::max(call, frame.callMs);
        send = std::max(send, frame.sendMs);
        points += static_cast<double>(frame.points) / FRAMES;
    }
    state.counters["waiting"] = static_cast<double>(waiting);
    state.counters["withoutNews"] = static_cast<double>(withoutNews);
    state.counters["longestWithoutNews"] = static_cast<double>(longestRun);
    state.counters["longestCallMs"] = call;
    state.counters["longestSendMs"] = send;
    state.counters["meanPoints"] = points;
}

void flight(benchmark::State& state) {
    for (auto _ : state) {
        const auto source = std::make_shared<SlowSource>(
            openBenchSource(), Delays{std::chrono::milliseconds(state.range(0)), {}});
        StreamingHost host(source, BUDGET, std::make_shared<Render::Camera>(true));
        host.camera().setViewport(1920, 1080);
        std::vector<Frame> frames;
        size_t reads = 0;
        fly(host, 0.0f);
        host.start();
        const auto start = std::chrono::steady_clock::now();
        for (size_t i = 0; i < FRAMES; ++i) {
            std::this_thread::sleep_until(start + FRAME_TIME * i);
            frames.push_back(playFrame(host, *source, i, reads));
        }
        setCounters(state, frames);
        state.counters["reads"] = static_cast<double>(source->readCount());
        writeCsv(frames, "delay-" + std::to_string(state.range(0)));
    }
}

/// What would be drawn with all the time in the world.
void complete(benchmark::State& state) {
    for (auto _ : state) {
        StreamingHost host(openBenchSource(), BUDGET, std::make_shared<Render::Camera>(true));
        host.camera().setViewport(1920, 1080);
        fly(host, 0.0f);
        host.start();
        std::vector<Frame> frames(FRAMES);
        for (size_t i = 0; i < FRAMES; ++i) {
            fly(host, static_cast<float>(i) / FRAMES);
            host.streamer().waitUntilIdle();
            host.takeNews();
            frames[i].points = host.shownPoints();
        }
        setCounters(state, frames);
        writeCsv(frames, "complete");
    }
}

BENCHMARK(flight)
    ->Name("motion/flight")
    ->ArgName("delay")
    ->Arg(0)
    ->Arg(5)
    ->Arg(50)
    ->UseRealTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

BENCHMARK(complete)->Name("motion/complete")->UseRealTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
