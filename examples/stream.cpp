// stream STORE FILE.png: loads in the background, as a viewer does, and tells how the picture grows.

#include <octree/Location.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

namespace {

void stream(const char* store, const char* file) {
    const auto cloud =
        Render::PointCloudRenderable::create(Octree::Location::fromPath(store), "site", 2'000'000, 1.0);
    Render::Renderer renderer(true);
    renderer.setViewport(1280, 720);
    renderer.setScene(cloud);
    renderer.setAutoAdjustZRange(true);
    renderer.setPerspective(45.0f, 0.1f, 1000.0f, 0.0f, 0.0f);
    const auto box = cloud->boundingBox();
    renderer.setCameraPose(box.center() + Math::Point<float, 3>(0.0f, -0.8f, 0.6f) * box.size().length(),
                           box.center(), Eigen::Vector3f::UnitZ());

    // Both are called on the loader's thread: a host would only note that there is news.
    std::atomic<int> publications{0};
    std::atomic<int> failures{0};
    cloud->setUpdateInterval(std::chrono::milliseconds(50));
    cloud->startAsyncReload([&publications] { ++publications; }, 21,
                            [&failures](const std::exception_ptr& error) { failures += error ? 1 : 0; });

    // The render thread never waits for the loader: it draws whenever something has changed.
    while (cloud->isLoading() || renderer.needsRedraw()) {
        if (renderer.needsRedraw()) {
            renderer.render();
            std::printf("%zu points in %zu nodes, %.0f %%\n", cloud->numVisiblePoints(),
                        cloud->numVisibleOctreeNodes(), 100.0 * cloud->loadingProgress().share());
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    cloud->isAsyncReloadHealthy(true);  // Throws what went wrong, if anything did.
    cloud->stopAsyncReload();
    std::printf("published %d times, failed %d times\n", publications.load(), failures.load());
    renderer.writePngImage(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: stream STORE FILE.png\n", stderr);
        return 2;
    }
    try {
        stream(argv[1], argv[2]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "stream: %s\n", exception.what());
        return 1;
    }
}
