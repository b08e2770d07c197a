// Threads that do not go through the worker pool: the four-band plane copy
// and the start-n-threads helpers used by the warp.
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "brimvel_tocra.h"
#include "frame/log.h"
#include "frame/platform.h"

extern "C" void* MultiThreadDataCopy(void* record) {
    const tagST_COPY_BAND* band = static_cast<const tagST_COPY_BAND*>(record);
    if (band == nullptr) {
        TOCRA_LOGE("MultiThreadDataCopy invalid input: no band record\n");
        return nullptr;
    }
    const int len = std::min(band->srcPitch, band->dstPitch);
    if (band->rows < 1 || len <= 0) return nullptr;
    // A band that would copy through a null address copies nothing.
    if (band->src == nullptr || band->dst == nullptr) {
        TOCRA_LOGE("MultiThreadDataCopy invalid input: null plane\n");
        return nullptr;
    }
    const uint8_t* src = band->src;
    uint8_t* dst = band->dst;
    for (int r = 0; r < band->rows; ++r) {
        memcpy(dst, src, static_cast<size_t>(len));
        src += band->srcPitch;
        dst += band->dstPitch;
    }
    return nullptr;
}

extern "C" int imgDataCopy(const uint8_t* src, uint8_t* dst, int srcPitch, int height, int dstPitch) {
    // Four bands of height / 4 rows; the last height % 4 rows belong to no
    // band and are not copied (callers pass multiples of four).
    const int q = height >> 2;
    // A copy through a null address is refused before any thread starts;
    // a call that copies nothing (no whole band, or no byte per row) runs
    // as described.
    if ((src == nullptr || dst == nullptr) && q >= 1 && std::min(srcPitch, dstPitch) > 0) {
        TOCRA_LOGE("imgDataCopy invalid input: null plane\n");
        return TOCRA_NULL_POINTER;
    }
    tagST_COPY_BAND bands[4];
    pthread_t threads[4];
    bool started[4] = {false, false, false, false};
    for (int b = 0; b < 4; ++b) {
        const ptrdiff_t rowOffset = static_cast<ptrdiff_t>(q) * b;
        bands[b] = {src + static_cast<ptrdiff_t>(srcPitch) * rowOffset,
                    dst + static_cast<ptrdiff_t>(dstPitch) * rowOffset, srcPitch, dstPitch, q};
    }
    // A band whose thread cannot be started is logged and left uncopied;
    // only the fourth start decides the result.
    for (int b = 0; b < 4; ++b) {
        started[b] = platform_thread_create(&threads[b], nullptr, MultiThreadDataCopy, &bands[b]) == 0;
        if (!started[b]) TOCRA_LOGI("i = %d", b);
    }
    // Only threads that exist are joined: a handle whose creation failed
    // holds nothing to wait for.
    for (int b = 0; b < 4; ++b) {
        if (started[b]) pthread_join(threads[b], nullptr);
    }
    if (!started[3]) {
        TOCRA_LOGI("Thread Create Error!");
        return TOCRA_THREAD_FAILED;
    }
    return TOCRA_OK;
}

// A null thread function would be called by every thread started: refused
// with -1 before anything is allocated or started (n < 1 starts nothing and
// runs as described).
static bool ValidThreadFunction(const char* func, void* (*fn)(void*), int n) {
    if (fn != nullptr || n < 1) return true;
    TOCRA_LOGE("%s invalid input: no thread function\n", func);
    return false;
}

extern "C" int create_thread_lock(void* (*fn)(void*), void* arg, int n) {
    if (!ValidThreadFunction("create_thread_lock", fn, n)) return -1;
    tagST_THREAD_RECORD* records = static_cast<tagST_THREAD_RECORD*>(
        platform_malloc(sizeof(tagST_THREAD_RECORD) * static_cast<size_t>(std::max(n, 1))));
    if (records == nullptr) {
        TOCRA_LOGE("Buffer malloc Failed!");
        return -1;
    }
    for (int i = 0; i < n; ++i) {
        records[i].index = i;
        records[i].arg = arg;
        if (platform_thread_create(&records[i].thread, nullptr, fn, &records[i]) != 0) {
            TOCRA_LOGE("Thread Create Failed!");
            // The threads already started still read their records: join
            // them before the records go.
            for (int j = 0; j < i; ++j) pthread_join(records[j].thread, nullptr);
            platform_free(records);
            return -1;
        }
    }
    for (int i = 0; i < n; ++i) pthread_join(records[i].thread, nullptr);
    platform_free(records);
    return 0;
}

namespace {

// A detached thread owns its record: it is freed when the thread function
// returns or the thread exits, never while the thread may still read it.
struct OwnedRecord {
    tagST_THREAD_RECORD record;
    void* (*fn)(void*);
};

void FreeOwned(void* p) { platform_free(p); }

void* RunOwned(void* p) {
    OwnedRecord* owned = static_cast<OwnedRecord*>(p);
    void* result = nullptr;
    owned->record.thread = pthread_self();
    pthread_cleanup_push(FreeOwned, owned);
    result = owned->fn(&owned->record);
    pthread_cleanup_pop(1);
    return result;
}

}  // namespace

extern "C" int create_thread_unlock(void* (*fn)(void*), void* arg, int n) {
    if (!ValidThreadFunction("create_thread_unlock", fn, n)) return -1;
    for (int i = 0; i < n; ++i) {
        OwnedRecord* owned = static_cast<OwnedRecord*>(platform_malloc(sizeof(OwnedRecord)));
        if (owned == nullptr) {
            TOCRA_LOGE("Buffer malloc Failed!");
            return -1;
        }
        owned->record.index = i;
        owned->record.arg = arg;
        owned->fn = fn;
        pthread_attr_t attr;
        if (platform_thread_attr_init(&attr) != 0) {
            TOCRA_LOGE("Thread Create Failed!");
            platform_free(owned);
            return -1;
        }
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
        // The handle goes into a local: the thread may finish, and free its
        // record, before pthread_create returns.
        pthread_t handle;
        const int rc = platform_thread_create(&handle, &attr, RunOwned, owned);
        pthread_attr_destroy(&attr);
        if (rc != 0) {
            TOCRA_LOGE("Thread Create Failed!");
            platform_free(owned);
            return -1;
        }
    }
    return 0;
}

// A zero handle names no thread (joining it would dereference nothing):
// answered with ESRCH, what the join gives for a thread that does not
// exist, and a line.
extern "C" int thread_wait(long thread) {
    if (thread == 0) {
        TOCRA_LOGE("thread_wait invalid input: no thread\n");
        return ESRCH;
    }
    return pthread_join(static_cast<pthread_t>(thread), nullptr);
}
