#include <octree/potree/PointColumns.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace PoTree {

namespace {

/// Points unpacked at a time: what is on the stack stays in the first-level cache, and appending a block to a
/// column writes its memory once, without filling it with zeros before.
constexpr std::size_t BLOCK = 256;

struct IntegerBlock {
    std::int32_t axes[3][BLOCK];
};

void readIntegers(const ChunkColumn& column, std::size_t count, IntegerBlock& block) {
    if (column.valueSize == 16) {
        pointCodeKernel().positions(column.first, count, block.axes[0], block.axes[1], block.axes[2]);
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto value = column.valueAt<std::array<std::int32_t, 3>>(i);
        block.axes[0][i] = value[0];
        block.axes[1][i] = value[1];
        block.axes[2][i] = value[2];
    }
}

void readColors(const ChunkColumn& column, std::size_t count, ColorDepth depth, Math::Color* colors) {
    if (column.valueSize == 8) {
        pointCodeKernel().colors(column.first, count, depth, colors);
    } else if (column.valueSize == 3) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto value = column.valueAt<std::array<std::uint8_t, 3>>(i);
            colors[i] = Math::Color(value[0], value[1], value[2]);
        }
    } else {
        for (std::size_t i = 0; i < count; ++i) {
            const auto value = column.valueAt<std::array<std::uint16_t, 3>>(i);
            colors[i] = Math::Color(narrowedChannel(value[0], depth), narrowedChannel(value[1], depth),
                                    narrowedChannel(value[2], depth));
        }
    }
}

bool isOutside(std::int32_t value, std::uint32_t low, std::uint32_t span) {
    return static_cast<std::uint32_t>(value) - low > span;
}

bool anyOutside(const std::int32_t* values, std::size_t count, std::uint32_t low, std::uint32_t span) {
    bool outside = false;
    for (std::size_t i = 0; i < count; ++i) {
        outside |= isOutside(values[i], low, span);
    }
    return outside;
}

std::optional<std::size_t> firstOutside(const IntegerBlock& block, std::size_t count,
                                        const CoordinateGrid& grid) {
    std::optional<std::size_t> first;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const std::int32_t* values = block.axes[axis];
        if (!anyOutside(values, count, grid.low[axis], grid.span[axis])) {
            continue;
        }
        const auto found = std::find_if(values, values + count, [&](std::int32_t value) {
            return isOutside(value, grid.low[axis], grid.span[axis]);
        });
        const auto index = static_cast<std::size_t>(found - values);
        first = std::min(first.value_or(index), index);
    }
    return first;
}

}  // namespace

CoordinateGrid::CoordinateGrid(const Metadata& metadata) : scale(metadata.scale) {
    constexpr double LOWEST = std::numeric_limits<std::int32_t>::min();
    constexpr double HIGHEST = std::numeric_limits<std::int32_t>::max();
    const Math::NBoundingBox<double, 3>& box = metadata.boundingBox;
    for (int axis = 0; axis < 3; ++axis) {
        const auto steps = [&](double coordinate) {
            return (coordinate - metadata.offset[axis]) / metadata.scale[axis];
        };
        origin[axis] = std::round(steps((box.min[axis] + box.max[axis]) * 0.5));
        reference[axis] = metadata.offset[axis] + origin[axis] * metadata.scale[axis];
        const double first = std::clamp(std::floor(steps(box.min[axis])) - SLACK_STEPS, LOWEST, HIGHEST);
        const double last = std::clamp(std::ceil(steps(box.max[axis])) + SLACK_STEPS, LOWEST, HIGHEST);
        const auto index = static_cast<std::size_t>(axis);
        low[index] = static_cast<std::uint32_t>(static_cast<std::int32_t>(first));
        span[index] = static_cast<std::uint32_t>(last - first);
    }
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

std::optional<std::size_t> decodePositions(const ChunkColumn& column, std::size_t count,
                                           const CoordinateGrid& grid, double unitScale,
                                           std::vector<Math::Point<double, 3>>& out) {
    const Math::Point<double, 3> factor = grid.scale * unitScale;
    const Math::Point<double, 3> origin = grid.origin;
    out.clear();
    out.reserve(count);
    IntegerBlock integers;
    std::array<Math::Point<double, 3>, BLOCK> block;
    for (std::size_t start = 0; start < count; start += BLOCK) {
        const std::size_t size = std::min(BLOCK, count - start);
        readIntegers(column.from(start), size, integers);
        if (const auto outside = firstOutside(integers, size, grid)) {
            return start + *outside;
        }
        for (std::size_t i = 0; i < size; ++i) {
            block[i] = {(integers.axes[0][i] - origin[0]) * factor[0],
                        (integers.axes[1][i] - origin[1]) * factor[1],
                        (integers.axes[2][i] - origin[2]) * factor[2]};
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
