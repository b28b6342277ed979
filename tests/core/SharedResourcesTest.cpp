#include <core/SharedResources.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using Registry = Core::SharedResources<int, std::string>;

auto maker(const char* text) {
    return [text] { return std::make_shared<std::string>(text); };
}

TEST(SharedResourcesTest, AResourceIsSharedWhileAnyoneUsesIt) {
    Registry registry;
    auto first = registry.getOrCreate(1, maker("first"));
    EXPECT_EQ(registry.getOrCreate(1, maker("second")), first);
    EXPECT_EQ(*registry.getOrCreate(2, maker("other key")), "other key");

    const std::weak_ptr<std::string> observer = first;
    first.reset();
    EXPECT_TRUE(observer.expired());
    EXPECT_EQ(registry.find(1), nullptr);
    EXPECT_EQ(*registry.getOrCreate(1, maker("third")), "third");
}

TEST(SharedResourcesTest, TheFirstRegisteredWinsWhenCreationsOverlap) {
    Registry registry;
    std::shared_ptr<std::string> inner;
    const auto outer = registry.getOrCreate(1, [&] {
        inner = registry.getOrCreate(1, maker("inner"));
        return std::make_shared<std::string>("outer");
    });
    EXPECT_EQ(outer, inner);
}

}  // namespace
