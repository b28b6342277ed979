#pragma once

#include <stdexcept>

namespace Las {

/// Bytes that no writer of the format produces. Stays inside this folder: where file, chunk and point are
/// known it becomes an Octree::StoreError.
class DataError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace Las
