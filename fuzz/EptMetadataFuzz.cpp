// The input is an ept.json.

#include <fuzz/FuzzTarget.h>
#include <octree/StoreError.h>
#include <octree/entwine/Metadata.h>
#include <octree/tiles/TileColumns.h>

#include <cmath>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = Fuzz::textOf(data, size);
    try {
        const Entwine::Metadata metadata = Entwine::Metadata::parse(text, "ept.json");
        const Math::Point<double, 3> reference = Tiles::referencePositionOf(metadata);
        if (metadata.recordSize < 3 || !(metadata.spacing >= 0.0) ||
            !std::isfinite(reference.squaredLength())) {
            std::abort();
        }
        Tiles::declaredColorDepth(metadata);
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
