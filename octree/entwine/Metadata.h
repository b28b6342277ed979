#pragma once

#include <octree/JsonValue.h>
#include <octree/MemoryBudget.h>
#include <octree/tiles/StoreDescription.h>

#include <filesystem>
#include <stop_token>
#include <string>

namespace Entwine {

/// What a store's ept.json says.
struct Metadata : Tiles::StoreDescription {
    /// Throws StoreError naming the file and the key that is missing or wrong, OpenStopped when stopped.
    static Metadata read(const std::filesystem::path& file, Octree::MemoryBudget& budget,
                         const std::stop_token& stop = {});
    static Metadata parse(const std::string& text, const std::filesystem::path& file);

private:
    static Metadata make(const Octree::JsonValue& root, const std::filesystem::path& file);
};

}  // namespace Entwine
