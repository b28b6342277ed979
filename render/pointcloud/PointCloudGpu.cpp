#include <render/pointcloud/PointCloudGpu.h>

#include <render/gpu/ComException.h>
#include <render/gpu/VertexLayouts.h>

#include <cstring>
#include <limits>
#include <utility>

namespace Render {

namespace {

constexpr std::size_t pointsPerPage = std::size_t{1} << 20;
constexpr std::size_t pointSize = sizeof(VertexContainer::Vertex);
constexpr UINT pointStride = static_cast<UINT>(pointSize);
constexpr UINT pointOffset = 0;
constexpr const char* shaderName = "shaders/pointcloud.hlsl";

D3D11_TEXTURE1D_DESC nodeTableDesc() {
    D3D11_TEXTURE1D_DESC desc{};
    desc.Width = static_cast<UINT>(PublishedNodes::maxNodes);
    desc.MipLevels = 1;
    desc.ArraySize = 1;
    desc.Format = DXGI_FORMAT_R8G8B8A8_UNORM;
    desc.Usage = D3D11_USAGE_DYNAMIC;
    desc.BindFlags = D3D11_BIND_SHADER_RESOURCE;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
    return desc;
}

}  // namespace

PointCloudGpu::PointCloudGpu(ATL::CComPtr<ID3D11Device> device, ATL::CComPtr<ID3D11DeviceContext> context)
    : mDevice(std::move(device)),
      mContext(std::move(context)),
      mVertexShader(VertexShader::fromHlslResource(mDevice, shaderName, VertexLayouts::pointCloud())),
      mPixelShader(PixelShader::fromHlslResource(mDevice, shaderName)),
      mFrameConstants(mDevice),
      mNodeConstants(mDevice),
      mNodeTable(mDevice, nodeTableDesc()),
      mNodeTableView(mDevice, mNodeTable.get(), nullptr),
      mPool(pointsPerPage) {}

void PointCloudGpu::takeOver(PublishedNodes& published, const Limit& limit) {
    mBoxesColor.reset();
    try {
        mPool.update(published.nodes, {limit.bytes / pointSize, limit.isOneAllowed});
        createPages();
        uploadPoints(published);
        collectDrawnNodes(published);
    } catch (...) {
        // Nobody knows what arrived: begin anew.
        mPool.clear();
        mPages.clear();
        mPageCapacities.clear();
        mDrawnNodes.clear();
        throw;
    }
    if (isSettled()) {
        published.dropVertices();
    }
}

std::size_t PointCloudGpu::pendingPointBytes() const {
    return mPool.pointsLeft() * pointSize;
}

void PointCloudGpu::createPages() {
    mPages.resize(mPool.pageCount());
    mPageCapacities.resize(mPool.pageCount(), 0);
    for (std::size_t page = 0; page < mPages.size(); ++page) {
        const std::size_t capacity = mPool.pageCapacity(page);
        if (capacity == mPageCapacities[page]) {
            continue;
        }
        mPages[page].Release();
        mPageCapacities[page] = capacity;
        if (capacity == 0) {
            continue;
        }
        if (capacity > std::numeric_limits<UINT>::max() / pointSize) {
            throwIfFailed(E_INVALIDARG, "a page of more points than 32 bits can size");
        }
        D3D11_BUFFER_DESC desc{};
        desc.ByteWidth = static_cast<UINT>(capacity * pointSize);
        desc.Usage = D3D11_USAGE_DEFAULT;
        desc.BindFlags = D3D11_BIND_VERTEX_BUFFER;
        throwIfFailed(mDevice->CreateBuffer(&desc, nullptr, &mPages[page]),
                      "ID3D11Device::CreateBuffer of a page of points");
    }
}

void PointCloudGpu::uploadPoints(const PublishedNodes& published) {
    for (const std::size_t i : mPool.uploads()) {
        const PointPool::Range& range = mPool.ranges()[i];
        const std::size_t first = range.first * pointSize;
        const std::size_t size = published.nodes[i].pointCount * pointSize;
        const D3D11_BOX box{static_cast<UINT>(first), 0, 0, static_cast<UINT>(first + size), 1, 1};
        mContext->UpdateSubresource(mPages[range.page], 0, &box, published.nodes[i].vertices->vertices.data(),
                                    0, 0);
        mUploadedPointBytes += size;
    }
}

void PointCloudGpu::uploadNodeTable(const std::vector<PublishedNodes::Texel>& table) {
    const D3D11_MAPPED_SUBRESOURCE mapped = mNodeTable.map(mContext, D3D11_MAP_WRITE_DISCARD);
    std::memcpy(mapped.pData, table.data(), table.size() * sizeof(PublishedNodes::Texel));
    mNodeTable.unMap(mContext);
}

// In published order: where discs meet at one depth, the picture does not depend on what was uploaded when.
void PointCloudGpu::collectDrawnNodes(const PublishedNodes& published) {
    // The shader counts the children before a child, so the table holds no node that is not drawn yet.
    std::vector<std::size_t> arrived;
    mDrawnNodes.clear();
    for (std::size_t i = 0; i < published.nodes.size(); ++i) {
        const PublishedNode& node = published.nodes[i];
        const PointPool::Range& range = mPool.ranges()[i];
        if (node.pointCount > 0 && range.count == 0) {
            continue;
        }
        arrived.push_back(i);
        if (range.count == 0) {
            continue;
        }
        DrawnNode& drawn = mDrawnNodes.emplace_back();
        drawn.range = range;
        drawn.constants.nodeMin = {node.cube.min.x(), node.cube.min.y(), node.cube.min.z()};
        drawn.constants.nodeIndex = static_cast<std::uint32_t>(arrived.size() - 1);
        drawn.constants.nodeDepth = static_cast<std::uint32_t>(node.id.level());
        drawn.cube = node.cube;
    }
    if (arrived.size() == published.nodes.size()) {
        uploadNodeTable(published.nodeTable);
    } else {
        uploadNodeTable(published.nodeTableOf(arrived));
    }
}

void PointCloudGpu::draw() {
    if (mDrawnNodes.empty()) {
        return;
    }
    // Before anything is bound, because it may fail.
    mFrameConstants.upload(mContext);
    mNodeConstants.upload(mContext);
    const Bound bound(*this);
    drawNodes();
}

PointCloudGpu::Bound::Bound(PointCloudGpu& gpu) : mGpu(gpu) {
    ID3D11DeviceContext* const context = mGpu.mContext;
    mGpu.mVertexShader.begin(context);
    mGpu.mPixelShader.begin(context);
    context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLESTRIP);
    mGpu.mFrameConstants.begin(context, ShaderConfiguration::Vertex | ShaderConfiguration::Pixel, 0);
    mGpu.mNodeConstants.begin(context, ShaderConfiguration::Vertex, 1);
    mGpu.mNodeTableView.begin(context, ShaderConfiguration::Vertex, 0);
}

PointCloudGpu::Bound::~Bound() {
    ID3D11DeviceContext* const context = mGpu.mContext;
    ID3D11Buffer* const none = nullptr;
    context->IASetVertexBuffers(0, 1, &none, &pointStride, &pointOffset);
    mGpu.mNodeTableView.end(context);
    mGpu.mNodeConstants.end(context);
    mGpu.mFrameConstants.end(context);
    mGpu.mPixelShader.end(context);
    mGpu.mVertexShader.end(context);
}

void PointCloudGpu::drawNodes() {
    constexpr UINT corners = 4;
    ID3D11Buffer* bound = nullptr;
    for (const DrawnNode& node : mDrawnNodes) {
        ID3D11Buffer* const page = mPages[node.range.page];
        if (page != bound) {
            mContext->IASetVertexBuffers(0, 1, &page, &pointStride, &pointOffset);
            bound = page;
        }
        mNodeConstants.set(node.constants);
        mNodeConstants.upload(mContext);
        mContext->DrawInstanced(corners, static_cast<UINT>(node.range.count), 0,
                                static_cast<UINT>(node.range.first));
    }
}

void PointCloudGpu::drawBoundingBoxes(const Math::Color& color) {
    if (mDrawnNodes.empty()) {
        return;
    }
    if (!mBoxes) {
        mBoxes.emplace(mDevice, PublishedNodes::maxNodes);
        mBoxesColor.reset();
    }
    if (mBoxesColor != color) {
        std::vector<BoxWithColor> boxes;
        boxes.reserve(mDrawnNodes.size());
        for (const DrawnNode& node : mDrawnNodes) {
            boxes.push_back({node.cube.min, node.cube.max, color});
        }
        mBoxes->update(mContext, boxes);
        mBoxesColor = color;
    }
    mBoxes->setModelViewProjection(mFrameConstants.data().modelViewProj);
    mBoxes->draw(mContext);
}

}  // namespace Render
