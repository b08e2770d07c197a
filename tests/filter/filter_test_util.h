// Helpers shared by the filter tests.
#ifndef TOCRA_TESTS_FILTER_UTIL_H
#define TOCRA_TESTS_FILTER_UTIL_H

#include <string>

#include "support/test_support.h"

namespace filter_test {

// Starts the worker pool for kernels that expect it.
inline void StartPool() { ASSERT_EQ(MultiThread_Init(4), 0); }

// Stops the pool, swallowing its stdout lines.
inline void StopPool() {
    tocra_test::CaptureStdout([] { MultiThread_destory(); });
}

}  // namespace filter_test

#endif
