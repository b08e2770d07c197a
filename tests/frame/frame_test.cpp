#include <cstring>

#include "frame/hooks.h"
#include "frame/log.h"
#include "frame/picture.h"
#include "support/test_support.h"

namespace {

void* ConvertA(uint32_t h) { return reinterpret_cast<void*>(static_cast<uintptr_t>(h) + 1); }
void* ConvertB(uint32_t h) { return reinterpret_cast<void*>(static_cast<uintptr_t>(h) + 2); }

TEST(Hooks, ReplacedConverterIsUsedByTheNextCall) {
    setIO2VAConverter(ConvertA);
    EXPECT_EQ(tocra::ConvertAddr(100), reinterpret_cast<void*>(101));
    setIO2VAConverter(ConvertB);
    EXPECT_EQ(tocra::ConvertAddr(100), reinterpret_cast<void*>(102));
    setIO2VAConverter(nullptr);
}

TEST(Hooks, MissingHooksAnswerAsFailedConversionAndNoInvalidation) {
    setIO2VAConverter(nullptr);
    setGraphicBufferInvalidater(nullptr);
    EXPECT_EQ(tocra::ConvertAddr(0x1234), nullptr);
    tocra::InvalidateBuffer(reinterpret_cast<void*>(0x1000));  // must not call through null
}

TEST(Hooks, HandleTableConvertsAndCountsInvalidations) {
    tocra_test::HandleTable table;
    int x = 0;
    const uint32_t h = table.Add(&x);
    table.Install();
    EXPECT_EQ(tocra::ConvertAddr(h), &x);
    EXPECT_EQ(tocra::ConvertAddr(0), nullptr);
    tocra::InvalidateBuffer(&x);
    EXPECT_EQ(table.invalidations(), 1);
    table.Break(h);
    EXPECT_EQ(tocra::ConvertAddr(h), nullptr);
}

TEST(Memory, WrappersAreMallocAndFree) {
    void* p = iMalloc(64, "ImgRegistration", 166);
    ASSERT_NE(p, nullptr);
    memset(p, 0xA5, 64);
    iFree(p, "ImgRegistration", 166);
    iFree(nullptr, "RansacEst_TocraAPI", 261);
}

TEST(Picture, PitchRoundsUpToMultiplesOf128) {
    EXPECT_EQ(tocra::Pitch128(1000), 1024);
    EXPECT_EQ(tocra::Pitch128(1024), 1024);
    EXPECT_EQ(tocra::Pitch128(1025), 1152);
    EXPECT_EQ(tocra::Pitch128(0), 0);
    EXPECT_EQ(tocra::ChromaPitch128(1000), 512);
    EXPECT_EQ(tocra::ChromaPitch128(1920), 1024);
}

TEST(Timing, MicrosecondDifferenceIsDividedOnItsOwn) {
    tocra::Stamp a, b;
    a.tv = {1, 999999};
    b.tv = {2, 0};
    EXPECT_EQ(tocra::ElapsedMs(a, b), 1);  // 1000 + (-999999 / 1000) = 1000 - 999
    a.tv = {5, 1500};
    b.tv = {5, 3499};
    EXPECT_EQ(tocra::ElapsedMs(a, b), 1);
    a.tv = {5, 0};
    b.tv = {7, 250000};
    EXPECT_EQ(tocra::ElapsedMs(a, b), 2250);
}

TEST(Timing, LineFormat) {
    const std::string out = tocra_test::CaptureStdout([] { tocra::PrintElapsed("IntegralMat_H_MT", tocra::Now()); });
    // "%28s time:%d ms\n": the name right-aligned in 28 columns.
    ASSERT_GE(out.size(), 28u);
    EXPECT_EQ(out.substr(0, 28), std::string(12, ' ') + "IntegralMat_H_MT");
    EXPECT_EQ(out.substr(28, 6), " time:");
    EXPECT_EQ(out.substr(out.size() - 4), " ms\n");
}

TEST(Log, LinesCarryTagAndPriority) {
    tocra_test::ClearLog();
    TOCRA_LOGI("value %d\n", 7);
    TOCRA_LOGE("failure %s", "x");
    EXPECT_TRUE(tocra_test::Logged(4, "value 7\n"));
    EXPECT_TRUE(tocra_test::Logged(6, "failure x"));
}

}  // namespace
