#include <core/File.h>
#include <octree/JsonDocument.h>
#include <octree/OpenStopped.h>
#include <octree/RandomAccessFile.h>
#include <octree/StoreError.h>

#include <nlohmann/json.hpp>

namespace Octree {

namespace {

constexpr std::uint64_t MAX_FILE_SIZE = std::uint64_t{1} << 20;  ///< Descriptions take kilobytes.
constexpr std::size_t MAX_NESTING = 32;
/// In memory for one of a file: a list's elements take two and JsonNode's size, and what grows doubles.
constexpr std::uint64_t PARSED_BYTES_PER_BYTE = 64;
constexpr std::uint64_t KEPT_BYTES_PER_BYTE = 16;

class TreeBuilder final : public nlohmann::json_sax<nlohmann::json> {
public:
    TreeBuilder(const std::filesystem::path& file, JsonNode& root, const std::stop_token& stop)
        : mFile(file), mRoot(root), mStop(stop) {}

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(std::int64_t value) override { return add(static_cast<double>(value)); }
    bool number_unsigned(std::uint64_t value) override { return add(value); }
    bool number_float(double value, const std::string&) override { return add(value); }
    bool string(std::string& value) override { return add(std::move(value)); }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return open<JsonNode::Object>(); }
    bool start_array(std::size_t) override { return open<JsonNode::List>(); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(std::string& text) override {
        std::get<JsonNode::Object>(mOpen.back()->value).emplace_back().first = std::move(text);
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) override {
        const std::string detail = error.what();
        const std::size_t end = detail.find(']');
        throw StoreError(mFile, "is not JSON: " + detail.substr(end == std::string::npos ? 0 : end + 2));
    }

private:
    template <class T>
    bool add(T value) {
        next().value.emplace<T>(std::move(value));
        return !mStop.stop_requested();
    }

    template <class T>
    bool open() {
        if (mOpen.size() == MAX_NESTING) {
            throw StoreError(mFile, "is nested deeper than any " + Core::pathToUtf8(mFile.filename()));
        }
        JsonNode& node = next();
        node.value.emplace<T>();
        mOpen.push_back(&node);
        return true;
    }

    bool close() {
        mOpen.pop_back();
        return true;
    }

    // Nothing is added to a list while one of its elements is open: pointers to those stay good.
    JsonNode& next() {
        if (mOpen.empty()) {
            return mRoot;
        }
        if (auto* const object = std::get_if<JsonNode::Object>(&mOpen.back()->value)) {
            return object->back().second;
        }
        return std::get<JsonNode::List>(mOpen.back()->value).emplace_back();
    }

    const std::filesystem::path& mFile;
    JsonNode& mRoot;
    const std::stop_token& mStop;
    std::vector<JsonNode*> mOpen;
};

}  // namespace

JsonDocument JsonDocument::read(const std::filesystem::path& file, MemoryBudget& budget,
                                const std::stop_token& stop) {
    const RandomAccessFile opened(file);
    if (opened.size() > MAX_FILE_SIZE) {
        throw StoreError(file, "is larger than any " + Core::pathToUtf8(file.filename()) + ": " +
                                   std::to_string(opened.size()) + " bytes");
    }
    budget.require(PARSED_BYTES_PER_BYTE * opened.size(), file);
    budget.keep(KEPT_BYTES_PER_BYTE * opened.size(), file);
    std::string text(static_cast<std::size_t>(opened.size()), '\0');
    if (!opened.readAll(text.data(), stop)) {
        throw OpenStopped();
    }
    return parse(text, file, stop);
}

JsonDocument JsonDocument::parse(std::string_view text, const std::filesystem::path& file,
                                 const std::stop_token& stop) {
    JsonDocument document(file);
    TreeBuilder builder(file, document.mRoot, stop);
    if (!nlohmann::json::sax_parse(text, &builder)) {
        throw OpenStopped();
    }
    return document;
}

}  // namespace Octree
