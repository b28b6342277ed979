// How long it takes many small renderables to join a renderer: what a host waits for on its window's thread
// when it shows a hundred scan positions. Usage: bench_join [COUNT]

#include <graphics/PanoramaLoader.h>
#include <render/core/Renderer.h>
#include <render/renderables/GroupRenderable.h>
#include <render/renderables/MeshLoader.h>
#include <render/renderables/MeshRenderable.h>
#include <render/renderables/PanoRenderable.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>

namespace {

class OneTile : public Graphics::PanoramaLoader {
public:
    OneTile() : PanoramaLoader({1, 1, {16}, {16}, 1, 1}) {}

    size_t tilesPerLevel() const override { return 1; }
    std::vector<uint64_t> colorTiles() const override { return {0}; }
    std::vector<uint64_t> depthTiles() const override { return {}; }
    Graphics::ColorImage loadColorTile(uint64_t) override { return Graphics::ColorImage(16, 16); }
    Graphics::DepthImage loadDepthTile(uint64_t) override { return Graphics::DepthImage(16, 16); }
    Math::Point<float, 3> tileDirection(uint64_t) const override { return {1.0f, 0.0f, 0.0f}; }
    unsigned projectionKind() const override { return 0; }
};

class OneTriangle : public Render::MeshLoader {
public:
    void load(std::function<void(const std::vector<Render::VertexPosNormalTexCoordColor>&)> onPart) override {
        onPart(std::vector<Render::VertexPosNormalTexCoordColor>(3));
    }
};

template <class Make>
void measure(const char* what, int count, Make make) {
    using Milliseconds = std::chrono::duration<double, std::milli>;
    Render::Renderer renderer(true);
    const auto group = Render::GroupRenderable::create("group");
    renderer.setScene(group);
    const auto start = std::chrono::steady_clock::now();
    group->add(make());
    const auto first = std::chrono::steady_clock::now();
    for (int i = 1; i < count; ++i) {
        group->add(make());
    }
    const auto last = std::chrono::steady_clock::now();
    std::printf("%d %s: the first %.1f ms, all %.0f ms\n", count, what, Milliseconds(first - start).count(),
                Milliseconds(last - start).count());
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 100;
    try {
        measure("panoramas", count,
                [] { return Render::PanoRenderable::create(std::make_shared<OneTile>(), "panorama"); });
        measure("meshes", count,
                [] { return Render::MeshRenderable::create(std::make_shared<OneTriangle>(), 1.0, "mesh"); });
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_join: %s\n", error.what());
        return 1;
    }
    return 0;
}
