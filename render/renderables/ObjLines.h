#pragma once

#include <render/renderables/LineBuffer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace Render {

/// The lines of an OBJ file. Checks what faces refer to, as the reader passes some indices on as they are and
/// drops faces for others, and hides lines that would make it take memory out of all proportion.
class ObjLines : public LineBuffer {
public:
    /// More corners than the reader cuts into triangles in little time, as it looks at all for each.
    static constexpr std::size_t maxReaderCorners = 128;
    /// Counting from 0, in vertices no file has.
    static constexpr int firstLargeFace = 2000000000;

    /// Of a corner, counting from 0; negative when there is none.
    struct Indices {
        int vertex = -1;
        int texCoord = -1;
        int normal = -1;
    };
    struct LargeFace {
        std::vector<Indices> corners;
        std::size_t line = 0;
    };

    /// Memory is counted as the reader and ObjMeshLoader take it; more than the limit is an error.
    ObjLines(const std::filesystem::path& file, std::stop_token stop, std::uint64_t memoryLimit);

    /// To be called when all is read: throws std::runtime_error naming file, line, face and index if a face
    /// refers to what is not there.
    void requireIndicesInRange() const;
    /// Faces that the reader sees as a triangle all of whose vertices are firstLargeFace plus the index in
    /// here.
    std::vector<LargeFace>& largeFaces() { return mLargeFaces; }

protected:
    bool admits(std::string_view line) override;

private:
    enum Kind : std::size_t { Vertex, TexCoord, Normal, KindCount };

    struct Reference {
        std::int64_t index = 0;  // Counts from 1, or back from the last when negative.
        std::size_t face = 0;
        std::size_t line = 0;
    };

    void count(std::uint64_t bytes);
    bool countNumbers(Kind kind, std::string_view line);
    void requireNumbers(std::string_view line) const;
    void checkFace(std::string_view corners);
    Indices checkCorner(std::string_view corner);
    int indexFromZero(std::size_t kind, std::int64_t index) const;
    void takeFromReader();
    [[noreturn]] void failAt(const Reference& reference, std::size_t kind) const;

    std::array<std::int64_t, KindCount> mCounts{};
    std::array<Reference, KindCount> mGreatest{};
    std::size_t mFaces = 0;
    bool mGroupHasLines = false;
    std::vector<LargeFace> mLargeFaces;
    std::vector<Indices> mCorners;  ///< Of the face at hand.
    std::uint64_t mMemoryLimit;
    std::uint64_t mMemory = 0;
};

}  // namespace Render
