#include <octree/MemoryBudget.h>
#include <octree/StoreError.h>

#include <array>
#include <string>
#include <utility>

namespace Octree {

void MemoryBudget::require(std::uint64_t bytes, const std::filesystem::path& file,
                           std::string_view node) const {
    const std::uint64_t kept = mKept.load(std::memory_order_relaxed);
    if (kept <= mLimit && bytes <= mLimit - kept) {
        return;
    }
    const std::string problem = "asks for " + std::to_string(bytes) + " bytes of memory beside the " +
                                std::to_string(kept) + " that the store holds, its limit is " +
                                std::to_string(mLimit);
    throw node.empty() ? StoreError(file, problem) : StoreError(file, node, problem);
}

void MemoryBudget::keep(std::uint64_t bytes, const std::filesystem::path& file, std::string_view node) {
    require(bytes, file, node);
    mKept.fetch_add(bytes, std::memory_order_relaxed);
}

std::uint64_t columnBytes(const NodePointData& data, std::uint64_t pointCount) {
    constexpr std::array<std::pair<Attribute, std::uint64_t>, 7> SIZES{
        {{Attribute::Position, sizeof(Math::Point<double, 3>)},
         {Attribute::Color, sizeof(Math::Color)},
         {Attribute::Intensity, sizeof(std::uint16_t)},
         {Attribute::Classification, sizeof(std::uint8_t)},
         {Attribute::ScanIndex, sizeof(std::uint32_t)},
         {Attribute::Visibility, sizeof(std::uint8_t)},
         {Attribute::Normal, sizeof(Math::Point<float, 3>)}}};
    std::uint64_t bytesPerPoint = 0;
    for (const auto& [attribute, size] : SIZES) {
        bytesPerPoint += data.wants(attribute) ? size : 0;
    }
    return pointCount * bytesPerPoint;
}

}  // namespace Octree
