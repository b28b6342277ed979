#include <octree/JsonDocument.h>
#include <octree/JsonValue.h>
#include <octree/Printable.h>
#include <octree/StoreError.h>

#include <algorithm>
#include <cmath>

namespace Octree {

namespace {

constexpr double MAX_COORDINATE = 1e15;
constexpr std::size_t MAX_LABEL = 256;

}  // namespace

JsonValue::JsonValue(const JsonNode& node, std::string key, const std::filesystem::path& file)
    : mNode(node), mKey(std::move(key)), mFile(file) {}

const JsonNode* JsonValue::find(const char* key) const {
    const auto* const object = std::get_if<JsonNode::Object>(&mNode.value);
    if (object == nullptr) {
        return nullptr;
    }
    const auto found = std::find_if(object->rbegin(), object->rend(),
                                    [key](const auto& member) { return member.first == key; });
    return found == object->rend() ? nullptr : &found->second;
}

JsonValue JsonValue::operator[](const char* key) const {
    const std::string path = mKey.empty() ? key : mKey + "." + key;
    const JsonNode* const found = find(key);
    if (found == nullptr) {
        throw StoreError(mFile, "key \"" + path + "\" is missing");
    }
    return JsonValue(*found, path, mFile);
}

std::string JsonValue::string() const {
    const auto* const text = std::get_if<std::string>(&mNode.value);
    require(text != nullptr, "a string");
    return *text;
}

std::string JsonValue::label() const {
    return printable(string(), MAX_LABEL);
}

bool JsonValue::boolean() const {
    const auto* const value = std::get_if<bool>(&mNode.value);
    require(value != nullptr, "true or false");
    return *value;
}

std::uint64_t JsonValue::count() const {
    const auto* const value = std::get_if<std::uint64_t>(&mNode.value);
    require(value != nullptr, "a whole number that is not negative");
    return *value;
}

double JsonValue::number() const {
    const char* const expected = "a number of magnitude up to 1e15";
    require(std::holds_alternative<std::uint64_t>(mNode.value) || std::holds_alternative<double>(mNode.value),
            expected);
    const double value = anyNumber();
    require(std::abs(value) <= MAX_COORDINATE, expected);
    return value;
}

double JsonValue::anyNumber() const {
    if (const auto* const whole = std::get_if<std::uint64_t>(&mNode.value)) {
        return static_cast<double>(*whole);
    }
    const auto* const value = std::get_if<double>(&mNode.value);
    require(value != nullptr, "a number");
    return *value;
}

std::vector<JsonValue> JsonValue::list(std::size_t maxCount) const {
    const auto* const elements = std::get_if<JsonNode::List>(&mNode.value);
    require(elements != nullptr, "a list");
    require(elements->size() <= maxCount, "a list of at most " + std::to_string(maxCount) + " elements");
    std::vector<JsonValue> values;
    values.reserve(elements->size());
    for (const JsonNode& element : *elements) {
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

void JsonValue::require(bool condition, const std::string& expected) const {
    if (!condition) {
        throw StoreError(mFile, "key \"" + mKey + "\" is not " + expected);
    }
}

}  // namespace Octree
