#pragma once

// The one macro that marks what the kit library exports. Everything else in
// the library is hidden, so hosts and plug-ins see only these names.
#if defined(_WIN32)
#if defined(QZEKIT_BUILDING)
#define QZEKIT_EXPORT __declspec(dllexport)
#else
#define QZEKIT_EXPORT __declspec(dllimport)
#endif
#else
#define QZEKIT_EXPORT __attribute__((visibility("default")))
#endif
