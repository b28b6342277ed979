#include <octree/JsonDocument.h>
#include <octree/StoreError.h>
#include <octree/potree/Metadata.h>

#include <algorithm>
#include <cmath>

namespace PoTree {

namespace {

using Octree::StoreError;

constexpr std::size_t MAX_BYTES_PER_POINT = 65536;
/// Sides of a cube that was written with few digits; a step of the grid is let pass as well.
constexpr double CUBE_TOLERANCE = 1e-6;
/// Int32 steps to either side of the offset, and some slack.
constexpr double MAX_STEPS = 2147483648.0 + 16.0;

std::vector<double> numbers(const Octree::JsonValue& attribute, const char* key) {
    std::vector<double> result;
    if (attribute.has(key)) {
        for (const Octree::JsonValue& value : attribute[key].list()) {
            result.push_back(value.anyNumber());
        }
    }
    return result;
}

Octree::AttributeInfo parseAttribute(const Octree::JsonValue& json) {
    Octree::AttributeInfo result;
    result.name = json["name"].label();
    const std::uint64_t size = json["size"].count();
    json["size"].require(size >= 1 && size <= MAX_BYTES_PER_POINT, "a number from 1 to 65536");
    result.size = static_cast<std::size_t>(size);
    if (json.has("numElements")) {
        result.elementCount = static_cast<std::size_t>(json["numElements"].count());
    }
    if (json.has("type")) {
        result.type = json["type"].label();
    }
    if (json.has("description")) {
        result.description = json["description"].label();
    }
    result.min = numbers(json, "min");
    result.max = numbers(json, "max");
    return result;
}

void checkCube(const Metadata& metadata, const Octree::JsonValue& json) {
    const Math::Point<double, 3> size = metadata.boundingBox.max - metadata.boundingBox.min;
    const double side = std::max({size[0], size[1], size[2]});
    for (int axis = 0; axis < 3; ++axis) {
        json.require(side - size[axis] <= CUBE_TOLERANCE * side + metadata.scale[axis], "a cube");
    }
}

void checkGrid(const Metadata& metadata, const Octree::JsonValue& root) {
    for (int axis = 0; axis < 3; ++axis) {
        root["scale"].require(metadata.scale[axis] > 0.0, "positive");
        for (const auto& corner : {metadata.boundingBox.min, metadata.boundingBox.max}) {
            const double steps = (corner[axis] - metadata.offset[axis]) / metadata.scale[axis];
            root["boundingBox"].require(std::abs(steps) <= MAX_STEPS,
                                        "within reach of 32-bit coordinates of this scale and offset");
        }
    }
}

void parseVersion(const Octree::JsonValue& json, const std::filesystem::path& file) {
    const std::string version = json.string();
    if (version.rfind("1.", 0) == 0) {
        throw StoreError(file, "belongs to a Potree " + version + " store, only Potree 2.0 is supported");
    }
    if (version != "2.0") {
        throw StoreError(file, "version \"" + version + "\" is not supported, only \"2.0\" is");
    }
}

ChunkLayout parseEncoding(const std::string& encoding, const std::filesystem::path& file) {
    if (encoding == "BROTLI") {
        return ChunkLayout::BrotliColumns;
    }
    if (encoding == "UNCOMPRESSED" || encoding == "DEFAULT") {
        return ChunkLayout::Records;
    }
    throw StoreError(file, "encoding \"" + encoding +
                               "\" is not supported, only \"BROTLI\", \"UNCOMPRESSED\" and \"DEFAULT\" are");
}

void parseAttributes(const Octree::JsonValue& json, StoreRole role, Metadata& metadata) {
    for (const Octree::JsonValue& attribute : json.list()) {
        metadata.attributes.push_back(parseAttribute(attribute));
        metadata.bytesPerPoint += metadata.chunkSize(metadata.attributes.back());
        if (metadata.attributes.back().name == "position" && (attribute.has("min") || attribute.has("max"))) {
            metadata.tightBox = attribute.box();
        }
    }
    json.require(role == StoreRole::ExternalAttributes || metadata.find("position", 12) != nullptr,
                 "a list with an attribute \"position\" of 12 bytes");
    json.require(metadata.bytesPerPoint > 0, "a list of at least one attribute");
    json.require(metadata.bytesPerPoint <= MAX_BYTES_PER_POINT, "of at most 65536 bytes a point");
}

}  // namespace

Metadata Metadata::read(const std::filesystem::path& file, StoreRole role, Octree::MemoryBudget& budget,
                        const std::stop_token& stop) {
    const auto document = Octree::JsonDocument::read(file, budget, stop);
    return make(document.root(), file, role);
}

Metadata Metadata::parse(const std::string& text, const std::filesystem::path& file, StoreRole role) {
    const auto document = Octree::JsonDocument::parse(text, file);
    return make(document.root(), file, role);
}

Metadata Metadata::make(const Octree::JsonValue& root, const std::filesystem::path& file, StoreRole role) {
    parseVersion(root["version"], file);
    Metadata result;
    result.encoding = root["encoding"].string();
    result.layout = parseEncoding(result.encoding, file);
    if (root.has("name")) {
        result.name = root["name"].label();
    }
    if (root.has("nodeVisibility")) {
        result.hasNodeVisibility = root["nodeVisibility"].boolean();
    }
    result.pointCount = root["points"].count();
    result.firstChunkSize = root["hierarchy"]["firstChunkSize"].count();
    result.spacing = root["spacing"].number();
    root["spacing"].require(result.spacing >= 0.0, "a length");
    result.scale = root["scale"].point();
    result.offset = root["offset"].point();
    result.boundingBox = root["boundingBox"].box();
    checkGrid(result, root);
    if (role == StoreRole::Cloud) {
        checkCube(result, root["boundingBox"]);
    }
    result.tightBox = result.boundingBox;
    parseAttributes(root["attributes"], role, result);
    return result;
}

std::size_t Metadata::chunkSize(const Octree::AttributeInfo& attribute) const {
    if (layout == ChunkLayout::BrotliColumns && attribute.name == "position") {
        return 16;
    }
    return layout == ChunkLayout::BrotliColumns && attribute.name == "rgb" ? 8 : attribute.size;
}

const Octree::AttributeInfo* Metadata::find(const std::string& wanted, std::size_t size) const {
    const auto found = std::find_if(attributes.begin(), attributes.end(), [&](const auto& attribute) {
        return attribute.name == wanted && attribute.size == size;
    });
    return found == attributes.end() ? nullptr : &*found;
}

}  // namespace PoTree
