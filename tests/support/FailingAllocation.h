#pragma once

#include <cstddef>

namespace TestSupport {

/// Counts what operator new gives out on this thread, and lets it fail once.
class FailingAllocation {
public:
    /// How many more allocations succeed before one fails; a negative number lets all succeed.
    static void failAfter(long allocations);
    static std::size_t count();
};

}  // namespace TestSupport
