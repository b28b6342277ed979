#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace Render {

/// What a point cloud hears of the budget that it shares with others.
struct BudgetNews {
    bool nodesEvicted =
        false;                ///< Nodes of its own made room for others': its last publication has too many.
    bool budgetFree = false;  ///< There may be room now for nodes that found none: a new walk will tell.
};

/// Calls the callback of one user of a budget, until it is closed. Every member may be called from any
/// thread.
class BudgetListener {
public:
    using Callback = std::function<void(const BudgetNews&)>;

    explicit BudgetListener(Callback callback);

    /// What the callback throws is logged.
    void tell(const BudgetNews& news);

    /// No call begins after this. Waits for those under way on other threads; one on this thread is where
    /// this is called from.
    void close();

private:
    const Callback mCallback;
    std::mutex mMutex;  ///< Guards all below.
    std::condition_variable mCallEnded;
    std::vector<std::thread::id> mCallers;  ///< One for each call under way.
    bool mIsClosed = false;
};

}  // namespace Render
