#include "frame/entry_guard.h"

#include <pthread.h>

#include "frame/log.h"

namespace {

// The thread inside an entry point and how deeply it is nested; depth 0:
// none. The mutex only guards these two words, never a call.
pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_t g_owner;
int g_depth = 0;

}  // namespace

namespace tocra {

EntryGuard::EntryGuard(const char* name) : entered_(false) {
    pthread_mutex_lock(&g_mutex);
    if (g_depth == 0 || pthread_equal(g_owner, pthread_self())) {
        g_owner = pthread_self();
        ++g_depth;
        entered_ = true;
    }
    pthread_mutex_unlock(&g_mutex);
    if (!entered_) TOCRA_LOGE("%s refused: another entry point is running\n", name);
}

EntryGuard::~EntryGuard() {
    if (!entered_) return;
    pthread_mutex_lock(&g_mutex);
    --g_depth;
    pthread_mutex_unlock(&g_mutex);
}

}  // namespace tocra
