#pragma once

#include <octree/las/LazItems.h>
#include <octree/las/PointFormat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

namespace Las {

/// Decodes chunk after chunk of one kind of file. Not synchronised.
class ChunkDecoder {
public:
    /// What is wrong with a point of the block asked for.
    class PointError : public std::runtime_error {
    public:
        PointError(std::size_t pointIndex, const std::string& problem)
            : std::runtime_error(problem), index(pointIndex) {}
        std::size_t index;
    };

    ChunkDecoder(const ChunkDecoder&) = delete;
    ChunkDecoder& operator=(const ChunkDecoder&) = delete;
    virtual ~ChunkDecoder() = default;

    /// Begins a chunk of at least one point; its bytes must outlive the decoding and may go on after its end.
    /// Throws DataError when they cannot be a chunk of so many points.
    virtual void start(std::span<const std::byte> bytes, std::uint64_t pointCount) = 0;
    /// The next points of the chunk, to the sink's first places; count is at most what is left of the chunk.
    /// Throws PointError.
    virtual void next(const PointSink& sink, std::size_t count) = 0;
    /// Bytes of a chunk that is decoded to its end.
    virtual std::size_t consumed() const = 0;

protected:
    ChunkDecoder() = default;
};

/// Records as they are.
std::unique_ptr<ChunkDecoder> makeRecordDecoder(const PointFormat& format);
/// Formats 0 to 3: one stream, point by point.
std::unique_ptr<ChunkDecoder> makePointwiseDecoder(const PointFormat& format);
/// Formats 6 to 8: a stream for each field, of which only those of the fields wanted are decoded.
std::unique_ptr<ChunkDecoder> makeLayeredDecoder(const PointFormat& format, LayerVersion version,
                                                 unsigned fields);

}  // namespace Las
