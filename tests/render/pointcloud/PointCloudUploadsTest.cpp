#include <graphics/ColorImage.h>
#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>
#include <render/renderables/GroupRenderable.h>

#include <tests/render/pointcloud/CloudFixture.h>
#include <tests/support/ComSpy.h>
#include <tests/support/PotreeFixture.h>
#include <tests/support/SyntheticOctree.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Octree::OctreeNodeId;
using Render::PointCloudRenderable;

using Cloud = std::shared_ptr<PointCloudRenderable>;

constexpr std::size_t pointsPerNode = 5;
constexpr std::size_t nodeBytes = pointsPerNode * 24;
constexpr std::size_t nodesInAll = 1 + 8 + 64;

// What a frame uploads of it may be limited, unlike after waitUntilLoaded().
void load(PointCloudRenderable& cloud) {
    cloud.startAsyncReload(nullptr, 21);
    while (cloud.isLoading()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// Clouds in one scene, seen from above, with discs so large that each shows how fine its surroundings are.
struct View {
    explicit View(std::vector<Cloud> shown) : clouds(std::move(shown)) {
        const auto scene = Render::GroupRenderable::create("scene");
        for (std::size_t i = 0; i < clouds.size(); ++i) {
            Eigen::Matrix4f moved = Eigen::Matrix4f::Identity();
            moved(0, 3) = 5.0f * static_cast<float>(i);
            clouds[i]->setMatrix(moved);
            clouds[i]->setOctreeNodePriorityThreshold(0.0f);
            clouds[i]->setPointSize(2.0f);
            clouds[i]->setMaxPointSize(1000.0f);
            scene->add(clouds[i]);
        }
        renderer.setViewport(64, 64);
        renderer.setScene(scene);
        renderer.setOrthographic(32, 32, 1, 100);
        renderer.setCameraPose({0, 0, 50}, Eigen::Vector3f(0, 0, -1), Eigen::Vector3f(0, 1, 0));
    }

    /// One frame; what each cloud sent in it.
    std::vector<std::size_t> draw() {
        std::vector<std::size_t> sent;
        for (const Cloud& cloud : clouds) {
            sent.push_back(cloud->uploadedPointBytes());
        }
        renderer.render();
        for (std::size_t i = 0; i < sent.size(); ++i) {
            sent[i] = clouds[i]->uploadedPointBytes() - sent[i];
        }
        return sent;
    }

    std::vector<unsigned char> picture() {
        Graphics::ColorImage image;
        renderer.getColorImage(image);
        return {image.data(), image.data() + image.sizeInBytes()};
    }

    std::vector<Cloud> clouds;
    Render::Renderer renderer{true};
};

/// The first nodes of an octree of three levels.
Cloud cloudOf(std::size_t nodeCount = nodesInAll) {
    TestSupport::SyntheticOctreeShape shape{.depth = 2, .pointsPerNode = pointsPerNode};
    const std::vector<OctreeNodeId> all = TestSupport::SyntheticOctree(shape).allNodes();
    shape.visibility = [all, nodeCount](OctreeNodeId id) {
        return std::find(all.begin(), all.end(), id) - all.begin() < static_cast<std::ptrdiff_t>(nodeCount)
                   ? 1
                   : 2;
    };
    return PointCloudRenderable::create(
        TestSupport::SyntheticOctree::open(std::make_shared<TestSupport::SyntheticOctree>(shape)), "cloud",
        1000000);
}

std::vector<unsigned char> pictureOfFirst(std::size_t nodeCount) {
    View view({cloudOf(nodeCount)});
    view.clouds[0]->reloadPoints(nullptr, 21, {});
    view.draw();
    return view.picture();
}

TEST(PointCloudUploadsTest, WhatHasNotArrivedIsAsIfItWereNotThere) {
    View view({cloudOf()});
    load(*view.clouds[0]);
    std::size_t arrived = 0;
    for (const std::size_t more : {1u, 5u, 3u, 20u, 44u}) {
        EXPECT_TRUE(view.renderer.needsRedraw());
        view.renderer.setUploadBytesPerFrame(more * nodeBytes + nodeBytes - 1);
        EXPECT_EQ(view.draw()[0], more * nodeBytes);
        arrived += more;
        EXPECT_EQ(view.clouds[0]->pendingUploadBytes(), (nodesInAll - arrived) * nodeBytes);
        EXPECT_EQ(view.picture(), pictureOfFirst(arrived)) << arrived;
    }
    EXPECT_FALSE(view.renderer.needsRedraw());
    EXPECT_NE(pictureOfFirst(arrived), pictureOfFirst(arrived - 1));
}

TEST(PointCloudUploadsTest, CloudsShareTheUploadsOfAFrame) {
    View atOnce({cloudOf(), cloudOf(), cloudOf()});
    View view({cloudOf(), cloudOf(), cloudOf()});
    for (std::size_t i = 0; i < 3; ++i) {
        atOnce.clouds[i]->setUniformColor(view.clouds[i]->uniformColor());
        atOnce.clouds[i]->reloadPoints(nullptr, 21, {});
        load(*view.clouds[i]);
    }
    atOnce.draw();
    constexpr std::size_t nodesPerFrame = 20;
    view.renderer.setUploadBytesPerFrame(nodesPerFrame * nodeBytes);
    std::size_t frames = 0;
    std::vector<std::size_t> without(3);
    while (view.renderer.needsRedraw()) {
        const std::vector<std::size_t> sent = view.draw();
        const std::size_t all = sent[0] + sent[1] + sent[2];
        EXPECT_EQ(all, std::min(nodesPerFrame, 3 * nodesInAll - frames * nodesPerFrame) * nodeBytes);
        for (std::size_t i = 0; i < 3; ++i) {
            without[i] = sent[i] > 0 || view.clouds[i]->pendingUploadBytes() == 0 ? 0 : without[i] + 1;
            EXPECT_LT(without[i], 3u) << i;
        }
        ASSERT_LT(++frames, 100u);
    }
    EXPECT_EQ(frames, (3 * nodesInAll + nodesPerFrame - 1) / nodesPerFrame);
    EXPECT_EQ(view.picture(), atOnce.picture());

    // Nobody waits for a hidden one, which gives back what it has.
    view.clouds[0]->clearVisibleOctreeNodes();
    view.clouds[1]->clearVisibleOctreeNodes();
    for (const Cloud& cloud : {view.clouds[0], view.clouds[1]}) {
        while (cloud->isLoading()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    view.draw();
    view.clouds[0]->setVisible(false);
    view.draw();
    EXPECT_EQ(view.clouds[0]->pendingUploadBytes(), 0u);
    EXPECT_EQ(view.draw()[1], nodesPerFrame * nodeBytes);
}

TEST(PointCloudUploadsTest, WhoHasWaitedForThePointsSeesAllOfThem) {
    const std::vector<unsigned char> expected = pictureOfFirst(nodesInAll);
    View view({cloudOf()});
    PointCloudRenderable& cloud = *view.clouds[0];
    view.renderer.setUploadBytesPerFrame(0);
    cloud.reloadPoints(nullptr, 21, {});
    EXPECT_EQ(view.draw()[0], nodesInAll * nodeBytes);
    EXPECT_FALSE(view.renderer.needsRedraw());
    EXPECT_EQ(view.picture(), expected);

    cloud.clearVisibleOctreeNodes();
    view.draw();
    load(cloud);
    EXPECT_EQ(view.draw()[0], nodeBytes);  // One always goes.
    cloud.waitUntilLoaded();
    EXPECT_EQ(view.draw()[0], (nodesInAll - 1) * nodeBytes);
    EXPECT_EQ(view.picture(), expected);

    cloud.stopAsyncReload();
    cloud.clearVisibleOctreeNodes();
    view.draw();
    load(cloud);
    view.draw();
    const Support::TemporaryFolder folder;
    view.renderer.writePngImage(folder.path() / "picture.png");
    EXPECT_EQ(cloud.pendingUploadBytes(), 0u);
    EXPECT_EQ(view.picture(), expected);
}

int callsUntilFailure = 0;  // 0: none fails.

HRESULT(STDMETHODCALLTYPE* originalCreateBuffer)
(ID3D11Device*, const D3D11_BUFFER_DESC*, const D3D11_SUBRESOURCE_DATA*, ID3D11Buffer**) = nullptr;
HRESULT STDMETHODCALLTYPE createBuffer(ID3D11Device* device, const D3D11_BUFFER_DESC* desc,
                                       const D3D11_SUBRESOURCE_DATA* content, ID3D11Buffer** buffer) {
    if (callsUntilFailure > 0 && --callsUntilFailure == 0) {
        return E_OUTOFMEMORY;
    }
    return originalCreateBuffer(device, desc, content, buffer);
}

TEST(PointCloudUploadsTest, AFailureInTheMiddleLosesNothing) {
    const std::vector<unsigned char> expected = pictureOfFirst(nodesInAll);
    View view({cloudOf()});
    TestSupport::ComSpy device(view.renderer.device(), 43);
    originalCreateBuffer = device.replace(3, &createBuffer);
    load(*view.clouds[0]);
    view.renderer.setUploadBytesPerFrame(30 * nodeBytes);
    EXPECT_EQ(view.draw()[0], 30 * nodeBytes);
    callsUntilFailure = 1;
    EXPECT_THROW(view.renderer.render(), Render::ComException);
    EXPECT_EQ(callsUntilFailure, 0);
    for (int frame = 0; frame < 3; ++frame) {
        EXPECT_TRUE(view.renderer.needsRedraw());
        view.draw();
    }
    EXPECT_FALSE(view.renderer.needsRedraw());
    EXPECT_EQ(view.picture(), expected);
}

}  // namespace
