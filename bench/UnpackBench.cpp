// Unpacking the columns of an uncompressed store's nodes, read before, beside copying the same bytes.
// "points" is what one round unpacks.

#include <bench/BenchStore.h>
#include <octree/Octree.h>
#include <octree/potree/NodeChunk.h>
#include <octree/potree/PointColumns.h>
#include <tools/lumaro/SampleScene.h>

#include <benchmark/benchmark.h>

#include <cstring>

namespace {

namespace fs = std::filesystem;

struct Chunks {
    Chunks() : metadata(PoTree::Metadata::read(store() / "metadata.json", PoTree::StoreRole::Cloud, budget)) {
        for (const NodeChunk& chunk : readNodeChunks(store())) {
            const auto bytes = std::make_shared<const std::string>(chunk.bytes);
            nodes.push_back({{bytes, reinterpret_cast<const std::byte*>(bytes->data())},
                             chunk.points,
                             metadata.bytesPerPoint,
                             metadata.layout});
            points += chunk.points;
        }
    }

    static fs::path store() {
        fs::path folder = fs::temp_directory_path() / "lumaro-bench-sample-1m-uncompressed";
        if (!fs::exists(folder / "metadata.json")) {
            Tool::StoreWriteOptions options;
            options.encoding = Tool::StoreEncoding::Uncompressed;
            Tool::writeSampleStore(folder, Tool::DEFAULT_SAMPLE_POINTS, options);
        }
        return folder;
    }

    Octree::MemoryBudget budget;
    PoTree::Metadata metadata;
    std::vector<PoTree::PointChunk> nodes;
    size_t points = 0;
};

const Chunks& chunks() {
    static const Chunks loaded;
    return loaded;
}

void setRates(benchmark::State& state) {
    state.counters["points"] = static_cast<double>(chunks().points);
    state.SetItemsProcessed(static_cast<int64_t>(chunks().points) * state.iterations());
}

/// Into fresh memory, as columns are.
void copyBytes(benchmark::State& state) {
    for (auto _ : state) {
        for (const PoTree::PointChunk& chunk : chunks().nodes) {
            const auto* const bytes = reinterpret_cast<const char*>(chunk.bytes.get());
            const std::vector<char> copy(bytes, bytes + chunk.pointCount * chunk.bytesPerPoint);
            benchmark::DoNotOptimize(copy.data());
        }
    }
    setRates(state);
}

/// What vertices are made of: positions in double, colours, intensities, classes.
void unpackRecords(benchmark::State& state) {
    const PoTree::ColumnPlaces places(chunks().metadata);
    const PoTree::CoordinateGrid grid(chunks().metadata);
    const PoTree::GridRange range = grid.rangeOf(chunks().metadata.boundingBox);
    const PoTree::ColorDepth depth = PoTree::colorDepthOf(chunks().metadata);
    for (auto _ : state) {
        for (const PoTree::PointChunk& chunk : chunks().nodes) {
            std::vector<Math::Point<double, 3>> positions;
            std::vector<Math::Color> colors;
            std::vector<uint16_t> intensities;
            std::vector<uint8_t> classes;
            PoTree::decodePositions(chunk.column(*places.position), chunk.pointCount, grid, range, 1.0,
                                    positions);
            PoTree::decodeColors(chunk.column(*places.color), chunk.pointCount, depth, colors);
            PoTree::copyColumns(chunk, places, {.intensities = &intensities, .classifications = &classes});
            benchmark::DoNotOptimize(positions.data());
            benchmark::DoNotOptimize(colors.data());
            benchmark::DoNotOptimize(intensities.data());
            benchmark::DoNotOptimize(classes.data());
        }
    }
    setRates(state);
}

/// Read from the file as well.
void readRecords(benchmark::State& state) {
    using Octree::Attribute;
    constexpr unsigned WANTED =
        static_cast<unsigned>(Attribute::Position) | static_cast<unsigned>(Attribute::Color) |
        static_cast<unsigned>(Attribute::Intensity) | static_cast<unsigned>(Attribute::Classification);
    const Octree::Octree octree(Octree::Location::fromPath(Chunks::store()));
    const std::vector<NodeChunk> nodes = readNodeChunks(Chunks::store());
    octree.pointCount(nodes.back().id);
    for (auto _ : state) {
        for (const NodeChunk& node : nodes) {
            Octree::NodePointData data(WANTED);
            octree.getNodePointData(node.id, data);
            benchmark::DoNotOptimize(data.positions().data());
        }
    }
    setRates(state);
}

BENCHMARK(copyBytes)->Name("unpack/memcpy")->Unit(benchmark::kMillisecond);
BENCHMARK(unpackRecords)->Name("unpack/records")->Unit(benchmark::kMillisecond);
BENCHMARK(readRecords)->Name("unpack/recordsFromFile")->Unit(benchmark::kMillisecond);

}  // namespace
