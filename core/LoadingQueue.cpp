#include <core/LoadingQueue.h>

#include <utility>

namespace Core {

LoadingQueue::LoadingQueue(std::shared_ptr<LoadingPool> pool)
    : mPool(std::move(pool)), mQueue(std::make_shared<LoadingWorkers::Queue>()) {}

LoadingQueue::~LoadingQueue() {
    mPool->mWorkers->close(mQueue);
}

void LoadingQueue::submit(LoadingTask task) {
    mPool->mWorkers->submit(mQueue, std::move(task));
}

void LoadingQueue::dropStopped() {
    mPool->mWorkers->dropStopped(*mQueue);
}

LoadingQueue::Wait::Wait(const LoadingQueue& queue) : mWorkers(*queue.mPool->mWorkers) {
    mWorkers.beginWait();
}

LoadingQueue::Wait::~Wait() {
    mWorkers.endWait();
}

}  // namespace Core
