#include <octree/IntensityRange.h>
#include <octree/tiles/TileColumns.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

namespace Tiles {

namespace {

using Octree::Attribute;

/// Points converted at a time: what is on the stack stays in the first-level cache.
constexpr std::size_t BLOCK = 256;
using Block = std::array<double, BLOCK>;

/// A reference this close to a step of the tile's grid is on it; the rest is rounding.
constexpr double STEP_TOLERANCE = 1e-4;

constexpr std::array<Known, 3> POSITION{Known::X, Known::Y, Known::Z};
constexpr std::array<Known, 3> COLOR{Known::Red, Known::Green, Known::Blue};
constexpr std::array<Known, 3> NORMAL{Known::NormalX, Known::NormalY, Known::NormalZ};

// Rounded, at the nearest end of its range if it lies outside; 0 if it is not a number.
template <class T>
T toInteger(double value) {
    constexpr double HIGHEST = std::numeric_limits<T>::max();
    if (!(value > 0.0)) {
        return 0;
    }
    return value >= HIGHEST ? std::numeric_limits<T>::max() : static_cast<T>(std::round(value));
}

bool hasAll(const Tile& tile, const std::array<Known, 3>& dimensions) {
    return std::all_of(dimensions.begin(), dimensions.end(),
                       [&](Known dimension) { return tile[dimension].has_value(); });
}

/// One axis of a tile, as numbers counted from the reference.
struct Axis {
    Axis(const NumberColumn& numbers, double low, double high, double reference, double unitScale)
        : column(numbers),
          origin((reference - numbers.offset) / numbers.scale),
          factor(numbers.scale * unitScale) {
        if (const double step = std::round(origin); std::abs(origin - step) < STEP_TOLERANCE) {
            origin = step;
        }
        lowest = (low - reference) / numbers.scale;
        highest = (high - reference) / numbers.scale;
    }

    const NumberColumn& column;
    double origin;
    double factor;
    double lowest, highest;
};

// Reads one axis of some points; the index of the first one outside, or count.
std::size_t readAxis(const Axis& axis, std::size_t start, std::size_t count, Block& out) {
    axis.column.readNumbers(start, count, out.data());
    bool isInside = true;
    for (std::size_t i = 0; i < count; ++i) {
        out[i] -= axis.origin;
        isInside &= out[i] >= axis.lowest && out[i] <= axis.highest;
    }
    if (!isInside) {
        const auto* const outside = std::find_if(out.data(), out.data() + count, [&axis](double value) {
            return !(value >= axis.lowest && value <= axis.highest);
        });
        return static_cast<std::size_t>(outside - out.data());
    }
    for (std::size_t i = 0; i < count; ++i) {
        out[i] *= axis.factor;
    }
    return count;
}

double intensityFactor(NumberType type, const StoreDescription& description) {
    switch (sizeOf(type)) {
        case 1:
            return 257.0;
        case 2:
            return 1.0;
        default:
            break;
    }
    const Dimension* dimension = description.find(nameOf(Known::Intensity));
    const double maximum = dimension != nullptr ? dimension->maximum.value_or(65535.0) : 65535.0;
    const bool isFraction = !isInteger(type) && maximum > 0.0 && maximum <= 1.0;
    return maximum > 65535.0 || isFraction ? 65535.0 / maximum : 1.0;
}

template <class T>
constexpr NumberType TYPE_OF = NumberType::Uint8;
template <>
constexpr NumberType TYPE_OF<std::uint16_t> = NumberType::Uint16;
template <>
constexpr NumberType TYPE_OF<std::uint32_t> = NumberType::Uint32;

// At most BLOCK of them.
template <class T>
void readIntegerBlock(const NumberColumn& column, double factor, std::size_t start, std::size_t count,
                      T* out) {
    if (column.type == TYPE_OF<T> && column.scale == 1.0 && column.offset == 0.0 && factor == 1.0) {
        for (std::size_t i = 0; i < count; ++i) {
            std::memcpy(out + i, column.first + (start + i) * column.stride, sizeof(T));
        }
        return;
    }
    Block values;
    column.readValues(start, count, values.data());
    for (std::size_t i = 0; i < count; ++i) {
        out[i] = toInteger<T>(values[i] * factor);
    }
}

template <class T>
std::vector<T> readIntegers(const NumberColumn& column, std::size_t count, double factor = 1.0) {
    std::vector<T> result(count);
    for (std::size_t start = 0; start < count; start += BLOCK) {
        readIntegerBlock(column, factor, start, std::min(BLOCK, count - start), result.data() + start);
    }
    return result;
}

std::vector<Math::Point<float, 3>> readNormals(const Tile& tile) {
    std::vector<Math::Point<float, 3>> result(tile.pointCount);
    std::array<Block, 3> axes;
    for (std::size_t start = 0; start < tile.pointCount; start += BLOCK) {
        const std::size_t size = std::min(BLOCK, tile.pointCount - start);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            tile[NORMAL[axis]]->readValues(start, size, axes[axis].data());
        }
        for (std::size_t i = 0; i < size; ++i) {
            const double longest =
                std::max({std::abs(axes[0][i]), std::abs(axes[1][i]), std::abs(axes[2][i])});
            const bool areNumbers = !std::isnan(axes[0][i] + axes[1][i] + axes[2][i]);
            if (longest > 0.0 && std::isfinite(longest) && areNumbers) {
                // First near 1, where squares neither vanish nor overflow.
                const Math::Point<double, 3> normal(axes[0][i] / longest, axes[1][i] / longest,
                                                    axes[2][i] / longest);
                result[start + i] = (normal / normal.length()).cast<float>();
            }
        }
    }
    return result;
}

}  // namespace

Math::Point<double, 3> referencePositionOf(const StoreDescription& description) {
    Math::Point<double, 3> result = (description.bounds.min + description.bounds.max) * 0.5;
    for (int axis = 0; axis < 3; ++axis) {
        const Dimension* dimension = description.find(nameOf(POSITION[static_cast<std::size_t>(axis)]));
        if (dimension != nullptr && isInteger(dimension->type)) {
            const double steps = std::round((result[axis] - dimension->offset) / dimension->scale);
            result[axis] = dimension->offset + steps * dimension->scale;
        }
    }
    return result;
}

std::optional<std::size_t> readPositions(const Tile& tile, const Math::NBoundingBox<double, 3>& bounds,
                                         const Math::Point<double, 3>& reference, double unitScale,
                                         std::vector<Math::Point<double, 3>>& out) {
    const auto axis = [&](int index) {
        return Axis(*tile[POSITION[static_cast<std::size_t>(index)]], bounds.min[index], bounds.max[index],
                    reference[index], unitScale);
    };
    const std::array<Axis, 3> axes{axis(0), axis(1), axis(2)};
    out.clear();
    out.reserve(tile.pointCount);
    std::array<Block, 3> values;
    std::array<Math::Point<double, 3>, BLOCK> points;
    for (std::size_t start = 0; start < tile.pointCount; start += BLOCK) {
        const std::size_t size = std::min(BLOCK, tile.pointCount - start);
        std::size_t inside = size;
        for (std::size_t i = 0; i < 3; ++i) {
            inside = std::min(inside, readAxis(axes[i], start, size, values[i]));
        }
        if (inside < size) {
            return start + inside;
        }
        for (std::size_t i = 0; i < size; ++i) {
            points[i] = {values[0][i], values[1][i], values[2][i]};
        }
        out.insert(out.end(), points.data(), points.data() + size);
    }
    return std::nullopt;
}

std::optional<ColorDepth> declaredColorDepth(const StoreDescription& description) {
    double highest = 0.0;
    for (const Known channel : COLOR) {
        const Dimension* dimension = description.find(nameOf(channel));
        if (dimension == nullptr || (!dimension->maximum && sizeOf(dimension->type) > 1)) {
            return std::nullopt;
        }
        highest = std::max(highest, dimension->maximum.value_or(255.0));
    }
    return highest <= 255.0 ? ColorDepth::Eight : ColorDepth::Sixteen;
}

std::optional<std::uint16_t> declaredIntensityRange(const StoreDescription& description) {
    const Dimension* const dimension = description.find(nameOf(Known::Intensity));
    if (dimension == nullptr) {
        return std::nullopt;
    }
    // LAS tiles have 16 bits whatever the schema says.
    const NumberType type = description.dataType == "laszip" ? NumberType::Uint16 : dimension->type;
    if (sizeOf(dimension->type) == 1) {
        return Octree::intensityRangeOf(255.0 * intensityFactor(type, description));
    }
    if (!dimension->maximum) {
        return std::nullopt;
    }
    return Octree::intensityRangeOf(*dimension->maximum * intensityFactor(type, description));
}

std::uint16_t observedIntensityRange(const Tile& tile, const StoreDescription& description) {
    const NumberColumn& column = *tile[Known::Intensity];
    double largest = 0.0;
    Block values;
    for (std::size_t start = 0; start < tile.pointCount; start += BLOCK) {
        const std::size_t size = std::min(BLOCK, tile.pointCount - start);
        column.readValues(start, size, values.data());
        largest = std::max(largest, *std::max_element(values.data(), values.data() + size));
    }
    return Octree::intensityRangeOf(largest * intensityFactor(column.type, description));
}

bool hasColors(const Tile& tile) {
    return hasAll(tile, COLOR);
}

ColorDepth observedColorDepth(const Tile& tile) {
    double maximum = 0.0;
    Block values;
    for (const Known channel : COLOR) {
        for (std::size_t start = 0; start < tile.pointCount; start += BLOCK) {
            const std::size_t size = std::min(BLOCK, tile.pointCount - start);
            tile[channel]->readValues(start, size, values.data());
            maximum = std::max(maximum, *std::max_element(values.data(), values.data() + size));
        }
    }
    return maximum <= 255.0 ? ColorDepth::Eight : ColorDepth::Sixteen;
}

std::vector<Math::Color> readColors(const Tile& tile, ColorDepth depth) {
    std::vector<Math::Color> result;
    result.reserve(tile.pointCount);
    std::array<std::array<std::uint16_t, BLOCK>, 3> channels;
    std::array<Math::Color, BLOCK> block;
    const auto narrowed = [depth](std::uint16_t value) {
        return static_cast<std::uint8_t>(depth == ColorDepth::Eight ? std::min<unsigned>(value, 255)
                                                                    : value >> 8);
    };
    for (std::size_t start = 0; start < tile.pointCount; start += BLOCK) {
        const std::size_t size = std::min(BLOCK, tile.pointCount - start);
        for (std::size_t i = 0; i < 3; ++i) {
            readIntegerBlock(*tile[COLOR[i]], 1.0, start, size, channels[i].data());
        }
        for (std::size_t i = 0; i < size; ++i) {
            block[i] =
                Math::Color(narrowed(channels[0][i]), narrowed(channels[1][i]), narrowed(channels[2][i]));
        }
        result.insert(result.end(), block.data(), block.data() + size);
    }
    return result;
}

void readPlainColumns(const Tile& tile, const StoreDescription& description, std::uint16_t intensityRange,
                      Octree::NodePointData& data) {
    const auto wanted = [&](Known dimension, Attribute attribute) {
        return tile[dimension] && data.wants(attribute);
    };
    if (wanted(Known::Intensity, Attribute::Intensity)) {
        const NumberColumn& column = *tile[Known::Intensity];
        data.setIntensities(
            readIntegers<std::uint16_t>(column, tile.pointCount, intensityFactor(column.type, description)),
            intensityRange);
    }
    if (wanted(Known::Classification, Attribute::Classification)) {
        data.setClassifications(readIntegers<std::uint8_t>(*tile[Known::Classification], tile.pointCount));
    }
    if (wanted(Known::PointSourceId, Attribute::ScanIndex)) {
        data.setScanIndices(readIntegers<std::uint32_t>(*tile[Known::PointSourceId], tile.pointCount));
    }
    if (hasAll(tile, NORMAL) && data.wants(Attribute::Normal)) {
        data.setNormals(readNormals(tile));
    }
}

}  // namespace Tiles
