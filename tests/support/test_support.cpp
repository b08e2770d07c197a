#include "support/test_support.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>

namespace {

std::mutex g_mutex;
std::vector<tocra_test::LogLine> g_log;
std::vector<tocra_test::FlushRange> g_flushes;

int g_threadStarts = 0;        // since the last FailingThreadStarts
std::set<int> g_failingStarts;  // start numbers that fail, 1-based

std::map<uint32_t, void*> g_handles;
uint32_t g_nextHandle = 0x1000;
int g_invalidations = 0;

}  // namespace

// Replaces the platform log for the test binaries: records each line.
extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char buf[4096];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_log.push_back({prio, tag ? tag : "", buf});
    return n;
}

// Replaces the platform's cache write-back: records each range.
extern "C" void platform_cacheflush(const void* start, const void* end) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_flushes.push_back({start, end});
}

// Replaces the platform's thread start: fails the starts a
// FailingThreadStarts names, calls pthread_create for the others.
extern "C" int platform_thread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*fn)(void*), void* arg) {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_failingStarts.count(++g_threadStarts) != 0) return EAGAIN;
    }
    return pthread_create(thread, attr, fn, arg);
}

namespace tocra_test {

FailingThreadStarts::FailingThreadStarts(std::initializer_list<int> nth) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_threadStarts = 0;
    g_failingStarts = nth;
}

FailingThreadStarts::~FailingThreadStarts() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_failingStarts.clear();
}

int FailingThreadStarts::starts() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_threadStarts;
}

void ClearLog() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_log.clear();
}

std::vector<LogLine> Log() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_log;
}

bool Logged(int prio, const std::string& text) {
    for (const LogLine& l : Log()) {
        if (l.prio == prio && l.text == text && l.tag == "BRIMVEL_AP") return true;
    }
    return false;
}

int CountLogged(const std::string& text) {
    int n = 0;
    for (const LogLine& l : Log()) n += l.text == text;
    return n;
}

void ClearFlushes() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_flushes.clear();
}

std::vector<FlushRange> Flushes() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_flushes;
}

bool Flushed(const void* start, size_t bytes) {
    for (const FlushRange& f : Flushes()) {
        if (f.start == start && f.end == static_cast<const uint8_t*>(start) + bytes) return true;
    }
    return false;
}

HandleTable::HandleTable() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_handles.clear();
    g_invalidations = 0;
}

HandleTable::~HandleTable() {
    setIO2VAConverter(nullptr);
    setGraphicBufferInvalidater(nullptr);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_handles.clear();
}

uint32_t HandleTable::Add(void* addr) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const uint32_t h = g_nextHandle++;
    g_handles[h] = addr;
    return h;
}

void HandleTable::Break(uint32_t handle) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_handles[handle] = nullptr;
}

void HandleTable::Install() {
    setIO2VAConverter(&HandleTable::Convert);
    setGraphicBufferInvalidater(&HandleTable::Invalidate);
}

int HandleTable::invalidations() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_invalidations;
}

void* HandleTable::Convert(uint32_t handle) {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = g_handles.find(handle);
    return it == g_handles.end() ? nullptr : it->second;
}

void HandleTable::Invalidate(void*) {
    std::lock_guard<std::mutex> lock(g_mutex);
    ++g_invalidations;
}

std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed) {
    std::vector<uint8_t> v(n);
    uint32_t s = seed * 2654435761u + 1;
    for (size_t i = 0; i < n; ++i) {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        v[i] = static_cast<uint8_t>(s >> 24);
    }
    return v;
}

}  // namespace tocra_test
