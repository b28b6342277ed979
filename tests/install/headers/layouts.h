#pragma once

#include <cstddef>

struct Layout {
    const char* name;
    std::size_t size;
    std::size_t alignment;
};

// Ended by one without a name.
extern const Layout layouts_sse2[];
extern const Layout layouts_avx2[];
extern const Layout layouts_avx512[];
