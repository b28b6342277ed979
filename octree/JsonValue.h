#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace Octree {

/// Parses a store's description. Throws StoreError naming the file when it is not JSON or nested deeper than
/// 32 levels; never recurses.
nlohmann::json parseJson(const std::string& text, const std::filesystem::path& file);

/// A JSON value and its place in a file. A value that is missing or of another kind than asked for is a
/// StoreError naming the file and the key. Refers to both: they must outlive it.
class JsonValue {
public:
    JsonValue(const nlohmann::json& json, std::string key, const std::filesystem::path& file);

    bool has(const char* key) const;
    JsonValue operator[](const char* key) const;

    std::string string() const;
    bool boolean() const;
    /// A whole number that is not negative.
    std::uint64_t count() const;
    /// Of magnitude up to 1e30, which keeps differences and products of coordinates finite, also in float.
    double number() const;
    double anyNumber() const;
    std::vector<JsonValue> list() const;
    Math::Point<double, 3> point() const;
    /// An object with the points "min" and "max", min not above max.
    Math::NBoundingBox<double, 3> box() const;

    /// The error is that the value "is not <expected>".
    void require(bool condition, const char* expected) const;

private:
    const nlohmann::json& mJson;
    std::string mKey;
    const std::filesystem::path& mFile;
};

}  // namespace Octree
