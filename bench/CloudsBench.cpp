// Many clouds in one group, as a host shows a site of many scans: its calls, the threads of the process, the
// first picture. All show the same store, side by side. Usage: bench_clouds STORE [COUNT]

#include <bench/Process.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>
#include <render/renderables/GroupRenderable.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr size_t BUDGET = 5000000;
constexpr int MOVES = 60;

using Clouds = std::vector<std::shared_ptr<Render::PointCloudRenderable>>;
using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// Of one kind of call.
struct Calls {
    template <class Call>
    void add(Call&& call) {
        const Clock::time_point start = Clock::now();
        call();
        const double time = millisecondsSince(start);
        longest = std::max(longest, time);
        all += time;
    }
    double longest = 0.0;
    double all = 0.0;
};

Clouds makeClouds(const char* store, int count) {
    Clouds clouds;
    const int side = static_cast<int>(std::ceil(std::sqrt(count)));
    for (int i = 0; i < count; ++i) {
        const auto cloud =
            Render::PointCloudRenderable::create(PoTree::FileSystemLocation(store), "cloud", BUDGET, 1.0);
        const float size = cloud->boundingCube().size().x();
        Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
        world(0, 3) = size * static_cast<float>(i % side);
        world(1, 3) = size * static_cast<float>(i / side);
        cloud->setMatrix(world);
        clouds.push_back(cloud);
    }
    return clouds;
}

void look(Render::Renderer& renderer, const Math::NBoundingBox<float, 3>& box, int move) {
    const float size = box.size().x();
    const auto step = static_cast<float>(move) / MOVES;
    renderer.setCameraPose(box.center() + Math::Point<float, 3>(step - 0.6f, -0.6f, 0.6f) * size,
                           box.center(), Eigen::Vector3f::UnitZ());
}

bool isAnyLoading(const Clouds& clouds) {
    return std::any_of(clouds.begin(), clouds.end(), [](const auto& cloud) { return cloud->isLoading(); });
}

void measure(const char* store, int count) {
    Render::Renderer renderer(true);
    renderer.setViewport(640, 480);
    renderer.setAutoAdjustZRange(true);
    const auto group = Render::GroupRenderable::create("group");
    renderer.setScene(group);
    const size_t threadsBefore = processThreads();
    const Clouds clouds = makeClouds(store, count);
    Calls joining;
    for (const auto& cloud : clouds) {
        joining.add([&] { group->add(cloud); });
    }
    const Math::NBoundingBox<float, 3> box = renderer.boundingBox();
    look(renderer, box, 0);
    const Clock::time_point start = Clock::now();
    Calls starting;
    for (const auto& cloud : clouds) {
        starting.add([&] { cloud->startAsyncReload(std::function<void()>(), 21); });
    }
    const size_t threads = processThreads() - threadsBefore;
    Calls moving;
    Calls drawing;
    double first = 0.0;
    for (int move = 1; move <= MOVES || isAnyLoading(clouds); ++move) {
        drawing.add([&] { renderer.render(); });
        const bool shows = std::any_of(clouds.begin(), clouds.end(),
                                       [](const auto& cloud) { return cloud->uploadedPointBytes() > 0; });
        first = first == 0.0 && shows ? millisecondsSince(start) : first;
        if (move <= MOVES) {
            moving.add([&] { look(renderer, box, move); });
        }
    }
    std::printf(
        "%d clouds: %zu more threads; first points %.0f ms, complete %.0f ms\n"
        "longest call: join %.2f ms (all %.0f), start %.2f ms (all %.0f), move the camera %.2f ms, draw %.0f "
        "ms\n",
        count, threads, first, millisecondsSince(start), joining.longest, joining.all, starting.longest,
        starting.all, moving.longest, drawing.longest);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: bench_clouds STORE [COUNT]\n", stderr);
        return 2;
    }
    try {
        measure(argv[1], argc > 2 ? std::atoi(argv[2]) : 1000);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_clouds: %s\n", error.what());
        return 1;
    }
    return 0;
}
