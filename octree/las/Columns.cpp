#include <octree/las/Columns.h>

namespace Las {

namespace {

/// Calls function(column, place in the sink, elements a point) for each column of the fields.
template <class Function>
void forEachColumn(Columns& columns, PointSink& sink, unsigned fields, std::size_t extraByteCount,
                   const Function& function) {
    const auto visit = [&](Field field, auto& column, auto*& place, std::size_t width = 1) {
        if ((fields & static_cast<unsigned>(field)) != 0 && width > 0) {
            function(column, place, width);
        }
    };
    visit(Field::Position, columns.x, sink.x);
    visit(Field::Position, columns.y, sink.y);
    visit(Field::Position, columns.z, sink.z);
    visit(Field::Intensity, columns.intensity, sink.intensity);
    visit(Field::Returns, columns.returnNumber, sink.returnNumber);
    visit(Field::Returns, columns.returnCount, sink.returnCount);
    visit(Field::Flags, columns.flags, sink.flags);
    visit(Field::Classification, columns.classification, sink.classification);
    visit(Field::ScanAngle, columns.scanAngle, sink.scanAngle);
    visit(Field::UserData, columns.userData, sink.userData);
    visit(Field::PointSourceId, columns.pointSourceId, sink.pointSourceId);
    visit(Field::GpsTime, columns.gpsTime, sink.gpsTime);
    visit(Field::Color, columns.red, sink.red);
    visit(Field::Color, columns.green, sink.green);
    visit(Field::Color, columns.blue, sink.blue);
    visit(Field::NearInfrared, columns.nearInfrared, sink.nearInfrared);
    visit(Field::ExtraBytes, columns.extraBytes, sink.extraBytes, extraByteCount);
}

}  // namespace

std::size_t Columns::bytesPerPoint(unsigned fields, std::size_t extraByteCount) {
    Columns none;
    PointSink unused;
    std::size_t sum = 0;
    forEachColumn(none, unused, fields, extraByteCount,
                  [&](auto&, auto*& place, std::size_t width) { sum += width * sizeof *place; });
    return sum;
}

void Columns::clear() {
    PointSink unused;
    size = 0;
    forEachColumn(*this, unused, ALL_FIELDS, 1, [](auto& column, auto*&, std::size_t) { column.clear(); });
}

void Columns::reserve(std::size_t count, unsigned fields, std::size_t extraByteCount) {
    PointSink unused;
    forEachColumn(*this, unused, fields, extraByteCount,
                  [&](auto& column, auto*&, std::size_t width) { column.reserve(count * width); });
}

PointSink Columns::append(std::size_t count, unsigned fields, std::size_t extraByteCount) {
    PointSink sink;
    forEachColumn(*this, sink, fields, extraByteCount, [&](auto& column, auto*& place, std::size_t width) {
        column.resize((size + count) * width);
        place = column.data() + size * width;
    });
    size += count;
    return sink;
}

}  // namespace Las
