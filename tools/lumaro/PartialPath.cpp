#include <tools/lumaro/PartialPath.h>

#include <mutex>
#include <system_error>
#include <utility>

namespace Tool {

namespace {

std::mutex mutex;
PartialPath* first = nullptr;  // Guarded by the mutex, as the list that begins there.

void removeIfThere(const std::filesystem::path& path) noexcept {
    try {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    } catch (...) {  // Without memory it stays.
    }
}

}  // namespace

PartialPath::PartialPath(std::filesystem::path path) : mPath(std::move(path)) {
    const std::lock_guard lock(mutex);
    mNext = std::exchange(first, this);
}

PartialPath::~PartialPath() {
    {
        const std::lock_guard lock(mutex);
        PartialPath** link = &first;
        while (*link != this) {
            link = &(*link)->mNext;
        }
        *link = mNext;
    }
    removeIfThere(mPath);
}

void PartialPath::removeAll() noexcept {
    mutex.lock();
    for (const PartialPath* partial = first; partial != nullptr; partial = partial->mNext) {
        removeIfThere(partial->mPath);
    }
}

}  // namespace Tool
