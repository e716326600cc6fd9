/// Marks what the shared library exports; everything else stays hidden.
#pragma once

#if defined(_WIN32)
#if defined(INSOLATE_BUILDING_LIBRARY)
#define INSOLATE_EXPORT __declspec(dllexport)
#else
#define INSOLATE_EXPORT __declspec(dllimport)
#endif
#else
#define INSOLATE_EXPORT __attribute__((visibility("default")))
#endif
