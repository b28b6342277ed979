#pragma once

#include <core/JobState.h>
#include <core/Mutex.h>
#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <graphics/PanoramaLoader.h>
#include <math/Point.h>
#include <render/renderables/PanoDistances.h>

#include <Eigen/Core>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace Render {

/// The tiles of one panorama on their way from its loader to the render thread.
///
/// A run asks the loader for one tile after another, coarse levels first and in each level those first that
/// the camera faces, and leaves them here to be fetched. Runs take turns: the loader is only ever asked by
/// one of them. Any thread may call anything.
class PanoTiles {
public:
    enum class Kind : uint32_t { Color = 0, Depth = 1 };

    struct Request {
        uint64_t tileId = 0;
        uint64_t level = 0;
        Math::Point<float, 3> direction;  ///< In which the tile lies, in object space.
        Kind kind = Kind::Color;
    };

    template <class Image>
    struct Tile {
        uint64_t id = 0;
        Image image;  ///< Of the size of the tile's level.
    };

    /// In the order in which they were loaded, each tile once.
    struct Arrived {
        std::vector<Tile<Graphics::ColorImage>> colors;
        std::vector<Tile<Graphics::DepthImage>> depths;
    };

    /// The loader may be null; then every run fails. `askForRedraw` is called by a run for each tile, before
    /// the run's own callback; `name` is the panorama's in messages.
    PanoTiles(std::shared_ptr<Graphics::PanoramaLoader> loader, const std::string& name,
              std::function<void()> askForRedraw);

    const std::shared_ptr<Graphics::PanoramaLoader>& loader() const { return mLoader; }

    /// Throws std::invalid_argument for a loader with more levels or tiles than can be shown, with tiles
    /// outside its levels, or with a grid that its levels cannot hold.
    static void check(const Graphics::PanoramaLoader& loader);

    /// What to load next: the lowest level, there what lies most in the direction, then colours before
    /// depths, then the first. There must be one.
    static size_t choose(const std::vector<Request>& requests, const Eigen::Vector3f& viewDirection);

    /// Where the camera looks, in object space. Read anew for each tile.
    void setViewDirection(const Eigen::Vector3f& direction);
    Eigen::Vector3f viewDirection() const;

    /// What has arrived since the last call. A tile that was loaded again meanwhile is there in its newest
    /// form.
    Arrived takeArrived();
    /// Returns what was taken, to be taken again before anything newer, which it does not replace.
    void putBack(Arrived arrived);

    /// Of all tiles that have ever arrived.
    PanoDistances takeDistances();
    /// Whether they are others now than takeDistances() said last.
    bool haveDistancesChanged() const;

    /// Of the last run that was announced.
    Core::JobState state() const { return mState.load(); }
    /// What made that run fail, with the causes nested inside; null unless it has failed.
    std::exception_ptr error() const;
    /// Sleeps while the last run that was announced is in progress. Returns how it ended.
    Core::JobState waitForEnd() const;

    /// Shows the run as running from now on and returns its number. What earlier runs end with no longer
    /// counts.
    uint64_t announceRun();
    /// Of a run that could not be started.
    void failRun(uint64_t number, std::exception_ptr error);
    /// Waits for the run before, loads all tiles and returns how that ended. Failures are logged. The
    /// callback, which may be empty, is called after each tile, under no lock, and destroyed before the run
    /// ends.
    Core::JobState run(uint64_t number, std::stop_token stop, std::function<void()> onTileLoaded);
    /// Whether the caller is within run(), that is in a callback or in the loader.
    bool isCalledByRun() const;
    /// Makes the run that is in progress begin anew. False when there is none.
    bool beginAnew();

private:
    struct Outcome {
        Core::JobState state = Core::JobState::Stopped;
        std::exception_ptr error;
    };

    /// A thread in run(), waiting or loading. On that thread's stack: without memory it is known all the
    /// same.
    class RunThread {
    public:
        explicit RunThread(PanoTiles& tiles);
        ~RunThread();
        RunThread(const RunThread&) = delete;
        RunThread& operator=(const RunThread&) = delete;

    private:
        friend class PanoTiles;
        PanoTiles& mTiles;
        const std::thread::id mId = std::this_thread::get_id();
        RunThread* mNext = nullptr;
    };

    bool waitForTurn(uint64_t number, std::stop_token stop);
    void loadAll(std::stop_token stop, const std::function<void()>& onTileLoaded);
    Outcome attempt(std::stop_token stop, const std::function<void()>& onTileLoaded);
    bool end(uint64_t number, const Outcome& outcome);
    std::vector<Request> requests() const;
    void load(const Request& request);

    const std::shared_ptr<Graphics::PanoramaLoader> mLoader;
    const std::string mFailure;  ///< What a message about one begins with.
    const std::function<void()> mAskForRedraw;

    mutable std::mutex mTileMutex;  ///< Guards the three below.
    Arrived mArrived;
    PanoDistances mDistances;
    bool mDistancesChanged = false;

    mutable std::mutex mViewMutex;
    Eigen::Vector3f mViewDirection = Eigen::Vector3f::Zero();  ///< Guarded by mViewMutex.

    mutable Core::Mutex mRunMutex;  ///< Guards the five below, and mState against overtaking.
    mutable Core::ConditionVariable mRunEnded;
    std::exception_ptr mError;
    uint64_t mTurn = 0;  ///< The run that loads; 0 when none does.
    uint64_t mLastRun = 0;
    RunThread* mRunThreads = nullptr;
    std::atomic<bool> mBeginAnew{false};  ///< Guarded when it is set.

    std::atomic<Core::JobState> mState{Core::JobState::NotStarted};
};

}  // namespace Render
