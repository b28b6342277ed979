#pragma once

#include <core/CopyOnWritePtr.h>
#include <core/Export.h>
#include <render/gpu/VertexTypes.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace Render {

/// The point vertices of one octree node: filled, filtered, compacted and then uploaded as they lie in
/// memory. No operation checks an index against size(). One thread at a time.
///
/// Copies are cheap: they share the vertices until one of them is written. Copies may live on different
/// threads.
class LUMARO_API VertexContainer {
public:
    using Vertex = VertexPosColorIntensityClassIndexScanIndexDistance;

    VertexContainer() = default;
    VertexContainer(std::initializer_list<Vertex> vertices);

    size_t size() const { return mVertices ? mVertices->size() : 0; }
    /// Sizes vertices and visibility; new vertices are visible.
    void resize(size_t count);

    /// The vertices for writing: until complete(), copies get vertices of their own. Null while there are
    /// none.
    Vertex* data() { return mVertices ? mVertices.lend().data() : nullptr; }
    const Vertex* data() const { return mVertices ? mVertices->data() : nullptr; }

    const Math::Point<float, 3>& position(size_t i) const { return (*mVertices)[i].position; }

    /// Narrows the coordinates to float.
    void setPosition(size_t i, double x, double y, double z);
    void setColor(size_t i, unsigned char r, unsigned char g, unsigned char b, unsigned char a);
    /// Keeps the high byte of the 16-bit intensity; truncates, does not round.
    void setIntensity(size_t i, unsigned short intensity);
    void setClassIndex(size_t i, unsigned char classIndex);
    void setScanIndex(size_t i, unsigned short scanIndex);
    void setDistance(size_t i, float distance);

    /// One distance a vertex. Throws std::runtime_error and changes nothing when the sizes differ.
    void setDistances(const std::vector<float>& distances);

    /// 0 keeps the vertex at complete(), any other value drops it. There are none to set after a complete()
    /// that applied them, until the next resize().
    void setVisibility(size_t i, unsigned char value);

    /// Removes the vertices whose alpha is 0 and keeps the others' order. Visibility is left alone.
    void clearFullyTransparentPoints();

    /// Drops the vertices that setVisibility() hid, keeps the others' order, and frees what is no longer
    /// needed. Changes nothing when no visibility was set or when there is not one visibility a vertex. Ends
    /// in any case what data() allowed.
    void complete();

private:
    bool isVisible(size_t i) const { return mHidden.empty() || mHidden[i] == 0; }

    Core::CopyOnWritePtr<std::vector<Vertex>> mVertices;
    size_t mVisibilityCount = 0;
    std::vector<uint8_t> mHidden;  ///< mVisibilityCount bytes, or none while all are 0.
    bool mVisibilityChanged = false;
};

}  // namespace Render
