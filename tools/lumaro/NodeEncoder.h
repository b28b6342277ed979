#pragma once

#include <tools/lumaro/StorePoint.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Tool {

/// The 16-byte position code: three axes interleaved bit by bit, x lowest. First the upper 16 bits of each
/// axis, then the lower 16; comparing the pair compares the code.
std::pair<uint64_t, uint64_t> positionCode(const StorePoint& point);

/// The 8-byte colour code, interleaved the same way, red lowest.
uint64_t colorCode(const StorePoint& point);

/// The columns of one node before compression, its points sorted by position code.
std::string encodeNodeColumns(const std::vector<StorePoint>& points, const std::vector<uint32_t>& indices);

/// The same points in the same order, one record after another.
std::string encodeNodeRecords(const std::vector<StorePoint>& points, const std::vector<uint32_t>& indices);

/// Throws std::runtime_error when the encoder refuses.
std::string brotliEncode(const std::string& bytes, int quality);

}  // namespace Tool
