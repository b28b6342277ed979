#pragma once

#include <type_traits>

namespace Render {

/// Internal: what every owner of a Direct3D object promises.
template <class T>
inline constexpr bool isMoveOnly =
    std::is_nothrow_default_constructible_v<T>&& std::is_nothrow_move_constructible_v<T>&&
        std::is_nothrow_move_assignable_v<T> &&
    !std::is_copy_constructible_v<T> && !std::is_copy_assignable_v<T>;

}  // namespace Render
