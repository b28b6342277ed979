#include <tools/lumaro/PlyPointWriter.h>

#include <string>

namespace Tool {

PlyPointWriter::PlyPointWriter(std::ostream& stream) : mStream(stream) {
    writeHeader();
}

void PlyPointWriter::writeHeader() {
    const std::string count = std::to_string(mCount);
    // The comment takes up what the count leaves, so that the header keeps its length.
    mStream << "ply\nformat binary_little_endian 1.0\ncomment points of a Lumaro query"
            << std::string(20 - count.size(), ' ') << "\nelement vertex " << count
            << "\n"
               "property double x\nproperty double y\nproperty double z\n"
               "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar alpha\n"
               "property ushort intensity\nproperty uchar classification\n"
               "end_header\n";
}

void PlyPointWriter::write(const Render::QueryPoint* points, size_t count) {
    std::string records;
    for (const Render::QueryPoint* point = points; point != points + count; ++point) {
        for (const double coordinate : point->position.values) {
            append(records, coordinate);
        }
        for (const uint8_t channel :
             {point->color.r(), point->color.g(), point->color.b(), point->color.a()}) {
            append(records, channel);
        }
        append(records, point->intensity);
        append(records, point->classification);
    }
    mStream.write(records.data(), static_cast<std::streamsize>(records.size()));
    mCount += count;
}

void PlyPointWriter::finish() {
    mStream.seekp(0);
    writeHeader();
}

}  // namespace Tool
