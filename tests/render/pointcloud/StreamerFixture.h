#pragma once

#include <gtest/gtest.h>
#include <render/core/Camera.h>
#include <render/pointcloud/PointCloudStreamer.h>

#include <tests/support/SyntheticOctree.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace TestSupport {

/// A synthetic cloud, edge 16 around the origin, seen whole by a camera that looks down on it.
class StreamerFixture : public testing::Test {
protected:
    using Streamer = Render::PointCloudStreamer;

    StreamerFixture() { look({0.0f, 0.0f, 60.0f}); }

    void look(const Math::Point<float, 3>& eye, const Eigen::Vector3f& direction = {0, 0, -1}) {
        camera->setPose(eye, direction, Eigen::Vector3f(0, 1, 0));
    }

    static std::shared_ptr<SyntheticOctree> sourceOf(SyntheticOctreeShape shape) {
        return std::make_shared<SyntheticOctree>(std::move(shape));
    }

    std::unique_ptr<Streamer> streamerOf(const std::shared_ptr<SyntheticOctree>& source,
                                         std::size_t budget = 1000000, std::size_t rendererId = nextId()) {
        auto streamer = std::make_unique<Streamer>(SyntheticOctree::open(source), budget);
        streamer->attach(rendererId, nextId(), camera, [this] { ++publications; });
        streamer->setPriorityThreshold(1.0f);
        return streamer;
    }

    static void walk(Streamer& streamer, std::size_t maxLevel = 21) {
        streamer.reloadPoints(nullptr, maxLevel, {});
    }

    static std::set<std::string> published(Streamer& streamer) {
        streamer.acquirePublication();
        std::set<std::string> names;
        for (const Render::PublishedNode& node : streamer.publication().nodes) {
            names.insert(node.id.name());
        }
        EXPECT_EQ(names.size(), streamer.publishedNodeCount());
        return names;
    }

    static std::size_t nextId() {
        static std::atomic<std::size_t> last{1000};
        return ++last;
    }

    std::shared_ptr<Render::Camera> camera = std::make_shared<Render::Camera>(true);
    std::atomic<int> publications{0};
};

}  // namespace TestSupport
