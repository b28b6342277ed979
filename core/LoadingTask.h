#pragma once

#include <functional>
#include <stop_token>

namespace Core {

/// What a LoadingQueue takes: exactly one of the two functions is called, once, under no lock.
struct LoadingTask {
    /// With the token of `stop`.
    std::function<void(std::stop_token)> run;
    /// Called instead of run, on whichever thread finds out. May be empty.
    std::function<void()> dropped = nullptr;
    std::stop_source stop = std::stop_source();  ///< Also signalled when the queue is destroyed.
    /// The most important task of a queue is the next; among equals the one submitted first.
    float priority = 0.0f;
};

}  // namespace Core
