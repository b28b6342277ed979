#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>

namespace Core {

/**
 * One worker thread that runs one function, again at each restart.
 *
 * The function starts with the construction. It should look at its stop token often: that is how fast a
 * restart or the destructor takes effect. An exception that leaves it is logged and ends that run only.
 *
 * Every member may be called from any thread. The function itself may call restart() and isRunning(), but
 * must neither wait for its own thread nor destroy it.
 */
class BackgroundThread {
public:
    explicit BackgroundThread(std::function<void(std::stop_token)> function);

    /// Signals the running function's stop token, drops a run that has not begun, and joins.
    ~BackgroundThread();

    BackgroundThread(const BackgroundThread&) = delete;
    BackgroundThread& operator=(const BackgroundThread&) = delete;

    /// Signals the running function's stop token and has the function run again after it has ended. Never
    /// waits for the function; restarts while one run winds down collapse into one new run.
    void restart();

    /// True while the function runs or a run is due.
    bool isRunning() const;

    /// Waits until the function has ended and no further run is due.
    void waitUntilIdle();

private:
    void signal(bool& flag);  ///< Sets one of the flags below and stops the current run.
    void work();
    void runOnce(std::stop_token stop) const;

    const std::function<void(std::stop_token)> mFunction;

    mutable std::mutex mMutex;  ///< Guards the five below; held for flag changes only, never during a run.
    std::condition_variable mWake;
    std::condition_variable mIdle;
    std::stop_source mStop{std::nostopstate};  ///< Of the current run.
    bool mRunDue = true;
    bool mInRun = false;
    bool mQuit = false;

    std::thread mThread;  ///< Last: starts when all above is ready.
};

}  // namespace Core
