#pragma once

#include <core/Export.h>

#include <cstddef>
#include <memory>

namespace Core {

class LoadingWorkers;

/**
 * The threads that read and decode for all point clouds of a process: what their loaders and queries wait
 * for, and what those will want next. Work comes in through LoadingQueues, each of which gets its turn in
 * rotation.
 *
 * As many tasks run at a time as there are places, threadCount() of them. A task that waits in a
 * BlockingSection gives up its place for that time, so that slow disks keep no processor idle; up to
 * MAX_WAITING_TASKS do so at a time. Back from waiting it goes on at once, perhaps with more tasks running
 * than there are places; no other begins until that is over. While threads outside wait for a task, there is
 * one place more, on the core that they leave free.
 *
 * Threads start when there is work for them and end with the pool. Every member may be called from any
 * thread.
 */
class LUMARO_API LoadingPool {
public:
    static constexpr size_t MAX_WAITING_TASKS = 16;

    /// One less than the processor's cores, but at least 1 and at most 16.
    static size_t defaultThreadCount();

    /// The pool of the process. It lives as long as anyone holds it and is made anew when it is wanted after
    /// that, so that no thread is left when the library is unloaded.
    static std::shared_ptr<LoadingPool> shared();
    /// As setThreadCount(), for the pool of the process, now and whenever it is made anew. With 0 each loader
    /// and each query reads and decodes on its own thread alone.
    static void setSharedThreadCount(size_t count);

    explicit LoadingPool(size_t threadCount = defaultThreadCount());
    /// Joins the threads, except the one that calls it: that ends by itself.
    ~LoadingPool();

    LoadingPool(const LoadingPool&) = delete;
    LoadingPool& operator=(const LoadingPool&) = delete;

    /// What runs goes on. With 0 a task begins only while a thread outside waits.
    void setThreadCount(size_t count);
    size_t threadCount() const;

private:
    friend class LoadingQueue;

    const std::shared_ptr<LoadingWorkers> mWorkers;  ///< Shared with the threads.
};

}  // namespace Core
