// Reading the nodes of an Entwine store with zstandard tiles beside bare decompression of the same frames.
// LUMARO_BENCH_EPT_STORE names the store. "points" is what one round reads.

#include <core/File.h>
#include <octree/NodeKey.h>
#include <octree/Octree.h>
#include <octree/entwine/EntwineTree.h>

#include <benchmark/benchmark.h>

#include <zstd.h>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Store {
    std::unique_ptr<Entwine::EntwineTree> tree;
    std::vector<Octree::OctreeNodeId> nodes;
    std::vector<std::string> frames;
    uint64_t pointCount = 0;
};

std::unique_ptr<Store> openStore(const std::filesystem::path& folder) {
    auto store = std::make_unique<Store>();
    store->tree = std::make_unique<Entwine::EntwineTree>(Entwine::FileSystemLocation(folder));
    std::vector<Octree::OctreeNodeId> pending{Octree::OctreeNodeId()};
    while (!pending.empty()) {
        const Octree::OctreeNodeId id = pending.back();
        pending.pop_back();
        Octree::NodeFacts facts;
        store->tree->nodeFacts(id, facts, {});
        for (size_t child = 0; child < 8; ++child) {
            if ((facts.childMask >> child & 1U) != 0) {
                pending.push_back(id.child(child));
            }
        }
        if (facts.pointCount > 0) {
            const std::string file = Octree::NodeKey(id).text() + ".zst";
            store->nodes.push_back(id);
            store->frames.push_back(Core::readLocalFile(folder / "ept-data" / file));
            store->pointCount += facts.pointCount;
        }
    }
    return store;
}

/// nullptr, and the benchmark skipped, when no store is named.
Store* storeFor(benchmark::State& state) {
    static const std::unique_ptr<Store> store = [] {
        const char* const folder = std::getenv("LUMARO_BENCH_EPT_STORE");
        return folder != nullptr ? openStore(folder) : nullptr;
    }();
    if (store == nullptr) {
        state.SkipWithError("LUMARO_BENCH_EPT_STORE names no store");
    }
    return store.get();
}

void setPointRate(benchmark::State& state, const Store& store) {
    state.counters["points"] = static_cast<double>(store.pointCount);
    state.SetItemsProcessed(static_cast<int64_t>(store.pointCount) * state.iterations());
}

void bareZstandard(benchmark::State& state) {
    Store* const store = storeFor(state);
    if (store == nullptr) {
        return;
    }
    std::vector<char> output(16U << 20U);
    const std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> context(ZSTD_createDCtx(), &ZSTD_freeDCtx);
    for (auto _ : state) {
        for (const std::string& frame : store->frames) {
            const size_t size =
                ZSTD_decompressDCtx(context.get(), output.data(), output.size(), frame.data(), frame.size());
            if (ZSTD_isError(size) != 0) {
                state.SkipWithError("a tile is not one frame, or larger than the output");
                return;
            }
            benchmark::DoNotOptimize(output.data());
        }
    }
    setPointRate(state, *store);
}

/// The columns that vertices are made of, read from the files as well.
void nodePointData(benchmark::State& state) {
    using Octree::Attribute;
    constexpr unsigned WANTED =
        static_cast<unsigned>(Attribute::Position) | static_cast<unsigned>(Attribute::Color) |
        static_cast<unsigned>(Attribute::Intensity) | static_cast<unsigned>(Attribute::Classification);
    Store* const store = storeFor(state);
    if (store == nullptr) {
        return;
    }
    for (auto _ : state) {
        for (const Octree::OctreeNodeId id : store->nodes) {
            Octree::NodePointData data(WANTED);
            store->tree->readNode(id, 1.0, data, {});
            benchmark::DoNotOptimize(data.positions().data());
        }
    }
    setPointRate(state, *store);
}

BENCHMARK(bareZstandard)->Name("ept/bareZstandard")->Unit(benchmark::kMillisecond);
BENCHMARK(nodePointData)->Name("ept/nodePointData")->Unit(benchmark::kMillisecond);

}  // namespace
