#include <render/pointcloud/NodeVertexPacking.h>

#include <octree/NodePointData.h>

#include <algorithm>
#include <cstdint>

namespace Render {

namespace {

using Octree::Attribute;
using Octree::NodePointData;

constexpr int allVisible = 1;
constexpr int allHidden = 2;
constexpr std::uint32_t HIGHEST_SCAN_INDEX = 65535;

constexpr unsigned columns(bool visibility) {
    const auto bit = [](Attribute attribute) { return static_cast<unsigned>(attribute); };
    return bit(Attribute::Position) | bit(Attribute::Color) | bit(Attribute::Intensity) |
           bit(Attribute::Classification) | bit(Attribute::ScanIndex) |
           (visibility ? bit(Attribute::Visibility) : 0u);
}

// Stretched to 16 bits: the container keeps the upper eight.
void packIntensities(const NodePointData& points, VertexContainer& out) {
    const std::uint16_t range = points.intensityRange();
    const float factor = static_cast<float>(NodePointData::HIGHEST_INTENSITY) / range;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const auto intensity = static_cast<float>(std::min(points.intensity(i), range));
        out.setIntensity(i, static_cast<unsigned short>(intensity * factor + 0.5f));
    }
}

void packAttributes(const NodePointData& points, VertexContainer& out) {
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Math::Color color = points.has(Attribute::Color) ? points.color(i) : Math::Color::white();
        out.setColor(i, color.r(), color.g(), color.b(), color.a());
    }
    if (points.has(Attribute::Intensity)) {
        packIntensities(points, out);
    }
    if (points.has(Attribute::Classification)) {
        for (std::size_t i = 0; i < points.size(); ++i) {
            out.setClassIndex(i, points.classification(i));
        }
    }
    if (points.has(Attribute::ScanIndex)) {
        for (std::size_t i = 0; i < points.size(); ++i) {
            const std::uint32_t index = std::min<std::uint32_t>(points.scanIndex(i), HIGHEST_SCAN_INDEX);
            out.setScanIndex(i, static_cast<unsigned short>(index));
        }
    }
}

}  // namespace

bool loadNodeVertices(const Octree::Octree& octree, Octree::OctreeNodeId id, VertexContainer& out,
                      const std::stop_token& stop) {
    const int visibility = octree.nodeVisibility(id, stop);
    if (stop.stop_requested()) {
        return false;
    }
    if (visibility == allHidden) {
        out = VertexContainer();
        return true;
    }
    NodePointData points(columns(visibility != allVisible));
    if (!octree.getNodePointData(id, points, stop)) {
        return false;
    }
    if (!points.has(Attribute::Position)) {
        out = VertexContainer();
        return true;
    }
    out.resize(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Math::Point<double, 3>& position = points.position(i);
        out.setPosition(i, position.x(), position.y(), position.z());
    }
    packAttributes(points, out);
    if (points.has(Attribute::Visibility)) {
        for (std::size_t i = 0; i < points.size(); ++i) {
            out.setVisibility(i, points.visibility(i));
        }
    } else if (!points.empty()) {
        out.setVisibility(0, 0);  // complete() frees the visibilities only where one was set
    }
    out.complete();
    return true;
}

}  // namespace Render
