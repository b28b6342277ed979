#pragma once

#include <cstdint>

namespace Core {

/// How far a job has come that runs beside its caller.
enum class JobState : uint32_t {
    NotStarted = 0,
    Running = 1,
    Stopped = 2,  ///< On request, before its end.
    Completed = 3,
    Failed = 4,
};

}  // namespace Core
