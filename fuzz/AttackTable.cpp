// Reads files that were made to cost much, each in a process of its own, and prints what they cost:
//   attack_table [PART OF A NAME]
// Once with the limits of the library and once with one of 64 MiB. Fails when one did not end by itself.

#include <core/ExceptionChain.h>
#include <fuzz/ChildProcess.h>
#include <graphics/ColorImage.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>
#include <render/pointcloud/PointCloudStreamer.h>
#include <render/renderables/ObjMeshLoader.h>
#include <tools/lumaro/MemoryLimit.h>
#include <tools/lumaro/PolygonFile.h>

#include <sys/stat.h>
#include <tests/octree/entwine/EptFixture.h>
#include <tests/support/HostileMeshes.h>
#include <tests/support/HostileStores.h>
#include <tests/support/HostileTiles.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Support::EptFixture;
using Support::PotreeFixture;
using namespace Support::Hostile;
using namespace std::string_literals;

constexpr unsigned MAX_SECONDS = 120;
constexpr std::uint64_t SMALL_LIMIT = std::uint64_t{64} << 20;

struct Attack {
    const char* name;
    /// Leaves files in the folder.
    std::function<void(const fs::path&)> make;
    /// Says what came of reading them.
    std::function<std::string(const fs::path&)> read;
};

// What a user does with them.

/// Reads all nodes, as a query does, and goes on after those that are damaged.
std::string readStore(const fs::path& folder) {
    const Octree::Octree octree(Octree::Location::fromPath(folder), 1.0, {}, Tool::storeLimits());
    std::vector<Octree::OctreeNodeId> pending{Octree::OctreeNodeId()};
    std::size_t nodes = 0, points = 0;
    std::string problem;
    while (!pending.empty()) {
        const Octree::OctreeNodeId id = pending.back();
        pending.pop_back();
        try {
            const Octree::NodeChildren children = octree.children(id);
            pending.insert(pending.end(), children.begin(), children.end());
            Octree::NodePointData data;
            octree.getNodePointData(id, data);
            points += data.size();
            ++nodes;
        } catch (const std::exception& error) {
            problem = problem.empty() ? Core::exceptionChain(error) + "; " : problem;
        }
    }
    return problem + std::to_string(nodes) + " nodes, " + std::to_string(points) + " points";
}

std::string streamStore(const fs::path& folder) {
    const auto camera = std::make_shared<Render::Camera>(true);
    camera->setPose(Math::Point<float, 3>(0, 0, 600), Eigen::Vector3f(0, 0, -1), Eigen::Vector3f(0, 1, 0));
    Render::PointCloudStreamer streamer(
        std::make_shared<Octree::Octree>(Octree::Location::fromPath(folder), 1.0, std::stop_token(),
                                         Tool::storeLimits()),
        3000000);
    streamer.attach(1, 1, camera, nullptr);
    streamer.setPriorityThreshold(0.0f);
    std::string problem;
    try {
        streamer.reloadPoints(nullptr, 21, {});
    } catch (const std::exception& error) {
        problem = Core::exceptionChain(error) + "; ";
    }
    return problem + std::to_string(streamer.publishedNodeCount()) + " nodes shown";
}

std::string readMesh(const fs::path& folder) {
    std::cout.rdbuf(nullptr);
    std::size_t corners = 0;
    Render::ObjMeshLoader(folder / "mesh.obj", {}, {}, Tool::meshMemoryLimit()).load([&](const auto& part) {
        corners += part.size();
    });
    return std::to_string(corners / 3) + " triangles";
}

std::string readImage(const fs::path& folder) {
    const auto image = Graphics::ColorImage::read(folder / "image", {}, Tool::imageMemoryLimit());
    return std::to_string(image.width()) + " x " + std::to_string(image.height());
}

std::string readPolygon(const fs::path& folder) {
    const auto rings = Tool::readPolygonFile(folder / "area.txt");
    const Render::PolygonPrismFilter filter(rings);
    return std::to_string(rings[0].size()) + " corners";
}

// How they are made.

void write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

template <class Change>
auto potree(Change change, const char* encoding = "BROTLI") {
    return [=](const fs::path& folder) {
        PotreeFixture store(encoding);
        change(store);
        store.writeAll();
        fs::copy(store.folder.path(), folder, fs::copy_options::recursive);
    };
}

/// The hierarchy says that the root has so many points, and this is its tile.
template <class Tile>
auto entwine(const char* type, std::uint64_t claim, Tile tile) {
    return [=](const fs::path& folder) {
        EptFixture store(type);
        store.metadata["schema"].push_back(Support::dimension("NormalX", "float", 4));
        store.writeMetadata();
        store.folder.write(EptFixture::hierarchyFile("0-0-0-0"), nlohmann::json{{"0-0-0-0", claim}}.dump());
        store.folder.write(store.tileFile("0-0-0-0"), tile());
        fs::copy(store.folder.path(), folder, fs::copy_options::recursive);
    };
}

auto laz(std::uint64_t claim, std::uint64_t points, std::uint16_t extraBytes, std::size_t returnBytes) {
    return entwine("laszip", claim, [=] { return lazTile(points, extraBytes, returnBytes); });
}

template <class Text>
auto file(const char* name, Text text) {
    return [=](const fs::path& folder) { write(folder / name, text()); };
}

auto face(std::size_t corners, Corner (*at)(std::size_t, std::size_t)) {
    return file("mesh.obj", [=] { return faceFile(corners, [=](std::size_t i) { return at(i, corners); }); });
}

/// Its compressed bytes are none.
std::string garbagePng(std::uint32_t side, std::size_t size) {
    const auto big = [](std::uint32_t value) {
        std::string bytes;
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(value >> shift & 0xff);
        }
        return bytes;
    };
    const auto chunk = [&](const std::string& typeAndData) {
        const auto* const bytes = reinterpret_cast<const Bytef*>(typeAndData.data());
        const uLong sum = ::crc32(0, bytes, static_cast<uInt>(typeAndData.size()));
        return big(static_cast<std::uint32_t>(typeAndData.size() - 4)) + typeAndData +
               big(static_cast<std::uint32_t>(sum));
    };
    return "\x89PNG\r\n\x1a\n" + chunk("IHDR" + big(side) + big(side) + "\x08\0\0\0\0"s) +
           chunk("IDAT\x78\xda" + std::string(size, '\xff')) + chunk("IEND");
}

std::string repeated(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

nlohmann::json ones(std::size_t count) {
    return nlohmann::json(std::vector<int>(count, 1));
}

std::vector<Attack> attacks() {
    return {
        {"sound store", potree([](auto&) {}), readStore},
        {"one byte of one node changed", potree([](auto& store) { store.octree[store.chunks[1][0]] ^= 1; }),
         streamStore},
        {"colliding nodes", potree([](auto& store) { floodHash(store, 125000); }), readStore},
        {"eight children for each record", potree([](auto& store) { nameEightChildren(store, 3050402); }),
         readStore},
        {"the same, behind a reference", potree([](auto& store) { nameEightChildren(store, 3050402, true); }),
         streamStore},
        {"nodes of the same bytes", potree([](auto& store) { shareBytes(store, 5); }), readStore},
        {"node of 33 million points", potree([](auto& store) { fillRoot(store, 33000000); }), readStore},
        {"node of 2 million points", potree([](auto& store) { fillRoot(store, 1U << 21); }), streamStore},
        {"node of 500 MiB in 2 MiB", potree([](auto& store) { fillRoot(store, 8000, 65000, 2000000); }),
         streamStore},
        {"list of 8 million numbers", potree([](auto& store) { store.metadata["scale"] = ones(8000000); }),
         readStore},
        {"list of 500000 numbers", potree([](auto& store) { store.metadata["scale"] = ones(500000); }),
         readStore},
        {"version of 500 KB",
         potree([](auto& store) { store.metadata["version"] = std::string(500000, '3'); }), readStore},
        {"orders to a terminal", potree([](auto& store) { store.metadata["encoding"] = "\x1b]0;gone\a"; }),
         readStore},
        {"cube of 1e25", potree([](auto& store) {
             store.metadata["boundingBox"]["max"] = {1e25, 1e25, 1e25};
         }),
         readStore},
        {"octree.bin is a pipe",
         [](const fs::path& folder) {
             potree([](auto&) {})(folder);
             fs::remove(folder / "octree.bin");
             ::mkfifo((folder / "octree.bin").c_str(), 0600);
         },
         readStore},
        {"schema of 20000 dimensions",
         [](const fs::path& folder) {
             EptFixture store;
             for (int i = 0; i < 20000; ++i) {
                 store.metadata["schema"].push_back(Support::dimension(std::to_string(i), "unsigned", 1));
             }
             store.writeMetadata();
             fs::copy(store.folder.path(), folder, fs::copy_options::recursive);
         },
         readStore},
        {"tile of 512 MiB of holes",
         [](const fs::path& folder) {
             entwine("binary", 1, [] { return std::string(); })(folder);
             fs::resize_file(folder / "ept-data/0-0-0-0.bin", std::uintmax_t{512} << 20);
         },
         readStore},
        {"window of 128 MiB", entwine("zstandard", 1000000, [] { return "\x28\xb5\x2f\xfd\0\x88\1\0\0"s; }),
         readStore},
        {"frame of an old Zstandard", entwine("zstandard", 3, [] { return "\x27\xb5\x2f\xfd\0\0\0\0"s; }),
         readStore},
        {"LAZ, 65505 extra bytes", laz(1, 65538, 65505, 300), readStore},
        {"LAZ, 1000 extra bytes", laz(1 << 26, 1 << 26, 1000, 115000), readStore},
        {"LAZ, cut behind a point of 64 KB",
         entwine("laszip", 500000, [] { return lazTile(500000, 65505, 300).substr(0, 67000); }), readStore},
        {"LAZ, 67 million points", laz(1 << 26, 1 << 26, 0, 115000), readStore},
        {"LAZ, 2 million points", laz(1 << 21, 1 << 21, 0, 115000), readStore},
        {"LAZ, steps of 5e-324", entwine("laszip", 3, [] { return lasTile(5e-324, 3); }), readStore},
        {"face that repeats one corner", file("mesh.obj", [] { return faceOfOneCorner(262000); }), readMesh},
        {"face that winds up", face(30000, onSpiral), readMesh},
        {"face that crosses itself", face(30000, onStar), readMesh},
        {"materials on a server",
         file("mesh.obj",
              [] { return "mtllib //server/share/m.mtl \\\\server\\share\\m.mtl\n" + faceOfOneCorner(3); }),
         readMesh},
        {"PNG of 16384 x 16384, garbage", file("image", [] { return garbagePng(16384, 34000); }), readImage},
        {"polygon of tall edges", file("area.txt", [] { return repeated("0 0\n0 1\n", 125000); }),
         readPolygon},
        {"polygon of 6 million corners", file("area.txt", [] { return repeated("0 0\n0 1\n", 3000000); }),
         readPolygon},
    };
}

std::uintmax_t sizeOf(const fs::path& folder) {
    std::uintmax_t size = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        size += entry.is_regular_file() ? entry.file_size() : 0;
    }
    return size;
}

/// A line of it, without the folder, as far as a table has room.
std::string cell(std::string text, const fs::path& folder) {
    constexpr std::size_t LONGEST = 190;
    const std::string prefix = folder.string() + '/';
    for (std::size_t at; (at = text.find(prefix)) != std::string::npos;) {
        text.erase(at, prefix.size());
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text.size() > LONGEST ? text.substr(0, LONGEST) + " …" : text;
}

/// What a host's own limit makes of it.
std::string limitedCell(const Attack& attack, const fs::path& folder, bool& hasEnded) {
    const Fuzz::ChildResult read = Fuzz::runInChild(
        [&] {
            Tool::setMemoryLimit(SMALL_LIMIT);
            return attack.read(folder);
        },
        MAX_SECONDS);
    hasEnded &= !read.wasKilled;
    const bool isRefused = read.text.find("bytes of memory") != std::string::npos;
    return std::to_string(read.memoryBytes >> 20) + (isRefused ? " MiB, refused" : " MiB");
}

}  // namespace

int main(int argc, char** argv) {
    std::printf("| Input | bytes | seconds | MiB | 64 MiB allowed | outcome |\n|---|--:|--:|--:|---|---|\n");
    bool allEnded = true;
    for (const Attack& attack : attacks()) {
        if (argc > 1 && std::string_view(attack.name).find(argv[1]) == std::string_view::npos) {
            continue;
        }
        const Support::TemporaryFolder folder;
        const fs::path& path = folder.path();
        const Fuzz::ChildResult made = Fuzz::runInChild(
            [&] {
                attack.make(path);
                return ""s;
            },
            MAX_SECONDS);
        if (!made.text.empty()) {
            std::fprintf(stderr, "%s: %s\n", attack.name, made.text.c_str());
            return 1;
        }
        const Fuzz::ChildResult read = Fuzz::runInChild([&] { return attack.read(path); }, MAX_SECONDS);
        allEnded &= !read.wasKilled;
        const std::string limited = limitedCell(attack, path, allEnded);
        std::printf("| %s | %ju | %.2f | %zu | %s | %s |\n", attack.name, sizeOf(path), read.time.count(),
                    read.memoryBytes >> 20, limited.c_str(), cell(read.text, path).c_str());
    }
    return allEnded ? 0 : 1;
}
