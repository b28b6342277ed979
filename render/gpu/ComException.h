#pragma once

#include <core/Export.h>

#include <windows.h>

#include <exception>
#include <string>

namespace Render {

/// A failed HRESULT and the system's text for it.
class LUMARO_API ComException : public std::exception {
public:
    explicit ComException(HRESULT result);

    const char* what() const noexcept override { return mMessage.c_str(); }
    HRESULT result() const noexcept { return mResult; }

private:
    HRESULT mResult;
    std::string mMessage;
};

/// Throws a ComException when `result` is negative. The exception nests a std::runtime_error that names
/// `operation`, the call that failed.
LUMARO_API void throwIfFailed(HRESULT result, const char* operation);

}  // namespace Render
