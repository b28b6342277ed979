// A mesh of a million triangles from an OBJ file: the loader, the reader it uses alone, and the file's bytes
// alone. What the reader takes is in peakMB, on Linux only.

#include <core/File.h>
#include <render/renderables/MeshLoader.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

#define TINYOBJLOADER_USE_DOUBLE
#include <tiny_obj_loader.h>

#if defined(__linux__)
#include <malloc.h>
#endif

namespace {

/// A ball with normals, removed at the end.
class BallFile {
public:
    explicit BallFile(int size) : mPath(std::filesystem::temp_directory_path() / "lumaro-mesh-bench.obj") {
        std::ofstream file(mPath, std::ios::binary);
        char line[128];
        for (int i = 0; i <= size; ++i) {
            for (int j = 0; j <= size; ++j) {
                const double theta = std::numbers::pi * i / size;
                const double phi = 2 * std::numbers::pi * j / size;
                const double x = std::sin(theta) * std::cos(phi);
                const double y = std::sin(theta) * std::sin(phi);
                const double z = std::cos(theta);
                std::snprintf(line, sizeof line, "v %.6f %.6f %.6f\nvn %.4f %.4f %.4f\n", 100 * x, 100 * y,
                              100 * z, x, y, z);
                file << line;
            }
        }
        for (int i = 0; i < size; ++i) {
            for (int j = 1; j <= size; ++j) {
                const int a = i * (size + 1) + j;
                const int b = a + size + 1;
                std::snprintf(line, sizeof line, "f %d//%d %d//%d %d//%d\nf %d//%d %d//%d %d//%d\n", a, a, b,
                              b, a + 1, a + 1, a + 1, a + 1, b, b, b + 1, b + 1);
                file << line;
            }
        }
    }
    ~BallFile() { std::filesystem::remove(mPath); }
    BallFile(const BallFile&) = delete;
    BallFile& operator=(const BallFile&) = delete;

    const std::filesystem::path& path() const { return mPath; }

private:
    std::filesystem::path mPath;
};

const std::filesystem::path& million() {
    static const BallFile file(707);
    return file.path();
}

/// What is resident at most beyond what was at the start.
class PeakMemory {
public:
    PeakMemory() {
#if defined(__linux__)
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << 5;
#endif
        mBefore = kilobytes("VmRSS:");
    }
    double megabytes() const {
        return (kilobytes("VmHWM:") - mBefore) / 1024;
    }

private:
    static double kilobytes(const std::string& what) {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with(what)) {
                return std::stod(line.substr(what.size()));
            }
        }
        return 0;
    }

    double mBefore = 0;
};

template <class Read>
void measure(benchmark::State& state, Read read) {
    const std::filesystem::path& file = million();
    const PeakMemory peak;
    for (auto _ : state) {
        read(file);
    }
    state.counters["peakMB"] = peak.megabytes();
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(std::filesystem::file_size(file)));
}

void bytes(benchmark::State& state) {
    measure(state, [](const std::filesystem::path& file) {
        benchmark::DoNotOptimize(Core::readLocalFile(file).size());
    });
}

void reader(benchmark::State& state) {
    measure(state, [&](const std::filesystem::path& file) {
        tinyobj::attrib_t attributes;
        std::vector<tinyobj::shape_t> shapes;
        std::vector<tinyobj::material_t> materials;
        std::string warnings;
        std::string errors;
        std::ifstream stream(file, std::ios::binary);
        tinyobj::LoadObj(&attributes, &shapes, &materials, &warnings, &errors, &stream);
        if (shapes.size() != 1 || shapes[0].mesh.num_face_vertices.size() != 999'698) {
            state.SkipWithError("the reader finds another mesh");
        }
    });
}

void loader(benchmark::State& state) {
    measure(state, [&](const std::filesystem::path& file) {
        std::size_t vertices = 0;
        Render::MeshLoader::fromObjFile(file)->load([&](const auto& part) { vertices += part.size(); });
        if (vertices != 3 * 999'698) {
            state.SkipWithError("the loader finds another mesh");
        }
    });
}

BENCHMARK(bytes)->Name("mesh/bytes")->Unit(benchmark::kMillisecond);
BENCHMARK(reader)->Name("mesh/reader")->Unit(benchmark::kMillisecond);
BENCHMARK(loader)->Name("mesh/loader")->Unit(benchmark::kMillisecond);

}  // namespace
