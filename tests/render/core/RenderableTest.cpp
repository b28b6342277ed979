#include "RecordingRenderable.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <cmath>
#include <memory>
#include <stdexcept>

namespace {

using P = Math::Point<float, 3>;
using Box = Math::NBoundingBox<float, 3>;

Eigen::Matrix4f translation(float x, float y, float z) {
    Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
    matrix.topRightCorner<3, 1>() = Eigen::Vector3f(x, y, z);
    return matrix;
}

Eigen::Vector3f moved(Render::Renderable& renderable, float x, float y, float z) {
    return (renderable.matrix() * Eigen::Vector4f(x, y, z, 1.0f)).head<3>();
}

TEST(Renderable, identifiersRunAndCopiesKeepTheirs) {
    const RecordingRenderable first;
    const RecordingRenderable second("second");
    EXPECT_EQ(second.id(), first.id() + 1);
    RecordingRenderable copy(second);
    copy.setSelected(true);
    copy.setNeedsRedraw(false);
    EXPECT_EQ(copy.id(), second.id());
    RecordingRenderable assigned;
    assigned = copy;
    EXPECT_EQ(assigned.id(), second.id());
    EXPECT_EQ(assigned.name(), "second");
    EXPECT_TRUE(assigned.selected());
    EXPECT_FALSE(assigned.needsRedraw());
}

TEST(Renderable, onlyChangesAskForARedraw) {
    RecordingRenderable renderable;
    const auto asks = [&](auto change) {
        renderable.setNeedsRedraw(false);
        change();
        return renderable.needsRedraw();
    };
    const Eigen::Matrix4f matrix = translation(1, 2, 3);
    EXPECT_TRUE(asks([&] { renderable.setMatrix(matrix); }));
    EXPECT_FALSE(asks([&] { renderable.setMatrix(matrix); }));
    EXPECT_FALSE(asks([&] {
        EXPECT_THROW(renderable.setMatrix(translation(0, std::nanf(""), 0)), std::invalid_argument);
    }));
    EXPECT_EQ(renderable.matrix(), matrix);
    EXPECT_TRUE(asks([&] { renderable.setVisible(false); }));
    EXPECT_FALSE(asks([&] { renderable.setVisible(false); }));
    EXPECT_TRUE(asks([&] { renderable.setSelected(true); }));
    EXPECT_FALSE(asks([&] { renderable.setSelected(true); }));
    renderable.setNeedsRedraw(true);
    renderable.render();
    EXPECT_FALSE(renderable.needsRedraw());
}

TEST(Renderable, worldMatrixFollowsTheParentAndItsLoss) {
    auto parent = std::make_shared<RecordingRenderable>("parent");
    RecordingRenderable child;
    child.setMatrix(translation(1, 0, 0));
    EXPECT_EQ(child.worldMatrix(), translation(1, 0, 0));
    parent->setMatrix(translation(0, 10, 0));
    child.setParent(parent);
    EXPECT_EQ(child.worldMatrix(), translation(1, 10, 0));
    EXPECT_TRUE(child.invWorldMatrix().isApprox(translation(-1, -10, 0)));
    EXPECT_EQ(child.parent(), parent);
    parent.reset();
    child.invalidateWorldMatrix();
    EXPECT_EQ(child.worldMatrix(), translation(1, 0, 0));
}

TEST(Renderable, boundingBoxesFollowTheMatricesUnlessEmpty) {
    auto parent = std::make_shared<RecordingRenderable>("parent");
    parent->setMatrix(translation(0, 10, 0));
    RecordingRenderable child;
    child.setParent(parent);
    Eigen::Matrix4f quarterTurn = Eigen::Matrix4f::Identity();
    quarterTurn.topLeftCorner<2, 2>() << 0.0f, -1.0f, 1.0f, 0.0f;
    child.setMatrix(quarterTurn);
    EXPECT_EQ(child.boundingBoxWorld(), Box());
    child.box = Box(P(1.0f, 2.0f, 3.0f), P(4.0f, 6.0f, 8.0f));
    EXPECT_EQ(child.boundingBoxParent(), Box(P(-6.0f, 1.0f, 3.0f), P(-2.0f, 4.0f, 8.0f)));
    EXPECT_EQ(child.boundingBoxWorld(), Box(P(-6.0f, 11.0f, 3.0f), P(-2.0f, 14.0f, 8.0f)));
}

TEST(Renderable, correspondencesPlaceOnTopOfTheCurrentMatrix) {
    RecordingRenderable renderable;
    renderable.setMatrix(translation(100000, 0, 0));
    renderable.setTranslationByCorrespondences(P(100000.0f, 0.0f, 0.0f), P(100001.0f, 2.0f, 3.0f));
    EXPECT_EQ(renderable.matrix(), translation(100001, 2, 3));

    renderable.setMatrix(translation(5, 0, 0));
    renderable.setZRotationByCorrespondences(P(5.0f, 5.0f, 0.0f), P(5.0f, 0.0f, 7.0f), P(9.0f, 5.0f, -7.0f));
    EXPECT_TRUE(moved(renderable, 0, 0, 7).isApprox(Eigen::Vector3f(10, 5, 7)));

    renderable.setMatrix(Eigen::Matrix4f::Identity());
    renderable.setTranslationAndZRotationByCorrespondences(
        P(1.0f, 0.0f, 0.0f), P(7.0f, 8.0f, 9.0f), Eigen::Vector3f(2, 0, 5), Eigen::Vector3f(0, 1, -5));
    EXPECT_TRUE(moved(renderable, 1, 0, 0).isApprox(Eigen::Vector3f(7, 8, 9)));
    EXPECT_TRUE(moved(renderable, 2, 0, 0).isApprox(Eigen::Vector3f(7, 9, 9)));

    const Eigen::Matrix4f before = renderable.matrix();
    renderable.setZRotationByCorrespondences(P(0.0f, 0.0f, 0.0f), P(0.0f, 0.0f, 1.0f), P(0.0f, 1.0f, 0.0f));
    EXPECT_EQ(renderable.matrix(), before);
}

}  // namespace
