#pragma once

#include <tools/lumaro/PotreeStoreWriter.h>
#include <tools/lumaro/StorePoint.h>

#include <cstddef>
#include <filesystem>
#include <vector>

namespace Tool {

constexpr size_t DEFAULT_SAMPLE_POINTS = 1'000'000;

/// A made-up laser scan of a village, 160 by 160 metres: light and shadow in the colours, intensities, LAS
/// classes and returns. The same number of points gives the same points on every platform.
///
/// Exactly `count` points, in millimetres above the store's offset. Returns fewer only when stopped.
std::vector<StorePoint> samplePoints(size_t count, std::stop_token stop = {});

StoreDescription sampleDescription();

/// Writes the sample scene as a store; see writePotreeStore() for what is replaced and what is thrown.
bool writeSampleStore(const std::filesystem::path& folder, size_t count,
                      const StoreWriteOptions& options = {});

}  // namespace Tool
