#include <render/gpu/VertexTypes.h>
#include <render/renderables/ObjLines.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace Render {

namespace {

constexpr std::size_t maxLargeFaces = 100000000;

/// Lists double as they grow.
constexpr std::uint64_t GROWING = 2;
/// Coordinates, colour and weight of a vertex, in double.
constexpr std::array<std::uint64_t, 3> NUMBER_BYTES{GROWING * 56, GROWING * 16, GROWING * 24};
constexpr std::uint64_t FACE_BYTES = GROWING * 40;
/// Three indices.
constexpr std::uint64_t CORNER_BYTES = GROWING * 12;
/// Its corners' indices and what else the reader notes, then its vertices.
constexpr std::uint64_t TRIANGLE_BYTES = GROWING * (36 + 12) + 3 * sizeof(VertexPosNormalTexCoordColor);
/// A group, an object or a material's use, and its name.
constexpr std::uint64_t GROUP_BYTES = 1024;

}  // namespace

ObjLines::ObjLines(const std::filesystem::path& file, std::stop_token stop, std::uint64_t memoryLimit)
    : LineBuffer(file, std::move(stop)), mMemoryLimit(memoryLimit) {}

void ObjLines::count(std::uint64_t bytes) {
    mMemory += bytes;
    if (mMemory > mMemoryLimit) {
        fail("the mesh asks for more than the " + std::to_string(mMemoryLimit) +
             " bytes of memory that it may take");
    }
}

void ObjLines::requireIndicesInRange() const {
    for (std::size_t kind = 0; kind < KindCount; ++kind) {
        if (mGreatest[kind].index > mCounts[kind]) {
            failAt(mGreatest[kind], kind);
        }
    }
}

bool ObjLines::admits(std::string_view line) {
    count(line.size());
    if (startsWith(line, "v")) {
        return countNumbers(Vertex, line);
    }
    if (startsWith(line, "f")) {
        checkFace(line.substr(1));
    } else if (startsWith(line, "vt")) {
        return countNumbers(TexCoord, line);
    } else if (startsWith(line, "vn")) {
        return countNumbers(Normal, line);
    } else if (startsWith(line, "vw")) {
        // Weights, which nobody looks at and whose numbers the reader takes for indices unseen.
        return false;
    } else if (startsWith(line, "l") || startsWith(line, "p")) {
        mGroupHasLines = true;
        count(GROWING * 12 * line.size());
    } else if (startsWith(line, "g") || startsWith(line, "o")) {
        mGroupHasLines = false;
        count(GROUP_BYTES);
    } else if (line.starts_with("usemtl")) {
        count(GROUP_BYTES);
        // Each would make the reader store all lines and points of the group once more.
        return !mGroupHasLines;
    }
    // A tag of a few bytes makes the reader set hundreds of kilobytes aside.
    return !startsWith(line, "t");
}

bool ObjLines::countNumbers(Kind kind, std::string_view line) {
    ++mCounts[kind];
    count(NUMBER_BYTES[kind]);
    requireNumbers(line);
    return true;
}

void ObjLines::requireNumbers(std::string_view line) const {
    if (hasEndlessExponent(line)) {
        fail("the exponent of a number is out of range");
    }
}

void ObjLines::checkFace(std::string_view corners) {
    ++mFaces;
    mCorners.clear();
    count(FACE_BYTES);
    for (corners = withoutBlanksBefore(corners); !corners.empty(); corners = withoutBlanksBefore(corners)) {
        const auto length =
            static_cast<std::size_t>(std::find_if(corners.begin(), corners.end(), isBlank) - corners.begin());
        count(CORNER_BYTES + (mCorners.size() < 2 ? 0 : TRIANGLE_BYTES));
        mCorners.push_back(checkCorner(corners.substr(0, length)));
        corners.remove_prefix(length);
    }
    if (mCorners.size() > maxReaderCorners) {
        takeFromReader();
    }
}

void ObjLines::takeFromReader() {
    std::string vertex = " 0";  // Which the reader reports.
    if (std::none_of(mCorners.begin(), mCorners.end(),
                     [](const Indices& corner) { return corner.vertex < 0; })) {
        if (mLargeFaces.size() == maxLargeFaces) {
            fail("more faces of so many corners than can be read");
        }
        vertex = ' ' + std::to_string(firstLargeFace + static_cast<std::int64_t>(mLargeFaces.size()) + 1);
        mLargeFaces.push_back({mCorners, lineNumber()});
    }
    replaceBy('f' + vertex + vertex + vertex);
}

ObjLines::Indices ObjLines::checkCorner(std::string_view corner) {
    Indices indices;
    for (std::size_t kind = 0; kind < KindCount && !corner.empty(); ++kind) {
        const char* const end = corner.data() + corner.size();
        Reference reference{0, mFaces, lineNumber()};
        const auto parsed =
            std::from_chars(corner.data() + (corner.front() == '+' ? 1 : 0), end, reference.index);
        if (parsed.ec == std::errc::result_out_of_range) {
            reference.index = std::numeric_limits<std::int64_t>::max();
        }
        // A normal or texture coordinate from before the first one counts as absent.
        if (kind == Vertex && reference.index < -mCounts[kind]) {
            failAt(reference, kind);
        }
        if (reference.index > mGreatest[kind].index) {
            mGreatest[kind] = reference;
        }
        (kind == Vertex     ? indices.vertex
         : kind == TexCoord ? indices.texCoord
                            : indices.normal) = indexFromZero(kind, reference.index);
        corner.remove_prefix(std::min(corner.find('/'), corner.size()));
        corner.remove_prefix(corner.empty() ? 0 : 1);
    }
    return indices;
}

int ObjLines::indexFromZero(std::size_t kind, std::int64_t index) const {
    const std::int64_t fromZero =
        index < 0 ? std::max<std::int64_t>(index, -mCounts[kind] - 1) + mCounts[kind] : index - 1;
    return static_cast<int>(std::min<std::int64_t>(fromZero, std::numeric_limits<int>::max()));
}

void ObjLines::failAt(const Reference& reference, std::size_t kind) const {
    static constexpr std::array<const char*, KindCount> names{"vertex", "texture coordinate", "normal"};
    throw std::runtime_error(name() + ", line " + std::to_string(reference.line) + ": face " +
                             std::to_string(reference.face) + " refers to " + names[kind] + ' ' +
                             std::to_string(reference.index) + " of " + std::to_string(mCounts[kind]));
}

}  // namespace Render
