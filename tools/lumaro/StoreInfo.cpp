#include <tools/lumaro/StoreInfo.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

Math::NBoundingBox<double, 3> absoluteBox(const Octree::Octree& octree,
                                          const Math::NBoundingBox<float, 3>& box) {
    Math::NBoundingBox<double, 3> absolute;
    if (!box.isEmpty()) {
        absolute.min = box.min.cast<double>() + octree.referencePosition();
        absolute.max = box.max.cast<double>() + octree.referencePosition();
    }
    return absolute;
}

/// The store states the range of its positions in double, as one attribute or as three; the model's box is
/// rounded to float.
Math::NBoundingBox<double, 3> pointBounds(const Octree::Octree& octree) {
    std::vector<double> min, max;
    for (const Octree::AttributeInfo& attribute : octree.attributes()) {
        if (attribute.name == "position" || attribute.name == "X" || attribute.name == "Y" ||
            attribute.name == "Z") {
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
    std::ostringstream text;
    text << std::setprecision(15);
    for (size_t i = 0; i < values.size(); ++i) {
        text << (i == 0 ? "" : " ") << values[i];
    }
    return text.str();
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

bool hasColors(const Octree::Location& location) {
    return Octree::Octree(location).hasColors();
}

StoreInfo readStoreInfo(const Octree::Location& location, const std::stop_token& stop) {
    const Octree::Octree octree(location);
    StoreInfo info;
    info.location = location.toString();
    info.format = location.entwine() != nullptr ? "Entwine" : "Potree 2.0";
    info.encoding = octree.encoding();
    info.points = octree.totalPointCount();
    info.bounds = pointBounds(octree);
    info.cube = absoluteBox(octree, octree.boundingCube());
    info.spacing = static_cast<double>(octree.spacing());
    info.attributes = octree.attributes();

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
    text << "location    " << info.location << '\n'
         << "format      " << info.format << (info.encoding.empty() ? "" : ", " + info.encoding) << '\n'
         << "points      " << info.points << '\n';
    if (info.bounds.isEmpty()) {
        text << "bounds      none\n";
    } else {
        text << "minimum     " << numbers(coordinates(info.bounds.min)) << '\n'
             << "maximum     " << numbers(coordinates(info.bounds.max)) << '\n';
    }
    text << "spacing     " << info.spacing << '\n'
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
