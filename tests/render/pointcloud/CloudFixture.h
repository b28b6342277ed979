#pragma once

#include <gtest/gtest.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <tests/support/GpuTestDevice.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace TestSupport {

struct CloudPoint {
    Math::Point<double, 3> position;
    Math::Color color;
    std::uint16_t intensity = 0;
};

/// Exactly the given points in a cube of edge 16 around the origin.
class FixedCloud : public Octree::NodeSource {
public:
    explicit FixedCloud(std::map<Octree::OctreeNodeId, std::vector<CloudPoint>> nodes)
        : mNodes(std::move(nodes)) {
        mFacts.boundingCube = {{-8, -8, -8}, {8, 8, 8}};
        mFacts.boundingBox = mFacts.boundingCube;
        mFacts.spacing = 1.0;
    }

    const Octree::StoreFacts& storeFacts() const override { return mFacts; }

    bool nodeFacts(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token&) override {
        facts = {0, 1, mNodes.at(id).size()};
        for (std::size_t i = 0; i < 8; ++i) {
            facts.childMask =
                static_cast<std::uint8_t>(facts.childMask | (mNodes.contains(id.child(i)) ? 1 << i : 0));
        }
        return true;
    }

    bool readNode(Octree::OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token&) override {
        std::vector<Math::Point<double, 3>> positions;
        std::vector<Math::Color> colors;
        std::vector<std::uint16_t> intensities;
        for (const CloudPoint& point : mNodes.at(id)) {
            positions.push_back(point.position * unitScale);
            colors.push_back(point.color);
            intensities.push_back(point.intensity);
        }
        data.reset(positions.size());
        data.setPositions(std::move(positions));
        data.setColors(std::move(colors));
        data.setIntensities(std::move(intensities));
        return true;
    }

private:
    const std::map<Octree::OctreeNodeId, std::vector<CloudPoint>> mNodes;
    Octree::StoreFacts mFacts;
};

/// Point clouds drawn under a camera that looks straight down on a cube of edge 16, four pixels a
/// unit.
class CloudFixture : public testing::Test {
protected:
    using Color = Math::Color;
    using OctreeNodeId = Octree::OctreeNodeId;
    using PointCloudRenderable = Render::PointCloudRenderable;

    static constexpr unsigned size = 64;

    CloudFixture() {
        camera->setViewport(size, size);
        camera->setOrthographic(16, 16, 1, 100);
        camera->setPose(Math::Point<float, 3>(0, 0, 50), Eigen::Vector3f(0, 0, -1), Eigen::Vector3f(0, 1, 0));
    }

    std::shared_ptr<PointCloudRenderable> cloudOf(std::map<OctreeNodeId, std::vector<CloudPoint>> nodes) {
        return shown(std::make_shared<FixedCloud>(std::move(nodes)));
    }

    std::shared_ptr<PointCloudRenderable> shown(std::shared_ptr<Octree::NodeSource> source) {
        return shown(std::make_shared<Octree::Octree>(std::move(source), Octree::Location()));
    }

    std::shared_ptr<PointCloudRenderable> shown(const std::shared_ptr<Octree::Octree>& octree) {
        const auto cloud = PointCloudRenderable::create(octree, "cloud", 1000000);
        cloud->setOctreeNodePriorityThreshold(1.0f);
        cloud->setPointSize(2.0f);  // Discs of 16 pixels where nothing is finer.
        cloud->setMaxPointSize(1000.0f);
        cloud->init(size_t{1} << 40, camera, gpu.device(), gpu.context());
        cloud->reloadPoints(nullptr, 21, {});
        return cloud;
    }

    void draw(PointCloudRenderable& cloud) {
        targets.bindAndClear();
        cloud.render();
        colors = targets.read(0);
        positions = targets.read(1);
        exactPositions = targets.read(2);
    }

    /// The texel whose corner nearest to the middle of the picture lies at a point's x and y.
    static std::size_t texelAt(float x, float y) {
        const auto column = static_cast<std::size_t>((x + 8) * 4);
        const auto row = static_cast<std::size_t>((8 - y) * 4);
        return row * size + column;
    }

    std::size_t countOf(const Color& color) const {
        const auto wanted = color.toFloats();
        std::size_t count = 0;
        for (const Float4& texel : colors) {
            count += std::abs(texel[0] - wanted[0]) + std::abs(texel[1] - wanted[1]) +
                                 std::abs(texel[2] - wanted[2]) + std::abs(texel[3] - wanted[3]) <
                             1e-3f
                         ? 1u
                         : 0u;
        }
        return count;
    }

    /// The colour of the one point at (x, 0).
    Float4 drawnNear(float x) const {
        for (std::size_t i = 0; i < colors.size(); ++i) {
            if (exactPositions[i][3] > 0 && std::abs(exactPositions[i][0] - x) < 0.01f) {
                return colors[i];
            }
        }
        return {-1, -1, -1, -1};
    }

    std::size_t drawnTexels() const {
        std::size_t count = 0;
        for (const Float4& texel : exactPositions) {
            count += texel[3] > 0 ? 1u : 0u;
        }
        return count;
    }

    static void expectNear(const Float4& actual, const Float4& expected) {
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_NEAR(actual[i], expected[i], 0.005f) << i;
        }
    }

    GpuTestDevice& gpu = GpuTestDevice::fresh();
    TestSupport::FloatTargets targets{gpu, size, size, 3};
    std::shared_ptr<Render::Camera> camera = std::make_shared<Render::Camera>(true);
    std::vector<Float4> colors;
    std::vector<Float4> positions;
    std::vector<Float4> exactPositions;
    const Color red{255, 51, 0};
    const Color blue{0, 51, 255};
    const OctreeNodeId root{};
};

}  // namespace TestSupport
