#include <cstring>
#include <vector>

#include "filter/filter_kernels.h"
#include "filter_test_util.h"

namespace {

using tocra_test::Logged;
using tocra_test::RandomBytes;

TEST(CumHist, VectorAndPlainKernelsAgree) {
    for (int step : {1, 2, 3}) {
        for (int w = 0; w <= 70; w += (w < 40 ? 1 : 7)) {
            for (int rows : {0, 1, 2, 5}) {
                const int stride = w + 2;
                const auto plane = RandomBytes(static_cast<size_t>(stride) * rows + 1, w * 3 + rows + step);
                uint32_t a[256], b[256];
                memset(b, 0xFF, sizeof(b));
                tocra::GetCumHist_C(plane.data(), w, rows, stride, step, a);
                GetCumHist_Neon(plane.data(), w, rows, stride, step, b);
                ASSERT_EQ(0, memcmp(a, b, sizeof(a))) << w << " rows " << rows << " step " << step;
                if (step == 1) {
                    memset(b, 0xFF, sizeof(b));
                    GetCumSum_NEON(plane.data(), w, rows, stride, b);
                    ASSERT_EQ(0, memcmp(a, b, sizeof(a)));
                }
            }
        }
    }
}

TEST(CumHist, HandWorkedSubsampledCounts) {
    // Rows 0 and 2, columns 0 and 2 are sampled: values 1, 3, 9, 9.
    const uint8_t plane[] = {1, 50, 3, 50, 50, 50, 9, 50, 9};
    uint32_t h[256];
    GetCumHist_Neon(plane, 3, 3, 3, 2, h);
    EXPECT_EQ(h[0], 0u);
    EXPECT_EQ(h[1], 1u);
    EXPECT_EQ(h[2], 1u);
    EXPECT_EQ(h[3], 2u);
    EXPECT_EQ(h[8], 2u);
    EXPECT_EQ(h[9], 4u);
    EXPECT_EQ(h[255], 4u);
}

TEST(CumHist, BandsRestartSubsamplingAndSmallHeightsFallToTheLastBand) {
    filter_test::StartPool();
    for (int h : {1, 3, 6, 12, 13}) {
        const int w = 21, stride = 24;
        const auto plane = RandomBytes(static_cast<size_t>(stride) * h, h);
        std::vector<uint32_t> set(1024, 0xABCDEF), sum(1024, 0xABCDEF);
        GetCumHist_Neon_MT(plane.data(), w, h, stride, 2, set.data());
        GetCumSum_Neon_MT(plane.data(), w, h, stride, sum.data());
        const int band = h / 4;
        for (int k = 0; k < 4; ++k) {
            const int first = k * band, rows = k < 3 ? band : h - 3 * band;
            uint32_t want[256];
            tocra::GetCumHist_C(plane.data() + first * stride, w, rows, stride, 2, want);
            ASSERT_EQ(0, memcmp(want, &set[256 * k], sizeof(want))) << h << " band " << k;
            tocra::GetCumSum_C(plane.data() + first * stride, w, rows, stride, want);
            ASSERT_EQ(0, memcmp(want, &sum[256 * k], sizeof(want))) << h << " band " << k;
        }
    }
    filter_test::StopPool();
}

TEST(CumHist, BadInputIsRefused) {
    std::vector<uint32_t> set(1024, 7);
    const uint8_t plane[16] = {};
    tocra_test::ClearLog();
    EXPECT_EQ(GetCumHist_Neon_MT(plane, 4, 4, 4, 0, set.data()), -998);  // the row loop would never end
    EXPECT_EQ(GetCumHist_Neon_MT(plane, 4, 4, 4, -2, set.data()), TOCRA_NULL_POINTER);
    EXPECT_EQ(GetCumHist_Neon_MT(nullptr, 4, 4, 4, 2, set.data()), TOCRA_NULL_POINTER);
    EXPECT_EQ(GetCumSum_Neon_MT(plane, 4, 4, 3, set.data()), -998);  // the last row ends past 12 bytes
    EXPECT_EQ(GetCumSum_Neon_MT(plane, 4, 4, 4, nullptr), TOCRA_NULL_POINTER);
    GetCumHist_Neon(plane, 4, 4, 4, 0, set.data());
    GetCumSum_NEON(plane, 4, 2, -4, set.data());
    EXPECT_EQ(set, std::vector<uint32_t>(1024, 7));
    EXPECT_TRUE(Logged(6, "GetCumHist_Neon_MT invalid input: width[4] rows[4] stride[4] step[0]\n"));
    EXPECT_TRUE(Logged(6, "GetCumSum_NEON invalid input: width[4] rows[2] stride[-4] step[1]\n"));
    EXPECT_EQ(tocra_test::Log().size(), 7u);
}

// Nothing to count is no error: the counters are cleared and stay zero,
// nothing is read (a null plane included) and nothing is logged.
TEST(CumHist, NothingToCountClearsTheCounters) {
    tocra_test::ClearLog();
    std::vector<uint32_t> set(1024, 7);
    EXPECT_EQ(GetCumSum_Neon_MT(nullptr, -4, 4, 4, set.data()), 0);
    EXPECT_EQ(set, std::vector<uint32_t>(1024, 0));
    set.assign(1024, 7);
    EXPECT_EQ(GetCumHist_Neon_MT(nullptr, 5, 0, 5, 0, set.data()), 0);  // no rows: a zero step walks nothing
    EXPECT_EQ(set, std::vector<uint32_t>(1024, 0));
    set.assign(1024, 7);
    GetCumSum_NEON(nullptr, 4, -1, 4, set.data());
    GetCumHist_Neon(nullptr, 0, 3, 0, 2, set.data() + 256);
    EXPECT_EQ(std::vector<uint32_t>(set.begin(), set.begin() + 512), std::vector<uint32_t>(512, 0));
    EXPECT_EQ(set[512], 7u);
    EXPECT_TRUE(tocra_test::Log().empty());
}

// A stride below the width is fine while every sampled byte lies inside
// the plane's rows * stride bytes: step 2 never reads the odd last column.
TEST(CumHist, OverlappingRowsAreReadWhileInsideThePlane) {
    // 3 rows of stride 4, width 5: sampled (0,0) (0,2) (0,4) (2,0) (2,2) (2,4)
    // = offsets 0, 2, 4, 8, 10, 12 of a 12-byte plane: the last one is past it.
    std::vector<uint8_t> plane = {10, 0, 20, 0, 30, 0, 0, 0, 40, 0, 50, 0};
    uint32_t h[256];
    tocra_test::ClearLog();
    GetCumHist_Neon(plane.data(), 5, 3, 4, 2, h);
    EXPECT_EQ(tocra_test::Log().size(), 1u);
    // Width 4 (columns 0, 2): offsets 0, 2, 8, 10, all inside.
    GetCumHist_Neon(plane.data(), 4, 3, 4, 2, h);
    EXPECT_EQ(h[9], 0u);
    EXPECT_EQ(h[10], 1u);
    EXPECT_EQ(h[20], 2u);
    EXPECT_EQ(h[40], 3u);
    EXPECT_EQ(h[255], 4u);
    // Width 5, stride 3, 4 rows: columns 0, 2, 4 of rows 0 and 2 = offsets
    // 0, 2, 4, 6, 8, 10 of a 12-byte plane.
    GetCumHist_Neon(plane.data(), 5, 4, 3, 2, h);
    // Values 10, 20, 30 (row 0) and 0, 40, 50 (row 2).
    EXPECT_EQ(h[0], 1u);
    EXPECT_EQ(h[10], 2u);
    EXPECT_EQ(h[30], 4u);
    EXPECT_EQ(h[49], 5u);
    EXPECT_EQ(h[255], 6u);
    EXPECT_EQ(tocra_test::Log().size(), 1u);
}

std::vector<uint32_t> Cum(std::vector<uint32_t> counts) {
    for (size_t v = 1; v < counts.size(); ++v) counts[v] += counts[v - 1];
    return counts;
}

TEST(Imf, NearestLevelWithTiesToTheSmallest) {
    std::vector<uint32_t> a(256), b(256);
    for (int v = 0; v < 256; ++v) {
        a[v] = 10u * v;
        b[v] = v < 100 ? 0u : 5000u;  // flat runs: every j < 100 ties at 0
    }
    uint8_t imf[256];
    CalcForwardIMF(a.data(), b.data(), imf);
    EXPECT_EQ(imf[0], 0);      // cumA 0: j 0..99 tie
    EXPECT_EQ(imf[100], 0);    // 1000 is nearer 0 than 5000
    EXPECT_EQ(imf[250], 0);    // 2500 ties between 0 and 5000: smallest j
    EXPECT_EQ(imf[251], 100);  // 2510 is nearer 5000
    // A difference of exactly 2^31 is INT32_MIN, whose magnitude stays negative and wins.
    std::vector<uint32_t> c(256, 0x80000000u), z(256, 0);
    z[7] = 1;
    CalcForwardIMF(c.data(), z.data(), imf);
    EXPECT_EQ(imf[0], 0);
}

TEST(JointPoint, IdenticalFramesWithEveryLevelGive127) {
    const auto cum = Cum(std::vector<uint32_t>(256, 3));
    int32_t joint = -5;
    CalcJointPoint(cum.data(), cum.data(), &joint);
    EXPECT_EQ(joint, 127);
}

TEST(JointPoint, EmptyLevelsStopTheDownwardScanBelow255) {
    std::vector<uint32_t> counts(256, 0);
    counts[50] = 7;
    counts[200] = 9;
    const auto cum = Cum(counts);
    int32_t joint = 0;
    CalcJointPoint(cum.data(), cum.data(), &joint);
    // IMF is 0 below 50, 50 on 50..199, 200 above; IMF[128] = 50 < 128 so
    // d(i) = i - IMF[i], largest 149 at 199; D = 147 reached first at 197
    // going up and at 199 going down.
    EXPECT_EQ(joint, 50);
}

TEST(JointPoint, Imf128Of128SelectsTheLiftingDirection) {
    // cumB is cumA shifted down by 20 levels above 128, identity below.
    std::vector<uint32_t> a(256), b(256);
    for (int v = 0; v < 256; ++v) {
        a[v] = 100u * (v + 1);
        b[v] = v <= 128 ? a[v] : 100u * (v + 1 - 20 > 129 ? v + 1 - 20 : 129);
    }
    uint8_t imf[256];
    CalcForwardIMF(a.data(), b.data(), imf);
    ASSERT_EQ(imf[128], 128);
    int32_t joint = 0;
    CalcJointPoint(b.data(), a.data(), &joint);
    // d(i) = IMF[i] - i: 0 up to 128, 20 on 129..235 (IMF i + 20), then
    // 255 - i above. D = 18: lowest i with d >= 18 is 129 (IMF 149),
    // highest 237 (IMF 255).
    EXPECT_EQ(imf[129], 149);
    EXPECT_EQ(imf[237], 255);
    EXPECT_EQ(joint, (149 + 255) >> 1);
}

struct BalanceRequest {
    tocra_test::HandleTable table;
    std::vector<uint8_t> a, b, out;
    FrameBalanceParams p{};
    BalanceRequest(std::vector<uint8_t> fa, std::vector<uint8_t> fb, int w, int h, int stride)
        : a(std::move(fa)), b(std::move(fb)), out(2052 + 8, 0xCC) {
        table.Install();
        p.hFrameA = table.Add(a.data());
        p.hFrameB = table.Add(b.data());
        p.hOutput = table.Add(out.data() + 1);  // the result need not be aligned
        p.width = w;
        p.height = h;
        p.stride = stride;
    }
    int Run() {
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
        int status = 0;
        tocra_test::CaptureStdout([&] { status = CalcuFrameBalance_TocraAPI(&p); });
        return status;
    }
    FrameBalanceResult Result() const {
        FrameBalanceResult r;
        memcpy(&r, out.data() + 1, sizeof(r));
        return r;
    }
};

TEST(FrameBalanceApi, IdenticalFramesWithEveryLevel) {
    const int w = 64, h = 16, stride = 80;
    std::vector<uint8_t> plane(static_cast<size_t>(stride) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < stride; ++x) plane[y * stride + x] = static_cast<uint8_t>((x / 2) * 8 + (y / 2));
    BalanceRequest r(plane, plane, w, h, stride);
    ASSERT_EQ(r.Run(), TOCRA_OK);
    const FrameBalanceResult res = r.Result();
    EXPECT_EQ(res.cumA[255], static_cast<uint32_t>((w / 2) * (h / 2)));
    EXPECT_EQ(0, memcmp(res.cumA, res.cumB, sizeof(res.cumA)));
    EXPECT_EQ(res.joint, 127);
    EXPECT_EQ(r.out[0], 0xCC);
    EXPECT_EQ(r.out[2053], 0xCC);
    EXPECT_TRUE(tocra_test::Flushed(r.out.data() + 1, 2052));
    EXPECT_TRUE(Logged(4, "exit func CalcuFrameBalance_TocraAPI\n"));
}

TEST(FrameBalanceApi, OddBandsSampleTheOddRowsOfBandsOneAndThree) {
    // Height 12: bands of 3 rows; sampled rows 0, 2, 3, 5, 6, 8, 9, 11.
    const int w = 10, h = 12;
    std::vector<uint8_t> a(w * h), b(w * h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) a[y * w + x] = static_cast<uint8_t>(y);
    BalanceRequest r(a, b, w, h, w);
    ASSERT_EQ(r.Run(), TOCRA_OK);
    const FrameBalanceResult res = r.Result();
    EXPECT_EQ(res.cumA[255], 8u * 5u);
    const int rows[] = {0, 2, 3, 5, 6, 8, 9, 11};
    for (int v = 0; v < 12; ++v) {
        uint32_t want = 0;
        for (int row : rows) want += row <= v ? 5u : 0u;
        EXPECT_EQ(res.cumA[v], want) << v;
    }
    EXPECT_EQ(res.cumB[0], 40u);
}

// No rows or no columns: nothing to count, which is no error. Both
// histograms are zero, so every level maps to 0 (ties go to the smallest
// level); IMF[128] = 0 < 128 gives d(i) = i, D = 253, and the joint is
// (IMF[253] + IMF[255]) >> 1 = 0.
TEST(FrameBalanceApi, NothingToCountGivesZeroHistogramsAndJointZero) {
    std::vector<uint8_t> plane(64, 9);
    const int sizes[][3] = {{0, 8, 8}, {8, 0, 8}, {-8, 8, 8}, {8, -1, 8}, {8, 8, 7}};
    for (const auto& s : sizes) {
        BalanceRequest r(plane, plane, s[0], s[1], s[2]);
        ASSERT_EQ(r.Run(), 0) << s[0] << "x" << s[1] << " stride " << s[2];
        const FrameBalanceResult res = r.Result();
        if (s[2] == 7) {  // 8 x 8 at stride 7: columns 0, 2, 4, 6 of rows 0, 2, 4, 6 stay inside 56 bytes
            EXPECT_EQ(res.cumA[9], 16u);
            continue;
        }
        EXPECT_EQ(res.cumA[255], 0u);
        EXPECT_EQ(res.cumB[255], 0u);
        EXPECT_EQ(res.joint, 0);
        EXPECT_TRUE(tocra_test::Flushed(r.out.data() + 1, 2052));
        EXPECT_TRUE(Logged(4, "exit func CalcuFrameBalance_TocraAPI\n"));
    }
}

TEST(FrameBalanceApi, EachHandleFailingInTurnAndBadSizes) {
    std::vector<uint8_t> plane(64, 1);
    for (int which = 0; which < 3; ++which) {
        BalanceRequest r(plane, plane, 8, 8, 8);
        const uint32_t h[3] = {r.p.hFrameA, r.p.hFrameB, r.p.hOutput};
        r.table.Break(h[which]);
        EXPECT_EQ(r.Run(), TOCRA_NULL_POINTER);
        EXPECT_TRUE(Logged(6, "CalcuFrameBalance Neon Get Pointer Error\n"));
        EXPECT_EQ(r.out, std::vector<uint8_t>(2060, 0xCC));
    }
    // Sampled bytes past 8 rows of 3 bytes; a negative stride.
    const int sizes[][3] = {{8, 8, 3}, {8, 8, -8}};
    for (const auto& s : sizes) {
        BalanceRequest r(plane, plane, s[0], s[1], s[2]);
        EXPECT_EQ(r.Run(), TOCRA_NULL_POINTER);
        EXPECT_TRUE(Logged(6, "CalcuFrameBalance invalid size: width[" + std::to_string(s[0]) + "] height[" +
                                  std::to_string(s[1]) + "] stride[" + std::to_string(s[2]) + "]\n"));
        EXPECT_EQ(r.out, std::vector<uint8_t>(2060, 0xCC));
    }
    tocra_test::ClearLog();
    EXPECT_EQ(CalcuFrameBalance_TocraAPI(nullptr), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "CalcuFrameBalance_TocraAPI null request\n"));
    CalcForwardIMF(nullptr, nullptr, nullptr);
    CalcJointPoint(nullptr, nullptr, nullptr);
    EXPECT_EQ(tocra_test::Log().size(), 3u);
}

}  // namespace
