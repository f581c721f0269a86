#pragma once

/// Marks what the shared library exports. All other symbols are hidden.
#if defined(_WIN32)
#if defined(VORELUTIL_BUILDING)
#define VORELUTIL_EXPORT __declspec(dllexport)
#else
#define VORELUTIL_EXPORT __declspec(dllimport)
#endif
#else
#define VORELUTIL_EXPORT __attribute__((visibility("default")))
#endif
