#pragma once

#include <octree/Limits.h>
#include <octree/NodePointData.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace Octree {

/// Counts the memory that a store's files ask for, before it is allocated. Any number of threads at once.
class MemoryBudget {
public:
    explicit MemoryBudget(const Limits& limits = {}) : mLimit(limits.memory) {}

    /// Throws StoreError naming the file and, unless it is empty, the node when so many bytes are not left.
    /// Counts nothing: whether a node can be read must not depend on what other threads read.
    void require(std::uint64_t bytes, const std::filesystem::path& file, std::string_view node = {}) const;
    /// The same, and counts them until the store is closed.
    void keep(std::uint64_t bytes, const std::filesystem::path& file, std::string_view node = {});

private:
    const std::uint64_t mLimit;
    std::atomic<std::uint64_t> mKept{0};
};

/// Bytes that so many points take in the columns that data wants.
std::uint64_t columnBytes(const NodePointData& data, std::uint64_t pointCount);

}  // namespace Octree
