#include <render/gpu/ComException.h>

#include <gtest/gtest.h>

#include <string>

using Render::ComException;

namespace {

bool systemKnows(DWORD code) {
    char text[16];
    const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        code, 0, text, sizeof(text), nullptr);
    return length != 0 || GetLastError() == ERROR_INSUFFICIENT_BUFFER;
}

std::string messageOf(unsigned long code) {
    return ComException(static_cast<HRESULT>(code)).what();
}

}  // namespace

TEST(ComException, SystemTextEndsWithoutALineBreak) {
    const ComException error(E_FAIL);
    const std::string text = error.what();
    ASSERT_TRUE(systemKnows(static_cast<DWORD>(E_FAIL)));
    EXPECT_EQ(error.result(), E_FAIL);
    EXPECT_GT(text.size(), 4u);
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
    EXPECT_EQ(text.find("Unknown"), std::string::npos);
}

TEST(ComException, CodesWithoutSystemTextAreNumbered) {
    if (!systemKnows(0x80040201)) {
        EXPECT_EQ(messageOf(0x80040201), "IDispatch error #1");
    }
    ASSERT_FALSE(systemKnows(0x8004FFFD));
    EXPECT_EQ(messageOf(0x8004FFFD), "IDispatch error #65021");
    ASSERT_FALSE(systemKnows(0x8005FFFD));
    EXPECT_EQ(messageOf(0x8005FFFD), "Unknown error 0x8005FFFD");
}

TEST(ComException, AFailedCallIsNamedInside) {
    EXPECT_NO_THROW(Render::throwIfFailed(S_FALSE, "a call that did well"));
    try {
        Render::throwIfFailed(E_INVALIDARG, "CreateSomething");
        FAIL() << "nothing was thrown";
    } catch (const ComException& error) {
        EXPECT_EQ(error.result(), E_INVALIDARG);
        try {
            std::rethrow_if_nested(error);
            FAIL() << "nothing is nested";
        } catch (const std::runtime_error& inner) {
            EXPECT_STREQ(inner.what(), "CreateSomething");
        }
    }
}
