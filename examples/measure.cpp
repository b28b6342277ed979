// measure STORE: picks two places of a picture from above and measures between them, and fits a plane.

#include <math/NPlane.h>
#include <octree/Location.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>

namespace {

using Place = Math::Point<double, 3>;

constexpr size_t WIDTH = 800;
constexpr size_t HEIGHT = 800;

void measure(const char* store) {
    const auto cloud =
        Render::PointCloudRenderable::create(Octree::Location::fromPath(store), "site", 2'000'000, 1.0);
    Render::Renderer renderer(true);
    renderer.setViewport(WIDTH, HEIGHT);
    renderer.setScene(cloud);
    renderer.setAutoAdjustZRange(true);

    // Straight down, orthographic: pixels are metres.
    const auto box = cloud->boundingBox();
    const float extent = std::max(box.size().x(), box.size().y());
    renderer.setOrthographic(extent, -1.0f, 1.0f);
    renderer.setCameraPose(box.center() + Math::Point<float, 3>(0.0f, 0.0f, extent), box.center(),
                           Eigen::Vector3f::UnitY());
    cloud->reloadPoints(nullptr, 21, {});
    renderer.render();

    // What is picked is a stored point. Positions of the scene are floats, relative to the reference
    // position; adding that in double gives the survey's own coordinates.
    const auto pick = [&](size_t x, size_t y) {
        Math::Point<float, 3> point;
        if (!renderer.pickClosestPointWithTolerance(x, y, 60, point)) {
            throw std::runtime_error("nothing is drawn there");
        }
        return cloud->referencePosition() + point.cast<double>() / cloud->unitScale();
    };
    const Place a = pick(WIDTH / 3, HEIGHT / 2);
    const Place b = pick(2 * WIDTH / 3, HEIGHT / 2);
    std::printf("from %.3f %.3f %.3f\nto   %.3f %.3f %.3f\n", a.x(), a.y(), a.z(), b.x(), b.y(), b.z());
    std::printf("distance %.3f, height %.3f\n", Math::distance(a, b), b.z() - a.z());

    Math::NPlane<float, 3> plane;
    Math::Point<float, 3> onPlane;
    if (renderer.pickPlane(WIDTH / 2, HEIGHT / 2, 30, plane, onPlane, 0.1)) {
        std::printf("plane with normal %.4f %.4f %.4f\n", plane.normal.x(), plane.normal.y(),
                    plane.normal.z());
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: measure STORE\n", stderr);
        return 2;
    }
    try {
        measure(argv[1]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "measure: %s\n", exception.what());
        return 1;
    }
}
