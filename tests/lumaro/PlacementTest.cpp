#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>
#include <tools/lumaro/Placement.h>

#include <Eigen/Geometry>
#include <fstream>

namespace {

using Place = Math::Point<double, 3>;

/// Turned, scaled, mirrored and far away.
Eigen::Matrix4d somewhere() {
    Eigen::Affine3d placement = Eigen::Affine3d::Identity();
    placement.translate(Eigen::Vector3d(432500.0, 5412400.0, 180.0));
    placement.rotate(Eigen::AngleAxisd(0.7, Eigen::Vector3d(0.3, -0.2, 0.9).normalized()));
    placement.scale(Eigen::Vector3d(2.0, -2.0, 2.0));
    return placement.matrix();
}

TEST(Placement, TheSceneMatrixKeepsMillimetresFarFromTheOrigin) {
    const Place sceneOrigin(432510.25, 5412391.5, 181.0);
    const Place own = Tool::unplaced(somewhere(), sceneOrigin);
    const Eigen::Matrix4f matrix = Tool::sceneMatrix(somewhere(), own, sceneOrigin);
    EXPECT_LT((matrix.topRightCorner<3, 1>().norm()), 1e-6f);
    const Math::Point<float, 3> vertex(12.5f, -3.25f, 1.75f);
    const Place absolute = Math::transformPoint<double>(somewhere(), own + vertex.cast<double>());
    const Place shown = sceneOrigin + Math::transformPoint<float>(matrix, vertex).cast<double>();
    EXPECT_LT(Math::distance(absolute, shown), 1e-4);
}

TEST(Placement, AMeshIsFoundWhereItsFirstVertexStands) {
    const Support::TemporaryFolder folder;
    const auto place = [&folder](const std::string& text) {
        std::ofstream(folder.path() / "a.obj", std::ios::binary) << text;
        return Tool::firstVertex(folder.path() / "a.obj");
    };
    EXPECT_EQ(place("# v 9 9 9\r\nvn 1 0 0\r\nv  432500.5 5412400.25 -7e1 1 0 0\r\nv 1 2 3\r\n"),
              Place(432500.5, 5412400.25, -70.0));
    EXPECT_EQ(place("f 1 2 3\nv 1 2\n"), Place(0.0, 0.0, 0.0));
    EXPECT_EQ(place(std::string(size_t{2} << 20, 'x') + "\nv 1 2 3\n"), Place(0.0, 0.0, 0.0));
    EXPECT_EQ(Tool::firstVertex(folder.path() / "none.obj"), Place(0.0, 0.0, 0.0));
}

}  // namespace
