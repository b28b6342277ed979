#pragma once

#include <octree/las/IntegerDecoder.h>
#include <octree/las/MedianOfFive.h>
#include <octree/las/ModelTable.h>
#include <octree/las/PointFormat.h>

#include <array>
#include <cstdint>

namespace Las {

/// The first part of records of formats 0 to 5 (LAZ specification, POINT10 version 2): a symbol says which of
/// the small fields changed, then x and y follow as differences from the middle of recent steps, and z from
/// the last height of the same return level.
class PointDecoder {
public:
    void start(const Point10& first);
    const Point10& next(ArithmeticDecoder& decoder);

private:
    void nextSmallFields(ArithmeticDecoder& decoder, unsigned changes);
    void nextPosition(ArithmeticDecoder& decoder);

    Point10 mPoint{};
    /// By return map and by return level.
    std::array<MedianOfFive, 16> mStepsX, mStepsY;
    std::array<std::uint16_t, 16> mIntensities{};
    std::array<std::int32_t, 8> mHeights{};

    SymbolModel<64> mChanges;
    /// By the byte before.
    ModelTable<256, 256> mReturns, mClassifications, mUserData;
    /// By scan direction.
    std::array<SymbolModel<256>, 2> mScanAngles;
    IntegerDecoder<16, 4> mIntensity;
    IntegerDecoder<16, 1> mPointSourceId;
    IntegerDecoder<32, 2> mX;
    IntegerDecoder<32, 22> mY;
    IntegerDecoder<32, 20> mZ;
};

}  // namespace Las
