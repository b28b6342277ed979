#include <bench/AllocationCounter.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> allocations{0};

void* countedAllocation(size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const memory = std::malloc(size > 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

size_t allocationCount() {
    return allocations.load(std::memory_order_relaxed);
}

void* operator new(size_t size) {
    return countedAllocation(size);
}
void* operator new[](size_t size) {
    return countedAllocation(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}
