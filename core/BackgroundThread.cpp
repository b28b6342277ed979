#include <core/BackgroundThread.h>

#include <core/ExceptionLog.h>
#include <core/Mutex.h>

#include <mutex>
#include <utility>

namespace Core {

/// What the thread needs. It outlives the BackgroundThread that is destroyed by its own function.
class BackgroundThread::Worker {
public:
    explicit Worker(std::function<void(std::stop_token)> function) : mFunction(std::move(function)) {}

    void work();
    void restart() { signal(mRunDue); }
    void quit() { signal(mQuit); }
    bool isRunning() const;
    void waitUntilIdle();

private:
    void signal(bool& flag);  ///< Sets one of the flags below and stops the current run.
    void runOnce(std::unique_lock<Mutex>& lock);

    const std::function<void(std::stop_token)> mFunction;

    mutable Mutex mMutex;  ///< Guards all below; held for flag changes only, never during a run.
    ConditionVariable mWake;
    ConditionVariable mIdle;
    std::stop_source mStop{std::nostopstate};  ///< Of the current run.
    bool mRunDue = true;
    bool mInRun = false;
    bool mQuit = false;
};

void BackgroundThread::Worker::signal(bool& flag) {
    std::unique_lock lock(mMutex);
    flag = true;
    std::stop_source stop = mStop;
    lock.unlock();
    mWake.notify_one();
    stop.request_stop();  // Runs the function's stop callbacks, hence outside the lock.
}

bool BackgroundThread::Worker::isRunning() const {
    const std::lock_guard lock(mMutex);
    return mInRun || mRunDue;
}

void BackgroundThread::Worker::waitUntilIdle() {
    std::unique_lock lock(mMutex);
    mIdle.wait(lock, [this] { return !mInRun && !mRunDue; });
}

void BackgroundThread::Worker::work() {
    std::unique_lock lock(mMutex);
    for (;;) {
        mWake.wait(lock, [this] { return mRunDue || mQuit; });
        if (mQuit) {
            return;
        }
        mRunDue = false;
        mInRun = true;
        runOnce(lock);
        mInRun = false;
        if (!mRunDue) {
            mIdle.notify_all();
        }
    }
}

void BackgroundThread::Worker::runOnce(std::unique_lock<Mutex>& lock) {
    try {
        mStop = std::stop_source();
        std::stop_token stop = mStop.get_token();
        lock.unlock();
        mFunction(std::move(stop));
    } catch (...) {
        if (lock.owns_lock()) {  // There was no memory to begin.
            lock.unlock();
        }
        logCurrentException("A background thread's function failed");
    }
    lock.lock();
}

BackgroundThread::BackgroundThread(std::function<void(std::stop_token)> function)
    : mWorker(std::make_shared<Worker>(std::move(function))),
      mThread([worker = mWorker] { worker->work(); }) {}

BackgroundThread::~BackgroundThread() {
    mWorker->quit();
    if (mThread.get_id() == std::this_thread::get_id()) {
        mThread.detach();
    } else {
        mThread.join();
    }
}

void BackgroundThread::restart() {
    mWorker->restart();
}

bool BackgroundThread::isRunning() const {
    return mWorker->isRunning();
}

void BackgroundThread::waitUntilIdle() {
    mWorker->waitUntilIdle();
}

}  // namespace Core
