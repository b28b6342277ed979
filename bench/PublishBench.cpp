// A publication and what the render thread does with it in main memory, beside a memcpy of the points that
// changed.

#include <octree/OctreeNodeId.h>
#include <render/core/Camera.h>
#include <render/pointcloud/NodePrioritizer.h>
#include <render/pointcloud/PointPool.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace {

using Octree::OctreeNodeId;
using Render::NodePriority;
using Render::VertexContainer;

constexpr size_t POINTS_PER_NODE = 1000;
constexpr size_t POINTS_PER_PAGE = 65536;
constexpr size_t NO_LIMIT = 1000000000;

class FixedSizeNodes : public Render::NodeVertexSource {
public:
    bool fetchNodeVertices(OctreeNodeId, VertexContainer& out, std::stop_token) override {
        out.resize(POINTS_PER_NODE);
        return true;
    }
};

/// Node number n of level 10.
OctreeNodeId nodeNumber(size_t n) {
    OctreeNodeId id;
    for (unsigned level = 0; level < 10; ++level) {
        id = id.child(n >> (3U * (9U - level)) & 7U);
    }
    return id;
}

/// Some nodes that stay and some that are exchanged.
class Scene {
public:
    explicit Scene(size_t stayingNodes)
        : mStaying(stayingNodes), mPrioritizer(NO_LIMIT), mPool(POINTS_PER_PAGE) {
        const Render::Camera camera(true);
        mPassing =
            NodePriority::perspective({{-1.0f, -1.0f, -12.0f}, {1.0f, 1.0f, -10.0f}}, camera.frustum(), {},
                                      camera.eye(), 1.0f, camera.viewport(), camera.fovYRad(), 0.0f);
        offer(stayingNodes, NodePriority::keep());
        publish();
        takeOver();
    }

    void comingNodes(size_t count) { offer(count, mPassing); }

    void dropComingNodes() {
        mPrioritizer.setTotalMaxPointCount(mStaying * POINTS_PER_NODE);
        mPrioritizer.setTotalMaxPointCount(NO_LIMIT);
        publish();
        takeOver();
    }

    void offerAgain(size_t node) {
        benchmark::DoNotOptimize(
            mPrioritizer.offer({0, nodeNumber(node)}, {}, NodePriority::keep(), mSource, {}));
    }

    void clear() { mPrioritizer.clear(0); }

    void publish() { mPrioritizer.updateBuffers(0, false, mBuffers); }

    /// Copies what the pages do not hold yet; returns the bytes.
    size_t takeOver() {
        mBuffers.swapRead();
        Render::PublishedNodes& published = mBuffers.readSlot();
        mPool.update(published.nodes);
        mPages.resize(mPool.pageCount());
        size_t bytes = 0;
        for (const size_t node : mPool.uploads()) {
            const Render::PointPool::Range range = mPool.ranges()[node];
            const VertexContainer& vertices = published.nodes[node].vertices->vertices;
            mPages[range.page].resize(mPool.pageCapacity(range.page));
            std::memcpy(mPages[range.page].data() + range.first, vertices.data(),
                        vertices.size() * sizeof(VertexContainer::Vertex));
            bytes += vertices.size() * sizeof(VertexContainer::Vertex);
        }
        published.dropVertices();
        return bytes;
    }

private:
    void offer(size_t count, const NodePriority& priority) {
        for (size_t i = 0; i < count; ++i) {
            mPrioritizer.offer({0, nodeNumber(mNext++)}, {}, priority, mSource, {});
        }
    }

    size_t mStaying;
    Render::NodePrioritizer mPrioritizer;
    Core::TripleBuffer<Render::PublishedNodes> mBuffers;
    Render::PointPool mPool;
    std::vector<std::vector<VertexContainer::Vertex>> mPages;
    FixedSizeNodes mSource;
    NodePriority mPassing = NodePriority::keep();
    size_t mNext = 0;
};

class Timer {
public:
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    }

private:
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

void publication(benchmark::State& state) {
    Scene scene(static_cast<size_t>(state.range(0)));
    const auto changed = static_cast<size_t>(state.range(1));
    for (auto _ : state) {
        scene.comingNodes(changed);
        const Timer timer;
        scene.publish();
        const size_t bytes = scene.takeOver();
        state.SetIterationTime(timer.seconds());
        if (bytes != changed * POINTS_PER_NODE * sizeof(VertexContainer::Vertex)) {
            state.SkipWithError("not exactly the changed nodes were sent");
        }
        scene.dropComingNodes();
    }
}

/// Collects, sorts and copies all resident nodes, as a publication would without an order that is kept.
void sortedAnew(benchmark::State& state) {
    std::mt19937 random(1);
    std::vector<std::unique_ptr<Render::PublishedNode>> entries;
    for (size_t i = 0; i < static_cast<size_t>(state.range(0)); ++i) {
        auto& entry = entries.emplace_back(std::make_unique<Render::PublishedNode>());
        entry->id = nodeNumber(i);
        entry->vertices = std::make_shared<Render::NodeVertices>();
    }
    std::shuffle(entries.begin(), entries.end(), random);
    std::vector<const Render::PublishedNode*> drawn;
    Render::PublishedNodes published;
    for (auto _ : state) {
        drawn.clear();
        for (const auto& entry : entries) {
            drawn.push_back(entry.get());
        }
        std::sort(drawn.begin(), drawn.end(), [](const auto* a, const auto* b) { return a->id < b->id; });
        published.nodes.clear();
        for (const auto* node : drawn) {
            published.nodes.push_back(*node);
        }
        published.buildNodeTable();
    }
}

/// What the prioritizer alone does after one of its nodes changed.
void oneChange(benchmark::State& state) {
    Scene scene(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        scene.comingNodes(1);
        const Timer timer;
        scene.publish();
        state.SetIterationTime(timer.seconds());
        scene.dropComingNodes();
    }
}

void offerOfResidentNode(benchmark::State& state) {
    const auto nodes = static_cast<size_t>(state.range(0));
    Scene scene(nodes);
    size_t next = 0;
    for (auto _ : state) {
        next = (next + 1741) % nodes;
        scene.offerAgain(next);
    }
}

void clearing(benchmark::State& state) {
    for (auto _ : state) {
        Scene scene(static_cast<size_t>(state.range(0)));
        const Timer timer;
        scene.clear();
        state.SetIterationTime(timer.seconds());
    }
}

/// The same number of nodes, each from its own place in memory to one of many pages.
void memcpyOfChanges(benchmark::State& state) {
    const auto changed = static_cast<size_t>(state.range(0));
    std::vector<VertexContainer> nodes(changed);
    std::vector<VertexContainer::Vertex> pages(changed * POINTS_PER_NODE);
    for (VertexContainer& node : nodes) {
        node.resize(POINTS_PER_NODE);
    }
    for (auto _ : state) {
        const Timer timer;
        for (size_t i = 0; i < changed; ++i) {
            std::memcpy(pages.data() + i * POINTS_PER_NODE, nodes[i].data(),
                        POINTS_PER_NODE * sizeof(VertexContainer::Vertex));
        }
        benchmark::DoNotOptimize(pages.data());
        state.SetIterationTime(timer.seconds());
    }
}

BENCHMARK(publication)
    ->Name("publish/publication")
    ->ArgNames({"resident", "changed"})
    ->ArgsProduct({{500, 3500}, {0, 20, 200}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(oneChange)
    ->Name("publish/oneChange")
    ->ArgName("resident")
    ->Arg(500)
    ->Arg(4000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(sortedAnew)
    ->Name("publish/sortedAnew")
    ->ArgName("resident")
    ->Arg(500)
    ->Arg(4000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(offerOfResidentNode)->Name("publish/offerOfResidentNode")->ArgName("resident")->Arg(4000);
BENCHMARK(clearing)
    ->Name("publish/clearing")
    ->ArgName("resident")
    ->Arg(1000)
    ->Arg(4000)
    ->UseManualTime()
    ->Iterations(10)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(memcpyOfChanges)
    ->Name("publish/memcpyOfChanges")
    ->ArgName("changed")
    ->Arg(20)
    ->Arg(200)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
