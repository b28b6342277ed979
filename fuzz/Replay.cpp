// Runs a fuzz target once over each file of a folder: the inputs that once broke it, or that might have. None
// may take more memory than the given number of MiB and some bytes for each of its own.

#include <bench/AllocationCounter.h>
#include <fuzz/FuzzTarget.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

constexpr std::size_t BYTES_PER_BYTE = 8;

/// The most bytes of the heap that it took at a time.
std::size_t run(const std::string& bytes) {
    takePeakBytes();
    const std::size_t before = allocatedBytes();
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return takePeakBytes() + allocatedBytes() - before;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s FOLDER MIB\n", argv[0]);
        return 2;
    }
    const std::size_t maxBytes = std::strtoul(argv[2], nullptr, 10) << 20;
    int count = 0;
    std::size_t highest = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        const std::string name = entry.path().filename().string();
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        try {
            const std::size_t taken = run(bytes);
            if (taken > maxBytes + BYTES_PER_BYTE * bytes.size()) {
                std::fprintf(stderr, "%s: %zu bytes of input took %zu of memory\n", name.c_str(),
                             bytes.size(), taken);
                return 1;
            }
            highest = std::max(highest, taken);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s: %s\n", name.c_str(), error.what());
            return 1;
        }
        ++count;
    }
    std::printf("%d inputs, up to %zu bytes of memory\n", count, highest);
    return count > 0 ? 0 : 1;
}
