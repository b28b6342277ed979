#include <octree/NodePointData.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Octree {

template <class T>
void NodePointData::set(Attribute attribute, std::vector<T>& target, std::vector<T>&& column) {
    if (mSizeKnown && column.size() != mSize) {
        throw std::invalid_argument("The columns of a node must have the same length");
    }
    mSize = column.size();
    mSizeKnown = true;
    if (wants(attribute)) {
        target = std::move(column);
        mPresent |= static_cast<unsigned>(attribute);
    }
}

void NodePointData::reset(std::size_t size) {
    mPresent = 0;
    mSize = size;
    mSizeKnown = true;
    mPositions.clear();
    mColors.clear();
    mIntensities.clear();
    mIntensityRange = HIGHEST_INTENSITY;
    mClassifications.clear();
    mScanIndices.clear();
    mVisibilities.clear();
    mNormals.clear();
}

template <class T>
void NodePointData::take(Attribute attribute, NodePointData& other, std::vector<T> NodePointData::*column) {
    if (other.has(attribute) && !has(attribute)) {
        set(attribute, this->*column, std::move(other.*column));
    }
}

void NodePointData::merge(NodePointData&& other) {
    if (other.mSize != mSize) {
        throw std::invalid_argument("The columns of a node must have the same length");
    }
    if (has(Attribute::Visibility) && other.has(Attribute::Visibility)) {
        std::transform(mVisibilities.begin(), mVisibilities.end(), other.mVisibilities.begin(),
                       mVisibilities.begin(),
                       [](std::uint8_t own, std::uint8_t others) { return own != 0 ? own : others; });
    }
    take(Attribute::Position, other, &NodePointData::mPositions);
    take(Attribute::Color, other, &NodePointData::mColors);
    if (other.has(Attribute::Intensity) && !has(Attribute::Intensity)) {
        setIntensities(std::move(other.mIntensities), other.mIntensityRange);
    }
    take(Attribute::Classification, other, &NodePointData::mClassifications);
    take(Attribute::ScanIndex, other, &NodePointData::mScanIndices);
    take(Attribute::Visibility, other, &NodePointData::mVisibilities);
    take(Attribute::Normal, other, &NodePointData::mNormals);
}

void NodePointData::setPositions(std::vector<Math::Point<double, 3>> column) {
    set(Attribute::Position, mPositions, std::move(column));
}

void NodePointData::setColors(std::vector<Math::Color> column) {
    set(Attribute::Color, mColors, std::move(column));
}

void NodePointData::setIntensities(std::vector<std::uint16_t> column, std::uint16_t range) {
    if (range == 0) {
        throw std::invalid_argument("Intensities must have a range");
    }
    set(Attribute::Intensity, mIntensities, std::move(column));
    mIntensityRange = has(Attribute::Intensity) ? range : HIGHEST_INTENSITY;
}

void NodePointData::setClassifications(std::vector<std::uint8_t> column) {
    set(Attribute::Classification, mClassifications, std::move(column));
}

void NodePointData::setScanIndices(std::vector<std::uint32_t> column) {
    set(Attribute::ScanIndex, mScanIndices, std::move(column));
}

void NodePointData::setVisibilities(std::vector<std::uint8_t> column) {
    set(Attribute::Visibility, mVisibilities, std::move(column));
}

void NodePointData::setNormals(std::vector<Math::Point<float, 3>> column) {
    set(Attribute::Normal, mNormals, std::move(column));
}

}  // namespace Octree
