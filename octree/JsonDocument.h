#pragma once

#include <octree/JsonValue.h>
#include <octree/MemoryBudget.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace Octree {

/// A parsed value. Nested as deep as JsonDocument allows, so that copying and destroying it may recurse;
/// destroying it allocates nothing.
struct JsonNode {
    using List = std::vector<JsonNode>;
    /// As in the file; of equal keys the last one counts.
    using Object = std::vector<std::pair<std::string, JsonNode>>;

    std::variant<std::nullptr_t, bool, std::uint64_t, double, std::string, List, Object> value;
};

/// A store's description in memory. Immutable: may be shared by threads.
class JsonDocument {
public:
    /// Throws StoreError naming the file when it cannot be read, changes meanwhile, is larger than any
    /// description, is not JSON or is nested deeper than 32 levels; OpenStopped when stopped. Never recurses
    /// deeper than that. Memory is a few dozen times the file's size at most, and counted as if what is made
    /// of the document were kept.
    static JsonDocument read(const std::filesystem::path& file, MemoryBudget& budget,
                             const std::stop_token& stop = {});
    static JsonDocument parse(std::string_view text, const std::filesystem::path& file,
                              const std::stop_token& stop = {});

    /// Refers to the document, which must outlive it, and stay where it is.
    JsonValue root() const { return JsonValue(mRoot, "", mFile); }

private:
    explicit JsonDocument(const std::filesystem::path& file) : mFile(file) {}

    std::filesystem::path mFile;
    JsonNode mRoot;
};

}  // namespace Octree
