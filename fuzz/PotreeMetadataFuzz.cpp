// The input is a metadata.json.

#include <fuzz/FuzzTarget.h>
#include <octree/StoreError.h>
#include <octree/potree/Metadata.h>
#include <octree/potree/PointColumns.h>

#include <cmath>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = Fuzz::textOf(data, size);
    try {
        const PoTree::Metadata metadata = PoTree::Metadata::parse(text, "metadata.json");
        const PoTree::CoordinateGrid grid(metadata);
        if (metadata.bytesPerPoint < 12 || !std::isfinite(grid.reference.squaredLength())) {
            std::abort();
        }
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
