#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace Fuzz {

/// What became of a function in a process of its own.
struct ChildResult {
    std::chrono::duration<double> time{};
    /// At the highest; a process of this program that does nothing has a few MiB.
    std::size_t memoryBytes = 0;
    /// What the function returned or threw, or how its process ended.
    std::string text;
    bool wasKilled = false;
};

/// Waits for it, and kills it after so many seconds. Not under Windows.
ChildResult runInChild(const std::function<std::string()>& function, unsigned maxSeconds);

}  // namespace Fuzz
