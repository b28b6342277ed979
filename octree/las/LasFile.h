#pragma once

#include <math/Point.h>
#include <octree/las/ChunkTable.h>
#include <octree/las/LazItems.h>
#include <octree/las/PointFormat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Las {

/// The facts of a file's header.
struct Header {
    unsigned versionMajor = 0, versionMinor = 0;
    unsigned pointFormat = 0;
    std::size_t recordLength = 0;
    bool isCompressed = false;
    std::uint64_t pointCount = 0;
    /// A coordinate is its integer times scale plus offset.
    Math::Point<double, 3> scale, offset;
    /// As the header has them; need not be those of the points.
    Math::Point<double, 3> min, max;
};

/// A variable-length record; those that lie after the points are listed as well.
struct VariableRecord {
    std::string userId;
    unsigned recordId = 0;
    std::string description;
    /// Part of the file's bytes.
    std::span<const std::byte> data;
};

/// One of the attributes that the extra bytes of a point consist of.
struct ExtraAttribute {
    std::string name;
    /// 1 to 10: unsigned and signed integers of 1, 2, 4 and 8 bytes in turn, float, double; 0: bytes without
    /// a type.
    unsigned type = 0;
    /// In the extra bytes.
    std::size_t offset = 0, size = 0;
};

/// A LAS file of version 1.0 to 1.4 in memory, compressed (LAZ) or not. Everything but the points is read on
/// construction. Not changed afterwards: may be shared by threads.
class LasFile {
public:
    /// The name is for errors. The bytes must outlive the file. Throws Octree::StoreError for bytes that are
    /// no LAS file or one of a kind that is not supported.
    LasFile(std::string name, std::span<const std::byte> bytes);
    /// Only what stands before the points, of which the bytes need not hold any: no records behind the
    /// points, no chunks.
    static LasFile head(std::string name, std::span<const std::byte> bytes);

    const std::string& name() const { return mName; }
    std::span<const std::byte> bytes() const { return mBytes; }
    const Header& header() const { return mHeader; }
    const PointFormat& format() const { return *mFormat; }
    const std::vector<VariableRecord>& records() const { return mRecords; }
    /// As far as they are described and lie within the record; empty without a description.
    std::vector<ExtraAttribute> extraAttributes() const;

    /// Of a compressed file.
    const std::optional<LazItems>& items() const { return mItems; }
    const ChunkTable& chunks() const { return mChunks; }

private:
    enum class Extent { Head, Whole };

    LasFile(std::string name, std::span<const std::byte> bytes, Extent extent);
    void readHeader(Extent extent);
    void readRecords(std::uint64_t offset, std::uint64_t count, bool isExtended);
    void readItems();
    const VariableRecord* findRecord(const std::string& userId, unsigned recordId) const;

    std::string mName;
    std::span<const std::byte> mBytes;
    Header mHeader;
    std::uint64_t mPointOffset = 0;
    std::optional<PointFormat> mFormat;
    std::vector<VariableRecord> mRecords;
    std::optional<LazItems> mItems;
    ChunkTable mChunks;
};

}  // namespace Las
