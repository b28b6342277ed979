#include <octree/JsonDocument.h>
#include <octree/StoreError.h>
#include <octree/entwine/Metadata.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace Entwine {

namespace {

using Octree::JsonValue;
using Octree::StoreError;
using Tiles::Dimension;
using Tiles::NumberType;

constexpr std::size_t MAX_RECORD_SIZE = 65536;
constexpr std::uint64_t MAX_SPAN = std::uint64_t{1} << 30;
/// Sides of a cube that was written with few digits.
constexpr double CUBE_TOLERANCE = 1e-6;
/// Doubles hold every integer up to here.
constexpr double MAX_STEPS = 9007199254740992.0;

NumberType parseType(const JsonValue& json) {
    const std::string type = json["type"].string();
    const std::uint64_t size = json["size"].count();
    if (type == "float") {
        json["size"].require(size == 4 || size == 8, "4 or 8, which a float has");
        return size == 4 ? NumberType::Float : NumberType::Double;
    }
    json["type"].require(type == "signed" || type == "unsigned", "\"signed\", \"unsigned\" or \"float\"");
    json["size"].require(size == 1 || size == 2 || size == 4 || size == 8, "1, 2, 4 or 8");
    const bool isSigned = type == "signed";
    switch (size) {
        case 1:
            return isSigned ? NumberType::Int8 : NumberType::Uint8;
        case 2:
            return isSigned ? NumberType::Int16 : NumberType::Uint16;
        case 4:
            return isSigned ? NumberType::Int32 : NumberType::Uint32;
        default:
            return isSigned ? NumberType::Int64 : NumberType::Uint64;
    }
}

Dimension parseDimension(const JsonValue& json) {
    Dimension result;
    result.name = json["name"].label();
    result.type = parseType(json);
    if (json.has("scale")) {
        result.scale = json["scale"].number();
        json["scale"].require(result.scale > 0.0, "positive");
    }
    if (json.has("offset")) {
        result.offset = json["offset"].number();
    }
    if (json.has("minimum")) {
        result.minimum = json["minimum"].anyNumber();
    }
    if (json.has("maximum")) {
        result.maximum = json["maximum"].anyNumber();
    }
    return result;
}

void parseSchema(const JsonValue& json, Metadata& metadata) {
    std::set<std::string> names;
    for (const JsonValue& value : json.list()) {
        Dimension dimension = parseDimension(value);
        value["name"].require(names.insert(dimension.name).second, "a name of its own");
        dimension.recordOffset = metadata.recordSize;
        metadata.recordSize += sizeOf(dimension.type);
        json.require(metadata.recordSize <= MAX_RECORD_SIZE, "of at most 65536 bytes a point");
        metadata.schema.push_back(std::move(dimension));
    }
    for (const char* name : {"X", "Y", "Z"}) {
        json.require(metadata.find(name) != nullptr, "a list with the dimensions \"X\", \"Y\" and \"Z\"");
    }
}

Math::NBoundingBox<double, 3> parseBounds(const JsonValue& json) {
    const std::vector<JsonValue> values = json.list();
    json.require(values.size() == 6, "a list of six numbers");
    Math::NBoundingBox<double, 3> result;
    result.min = {values[0].number(), values[1].number(), values[2].number()};
    result.max = {values[3].number(), values[4].number(), values[5].number()};
    json.require(!result.isEmpty(), "a box whose minimum is not above its maximum");
    return result;
}

void checkCube(const JsonValue& json, const Math::NBoundingBox<double, 3>& cube) {
    const Math::Point<double, 3> size = cube.max - cube.min;
    const double side = std::max({size[0], size[1], size[2]});
    for (int axis = 0; axis < 3; ++axis) {
        json.require(side - size[axis] <= CUBE_TOLERANCE * side && size[axis] > 0.0, "a cube");
    }
}

void checkGrid(const JsonValue& json, const Metadata& metadata) {
    for (int axis = 0; axis < 3; ++axis) {
        const Dimension& dimension = *metadata.find(std::string(1, "XYZ"[axis]));
        for (const auto& corner : {metadata.bounds.min, metadata.bounds.max}) {
            json.require(std::abs(corner[axis] - dimension.offset) / dimension.scale <= MAX_STEPS,
                         "within reach of the scale and offset of \"X\", \"Y\" and \"Z\"");
        }
    }
}

void checkKind(const JsonValue& root, const std::filesystem::path& file) {
    const std::string version = root["version"].string();
    // Stores from before the first release of the format say 0.0.0.
    if (version != "0.0.0" && version.rfind("1.0.", 0) != 0 && version.rfind("1.1.", 0) != 0) {
        throw StoreError(file, "version \"" + version + "\" is not supported, only 1.0 and 1.1 are");
    }
    if (const std::string type = root["hierarchyType"].string(); type != "json") {
        throw StoreError(file, "hierarchyType \"" + type + "\" is not supported, only \"json\" is");
    }
}

}  // namespace

Metadata Metadata::read(const std::filesystem::path& file, Octree::MemoryBudget& budget,
                        const std::stop_token& stop) {
    const auto document = Octree::JsonDocument::read(file, budget, stop);
    return make(document.root(), file);
}

Metadata Metadata::parse(const std::string& text, const std::filesystem::path& file) {
    const auto document = Octree::JsonDocument::parse(text, file);
    return make(document.root(), file);
}

Metadata Metadata::make(const JsonValue& root, const std::filesystem::path& file) {
    checkKind(root, file);
    Metadata result;
    result.dataType = root["dataType"].string();
    result.pointCount = root["points"].count();
    const JsonValue span = root[root.has("span") || !root.has("ticks") ? "span" : "ticks"];
    const std::uint64_t cells = span.count();
    span.require(cells >= 1 && cells <= MAX_SPAN, "a number from 1 to 2^30");
    result.bounds = parseBounds(root["bounds"]);
    checkCube(root["bounds"], result.bounds);
    result.spacing = (result.bounds.max[0] - result.bounds.min[0]) / static_cast<double>(cells);
    result.boundsConforming = result.bounds;
    if (root.has("boundsConforming")) {
        result.boundsConforming = parseBounds(root["boundsConforming"]);
    }
    parseSchema(root["schema"], result);
    checkGrid(root["bounds"], result);
    return result;
}

}  // namespace Entwine
