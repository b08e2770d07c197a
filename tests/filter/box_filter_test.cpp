#include <algorithm>
#include <cctype>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "filter/filter_kernels.h"
#include "filter_test_util.h"

namespace {

using tocra_test::Logged;
using tocra_test::RandomBytes;

// True when text is, for each head in order, the line "<head> time:<digits> ms\n"
// and nothing else. (Not std::regex: GCC 12 warns inside <regex> in the
// sanitizer builds, where warnings are errors.)
bool TimingLines(const std::string& text, std::initializer_list<const char*> heads) {
    size_t pos = 0;
    for (const char* head : heads) {
        const std::string start = std::string(head) + " time:";
        if (text.compare(pos, start.size(), start) != 0) return false;
        pos += start.size();
        const size_t digits = pos;
        while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) ++pos;
        if (pos == digits || text.compare(pos, 4, " ms\n") != 0) return false;
        pos += 4;
    }
    return pos == text.size();
}

// Work area the filter needs for a plane.
int WorkBytes(int w, int h, int stride, int r) { return w * h * 4 + stride * (2 * r + (h + 3) / 4) * 4; }

// The clipped-window mean by its definition: direct sums, then the same
// rounding and float scaling the filter documents.
uint8_t NaiveBox(const std::vector<uint8_t>& src, int w, int h, int stride, int r, int x, int y) {
    int s = 0;
    const int x0 = std::max(0, x - r), x1 = std::min(w - 1, x + r);
    const int y0 = std::max(0, y - r), y1 = std::min(h - 1, y + r);
    for (int j = y0; j <= y1; ++j)
        for (int i = x0; i <= x1; ++i) s += src[static_cast<size_t>(j) * stride + i];
    const int cx = x1 - x0 + 1, cy = y1 - y0 + 1;
    const float f =
        static_cast<float>(s + ((cx * cy) >> 1)) * static_cast<float>(1.0 / cy) * static_cast<float>(1.0 / cx);
    return static_cast<uint8_t>(std::min(255, static_cast<int>(f)));
}

std::vector<int32_t> NaiveRowSums(const std::vector<uint8_t>& src, int w, int rows, int stride, int r) {
    std::vector<int32_t> out(static_cast<size_t>(w) * rows);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < w; ++x) {
            int s = 0;
            for (int j = std::max(0, x - r); j <= std::min(w - 1, x + r); ++j)
                s += src[static_cast<size_t>(y) * stride + j];
            out[static_cast<size_t>(y) * w + x] = s;
        }
    return out;
}

// ---- kernels ---------------------------------------------------------------

TEST(BoxSumKernels, HorizontalVariantsMatchTheDefinition) {
    for (int r : {0, 1, 3, 7, 20}) {
        for (int w = 2 * r + 1; w <= 2 * r + 60; ++w) {
            for (int rows : {1, 2, 3, 5}) {
                const int stride = w + 5;
                const auto src = RandomBytes(static_cast<size_t>(stride) * rows, w * 7 + r + rows);
                const auto want = NaiveRowSums(src, w, rows, stride, r);
                std::vector<int32_t> a(want.size(), -1), b(want.size(), -2), c(want.size(), -3);
                IntegralMat_H_S32XS32(a.data(), src.data(), w, stride, rows, r);
                IntegralMat_H_S32XS32_Neon(b.data(), src.data(), w, stride, rows, r);
                IntegralMat_H_S32XS32_Neon3(c.data(), src.data(), w, stride, rows, r);
                ASSERT_EQ(a, want) << w << " r" << r << " rows" << rows;
                ASSERT_EQ(b, want) << w << " r" << r << " rows" << rows;
                ASSERT_EQ(c, want) << w << " r" << r << " rows" << rows;
            }
        }
    }
}

// The row kernels with their plain and vector rows, against the definition
// on rows whose last byte is the buffer's last byte (stride = width).
TEST(BoxSumKernels, RowFormsAgreeOnTightRows) {
    for (int r : {0, 1, 2, 9}) {
        for (int w = 2 * r + 1; w <= 2 * r + 40; ++w) {
            const auto src = RandomBytes(static_cast<size_t>(w) * 3, w * 5 + r);
            const auto want = NaiveRowSums(src, w, 3, w, r);
            std::vector<int32_t> a(want.size(), -1);
            tocra::BoxSumHRow_C(a.data(), src.data(), w, r);
            tocra::BoxSumHPair_C(a.data() + w, src.data() + w, w, w, r);
            ASSERT_EQ(a, want) << w << " r" << r;
#if !defined(BRIMVEL_PLAIN_ONLY)
            std::vector<int32_t> b(want.size(), -2);
            tocra::BoxSumHRow_NEON(b.data(), src.data(), w, r);
            tocra::BoxSumHPair_NEON(b.data() + w, src.data() + w, w, w, r);
            ASSERT_EQ(b, want) << w << " r" << r;
#endif
        }
    }
}

// width <= 2R: the incremental loop would read before the row's first byte
// and write past its last sum; the kernels refuse it with a line and write
// nothing (the box filter checks the size before any pass).
TEST(BoxSumKernels, WidthUpTo2RIsRefused) {
    std::vector<uint8_t> src(64, 3);
    std::vector<int32_t> out(64, 7);
    tocra_test::ClearLog();
    IntegralMat_H_S32XS32(out.data(), src.data(), 4, 8, 2, 2);
    IntegralMat_H_S32XS32_Neon(out.data(), src.data(), 5, 8, 2, 3);
    IntegralMat_H_S32XS32_Neon3(out.data(), src.data(), 0, 8, 2, 0);
    EXPECT_EQ(IntegralMat_H_MT(out.data(), src.data(), 6, 8, 4, 3), TOCRA_NULL_POINTER);
    EXPECT_EQ(out, std::vector<int32_t>(64, 7));
    EXPECT_TRUE(Logged(6, "IntegralMat_H_S32XS32 invalid input: width[4] stride[8] rows[2] radius[2]\n"));
    EXPECT_TRUE(Logged(6, "IntegralMat_H_MT invalid input: width[6] stride[8] height[4] radius[3]\n"));
    EXPECT_EQ(tocra_test::Log().size(), 4u);
    // No rows: nothing to do, whatever else is passed.
    tocra_test::ClearLog();
    IntegralMat_H_S32XS32(nullptr, nullptr, 4, 1, 0, 9);
    EXPECT_EQ(IntegralMat_H_MT(nullptr, nullptr, 4, 1, -3, 9), TOCRA_OK);
    EXPECT_TRUE(tocra_test::Log().empty());
}

TEST(BoxSumKernels, VerticalPlainAndVectorGiveTheSameBytes) {
    for (int r : {0, 1, 2, 5}) {
        for (int w = 1; w <= 25; ++w) {
            for (int rows : {1, 2, 3, 4, 7, 13, 30}) {
                const int stride = w + 3;
                const auto src = RandomBytes(static_cast<size_t>(stride) * rows, 1000 + w * 13 + r + rows);
                const auto sums = NaiveRowSums(src, w, rows, stride, r);
                std::vector<uint8_t> a(static_cast<size_t>(stride) * rows, 0xAA), b = a;
                tocra::BoxSumV_C(a.data(), sums.data(), w, stride, rows, r);
                IntegralMat_V_S32XS32_Neon2(b.data(), sums.data(), w, stride, rows, r);
                ASSERT_EQ(a, b) << w << " r" << r << " rows" << rows;
                for (int y = 0; y < rows; ++y) {
                    for (int x = 0; x < w; ++x)
                        ASSERT_EQ(a[static_cast<size_t>(y) * stride + x], NaiveBox(src, w, rows, stride, r, x, y));
                    ASSERT_EQ(a[static_cast<size_t>(y) * stride + w], 0xAA) << "padding untouched";
                }
            }
        }
    }
}

// Sums that no 8-bit plane gives (large, negative) still clamp to the same
// bytes in both forms: the vector form clamps in float before converting.
TEST(BoxSumKernels, VerticalFormsClampForeignSumsAlike) {
    uint32_t s = 12345;
    size_t saturated = 0, zeroed = 0;
    for (int r : {0, 2, 6}) {
        for (int w : {1, 8, 13, 31}) {
            const int rows = 17, stride = w + 1;
            std::vector<int32_t> sums(static_cast<size_t>(w) * rows);
            for (auto& v : sums) {
                s = s * 1664525u + 1013904223u;
                v = static_cast<int32_t>(s >> 7) - (1 << 24);  // [-2^24, 2^24)
            }
            std::vector<uint8_t> a(static_cast<size_t>(stride) * rows, 0), b = a;
            tocra::BoxSumV_C(a.data(), sums.data(), w, stride, rows, r);
            IntegralMat_V_S32XS32_Neon2(b.data(), sums.data(), w, stride, rows, r);
            ASSERT_EQ(a, b) << w << " r" << r;
            saturated += std::count(a.begin(), a.end(), 255);
            zeroed += std::count(a.begin(), a.end(), 0);
        }
    }
    EXPECT_GT(saturated, 100);
    EXPECT_GT(zeroed, 100);
}

TEST(BoxSumKernels, BadArgumentsWriteNothing) {
    std::vector<int32_t> out(64, 7);
    std::vector<uint8_t> src(64, 1), dst(64, 9);
    tocra_test::ClearLog();
    IntegralMat_H_S32XS32_Neon3(out.data(), src.data(), 8, 4, 2, 1);  // stride < width
    IntegralMat_H_S32XS32(out.data(), nullptr, 8, 8, 2, 1);
    IntegralMat_H_S32XS32_Neon(out.data(), src.data(), 8, 8, 2, -1);
    IntegralMat_V_S32XS32_Neon2(dst.data(), out.data(), 8, 8, 2, -1);
    IntegralMat_V_S32XS32_Neon2(nullptr, out.data(), 8, 8, 2, 1);
    EXPECT_EQ(out, std::vector<int32_t>(64, 7));
    EXPECT_EQ(dst, std::vector<uint8_t>(64, 9));
    EXPECT_EQ(tocra_test::Log().size(), 5u);
    EXPECT_TRUE(Logged(6, "IntegralMat_H_S32XS32_Neon3 invalid input: width[8] stride[4] rows[2] radius[1]\n"));
    uint8_t* cursor = nullptr;
    EXPECT_EQ(IntegralMat_V_MT(dst.data(), out.data(), 8, 8, 2, 1, &cursor), TOCRA_NULL_POINTER);
    EXPECT_EQ(IntegralMat_V_MT(dst.data(), out.data(), 8, 8, 2, 1, nullptr), TOCRA_NULL_POINTER);
    EXPECT_EQ(IntegralMat_H_MT(out.data(), src.data(), 8, 4, 2, 1), TOCRA_NULL_POINTER);
}

// ---- BoxFiltering_neon -----------------------------------------------------

struct Filtered {
    int status;
    std::vector<uint8_t> dst;
    std::string out;
};

Filtered RunFilter(const std::vector<uint8_t>& src, int w, int h, int stride, int r, int workSize = -1) {
    Filtered f;
    f.dst.assign(src.size(), 0x5C);
    if (workSize < 0) workSize = WorkBytes(w, h, stride, r);
    std::vector<uint32_t> work((workSize + 3) / 4 + 1, 0xDEADBEEF);
    f.out = tocra_test::CaptureStdout([&] {
        f.status = BoxFiltering_neon(src.data(), f.dst.data(), w, stride, h, r, reinterpret_cast<uint8_t*>(work.data()),
                                     workSize);
    });
    return f;
}

TEST(BoxFiltering, HandWorkedCornerAndBorderValues) {
    // 4 x 12, one 255 in the top-left corner, R = 1.
    const int w = 4, h = 12, stride = 8;
    std::vector<uint8_t> src(static_cast<size_t>(stride) * h, 0);
    src[0] = 255;
    const Filtered f = RunFilter(src, w, h, stride, 1);
    ASSERT_EQ(f.status, TOCRA_OK);
    EXPECT_EQ(f.dst[0], 64);           // 2x2 window: (255 + 2) / 4
    EXPECT_EQ(f.dst[1], 43);           // 3x2 window: (255 + 3) / 6
    EXPECT_EQ(f.dst[stride], 43);      // 2x3 window
    EXPECT_EQ(f.dst[stride + 1], 28);  // full 3x3 window: (255 + 4) / 9 = 28.8, truncated
    EXPECT_EQ(f.dst[2], 0);
    EXPECT_EQ(f.dst[2 * stride], 0);
}

TEST(BoxFiltering, ConstantPlaneStaysConstantCornersIncluded) {
    for (int v : {0, 1, 128, 254, 255}) {
        const int w = 37, h = 40, stride = 40, r = 4;
        std::vector<uint8_t> src(static_cast<size_t>(stride) * h, static_cast<uint8_t>(v));
        const Filtered f = RunFilter(src, w, h, stride, r);
        ASSERT_EQ(f.status, TOCRA_OK);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) ASSERT_EQ(f.dst[static_cast<size_t>(y) * stride + x], v) << x << "," << y;
    }
}

TEST(BoxFiltering, RandomPlanesMatchTheDefinitionAcrossBandsWithThePool) {
    filter_test::StartPool();
    for (int h : {8, 10, 13, 33, 64}) {
        for (int w : {9, 16, 23, 41}) {
            for (int r : {0, 1, 3}) {
                if (w <= 2 * r || 2 * r >= h / 4) continue;
                const int stride = w + 11;
                const auto src = RandomBytes(static_cast<size_t>(stride) * h, h * 100 + w + r);
                const Filtered f = RunFilter(src, w, h, stride, r);
                ASSERT_EQ(f.status, TOCRA_OK);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        ASSERT_EQ(f.dst[static_cast<size_t>(y) * stride + x], NaiveBox(src, w, h, stride, r, x, y))
                            << w << "x" << h << " r" << r << " at " << x << "," << y;
            }
        }
    }
    filter_test::StopPool();
}

TEST(BoxFiltering, RadiusZeroCopiesTheSourceEvenWhenTheLastBandsAreEmpty) {
    // Heights 5 and 9 leave the last vertical band with no rows.
    for (int h : {4, 5, 6, 7, 9, 11}) {
        const int w = 13, stride = 16;
        const auto src = RandomBytes(static_cast<size_t>(stride) * h, h);
        const Filtered f = RunFilter(src, w, h, stride, 0);
        ASSERT_EQ(f.status, 0) << h;
        for (int y = 0; y < h; ++y)
            EXPECT_EQ(0, memcmp(&f.dst[static_cast<size_t>(y) * stride], &src[static_cast<size_t>(y) * stride], w))
                << h;
    }
}

TEST(BoxFiltering, InPlaceEqualsOutOfPlace) {
    const int w = 50, h = 48, stride = 64, r = 5;
    auto plane = RandomBytes(static_cast<size_t>(stride) * h, 77);
    const Filtered f = RunFilter(plane, w, h, stride, r);
    std::vector<uint32_t> work(WorkBytes(w, h, stride, r) / 4);
    tocra_test::CaptureStdout([&] {
        EXPECT_EQ(BoxFiltering_neon(plane.data(), plane.data(), w, stride, h, r,
                                    reinterpret_cast<uint8_t*>(work.data()), WorkBytes(w, h, stride, r)),
                  0);
    });
    for (int y = 0; y < h; ++y)
        EXPECT_EQ(0, memcmp(&plane[static_cast<size_t>(y) * stride], &f.dst[static_cast<size_t>(y) * stride], w));
}

TEST(BoxFiltering, LogAndTimingLines) {
    tocra_test::ClearLog();
    const int w = 20, h = 16, stride = 32, r = 1;
    const auto src = RandomBytes(static_cast<size_t>(stride) * h, 3);
    const int use = WorkBytes(w, h, stride, r);
    const Filtered f = RunFilter(src, w, h, stride, r, use);
    ASSERT_EQ(f.status, TOCRA_OK);
    EXPECT_TRUE(TimingLines(f.out, {"            IntegralMat_H_MT", "            IntegralMat_V_MT"})) << f.out;
    // ... and the check refuses a missing number and anything after the lines.
    EXPECT_FALSE(TimingLines("  A time: ms\n", {"  A"}));
    EXPECT_FALSE(TimingLines("  A time:3 ms\nmore", {"  A"}));
    const auto log = tocra_test::Log();
    ASSERT_EQ(log.size(), 3u);
    EXPECT_EQ(log[0].text, "enter func BoxFiltering_neon\n");
    EXPECT_EQ(log[1].prio, 4);
    EXPECT_EQ(log[1].text, "---[MEM_INFO]---[BoxFiltering_neon][2927] Ap BoxFilter use [" + std::to_string(use) +
                               "], Total[" + std::to_string(use) + "], left [0]\n");
    EXPECT_EQ(log[2].text, "exit func BoxFiltering_neon\n");
}

TEST(BoxFiltering, RadiusTooLargeForTheSizeIsRefused) {
    const auto src = RandomBytes(64 * 64, 5);
    tocra_test::ClearLog();
    EXPECT_EQ(RunFilter(src, 8, 64, 64, 4).status, -998);  // width = 2R
    EXPECT_TRUE(Logged(6, "BoxFiltering_neon 2895 Input width[8] or height/4[64] less than 2*R[8]!\n"));
    tocra_test::ClearLog();
    const Filtered f = RunFilter(src, 64, 32, 64, 4);  // height/4 = 2R
    EXPECT_EQ(f.status, TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxFiltering_neon 2895 Input width[64] or height/4[32] less than 2*R[8]!\n"));
    EXPECT_EQ(f.dst, std::vector<uint8_t>(src.size(), 0x5C));
    EXPECT_EQ(f.out, "");
}

TEST(BoxFiltering, ShortWorkAreaIsRefusedBeforeAnyPass) {
    const int w = 20, h = 16, stride = 32, r = 1;
    const auto src = RandomBytes(static_cast<size_t>(stride) * h, 3);
    const int use = WorkBytes(w, h, stride, r);
    // Band 4 rows; the last slice starts at scratch row 3 * (4 + 2) = 18 and
    // its copy reads 5 rows: 23 rows of 32 bytes behind 20 * 16 * 4 of sums.
    const int touched = w * h * 4 + 23 * stride;
    ASSERT_EQ(use - touched, 32);
    tocra_test::ClearLog();
    const Filtered f = RunFilter(src, w, h, stride, r, touched - 1);
    EXPECT_EQ(f.status, TOCRA_NULL_POINTER);
    EXPECT_EQ(f.dst, std::vector<uint8_t>(src.size(), 0x5C));
    EXPECT_TRUE(Logged(4, "---[MEM_INFO]---[BoxFiltering_neon][2927] Ap BoxFilter use [" + std::to_string(use) +
                              "], Total[" + std::to_string(touched - 1) + "], left [-33]\n"));
    EXPECT_TRUE(Logged(6, "---[MEM_ERR]---[BoxFiltering_neon][2930] Memmory occur an error!\n"));
    EXPECT_FALSE(Logged(4, "exit func BoxFiltering_neon\n"));
}

// A work area shorter than the reservation but holding every byte the
// passes touch: the filter runs and reports the shortfall after the fact.
// The buffer ends exactly where the touched bytes end.
TEST(BoxFiltering, WorkAreaShorterThanTheReservationIsReportedAfterTheFact) {
    filter_test::StartPool();
    for (int h : {13, 16, 21}) {
        const int w = 21, stride = 24, r = 1;
        const int use = WorkBytes(w, h, stride, r);
        const int band = (h + 3) / 4, lastFirst = 3 * band;
        const int touched = w * h * 4 + (3 * (band + 2 * r) + h - (lastFirst - r)) * stride;
        ASSERT_LT(touched, use);
        const auto src = RandomBytes(static_cast<size_t>(stride) * h, h);
        std::vector<uint8_t> dst(src.size(), 0);
        std::unique_ptr<uint32_t[]> work(new uint32_t[touched / 4]);
        tocra_test::ClearLog();
        int status = -1;
        tocra_test::CaptureStdout([&] {
            status = BoxFiltering_neon(src.data(), dst.data(), w, stride, h, r, reinterpret_cast<uint8_t*>(work.get()),
                                       touched);
        });
        ASSERT_EQ(status, 0) << h;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                ASSERT_EQ(dst[static_cast<size_t>(y) * stride + x], NaiveBox(src, w, h, stride, r, x, y)) << h;
        EXPECT_TRUE(Logged(4, "---[MEM_INFO]---[BoxFiltering_neon][2927] Ap BoxFilter use [" + std::to_string(use) +
                                  "], Total[" + std::to_string(touched) + "], left [" + std::to_string(touched - use) +
                                  "]\n"));
        EXPECT_TRUE(Logged(6, "---[MEM_ERR]---[BoxFiltering_neon][2930] Memmory occur an error!\n"));
        EXPECT_TRUE(Logged(4, "exit func BoxFiltering_neon\n"));
    }
    filter_test::StopPool();
}

TEST(BoxFiltering, BadInputAnswers998WithALogLine) {
    std::vector<uint8_t> plane(32 * 16, 1);
    std::vector<uint32_t> work(1024);
    uint8_t* wk = reinterpret_cast<uint8_t*>(work.data());
    tocra_test::ClearLog();
    EXPECT_EQ(BoxFiltering_neon(nullptr, plane.data(), 20, 32, 16, 1, wk, 4096), TOCRA_NULL_POINTER);
    EXPECT_EQ(BoxFiltering_neon(plane.data(), nullptr, 20, 32, 16, 1, wk, 4096), TOCRA_NULL_POINTER);
    EXPECT_EQ(BoxFiltering_neon(plane.data(), plane.data(), 20, 32, 16, 1, nullptr, 4096), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxFiltering_neon null pointer: src, dst and work must all be set\n"));
    EXPECT_EQ(BoxFiltering_neon(plane.data(), plane.data(), 20, 32, 16, -1, wk, 4096), TOCRA_NULL_POINTER);
    EXPECT_EQ(BoxFiltering_neon(plane.data(), plane.data(), 20, 16, 16, 1, wk, 4096), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxFiltering_neon invalid input: width[20] stride[16] radius[1]\n"));
    EXPECT_EQ(BoxFiltering_neon(plane.data(), plane.data(), 0, 32, 16, 0, wk, 4096), TOCRA_NULL_POINTER);
    EXPECT_EQ(BoxFiltering_neon(plane.data(), plane.data(), 20, 32, -16, 0, wk, 4096), TOCRA_NULL_POINTER);
    EXPECT_EQ(BoxFiltering_neon(plane.data(), plane.data(), 20, 32, 16, 1 << 30, wk, 4096), TOCRA_NULL_POINTER);
    EXPECT_EQ(BoxFiltering_neon(plane.data(), plane.data(), 20, 32, 16, 1, wk + 1, 4000), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxFiltering_neon work area must be 4-byte aligned\n"));
    EXPECT_EQ(plane, std::vector<uint8_t>(32 * 16, 1));
}

}  // namespace
