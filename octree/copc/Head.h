#pragma once

#include <math/NBoundingBox.h>
#include <octree/HierarchyPage.h>
#include <octree/MemoryBudget.h>
#include <octree/RandomAccessFile.h>
#include <octree/las/LasFile.h>
#include <octree/tiles/StoreDescription.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <stop_token>
#include <vector>

namespace Copc {

/// What stands before the points of a COPC file: the LAS header, its records, of which the first describes
/// the octree, all checked (COPC 1.0 specification). Not changed afterwards: may be shared by threads.
class Head {
public:
    /// Up to the end of the record that describes the octree.
    static constexpr std::size_t MIN_SIZE = 375 + 54 + 160;

    /// Whether a file begins with these bytes, MIN_SIZE at least, that is a COPC file.
    static bool isCopc(std::span<const std::byte> bytes);

    /// Throws StoreError naming the file, and OpenStopped when stopped.
    Head(const Octree::RandomAccessFile& file, Octree::MemoryBudget& budget, const std::stop_token& stop);

    Head(const Head&) = delete;
    Head& operator=(const Head&) = delete;

    const Las::LasFile& las() const { return mLas; }
    /// Where the hierarchy's first page lies.
    const Octree::ByteRange& rootPage() const { return mRootPage; }
    /// The same facts as other stores of tiles have them.
    Tiles::StoreDescription description() const;

private:
    void readInfo(std::span<const std::byte> info);

    const std::vector<std::byte> mBytes;
    const Las::LasFile mLas;
    Math::NBoundingBox<double, 3> mCube;
    double mSpacing = 0.0;
    Octree::ByteRange mRootPage;
};

}  // namespace Copc
