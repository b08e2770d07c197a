// Test support: a recording log sink, cache-flush recorder, thread starter
// and allocator (linked into every test binary in place of the platform's), a
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

// Fault injection over the library's resources. While one lives, the
// events of its kind are counted from 1 and the one numbered failAt fails
// (0: none fails, the run only counts):
//   kAllocation  every block the library allocates (iMalloc, malloc, calloc
//                and realloc through the platform allocator, and operator new
//                in binaries that link tests/faults/counting_new.cpp);
//                a failing one returns null (operator new: std::bad_alloc);
//   kStart       every thread and pool start: thread creation, thread
//                attribute and semaphore initialisation; a failing one
//                returns its call's error.
// Allocations this support code makes for itself (the log sink's) are not
// counted. Only one lives at a time.
enum class FaultKind { kAllocation, kStart };

class FaultInjection {
  public:
    FaultInjection(FaultKind kind, int failAt);
    ~FaultInjection();
    FaultInjection(const FaultInjection&) = delete;
    FaultInjection& operator=(const FaultInjection&) = delete;
    // Events counted so far.
    int count() const;
    // True once the event numbered failAt has been failed.
    bool fired() const;
    // What failed: "alloc" (with its size in bytes), "pthread_create",
    // "pthread_attr_init" or "sem_init"; empty before.
    std::string failed() const;
    size_t failedSize() const;
};

// Blocks allocated while a FaultInjection lived and not yet freed. Kept until
// freed, also after the FaultInjection ends. The address is held scrambled,
// so that this bookkeeping does not make a leaked block reachable to
// LeakSanitizer; addr() gives it back.
struct Block {
    uintptr_t key;
    size_t size;
    void* addr() const;
};
std::vector<Block> Outstanding();

// For counting_new.cpp: one allocation of n bytes is about to be made. Returns
// false when it must fail; otherwise the block, once made, is passed to
// NoteAllocation. NoteRelease is told of every block given back.
bool AllowAllocation(size_t n);
void NoteAllocation(void* p, size_t n);
void NoteRelease(void* p);

// A pipeline-style table of buffers behind FunConvert2Addr. Handle 0 never
// converts; Install() sets both hooks for this table.
class HandleTable {
  public:
    HandleTable();
    ~HandleTable();
    uint32_t Add(void* addr);
    // Forgets every handle (new ones keep counting up).
    void Clear();
    // Makes an existing handle convert to 0 from now on.
    void Break(uint32_t handle);
    void Install();
    int invalidations() const;
    // The converter Install() sets: the address behind a handle, or null.
    static void* Convert(uint32_t handle);

  private:
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
