#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"

namespace {

TEST(ImgDataCopy, LastHeightModFourRowsAreNotCopied) {
    const int pitch = 64, height = 1083;
    std::vector<uint8_t> src = tocra_test::RandomBytes(pitch * height, 1);
    std::vector<uint8_t> dst(pitch * height, 0xEE);
    EXPECT_EQ(imgDataCopy(src.data(), dst.data(), pitch, height, pitch), TOCRA_OK);
    EXPECT_EQ(memcmp(src.data(), dst.data(), pitch * 1080), 0);
    for (int i = pitch * 1080; i < pitch * height; ++i) ASSERT_EQ(dst[i], 0xEE);
}

TEST(ImgDataCopy, HeightBelowFourCopiesNothing) {
    std::vector<uint8_t> src(3 * 16, 1), dst(3 * 16, 0);
    EXPECT_EQ(imgDataCopy(src.data(), dst.data(), 16, 3, 16), TOCRA_OK);
    for (uint8_t v : dst) ASSERT_EQ(v, 0);
}

TEST(ImgDataCopy, EachRowCopiesTheSmallerPitch) {
    const int h = 8;
    for (auto pitches : {std::pair<int, int>{2048, 1920}, std::pair<int, int>{1920, 2048}}) {
        const int sp = pitches.first, dp = pitches.second;
        std::vector<uint8_t> src = tocra_test::RandomBytes(sp * h, 2);
        std::vector<uint8_t> dst(dp * h, 0xEE);
        EXPECT_EQ(imgDataCopy(src.data(), dst.data(), sp, h, dp), TOCRA_OK);
        for (int r = 0; r < h; ++r) {
            ASSERT_EQ(memcmp(&src[r * sp], &dst[r * dp], 1920), 0) << r;
            for (int c = 1920; c < dp; ++c) ASSERT_EQ(dst[r * dp + c], 0xEE);
        }
    }
}

// Rows of dst that equal src, as a string of 0 / 1 per row.
std::string CopiedRows(const std::vector<uint8_t>& src, const std::vector<uint8_t>& dst, int pitch, int rows) {
    std::string s;
    for (int r = 0; r < rows; ++r) s += memcmp(&src[r * pitch], &dst[r * pitch], pitch) == 0 ? '1' : '0';
    return s;
}

TEST(ImgDataCopy, AFailedStartIsLoggedAndItsBandIsCopiedByNobody) {
    const int pitch = 16, h = 8;  // bands of 2 rows
    const std::vector<uint8_t> src = tocra_test::RandomBytes(pitch * h, 3);
    struct Case {
        std::initializer_list<int> failing;  // thread starts that fail, 1 = band 0
        int status;
        const char* rows;
    };
    const Case cases[] = {
        {{2}, 0, "11001111"}, {{1, 3}, 0, "00110011"}, {{4}, -997, "11111100"}, {{1, 2, 3, 4}, -997, "00000000"}};
    for (const Case& c : cases) {
        std::vector<uint8_t> dst(pitch * h, 0xEE);
        tocra_test::ClearLog();
        tocra_test::FailingThreadStarts failing(c.failing);
        EXPECT_EQ(imgDataCopy(src.data(), dst.data(), pitch, h, pitch), c.status);
        EXPECT_EQ(failing.starts(), 4);
        EXPECT_EQ(CopiedRows(src, dst, pitch, h), c.rows);
        std::vector<std::string> lines;
        for (int n : c.failing) lines.push_back("i = " + std::to_string(n - 1));
        if (c.status != 0) lines.push_back("Thread Create Error!");
        ASSERT_EQ(tocra_test::Log().size(), lines.size());
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(tocra_test::Log()[i].prio, 4);
            EXPECT_EQ(tocra_test::Log()[i].text, lines[i]);
        }
    }
}

TEST(MultiThreadDataCopy, EmptyBandsCopyNothing) {
    uint8_t src[8] = {1, 2, 3, 4, 5, 6, 7, 8}, dst[8] = {0};
    tagST_COPY_BAND band = {src, dst, 8, 8, 0};
    EXPECT_EQ(MultiThreadDataCopy(&band), nullptr);
    band = {src, dst, -4, 8, 1};
    MultiThreadDataCopy(&band);
    for (uint8_t v : dst) EXPECT_EQ(v, 0);
}

struct Seen {
    std::mutex m;
    std::vector<int> indices;
    std::atomic<int> finished{0};
};

void* Record(void* p) {
    tagST_THREAD_RECORD* rec = static_cast<tagST_THREAD_RECORD*>(p);
    Seen* seen = static_cast<Seen*>(rec->arg);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    {
        std::lock_guard<std::mutex> lock(seen->m);
        seen->indices.push_back(rec->index);
    }
    seen->finished.fetch_add(1);
    return nullptr;
}

void* ExitEarly(void* p) {
    Record(p);
    pthread_exit(nullptr);
}

TEST(CreateThreadLock, ZeroThreadsReturnsAtOnce) {
    Seen seen;
    EXPECT_EQ(create_thread_lock(Record, &seen, 0), 0);
    EXPECT_EQ(seen.finished.load(), 0);
}

TEST(CreateThreadLock, JoinsEveryThreadBeforeReturning) {
    for (auto fn : {Record, ExitEarly}) {
        Seen seen;
        EXPECT_EQ(create_thread_lock(fn, &seen, 4), 0);
        EXPECT_EQ(seen.finished.load(), 4);
        std::sort(seen.indices.begin(), seen.indices.end());
        EXPECT_EQ(seen.indices, (std::vector<int>{0, 1, 2, 3}));
    }
}

TEST(CreateThreadUnlock, ReturnsWithoutWaitingAndThreadsStillFinish) {
    Seen seen;
    EXPECT_EQ(create_thread_unlock(ExitEarly, &seen, 3), 0);
    for (int i = 0; i < 2000 && seen.finished.load() < 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(seen.finished.load(), 3);
    // Give the detached threads time to release their records.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::lock_guard<std::mutex> lock(seen.m);
    std::sort(seen.indices.begin(), seen.indices.end());
    EXPECT_EQ(seen.indices, (std::vector<int>{0, 1, 2}));
}

TEST(CreateThreadLock, AFailedStartJoinsTheStartedThreadsAndAnswersMinusOne) {
    Seen seen;
    tocra_test::ClearLog();
    {
        tocra_test::FailingThreadStarts failing({3});
        EXPECT_EQ(create_thread_lock(Record, &seen, 4), -1);
        EXPECT_EQ(failing.starts(), 3);
    }
    EXPECT_EQ(seen.finished.load(), 2);  // both started threads ran to the end before the return
    EXPECT_TRUE(tocra_test::Logged(6, "Thread Create Failed!"));
}

TEST(CreateThreadUnlock, AFailedStartAnswersMinusOneAndTheStartedThreadsFinish) {
    Seen seen;
    tocra_test::ClearLog();
    {
        tocra_test::FailingThreadStarts failing({2});
        EXPECT_EQ(create_thread_unlock(Record, &seen, 3), -1);
        EXPECT_EQ(failing.starts(), 2);
    }
    EXPECT_TRUE(tocra_test::Logged(6, "Thread Create Failed!"));
    for (int i = 0; i < 2000 && seen.finished.load() < 1; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(seen.finished.load(), 1);
}

void* ReturnSeven(void*) { return reinterpret_cast<void*>(7); }

TEST(ThreadWait, JoinsTheThread) {
    pthread_t t;
    ASSERT_EQ(pthread_create(&t, nullptr, ReturnSeven, nullptr), 0);
    EXPECT_EQ(thread_wait(static_cast<long>(t)), 0);
}

}  // namespace

namespace {

// Null addresses: refused with a line where a thread would go through them;
// calls that would not touch them run as described.
TEST(ThreadHelpers, NullArgumentsAreRefusedOnlyWhereTheyWouldBeUsed) {
    uint8_t buf[16] = {0};
    tocra_test::ClearLog();
    EXPECT_EQ(imgDataCopy(nullptr, buf, 4, 4, 4), TOCRA_NULL_POINTER);
    EXPECT_TRUE(tocra_test::Logged(6, "imgDataCopy invalid input: null plane\n"));
    EXPECT_EQ(imgDataCopy(buf, nullptr, 4, 4, 4), TOCRA_NULL_POINTER);
    // Nothing to copy: no whole band (height 3), or no byte per row.
    EXPECT_EQ(imgDataCopy(nullptr, nullptr, 4, 3, 4), TOCRA_OK);
    EXPECT_EQ(imgDataCopy(nullptr, buf, 0, 8, 4), TOCRA_OK);

    tocra_test::ClearLog();
    EXPECT_EQ(MultiThreadDataCopy(nullptr), nullptr);
    EXPECT_TRUE(tocra_test::Logged(6, "MultiThreadDataCopy invalid input: no band record\n"));
    tagST_COPY_BAND band = {nullptr, buf, 4, 4, 2};
    EXPECT_EQ(MultiThreadDataCopy(&band), nullptr);
    EXPECT_TRUE(tocra_test::Logged(6, "MultiThreadDataCopy invalid input: null plane\n"));
    for (uint8_t v : buf) EXPECT_EQ(v, 0);

    tocra_test::ClearLog();
    EXPECT_EQ(create_thread_lock(nullptr, nullptr, 4), -1);
    EXPECT_TRUE(tocra_test::Logged(6, "create_thread_lock invalid input: no thread function\n"));
    EXPECT_EQ(create_thread_unlock(nullptr, nullptr, 2), -1);
    EXPECT_TRUE(tocra_test::Logged(6, "create_thread_unlock invalid input: no thread function\n"));
    EXPECT_EQ(create_thread_lock(nullptr, nullptr, 0), 0);  // starts nothing, as with any function

    tocra_test::ClearLog();
    EXPECT_EQ(thread_wait(0), ESRCH);
    EXPECT_TRUE(tocra_test::Logged(6, "thread_wait invalid input: no thread\n"));
}

}  // namespace
