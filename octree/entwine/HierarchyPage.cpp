#include <octree/RandomAccessFile.h>
#include <octree/StoreError.h>
#include <octree/entwine/HierarchyPage.h>
#include <octree/entwine/NodeKey.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace Entwine {

namespace {

using Octree::OctreeNodeId;
using Octree::StoreError;

/// More than a million nodes in one file, where stores have thousands.
constexpr std::uint64_t MAX_FILE_SIZE = std::uint64_t{32} << 20;
constexpr std::uint64_t MAX_POINT_COUNT = 0xffffffffu;
constexpr std::size_t MAX_SHOWN_KEY = 100;

/// Takes the file's keys and counts as the parser meets them.
class PageBuilder final : public nlohmann::json_sax<nlohmann::json> {
public:
    PageBuilder(const std::filesystem::path& file, OctreeNodeId root, HierarchyPage& page)
        : mFile(file), mRoot(root), mPage(page) {}

    void finish() {
        for (auto& [id, node] : mPage.nodes) {
            if (id != mRoot) {
                addToParent(id);
            }
        }
    }

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
        return true;
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
        if (!isBelowRoot(id)) {
            failHere("is not below " + NodeKey(mRoot).text());
        }
        if (mKey->depth > OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
            return;
        }
        const auto [node, isNew] = mPage.nodes.try_emplace(id);
        if (!isNew) {
            failHere("is there twice");
        }
        node->second.pointCount = pointCount;
        node->second.isLink = isLink;
    }

    bool isBelowRoot(OctreeNodeId id) const {
        return id.level() >= mRoot.level() && id.code() >> (3 * (id.level() - mRoot.level())) == mRoot.code();
    }

    void addToParent(OctreeNodeId id) {
        const auto parent = mPage.nodes.find(id.parent());
        if (parent == mPage.nodes.end()) {
            throw StoreError(mFile, NodeKey(id).text(), "its parent is missing");
        }
        if (parent->second.isLink) {
            throw StoreError(mFile, NodeKey(id).text(), "its parent stands in another file");
        }
        parent->second.childMask =
            static_cast<std::uint8_t>(parent->second.childMask | 1u << id.childIndex());
    }

    const std::filesystem::path& mFile;
    const OctreeNodeId mRoot;
    HierarchyPage& mPage;
    bool mIsOpen = false;
    std::optional<NodeKey> mKey;
    std::string mKeyText;
};

}  // namespace

std::unique_ptr<const HierarchyPage> HierarchyPage::read(const std::filesystem::path& path, OctreeNodeId root,
                                                         const std::stop_token& stop) {
    const Octree::RandomAccessFile file(path);
    if (file.size() > MAX_FILE_SIZE) {
        throw StoreError(path,
                         "is larger than any hierarchy file: " + std::to_string(file.size()) + " bytes");
    }
    std::string text(static_cast<std::size_t>(file.size()), '\0');
    if (!file.read(0, text.size(), text.data(), stop)) {
        return nullptr;
    }
    auto page = std::make_unique<HierarchyPage>();
    PageBuilder builder(path, root, *page);
    nlohmann::json::sax_parse(text, &builder);
    builder.finish();
    if (page->nodes.empty() && root.isRoot()) {
        page->nodes.try_emplace(root);
    }
    if (page->nodes.find(root) == page->nodes.end()) {
        throw StoreError(path, NodeKey(root).text(), "is missing");
    }
    return page;
}

}  // namespace Entwine
