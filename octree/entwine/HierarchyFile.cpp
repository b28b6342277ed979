#include <octree/NodeKey.h>
#include <octree/RandomAccessFile.h>
#include <octree/StoreError.h>
#include <octree/entwine/HierarchyFile.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

namespace Entwine {

namespace {

using Octree::NodeKey;
using Octree::OctreeNodeId;
using Octree::StoreError;

/// More than a million nodes in one file, where stores have thousands.
constexpr std::uint64_t MAX_FILE_SIZE = std::uint64_t{32} << 20;
/// In memory for one of a file while it is parsed: "0-0-0-0":1, becomes an entry in a list that doubles.
constexpr std::uint64_t PARSED_BYTES_PER_BYTE = 12;
constexpr std::uint64_t MAX_POINT_COUNT = 0xffffffffu;
constexpr std::size_t MAX_SHOWN_KEY = 100;

/// Takes the file's keys and counts as the parser meets them.
class PageBuilder final : public nlohmann::json_sax<nlohmann::json> {
public:
    PageBuilder(const std::filesystem::path& file, OctreeNodeId root, const std::stop_token& stop)
        : mFile(file), mRoot(root), mStop(stop) {}

    std::vector<Octree::HierarchyEntry>& entries() { return mEntries; }

    bool start_object(std::size_t) override {
        if (mIsOpen) {
            failHere("is not a point count");
        }
        mIsOpen = true;
        return true;
    }
    bool end_object() override { return true; }

    bool key(std::string& text) override {
        mKey = NodeKey::parse(text);
        mKeyText = text.substr(0, MAX_SHOWN_KEY);
        if (!mKey) {
            failHere("is not the name of a node");
        }
        return !mStop.stop_requested();
    }

    bool number_integer(std::int64_t value) override {
        if (value != -1 || mKey == NodeKey(mRoot)) {
            failHere("has " + std::to_string(value) + " points");
        }
        add(0, true);
        return true;
    }

    bool number_unsigned(std::uint64_t value) override {
        if (value > MAX_POINT_COUNT) {
            failHere("has " + std::to_string(value) + " points, more than a node may have");
        }
        add(value, false);
        return true;
    }

    bool null() override { failHere("is not a point count"); }
    bool boolean(bool) override { failHere("is not a point count"); }
    bool number_float(double, const std::string&) override { failHere("is not a point count"); }
    bool string(std::string&) override { failHere("is not a point count"); }
    bool binary(binary_t&) override { failHere("is not a point count"); }
    bool start_array(std::size_t) override { failHere("is not a point count"); }
    bool end_array() override { return true; }

    bool parse_error(std::size_t position, const std::string&, const nlohmann::json::exception&) override {
        throw StoreError(mFile, "is not JSON at byte " + std::to_string(position));
    }

private:
    [[noreturn]] void failHere(const std::string& problem) const {
        if (mKeyText.empty()) {
            throw StoreError(mFile, "is not an object of point counts");
        }
        throw StoreError(mFile, mKeyText, problem);
    }

    void add(std::uint64_t pointCount, bool isLink) {
        if (!mKey) {
            failHere("is not below any");
        }
        const OctreeNodeId id = mKey->id();
        if (mKey->depth > OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
            return;
        }
        mEntries.push_back({id, static_cast<std::uint32_t>(pointCount), isLink});
    }

    const std::filesystem::path& mFile;
    const OctreeNodeId mRoot;
    const std::stop_token& mStop;
    std::vector<Octree::HierarchyEntry> mEntries;
    bool mIsOpen = false;
    std::optional<NodeKey> mKey;
    std::string mKeyText;
};

}  // namespace

std::unique_ptr<const Octree::HierarchyPage> readHierarchyFile(const std::filesystem::path& path,
                                                               OctreeNodeId root,
                                                               Octree::MemoryBudget& budget,
                                                               const std::stop_token& stop) {
    const Octree::RandomAccessFile file(path);
    if (file.size() > MAX_FILE_SIZE) {
        throw StoreError(path,
                         "is larger than any hierarchy file: " + std::to_string(file.size()) + " bytes");
    }
    budget.require(PARSED_BYTES_PER_BYTE * file.size(), path);
    std::string text(static_cast<std::size_t>(file.size()), '\0');
    if (!file.readAll(text.data(), stop)) {
        return nullptr;
    }
    PageBuilder builder(path, root, stop);
    if (!nlohmann::json::sax_parse(text, &builder)) {
        return nullptr;
    }
    return Octree::HierarchyPage::make(std::move(builder.entries()), root, false, path, budget, stop);
}

}  // namespace Entwine
