#include <octree/IntensityRange.h>
#include <octree/NodePointData.h>
#include <octree/potree/PointColumns.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace PoTree {

namespace {

/// Points unpacked at a time: what is on the stack stays in the first-level cache, and appending a block to a
/// column writes its memory once, without filling it with zeros before.
constexpr std::size_t BLOCK = 256;

using Integers = std::array<std::int32_t, 3>;

struct IntegerBlock {
    std::int32_t axes[3][BLOCK];
};

/// Turns integers of the store's grid into positions.
class PositionMaker {
public:
    PositionMaker(const CoordinateGrid& grid, const GridRange& range, double unitScale)
        : mLow(range.low), mSpan(range.span), mOrigin(grid.origin), mFactor(grid.scale * unitScale) {}

    bool isOutside(const Integers& integers) const {
        return isOutside<0>(integers) || isOutside<1>(integers) || isOutside<2>(integers);
    }

    /// Writes the positions of `size` points with the integers `at(i)`; true when one is outside.
    template <class IntegersAt>
    bool make(std::size_t size, IntegersAt at, Math::Point<double, 3>* out) const {
        const PositionMaker self = *this;  // in registers: what is written cannot change it
        bool outside = false;
        for (std::size_t i = 0; i < size; ++i) {
            const Integers integers = at(i);
            outside |= self.isOutside<0>(integers);
            outside |= self.isOutside<1>(integers);
            outside |= self.isOutside<2>(integers);
            out[i] = {(integers[0] - self.mOrigin[0]) * self.mFactor[0],
                      (integers[1] - self.mOrigin[1]) * self.mFactor[1],
                      (integers[2] - self.mOrigin[2]) * self.mFactor[2]};
        }
        return outside;
    }

private:
    template <std::size_t AXIS>
    bool isOutside(const Integers& integers) const {
        return static_cast<std::uint32_t>(integers[AXIS]) - mLow[AXIS] > mSpan[AXIS];
    }

    std::array<std::uint32_t, 3> mLow, mSpan;
    Math::Point<double, 3> mOrigin, mFactor;
};

Integers recordAt(const ChunkColumn& column, std::size_t index) {
    // One by one: read together they would go through memory.
    const std::byte* value = column.first + index * column.stride;
    const auto axis = [value](std::size_t i) {
        std::int32_t integer;
        std::memcpy(&integer, value + 4 * i, sizeof integer);
        return integer;
    };
    return {axis(0), axis(1), axis(2)};
}

template <class MakeChannel>
void readColors(const ChunkColumn& column, std::size_t count, Math::Color* colors, MakeChannel channelAt) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::byte* value = column.first + i * column.stride;
        colors[i] = Math::Color(channelAt(value, 0), channelAt(value, 1), channelAt(value, 2));
    }
}

void readColors(const ChunkColumn& column, std::size_t count, ColorDepth depth, Math::Color* colors) {
    if (column.valueSize == 8) {
        pointCodeKernel().colors(column.first, count, depth, colors);
    } else if (column.valueSize == 3) {
        readColors(column, count, colors, [](const std::byte* value, std::size_t channel) {
            return static_cast<std::uint8_t>(value[channel]);
        });
    } else if (depth == ColorDepth::Sixteen) {
        readColors(column, count, colors, [](const std::byte* value, std::size_t channel) {
            return static_cast<std::uint8_t>(value[2 * channel + 1]);
        });
    } else {
        readColors(column, count, colors, [](const std::byte* value, std::size_t channel) {
            std::uint16_t wide;
            std::memcpy(&wide, value + 2 * channel, sizeof wide);
            return narrowedChannel(wide, ColorDepth::Eight);
        });
    }
}

}  // namespace

CoordinateGrid::CoordinateGrid(const Metadata& metadata) : scale(metadata.scale), offset(metadata.offset) {
    const Math::NBoundingBox<double, 3>& box = metadata.boundingBox;
    for (int axis = 0; axis < 3; ++axis) {
        const double center = (box.min[axis] + box.max[axis]) * 0.5;
        origin[axis] = std::round((center - offset[axis]) / scale[axis]);
        reference[axis] = offset[axis] + origin[axis] * scale[axis];
    }
}

GridRange CoordinateGrid::rangeOf(const Math::NBoundingBox<double, 3>& box) const {
    constexpr double LOWEST = std::numeric_limits<std::int32_t>::min();
    constexpr double HIGHEST = std::numeric_limits<std::int32_t>::max();
    // Boxes are computed from decimal fractions: a step that is missed by rounding belongs to them.
    constexpr double SLACK = SLACK_STEPS + 1e-4;
    GridRange range;
    for (int axis = 0; axis < 3; ++axis) {
        const auto steps = [&](double coordinate) { return (coordinate - offset[axis]) / scale[axis]; };
        const double first = std::clamp(std::ceil(steps(box.min[axis]) - SLACK), LOWEST, HIGHEST);
        const double last = std::clamp(std::floor(steps(box.max[axis]) + SLACK), LOWEST, HIGHEST);
        const auto index = static_cast<std::size_t>(axis);
        range.low[index] = static_cast<std::uint32_t>(static_cast<std::int32_t>(first));
        range.span[index] = static_cast<std::uint32_t>(last - first);
    }
    return range;
}

ColorDepth colorDepthOf(const Metadata& metadata) {
    for (const Octree::AttributeInfo& attribute : metadata.attributes) {
        if (attribute.name == "rgb") {
            const std::vector<double>& max = attribute.max;
            const bool isSmall = !max.empty() && *std::max_element(max.begin(), max.end()) <= 255.0;
            return attribute.type == "uint8" || isSmall ? ColorDepth::Eight : ColorDepth::Sixteen;
        }
    }
    return ColorDepth::Sixteen;
}

std::uint16_t intensityRangeOf(const Metadata& metadata) {
    const Octree::AttributeInfo* const intensity = metadata.find("intensity", sizeof(std::uint16_t));
    if (intensity == nullptr || intensity->max.empty()) {
        return Octree::NodePointData::HIGHEST_INTENSITY;
    }
    return Octree::intensityRangeOf(intensity->max.front());
}

std::optional<std::size_t> decodePositions(const ChunkColumn& column, std::size_t count,
                                           const CoordinateGrid& grid, const GridRange& range,
                                           double unitScale, std::vector<Math::Point<double, 3>>& out) {
    const PositionMaker maker(grid, range, unitScale);
    const bool isCoded = column.valueSize == 16;
    out.clear();
    out.reserve(count);
    IntegerBlock decoded;
    const auto decodedAt = [&decoded](std::size_t i) -> Integers {
        return {decoded.axes[0][i], decoded.axes[1][i], decoded.axes[2][i]};
    };
    std::array<Math::Point<double, 3>, BLOCK> block;
    for (std::size_t start = 0; start < count; start += BLOCK) {
        const std::size_t size = std::min(BLOCK, count - start);
        const ChunkColumn part = column.from(start);
        const auto readAt = [&part](std::size_t i) { return recordAt(part, i); };
        if (isCoded) {
            pointCodeKernel().positions(part.first, size, decoded.axes[0], decoded.axes[1], decoded.axes[2]);
        }
        if (isCoded ? maker.make(size, decodedAt, block.data()) : maker.make(size, readAt, block.data())) {
            std::size_t first = 0;
            while (!maker.isOutside(isCoded ? decodedAt(first) : readAt(first))) {
                ++first;
            }
            return start + first;
        }
        out.insert(out.end(), block.data(), block.data() + size);
    }
    return std::nullopt;
}

void decodeColors(const ChunkColumn& column, std::size_t count, ColorDepth depth,
                  std::vector<Math::Color>& out) {
    out.clear();
    out.reserve(count);
    std::array<Math::Color, BLOCK> block;
    for (std::size_t start = 0; start < count; start += BLOCK) {
        const std::size_t size = std::min(BLOCK, count - start);
        readColors(column.from(start), size, depth, block.data());
        out.insert(out.end(), block.data(), block.data() + size);
    }
}

Math::Point<float, 3> decodeOct16(std::uint16_t code) {
    const float u = static_cast<float>(code & 255) / 255.0f * 2.0f - 1.0f;
    const float v = static_cast<float>(code >> 8) / 255.0f * 2.0f - 1.0f;
    Math::Point<float, 3> normal(u, v, 1.0f - std::abs(u) - std::abs(v));
    if (normal.z() < 0.0f) {
        // The lower half is folded over the diagonals of the square.
        normal.x() = std::copysign(1.0f - std::abs(v), u);
        normal.y() = std::copysign(1.0f - std::abs(u), v);
    }
    return normal / normal.length();
}

}  // namespace PoTree
