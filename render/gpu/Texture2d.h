#pragma once

#include <core/Export.h>
#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <math/Color.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

#include <cstddef>
#include <vector>

namespace Render {

/// Owns one 2D texture or texture array, and the description that it is created from again at another size.
/// Texels are four bytes wherever images are involved. Failing calls throw ComException; operations with a
/// context belong to its thread.
class LUMARO_API Texture2d {
public:
    Texture2d() noexcept = default;
    Texture2d(Texture2d&&) noexcept = default;
    Texture2d& operator=(Texture2d&&) noexcept = default;

    /// Stays empty, without error, when width, height or array size is 0; so do the constructors below.
    Texture2d(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc);
    Texture2d(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc, unsigned width, unsigned height,
              unsigned arraySize);
    /// Every texel of every slice is `value`. The description must ask for one mip level.
    Texture2d(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc, unsigned width, unsigned height,
              float value, unsigned arraySize);
    Texture2d(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc, unsigned width, unsigned height,
              const Math::Color& value, unsigned arraySize);

    /// Creates the texture anew without content. Empty after a failure, and a size of 0 is one.
    void resize(ID3D11Device* device, unsigned width, unsigned height, unsigned arraySize);

    /// Creates the texture anew with the given content; `stride` is in bytes. Empty after a failure.
    void load(ID3D11Device* device, unsigned width, unsigned height, unsigned stride, const char* data);
    void load(ID3D11Device* device, unsigned width, unsigned height, unsigned stride,
              const std::vector<const char*>& slices);
    void load(ID3D11Device* device, const Graphics::ColorImage& image);
    void load(ID3D11Device* device, const Graphics::DepthImage& image);
    /// Image i becomes slice i. An empty vector changes nothing; images of unequal width, height or stride
    /// throw std::runtime_error and change nothing.
    void load(ID3D11Device* device, const std::vector<Graphics::ColorImage>& images);
    void load(ID3D11Device* device, const std::vector<Graphics::DepthImage>& images);

    /// Maps subresource 0, whatever the last argument says.
    D3D11_MAPPED_SUBRESOURCE map(ID3D11DeviceContext* context, D3D11_MAP type, unsigned subresource);
    void unMap(ID3D11DeviceContext* context, unsigned subresource);

    /// Copies the image into subresource 0 with its first texel at (x, y). No clipping: the image must lie
    /// inside the texture. The last argument is ignored.
    void drawImageTile(ID3D11DeviceContext* context, const Graphics::ColorImage& image, D3D11_MAP type,
                       unsigned subresource);
    void drawImageTile(ID3D11DeviceContext* context, const Graphics::DepthImage& image, D3D11_MAP type,
                       unsigned subresource);
    void drawImageTile(ID3D11DeviceContext* context, size_t x, size_t y, const Graphics::ColorImage& image,
                       D3D11_MAP type, unsigned subresource);
    void drawImageTile(ID3D11DeviceContext* context, size_t x, size_t y, const Graphics::DepthImage& image,
                       D3D11_MAP type, unsigned subresource);

    /// Copies the whole of `source` into this texture.
    void copy(ID3D11DeviceContext* context, const Texture2d& source) const;
    /// Copies one whole subresource of `source` into one of this texture.
    void copySubRegion(ID3D11DeviceContext* context, const Texture2d& source, unsigned dstX, unsigned dstY,
                       unsigned dstZ, unsigned dstSubresource, unsigned srcSubresource) const;

    /// Lent, not given; null while empty.
    ID3D11Texture2D* get() const { return mTexture; }

private:
    bool setSize(unsigned width, unsigned height, unsigned arraySize);
    void create(ID3D11Device* device, const D3D11_SUBRESOURCE_DATA* content);
    template <class Image, class Value>
    void createFilled(ID3D11Device* device, const Value& value);
    template <class Image>
    void loadImages(ID3D11Device* device, const std::vector<Image>& images, const char* mismatch);
    template <class Image>
    void drawTile(ID3D11DeviceContext* context, size_t x, size_t y, const Image& image, D3D11_MAP type);

    D3D11_TEXTURE2D_DESC mDesc{};
    ATL::CComPtr<ID3D11Texture2D> mTexture;
};

}  // namespace Render
