/// Marks what the study library exports.
#pragma once

#if defined(_WIN32)
#ifdef INSOLATE_BUILDING_STUDY
#define INSOLATE_STUDY_EXPORT __declspec(dllexport)
#else
#define INSOLATE_STUDY_EXPORT __declspec(dllimport)
#endif
#else
#define INSOLATE_STUDY_EXPORT __attribute__((visibility("default")))
#endif
