#pragma once

#include <stdexcept>

namespace PoTree {

/// A fetch ended because its stop token was signalled.
class FetchCancelled : public std::runtime_error {
public:
    FetchCancelled() : std::runtime_error("Fetching was cancelled") {}
};

}  // namespace PoTree
