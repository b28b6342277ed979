// Decoding a store's nodes beside bare Brotli on the same chunks. "points" is what one round decodes.

#include <bench/BenchStore.h>
#include <octree/Octree.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/pointcloud/NodeVertexPacking.h>

#include <benchmark/benchmark.h>
#include <brotli/decode.h>

#include <stop_token>

namespace {

const std::vector<NodeChunk>& chunks() {
    static const std::vector<NodeChunk> loaded = readNodeChunks(benchStore());
    return loaded;
}

const Octree::Octree& octree() {
    static const Octree::Octree opened{Octree::Location(PoTree::FileSystemLocation(benchStore()))};
    return opened;
}

/// What a round must not pay for.
void prepare() {
    octree().pointCount(chunks().back().id);
}

void setPointRate(benchmark::State& state) {
    size_t points = 0;
    for (const NodeChunk& chunk : chunks()) {
        points += chunk.points;
    }
    state.counters["points"] = static_cast<double>(points);
    state.SetItemsProcessed(static_cast<int64_t>(points) * state.iterations());
}

void bareBrotli(benchmark::State& state) {
    std::vector<uint8_t> output(8U << 20U);
    prepare();
    for (auto _ : state) {
        for (const NodeChunk& chunk : chunks()) {
            size_t size = output.size();
            if (BrotliDecoderDecompress(chunk.bytes.size(),
                                        reinterpret_cast<const uint8_t*>(chunk.bytes.data()), &size,
                                        output.data()) != BROTLI_DECODER_RESULT_SUCCESS) {
                state.SkipWithError("a chunk is not Brotli, or larger than the output");
                return;
            }
            benchmark::DoNotOptimize(output.data());
        }
    }
    setPointRate(state);
}

/// The columns that vertices are made of, read from the file as well.
void nodePointData(benchmark::State& state) {
    using Octree::Attribute;
    constexpr unsigned WANTED =
        static_cast<unsigned>(Attribute::Position) | static_cast<unsigned>(Attribute::Color) |
        static_cast<unsigned>(Attribute::Intensity) | static_cast<unsigned>(Attribute::Classification);
    prepare();
    for (auto _ : state) {
        for (const NodeChunk& chunk : chunks()) {
            Octree::NodePointData data(WANTED);
            octree().getNodePointData(chunk.id, data);
            benchmark::DoNotOptimize(data.positions().data());
        }
    }
    setPointRate(state);
}

/// As the loader does it: read, decompress, unpack, pack for the GPU.
void nodeVertices(benchmark::State& state) {
    prepare();
    for (auto _ : state) {
        for (const NodeChunk& chunk : chunks()) {
            Render::VertexContainer vertices;
            Render::loadNodeVertices(octree(), chunk.id, vertices, std::stop_token());
            benchmark::DoNotOptimize(vertices.data());
        }
    }
    setPointRate(state);
}

BENCHMARK(bareBrotli)->Name("decode/bareBrotli")->Unit(benchmark::kMillisecond);
BENCHMARK(nodePointData)->Name("decode/nodePointData")->Unit(benchmark::kMillisecond);
BENCHMARK(nodeVertices)->Name("decode/nodeVertices")->Unit(benchmark::kMillisecond);

}  // namespace
