#pragma once

#include <cstddef>

/// How often operator new has been called in this program, on all threads.
size_t allocationCount();
