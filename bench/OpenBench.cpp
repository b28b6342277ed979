// From nothing to the first picture that shows points, and on to the complete one, as a host would do it: one
// process, one store, the loader in the background. Usage: bench_open STORE [BUDGET]

#include <graphics/ColorImage.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <thread>

namespace {

double millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

bool showsPoints(Render::Renderer& renderer) {
    Graphics::ColorImage image;
    renderer.getColorImage(image);
    for (size_t y = 0; y < image.height(); ++y) {
        for (size_t x = 0; x < image.width(); ++x) {
            if (!(image.pixel(x, y) == renderer.backgroundColor())) {
                return true;
            }
        }
    }
    return false;
}

void lookAt(Render::Renderer& renderer) {
    const Math::NBoundingBox<float, 3> box = renderer.boundingBox();
    const Math::Point<float, 3> center = box.center();
    const float size = std::max({box.size().x(), box.size().y(), box.size().z()});
    renderer.setAutoAdjustZRange(true);
    renderer.setCameraPose(center + Math::Point<float, 3>(0.8f, 0.8f, 0.7f) * size, center,
                           Eigen::Vector3f::UnitZ());
    renderer.setPerspective(50.0f, 0.01f, 1000.0f, 0.0f, 0.0f);
}

void measure(const char* store, size_t budget) {
    const auto start = std::chrono::steady_clock::now();
    Render::Renderer renderer(true);
    const double device = millisecondsSince(start);
    const auto cloud =
        Render::PointCloudRenderable::create(PoTree::FileSystemLocation(store), "cloud", budget, 1.0);
    const double opened = millisecondsSince(start);
    renderer.setViewport(640, 480);
    renderer.setScene(cloud);
    const double ready = millisecondsSince(start);
    lookAt(renderer);
    cloud->setUpdateInterval(std::chrono::milliseconds(20));
    cloud->startAsyncReload(std::function<void()>(), 21);
    double first = 0.0;
    while (first == 0.0 && cloud->isAsyncReloadHealthy(true)) {
        if (!renderer.needsRedraw()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        renderer.render();
        if (showsPoints(renderer)) {
            first = millisecondsSince(start);
        }
    }
    cloud->waitUntilLoaded();
    renderer.render();
    showsPoints(renderer);  // waits for the device
    const double complete = millisecondsSince(start);
    cloud->isAsyncReloadHealthy(true);
    std::printf(
        "device %.0f ms, store open %.0f ms, shaders ready %.0f ms, first points %.0f ms, complete %.0f ms "
        "(%zu points)\n",
        device, opened, ready, first, complete, cloud->numVisiblePoints());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: bench_open STORE [BUDGET]\n", stderr);
        return 2;
    }
    try {
        measure(argv[1], argc > 2 ? static_cast<size_t>(std::atoll(argv[2])) : 10000000);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_open: %s\n", error.what());
        return 1;
    }
    return 0;
}
