#pragma once

#include <core/Export.h>
#include <math/Color.h>
#include <math/Point.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Octree {

/// The columns a node's points may have.
enum class Attribute : unsigned {
    Position = 1,
    Color = 2,
    Intensity = 4,
    Classification = 8,
    ScanIndex = 16,
    Visibility = 32,
    Normal = 64
};

/// The points of one node, one column an attribute. A reader asks for columns by the mask it constructs this
/// with; a column that was not asked for, or that the store does not have, is empty and has() is false. All
/// columns present have size() elements. Not synchronised: a value of its holder.
class LUMARO_API NodePointData {
public:
    static constexpr unsigned ALL_ATTRIBUTES = 127;
    static constexpr std::uint16_t HIGHEST_INTENSITY = 65535;

    /// The mask ors Attribute values.
    explicit NodePointData(unsigned mask = ALL_ATTRIBUTES) : mWanted(mask) {}

    unsigned mask() const { return mWanted; }
    bool wants(Attribute attribute) const { return (mWanted & static_cast<unsigned>(attribute)) != 0; }
    bool has(Attribute attribute) const { return (mPresent & static_cast<unsigned>(attribute)) != 0; }

    std::size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }

    /// Relative to the octree's reference position, times its unit scale.
    const std::vector<Math::Point<double, 3>>& positions() const { return mPositions; }
    const std::vector<Math::Color>& colors() const { return mColors; }
    /// As stored, whatever their range.
    const std::vector<std::uint16_t>& intensities() const { return mIntensities; }
    /// The intensity that is drawn white, as all above it are. The same for every node of a store.
    std::uint16_t intensityRange() const { return mIntensityRange; }
    const std::vector<std::uint8_t>& classifications() const { return mClassifications; }
    const std::vector<std::uint32_t>& scanIndices() const { return mScanIndices; }
    /// 0 is visible.
    const std::vector<std::uint8_t>& visibilities() const { return mVisibilities; }
    const std::vector<Math::Point<float, 3>>& normals() const { return mNormals; }

    /// Of point i < size(); only for a column that is present.
    const Math::Point<double, 3>& position(std::size_t i) const { return mPositions[i]; }
    Math::Color color(std::size_t i) const { return mColors[i]; }
    std::uint16_t intensity(std::size_t i) const { return mIntensities[i]; }
    std::uint8_t classification(std::size_t i) const { return mClassifications[i]; }
    std::uint32_t scanIndex(std::size_t i) const { return mScanIndices[i]; }
    std::uint8_t visibility(std::size_t i) const { return mVisibilities[i]; }
    const Math::Point<float, 3>& normal(std::size_t i) const { return mNormals[i]; }

    /// Drops all columns and says how many points the next ones have; the mask stays.
    void reset(std::size_t size);

    /// Make a column present. A column that was not asked for is dropped. The first column decides size();
    /// another length afterwards throws std::invalid_argument, as an intensity range of 0 does.
    void setPositions(std::vector<Math::Point<double, 3>> column);
    void setColors(std::vector<Math::Color> column);
    void setIntensities(std::vector<std::uint16_t> column, std::uint16_t range = HIGHEST_INTENSITY);
    void setClassifications(std::vector<std::uint8_t> column);
    void setScanIndices(std::vector<std::uint32_t> column);
    void setVisibilities(std::vector<std::uint8_t> column);
    void setNormals(std::vector<Math::Point<float, 3>> column);

    /// Takes over the columns that it wants and lacks. Where both have visibilities, a point is hidden that
    /// is hidden in either. Another size throws std::invalid_argument.
    void merge(NodePointData&& other);

private:
    template <class T>
    void set(Attribute attribute, std::vector<T>& target, std::vector<T>&& column);
    template <class T>
    void take(Attribute attribute, NodePointData& other, std::vector<T> NodePointData::*column);

    unsigned mWanted;
    unsigned mPresent = 0;
    bool mSizeKnown = false;
    std::size_t mSize = 0;
    std::vector<Math::Point<double, 3>> mPositions;
    std::vector<Math::Color> mColors;
    std::vector<std::uint16_t> mIntensities;
    std::uint16_t mIntensityRange = HIGHEST_INTENSITY;
    std::vector<std::uint8_t> mClassifications;
    std::vector<std::uint32_t> mScanIndices;
    std::vector<std::uint8_t> mVisibilities;
    std::vector<Math::Point<float, 3>> mNormals;
};

}  // namespace Octree
