#include <tests/render/core/RecordingRenderable.h>

#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/renderables/GroupRenderable.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
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
    void addZRangeNeeds(const Render::Camera&, Render::ZRangeNeeds& asked) override {
        asked.room = std::max(asked.room, room);
    }
    int invalidations = 0;
    float room = 0;
};

class GroupRenderableTest : public testing::Test {
protected:
    std::shared_ptr<Child> child(const std::string& name) const { return std::make_shared<Child>(name); }

    void join() {
        renderer.setScene(group);
        a->takeEvents();
        b->takeEvents();
    }
    Events names() const { return names(*group); }
    static Events names(const GroupRenderable& of) {
        Events result;
        for (const auto& one : of) {
            result.push_back(one->name());
        }
        return result;
    }
    static Eigen::Matrix4f moved(float x) {
        Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
        matrix(0, 3) = x;
        return matrix;
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

TEST_F(GroupRenderableTest, AChildThatIsThereTwiceLeavesWithItsLastEntry) {
    group->setMatrix(moved(10));
    for (const auto& one : {a, b, a}) {
        group->add(one);
    }
    join();
    group->remove(group->begin());
    EXPECT_EQ(a->takeEvents(), Events());
    EXPECT_EQ(a->worldMatrix(), moved(10));
    group->setMatrix(moved(20));
    EXPECT_EQ(a->worldMatrix(), moved(20));
    group->add(a);
    EXPECT_TRUE(group->remove(group->back()));
    EXPECT_EQ(a->takeEvents().back(), "deinit");
    EXPECT_EQ(a->worldMatrix(), moved(0));
    EXPECT_EQ(names(), Events{"b"});
    group->setNeedsRedraw(false);
    EXPECT_FALSE(group->remove(a));
    EXPECT_FALSE(group->Renderable::needsRedraw());
}

TEST_F(GroupRenderableTest, NoChildKeepsTheMatrixOfAGroupThatIsGone) {
    const auto c = child("c");
    const auto inner = GroupRenderable::create("inner");
    inner->add(c);
    auto one = GroupRenderable::create("one");
    auto other = GroupRenderable::create("other");
    one->setMatrix(moved(1));
    other->setMatrix(moved(2));
    one->add(a);
    one->add(inner);
    other->add(b);
    EXPECT_EQ(c->worldMatrix(), moved(1));
    EXPECT_EQ(b->worldMatrix(), moved(2));
    const auto copy = std::make_shared<GroupRenderable>(std::move(*one));
    a->setNeedsRedraw(false);
    one.reset();
    EXPECT_TRUE(a->needsRedraw());
    EXPECT_EQ(a->worldMatrix(), moved(0));
    EXPECT_EQ(c->worldMatrix(), moved(0));
    *other = *copy;
    EXPECT_EQ(names(*other), (Events{"a", "inner"}));
    EXPECT_EQ(b->worldMatrix(), moved(0)) << "dropped by the assignment";
    group->setMatrix(moved(3));
    group->add(a);
    EXPECT_EQ(a->worldMatrix(), moved(3));
    *group = *other;
    EXPECT_EQ(a->worldMatrix(), moved(1)) << "still its parent, but elsewhere";
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
    EXPECT_FALSE(group->needsRedraw()) << "the frame without it was drawn";
    EXPECT_TRUE(group->isTransparent());
    EXPECT_EQ(std::as_const(*group).backgroundColor(), Math::Color(9, 8, 7));
    a->background = Math::Color(1, 1, 1);
    EXPECT_EQ(group->backgroundColor(), Math::Color(1, 1, 1));
    b->setMatrix(moved(10));
    EXPECT_EQ(std::as_const(*group).boundingBox().min, P(11, 2, 3));
    a->draw = [] { throw std::runtime_error("no memory"); };
    b->setVisible(true);
    EXPECT_THROW(renderer.render(), std::runtime_error);
    EXPECT_EQ(order, "aba");
    a->draw = b->draw = nullptr;
}

TEST_F(GroupRenderableTest, WhatIsHiddenAsksForOneFrameAndForNoRoom) {
    const auto inner = GroupRenderable::create("inner");
    inner->add(a);
    group->add(inner);
    group->add(b);
    join();
    inner->setVisible(false);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(group->needsRedraw());
        renderer.render();
        EXPECT_FALSE(group->needsRedraw());
        a->setVisible(false);
    }
    inner->setVisible(true);
    a->room = 3;
    b->room = 2;
    Render::ZRangeNeeds needs;
    group->addZRangeNeeds(*renderer.camera(), needs);
    EXPECT_EQ(needs.room, 2);
    a->setVisible(true);
    group->addZRangeNeeds(*renderer.camera(), needs);
    EXPECT_EQ(needs.room, 3);
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
    group->setMatrix(moved(4));
    EXPECT_EQ(a->invalidations, before + 1);
    EXPECT_EQ(a->worldMatrix(), moved(4));
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
