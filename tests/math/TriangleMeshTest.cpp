#include <math/TriangleMesh.h>

#include <gtest/gtest.h>

#include <Eigen/Geometry>

namespace {

using Math::TriangleMesh;
using P = Math::Point<float, 3>;

TEST(TriangleMeshTest, TrianglesWithoutAreaCountAsTheirEdges) {
    const std::vector<P> line = {P(0, 0, 0), P(2, 0, 0), P(1, 0, 0)};
    EXPECT_FLOAT_EQ(TriangleMesh<float>(line, {{0, 1, 2}}).distance(P(1.5f, 3, 0)), 3.0f);
    EXPECT_FLOAT_EQ(TriangleMesh<float>(line, {{0, 2, 1}}).distance(P(5, 0, 4)), 5.0f);
    EXPECT_FLOAT_EQ(TriangleMesh<float>(line, {{1, 1, 1}}).distance(P(2, 0, 1)), 1.0f);
}

TEST(TriangleMeshTest, TheSignTellsTheSideOfTheNearestTriangle) {
    // Two triangles facing up at z = 0 and one facing down at z = -4.
    const TriangleMesh<float> mesh(
        {P(0, 0, 0), P(4, 0, 0), P(0, 4, 0), P(4, 4, 0), P(0, 0, -4), P(4, 0, -4), P(0, 4, -4)},
        {{0, 1, 2}, {1, 3, 2}, {4, 6, 5}});
    EXPECT_EQ(mesh.nearestPoint(P(3, 3, 1)).triangle, 1u);
    EXPECT_FLOAT_EQ(mesh.signedDistance(P(3, 3, 1)), 1.0f);
    EXPECT_FLOAT_EQ(mesh.signedDistance(P(1, 1, -1)), -1.0f);
    EXPECT_FLOAT_EQ(mesh.signedDistance(P(1, 1, -5)), 1.0f);
    EXPECT_FLOAT_EQ(mesh.distance(P(1, 1, -1)), 1.0f);
    EXPECT_FLOAT_EQ(mesh.signedDistance(P(5, 0, 0)), 1.0f) << "in the plane counts as in front";
}

TEST(TriangleMeshTest, AMovedMeshMeasuresAsThePointMovedBack) {
    const TriangleMesh<float> mesh({P(0, 0, 0), P(1, 0, 0), P(0, 1, 0)}, {{0, 1, 2}});
    Eigen::Affine3f motion =
        Eigen::Translation3f(5, 0, 0) * Eigen::AngleAxisf(1.0f, Eigen::Vector3f::UnitX());
    const auto moved = mesh.transformed(motion.matrix());
    const P p(0.2f, 0.3f, -2.0f);
    EXPECT_NEAR(moved.signedDistance(Math::transformPoint<float>(motion.matrix(), p)), -2.0f, 1e-5f);
    EXPECT_EQ(moved.boundingBox().min.x(), 5.0f);
    EXPECT_TRUE(moved.boundingBox().contains(moved.vertices()[2]));
}

TEST(TriangleMeshTest, MissingVerticesAndEmptyMeshesAreRefused) {
    EXPECT_THROW(TriangleMesh<float>({P(), P(), P()}, {{0, 1, 3}}), std::invalid_argument);
    EXPECT_THROW(TriangleMesh<float>().distance(P()), std::logic_error);
}

}  // namespace
