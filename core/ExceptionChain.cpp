#include <core/ExceptionChain.h>

namespace Core {

std::string exceptionChain(const std::exception& exception) {
    std::string chain = exception.what();
    try {
        std::rethrow_if_nested(exception);
    } catch (const std::exception& nested) {
        chain += ": " + exceptionChain(nested);
    } catch (...) {
        chain += ": unknown exception";
    }
    return chain;
}

}  // namespace Core
