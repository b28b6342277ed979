#pragma once

#include <core/Export.h>
#include <math/Color.h>
#include <math/NBoundingBox.h>
#include <math/StoredMatrix.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/VertexShader.h>
#include <render/gpu/VertexTypes.h>

#include <d3d11.h>

#include <Eigen/Core>
#include <cstddef>
#include <vector>

namespace Render {

/// A batch of axis-aligned boxes, drawn as wire frames with one instanced call. Constructors may run on any
/// thread, everything else on the render thread. Failing calls throw ComException.
class LUMARO_API Boxes {
public:
    Boxes(Boxes&&) noexcept = default;
    Boxes& operator=(Boxes&&) noexcept = default;

    /// A fixed set, which update() cannot change. No boxes at all is a failure.
    Boxes(const ATL::CComPtr<ID3D11Device>& device, std::vector<BoxWithColor> boxes);
    /// An updatable set of at most `capacity` boxes, empty before the first update().
    Boxes(const ATL::CComPtr<ID3D11Device>& device, size_t capacity);
    /// A fixed set of one box.
    Boxes(const ATL::CComPtr<ID3D11Device>& device, const Math::NBoundingBox<float, 3>& box,
          const Math::Color& color);

    /// Replaces the boxes. The caller never passes more than the capacity.
    void update(ID3D11DeviceContext* context, const std::vector<BoxWithColor>& boxes);

    /// From the boxes' coordinates to clip space; the identity at first. Uploaded by the next draw().
    void setModelViewProjection(const Eigen::Matrix4f& matrix);

    /// Draws into the targets and with the depth and blend states that are set. Afterwards no input layout,
    /// topology, shader or matrix is bound.
    void draw(ID3D11DeviceContext* context);

    size_t instanceCapacity() const { return mInstanceCapacity; }
    size_t boxCount() const { return mBoxCount; }

private:
    void createInstances(ID3D11Device* device, D3D11_USAGE usage, unsigned cpuAccess,
                         const BoxWithColor* boxes);

    VertexShader mVertexShader;
    PixelShader mPixelShader;
    ConstantBuffer<Math::StoredMatrix4f> mModelViewProjection;
    size_t mInstanceCapacity = 0;
    ATL::CComPtr<ID3D11Buffer> mInstanceBuffer;
    size_t mBoxCount = 0;
};

}  // namespace Render
