#include <tools/lumaro/NodeEncoder.h>

#include <brotli/encode.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <tuple>

namespace Tool {

namespace {

uint64_t interleave(uint32_t x, uint32_t y, uint32_t z) {
    uint64_t code = 0;
    for (unsigned bit = 0; bit < 16; ++bit) {
        code |= uint64_t{x >> bit & 1U} << (3 * bit);
        code |= uint64_t{y >> bit & 1U} << (3 * bit + 1);
        code |= uint64_t{z >> bit & 1U} << (3 * bit + 2);
    }
    return code;
}

template <class T>
void append(std::string& bytes, T value) {
    for (size_t i = 0; i < sizeof(T); ++i) {
        bytes.push_back(static_cast<char>(static_cast<uint64_t>(value) >> (8 * i) & 0xffU));
    }
}

using Entry = std::tuple<std::pair<uint64_t, uint64_t>, uint32_t>;

std::vector<Entry> sortedByPosition(const std::vector<StorePoint>& points,
                                    const std::vector<uint32_t>& indices) {
    std::vector<Entry> order;
    order.reserve(indices.size());
    for (const uint32_t index : indices) {
        order.emplace_back(positionCode(points[index]), index);
    }
    std::sort(order.begin(), order.end());
    return order;
}

}  // namespace

std::pair<uint64_t, uint64_t> positionCode(const StorePoint& point) {
    std::array<uint32_t, 3> p{};
    for (size_t axis = 0; axis < 3; ++axis) {
        p[axis] = static_cast<uint32_t>(point.position[axis]);
    }
    return {interleave(p[0] >> 16U, p[1] >> 16U, p[2] >> 16U),
            interleave(p[0] & 0xffffU, p[1] & 0xffffU, p[2] & 0xffffU)};
}

uint64_t colorCode(const StorePoint& point) {
    return interleave(point.color[0], point.color[1], point.color[2]);
}

std::string encodeNodeColumns(const std::vector<StorePoint>& points, const std::vector<uint32_t>& indices) {
    const std::vector<Entry> order = sortedByPosition(points, indices);
    std::string bytes;
    const auto column = [&](auto&& value) {
        for (const Entry& entry : order) {
            append(bytes, value(points[std::get<1>(entry)]));
        }
    };
    for (const Entry& entry : order) {
        append(bytes, std::get<0>(entry).first);
        append(bytes, std::get<0>(entry).second);
    }
    column([](const StorePoint& p) { return p.intensity; });
    column([](const StorePoint& p) { return p.returnNumber; });
    column([](const StorePoint& p) { return p.numberOfReturns; });
    column([](const StorePoint& p) { return p.classification; });
    column([](const StorePoint& p) { return p.scanAngle; });
    column([](const StorePoint& p) { return p.userData; });
    column([](const StorePoint& p) { return p.sourceId; });
    column([](const StorePoint& p) { return colorCode(p); });
    return bytes;
}

std::string encodeNodeRecords(const std::vector<StorePoint>& points, const std::vector<uint32_t>& indices) {
    std::string bytes;
    for (const Entry& entry : sortedByPosition(points, indices)) {
        const StorePoint& point = points[std::get<1>(entry)];
        for (const int32_t coordinate : point.position) {
            append(bytes, coordinate);
        }
        append(bytes, point.intensity);
        append(bytes, point.returnNumber);
        append(bytes, point.numberOfReturns);
        append(bytes, point.classification);
        append(bytes, point.scanAngle);
        append(bytes, point.userData);
        append(bytes, point.sourceId);
        for (const uint16_t channel : point.color) {
            append(bytes, channel);
        }
    }
    return bytes;
}

std::string brotliEncode(const std::string& bytes, int quality) {
    size_t size = BrotliEncoderMaxCompressedSize(bytes.size());
    std::vector<uint8_t> output(size);
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    if (BrotliEncoderCompress(quality, BROTLI_DEFAULT_WINDOW, BROTLI_MODE_GENERIC, input.size(), input.data(),
                              &size, output.data()) == BROTLI_FALSE) {
        throw std::runtime_error("the points of a node could not be compressed");
    }
    return {output.begin(), output.begin() + static_cast<ptrdiff_t>(size)};
}

}  // namespace Tool
