#include <render/core/Renderer.h>

#include <cstring>
#include <stdexcept>

namespace Render {

namespace {

/// A texture mapped for reading, unmapped when it goes out of scope.
class ReadMapping {
public:
    ReadMapping(Texture2d& texture, ID3D11DeviceContext* context)
        : mTexture(texture), mContext(context), mMapped(texture.map(context, D3D11_MAP_READ, 0)) {}
    ~ReadMapping() { mTexture.unMap(mContext, 0); }
    ReadMapping(const ReadMapping&) = delete;
    ReadMapping& operator=(const ReadMapping&) = delete;

    const D3D11_MAPPED_SUBRESOURCE& operator*() const { return mMapped; }
    const D3D11_MAPPED_SUBRESOURCE* operator->() const { return &mMapped; }

private:
    Texture2d& mTexture;
    ID3D11DeviceContext* mContext;
    D3D11_MAPPED_SUBRESOURCE mMapped;
};

}  // namespace

template <class Image>
void Renderer::readBack(Texture2d& staging, const Texture2d& source, Image& image) {
    staging.copy(mDeviceContext, source);
    const ReadMapping mapping(staging, mDeviceContext);
    image.resize(viewport().width(), viewport().height(), mapping->RowPitch);
    if (image.sizeInBytes() != mapping->DepthPitch) {
        throw std::runtime_error("image size does not match");
    }
    std::memcpy(image.data(), mapping->pData, mapping->DepthPitch);
}

Math::Point<float, 3> Renderer::unProject(size_t x, size_t y, float depth) {
    return mCamera->unProject(x, y, depth);
}

Math::Point<float, 3> Renderer::project(const Math::Point<float, 3>& point) {
    return mCamera->project(point);
}

void Renderer::getColorImage(Graphics::ColorImage& image) {
    readBack(mColorStaging, mOutputPass.texture("color"), image);
}

void Renderer::getDepthImage(Graphics::DepthImage& image) {
    readBack(mDepthStaging, mScenePass.depthTexture(), image);
}

void Renderer::writePngImage(const std::filesystem::path& path) {
    render();
    Graphics::ColorImage image;
    getColorImage(image);
    image.writePng(path);
}

}  // namespace Render
