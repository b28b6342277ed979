#include <tests/render/core/RecordingRenderable.h>

#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/renderables/GroupRenderable.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Render::GroupRenderable;
using Events = std::vector<std::string>;
using P = Math::Point<float, 3>;

class Child : public RecordingRenderable {
public:
    using RecordingRenderable::RecordingRenderable;
    void invalidateWorldMatrix() override {
        ++invalidations;
        Renderable::invalidateWorldMatrix();
    }
    int invalidations = 0;
};

class GroupRenderableTest : public testing::Test {
protected:
    std::shared_ptr<Child> child(const std::string& name) const { return std::make_shared<Child>(name); }

    void join() {
        renderer.setScene(group);
        a->takeEvents();
        b->takeEvents();
    }
    Events names() const {
        Events result;
        for (const auto& one : *group) {
            result.push_back(one->name());
        }
        return result;
    }
    /// What both children are told.
    Events told() {
        const Events events = a->takeEvents();
        EXPECT_EQ(b->takeEvents(), events);
        return events;
    }

    Render::Renderer renderer{true};
    std::shared_ptr<GroupRenderable> group = GroupRenderable::create("group");
    std::shared_ptr<Child> a = child("a");
    std::shared_ptr<Child> b = child("b");
};

TEST_F(GroupRenderableTest, ALateChildIsInitialisedAndHearsOfSixSettings) {
    group->add(a);
    EXPECT_EQ(a->takeEvents(), Events()) << "before the group belongs to a renderer";
    renderer.setScene(group);
    EXPECT_EQ(a->takeEvents().front(), "init " + std::to_string(renderer.id()) + " 1 1 1");
    renderer.setColorMap(Render::ColorMap::Magma);
    renderer.setRenderMode(Render::RenderMode::Intensity);
    renderer.setPassFailDistanceRange(-7, 7);
    renderer.setWarnDistanceRange(-6, 6);
    renderer.setTomographicColor(Math::Color(1, 2, 3));
    renderer.setPlaneForDistanceColorization({P(0, 0, 1), 4});
    renderer.setColorMapRange(2, 5);
    group->add("late", b);
    EXPECT_EQ(b->name(), "late");
    EXPECT_EQ(b->parent(), group);
    EXPECT_EQ(b->takeEvents(), (Events{"init " + std::to_string(renderer.id()) + " 1 1 1", "renderMode 5",
                                       "mesh 0", "colorMap 2", "signed 1", "range 2 5", "plane 0 0 1 4"}));
    a->takeEvents();
    renderer.setScene(GroupRenderable::create("other"));
    EXPECT_EQ(told(), Events{"deinit"});
    group->add(child("c"));
    EXPECT_EQ(std::static_pointer_cast<Child>(group->back())->takeEvents(), Events());
}

TEST_F(GroupRenderableTest, RemovedChildrenAreReleasedAndGapsFilledFromTheBack) {
    const auto x = child("x");
    for (const auto& one : {a, x, b, child("c"), child("x")}) {
        group->add(one);
    }
    EXPECT_EQ(group->findByName("x"), x);
    EXPECT_EQ(group->findByName("y"), nullptr);
    join();
    x->takeEvents();
    group->removeByName("x");
    EXPECT_EQ(names(), (Events{"a", "c", "b"}));
    EXPECT_EQ(x->takeEvents(), Events{"deinit"});
    EXPECT_EQ(x->parent(), nullptr);
    EXPECT_EQ(told(), Events());

    renderer.render();
    a->setNeedsRedraw(false);
    group->setNeedsRedraw(false);
    group->removeByName("nobody");
    EXPECT_TRUE(group->needsRedraw());
    group->remove(group->begin() + 1);
    EXPECT_EQ(names(), (Events{"a", "b"}));
    a->takeEvents();
    b->takeEvents();
    group->removeAll();
    EXPECT_TRUE(group->empty());
    EXPECT_EQ(told(), Events{"deinit"});
    group->add(x);
    group->removeByName("x");
    EXPECT_EQ(group->size(), 0u);
}

TEST_F(GroupRenderableTest, SomeSettingsArePassedOnAlwaysAndOthersWhenTheyChange) {
    group->add(a);
    group->add(b);
    for (int i = 0; i < 2; ++i) {
        group->onUpdateRenderMode(Render::RenderMode::Intensity);
        group->onUpdateTomographicColor(Math::Color(0, 0, 0, 255));
        group->onUpdateUseCloudColorsInTomographicRenderModes(false);
        group->onUpdateMeshForDistanceColorization(nullptr);
        group->onUpdatePlaneForDistanceColorization({P(0, 1, 0), 0});
        EXPECT_EQ(told(), (Events{"renderMode 5", "tomographic 4278190080", "cloudColors 0", "mesh 0",
                                  "plane 0 1 0 0"}));
    }
    group->onUpdateColorMap(Render::ColorMap::Turbo);
    group->onUpdateUseSignedDistance(true);
    group->onUpdateColorMapRange(0, 1);
    group->onUpdatePassFailDistanceRange(-0.5f, 0.5f);
    group->onUpdateWarnDistanceRange(-0.25f, 0.25f);
    EXPECT_EQ(told(), Events()) << "these are what a group starts with";
    for (int i = 0; i < 2; ++i) {
        group->onUpdateColorMap(Render::ColorMap::Gray);
        group->onUpdateUseSignedDistance(false);
        group->onUpdateColorMapRange(0, 2);
        group->onUpdatePassFailDistanceRange(-1, 0.5f);
        group->onUpdateWarnDistanceRange(-0.25f, 1);
        EXPECT_EQ(told(),
                  i == 0 ? (Events{"colorMap 5", "signed 0", "range 0 2", "passFail -1 0.5", "warn -0.25 1"})
                         : Events());
    }
    group->onUpdateViewport(renderer.camera());
    group->onUpdateViewMatrix(renderer.camera());
    EXPECT_EQ(told().size(), 2u);
}

TEST_F(GroupRenderableTest, VisibleChildrenAreDrawnInOrderAndAllCountForTheRest) {
    group->add(a);
    group->add(b);
    join();
    EXPECT_TRUE(group->boundingBox().isEmpty());
    EXPECT_FALSE(group->isTransparent());
    EXPECT_FALSE(group->backgroundColor());
    std::string order;
    a->draw = [&] { order += "a"; };
    b->draw = [&] { order += "b"; };
    renderer.render();
    EXPECT_EQ(order, "ab");
    EXPECT_FALSE(group->needsRedraw());

    b->setVisible(false);
    EXPECT_TRUE(group->needsRedraw());
    b->box.extend(P(1, 2, 3));
    b->transparent = true;
    b->background = Math::Color(9, 8, 7);
    renderer.render();
    EXPECT_EQ(order, "aba");
    EXPECT_TRUE(group->needsRedraw()) << "nobody drew the invisible child";
    EXPECT_TRUE(group->isTransparent());
    EXPECT_EQ(group->backgroundColor(), Math::Color(9, 8, 7));
    a->background = Math::Color(1, 1, 1);
    EXPECT_EQ(group->backgroundColor(), Math::Color(1, 1, 1));
    Eigen::Matrix4f moved = Eigen::Matrix4f::Identity();
    moved(0, 3) = 10;
    b->setMatrix(moved);
    EXPECT_EQ(group->boundingBox().min, P(11, 2, 3));
    a->draw = [] { throw std::runtime_error("no memory"); };
    b->setVisible(true);
    EXPECT_THROW(renderer.render(), std::runtime_error);
    EXPECT_EQ(order, "aba");
    a->draw = b->draw = nullptr;
}

TEST_F(GroupRenderableTest, ProposalsAreAveraged) {
    float brightness = 7;
    float contrast = 7;
    group->brightnessAndContrast(0, 0, brightness, contrast);
    EXPECT_EQ(brightness, 7);
    group->add(a);
    group->add(GroupRenderable::create("empty"));
    group->brightnessAndContrast(0.1f, 0.2f, brightness, contrast);
    EXPECT_EQ(a->takeEvents(), Events{"propose 0.1 0.2 0 0"});
    EXPECT_EQ(brightness, 0.125f);
    EXPECT_EQ(contrast, 1.5f);
}

TEST_F(GroupRenderableTest, TransformAndSelectionReachGroupsInTheGroup) {
    const auto inner = GroupRenderable::create("inner");
    inner->add(a);
    group->add(inner);
    EXPECT_EQ(a->worldMatrix(), Eigen::Matrix4f(Eigen::Matrix4f::Identity()));
    const int before = a->invalidations;
    Eigen::Matrix4f moved = Eigen::Matrix4f::Identity();
    moved(1, 3) = 4;
    group->setMatrix(moved);
    EXPECT_EQ(a->invalidations, before + 1);
    EXPECT_EQ(a->worldMatrix(), moved);
    group->setSelected(true);
    EXPECT_TRUE(a->selected());
    a->setSelected(false);
    group->setSelected(true);
    EXPECT_TRUE(a->selected()) << "although nothing changed for the group";
    inner->remove(inner->begin());
    EXPECT_EQ(a->worldMatrix(), Eigen::Matrix4f(Eigen::Matrix4f::Identity()));
}

TEST_F(GroupRenderableTest, OnlyASharedGroupTakesChildren) {
    GroupRenderable copy(*group);
    EXPECT_THROW(copy.add(a), std::bad_weak_ptr);
    EXPECT_EQ(copy.size(), 1u);
    EXPECT_TRUE(group->empty());
}

}  // namespace
