#include <core/LoadingWorkers.h>

#include <core/ExceptionLog.h>
#include <core/LoadingPool.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace Core {

namespace {

/// What a thread of a pool knows of itself.
struct Self {
    LoadingWorkers* pool = nullptr;
    size_t blockingSections = 0;
    bool gaveUpPlace = false;
};
thread_local Self current;

constexpr auto comesLater = [](const auto& a, const auto& b) {
    return a.task.priority != b.task.priority ? a.task.priority < b.task.priority : a.number > b.number;
};

template <class Function>
void callLogged(Function&& function) {
    try {
        function();
    } catch (...) {
        logCurrentException("A loading task failed");
    }
}

}  // namespace

void LoadingWorkers::setThreadCount(size_t count) {
    const std::lock_guard lock(mMutex);
    mThreadCount = count;
    wakeOrStartThread();
}

size_t LoadingWorkers::threadCount() const {
    const std::lock_guard lock(mMutex);
    return mThreadCount;
}

void LoadingWorkers::submit(const std::shared_ptr<Queue>& queue, LoadingTask task) {
    if (std::isnan(task.priority)) {
        task.priority = std::numeric_limits<float>::lowest();  // Else the heap has no order.
    }
    const std::lock_guard lock(mMutex);
    if (mThreads.empty()) {
        startThread();
    }
    if (!queue->isInRotation) {
        mRotation.push_back(queue);
        queue->isInRotation = true;
    }
    queue->tasks.push_back({std::move(task), ++queue->lastNumber});
    std::push_heap(queue->tasks.begin(), queue->tasks.end(), comesLater);
    wakeOrStartThread();
}

void LoadingWorkers::dropStopped(Queue& queue) {
    std::vector<Queue::Entry> dropped;
    {
        const std::lock_guard lock(mMutex);
        dropped.reserve(queue.tasks.size());
        const auto stopped = std::partition(queue.tasks.begin(), queue.tasks.end(), [](const auto& entry) {
            return !entry.task.stop.stop_requested();
        });
        dropped.assign(std::move_iterator(stopped), std::move_iterator(queue.tasks.end()));
        queue.tasks.erase(stopped, queue.tasks.end());
        std::make_heap(queue.tasks.begin(), queue.tasks.end(), comesLater);
    }
    drop(dropped);
}

void LoadingWorkers::close(const std::shared_ptr<Queue>& queue) {
    std::vector<Queue::Entry> dropped;
    std::unique_lock lock(mMutex);
    dropped.swap(queue->tasks);
    mRotation.remove(queue);
    queue->isInRotation = false;
    // One after another, as a destructor calls this and a list of them would take memory.
    while (std::stop_source* const running = unstopped(*queue)) {
        std::stop_source stop = *running;
        lock.unlock();
        stop.request_stop();
        lock.lock();
    }
    lock.unlock();
    drop(dropped);
    lock.lock();
    mEnded.wait(lock, [&] { return !runsElsewhere(*queue); });
}

void LoadingWorkers::beginWait() noexcept {
    const std::lock_guard lock(mMutex);
    ++mOutsideWaits;
    wakeOrStartThread();
}

void LoadingWorkers::endWait() noexcept {
    const std::lock_guard lock(mMutex);
    --mOutsideWaits;
}

void LoadingWorkers::quit() {
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(mMutex);
        mQuit = true;
        threads.swap(mThreads);
    }
    mWake.notify_all();
    for (std::thread& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

void LoadingWorkers::drop(std::vector<Queue::Entry>& entries) {
    for (const Queue::Entry& entry : entries) {
        if (entry.task.dropped) {
            callLogged(entry.task.dropped);
        }
    }
    entries.clear();
}

void LoadingWorkers::run(Queue::Entry& entry) {
    callLogged([&] { entry.task.run(entry.task.stop.get_token()); });
}

void LoadingWorkers::work() {
    current.pool = this;
    std::unique_lock lock(mMutex);
    for (;;) {
        ++mIdleThreads;
        mWake.wait(lock, [this] { return mQuit || canBegin(); });
        --mIdleThreads;
        if (mQuit) {
            return;
        }
        serveNextTask(lock);
    }
}

void LoadingWorkers::serveNextTask(std::unique_lock<Mutex>& lock) {
    std::shared_ptr<Queue> queue = mRotation.front();
    if (queue->tasks.empty()) {  // All were dropped.
        queue->isInRotation = false;
        mRotation.pop_front();
        return;
    }
    {
        Queue::Entry entry = takeNextTask(queue);
        const bool stopped = entry.task.stop.stop_requested();
        mActive.push_back({queue.get(), std::this_thread::get_id(), entry.task.stop});
        ++mRunning;
        wakeOrStartThread();
        lock.unlock();
        if (!stopped) {
            run(entry);
        } else if (entry.task.dropped) {
            callLogged(entry.task.dropped);
        }
        // What the task captured goes with it, before the queue's owner hears that it has ended.
        entry.task = {};
        lock.lock();
        --mRunning;
    }
    std::erase_if(mActive, [](const Active& active) { return active.thread == std::this_thread::get_id(); });
    mEnded.notify_all();
}

LoadingWorkers::Queue::Entry LoadingWorkers::takeNextTask(std::shared_ptr<Queue>& queue) {
    std::pop_heap(queue->tasks.begin(), queue->tasks.end(), comesLater);
    Queue::Entry entry = std::move(queue->tasks.back());
    queue->tasks.pop_back();
    if (queue->tasks.empty()) {
        queue->isInRotation = false;
        mRotation.pop_front();
    } else {
        mRotation.splice(mRotation.end(), mRotation, mRotation.begin());
    }
    return entry;
}

// A thread that begins a task wakes the next one, so that each call need wake only one.
void LoadingWorkers::wakeOrStartThread() noexcept {
    if (mQuit || !canBegin()) {
        return;
    }
    if (mIdleThreads > 0) {
        mWake.notify_one();
    } else if (mThreads.size() < places() + LoadingPool::MAX_WAITING_TASKS) {
        try {
            startThread();
        } catch (...) {  // NOLINT(bugprone-empty-catch): those that there are do the work.
        }
    }
}

void LoadingWorkers::startThread() {
    mActive.reserve(mThreads.size() + 1);  // So that beginning a task cannot fail.
    mThreads.emplace_back([self = shared_from_this()] { self->work(); });
}

std::stop_source* LoadingWorkers::unstopped(const Queue& queue) {
    const auto found = std::find_if(mActive.begin(), mActive.end(), [&](const Active& active) {
        return active.queue == &queue && !active.stop.stop_requested();
    });
    return found != mActive.end() ? &found->stop : nullptr;
}

bool LoadingWorkers::runsElsewhere(const Queue& queue) const {
    return std::any_of(mActive.begin(), mActive.end(), [&](const Active& active) {
        return active.queue == &queue && active.thread != std::this_thread::get_id();
    });
}

void LoadingWorkers::enterBlockingSection() noexcept {
    if (current.pool == nullptr || current.blockingSections++ > 0) {
        return;
    }
    LoadingWorkers& pool = *current.pool;
    const std::lock_guard lock(pool.mMutex);
    if (pool.mWaiting < LoadingPool::MAX_WAITING_TASKS) {
        current.gaveUpPlace = true;
        ++pool.mWaiting;
        --pool.mRunning;
        pool.wakeOrStartThread();
    }
}

void LoadingWorkers::leaveBlockingSection() noexcept {
    if (current.pool == nullptr || --current.blockingSections > 0 || !current.gaveUpPlace) {
        return;
    }
    const std::lock_guard lock(current.pool->mMutex);
    current.gaveUpPlace = false;
    --current.pool->mWaiting;
    ++current.pool->mRunning;
}

}  // namespace Core
