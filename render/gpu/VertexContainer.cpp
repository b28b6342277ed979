#include <render/gpu/VertexContainer.h>

#include <stdexcept>
#include <utility>

namespace Render {

VertexContainer::VertexContainer(std::initializer_list<Vertex> vertices)
    : mVertices(std::vector<Vertex>(vertices)), mVisibilityCount(vertices.size()) {}

void VertexContainer::resize(size_t count) {
    if (count != size()) {
        mVertices.write().resize(count);
    }
    mVisibilityCount = count;
    if (!mHidden.empty()) {
        mHidden.resize(count, 0);
    }
}

void VertexContainer::setPosition(size_t i, double x, double y, double z) {
    mVertices.write()[i].position =
        Math::Point<float, 3>(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
}

void VertexContainer::setColor(size_t i, unsigned char r, unsigned char g, unsigned char b, unsigned char a) {
    mVertices.write()[i].color.set(r, g, b, a);
}

void VertexContainer::setIntensity(size_t i, unsigned short intensity) {
    mVertices.write()[i].intensity = static_cast<uint8_t>(intensity >> 8);
}

void VertexContainer::setClassIndex(size_t i, unsigned char classIndex) {
    mVertices.write()[i].classIndex = classIndex;
}

void VertexContainer::setScanIndex(size_t i, unsigned short scanIndex) {
    mVertices.write()[i].scanIndex = scanIndex;
}

void VertexContainer::setDistance(size_t i, float distance) {
    mVertices.write()[i].distance = distance;
}

void VertexContainer::setDistances(const std::vector<float>& distances) {
    if (distances.size() != size()) {
        throw std::runtime_error("Error VertexContainer::setDistances: size mismatch");
    }
    if (distances.empty()) {
        return;
    }
    Vertex* const vertices = mVertices.write().data();
    for (size_t i = 0; i < distances.size(); ++i) {
        vertices[i].distance = distances[i];
    }
}

void VertexContainer::setVisibility(size_t i, unsigned char value) {
    if (mHidden.empty() && value != 0) {
        mHidden.resize(mVisibilityCount, 0);
    }
    if (!mHidden.empty()) {
        mHidden[i] = value;
    }
    mVisibilityChanged = true;
}

void VertexContainer::clearFullyTransparentPoints() {
    if (size() != 0) {
        std::erase_if(mVertices.write(), [](const Vertex& vertex) { return vertex.color.a() == 0; });
    }
}

void VertexContainer::complete() {
    mVertices.takeBack();
    if (!mVisibilityChanged || mVisibilityCount != size()) {
        return;
    }
    size_t kept = 0;
    for (size_t i = 0; i < size(); ++i) {
        kept += isVisible(i) ? 1U : 0U;
    }
    if (kept < size() || (mVertices && mVertices->capacity() > kept)) {
        std::vector<Vertex> vertices;
        vertices.reserve(kept);
        for (size_t i = 0; i < size(); ++i) {
            if (isVisible(i)) {
                vertices.push_back((*mVertices)[i]);
            }
        }
        mVertices = Core::CopyOnWritePtr(std::move(vertices));
    }
    std::vector<uint8_t>().swap(mHidden);
    mVisibilityCount = 0;
}

}  // namespace Render
