#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Octree {

struct JsonNode;

/// A JSON value and its place in a file. A value that is missing or of another kind than asked for is a
/// StoreError naming the file and the key. Refers to both: they must outlive it.
class JsonValue {
public:
    JsonValue(const JsonNode& node, std::string key, const std::filesystem::path& file);

    bool has(const char* key) const { return find(key) != nullptr; }
    JsonValue operator[](const char* key) const;

    std::string string() const;
    /// The same, for people to read: without control characters, and not longer than some hundred.
    std::string label() const;
    bool boolean() const;
    /// A whole number that is not negative.
    std::uint64_t count() const;
    /// Of magnitude up to 1e15, which keeps products of coordinates finite and exact enough, also in float
    /// and in another unit.
    double number() const;
    double anyNumber() const;
    /// Of at most maxCount elements: each costs more than its text.
    std::vector<JsonValue> list(std::size_t maxCount = 65536) const;
    Math::Point<double, 3> point() const;
    /// An object with the points "min" and "max", min not above max.
    Math::NBoundingBox<double, 3> box() const;

    /// The error is that the value "is not <expected>".
    void require(bool condition, const std::string& expected) const;

private:
    const JsonNode* find(const char* key) const;

    const JsonNode& mNode;
    std::string mKey;
    const std::filesystem::path& mFile;
};

}  // namespace Octree
