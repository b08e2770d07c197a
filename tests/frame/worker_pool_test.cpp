#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/test_support.h"

namespace {

const char kAfterWait[] = "=================After sem_wait=================\n";
const char kAfterPost[] = "=================After sem_post=================\n";
const char kAfterJoin[] = "=================After pthread_join=================\n";

std::string DestroyLines(int workers) {
    std::string s;
    for (int i = 0; i < workers; ++i) s += std::string(kAfterWait) + kAfterPost + kAfterJoin;
    return s;
}

TEST(WorkerPool, ZeroWorkersStartsAndStopsNothing) {
    std::string out = tocra_test::CaptureStdout([] {
        EXPECT_EQ(MultiThread_Init(0), TOCRA_OK);
        MultiThread_destory();
    });
    EXPECT_EQ(out, "");
}

TEST(WorkerPool, CountOutOfRangeIsRefusedWithTheRangeMessage) {
    for (int n : {9, -1, 100}) {
        std::string out = tocra_test::CaptureStdout([n] { EXPECT_EQ(MultiThread_Init(n), -1); });
        EXPECT_EQ(out, "Bad Thread number , should be [1, 8] !\n") << n;
        // The count is 0: stopping does nothing.
        out = tocra_test::CaptureStdout([] { MultiThread_destory(); });
        EXPECT_EQ(out, "");
    }
}

TEST(WorkerPool, AFailedThreadStartAnswersMinusOne) {
    std::string out;
    {
        tocra_test::FailingThreadStarts failing({3});
        out = tocra_test::CaptureStdout([] { EXPECT_EQ(MultiThread_Init(4), -1); });
        EXPECT_EQ(failing.starts(), 3);
    }
    EXPECT_EQ(out, "[MultiThread_Init] Create Thread Failed!");
    // The count stays 0: stopping prints nothing. The next start stops the
    // two workers left running and starts afresh.
    out = tocra_test::CaptureStdout([] {
        MultiThread_destory();
        ASSERT_EQ(MultiThread_Init(2), TOCRA_OK);
        MultiThread_destory();
    });
    EXPECT_EQ(out, DestroyLines(2));
}

struct BandRecord {
    std::atomic<int> done{0};
    int slotSeen[4] = {-1, -1, -1, -1};
    int order[4] = {0, 0, 0, 0};
};

struct BandArg {
    BandRecord* rec;
    int band;
};

void SlowBand(void* p, int index) {
    BandArg* a = static_cast<BandArg*>(p);
    // Later bands finish first, so an early return of the collection would show.
    std::this_thread::sleep_for(std::chrono::milliseconds(5 * (4 - a->band)));
    a->rec->slotSeen[a->band] = index;
    a->rec->order[a->band] = a->rec->done.fetch_add(1) + 1;
}

TEST(WorkerPool, FourBandsAllCompleteBeforeTheLastClean) {
    std::string out = tocra_test::CaptureStdout([] {
        ASSERT_EQ(MultiThread_Init(4), TOCRA_OK);
        for (int round = 0; round < 3; ++round) {
            BandRecord rec;
            BandArg args[4];
            for (int i = 0; i < 4; ++i) {
                args[i] = {&rec, i};
                ASSERT_EQ(MultiThread_wait(i), TOCRA_OK);
                MultiThread_set(i, SlowBand, &args[i]);
                ASSERT_EQ(MultiThread_post(i), TOCRA_OK);
            }
            for (int i = 0; i < 4; ++i) EXPECT_EQ(MultiThread_clean(i), TOCRA_OK);
            EXPECT_EQ(rec.done.load(), 4);
            for (int i = 0; i < 4; ++i) EXPECT_EQ(rec.slotSeen[i], i);
        }
        MultiThread_destory();
    });
    EXPECT_EQ(out, DestroyLines(4));
}

struct Gate {
    std::mutex m;
    std::condition_variable cv;
    bool open = false;
    bool entered = false;
};

void GatedJob(void* p, int) {
    Gate* g = static_cast<Gate*>(p);
    std::unique_lock<std::mutex> lock(g->m);
    g->entered = true;
    g->cv.notify_all();
    g->cv.wait(lock, [g] { return g->open; });
}

std::atomic<int> g_otherCalls{0};
void OtherJob(void*, int) { ++g_otherCalls; }

TEST(WorkerPool, TrySetOnABusySlotFailsAndLeavesTheJob) {
    tocra_test::CaptureStdout([] {
        ASSERT_EQ(MultiThread_Init(2), TOCRA_OK);
        Gate gate;
        ASSERT_EQ(MultiThread_wait(1), TOCRA_OK);
        MultiThread_set(1, GatedJob, &gate);
        MultiThread_post(1);
        {
            std::unique_lock<std::mutex> lock(gate.m);
            gate.cv.wait(lock, [&] { return gate.entered; });
        }
        g_otherCalls = 0;
        EXPECT_EQ(MultiThread_trySet(1, OtherJob, nullptr), TOCRA_POOL_FAILED);
        {
            std::lock_guard<std::mutex> lock(gate.m);
            gate.open = true;
        }
        gate.cv.notify_all();
        // The running job was not replaced: posting again reruns the gated job.
        EXPECT_EQ(MultiThread_wait(1), TOCRA_OK);
        EXPECT_EQ(MultiThread_post_lock(1), TOCRA_OK);
        EXPECT_EQ(g_otherCalls, 0);
        // The slot is free again: trySet takes it.
        EXPECT_EQ(MultiThread_trySet(1, OtherJob, nullptr), TOCRA_OK);
        MultiThread_post(1);
        MultiThread_clean(1);
        EXPECT_EQ(g_otherCalls, 1);
        MultiThread_clean(0);
        MultiThread_destory();
    });
}

TEST(WorkerPool, PostWithoutCallbackPrintsBadParameterAndWorkerSurvives) {
    std::string out = tocra_test::CaptureStdout([] {
        ASSERT_EQ(MultiThread_Init(1), TOCRA_OK);
        MultiThread_wait(0);
        MultiThread_post(0);  // no callback set
        // The worker posts its done token before printing; wait for the line.
        for (int i = 0; i < 200; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        g_otherCalls = 0;
        MultiThread_wait(0);
        MultiThread_set(0, OtherJob, nullptr);
        MultiThread_post(0);
        MultiThread_clean(0);
        EXPECT_EQ(g_otherCalls, 1);
        MultiThread_destory();
    });
    EXPECT_EQ(out, std::string("Thread 0 BAD Parameter, Please invoke MultiThread_set to set thread callback\n") +
                       DestroyLines(1));
}

TEST(WorkerPool, PostLockRunsTheJobAndFreesTheSlot) {
    tocra_test::CaptureStdout([] {
        ASSERT_EQ(MultiThread_Init(3), TOCRA_OK);
        g_otherCalls = 0;
        MultiThread_wait(2);
        MultiThread_set(2, OtherJob, nullptr);
        EXPECT_EQ(MultiThread_post_lock(2), TOCRA_OK);
        EXPECT_EQ(g_otherCalls, 1);
        EXPECT_EQ(MultiThread_trySet(2, OtherJob, nullptr), 0);  // free after post_lock
        MultiThread_post(2);
        MultiThread_clean(2);
        EXPECT_EQ(g_otherCalls, 2);
        MultiThread_destory();
    });
}

TEST(WorkerPool, SecondDestroyAndUnstartedSlotsAreHarmless) {
    std::string out = tocra_test::CaptureStdout([] {
        ASSERT_EQ(MultiThread_Init(2), TOCRA_OK);
        EXPECT_EQ(MultiThread_wait(5), -1);  // beyond the started workers
        EXPECT_EQ(MultiThread_post(-1), TOCRA_POOL_FAILED);
        EXPECT_EQ(MultiThread_clean(8), TOCRA_POOL_FAILED);
        EXPECT_EQ(MultiThread_trySet(3, OtherJob, nullptr), TOCRA_POOL_FAILED);
        MultiThread_set(7, OtherJob, nullptr);
        MultiThread_destory();
        MultiThread_destory();
    });
    EXPECT_EQ(out, DestroyLines(2));
}

TEST(WorkerPool, RestartOverWorkersLeftRunning) {
    // An error path may return with the pool still started; the next start
    // must not reinitialise live workers' semaphores.
    tocra_test::CaptureStdout([] {
        ASSERT_EQ(MultiThread_Init(4), TOCRA_OK);
        ASSERT_EQ(MultiThread_Init(4), TOCRA_OK);
        g_otherCalls = 0;
        for (int i = 0; i < 4; ++i) {
            MultiThread_wait(i);
            MultiThread_set(i, OtherJob, nullptr);
            MultiThread_post(i);
        }
        for (int i = 0; i < 4; ++i) MultiThread_clean(i);
        EXPECT_EQ(g_otherCalls, 4);
        MultiThread_destory();
    });
}

void AddBand(void* p, int index) {
    int* sums = static_cast<int*>(p);
    for (int k = 0; k < 1000; ++k) sums[index] += k;
}

TEST(WorkerPool, ManyStagesInARow) {
    tocra_test::CaptureStdout([] {
        for (int round = 0; round < 25; ++round) {
            ASSERT_EQ(MultiThread_Init(4), TOCRA_OK);
            int sums[4] = {0, 0, 0, 0};
            for (int i = 0; i < 4; ++i) {
                MultiThread_wait(i);
                MultiThread_set(i, AddBand, sums);
                MultiThread_post(i);
            }
            for (int i = 0; i < 4; ++i) MultiThread_clean(i);
            for (int i = 0; i < 4; ++i) ASSERT_EQ(sums[i], 499500);
            MultiThread_destory();
        }
    });
}

}  // namespace
