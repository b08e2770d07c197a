/*
 * Stand-in for the platform log library, for Linux builds that have no
 * Android liblog (the cross builds). It writes the same line shape as the
 * host's liblog to standard error: "TAG P MM-DD hh:mm:ss  pid  tid text".
 */
#define _GNU_SOURCE
#include <stdarg.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

__attribute__((visibility("default"))) int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    static const char kLetters[] = "??VDIWEF";
    char letter = (prio >= 0 && prio < 8) ? kLetters[prio] : '?';
    char text[1024];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(text, sizeof(text), fmt, ap);
    va_end(ap);
    struct timeval tv;
    gettimeofday(&tv, NULL);
    struct tm tmv;
    localtime_r(&tv.tv_sec, &tmv);
    fprintf(stderr, "%s %c %02d-%02d %02d:%02d:%02d %5d %5d %s\n", tag ? tag : "", letter, tmv.tm_mon + 1, tmv.tm_mday,
            tmv.tm_hour, tmv.tm_min, tmv.tm_sec, (int)getpid(), (int)syscall(SYS_gettid), text);
    return n < 0 ? 0 : n;
}
