#pragma once

#include <core/JobState.h>
#include <render/renderables/PanoTiles.h>

#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

namespace Render {

/// The thread that loads the tiles of one panorama: one at most, which is stopped and joined before another
/// loads.
///
/// Everything may also be called, and this even be destroyed, by a run itself, that is in its callback or in
/// the loader. A thread cannot wait for itself, so nothing waits there: stop() takes effect when the callback
/// returns, and what start() starts begins then. Of a run that is being stopped from outside neither has an
/// effect.
class PanoLoading {
public:
    explicit PanoLoading(std::shared_ptr<PanoTiles> tiles) : mTiles(std::move(tiles)) {}
    /// Stops and joins.
    ~PanoLoading();
    PanoLoading(const PanoLoading&) = delete;
    PanoLoading& operator=(const PanoLoading&) = delete;

    /// Replaces a thread that runs. The state is Running when this returns.
    void start(std::function<void()> onTileLoaded);
    /// Stops and joins.
    void stop();
    /// Loads everything on the calling thread, after stopping the other. Throws std::logic_error within a
    /// run.
    Core::JobState load();

private:
    const std::shared_ptr<PanoTiles> mTiles;  ///< Shared with the threads, which may outlive this.

    std::mutex mMutex;  ///< Guards the two below; never held while waiting.
    std::thread mThread;
    std::stop_source mStop{std::nostopstate};
};

}  // namespace Render
