#include <core/ExceptionChain.h>
#include <core/ExceptionLog.h>
#include <core/Log.h>

#include <exception>
#include <string>

namespace Core {

namespace {

std::string currentExceptionText() {
    try {
        throw;
    } catch (const std::exception& exception) {
        return exceptionChain(exception);
    } catch (...) {
        return "unknown exception";
    }
}

}  // namespace

void logCurrentException(std::string_view what) noexcept {
    try {
        Log::error(std::string(what) + ": " + currentExceptionText());
    } catch (...) {
        Log::error(what);
    }
}

}  // namespace Core
