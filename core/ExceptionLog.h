#pragma once

#include <string_view>

namespace Core {

/// In a catch block where nobody is left to throw to: logs what failed and, after ": ", why. Without memory
/// for that it logs what failed alone.
void logCurrentException(std::string_view what) noexcept;

}  // namespace Core
