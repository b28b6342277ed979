// mesh_distance STORE FILE.png: colours points by their distance to a mesh, here a horizontal board through
// the cloud's middle; a host would give its design model.

#include <math/TriangleMesh.h>
#include <octree/Location.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <cstdio>
#include <exception>
#include <memory>

namespace {

using Point = Math::Point<float, 3>;
using Mesh = Math::TriangleMesh<float>;

/// In the scene's coordinates.
std::shared_ptr<Mesh> boardThrough(const Math::NBoundingBox<float, 3>& box) {
    const float z = box.center().z();
    return std::make_shared<Mesh>(std::vector<Point>{{box.min.x(), box.min.y(), z},
                                                     {box.max.x(), box.min.y(), z},
                                                     {box.max.x(), box.max.y(), z},
                                                     {box.min.x(), box.max.y(), z}},
                                  std::vector<Mesh::Triangle>{{0, 1, 2}, {0, 2, 3}});
}

void colourByDistance(const char* store, const char* file) {
    const auto cloud =
        Render::PointCloudRenderable::create(Octree::Location::fromPath(store), "site", 2'000'000, 1.0);
    Render::Renderer renderer(true);
    renderer.setViewport(1280, 720);
    renderer.setScene(cloud);
    renderer.setAutoAdjustZRange(true);
    renderer.setPerspective(45.0f, 0.1f, 1000.0f, 0.0f, 0.0f);
    const auto box = cloud->boundingBox();
    renderer.setCameraPose(box.center() + Point(0.0f, -0.8f, 0.6f) * box.size().length(), box.center(),
                           Eigen::Vector3f::UnitZ());

    // Distances are in the scene's unit and negative behind the mesh. What lies outside the range is not
    // drawn.
    const float reach = 0.5f * box.size().z();
    renderer.setMeshForDistanceColorization(boardThrough(box));
    renderer.setRenderMode(Render::RenderMode::MeshDistance);
    renderer.setColorMap(Render::ColorMap::CoolWarm);
    renderer.setColorMapRange(-reach, reach);

    cloud->reloadPoints(nullptr, 21, {});
    renderer.writePngImage(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: mesh_distance STORE FILE.png\n", stderr);
        return 2;
    }
    try {
        colourByDistance(argv[1], argv[2]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "mesh_distance: %s\n", exception.what());
        return 1;
    }
}
