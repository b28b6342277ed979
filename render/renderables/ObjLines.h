#pragma once

#include <render/renderables/LineBuffer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Render {

/// The lines of an OBJ file. Checks what faces refer to, as the reader passes some indices on as they are and
/// drops faces for others, and hides lines that would make it take memory out of all proportion.
class ObjLines : public LineBuffer {
public:
    using LineBuffer::LineBuffer;

    /// To be called when all is read: throws std::runtime_error naming file, line, face and index if a face
    /// refers to what is not there.
    void requireIndicesInRange() const;

protected:
    bool admits(std::string_view line) override;

private:
    enum Kind : std::size_t { Vertex, TexCoord, Normal, KindCount };

    struct Reference {
        std::int64_t index = 0;  // Counts from 1, or back from the last when negative.
        std::size_t face = 0;
        std::size_t line = 0;
    };

    bool countNumbers(Kind kind, std::string_view line);
    void requireNumbers(std::string_view line) const;
    void checkFace(std::string_view corners);
    void checkCorner(std::string_view corner);
    [[noreturn]] void failAt(const Reference& reference, std::size_t kind) const;

    std::array<std::int64_t, KindCount> mCounts{};
    std::array<Reference, KindCount> mGreatest{};
    std::size_t mFaces = 0;
    bool mGroupHasLines = false;
};

}  // namespace Render
