#include <core/LoadingPool.h>

#include <core/LoadingWorkers.h>

#include <algorithm>
#include <mutex>
#include <thread>

namespace Core {

namespace {

struct SharedPool {
    std::mutex mutex;  ///< Guards the two below.
    std::weak_ptr<LoadingPool> pool;
    size_t threadCount = LoadingPool::defaultThreadCount();
};

SharedPool& sharedPool() {
    static SharedPool shared;
    return shared;
}

}  // namespace

size_t LoadingPool::defaultThreadCount() {
    // 0 cores: unknown.
    const size_t cores = std::thread::hardware_concurrency();
    return std::clamp<size_t>(cores, 2, 17) - 1;
}

std::shared_ptr<LoadingPool> LoadingPool::shared() {
    SharedPool& shared = sharedPool();
    const std::lock_guard lock(shared.mutex);
    std::shared_ptr<LoadingPool> pool = shared.pool.lock();
    if (!pool) {
        pool = std::make_shared<LoadingPool>(shared.threadCount);
        shared.pool = pool;
    }
    return pool;
}

void LoadingPool::setSharedThreadCount(size_t count) {
    SharedPool& shared = sharedPool();
    std::shared_ptr<LoadingPool> pool;  // Outlives the lock, should it be the last to hold the pool.
    const std::lock_guard lock(shared.mutex);
    shared.threadCount = count;
    pool = shared.pool.lock();
    if (pool) {
        pool->setThreadCount(count);
    }
}

LoadingPool::LoadingPool(size_t threadCount) : mWorkers(std::make_shared<LoadingWorkers>(threadCount)) {}

LoadingPool::~LoadingPool() {
    mWorkers->quit();
}

void LoadingPool::setThreadCount(size_t count) {
    mWorkers->setThreadCount(count);
}

size_t LoadingPool::threadCount() const {
    return mWorkers->threadCount();
}

}  // namespace Core
