#pragma once

#include <render/gpu/Texture2d.h>

namespace Render {

/// A staging texture mapped for reading, unmapped at the end of its life. On the render thread only.
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

}  // namespace Render
