#pragma once

#include <cstddef>

namespace Core {

/// Charges a cache entry by the number of its elements, value.size().
template <class Value>
struct CacheEntrySizeCount {
    size_t operator()(const Value& value) const { return value.size(); }
};

}  // namespace Core
