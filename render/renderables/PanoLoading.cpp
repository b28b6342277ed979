#include <render/renderables/PanoLoading.h>

#include <exception>
#include <stdexcept>
#include <utility>

namespace Render {

PanoLoading::~PanoLoading() {
    if (!mTiles->isCalledByRun()) {
        stop();
        return;
    }
    const std::lock_guard lock(mMutex);
    mStop.request_stop();
    if (mThread.joinable()) {
        mThread.detach();
    }
}

void PanoLoading::start(std::function<void()> onTileLoaded) {
    const bool withinRun = mTiles->isCalledByRun();
    if (!withinRun) {
        stop();
    }
    const std::lock_guard lock(mMutex);
    if (withinRun && !mThread.joinable()) {
        return;
    }
    mStop.request_stop();
    std::stop_source stop;
    // Within a run, that run's thread is waited for by the new one, as whoever waits for the new one expects.
    const auto previous = std::make_shared<std::thread>(std::move(mThread));
    const uint64_t number = mTiles->announceRun();
    try {
        mThread = std::thread([tiles = mTiles, previous, number, token = stop.get_token(),
                               callback = std::move(onTileLoaded)]() mutable {
            if (previous->joinable()) {
                previous->join();
            }
            tiles->run(number, std::move(token), std::move(callback));
        });
    } catch (...) {
        mThread = std::move(*previous);
        mTiles->failRun(number, std::current_exception());
        throw;
    }
    mStop = std::move(stop);
}

void PanoLoading::stop() {
    std::thread thread;
    {
        const std::lock_guard lock(mMutex);
        mStop.request_stop();
        if (!mTiles->isCalledByRun()) {
            thread = std::move(mThread);
        }
    }
    if (thread.joinable()) {
        thread.join();
    }
}

Core::JobState PanoLoading::load() {
    if (mTiles->isCalledByRun()) {
        throw std::logic_error("A panorama cannot be loaded by a callback of its own loading");
    }
    stop();
    return mTiles->run(mTiles->announceRun(), {}, {});
}

}  // namespace Render
