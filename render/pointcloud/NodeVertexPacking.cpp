#include <render/pointcloud/NodeVertexPacking.h>

#include <octree/NodePointData.h>

namespace Render {

namespace {

using Octree::Attribute;
using Octree::NodePointData;

constexpr int allVisible = 1;
constexpr int allHidden = 2;

constexpr unsigned columns(bool visibility) {
    const auto bit = [](Attribute attribute) { return static_cast<unsigned>(attribute); };
    return bit(Attribute::Position) | bit(Attribute::Color) | bit(Attribute::Intensity) |
           bit(Attribute::Classification) | bit(Attribute::ScanIndex) |
           (visibility ? bit(Attribute::Visibility) : 0u);
}

void packAttributes(const NodePointData& points, VertexContainer& out) {
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Math::Color color = points.has(Attribute::Color) ? points.color(i) : Math::Color::white();
        out.setColor(i, color.r(), color.g(), color.b(), color.a());
    }
    if (points.has(Attribute::Intensity)) {
        for (std::size_t i = 0; i < points.size(); ++i) {
            out.setIntensity(i, points.intensity(i));
        }
    }
    if (points.has(Attribute::Classification)) {
        for (std::size_t i = 0; i < points.size(); ++i) {
            out.setClassIndex(i, points.classification(i));
        }
    }
    if (points.has(Attribute::ScanIndex)) {
        for (std::size_t i = 0; i < points.size(); ++i) {
            out.setScanIndex(i, static_cast<unsigned short>(points.scanIndex(i)));
        }
    }
}

}  // namespace

bool loadNodeVertices(const Octree::Octree& octree, Octree::OctreeNodeId id, VertexContainer& out,
                      const std::stop_token& stop) {
    const int visibility = octree.nodeVisibility(id);
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
            if (points.visibility(i) != 0) {
                out.setVisibility(i, points.visibility(i));
            }
        }
    }
    out.complete();
    return true;
}

}  // namespace Render
