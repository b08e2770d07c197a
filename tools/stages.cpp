#include "stages.h"

namespace demo {

std::string StatusText(int status) {
    switch (status) {
        case TOCRA_OK:
            return "success";
        case TOCRA_SIZE_NOT_SUPPORTED:
            return "picture size not supported (registration takes sizes that are multiples of 8, at least 64)";
        case TOCRA_REG_REJECTED:
            return "registration rejected: too few point pairs, implausible homography, no usable overlap or "
                   "motion too large";
        case TOCRA_POOL_FAILED:
            return "worker pool failure";
        case TOCRA_THREAD_FAILED:
            return "a thread or the worker pool could not be started, or a buffer handle did not convert";
        case TOCRA_NULL_POINTER:
            return "null pointer or a buffer handle that did not convert";
        case TOCRA_CONFIG_NOT_LOADED:
            return "tuning file not loaded (missing, shorter than 200 bytes or not XML)";
        case TOCRA_NO_MEMORY:
            return "allocation failed";
        default:
            return "unexpected status";
    }
}

}  // namespace demo
