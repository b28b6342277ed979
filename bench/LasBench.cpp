// Decoding LAZ tiles with the fields that a point cloud is drawn from. The folders are the arguments that do
// not begin with --, or else the stores among the test data; tools/laz-oracle measures an independent decoder
// on the same files.

#include <core/File.h>
#include <octree/las/Tile.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <iostream>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<std::string> tilesOf(const fs::path& folder) {
    std::vector<std::string> tiles;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".laz") {
            tiles.push_back(Core::readLocalFile(entry.path()));
        }
    }
    return tiles;
}

void decode(benchmark::State& state, const std::vector<std::string>& tiles, unsigned fields) {
    std::size_t points = 0;
    Las::Tile tile;
    for (auto _ : state) {
        points = 0;
        for (const std::string& bytes : tiles) {
            Las::readTile("tile", bytes, fields, {}, tile);
            benchmark::DoNotOptimize(tile.points.x.data());
            points += tile.points.size;
        }
    }
    state.counters["points"] = static_cast<double>(points);
    state.counters["format"] = tile.header.pointFormat;
    state.SetItemsProcessed(static_cast<int64_t>(points) * state.iterations());
}

void registerFolder(const fs::path& folder, const std::string& name) {
    using Las::Field;
    constexpr unsigned DRAWN = static_cast<unsigned>(Field::Position) | static_cast<unsigned>(Field::Color) |
                               static_cast<unsigned>(Field::Intensity) |
                               static_cast<unsigned>(Field::Classification);
    const std::vector<std::string> tiles = tilesOf(folder);
    if (tiles.empty()) {
        return;
    }
    benchmark::RegisterBenchmark(("las/drawn/" + name).c_str(), decode, tiles, DRAWN)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("las/all/" + name).c_str(), decode, tiles, Las::ALL_FIELDS)
        ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        registerFolder(argv[i], fs::path(argv[i]).filename().string());
    }
    if (argc == 1) {
        for (const char* store : {"lion-laszip", "lion-laszip14", "lone-star-laszip"}) {
            const fs::path folder = fs::path(LUMARO_DATA_DIR) / "ept" / store / "ept-data";
            if (fs::exists(folder)) {
                registerFolder(folder, store);
            } else {
                std::cerr << folder << " is not here\n";
            }
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
