#pragma once

#include <core/LoadingTask.h>
#include <core/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

namespace Core {

/// The inside of a LoadingPool: its threads and the queues that they serve. Shared by the pool, its queues
/// and its threads, so that each of these may go in its own time.
class LoadingWorkers : public std::enable_shared_from_this<LoadingWorkers> {
public:
    /// Guarded by the workers' mutex.
    class Queue {
        friend class LoadingWorkers;
        struct Entry {
            LoadingTask task;
            std::uint64_t number;
        };
        std::vector<Entry> tasks;  ///< A heap, the next task first.
        std::uint64_t lastNumber = 0;
        bool isInRotation = false;
    };

    explicit LoadingWorkers(size_t threadCount) : mThreadCount(threadCount) {}

    void setThreadCount(size_t count);
    size_t threadCount() const;
    void submit(const std::shared_ptr<Queue>& queue, LoadingTask task);
    void dropStopped(Queue& queue);
    void close(const std::shared_ptr<Queue>& queue);
    // Of a thread outside.
    void beginWait() noexcept;
    void endWait() noexcept;
    /// After the queues are closed.
    void quit();

    // Of the calling thread, if it is a pool's.
    static void enterBlockingSection() noexcept;
    static void leaveBlockingSection() noexcept;

private:
    struct Active {
        const Queue* queue;
        std::thread::id thread;
        std::stop_source stop;
    };

    static void drop(std::vector<Queue::Entry>& entries);
    static void run(Queue::Entry& entry);

    void work();
    void serveNextTask(std::unique_lock<Mutex>& lock);
    // All of these expect the lock to be held.
    size_t places() const { return mThreadCount + (mOutsideWaits > 0 ? 1 : 0); }
    bool canBegin() const { return !mRotation.empty() && mRunning < places(); }
    Queue::Entry takeNextTask(std::shared_ptr<Queue>& queue);
    void wakeOrStartThread() noexcept;
    void startThread();
    std::stop_source* unstopped(const Queue& queue);  ///< Of a task that runs; null without one.
    bool runsElsewhere(const Queue& queue) const;

    mutable Mutex mMutex;  ///< Guards all below and the queues.
    ConditionVariable mWake;
    ConditionVariable mEnded;  ///< A task of any queue.
    size_t mThreadCount;       ///< Of the tasks that may run at a time.
    size_t mRunning = 0;       ///< Tasks, without those in a BlockingSection.
    size_t mWaiting = 0;       ///< Those.
    size_t mOutsideWaits = 0;  ///< Threads outside that wait for a task.
    size_t mIdleThreads = 0;
    bool mQuit = false;
    std::list<std::shared_ptr<Queue>> mRotation;  ///< Queues with tasks, the next one first.
    std::vector<Active> mActive;                  ///< Tasks that are run or dropped by the threads.
    std::vector<std::thread> mThreads;
};

}  // namespace Core
