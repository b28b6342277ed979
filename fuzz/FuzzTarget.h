#pragma once

#include <cstddef>
#include <cstdint>

/// What a fuzz target defines: takes any input, returns 0, and aborts or throws when the code under test
/// misbehaves.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
