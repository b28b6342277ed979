#pragma once

#include <tests/support/PotreeFixture.h>

#include <cstddef>
#include <cstdint>

/// What makes a sound store ask for more than it weighs. Afterwards writeAll() has the files follow.
namespace Support::Hostile {

/// The root has so many points, in a chunk that decompresses to them; each may have more bytes, of which the
/// first of all are noise, so that the chunk is worth that many.
void fillRoot(PotreeFixture& store, std::uint32_t points, unsigned moreBytes = 0, std::size_t noise = 0);
/// The root's chunk, or that of the reference r4, has so many records, of which each names eight children.
void nameEightChildren(PotreeFixture& store, std::size_t records, bool isBelowR4 = false);
/// A complete tree of so many levels below r4, of nodes without points.
void growBelowR4(PotreeFixture& store, std::size_t levels);
/// A complete tree of so many levels whose nodes have the same 1000 points, as many as the store says it has.
void shareBytes(PotreeFixture& store, std::size_t levels);
/// A tree of which a fifth, one node of level 11 in each subtree, meets in a few slots of a hash table that
/// uses std::hash as it is.
void floodHash(PotreeFixture& store, std::size_t subtrees);

}  // namespace Support::Hostile
