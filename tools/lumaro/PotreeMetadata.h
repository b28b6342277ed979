#pragma once

#include <tools/lumaro/PotreeStoreWriter.h>
#include <tools/lumaro/StorePoint.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Tool {

/// Levels of one hierarchy chunk: the nodes of every such level are roots of chunks of their own.
constexpr unsigned HIERARCHY_STEP_SIZE = 4;

/// The text of metadata.json. `cubeSide` is in steps of the store's scale, `firstChunkSize` in bytes.
std::string potreeMetadata(const StoreDescription& description, const std::vector<StorePoint>& points,
                           int32_t cubeSide, size_t firstChunkSize, size_t depth, StoreEncoding encoding);

}  // namespace Tool
