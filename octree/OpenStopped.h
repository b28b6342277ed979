#pragma once

#include <exception>

namespace Octree {

/// Ends the opening of a store that was asked to stop.
class OpenStopped : public std::exception {
public:
    const char* what() const noexcept override { return "The opening of a store was stopped"; }
};

}  // namespace Octree
