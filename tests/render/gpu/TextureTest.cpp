#include <render/gpu/ComException.h>
#include <render/gpu/Texture1d.h>
#include <render/gpu/Texture2d.h>

#include <gtest/gtest.h>
#include <tests/support/GpuTestDevice.h>

#include <stdexcept>
#include <string>

using Graphics::ColorImage;
using Graphics::DepthImage;
using Math::Color;
using Render::Texture2d;
using TestSupport::GpuTestDevice;

namespace {

class TextureTest : public testing::Test {
protected:
    static D3D11_TEXTURE2D_DESC desc(DXGI_FORMAT format) {
        return GpuTestDevice::textureDesc(4, 3, format, D3D11_BIND_SHADER_RESOURCE);
    }

    /// Texels that tell their place, in rows with padding.
    static ColorImage numberedImage(size_t width, size_t height, uint8_t alpha) {
        ColorImage image;
        image.resize(width, height, width * 4 + 12);
        for (size_t y = 0; y < height; ++y) {
            for (size_t x = 0; x < width; ++x) {
                image.setPixel(x, y, Color(static_cast<uint8_t>(x), static_cast<uint8_t>(y), 200, alpha));
            }
        }
        return image;
    }

    static void expectShows(const std::vector<Color>& texels, const ColorImage& image) {
        ASSERT_EQ(texels.size(), image.width() * image.height());
        for (size_t i = 0; i < texels.size(); ++i) {
            EXPECT_EQ(texels[i].packed(), image.pixel(i % image.width(), i / image.width()).packed());
        }
    }

    GpuTestDevice& mGpu = GpuTestDevice::fresh();
    ID3D11Device* mDevice = mGpu.device();
    ID3D11DeviceContext* mContext = mGpu.context();
};

constexpr DXGI_FORMAT colorFormat = DXGI_FORMAT_B8G8R8A8_UNORM;
constexpr DXGI_FORMAT depthFormat = DXGI_FORMAT_R32_FLOAT;

}  // namespace

TEST_F(TextureTest, IsEmptyWhenCreatedWithoutASize) {
    EXPECT_EQ(Texture2d(mDevice, desc(colorFormat), 0, 3, 1).get(), nullptr);
    EXPECT_EQ(Texture2d(mDevice, desc(colorFormat), 4, 0, 1.0f, 1).get(), nullptr);
    EXPECT_EQ(Texture2d(mDevice, desc(colorFormat), 4, 3, Color(1, 2, 3, 4), 0).get(), nullptr);
    // The rest of the description is kept for later.
    Texture2d texture(mDevice, desc(colorFormat), 0, 0, 0);
    texture.resize(mDevice, 8, 2, 1);
    EXPECT_EQ(mGpu.read<Color>(texture.get()).size(), 16u);
}

TEST_F(TextureTest, FillsEverySlice) {
    const Texture2d colors(mDevice, desc(colorFormat), 5, 2, Color(10, 20, 30, 40), 3);
    const Texture2d depths(mDevice, desc(depthFormat), 2, 2, 0.3f, 2);
    for (unsigned slice = 0; slice < 3; ++slice) {
        EXPECT_EQ(mGpu.read<Color>(colors.get(), slice), std::vector<Color>(10, Color(10, 20, 30, 40)));
    }
    EXPECT_EQ(mGpu.read<float>(depths.get(), 1), std::vector<float>(4, 0.3f));
}

TEST_F(TextureTest, LoadsImagesAsSlicesWhateverTheirPadding) {
    Texture2d texture(mDevice, desc(colorFormat));
    const std::vector<ColorImage> images = {numberedImage(6, 5, 100), numberedImage(6, 5, 200)};
    texture.load(mDevice, images);
    expectShows(mGpu.read<Color>(texture.get(), 0), images[0]);
    expectShows(mGpu.read<Color>(texture.get(), 1), images[1]);

    DepthImage depth(2, 1);
    depth.setPixel(1, 0, 7.5f);
    Texture2d depths(mDevice, desc(depthFormat));
    depths.load(mDevice, depth);
    EXPECT_EQ(mGpu.read<float>(depths.get())[1], 7.5f);
}

TEST_F(TextureTest, ImagesOfUnequalSizeAreRefusedBeforeAnythingChanges) {
    const ColorImage image = numberedImage(4, 4, 9);
    Texture2d texture(mDevice, desc(colorFormat));
    texture.load(mDevice, image);
    ID3D11Texture2D* const before = texture.get();
    texture.load(mDevice, std::vector<ColorImage>());
    try {
        texture.load(mDevice, std::vector<ColorImage>{image, numberedImage(4, 5, 9)});
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "All color images must have the same width, height and stride");
    }
    EXPECT_EQ(texture.get(), before);
    expectShows(mGpu.read<Color>(texture.get()), image);
    try {
        texture.load(mDevice, std::vector<DepthImage>{DepthImage(4, 4), DepthImage(5, 4)});
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "All depth images must have the same width, height and stride");
    }
}

TEST_F(TextureTest, IsEmptyAfterAFailedResize) {
    Texture2d texture(mDevice, desc(colorFormat));
    ASSERT_NE(texture.get(), nullptr);
    EXPECT_THROW(texture.resize(mDevice, 0, 0, 0), Render::ComException);
    EXPECT_EQ(texture.get(), nullptr);
}

TEST_F(TextureTest, DrawsATileAtItsPlaceAndNowhereElse) {
    D3D11_TEXTURE2D_DESC staging = GpuTestDevice::textureDesc(16, 6, colorFormat, 0);
    staging.Usage = D3D11_USAGE_STAGING;
    staging.CPUAccessFlags = D3D11_CPU_ACCESS_READ | D3D11_CPU_ACCESS_WRITE;
    Texture2d texture(mDevice, staging, 16, 6, Color(0, 0, 0, 255), 1);
    ColorImage tile(3, 2);
    tile.fill(Color(1, 2, 3, 4));
    tile.setPixel(2, 1, Color(9, 9, 9, 9));
    // The subresource that is asked for is ignored: there is only one here.
    texture.drawImageTile(mContext, 10, 2, tile, D3D11_MAP_WRITE, 3);

    ColorImage expected(16, 6);
    expected.fill(Color(0, 0, 0, 255));
    for (size_t y = 0; y < 2; ++y) {
        for (size_t x = 0; x < 3; ++x) {
            expected.setPixel(10 + x, 2 + y, tile.pixel(x, y));
        }
    }
    expectShows(mGpu.read<Color>(texture.get()), expected);
}

TEST_F(TextureTest, CopiesOneSubresourceIntoAnother) {
    Texture2d target(mDevice, desc(colorFormat), 4, 4, Color(0, 0, 0, 0), 2);
    Texture2d source(mDevice, desc(colorFormat), 2, 2, Color(5, 6, 7, 8), 1);
    target.copySubRegion(mContext, source, 1, 2, 0, 1, 0);
    const std::vector<Color> slice = mGpu.read<Color>(target.get(), 1);
    EXPECT_EQ(slice[2 * 4 + 1], Color(5, 6, 7, 8));
    EXPECT_EQ(slice[3 * 4 + 2], Color(5, 6, 7, 8));
    EXPECT_EQ(slice[2 * 4 + 3], Color(0, 0, 0, 0));
    EXPECT_EQ(mGpu.read<Color>(target.get(), 0), std::vector<Color>(16, Color(0, 0, 0, 0)));
}

TEST_F(TextureTest, OneDimensionalTextureCarriesMappedBytes) {
    D3D11_TEXTURE1D_DESC dynamic{};
    dynamic.Width = 3;
    dynamic.MipLevels = 1;
    dynamic.ArraySize = 1;
    dynamic.Format = DXGI_FORMAT_R8G8B8A8_UNORM;
    dynamic.Usage = D3D11_USAGE_DYNAMIC;
    dynamic.BindFlags = D3D11_BIND_SHADER_RESOURCE;
    dynamic.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
    Render::Texture1d texture(mDevice, dynamic);
    const std::string bytes = "abcdefghijkl";
    std::memcpy(texture.map(mContext, D3D11_MAP_WRITE_DISCARD).pData, bytes.data(), bytes.size());
    texture.unMap(mContext);

    D3D11_TEXTURE1D_DESC staging = dynamic;
    staging.Usage = D3D11_USAGE_STAGING;
    staging.BindFlags = 0;
    staging.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    Render::Texture1d copy(mDevice, staging);
    copy.copy(mContext, texture);
    const void* read = copy.map(mContext, D3D11_MAP_READ).pData;
    EXPECT_EQ(std::string(static_cast<const char*>(read), bytes.size()), bytes);
    copy.unMap(mContext);
    EXPECT_THROW(texture.map(mContext, D3D11_MAP_READ), Render::ComException);
}
