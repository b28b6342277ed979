#include <math/ConvexPolytope.h>
#include <math/Frustum.h>

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <random>

namespace {

using P = Math::Point<float, 3>;
using Box = Math::NBoundingBox<float, 3>;
using Plane = Math::NPlane<float, 3>;
using Space = Math::HalfSpace<float, 3>;
using Volume = Math::ConvexPolytope<float, 3>;
using Frustum = Math::Frustum<float>;

/// Right-handed, looking down -z, depth 0 at zNear and 1 at zFar; the two exchanged reverse the depth.
Eigen::Matrix4f perspective(float zNear, float zFar) {
    Eigen::Matrix4f m = Eigen::Matrix4f::Zero();
    m(0, 0) = 0.5f;  // The view reaches 2 to the side at distance 1.
    m(1, 1) = 1.0f;
    m(2, 2) = zFar / (zNear - zFar);
    m(2, 3) = zNear * zFar / (zNear - zFar);
    m(3, 2) = -1.0f;
    return m;
}

Eigen::Matrix4f someAffine() {
    const Eigen::Affine3f m = Eigen::Translation3f(3, -2, 7) *
                              Eigen::AngleAxisf(0.8f, Eigen::Vector3f(1, 2, -1).normalized()) *
                              Eigen::Scaling(2.0f, 0.5f, 3.0f);
    return m.matrix();
}

TEST(PointTest, ProjectsWithDivisionAndTransformsWithout) {
    const Eigen::Matrix4f m = perspective(1, 10);
    EXPECT_EQ(Math::projectPoint(m, P(4, 2, -2)), P(1, 1, 5.0f / 9.0f));
    EXPECT_EQ(Math::transformPoint(m, P(4, 2, -2)).x(), 2.0f);
    EXPECT_EQ(P(1, 0, 0).cross(P(0, 1, 0)), P(0, 0, 1));
    EXPECT_EQ(P(P(1, 2, 3).vector()), P(1, 2, 3));
}

TEST(BoundingBoxTest, EmptyBoxesAddNothingAndHaveNoExtent) {
    Box box;
    EXPECT_TRUE(box.isEmpty());
    EXPECT_EQ(box.size(), P());
    EXPECT_FALSE(box.contains(P()));
    EXPECT_TRUE(box.transformed(someAffine()).isEmpty());

    box.extend(P(1, 2, 3));
    EXPECT_FALSE(box.isEmpty()) << "a point is a box";
    box.extend(Box());
    box.extend(Box(P(5, 5, -100), P(-5, 5, 5)));  // Empty on the first axis.
    EXPECT_EQ(box, Box(P(1, 2, 3), P(1, 2, 3)));
}

TEST(BoundingBoxTest, CornersCountWithZFastest) {
    const Box box(P(0, 0, 0), P(1, 2, 3));
    EXPECT_EQ(box.corner(1), P(0, 0, 3));
    EXPECT_EQ(box.corner(2), P(0, 2, 0));
    EXPECT_EQ(box.corner(4), P(1, 0, 0));
}

TEST(BoundingBoxTest, TheTransformedBoxIsTheTightestAroundTheMovedCorners) {
    const Box box(P(-1, 2, 0.5f), P(4, 3, 8));
    Box expected;
    for (int i = 0; i < 8; ++i) {
        expected.extend(Math::transformPoint(someAffine(), box.corner(i)));
    }
    const Box moved = box.transformed(someAffine());
    EXPECT_LT(Math::distance(moved.min, expected.min), 1e-5f);
    EXPECT_LT(Math::distance(moved.max, expected.max), 1e-5f);
}

TEST(PlaneTest, ATransformedPlaneKeepsEverySignedDistance) {
    EXPECT_EQ(Plane(), Plane(P(0, 1, 0), 0));
    const Plane plane(P(0.6f, 0, 0.8f), -2);
    const Plane moved = plane.transformed(someAffine());
    EXPECT_LT(Math::distance(moved.transformedBack(someAffine()).normal, plane.normal), 1e-6f);
    EXPECT_NEAR(moved.transformedBack(someAffine()).offset, plane.offset, 1e-5f);
    for (const P& p : {P(0, 0, 0), P(10, -3, 5), P(-7, 1, 1)}) {
        EXPECT_NEAR(moved.signedDistance(Math::transformPoint(someAffine(), p)), plane.signedDistance(p),
                    1e-4f);
    }
}

TEST(ConvexPolytopeTest, ABoxIsOutsideOnlyWhenItsFarthestCornerIs) {
    Volume volume;
    const Box box(P(0, 0, 0), P(1, 1, 1));
    EXPECT_FALSE(volume.isOutside(box)) << "nothing clips";
    volume.add(Space(Plane(P(1, 0, 0), -1)));  // x >= 1
    EXPECT_FALSE(volume.isOutside(box)) << "touching is not outside";
    EXPECT_FALSE(volume.contains(P(0.5f, 0, 0)));
    volume.add(Space(Plane(P(0, -1, 1), -1)));  // z - y >= 1: (., 0, 1) touches
    EXPECT_FALSE(volume.isOutside(box));
    volume.add(Space(Plane(P(-1, -1, -1), -0.001f)));
    EXPECT_TRUE(volume.isOutside(box));
    EXPECT_EQ(volume.transformed(Eigen::Matrix4f::Identity()), volume);
    EXPECT_NE(volume.transformed(someAffine()), volume);
}

TEST(FrustumTest, ContainsExactlyWhatLandsInsideTheClipCube) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> coordinate(-15.0f, 15.0f);
    for (const Eigen::Matrix4f& projection : {perspective(1, 10), perspective(10, 1)}) {
        const Eigen::Matrix4f m = projection * someAffine();
        const Frustum frustum = Frustum::fromMatrix(m);
        int inside = 0;
        for (int i = 0; i < 20000; ++i) {
            const P p(coordinate(random), coordinate(random), coordinate(random));
            const Eigen::Vector4f clip = m * Eigen::Vector4f(p[0], p[1], p[2], 1);
            const float w = clip[3];
            const float margin =
                std::min({w - std::abs(clip[0]), w - std::abs(clip[1]), clip[2], w - clip[2]});
            if (std::abs(margin) > 1e-3f) {
                ASSERT_EQ(frustum.contains(p), margin > 0) << p[0] << ' ' << p[1] << ' ' << p[2];
                ASSERT_EQ(frustum.isOutside(Box(p, p)), margin < 0);
            }
            inside += margin > 0;
        }
        EXPECT_GT(inside, 50);
    }
}

TEST(FrustumTest, PlanesAreInModelUnitsAndBoxesAroundTheEyeAreNotOutside) {
    const Frustum frustum = Frustum::fromMatrix(perspective(1, 10));
    EXPECT_NEAR(frustum.planes()[4].signedDistance(P(0, 0, -4)), 3.0f, 1e-5f);
    EXPECT_NEAR(frustum.planes()[5].signedDistance(P(0, 0, -4)), 6.0f, 1e-4f);
    EXPECT_FALSE(frustum.isOutside(Box(P(-50, -50, -50), P(50, 50, 50))));
    EXPECT_TRUE(frustum.isOutside(Box(P(-1, -1, 1), P(1, 1, 2)))) << "behind the eye";
    EXPECT_FALSE(Frustum().isOutside(Box(P(5, 5, 5), P(6, 6, 6))));
}

}  // namespace
