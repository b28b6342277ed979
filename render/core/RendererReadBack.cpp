#include <render/core/ReadMapping.h>
#include <render/core/Renderer.h>
#include <render/core/TargetNames.h>
#include <render/core/UploadAllowance.h>
#include <render/core/WorldPositions.h>

#include <cstring>
#include <fstream>
#include <iomanip>
#include <locale>
#include <stdexcept>

namespace Render {

template <class Image>
void Renderer::readBack(Texture2d& staging, const Texture2d& source, Image& image) {
    staging.copy(mDeviceContext, source);
    const ReadMapping mapping(staging, mDeviceContext);
    image.resize(mScenePass.width(), mScenePass.height(), mapping->RowPitch);
    if (image.sizeInBytes() != mapping->DepthPitch) {
        throw std::runtime_error("image size does not match");
    }
    std::memcpy(image.data(), mapping->pData, mapping->DepthPitch);
}

ID3D11Texture2D* Renderer::outputTexture() const {
    return mOutputPass.texture(TargetNames::color).get();
}

void Renderer::getColorImage(Graphics::ColorImage& image) {
    readBack(mColorStaging, mOutputPass.texture(TargetNames::color), image);
}

void Renderer::getDepthImage(Graphics::DepthImage& image) {
    readBack(mDepthStaging, mScenePass.depthTexture(), image);
}

void Renderer::writePngImage(const std::filesystem::path& path) {
    renderFrame(UploadAllowance::noLimit);
    Graphics::ColorImage image;
    getColorImage(image);
    image.writePng(path);
}

template <class Write>
size_t Renderer::nextPoints(size_t maxCount, Write write) {
    mColorStaging.copy(mDeviceContext, mOutputPass.texture(TargetNames::color));
    mWorldPositionStaging.copy(mDeviceContext, mOutputPass.texture(TargetNames::worldPosition));
    const ReadMapping colors(mColorStaging, mDeviceContext);
    const ReadMapping mapped(mWorldPositionStaging, mDeviceContext);
    const WorldPositions positions(mapped->pData, mOutputPass.width(), mOutputPass.height(),
                                   mapped->RowPitch);
    size_t count = 0;
    while (count < maxCount && mChunkRow < positions.height()) {
        // The picture may have become narrower since the last chunk.
        if (mChunkColumn < positions.width() && positions.isDrawn(mChunkColumn, mChunkRow)) {
            Math::Color color;
            std::memcpy(&color,
                        static_cast<const std::byte*>(colors->pData) + mChunkRow * colors->RowPitch +
                            mChunkColumn * sizeof color,
                        sizeof color);
            write(count++, positions.at(mChunkColumn, mChunkRow), color);
        }
        if (++mChunkColumn >= positions.width()) {
            mChunkColumn = 0;
            ++mChunkRow;
        }
    }
    return count;
}

size_t Renderer::getNextPointChunk(VertexPosColor* buffer, size_t maxCount) {
    return nextPoints(maxCount,
                      [buffer](size_t i, const Math::Point<float, 3>& position, const Math::Color& color) {
                          buffer[i] = VertexPosColor(position, color);
                      });
}

size_t Renderer::getNextPointChunk(double* xyz, int* rgb, size_t maxCount) {
    return nextPoints(maxCount,
                      [=](size_t i, const Math::Point<float, 3>& position, const Math::Color& color) {
                          xyz[3 * i] = double{position.x()};
                          xyz[3 * i + 1] = double{position.y()};
                          xyz[3 * i + 2] = double{position.z()};
                          rgb[i] = color.r() | color.g() << 8 | color.b() << 16;
                      });
}

void Renderer::resetPointChunkPosition() {
    mChunkColumn = 0;
    mChunkRow = 0;
}

void Renderer::getPoints(std::vector<VertexPosColor>& points) {
    constexpr size_t chunkSize = size_t{1} << 20;
    resetPointChunkPosition();
    points.clear();
    std::vector<VertexPosColor> chunk(chunkSize);
    size_t count = chunkSize;
    // A chunk that is not full is the last; asking for another would copy both targets for nothing.
    while (count == chunkSize) {
        count = getNextPointChunk(chunk.data(), chunkSize);
        points.insert(points.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(count));
    }
}

void Renderer::writePoints(const std::filesystem::path& path) {
    renderFrame(UploadAllowance::noLimit);
    std::vector<VertexPosColor> points;
    getPoints(points);
    std::ofstream file(path);
    file.imbue(std::locale::classic());
    file << "X Y Z Red Green Blue Alpha\n" << std::setprecision(7);
    for (const VertexPosColor& point : points) {
        file << point.position.x() << ' ' << point.position.y() << ' ' << point.position.z() << ' '
             << int{point.color.r()} << ' ' << int{point.color.g()} << ' ' << int{point.color.b()} << ' '
             << int{point.color.a()} << '\n';
    }
}

}  // namespace Render
