#include <gtest/gtest.h>
#include <render/core/UploadAllowance.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace {

using Render::UploadAllowance;

/// Sends pieces in order, as many as it may.
struct User {
    std::size_t id;
    std::vector<std::size_t> pieces;
    std::size_t sent = 0;  ///< In the last frame.

    void upload(UploadAllowance& allowance) {
        const UploadAllowance::Share share = allowance.share(id);
        sent = 0;
        while (!pieces.empty() &&
               (sent + pieces.front() <= share.bytes || (sent == 0 && share.isOneAllowed))) {
            sent += pieces.front();
            pieces.erase(pieces.begin());
        }
        allowance.report(id, sent, std::accumulate(pieces.begin(), pieces.end(), std::size_t{0}));
    }
};

TEST(UploadAllowanceTest, ThereIsNoLimitBeforeTheFirstFrame) {
    UploadAllowance allowance;
    EXPECT_GT(allowance.share(1).bytes, std::size_t{1} << 60);
    EXPECT_EQ(UploadAllowance::shared(77), UploadAllowance::shared(77));
}

TEST(UploadAllowanceTest, AFrameSendsNoMoreAndEveryoneComesToItsTurn) {
    UploadAllowance allowance;
    // The second has nothing that fits, the third always something that would fit before it.
    std::vector<User> users{{1, std::vector<std::size_t>(100, 40)},
                            {2, {150, 150, 30}},
                            {3, std::vector<std::size_t>(1000, 1)},
                            {4, std::vector<std::size_t>(10, 100)}};
    std::vector<int> longestWait(users.size(), 0);
    std::vector<int> wait(users.size(), 0);
    int frames = 0;
    while (std::any_of(users.begin(), users.end(), [](const User& user) { return !user.pieces.empty(); })) {
        ASSERT_LT(++frames, 200);
        allowance.beginFrame(100);
        std::size_t sent = 0;
        std::size_t senders = 0;
        for (std::size_t i = 0; i < users.size(); ++i) {
            users[i].upload(allowance);
            sent += users[i].sent;
            senders += users[i].sent > 0 ? 1u : 0u;
            wait[i] = users[i].sent > 0 || users[i].pieces.empty() ? 0 : wait[i] + 1;
            longestWait[i] = std::max(longestWait[i], wait[i]);
        }
        EXPECT_TRUE(sent <= 100 || (sent == 150 && senders == 1)) << sent;
        EXPECT_GT(sent, 0u);
    }
    for (const int each : longestWait) {
        EXPECT_LE(each, 4);
    }
}

TEST(UploadAllowanceTest, WhatIsNoLongerDrawnIsNotWaitedFor) {
    UploadAllowance allowance;
    allowance.beginFrame(10);
    allowance.report(1, 10, 500);
    allowance.beginFrame(10);
    EXPECT_EQ(allowance.share(2).bytes, 0u);
    EXPECT_FALSE(allowance.share(2).isOneAllowed);
    allowance.report(2, 0, 500);
    allowance.beginFrame(10);
    EXPECT_EQ(allowance.share(2).bytes, 10u);
    EXPECT_TRUE(allowance.share(2).isOneAllowed);
    allowance.report(2, 4, 0);
    allowance.report(2, 4, 0);  // Drawn twice: no second allowance.
    EXPECT_EQ(allowance.share(2).bytes, 2u);
}

}  // namespace
