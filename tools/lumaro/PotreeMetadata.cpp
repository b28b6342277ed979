#include <tools/lumaro/PotreeMetadata.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

struct AttributeEntry {
    const char* name;
    const char* type;
    unsigned elements;
    unsigned elementSize;
    Json min;
    Json max;
};

Json attributeJson(const AttributeEntry& entry) {
    Json json;
    json["name"] = entry.name;
    json["description"] = "";
    json["size"] = entry.elements * entry.elementSize;
    json["numElements"] = entry.elements;
    json["elementSize"] = entry.elementSize;
    json["type"] = entry.type;
    json["min"] = entry.min;
    json["max"] = entry.max;
    json["scale"] = std::vector<int>(entry.elements, 1);
    json["offset"] = std::vector<int>(entry.elements, 0);
    return json;
}

/// Smallest and largest value of one attribute as JSON lists of `elements` numbers.
template <class Value>
AttributeEntry scalarEntry(const char* name, const char* type, unsigned elementSize,
                           const std::vector<StorePoint>& points, Value&& value) {
    AttributeEntry entry{name, type, 1, elementSize, Json::array({0}), Json::array({0})};
    if (points.empty()) {
        return entry;
    }
    const auto less = [&](const StorePoint& a, const StorePoint& b) { return value(a) < value(b); };
    const auto [low, high] = std::minmax_element(points.begin(), points.end(), less);
    entry.min = Json::array({value(*low)});
    entry.max = Json::array({value(*high)});
    return entry;
}

template <class Value>
AttributeEntry vectorEntry(const char* name, const char* type, unsigned elementSize,
                           const std::vector<StorePoint>& points, Value&& value) {
    AttributeEntry entry{name, type, 3, elementSize, Json::array(), Json::array()};
    for (size_t axis = 0; axis < 3; ++axis) {
        const AttributeEntry one =
            scalarEntry(name, type, elementSize, points, [&](const StorePoint& p) { return value(p, axis); });
        entry.min.push_back(one.min[0]);
        entry.max.push_back(one.max[0]);
    }
    return entry;
}

Json attributesJson(const StoreDescription& description, const std::vector<StorePoint>& points) {
    using P = const StorePoint&;
    const auto absolute = [&](P p, size_t axis) {
        return p.position[axis] * description.scale + description.offset[axis];
    };
    Json list = Json::array();
    list.push_back(attributeJson(vectorEntry("position", "int32", 4, points, absolute)));
    list.push_back(
        attributeJson(scalarEntry("intensity", "uint16", 2, points, [](P p) { return p.intensity; })));
    list.push_back(
        attributeJson(scalarEntry("return number", "uint8", 1, points, [](P p) { return p.returnNumber; })));
    list.push_back(attributeJson(
        scalarEntry("number of returns", "uint8", 1, points, [](P p) { return p.numberOfReturns; })));
    Json classes = attributeJson(
        scalarEntry("classification", "uint8", 1, points, [](P p) { return p.classification; }));
    std::vector<size_t> histogram(256, 0);
    for (P point : points) {
        ++histogram[point.classification];
    }
    classes["histogram"] = histogram;
    list.push_back(classes);
    list.push_back(attributeJson(
        scalarEntry("scan angle rank", "uint8", 1, points, [](P p) { return int{p.scanAngle}; })));
    list.push_back(
        attributeJson(scalarEntry("user data", "uint8", 1, points, [](P p) { return p.userData; })));
    list.push_back(
        attributeJson(scalarEntry("point source id", "uint16", 2, points, [](P p) { return p.sourceId; })));
    list.push_back(attributeJson(
        vectorEntry("rgb", "uint16", 2, points, [](P p, size_t channel) { return p.color[channel]; })));
    return list;
}

}  // namespace

std::string potreeMetadata(const StoreDescription& description, const std::vector<StorePoint>& points,
                           int32_t cubeSide, size_t firstChunkSize, size_t depth, StoreEncoding encoding) {
    std::array<double, 3> max{};
    for (size_t axis = 0; axis < 3; ++axis) {
        max[axis] = description.offset[axis] + cubeSide * description.scale;
    }
    Json json;
    json["version"] = "2.0";
    json["name"] = description.name;
    json["description"] = description.description;
    json["points"] = points.size();
    json["projection"] = "";
    json["hierarchy"] = {
        {"firstChunkSize", firstChunkSize}, {"stepSize", HIERARCHY_STEP_SIZE}, {"depth", depth}};
    json["offset"] = description.offset;
    json["scale"] = std::array<double, 3>{description.scale, description.scale, description.scale};
    json["spacing"] = cubeSide * description.scale / 128.0;
    json["boundingBox"] = {{"min", description.offset}, {"max", max}};
    json["encoding"] = encoding == StoreEncoding::Brotli ? "BROTLI" : "UNCOMPRESSED";
    json["attributes"] = attributesJson(description, points);
    return json.dump(1, '\t') + "\n";
}

}  // namespace Tool
