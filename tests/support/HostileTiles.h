#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// LAS and LAZ files that promise more than they hold.
namespace Support::Hostile {

/// An uncompressed file of points at the origin of its own grid, (1000, 2000, 3000).
std::string lasTile(double scale, std::uint32_t points);

/// A compressed file of one chunk: a point, some bytes for the returns, x and y of all others, and none for
/// what else they have, so that they repeat it. The extra bytes begin with a "NormalX".
std::string lazTile(std::uint64_t points, std::uint16_t extraBytes, std::size_t returnBytes);

}  // namespace Support::Hostile
