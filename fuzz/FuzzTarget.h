#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

/// What a fuzz target defines: takes any input, returns 0, and aborts or throws when the code under test
/// misbehaves.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

/// Of what must hold whatever the input.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

}  // namespace Fuzz
