// picture STORE FILE.png: one picture of a whole point cloud, seen obliquely from above.

#include <octree/Location.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <cstdio>
#include <exception>

namespace {

void writePicture(const char* store, const char* file) {
    // At most two million points are resident at a time, however large the store is.
    const auto cloud =
        Render::PointCloudRenderable::create(Octree::Location::fromPath(store), "site", 2'000'000, 1.0);

    Render::Renderer renderer(true);
    renderer.setViewport(1280, 720);
    renderer.setBackgroundColor(255, 255, 255, 255);
    renderer.setScene(cloud);
    renderer.setAutoAdjustZRange(true);
    renderer.setPerspective(45.0f, 0.1f, 1000.0f, 0.0f, 0.0f);

    const auto box = cloud->boundingBox();
    const auto center = box.center();
    const float away = 0.9f * box.size().length();
    renderer.setCameraPose(center + Math::Point<float, 3>(0.0f, -0.8f * away, 0.6f * away), center,
                           Eigen::Vector3f::UnitZ());

    // A viewer calls startAsyncReload() once instead, and render() whenever needsRedraw() says so.
    cloud->reloadPoints(nullptr, 21, {});
    renderer.writePngImage(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: picture STORE FILE.png\n", stderr);
        return 2;
    }
    try {
        writePicture(argv[1], argv[2]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "picture: %s\n", exception.what());
        return 1;
    }
}
