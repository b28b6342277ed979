#pragma once

#include <math/Color.h>
#include <render/core/UploadAllowance.h>
#include <render/gpu/Boxes.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/PointCloudConstants.h>
#include <render/gpu/ShaderResourceView.h>
#include <render/gpu/Texture1d.h>
#include <render/gpu/VertexShader.h>
#include <render/pointcloud/PointPool.h>
#include <render/pointcloud/PublishedNodes.h>

#include <d3d11.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace Render {

/// The GPU side of one point cloud: shaders, constants, the node table and the points of the published nodes.
/// Render thread only. Failing calls throw ComException.
class PointCloudGpu {
public:
    PointCloudGpu(ATL::CComPtr<ID3D11Device> device, ATL::CComPtr<ID3D11DeviceContext> context);

    void setConstants(const PointCloudFrameConstants& constants) { mFrameConstants.set(constants); }

    /// Bytes that a takeOver() may send.
    using Limit = UploadAllowance::Share;
    static constexpr Limit noLimit{UploadAllowance::noLimit, true};

    /// Sends what a publication has and the GPU lacks, within the limit: when not isSettled() then, it is to
    /// be called again with the same publication or a later one. Once settled it drops the publication's
    /// vertices; until then, and after a failure, the publication still has all of them.
    void takeOver(PublishedNodes& published, const Limit& limit = noLimit);
    bool isSettled() const { return mPool.isSettled(); }

    /// Draws the nodes of the last publication that have arrived.
    void draw();
    /// Draws their cubes as wire frames.
    void drawBoundingBoxes(const Math::Color& color);

    std::size_t uploadedPointBytes() const { return mUploadedPointBytes; }
    /// Of the last publication.
    std::size_t pendingPointBytes() const;

private:
    struct DrawnNode {
        PointPool::Range range;
        PointCloudNodeConstants constants;
        Math::NBoundingBox<float, 3> cube;
    };

    /// All that drawing a point cloud binds, for as long as it lives.
    class Bound {
    public:
        explicit Bound(PointCloudGpu& gpu);
        ~Bound();
        Bound(const Bound&) = delete;
        Bound& operator=(const Bound&) = delete;

    private:
        PointCloudGpu& mGpu;
    };

    void uploadPoints(const PublishedNodes& published);
    void createPages();
    void collectDrawnNodes(const PublishedNodes& published);
    void uploadNodeTable(const std::vector<PublishedNodes::Texel>& table);
    void drawNodes();

    ATL::CComPtr<ID3D11Device> mDevice;
    ATL::CComPtr<ID3D11DeviceContext> mContext;
    VertexShader mVertexShader;
    PixelShader mPixelShader;
    ConstantBuffer<PointCloudFrameConstants> mFrameConstants;
    ConstantBuffer<PointCloudNodeConstants> mNodeConstants;
    Texture1d mNodeTable;
    ShaderResourceView mNodeTableView;

    PointPool mPool;
    std::vector<ATL::CComPtr<ID3D11Buffer>> mPages;  ///< By the pool's page numbers.
    std::vector<std::size_t> mPageCapacities;
    std::vector<DrawnNode> mDrawnNodes;  ///< Those with points on the GPU, as published.
    std::size_t mUploadedPointBytes = 0;

    std::optional<Boxes> mBoxes;             ///< Made when first shown.
    std::optional<Math::Color> mBoxesColor;  ///< Of what is in them; none when that is out of date.
};

}  // namespace Render
