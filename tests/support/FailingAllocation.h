#pragma once

#include <cstddef>

namespace TestSupport {

/// Counts what operator new gives out on this thread, and lets it fail.
class FailingAllocation {
public:
    /// How many more allocations succeed before one fails; a negative number lets all succeed.
    static void failAfter(long allocations);
    /// How many succeed before all fail.
    static void failEverAfter(long allocations);
    static std::size_t count();
};

}  // namespace TestSupport
