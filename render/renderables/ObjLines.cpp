#include <render/renderables/ObjLines.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <string>

namespace Render {

namespace {

constexpr std::size_t maxLargeFaces = 100000000;

}  // namespace

void ObjLines::requireIndicesInRange() const {
    for (std::size_t kind = 0; kind < KindCount; ++kind) {
        if (mGreatest[kind].index > mCounts[kind]) {
            failAt(mGreatest[kind], kind);
        }
    }
}

bool ObjLines::admits(std::string_view line) {
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
    } else if (startsWith(line, "g") || startsWith(line, "o")) {
        mGroupHasLines = false;
    } else if (line.starts_with("usemtl")) {
        // Each would make the reader store all lines and points of the group once more.
        return !mGroupHasLines;
    }
    // A tag of a few bytes makes the reader set hundreds of kilobytes aside.
    return !startsWith(line, "t");
}

bool ObjLines::countNumbers(Kind kind, std::string_view line) {
    ++mCounts[kind];
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
    for (corners = withoutBlanksBefore(corners); !corners.empty(); corners = withoutBlanksBefore(corners)) {
        const auto length =
            static_cast<std::size_t>(std::find_if(corners.begin(), corners.end(), isBlank) - corners.begin());
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
