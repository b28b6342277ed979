#include <render/gpu/ComException.h>
#include <render/gpu/Texture2d.h>
#include <render/gpu/TypePromises.h>

#include <cstring>
#include <stdexcept>

namespace Render {

static_assert(isMoveOnly<Texture2d>);

namespace {

constexpr size_t texelSize = 4;

template <class Image>
const char* bytesOf(const Image& image) {
    return reinterpret_cast<const char*>(image.data());
}

D3D11_SUBRESOURCE_DATA sliceContent(const char* data, unsigned stride) {
    D3D11_SUBRESOURCE_DATA content{};
    content.pSysMem = data;
    content.SysMemPitch = stride;
    return content;
}

}  // namespace

Texture2d::Texture2d(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc)
    : Texture2d(device, desc, desc.Width, desc.Height, desc.ArraySize) {}

Texture2d::Texture2d(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc, unsigned width, unsigned height,
                     unsigned arraySize)
    : mDesc(desc) {
    if (setSize(width, height, arraySize)) {
        create(device, nullptr);
    }
}

Texture2d::Texture2d(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc, unsigned width, unsigned height,
                     float value, unsigned arraySize)
    : mDesc(desc) {
    if (setSize(width, height, arraySize)) {
        createFilled<Graphics::DepthImage>(device, value);
    }
}

Texture2d::Texture2d(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc, unsigned width, unsigned height,
                     const Math::Color& value, unsigned arraySize)
    : mDesc(desc) {
    if (setSize(width, height, arraySize)) {
        createFilled<Graphics::ColorImage>(device, value);
    }
}

bool Texture2d::setSize(unsigned width, unsigned height, unsigned arraySize) {
    mDesc.Width = width;
    mDesc.Height = height;
    mDesc.ArraySize = arraySize;
    return width != 0 && height != 0 && arraySize != 0;
}

void Texture2d::create(ID3D11Device* device, const D3D11_SUBRESOURCE_DATA* content) {
    mTexture.Release();
    throwIfFailed(device->CreateTexture2D(&mDesc, content, &mTexture), "ID3D11Device::CreateTexture2D");
}

template <class Image, class Value>
void Texture2d::createFilled(ID3D11Device* device, const Value& value) {
    Image image(mDesc.Width, mDesc.Height);
    image.fill(value);
    const std::vector<D3D11_SUBRESOURCE_DATA> contents(
        mDesc.ArraySize, sliceContent(bytesOf(image), static_cast<unsigned>(image.stride())));
    create(device, contents.data());
}

void Texture2d::resize(ID3D11Device* device, unsigned width, unsigned height, unsigned arraySize) {
    setSize(width, height, arraySize);
    create(device, nullptr);
}

void Texture2d::load(ID3D11Device* device, unsigned width, unsigned height, unsigned stride,
                     const char* data) {
    setSize(width, height, 1);
    const D3D11_SUBRESOURCE_DATA content = sliceContent(data, stride);
    create(device, &content);
}

void Texture2d::load(ID3D11Device* device, unsigned width, unsigned height, unsigned stride,
                     const std::vector<const char*>& slices) {
    setSize(width, height, static_cast<unsigned>(slices.size()));
    std::vector<D3D11_SUBRESOURCE_DATA> contents;
    contents.reserve(slices.size());
    for (const char* slice : slices) {
        contents.push_back(sliceContent(slice, stride));
    }
    create(device, contents.data());
}

void Texture2d::load(ID3D11Device* device, const Graphics::ColorImage& image) {
    load(device, static_cast<unsigned>(image.width()), static_cast<unsigned>(image.height()),
         static_cast<unsigned>(image.stride()), bytesOf(image));
}

void Texture2d::load(ID3D11Device* device, const Graphics::DepthImage& image) {
    load(device, static_cast<unsigned>(image.width()), static_cast<unsigned>(image.height()),
         static_cast<unsigned>(image.stride()), bytesOf(image));
}

template <class Image>
void Texture2d::loadImages(ID3D11Device* device, const std::vector<Image>& images, const char* mismatch) {
    if (images.empty()) {
        return;
    }
    const Image& first = images.front();
    std::vector<const char*> slices;
    slices.reserve(images.size());
    for (const Image& image : images) {
        if (image.width() != first.width() || image.height() != first.height() ||
            image.stride() != first.stride()) {
            throw std::runtime_error(mismatch);
        }
        slices.push_back(bytesOf(image));
    }
    load(device, static_cast<unsigned>(first.width()), static_cast<unsigned>(first.height()),
         static_cast<unsigned>(first.stride()), slices);
}

void Texture2d::load(ID3D11Device* device, const std::vector<Graphics::ColorImage>& images) {
    loadImages(device, images, "All color images must have the same width, height and stride");
}

void Texture2d::load(ID3D11Device* device, const std::vector<Graphics::DepthImage>& images) {
    loadImages(device, images, "All depth images must have the same width, height and stride");
}

D3D11_MAPPED_SUBRESOURCE Texture2d::map(ID3D11DeviceContext* context, D3D11_MAP type,
                                        unsigned /*subresource*/) {
    D3D11_MAPPED_SUBRESOURCE mapped{};
    throwIfFailed(context->Map(mTexture, 0, type, 0, &mapped), "ID3D11DeviceContext::Map of a 2D texture");
    return mapped;
}

void Texture2d::unMap(ID3D11DeviceContext* context, unsigned /*subresource*/) {
    context->Unmap(mTexture, 0);
}

template <class Image>
void Texture2d::drawTile(ID3D11DeviceContext* context, size_t x, size_t y, const Image& image,
                         D3D11_MAP type) {
    const D3D11_MAPPED_SUBRESOURCE mapped = map(context, type, 0);
    char* row = static_cast<char*>(mapped.pData) + y * mapped.RowPitch + x * texelSize;
    const char* source = bytesOf(image);
    for (size_t i = 0; i < image.height(); ++i) {
        std::memcpy(row, source, image.stride());
        row += mapped.RowPitch;
        source += image.stride();
    }
    unMap(context, 0);
}

void Texture2d::drawImageTile(ID3D11DeviceContext* context, const Graphics::ColorImage& image, D3D11_MAP type,
                              unsigned /*subresource*/) {
    drawTile(context, 0, 0, image, type);
}

void Texture2d::drawImageTile(ID3D11DeviceContext* context, const Graphics::DepthImage& image, D3D11_MAP type,
                              unsigned /*subresource*/) {
    drawTile(context, 0, 0, image, type);
}

void Texture2d::drawImageTile(ID3D11DeviceContext* context, size_t x, size_t y,
                              const Graphics::ColorImage& image, D3D11_MAP type, unsigned /*subresource*/) {
    drawTile(context, x, y, image, type);
}

void Texture2d::drawImageTile(ID3D11DeviceContext* context, size_t x, size_t y,
                              const Graphics::DepthImage& image, D3D11_MAP type, unsigned /*subresource*/) {
    drawTile(context, x, y, image, type);
}

void Texture2d::copy(ID3D11DeviceContext* context, const Texture2d& source) const {
    context->CopyResource(mTexture, source.mTexture);
}

void Texture2d::copySubRegion(ID3D11DeviceContext* context, const Texture2d& source, unsigned dstX,
                              unsigned dstY, unsigned dstZ, unsigned dstSubresource,
                              unsigned srcSubresource) const {
    context->CopySubresourceRegion(mTexture, dstSubresource, dstX, dstY, dstZ, source.mTexture,
                                   srcSubresource, nullptr);
}

}  // namespace Render
