#include "layouts.h"

#include <cstdio>
#include <initializer_list>

int main() {
    int differences = 0;
    int count = 0;
    for (const Layout* flavour : {layouts_avx2, layouts_avx512}) {
        const Layout* expected = layouts_sse2;
        for (const Layout* actual = flavour; actual->name != nullptr; ++actual, ++expected, ++count) {
            if (actual->size != expected->size || actual->alignment != expected->alignment) {
                std::printf("%s: %zu bytes on %zu instead of %zu on %zu\n", actual->name, actual->size,
                            actual->alignment, expected->size, expected->alignment);
                ++differences;
            }
        }
    }
    std::printf("%d layouts compared\n", count);
    return differences == 0 && count > 80 ? 0 : 1;
}
