#include <core/BackgroundThread.h>

#include <core/ExceptionChain.h>
#include <core/Log.h>

#include <exception>
#include <utility>

namespace Core {

BackgroundThread::BackgroundThread(std::function<void(std::stop_token)> function)
    : mFunction(std::move(function)), mThread([this] { work(); }) {}

BackgroundThread::~BackgroundThread() {
    signal(mQuit);
    mThread.join();
}

void BackgroundThread::restart() {
    signal(mRunDue);
}

void BackgroundThread::signal(bool& flag) {
    std::unique_lock lock(mMutex);
    flag = true;
    std::stop_source stop = mStop;
    lock.unlock();
    mWake.notify_one();
    stop.request_stop();  // Runs the function's stop callbacks, hence outside the lock.
}

bool BackgroundThread::isRunning() const {
    const std::lock_guard lock(mMutex);
    return mInRun || mRunDue;
}

void BackgroundThread::waitUntilIdle() {
    std::unique_lock lock(mMutex);
    mIdle.wait(lock, [this] { return !mInRun && !mRunDue; });
}

void BackgroundThread::work() {
    std::unique_lock lock(mMutex);
    for (;;) {
        mWake.wait(lock, [this] { return mRunDue || mQuit; });
        if (mQuit) {
            return;
        }
        mRunDue = false;
        mInRun = true;
        mStop = std::stop_source();
        const std::stop_token stop = mStop.get_token();

        lock.unlock();
        runOnce(stop);
        lock.lock();

        mInRun = false;
        if (!mRunDue) {
            mIdle.notify_all();
        }
    }
}

void BackgroundThread::runOnce(std::stop_token stop) const {
    try {
        mFunction(std::move(stop));
    } catch (const std::exception& exception) {
        Log::error("A background thread's function failed: " + exceptionChain(exception));
    } catch (...) {
        Log::error("A background thread's function failed: unknown exception");
    }
}

}  // namespace Core
