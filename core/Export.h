#pragma once

/// LUMARO_API marks what a host may use of the DLL. Objects that go into the DLL define LUMARO_EXPORTS;
/// programs that link those objects directly define LUMARO_STATIC.
#if defined(_WIN32)
#if defined(LUMARO_EXPORTS)
#define LUMARO_API __declspec(dllexport)
#elif defined(LUMARO_STATIC)
#define LUMARO_API
#else
#define LUMARO_API __declspec(dllimport)
#endif
#else
#define LUMARO_API __attribute__((visibility("default")))
#endif
