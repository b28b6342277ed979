#include <render/renderables/ObjLines.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <string>

namespace Render {

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
        requireNumbers(line);
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
    for (corners = withoutBlanksBefore(corners); !corners.empty(); corners = withoutBlanksBefore(corners)) {
        const auto length =
            static_cast<std::size_t>(std::find_if(corners.begin(), corners.end(), isBlank) - corners.begin());
        checkCorner(corners.substr(0, length));
        corners.remove_prefix(length);
    }
}

void ObjLines::checkCorner(std::string_view corner) {
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
        corner.remove_prefix(std::min(corner.find('/'), corner.size()));
        corner.remove_prefix(corner.empty() ? 0 : 1);
    }
}

void ObjLines::failAt(const Reference& reference, std::size_t kind) const {
    static constexpr std::array<const char*, KindCount> names{"vertex", "texture coordinate", "normal"};
    throw std::runtime_error(name() + ", line " + std::to_string(reference.line) + ": face " +
                             std::to_string(reference.face) + " refers to " + names[kind] + ' ' +
                             std::to_string(reference.index) + " of " + std::to_string(mCounts[kind]));
}

}  // namespace Render
