#include <core/ExceptionChain.h>
#include <core/Log.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

TEST(LogTest, TheSinkMayReportItselfAndMayThrow) {
    std::vector<std::string> messages;
    Core::Log::setSink([&](std::string_view message) {
        messages.emplace_back(message);
        if (messages.size() == 1) {
            Core::Log::error("inner");
        }
        throw std::runtime_error("sink");
    });
    Core::Log::error("outer");
    Core::Log::setSink(nullptr);
    EXPECT_EQ(messages, (std::vector<std::string>{"outer", "inner"}));
}

TEST(ExceptionChainTest, NestedTextsFollowFromOutsideToInside) {
    std::string chain;
    try {
        try {
            try {
                throw 42;
            } catch (...) {
                std::throw_with_nested(std::out_of_range("record 7"));
            }
        } catch (...) {
            std::throw_with_nested(std::runtime_error("file \"a\""));
        }
    } catch (const std::exception& error) {
        chain = Core::exceptionChain(error);
    }
    EXPECT_EQ(chain, "file \"a\": record 7: unknown exception");
    EXPECT_EQ(Core::exceptionChain(std::logic_error("alone")), "alone");
}

}  // namespace
