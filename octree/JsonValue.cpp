#include <core/File.h>
#include <octree/JsonValue.h>
#include <octree/StoreError.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

namespace Octree {

namespace {

using Json = nlohmann::json;

constexpr int MAX_NESTING = 32;
constexpr double MAX_COORDINATE = 1e30;

}  // namespace

Json parseJson(const std::string& text, const std::filesystem::path& file) {
    try {
        return Json::parse(text, [&file](int depth, Json::parse_event_t, const Json&) {
            if (depth > MAX_NESTING) {
                throw StoreError(file, "is nested deeper than any " + Core::pathToUtf8(file.filename()));
            }
            return true;
        });
    } catch (const Json::exception& error) {
        std::string detail = error.what();
        detail.erase(0, detail.find(']') == std::string::npos ? 0 : detail.find(']') + 2);
        throw StoreError(file, "is not JSON: " + detail);
    }
}

JsonValue::JsonValue(const Json& json, std::string key, const std::filesystem::path& file)
    : mJson(json), mKey(std::move(key)), mFile(file) {}

bool JsonValue::has(const char* key) const {
    return mJson.is_object() && mJson.contains(key);
}

JsonValue JsonValue::operator[](const char* key) const {
    const std::string path = mKey.empty() ? key : mKey + "." + key;
    if (!has(key)) {
        throw StoreError(mFile, "key \"" + path + "\" is missing");
    }
    return JsonValue(mJson[key], path, mFile);
}

std::string JsonValue::string() const {
    require(mJson.is_string(), "a string");
    return mJson.get<std::string>();
}

bool JsonValue::boolean() const {
    require(mJson.is_boolean(), "true or false");
    return mJson.get<bool>();
}

std::uint64_t JsonValue::count() const {
    require(mJson.is_number_unsigned(), "a whole number that is not negative");
    return mJson.get<std::uint64_t>();
}

double JsonValue::number() const {
    require(mJson.is_number() && std::abs(mJson.get<double>()) <= MAX_COORDINATE,
            "a number of magnitude up to 1e30");
    return mJson.get<double>();
}

double JsonValue::anyNumber() const {
    require(mJson.is_number(), "a number");
    return mJson.get<double>();
}

std::vector<JsonValue> JsonValue::list() const {
    require(mJson.is_array(), "a list");
    std::vector<JsonValue> values;
    for (const Json& element : mJson) {
        values.emplace_back(element, mKey + "[" + std::to_string(values.size()) + "]", mFile);
    }
    return values;
}

Math::Point<double, 3> JsonValue::point() const {
    const std::vector<JsonValue> values = list();
    require(values.size() == 3, "a list of three numbers");
    return {values[0].number(), values[1].number(), values[2].number()};
}

Math::NBoundingBox<double, 3> JsonValue::box() const {
    Math::NBoundingBox<double, 3> result;
    result.min = (*this)["min"].point();
    result.max = (*this)["max"].point();
    require(!result.isEmpty(), "a box whose min is not above its max");
    return result;
}

void JsonValue::require(bool condition, const char* expected) const {
    if (!condition) {
        throw StoreError(mFile, "key \"" + mKey + "\" is not " + expected);
    }
}

}  // namespace Octree
