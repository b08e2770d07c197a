// A fixed table of up to eight workers, each driven by two counting
// semaphores. A stage starts the pool, posts one callback per band, collects
// the bands with MultiThread_clean and stops the pool before it returns.
#include <pthread.h>
#include <semaphore.h>

#include <cstdio>

#include "brimvel_tocra.h"
#include "frame/platform.h"

namespace {

struct Slot {
    pthread_t thread;
    volatile unsigned char quit;
    sem_t semStart;  // posted once per job; the worker waits on it
    sem_t semDone;   // held while a job is pending or running
    int index;       // the worker thread's argument points here
    MultiThreadCallback callback;
    void* arg;
    // Not part of the worker's protocol: true between a successful thread
    // creation and its join, so that stopping the pool twice, or starting it
    // over workers that an error path left running, never touches destroyed
    // semaphores.
    bool live;
};

Slot g_slots[TOCRA_POOL_MAX_THREADS];
int g_count = 0;

bool ValidSlot(int i) { return i >= 0 && i < TOCRA_POOL_MAX_THREADS && g_slots[i].live; }

void* Worker(void* p) {
    Slot& s = g_slots[*static_cast<int*>(p)];
    for (;;) {
        sem_wait(&s.semStart);
        if (s.quit) {
            sem_post(&s.semDone);
            return nullptr;
        }
        while (s.callback != nullptr) {
            s.callback(s.arg, s.index);
            sem_post(&s.semDone);
            sem_wait(&s.semStart);
            if (s.quit) {
                sem_post(&s.semDone);
                return nullptr;
            }
        }
        // Woken without a job.
        sem_post(&s.semDone);
        printf("Thread %d BAD Parameter, Please invoke MultiThread_set to set thread callback\n", s.index);
    }
}

// Stops one worker: waits for its last job, tells it to quit, joins it and
// destroys its semaphores.
void StopSlot(Slot& s, bool verbose) {
    sem_wait(&s.semDone);
    if (verbose) puts("=================After sem_wait=================");
    s.quit = 1;
    sem_post(&s.semStart);
    if (verbose) puts("=================After sem_post=================");
    pthread_join(s.thread, nullptr);
    if (verbose) puts("=================After pthread_join=================");
    sem_destroy(&s.semStart);
    sem_destroy(&s.semDone);
    s.live = false;
}

}  // namespace

extern "C" int MultiThread_Init(int n) {
    // Workers left running by an earlier stage's error path are stopped
    // quietly before their slots are set up again.
    for (Slot& s : g_slots) {
        if (s.live) StopSlot(s, false);
    }
    g_count = 0;
    if (static_cast<unsigned>(n) > TOCRA_POOL_MAX_THREADS) {
        printf("Bad Thread number , should be [1, %d] !\n", TOCRA_POOL_MAX_THREADS);
        return -1;
    }
    pthread_attr_t attr;
    if (platform_thread_attr_init(&attr) != 0) {
        printf("Failed to init thread attribute.");
        return -1;
    }
    for (int i = 0; i < n; ++i) {
        Slot& s = g_slots[i];
        // A semaphore that cannot be set up fails the start like a thread
        // that cannot be created (same line, -1); the workers already
        // started stay as a failed creation leaves them.
        if (platform_sem_init(&s.semStart, 0, 1) != 0) {
            printf("[%s] Create Thread Failed!", "MultiThread_Init");
            pthread_attr_destroy(&attr);
            return -1;
        }
        if (platform_sem_init(&s.semDone, 0, 1) != 0) {
            sem_destroy(&s.semStart);
            printf("[%s] Create Thread Failed!", "MultiThread_Init");
            pthread_attr_destroy(&attr);
            return -1;
        }
        sem_wait(&s.semStart);
        s.index = i;
        s.quit = 0;
        s.callback = nullptr;
        s.arg = nullptr;
        if (platform_thread_create(&s.thread, &attr, Worker, &s.index) != 0) {
            sem_destroy(&s.semStart);
            sem_destroy(&s.semDone);
            printf("[%s] Create Thread Failed!", "MultiThread_Init");
            pthread_attr_destroy(&attr);  // nothing else can release it
            return -1;
        }
        s.live = true;
    }
    g_count = n;
    if (pthread_attr_destroy(&attr) != 0) {
        printf("[%s] Create Thread Failed!", "MultiThread_Init");
        return -1;
    }
    return 0;
}

// Slot indices are checked against the started workers: an index outside
// them is ignored (or answers -1) instead of touching an unused slot.
extern "C" void MultiThread_set(int i, MultiThreadCallback callback, void* arg) {
    if (!ValidSlot(i)) return;
    g_slots[i].callback = callback;
    g_slots[i].arg = arg;
}

extern "C" int MultiThread_trySet(int i, MultiThreadCallback callback, void* arg) {
    if (!ValidSlot(i)) return -1;
    if (sem_trywait(&g_slots[i].semDone) != 0) return -1;
    g_slots[i].callback = callback;
    g_slots[i].arg = arg;
    return 0;
}

extern "C" int MultiThread_post(int i) {
    if (!ValidSlot(i)) return -1;
    return sem_post(&g_slots[i].semStart);
}

extern "C" int MultiThread_wait(int i) {
    if (!ValidSlot(i)) return -1;
    return sem_wait(&g_slots[i].semDone);
}

extern "C" int MultiThread_post_lock(int i) {
    if (!ValidSlot(i)) return -1;
    sem_post(&g_slots[i].semStart);
    sem_wait(&g_slots[i].semDone);
    return sem_post(&g_slots[i].semDone);
}

extern "C" int MultiThread_clean(int i) {
    if (!ValidSlot(i)) return -1;
    Slot& s = g_slots[i];
    sem_wait(&s.semDone);
    s.callback = nullptr;
    s.arg = nullptr;
    return sem_post(&s.semDone);
}

extern "C" void MultiThread_destory(void) {
    // The count is left as it is; slots already stopped are skipped, so a
    // second call without a new MultiThread_Init does nothing.
    for (int i = 0; i < g_count; ++i) {
        if (g_slots[i].live) StopSlot(g_slots[i], true);
    }
}
