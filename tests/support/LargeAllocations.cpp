#include <tests/support/LargeAllocations.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

std::atomic<std::size_t> largeFrom{(std::numeric_limits<std::size_t>::max)()};
std::atomic<TestSupport::LargeAllocations*> current{nullptr};
std::atomic<std::size_t> countHere{0};
std::atomic<std::size_t> countElsewhere{0};

void* allocate(std::size_t size) {
    if (size >= largeFrom) {
        TestSupport::LargeAllocations& counter = *current;
        if (std::this_thread::get_id() == counter.thread) {
            ++countHere;
        } else {
            ++countElsewhere;
            if (counter.onElsewhere) {
                counter.onElsewhere();
            }
        }
    }
    if (void* const memory = std::malloc(size > 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

namespace TestSupport {

LargeAllocations::LargeAllocations(std::size_t bytes) {
    countHere = countElsewhere = 0;
    current = this;
    largeFrom = bytes;
}

LargeAllocations::~LargeAllocations() {
    largeFrom = (std::numeric_limits<std::size_t>::max)();
}

std::size_t LargeAllocations::here() const {
    return countHere;
}

std::size_t LargeAllocations::elsewhere() const {
    return countElsewhere;
}

}  // namespace TestSupport

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
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
