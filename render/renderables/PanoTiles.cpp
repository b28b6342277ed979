#include <core/ExceptionLog.h>
#include <core/StoppableWait.h>
#include <render/renderables/PanoConstants.h>
#include <render/renderables/PanoTiles.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

using Core::JobState;
using Graphics::PanoramaLoader;

constexpr size_t cubeFaces = 6;

[[noreturn]] void reject(const std::string& reason) {
    throw std::invalid_argument("The panorama cannot be shown: " + reason);
}

void checkTiles(const PanoramaLoader& loader, const std::vector<uint64_t>& tiles, size_t levels,
                const std::string& kind) {
    for (const uint64_t tile : tiles) {
        const std::string name = kind + " tile " + std::to_string(tile);
        if (loader.level(tile) >= levels) {
            reject(name + " belongs to level " + std::to_string(loader.level(tile)) + " of " +
                   std::to_string(levels));
        }
        if (loader.tileIndexWithinLevel(tile) >= loader.tilesPerLevel()) {
            reject(name + " is number " + std::to_string(loader.tileIndexWithinLevel(tile)) + " of " +
                   std::to_string(loader.tilesPerLevel()) + " in its level");
        }
    }
}

// Texels of the size that the level promises, in rows without padding: whoever copies them need not look.
template <class Image>
Image fitted(Image image, size_t width, size_t height) {
    if (image.width() != width || image.height() != height) {
        throw std::runtime_error("the image has " + std::to_string(image.width()) + " x " +
                                 std::to_string(image.height()) + " texels instead of " +
                                 std::to_string(width) + " x " + std::to_string(height));
    }
    const size_t rowSize = width * Image::BYTES_PER_TEXEL;
    if (image.stride() == rowSize) {
        return image;
    }
    Image packed(width, height);
    for (size_t y = 0; y < height; ++y) {
        std::memcpy(packed.data() + y * rowSize, image.data() + y * image.stride(), rowSize);
    }
    return packed;
}

template <class Tile>
auto findTile(std::vector<Tile>& tiles, uint64_t id) {
    return std::find_if(tiles.begin(), tiles.end(), [id](const Tile& tile) { return tile.id == id; });
}

// However often tiles are loaded before they are taken, each waits once.
template <class Tile>
void append(std::vector<Tile>& tiles, Tile tile) {
    const auto older = findTile(tiles, tile.id);
    if (older != tiles.end()) {
        tiles.erase(older);
    }
    tiles.push_back(std::move(tile));
}

template <class Tile>
void prepend(std::vector<Tile>& list, std::vector<Tile> front) {
    std::erase_if(front, [&](const Tile& tile) { return findTile(list, tile.id) != list.end(); });
    front.insert(front.end(), std::make_move_iterator(list.begin()), std::make_move_iterator(list.end()));
    list = std::move(front);
}

}  // namespace

PanoTiles::PanoTiles(std::shared_ptr<PanoramaLoader> loader, const std::string& name,
                     std::function<void()> askForRedraw)
    : mLoader(std::move(loader)),
      mFailure("Loading panorama \"" + name + "\" failed"),
      mAskForRedraw(std::move(askForRedraw)) {}

void PanoTiles::check(const PanoramaLoader& loader) {
    for (const auto& [levels, kind] :
         {std::pair(loader.numColorLevels(), "color"), std::pair(loader.numDepthLevels(), "depth")}) {
        if (levels > maxPanoLevels) {
            reject(std::to_string(levels) + " " + kind + " levels are more than " +
                   std::to_string(maxPanoLevels));
        }
    }
    const size_t tiles = loader.tilesPerLevel();
    if (tiles == 0 || tiles > maxPanoTilesPerLevel) {
        reject(std::to_string(tiles) + " tiles in a level are not 1 to " +
               std::to_string(maxPanoTilesPerLevel));
    }
    const size_t faces = loader.projectionKind() == 0 ? 1 : cubeFaces;
    // Each is compared before they are multiplied, which might overflow.
    if (loader.tileRows() > tiles || loader.tileColumns() > tiles ||
        loader.tileRows() * loader.tileColumns() * faces > tiles) {
        reject(std::to_string(loader.tileRows()) + " rows and " + std::to_string(loader.tileColumns()) +
               " columns of tiles on " + std::to_string(faces) + " faces are more than the " +
               std::to_string(tiles) + " tiles of a level");
    }
    checkTiles(loader, loader.colorTiles(), loader.numColorLevels(), "color");
    checkTiles(loader, loader.depthTiles(), loader.numDepthLevels(), "depth");
}

size_t PanoTiles::choose(const std::vector<Request>& requests, const Eigen::Vector3f& viewDirection) {
    size_t best = 0;
    float bestDot = viewDirection.dot(requests[0].direction.vector());
    for (size_t i = 1; i < requests.size(); ++i) {
        const Request& request = requests[i];
        const Request& other = requests[best];
        const float dot = viewDirection.dot(request.direction.vector());
        const bool better = request.level != other.level
                                ? request.level < other.level
                                : dot > bestDot || (dot == bestDot && request.kind < other.kind);
        if (better) {
            best = i;
            bestDot = dot;
        }
    }
    return best;
}

void PanoTiles::setViewDirection(const Eigen::Vector3f& direction) {
    const std::lock_guard lock(mViewMutex);
    mViewDirection = direction;
}

Eigen::Vector3f PanoTiles::viewDirection() const {
    const std::lock_guard lock(mViewMutex);
    return mViewDirection;
}

PanoTiles::Arrived PanoTiles::takeArrived() {
    const std::lock_guard lock(mTileMutex);
    return std::exchange(mArrived, {});
}

void PanoTiles::putBack(Arrived arrived) {
    const std::lock_guard lock(mTileMutex);
    prepend(mArrived.colors, std::move(arrived.colors));
    prepend(mArrived.depths, std::move(arrived.depths));
}

PanoDistances PanoTiles::takeDistances() {
    const std::lock_guard lock(mTileMutex);
    mDistancesChanged = false;
    return mDistances;
}

bool PanoTiles::haveDistancesChanged() const {
    const std::lock_guard lock(mTileMutex);
    return mDistancesChanged;
}

std::exception_ptr PanoTiles::error() const {
    const std::lock_guard lock(mRunMutex);
    return mError;
}

JobState PanoTiles::waitForEnd() const {
    std::unique_lock lock(mRunMutex);
    mRunEnded.wait(lock, [this] { return mState != JobState::Running; });
    return mState;
}

uint64_t PanoTiles::announceRun() {
    std::exception_ptr old;  // Destroyed when the mutex is free.
    const std::lock_guard lock(mRunMutex);
    old.swap(mError);
    mState = JobState::Running;
    return ++mLastRun;
}

void PanoTiles::failRun(uint64_t number, std::exception_ptr error) {
    end(number, {JobState::Failed, std::move(error)});
}

JobState PanoTiles::run(uint64_t number, std::stop_token stop, std::function<void()> onTileLoaded) {
    const RunThread self(*this);
    const bool onTurn = waitForTurn(number, stop);
    Outcome outcome;
    do {
        if (onTurn) {
            outcome = attempt(stop, onTileLoaded);
        }
    } while (!end(number, outcome));
    // It may hold the last reference to the panorama, whose destructor must find this thread among the runs.
    onTileLoaded = nullptr;
    return outcome.state;
}

bool PanoTiles::waitForTurn(uint64_t number, std::stop_token stop) {
    std::unique_lock lock(mRunMutex);
    if (!Core::waitUnlessStopped(mRunEnded, lock, stop, [this] { return mTurn == 0; })) {
        return false;
    }
    mTurn = number;
    return true;
}

// False when the run has to begin anew. The state is told before the turn ends, or the next run's would be
// overwritten.
bool PanoTiles::end(uint64_t number, const Outcome& outcome) {
    const std::lock_guard lock(mRunMutex);
    if (outcome.state == JobState::Completed && mBeginAnew) {
        return false;
    }
    if (number == mLastRun) {
        mState = outcome.state;
        mError = outcome.error;
    }
    if (number == mTurn) {
        mTurn = 0;
    }
    mRunEnded.notify_all();
    return true;
}

PanoTiles::RunThread::RunThread(PanoTiles& tiles) : mTiles(tiles) {
    const std::lock_guard lock(mTiles.mRunMutex);
    mNext = std::exchange(mTiles.mRunThreads, this);
}

PanoTiles::RunThread::~RunThread() {
    const std::lock_guard lock(mTiles.mRunMutex);
    RunThread** link = &mTiles.mRunThreads;
    while (*link != this) {
        link = &(*link)->mNext;
    }
    *link = mNext;
}

bool PanoTiles::isCalledByRun() const {
    const std::lock_guard lock(mRunMutex);
    const RunThread* thread = mRunThreads;
    while (thread != nullptr && thread->mId != std::this_thread::get_id()) {
        thread = thread->mNext;
    }
    return thread != nullptr;
}

bool PanoTiles::beginAnew() {
    const std::lock_guard lock(mRunMutex);
    if (mState != JobState::Running) {
        return false;
    }
    mBeginAnew = true;
    return true;
}

PanoTiles::Outcome PanoTiles::attempt(std::stop_token stop, const std::function<void()>& onTileLoaded) {
    try {
        loadAll(stop, onTileLoaded);
        return {stop.stop_requested() ? JobState::Stopped : JobState::Completed, nullptr};
    } catch (...) {
        Core::logCurrentException(mFailure);
        try {
            std::throw_with_nested(std::runtime_error(mFailure));
        } catch (...) {
            return {JobState::Failed, std::current_exception()};
        }
    }
}

void PanoTiles::loadAll(std::stop_token stop, const std::function<void()>& onTileLoaded) {
    mBeginAnew = false;
    if (!mLoader) {
        throw std::runtime_error("there is no loader");
    }
    std::vector<Request> remaining = requests();
    while (!remaining.empty() && !stop.stop_requested() && !mBeginAnew) {
        const size_t next = choose(remaining, viewDirection());
        load(remaining[next]);
        remaining.erase(remaining.begin() + static_cast<std::ptrdiff_t>(next));
        mAskForRedraw();
        if (onTileLoaded) {
            onTileLoaded();
        }
    }
}

std::vector<PanoTiles::Request> PanoTiles::requests() const {
    check(*mLoader);
    std::vector<Request> list;
    for (const uint64_t tile : mLoader->colorTiles()) {
        list.push_back({tile, mLoader->level(tile), mLoader->tileDirection(tile), Kind::Color});
    }
    for (const uint64_t tile : mLoader->depthTiles()) {
        list.push_back({tile, mLoader->level(tile), mLoader->tileDirection(tile), Kind::Depth});
    }
    return list;
}

void PanoTiles::load(const Request& request) {
    const auto level = static_cast<size_t>(request.level);
    const size_t width = mLoader->tileWidth(level);
    const size_t height = mLoader->tileHeight(level);
    const uint64_t tile = request.tileId;
    try {
        if (request.kind == Kind::Color) {
            Graphics::ColorImage image = fitted(mLoader->loadColorTile(tile), width, height);
            const std::lock_guard lock(mTileMutex);
            append(mArrived.colors, {tile, std::move(image)});
        } else {
            Graphics::DepthImage image = fitted(mLoader->loadDepthTile(tile), width, height);
            PanoDistances distances;
            distances.extend(image);
            const std::lock_guard lock(mTileMutex);
            append(mArrived.depths, {tile, std::move(image)});
            distances.extend(mDistances);
            mDistancesChanged = mDistancesChanged || distances != mDistances;
            mDistances = distances;
        }
    } catch (...) {
        std::throw_with_nested(
            std::runtime_error(std::string(request.kind == Kind::Color ? "color" : "depth") + " tile " +
                               std::to_string(tile) + " of level " + std::to_string(level)));
    }
}

}  // namespace Render
