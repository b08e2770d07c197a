#include "support/test_support.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>

#include "frame/platform.h"

namespace {

std::mutex g_mutex;
std::vector<tocra_test::LogLine> g_log;
std::vector<tocra_test::FlushRange> g_flushes;

int g_threadStarts = 0;         // since the last FailingThreadStarts
std::set<int> g_failingStarts;  // start numbers that fail, 1-based

// Fault injection: one kind armed at a time.
std::atomic<bool> g_armed{false};
tocra_test::FaultKind g_faultKind = tocra_test::FaultKind::kAllocation;
int g_faultCount = 0;
int g_faultAt = 0;
bool g_faultFired = false;
const char* g_faultWhat = "";
size_t g_faultSize = 0;
// The block table outlives every static object (the library's destructors
// free blocks at exit too), so it is never destroyed.
std::mutex& BlockMutex() {
    static std::mutex* m = new std::mutex;
    return *m;
}
std::map<uintptr_t, size_t>& Blocks() {
    static std::map<uintptr_t, size_t>* m = new std::map<uintptr_t, size_t>;
    return *m;
}
const uintptr_t kBlockMask = static_cast<uintptr_t>(0xA5A5A5A5A5A5A5A5ull);
uintptr_t BlockKey(void* p) { return reinterpret_cast<uintptr_t>(p) ^ kBlockMask; }

// Set while this file's own code runs, so that what it allocates (log lines,
// flush records, the block table) is neither counted nor failed.
thread_local int t_inSupport = 0;
struct InSupport {
    InSupport() { ++t_inSupport; }
    ~InSupport() { --t_inSupport; }
};

// Counts one event of `kind`; true when it must fail.
bool CountFault(tocra_test::FaultKind kind, const char* what, size_t size = 0) {
    if (!g_armed.load(std::memory_order_acquire) || t_inSupport != 0) return false;
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_armed.load(std::memory_order_relaxed) || g_faultKind != kind) return false;
    if (++g_faultCount != g_faultAt) return false;
    g_faultFired = true;
    g_faultWhat = what;
    g_faultSize = size;
    return true;
}

std::map<uint32_t, void*> g_handles;
uint32_t g_nextHandle = 0x1000;
int g_invalidations = 0;

}  // namespace

// Replaces the platform log for the test binaries: records each line.
extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    const InSupport self;
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
    const InSupport self;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_flushes.push_back({start, end});
}

// Replaces the platform's thread start: fails the starts a
// FailingThreadStarts names, calls pthread_create for the others.
extern "C" int platform_thread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*fn)(void*), void* arg) {
    if (CountFault(tocra_test::FaultKind::kStart, "pthread_create")) return EAGAIN;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_failingStarts.count(++g_threadStarts) != 0) return EAGAIN;
    }
    return pthread_create(thread, attr, fn, arg);
}

extern "C" int platform_thread_attr_init(pthread_attr_t* attr) {
    if (CountFault(tocra_test::FaultKind::kStart, "pthread_attr_init")) return ENOMEM;
    return pthread_attr_init(attr);
}

extern "C" int platform_sem_init(sem_t* sem, int shared, unsigned value) {
    if (CountFault(tocra_test::FaultKind::kStart, "sem_init")) {
        errno = ENOSPC;
        return -1;
    }
    return sem_init(sem, shared, value);
}

// Replaces the platform allocator: fails the allocation a FaultInjection
// names and keeps the blocks allocated under one until they are freed.
extern "C" void* platform_malloc(size_t size) {
    if (!tocra_test::AllowAllocation(size)) return nullptr;
    void* p = malloc(size);
    tocra_test::NoteAllocation(p, size);
    return p;
}

extern "C" void* platform_calloc(size_t count, size_t size) {
    if (!tocra_test::AllowAllocation(count * size)) return nullptr;
    void* p = calloc(count, size);
    tocra_test::NoteAllocation(p, count * size);
    return p;
}

extern "C" void* platform_realloc(void* ptr, size_t size) {
    if (!tocra_test::AllowAllocation(size)) return nullptr;
    tocra_test::NoteRelease(ptr);  // given back whether it moves or not
    void* p = realloc(ptr, size);
    if (p != nullptr) {
        tocra_test::NoteAllocation(p, size);
    }
    return p;
}

extern "C" void platform_free(void* ptr) {
    tocra_test::NoteRelease(ptr);
    free(ptr);
}

namespace tocra_test {

FaultInjection::FaultInjection(FaultKind kind, int failAt) {
    const InSupport self;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_faultKind = kind;
    g_faultCount = 0;
    g_faultAt = failAt;
    g_faultFired = false;
    g_faultWhat = "";
    g_faultSize = 0;
    g_armed.store(true, std::memory_order_release);
}

FaultInjection::~FaultInjection() {
    const InSupport self;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_armed.store(false, std::memory_order_release);
}

int FaultInjection::count() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_faultCount;
}

bool FaultInjection::fired() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_faultFired;
}

std::string FaultInjection::failed() const {
    const InSupport self;
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_faultFired ? g_faultWhat : "";
}

size_t FaultInjection::failedSize() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_faultSize;
}

void* Block::addr() const { return reinterpret_cast<void*>(key ^ kBlockMask); }

std::vector<Block> Outstanding() {
    const InSupport self;
    std::lock_guard<std::mutex> lock(BlockMutex());
    std::vector<Block> v;
    for (const auto& b : Blocks()) v.push_back({b.first, b.second});
    return v;
}

bool AllowAllocation(size_t n) { return !CountFault(FaultKind::kAllocation, "alloc", n); }

void NoteAllocation(void* p, size_t n) {
    if (p == nullptr || t_inSupport != 0 || !g_armed.load(std::memory_order_acquire)) return;
    const InSupport self;
    std::lock_guard<std::mutex> lock(BlockMutex());
    Blocks()[BlockKey(p)] = n;
}

void NoteRelease(void* p) {
    if (p == nullptr || t_inSupport != 0) return;
    const InSupport self;
    std::lock_guard<std::mutex> lock(BlockMutex());
    Blocks().erase(BlockKey(p));
}

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
    const InSupport self;
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

// Handles are never reused, so tables living side by side (two camera
// sessions) do not see each other's buffers.
HandleTable::HandleTable() {
    std::lock_guard<std::mutex> lock(g_mutex);
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

void HandleTable::Clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_handles.clear();
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
