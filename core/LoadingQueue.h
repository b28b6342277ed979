#pragma once

#include <core/LoadingPool.h>
#include <core/LoadingTask.h>
#include <core/LoadingWorkers.h>

#include <memory>

namespace Core {

/**
 * One submitter's tasks in a LoadingPool: those of one point cloud, or of one query. Queues take turns, task
 * by task, however many tasks each of them has.
 *
 * Each submitted task is either run, on a thread of the pool, or dropped, exactly once: it is dropped when
 * its stop token was signalled, or the queue destroyed, before its turn came. So a submitter that adds up
 * what it has under way takes off each task once. What a task throws is logged.
 *
 * Every member may be called from any thread, also from tasks.
 */
class LoadingQueue {
public:
    explicit LoadingQueue(std::shared_ptr<LoadingPool> pool = LoadingPool::shared());

    /// Drops what has not begun, stops what runs and waits for it; but called by a task of this queue, it
    /// does not wait for that one. What a task touches after that must not belong to the queue's owner.
    ~LoadingQueue();

    LoadingQueue(const LoadingQueue&) = delete;
    LoadingQueue& operator=(const LoadingQueue&) = delete;

    /// Throws, with nothing submitted, when memory or the first thread is not to be had.
    void submit(LoadingTask task);

    /// Drops at once what is stopped and has not begun, on this thread. Otherwise that happens on the pool's
    /// threads as its turns come.
    void dropStopped();

    /// Made by a thread outside the pool that waits for a task: in its scope the pool has one place more, one
    /// for all such threads.
    class Wait {
    public:
        explicit Wait(const LoadingQueue& queue);
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

    private:
        LoadingWorkers& mWorkers;
    };

private:
    const std::shared_ptr<LoadingPool> mPool;
    const std::shared_ptr<LoadingWorkers::Queue> mQueue;
};

}  // namespace Core
