#pragma once

#include <cstddef>

/// Memory of the process that is in use now, in bytes.
size_t processBytes();
/// Threads of the process.
size_t processThreads();
