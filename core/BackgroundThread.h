#pragma once

#include <functional>
#include <memory>
#include <stop_token>
#include <thread>

namespace Core {

/**
 * One worker thread that runs one function, again at each restart.
 *
 * The function starts with the construction. It should look at its stop token often: that is how fast a
 * restart or the destructor takes effect. An exception that leaves it is logged and ends that run only.
 *
 * Every member may be called from any thread. The function itself may call restart() and isRunning(), and it
 * may destroy the object, for instance by dropping the last reference to its owner; it must not wait for its
 * own thread.
 */
class BackgroundThread {
public:
    explicit BackgroundThread(std::function<void(std::stop_token)> function);

    /// Signals the running function's stop token, drops a run that has not begun, and joins. Called by the
    /// function itself, it returns without joining: the function lives on until it returns, then the thread
    /// ends. What the function touches after that must not belong to the owner.
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
    class Worker;

    const std::shared_ptr<Worker> mWorker;  ///< Shared with the thread.
    std::thread mThread;
};

}  // namespace Core
