#pragma once

#include <cstddef>

/// How often operator new has been called in this program, on all threads.
size_t allocationCount();

/// Bytes that operator new has given and operator delete has not got back, as the heap rounds them. Only
/// differences tell something: what another DLL allocated may be freed here.
size_t allocatedBytes();

/// How many bytes more than now there have been since the last call.
size_t takePeakBytes();
