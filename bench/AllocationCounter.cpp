#include <bench/AllocationCounter.h>

#include <malloc.h>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> allocations{0};
std::atomic<std::ptrdiff_t> bytes{0};
std::atomic<std::ptrdiff_t> peak{0};

size_t heapSize(void* memory) {
#if defined(_WIN32)
    return _msize(memory);
#else
    return malloc_usable_size(memory);
#endif
}

void* countedAllocation(size_t wanted) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const memory = std::malloc(wanted > 0 ? wanted : 1)) {
        const auto size = static_cast<std::ptrdiff_t>(heapSize(memory));
        const std::ptrdiff_t now = bytes.fetch_add(size, std::memory_order_relaxed) + size;
        std::ptrdiff_t highest = peak.load(std::memory_order_relaxed);
        while (now > highest && !peak.compare_exchange_weak(highest, now, std::memory_order_relaxed)) {
        }
        return memory;
    }
    throw std::bad_alloc();
}

void countedRelease(void* memory) noexcept {
    if (memory != nullptr) {
        bytes.fetch_sub(static_cast<std::ptrdiff_t>(heapSize(memory)), std::memory_order_relaxed);
        std::free(memory);
    }
}

}  // namespace

size_t allocationCount() {
    return allocations.load(std::memory_order_relaxed);
}

size_t allocatedBytes() {
    return static_cast<size_t>(bytes.load(std::memory_order_relaxed));
}

size_t takePeakBytes() {
    const std::ptrdiff_t now = bytes.load(std::memory_order_relaxed);
    const std::ptrdiff_t highest = peak.exchange(now, std::memory_order_relaxed);
    return static_cast<size_t>(highest > now ? highest - now : 0);
}

void* operator new(size_t size) {
    return countedAllocation(size);
}
void* operator new[](size_t size) {
    return countedAllocation(size);
}
void operator delete(void* memory) noexcept {
    countedRelease(memory);
}
void operator delete[](void* memory) noexcept {
    countedRelease(memory);
}
void operator delete(void* memory, size_t) noexcept {
    countedRelease(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    countedRelease(memory);
}
