#include <octree/StoreError.h>
#include <octree/potree/FetchCancelled.h>
#include <octree/potree/FileLoader.h>

#include <exception>
#include <utility>

namespace PoTree {

namespace {

bool fetch(const Octree::RandomAccessFile& file, const Octree::MemoryBudget& budget, std::uint64_t offset,
           std::uint64_t size, std::string& bytes, const std::stop_token& stop) {
    if (!file.contains(offset, size)) {
        throw Octree::StoreError(file.path(), std::to_string(size) + " bytes at " + std::to_string(offset) +
                                                  " lie outside the file of " + std::to_string(file.size()) +
                                                  " bytes");
    }
    budget.require(size, file.path());
    bytes.resize(static_cast<std::size_t>(size));
    return file.read(offset, bytes.size(), bytes.data(), stop);
}

}  // namespace

FileLoader::FileLoader(const std::filesystem::path& folder, std::shared_ptr<Octree::MemoryBudget> budget)
    : mBudget(std::move(budget)), mHierarchy(folder / "hierarchy.bin"), mOctree(folder / "octree.bin") {}

bool FileLoader::fetchHierarchyChunk(std::uint64_t offset, std::uint64_t size, std::string& bytes,
                                     std::stop_token stop) const {
    return fetch(mHierarchy, *mBudget, offset, size, bytes, stop);
}

std::future<std::string> FileLoader::fetchOctreeChunk(std::uint64_t offset, std::uint64_t size,
                                                      std::stop_token stop) const {
    std::promise<std::string> result;
    try {
        std::string bytes;
        if (!fetch(mOctree, *mBudget, offset, size, bytes, stop)) {
            throw FetchCancelled();
        }
        result.set_value(std::move(bytes));
    } catch (...) {
        result.set_exception(std::current_exception());
    }
    return result.get_future();
}

}  // namespace PoTree
