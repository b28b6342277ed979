#include <tools/lumaro/LasPointWriter.h>
#include <tools/lumaro/NumberText.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace Tool {

namespace {

constexpr double GRID_TOLERANCE = 1e-3;  // of a step: rounding in double, no move

void appendText(std::string& bytes, std::string text, size_t size) {
    text.resize(size, '\0');
    bytes += text;
}

void appendToday(std::string& bytes) {
    using namespace std::chrono;
    const sys_days today = floor<days>(system_clock::now());
    const year_month_day date(today);
    const sys_days newYear = date.year() / January / 1;
    append(bytes, static_cast<uint16_t>((today - newYear).count() + 1));
    append(bytes, static_cast<uint16_t>(static_cast<int>(date.year())));
}

}  // namespace

LasPointWriter::LasPointWriter(std::ostream& stream, LasVersion version, const Octree::PositionGrid& grid)
    : mStream(stream), mVersion(version), mGrid(grid) {
    writeHeader();
}

void LasPointWriter::writeHeader() {
    const bool isNew = mVersion == LasVersion::OneFour;
    const uint16_t headerSize = isNew ? 375 : 227;
    // The formats from 6 on leave the old counts at 0.
    const auto oldCount = static_cast<uint32_t>(isNew ? 0 : mCount);
    std::string bytes = "LASF";
    append(bytes, uint16_t{0});                              // file source
    append(bytes, isNew ? uint16_t{1U << 4} : uint16_t{0});  // coordinate system as text, demanded since 1.4
    bytes.append(16, '\0');                                  // project
    append(bytes, uint8_t{1});
    append(bytes, isNew ? uint8_t{4} : uint8_t{2});
    appendText(bytes, "EXTRACTION", 32);
    appendText(bytes, "lumaro query", 32);
    appendToday(bytes);
    append(bytes, headerSize);
    append(bytes, uint32_t{headerSize});  // where the points begin
    append(bytes, uint32_t{0});           // variable records
    append(bytes, isNew ? uint8_t{7} : uint8_t{2});
    append(bytes, isNew ? uint16_t{36} : uint16_t{26});
    append(bytes, oldCount);
    append(bytes, oldCount);  // first returns
    bytes.append(16, '\0');   // later returns
    for (int axis = 0; axis < 3; ++axis) {
        append(bytes, mGrid.scale(axis));
    }
    for (int axis = 0; axis < 3; ++axis) {
        append(bytes, mGrid.offset(axis));
    }
    const Math::NBoundingBox<double, 3> bounds = mCount > 0 ? mBounds : Math::NBoundingBox<double, 3>({}, {});
    for (int axis = 0; axis < 3; ++axis) {
        append(bytes, bounds.max[axis]);
        append(bytes, bounds.min[axis]);
    }
    if (isNew) {
        bytes.append(8 + 8 + 4, '\0');  // wave packets, extended variable records
        append(bytes, mCount);
        append(bytes, mCount);               // first returns
        bytes.append(size_t{14} * 8, '\0');  // later returns
    }
    mStream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void LasPointWriter::write(const Render::QueryPoint* points, size_t count) {
    std::string records;
    for (const Render::QueryPoint* point = points; point != points + count; ++point) {
        appendPoint(records, *point);
    }
    mStream.write(records.data(), static_cast<std::streamsize>(records.size()));
    mCount += count;
    if (mVersion == LasVersion::OneTwo && mCount > std::numeric_limits<uint32_t>::max()) {
        throw std::runtime_error("LAS 1.2 has no room for so many points; version 1.4 has");
    }
}

void LasPointWriter::appendPoint(std::string& records, const Render::QueryPoint& point) {
    Math::Point<double, 3> place;
    for (int axis = 0; axis < 3; ++axis) {
        const double coordinate = point.position[axis];
        const int64_t steps = mGrid.steps(coordinate, axis);
        const auto stored = static_cast<int32_t>(steps);
        if (stored != steps) {
            throw std::runtime_error("a point at " + shortText(coordinate) +
                                     " is out of reach of the file's 32-bit coordinates");
        }
        append(records, stored);
        // As readers compute it, for the bounds to be theirs.
        place[axis] = stored * mGrid.scale(axis) + mGrid.offset(axis);
        const double move = std::abs(place[axis] - coordinate);
        if (move > GRID_TOLERANCE * mGrid.scale(axis)) {
            mLargestMove = std::fmax(mLargestMove, move);
        }
    }
    mBounds.extend(place);
    appendAttributes(records, point);
}

void LasPointWriter::appendAttributes(std::string& records, const Render::QueryPoint& point) const {
    append(records, point.intensity);
    if (mVersion == LasVersion::OneFour) {
        append(records, uint8_t{1U | 1U << 4});  // return 1 of 1
        append(records, uint8_t{0});
        append(records, point.classification);
        records.append(1 + 2 + 2 + 8, '\0');  // user data, angle, source, time
    } else {
        if (point.classification > 31) {
            throw std::runtime_error("a point's class, " + std::to_string(point.classification) +
                                     ", has no room in LAS 1.2; it has in version 1.4");
        }
        append(records, uint8_t{1U | 1U << 3});  // return 1 of 1
        append(records, point.classification);
        records.append(1 + 1 + 2, '\0');  // angle, user data, source
    }
    for (const unsigned channel : {point.color.r(), point.color.g(), point.color.b()}) {
        append(records, static_cast<uint16_t>(channel * 257));
    }
}

void LasPointWriter::finish() {
    mStream.seekp(0);
    writeHeader();
}

}  // namespace Tool
