#include <bench/AllocationCounter.h>

#include <malloc.h>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> allocations{0};
std::atomic<size_t> bytes{0};

size_t heapSize(void* memory) {
#if defined(_WIN32)
    return _msize(memory);
#else
    return malloc_usable_size(memory);
#endif
}

void* countedAllocation(size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const memory = std::malloc(size > 0 ? size : 1)) {
        bytes.fetch_add(heapSize(memory), std::memory_order_relaxed);
        return memory;
    }
    throw std::bad_alloc();
}

void countedRelease(void* memory) noexcept {
    if (memory != nullptr) {
        bytes.fetch_sub(heapSize(memory), std::memory_order_relaxed);
        std::free(memory);
    }
}

}  // namespace

size_t allocationCount() {
    return allocations.load(std::memory_order_relaxed);
}

size_t allocatedBytes() {
    return bytes.load(std::memory_order_relaxed);
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
