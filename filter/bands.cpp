#include "filter/bands.h"

namespace tocra {

int RunFourBands(MultiThreadCallback task, void* job) {
    bool pooled[kBandTasks];
    for (int k = 0; k < kBandTasks; ++k) {
        pooled[k] = MultiThread_wait(k) == 0;
        if (pooled[k]) {
            MultiThread_set(k, task, job);
            MultiThread_post(k);
        } else {
            task(job, k);
        }
    }
    int status = 0;
    for (int k = 0; k < kBandTasks; ++k) {
        status = pooled[k] ? MultiThread_clean(k) : 0;
    }
    return status;
}

}  // namespace tocra
