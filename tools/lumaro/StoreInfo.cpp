#include <tools/lumaro/MemoryLimit.h>
#include <tools/lumaro/NumberText.h>
#include <tools/lumaro/StoreInfo.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iomanip>
#include <locale>
#include <sstream>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

Math::NBoundingBox<double, 3> absoluteBox(const Octree::Octree& octree,
                                          const Math::NBoundingBox<float, 3>& box) {
    Math::NBoundingBox<double, 3> absolute;
    if (!box.isEmpty()) {
        const int decimals = octree.positionGrid() ? octree.positionGrid()->decimals() : 17;
        for (int axis = 0; axis < 3; ++axis) {
            const double origin = octree.referencePosition()[axis];
            absolute.min[axis] = rounded(double{box.min[axis]} + origin, decimals);
            absolute.max[axis] = rounded(double{box.max[axis]} + origin, decimals);
        }
    }
    return absolute;
}

/// Which axis' coordinates an attribute has: one of them, from 0 on for all, or -1.
int firstAxisOf(const Octree::AttributeInfo& attribute) {
    if (attribute.name == "position") {
        return 0;
    }
    const size_t axis = std::string("XYZ").find(attribute.name);
    return attribute.name.size() == 1 && axis != std::string::npos ? static_cast<int>(axis) : -1;
}

/// As the store has them, but that sums of decimal fractions are the decimal fractions that they should be.
std::vector<Octree::AttributeInfo> attributesOf(const Octree::Octree& octree) {
    std::vector<Octree::AttributeInfo> attributes = octree.attributes();
    for (Octree::AttributeInfo& attribute : attributes) {
        for (std::vector<double>* const ends : {&attribute.min, &attribute.max}) {
            int axis = firstAxisOf(attribute);
            for (auto end = ends->begin();
                 octree.positionGrid() && axis >= 0 && end != ends->end() && axis < 3; ++end, ++axis) {
                *end = octree.positionGrid()->snapped(*end, axis);
            }
        }
    }
    return attributes;
}

/// The store states the range of its positions in double, as one attribute or as three; the model's box is
/// rounded to float.
Math::NBoundingBox<double, 3> pointBounds(const Octree::Octree& octree,
                                          const std::vector<Octree::AttributeInfo>& attributes) {
    std::vector<double> min, max;
    for (const Octree::AttributeInfo& attribute : attributes) {
        if (firstAxisOf(attribute) >= 0) {
            min.insert(min.end(), attribute.min.begin(), attribute.min.end());
            max.insert(max.end(), attribute.max.begin(), attribute.max.end());
        }
    }
    if (min.size() != 3 || max.size() != 3) {
        return absoluteBox(octree, octree.boundingBox());
    }
    Math::NBoundingBox<double, 3> box;
    box.min = {min[0], min[1], min[2]};
    box.max = {max[0], max[1], max[2]};
    return box;
}

std::string numbers(const std::vector<double>& values) {
    std::string text;
    for (const double value : values) {
        text.append(text.empty() ? "" : " ").append(shortText(value));
    }
    return text;
}

std::vector<double> coordinates(const Math::Point<double, 3>& point) {
    return {point.x(), point.y(), point.z()};
}

Json boxJson(const Math::NBoundingBox<double, 3>& box) {
    if (box.isEmpty()) {
        return nullptr;
    }
    return {{"min", coordinates(box.min)}, {"max", coordinates(box.max)}};
}

}  // namespace

bool hasColors(const Octree::Location& location, const std::stop_token& stop) {
    return Octree::Octree(location, 1.0, stop, storeLimits()).hasColors();
}

StoreInfo readStoreInfo(const Octree::Location& location, const std::stop_token& stop) {
    const Octree::Octree octree(location, 1.0, stop, storeLimits());
    StoreInfo info;
    info.location = location.toString();
    info.format = location.copc() != nullptr      ? "COPC"
                  : location.entwine() != nullptr ? "Entwine"
                                                  : "Potree 2.0";
    info.encoding = octree.encoding();
    info.points = octree.totalPointCount();
    info.attributes = attributesOf(octree);
    info.bounds = pointBounds(octree, info.attributes);
    info.cube = absoluteBox(octree, octree.boundingCube());
    info.spacing = widened(octree.spacing());

    std::vector<Octree::OctreeNodeId> open{Octree::OctreeNodeId()};
    while (!open.empty() && !stop.stop_requested()) {
        const Octree::OctreeNodeId id = open.back();
        open.pop_back();
        ++info.nodes;
        info.levels = std::max(info.levels, id.level() + 1);
        const Octree::NodeChildren children = octree.children(id, stop);
        open.insert(open.end(), children.begin(), children.end());
    }
    return info;
}

std::string infoText(const StoreInfo& info) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "location    " << info.location << '\n'
         << "format      " << info.format << (info.encoding.empty() ? "" : ", " + info.encoding) << '\n'
         << "points      " << info.points << '\n';
    if (info.bounds.isEmpty()) {
        text << "bounds      none\n";
    } else {
        text << "minimum     " << numbers(coordinates(info.bounds.min)) << '\n'
             << "maximum     " << numbers(coordinates(info.bounds.max)) << '\n';
    }
    text << "spacing     " << shortText(info.spacing) << '\n'
         << "nodes       " << info.nodes << '\n'
         << "levels      " << info.levels << '\n'
         << "attributes\n";
    for (const Octree::AttributeInfo& attribute : info.attributes) {
        text << "  " << std::left << std::setw(22) << attribute.name << std::setw(8) << attribute.type << "x "
             << attribute.elementCount;
        if (!attribute.min.empty() && !attribute.max.empty()) {
            text << "  " << numbers(attribute.min) << " to " << numbers(attribute.max);
        }
        text << '\n';
    }
    return text.str();
}

std::string infoJson(const StoreInfo& info) {
    Json json;
    json["location"] = info.location;
    json["format"] = info.format;
    json["encoding"] = info.encoding;
    json["points"] = info.points;
    json["bounds"] = boxJson(info.bounds);
    json["cube"] = boxJson(info.cube);
    json["spacing"] = info.spacing;
    json["nodes"] = info.nodes;
    json["levels"] = info.levels;
    json["attributes"] = Json::array();
    for (const Octree::AttributeInfo& attribute : info.attributes) {
        Json entry;
        entry["name"] = attribute.name;
        entry["type"] = attribute.type;
        entry["size"] = attribute.size;
        entry["elements"] = attribute.elementCount;
        entry["min"] = attribute.min;
        entry["max"] = attribute.max;
        json["attributes"].push_back(entry);
    }
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Tool
