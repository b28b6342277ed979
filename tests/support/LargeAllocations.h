#pragma once

#include <cstddef>
#include <functional>
#include <thread>

namespace TestSupport {

/// Counts the allocations of at least so many bytes while it exists: those of the thread that made it and
/// those of all others. One at a time.
class LargeAllocations {
public:
    explicit LargeAllocations(std::size_t bytes);
    ~LargeAllocations();
    LargeAllocations(const LargeAllocations&) = delete;
    LargeAllocations& operator=(const LargeAllocations&) = delete;

    std::size_t here() const;
    std::size_t elsewhere() const;

    /// Called at each one elsewhere, on its thread. To be set while there are none.
    std::function<void()> onElsewhere;
    const std::thread::id thread = std::this_thread::get_id();
};

}  // namespace TestSupport
