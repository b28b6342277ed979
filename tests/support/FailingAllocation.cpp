#include <tests/support/FailingAllocation.h>

#include <cstdlib>
#include <new>

namespace {

thread_local long remaining = -1;
thread_local bool staysFailing = false;
thread_local std::size_t allocations = 0;

}  // namespace

namespace TestSupport {

void FailingAllocation::failAfter(long count) {
    remaining = count;
    staysFailing = false;
}

void FailingAllocation::failEverAfter(long count) {
    remaining = count;
    staysFailing = true;
}

std::size_t FailingAllocation::count() {
    return allocations;
}

}  // namespace TestSupport

void* operator new(std::size_t size) {
    ++allocations;
    const bool fails = remaining == 0;
    remaining -= remaining > 0 || (fails && !staysFailing) ? 1 : 0;
    void* const memory = fails ? nullptr : std::malloc(size > 0 ? size : 1);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
