#include <render/gpu/ComException.h>
#include <render/pointcloud/PointCloudGpu.h>

#include <tests/render/pointcloud/CloudFixture.h>
#include <tests/support/ComSpy.h>

namespace {

using ATL::CComPtr;

int callsUntilFailure = 0;  // 0: none fails.

bool failsNow() {
    return callsUntilFailure > 0 && --callsUntilFailure == 0;
}

HRESULT(STDMETHODCALLTYPE* originalMap)
(ID3D11DeviceContext*, ID3D11Resource*, UINT, D3D11_MAP, UINT, D3D11_MAPPED_SUBRESOURCE*) = nullptr;
HRESULT STDMETHODCALLTYPE map(ID3D11DeviceContext* context, ID3D11Resource* resource, UINT subresource,
                              D3D11_MAP type, UINT flags, D3D11_MAPPED_SUBRESOURCE* mapped) {
    return failsNow() ? E_OUTOFMEMORY : originalMap(context, resource, subresource, type, flags, mapped);
}

HRESULT(STDMETHODCALLTYPE* originalCreateBuffer)
(ID3D11Device*, const D3D11_BUFFER_DESC*, const D3D11_SUBRESOURCE_DATA*, ID3D11Buffer**) = nullptr;
HRESULT STDMETHODCALLTYPE createBuffer(ID3D11Device* device, const D3D11_BUFFER_DESC* desc,
                                       const D3D11_SUBRESOURCE_DATA* content, ID3D11Buffer** buffer) {
    return failsNow() ? E_OUTOFMEMORY : originalCreateBuffer(device, desc, content, buffer);
}

class PointCloudGpuTest : public TestSupport::CloudFixture {
protected:
    void SetUp() override {
        cloud->setMaxPointSize(999);
        draw(*cloud);
        expected = exactPositions;
    }

    void expectNothingBound() const {
        CComPtr<ID3D11Buffer> buffers[4];
        CComPtr<ID3D11ShaderResourceView> table;
        CComPtr<ID3D11VertexShader> vertexShader;
        CComPtr<ID3D11PixelShader> pixelShader;
        UINT stride = 0;
        UINT offset = 0;
        gpu.context()->VSGetConstantBuffers(0, 1, &buffers[0]);
        gpu.context()->VSGetConstantBuffers(1, 1, &buffers[1]);
        gpu.context()->PSGetConstantBuffers(0, 1, &buffers[2]);
        gpu.context()->IAGetVertexBuffers(0, 1, &buffers[3], &stride, &offset);
        gpu.context()->VSGetShaderResources(0, 1, &table);
        gpu.context()->VSGetShader(&vertexShader, nullptr, nullptr);
        gpu.context()->PSGetShader(&pixelShader, nullptr, nullptr);
        for (const CComPtr<ID3D11Buffer>& buffer : buffers) {
            EXPECT_EQ(buffer.p, nullptr);
        }
        EXPECT_EQ(table.p, nullptr);
        EXPECT_EQ(vertexShader.p, nullptr);
        EXPECT_EQ(pixelShader.p, nullptr);
    }

    /// Frames in which a publication and the constants are new, and in each of which a later call fails.
    /// Returns how many calls there are.
    int failAtEachCall() {
        for (int call = 1;; ++call) {
            SCOPED_TRACE(call);
            cloud->clearVisibleOctreeNodes();
            draw(*cloud);
            cloud->reloadPoints(nullptr, 21, {});
            cloud->setMaxPointSize(1000.0f + static_cast<float>(call));
            targets.bindAndClear();
            callsUntilFailure = call;
            try {
                cloud->render();
                callsUntilFailure = 0;
                return call - 1;
            } catch (const Render::ComException& error) {
                EXPECT_EQ(error.result(), E_OUTOFMEMORY);
            }
            expectNothingBound();
            EXPECT_TRUE(cloud->needsRedraw());
            draw(*cloud);
            EXPECT_FALSE(cloud->needsRedraw());
            EXPECT_EQ(exactPositions, expected);
        }
    }

    std::shared_ptr<PointCloudRenderable> cloud =
        cloudOf({{root, {{{-4, -4, 1}, red}}}, {root.child(7), {{{3, 4, 2}, blue}}}});
    std::vector<TestSupport::Float4> expected;
};

TEST_F(PointCloudGpuTest, AFrameAfterOneThatFailedDraws) {
    TestSupport::ComSpy context(gpu.context(), 115);
    originalMap = context.replace(14, &map);
    TestSupport::ComSpy device(gpu.device(), 43);
    originalCreateBuffer = device.replace(3, &createBuffer);
    // A page, the node table, the frame's constants, those of two nodes.
    EXPECT_EQ(failAtEachCall(), 5);
}

TEST_F(PointCloudGpuTest, ANodeTooLargeForABufferIsRefused) {
    Render::PublishedNodes published;
    published.nodes.resize(1);
    published.nodes[0].pointCount = (std::size_t{1} << 32) / 24 + 1;
    Render::PointCloudGpu side(gpu.device(), gpu.context());
    EXPECT_THROW(side.takeOver(published), Render::ComException);
}

}  // namespace
