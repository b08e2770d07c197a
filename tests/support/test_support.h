// Test support: a recording log sink, cache-flush recorder and thread
// starter (linked into every test binary in place of the platform's), a
// handle table behind the two buffer hooks, and random planes.
#ifndef TOCRA_TESTS_SUPPORT_H
#define TOCRA_TESTS_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "brimvel_tocra.h"

namespace tocra_test {

struct LogLine {
    int prio;
    std::string tag;
    std::string text;
};

// Every line the library logged since the last ClearLog().
void ClearLog();
std::vector<LogLine> Log();
// True when some line has exactly this priority and text.
bool Logged(int prio, const std::string& text);
// Number of lines with this exact text, any priority.
int CountLogged(const std::string& text);

struct FlushRange {
    const void* start;
    const void* end;
};
void ClearFlushes();
std::vector<FlushRange> Flushes();
// True when some recorded flush covers exactly [start, start + bytes).
bool Flushed(const void* start, size_t bytes);

// While one of these lives, the thread starts it names fail with EAGAIN:
// counted from its construction, 1 = the next start. Every other start
// calls pthread_create.
class FailingThreadStarts {
public:
    explicit FailingThreadStarts(std::initializer_list<int> nth);
    ~FailingThreadStarts();
    FailingThreadStarts(const FailingThreadStarts&) = delete;
    FailingThreadStarts& operator=(const FailingThreadStarts&) = delete;
    // Starts attempted since construction, failed ones included.
    int starts() const;
};

// A pipeline-style table of buffers behind FunConvert2Addr. Handle 0 never
// converts; Install() sets both hooks for this table.
class HandleTable {
public:
    HandleTable();
    ~HandleTable();
    uint32_t Add(void* addr);
    // Makes an existing handle convert to 0 from now on.
    void Break(uint32_t handle);
    void Install();
    int invalidations() const;

private:
    static void* Convert(uint32_t handle);
    static void Invalidate(void* addr);
};

// Deterministic pseudo-random bytes.
std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed);

// Runs f with standard output captured and returns what it printed.
template <typename F>
std::string CaptureStdout(F&& f);

}  // namespace tocra_test

#include <gtest/gtest.h>

template <typename F>
std::string tocra_test::CaptureStdout(F&& f) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    f();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

#endif
