#pragma once

#include <core/Export.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Octree {

/// A store that is missing, damaged or of a kind this library does not read. The text names the file, the
/// node where one is concerned, and what was wrong; it has no control characters and some thousand bytes at
/// most.
class LUMARO_API StoreError : public std::runtime_error {
public:
    explicit StoreError(const std::string& message);
    /// "<file>: <problem>"
    StoreError(const std::filesystem::path& file, std::string_view problem);
    /// "<file>: node <node>: <problem>"
    StoreError(const std::filesystem::path& file, std::string_view node, std::string_view problem);
    StoreError(const StoreError&) = default;
    StoreError& operator=(const StoreError&) = default;
    ~StoreError() override;
};

}  // namespace Octree
