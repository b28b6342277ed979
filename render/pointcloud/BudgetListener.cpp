#include <render/pointcloud/BudgetListener.h>

#include <core/ExceptionLog.h>

#include <algorithm>
#include <utility>

namespace Render {

BudgetListener::BudgetListener(Callback callback) : mCallback(std::move(callback)) {}

void BudgetListener::tell(const BudgetNews& news) {
    const std::thread::id self = std::this_thread::get_id();
    {
        const std::lock_guard lock(mMutex);
        if (mIsClosed) {
            return;
        }
        mCallers.push_back(self);
    }
    try {
        mCallback(news);
    } catch (...) {
        Core::logCurrentException("A point cloud failed to follow the budget");
    }
    const std::lock_guard lock(mMutex);
    mCallers.erase(std::find(mCallers.begin(), mCallers.end(), self));
    mCallEnded.notify_all();
}

void BudgetListener::close() {
    std::unique_lock lock(mMutex);
    mIsClosed = true;
    mCallEnded.wait(lock, [this] {
        return std::count(mCallers.begin(), mCallers.end(), std::this_thread::get_id()) ==
               static_cast<std::ptrdiff_t>(mCallers.size());
    });
}

}  // namespace Render
