#include <core/File.h>
#include <octree/StoreError.h>
#include <octree/potree/Metadata.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <system_error>

namespace PoTree {

namespace {

using Json = nlohmann::json;
using Octree::StoreError;

constexpr std::uintmax_t MAX_FILE_SIZE = std::uintmax_t{16} << 20;
constexpr int MAX_NESTING = 32;
constexpr std::size_t MAX_BYTES_PER_POINT = 65536;
/// Keeps every difference and product of coordinates finite, also in float.
constexpr double MAX_COORDINATE = 1e30;
/// Int32 steps to either side of the offset, and some slack.
constexpr double MAX_STEPS = 2147483648.0 + 16.0;

/// A JSON value together with what its errors are reported as.
class Value {
public:
    Value(const Json& json, std::string key, const std::filesystem::path& file)
        : mJson(json), mKey(std::move(key)), mFile(file) {}

    bool has(const char* key) const { return mJson.is_object() && mJson.contains(key); }

    Value operator[](const char* key) const {
        if (!has(key)) {
            throw StoreError(mFile, "key \"" + childKey(key) + "\" is missing");
        }
        return Value(mJson[key], childKey(key), mFile);
    }

    std::string string() const {
        require(mJson.is_string(), "a string");
        return mJson.get<std::string>();
    }

    bool boolean() const {
        require(mJson.is_boolean(), "true or false");
        return mJson.get<bool>();
    }

    std::uint64_t count() const {
        require(mJson.is_number_unsigned(), "a whole number that is not negative");
        return mJson.get<std::uint64_t>();
    }

    double number() const {
        require(mJson.is_number() && std::abs(mJson.get<double>()) <= MAX_COORDINATE,
                "a number of magnitude up to 1e30");
        return mJson.get<double>();
    }

    double anyNumber() const {
        require(mJson.is_number(), "a number");
        return mJson.get<double>();
    }

    std::vector<Value> list() const {
        require(mJson.is_array(), "a list");
        std::vector<Value> values;
        for (const Json& element : mJson) {
            values.emplace_back(element, mKey + "[" + std::to_string(values.size()) + "]", mFile);
        }
        return values;
    }

    Math::Point<double, 3> point() const {
        const std::vector<Value> values = list();
        require(values.size() == 3, "a list of three numbers");
        return {values[0].number(), values[1].number(), values[2].number()};
    }

    Math::NBoundingBox<double, 3> box() const {
        Math::NBoundingBox<double, 3> result;
        result.min = (*this)["min"].point();
        result.max = (*this)["max"].point();
        require(!result.isEmpty(), "a box whose min is not above its max");
        return result;
    }

    void require(bool condition, const char* expected) const {
        if (!condition) {
            throw StoreError(mFile, "key \"" + mKey + "\" is not " + expected);
        }
    }

private:
    std::string childKey(const char* key) const { return mKey.empty() ? key : mKey + "." + key; }

    const Json& mJson;
    std::string mKey;
    const std::filesystem::path& mFile;
};

Json parseBounded(const std::string& text, const std::filesystem::path& file) {
    try {
        return Json::parse(text, [&file](int depth, Json::parse_event_t, const Json&) {
            if (depth > MAX_NESTING) {
                throw StoreError(file, "is nested deeper than any metadata.json");
            }
            return true;
        });
    } catch (const Json::exception& error) {
        std::string detail = error.what();
        detail.erase(0, detail.find(']') == std::string::npos ? 0 : detail.find(']') + 2);
        throw StoreError(file, "is not JSON: " + detail);
    }
}

std::vector<double> numbers(const Value& attribute, const char* key) {
    std::vector<double> result;
    if (attribute.has(key)) {
        for (const Value& value : attribute[key].list()) {
            result.push_back(value.anyNumber());
        }
    }
    return result;
}

Octree::AttributeInfo parseAttribute(const Value& json) {
    Octree::AttributeInfo result;
    result.name = json["name"].string();
    const std::uint64_t size = json["size"].count();
    json["size"].require(size >= 1 && size <= MAX_BYTES_PER_POINT, "a number from 1 to 65536");
    result.size = static_cast<std::size_t>(size);
    if (json.has("numElements")) {
        result.elementCount = static_cast<std::size_t>(json["numElements"].count());
    }
    if (json.has("type")) {
        result.type = json["type"].string();
    }
    if (json.has("description")) {
        result.description = json["description"].string();
    }
    result.min = numbers(json, "min");
    result.max = numbers(json, "max");
    return result;
}

void checkGrid(const Metadata& metadata, const Value& root) {
    for (int axis = 0; axis < 3; ++axis) {
        root["scale"].require(metadata.scale[axis] > 0.0, "positive");
        for (const auto& corner : {metadata.boundingBox.min, metadata.boundingBox.max}) {
            const double steps = (corner[axis] - metadata.offset[axis]) / metadata.scale[axis];
            root["boundingBox"].require(std::abs(steps) <= MAX_STEPS,
                                        "within reach of 32-bit coordinates of this scale and offset");
        }
    }
}

void parseAttributes(const Value& json, Metadata& metadata) {
    for (const Value& attribute : json.list()) {
        metadata.attributes.push_back(parseAttribute(attribute));
        metadata.bytesPerPoint += Metadata::encodedSize(metadata.attributes.back());
        if (metadata.attributes.back().name == "position" && (attribute.has("min") || attribute.has("max"))) {
            metadata.tightBox = attribute.box();
        }
    }
    json.require(metadata.find("position", 12) != nullptr,
                 "a list with an attribute \"position\" of 12 bytes");
    json.require(metadata.bytesPerPoint <= MAX_BYTES_PER_POINT, "of at most 65536 bytes a point");
}

}  // namespace

Metadata Metadata::read(const std::filesystem::path& file) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error) {
        throw StoreError(file, "cannot be read: " + error.message());
    }
    if (size > MAX_FILE_SIZE) {
        throw StoreError(file, "is larger than any metadata.json: " + std::to_string(size) + " bytes");
    }
    return parse(Core::readLocalFile(file), file);
}

Metadata Metadata::parse(const std::string& text, const std::filesystem::path& file) {
    const Json json = parseBounded(text, file);
    const Value root(json, "", file);
    if (const std::string version = root["version"].string(); version != "2.0") {
        throw StoreError(file, "version \"" + version + "\" is not supported, only \"2.0\" is");
    }
    Metadata result;
    result.encoding = root["encoding"].string();
    if (result.encoding != "BROTLI") {
        throw StoreError(file, "encoding \"" + result.encoding + "\" is not supported, only \"BROTLI\" is");
    }
    if (root.has("name")) {
        result.name = root["name"].string();
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
    result.tightBox = result.boundingBox;
    parseAttributes(root["attributes"], result);
    return result;
}

std::size_t Metadata::encodedSize(const Octree::AttributeInfo& attribute) {
    if (attribute.name == "position") {
        return 16;
    }
    return attribute.name == "rgb" ? 8 : attribute.size;
}

const Octree::AttributeInfo* Metadata::find(const std::string& wanted, std::size_t size) const {
    const auto found = std::find_if(attributes.begin(), attributes.end(), [&](const auto& attribute) {
        return attribute.name == wanted && attribute.size == size;
    });
    return found == attributes.end() ? nullptr : &*found;
}

}  // namespace PoTree
