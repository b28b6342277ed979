#include <render/gpu/ComException.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace Render {

namespace {

std::string systemMessage(HRESULT result) {
    char* text = nullptr;
    const DWORD language = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);
    DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(result), language, reinterpret_cast<char*>(&text), 0, nullptr);
    if (text == nullptr) {
        return {};
    }
    if (length > 1 && text[length - 1] == '\n') {
        --length;
        if (text[length - 1] == '\r') {
            --length;
        }
    }
    std::string message(text, length);
    LocalFree(text);
    return message;
}

std::string ownMessage(HRESULT result) {
    const auto code = static_cast<unsigned long>(result);
    constexpr unsigned long firstDispatchError = 0x80040200;
    constexpr unsigned long endOfDispatchErrors = 0x80050000;
    std::array<char, 32> text{};
    const unsigned long low = code & 0xFFFF;
    if (code >= firstDispatchError && code < endOfDispatchErrors && low != 0x200) {
        std::snprintf(text.data(), text.size(), "IDispatch error #%d", static_cast<int>(low) - 0x200);
    } else {
        std::snprintf(text.data(), text.size(), "Unknown error 0x%0lX", code);
    }
    return text.data();
}

std::string messageOf(HRESULT result) {
    std::string message = systemMessage(result);
    return message.empty() ? ownMessage(result) : message;
}

}  // namespace

ComException::ComException(HRESULT result) : mResult(result), mMessage(messageOf(result)) {}

void throwIfFailed(HRESULT result, const char* operation) {
    if (result >= 0) {
        return;
    }
    try {
        throw std::runtime_error(operation);
    } catch (...) {
        std::throw_with_nested(ComException(result));
    }
}

}  // namespace Render
