#pragma once

#include <octree/MemoryBudget.h>
#include <octree/RandomAccessFile.h>

#include <cstdint>
#include <filesystem>
#include <future>
#include <memory>
#include <stop_token>
#include <string>

namespace PoTree {

/// Reads byte ranges of a store's hierarchy.bin and octree.bin. Any number of threads at once. A range that
/// does not lie in the file is a StoreError before anything is allocated.
class FileLoader {
public:
    /// Throws StoreError when one of the two files cannot be opened.
    explicit FileLoader(const std::filesystem::path& folder, std::shared_ptr<Octree::MemoryBudget> budget =
                                                                 std::make_shared<Octree::MemoryBudget>());

    /// What bytes and all that is made of them are counted against.
    Octree::MemoryBudget& budget() const { return *mBudget; }

    const std::filesystem::path& hierarchyFile() const { return mHierarchy.path(); }
    const std::filesystem::path& octreeFile() const { return mOctree.path(); }
    std::uint64_t octreeSize() const { return mOctree.size(); }

    /// False when stopped; bytes are then unspecified.
    bool fetchHierarchyChunk(std::uint64_t offset, std::uint64_t size, std::string& bytes,
                             std::stop_token stop) const;

    /// The future is ready on return: it holds the bytes, a StoreError or, when stopped, a FetchCancelled.
    std::future<std::string> fetchOctreeChunk(std::uint64_t offset, std::uint64_t size,
                                              std::stop_token stop) const;

private:
    std::shared_ptr<Octree::MemoryBudget> mBudget;
    Octree::RandomAccessFile mHierarchy;
    Octree::RandomAccessFile mOctree;
};

}  // namespace PoTree
