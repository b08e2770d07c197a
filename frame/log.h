// Logging and timing conventions shared by every stage.
//
// Diagnostics go to the Android log under one tag: priority 4 for progress
// and values, 6 for failures. Sub-step timings go to standard output.
#ifndef BRIMVEL_FRAME_LOG_H
#define BRIMVEL_FRAME_LOG_H

#include <sys/time.h>

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

namespace tocra {

constexpr const char* kLogTag = "BRIMVEL_AP";
constexpr int kLogInfo = 4;   // ANDROID_LOG_INFO
constexpr int kLogError = 6;  // ANDROID_LOG_ERROR

// Wall-clock stamp of a sub-step, taken with gettimeofday.
struct Stamp {
    timeval tv;
};

Stamp Now();

// Elapsed milliseconds: (s2 - s1) * 1000 + (us2 - us1) / 1000, the
// microsecond difference divided on its own.
int ElapsedMs(const Stamp& start, const Stamp& end);

// Prints "%28s time:%d ms\n" on standard output for the step started at start.
void PrintElapsed(const char* name, const Stamp& start);

}  // namespace tocra

#define TOCRA_LOGI(...) __android_log_print(::tocra::kLogInfo, ::tocra::kLogTag, __VA_ARGS__)
#define TOCRA_LOGE(...) __android_log_print(::tocra::kLogError, ::tocra::kLogTag, __VA_ARGS__)

#endif
