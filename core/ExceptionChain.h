#pragma once

#include <core/Export.h>

#include <exception>
#include <string>

namespace Core {

/// The texts of an exception and of those nested in it (std::throw_with_nested), outermost first, joined with
/// ": ".
LUMARO_API std::string exceptionChain(const std::exception& exception);

}  // namespace Core
