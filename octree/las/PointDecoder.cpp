#include <octree/las/CoordinateContexts.h>
#include <octree/las/PointDecoder.h>
#include <octree/las/ReturnTables.h>

#include <algorithm>

namespace Las {

namespace {

enum Change : unsigned {
    POINT_SOURCE_ID = 1,
    USER_DATA = 2,
    SCAN_ANGLE = 4,
    CLASSIFICATION = 8,
    INTENSITY = 16,
    RETURNS = 32
};

}  // namespace

void PointDecoder::start(const Point10& first) {
    mPoint = first;
    mStepsX.fill(MedianOfFive());
    mStepsY.fill(MedianOfFive());
    mIntensities.fill(0);
    mHeights.fill(0);
    mChanges.reset();
    mReturns.reset();
    mClassifications.reset();
    mUserData.reset();
    for (SymbolModel<256>& model : mScanAngles) {
        model.reset();
    }
    mIntensity.reset();
    mPointSourceId.reset();
    mX.reset();
    mY.reset();
    mZ.reset();
}

const Point10& PointDecoder::next(ArithmeticDecoder& decoder) {
    nextSmallFields(decoder, mChanges.decode(decoder));
    nextPosition(decoder);
    return mPoint;
}

void PointDecoder::nextSmallFields(ArithmeticDecoder& decoder, unsigned changes) {
    if ((changes & RETURNS) != 0) {
        mPoint.returns = static_cast<std::uint8_t>(mReturns.decode(decoder, mPoint.returns));
    }
    const unsigned map = RETURN_MAP_10[mPoint.returnCount()][mPoint.returnNumber()];
    // The intensity is taken over from the last point of the same map, the others from the last point.
    if ((changes & INTENSITY) != 0) {
        mIntensities[map] =
            static_cast<std::uint16_t>(mIntensity.decode(decoder, mIntensities[map], std::min(map, 3U)));
    }
    mPoint.intensity = mIntensities[map];
    if ((changes & CLASSIFICATION) != 0) {
        mPoint.classification =
            static_cast<std::uint8_t>(mClassifications.decode(decoder, mPoint.classification));
    }
    if ((changes & SCAN_ANGLE) != 0) {
        const unsigned turned = mScanAngles[mPoint.scanDirection()].decode(decoder);
        mPoint.scanAngle = static_cast<std::int8_t>(
            static_cast<std::uint8_t>(turned + static_cast<std::uint8_t>(mPoint.scanAngle)));
    }
    if ((changes & USER_DATA) != 0) {
        mPoint.userData = static_cast<std::uint8_t>(mUserData.decode(decoder, mPoint.userData));
    }
    if ((changes & POINT_SOURCE_ID) != 0) {
        mPoint.pointSourceId =
            static_cast<std::uint16_t>(mPointSourceId.decode(decoder, mPoint.pointSourceId));
    }
}

void PointDecoder::nextPosition(ArithmeticDecoder& decoder) {
    const unsigned count = mPoint.returnCount();
    const unsigned map = RETURN_MAP_10[count][mPoint.returnNumber()];
    const unsigned level = RETURN_LEVEL_10[count][mPoint.returnNumber()];
    const bool isOnlyReturn = count == 1;

    const std::int32_t stepX = mX.decode(decoder, mStepsX[map].get(), isOnlyReturn ? 1 : 0);
    mPoint.x = wrappedSum(mPoint.x, stepX);
    mStepsX[map].add(stepX);

    const std::int32_t stepY = mY.decode(decoder, mStepsY[map].get(),
                                         coordinateContext(mX.bitCount(), Y_CONTEXT_LIMIT, isOnlyReturn));
    mPoint.y = wrappedSum(mPoint.y, stepY);
    mStepsY[map].add(stepY);

    const unsigned bits = (mX.bitCount() + mY.bitCount()) / 2;
    mPoint.z = mZ.decode(decoder, mHeights[level], coordinateContext(bits, Z_CONTEXT_LIMIT, isOnlyReturn));
    mHeights[level] = mPoint.z;
}

}  // namespace Las
