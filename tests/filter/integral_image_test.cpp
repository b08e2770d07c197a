#include <algorithm>
#include <cstring>
#include <vector>

#include "filter/filter_kernels.h"
#include "filter_test_util.h"

namespace {

// Summed-area table by its definition, in 64-bit then wrapped.
std::vector<int32_t> NaiveIntegral(const std::vector<uint8_t>& src, int w, int h, int stride) {
    std::vector<int32_t> out(static_cast<size_t>(w + 1) * (h + 1), 0);
    for (int r = 1; r <= h; ++r) {
        for (int c = 1; c <= w; ++c) {
            uint64_t s = 0;
            for (int y = 0; y < r; ++y)
                for (int x = 0; x < c; ++x) s += src[static_cast<size_t>(y) * stride + x];
            out[static_cast<size_t>(r) * (w + 1) + c] = static_cast<int32_t>(static_cast<uint32_t>(s));
        }
    }
    return out;
}

TEST(IntegralImage, HandWorkedTwoByThree) {
    // 1 2 3
    // 4 5 6
    const std::vector<uint8_t> src = {1, 2, 3, 99, 4, 5, 6, 99};  // stride 4, padding never read
    std::vector<int32_t> dst(4 * 3, -1);
    IntergralMat_MT(src.data(), dst.data(), 3, 2, 4);
    const std::vector<int32_t> want = {0, 0, 0, 0, 0, 1, 3, 6, 0, 5, 12, 21};
    EXPECT_EQ(dst, want);
}

TEST(IntegralImage, MatchesDefinitionForOddSizesWithAndWithoutPool) {
    for (bool pool : {false, true}) {
        if (pool) filter_test::StartPool();
        for (int h : {1, 2, 3, 4, 5, 10, 17}) {
            for (int w : {1, 7, 8, 9, 15, 16, 17, 33}) {
                const int stride = w + 3;
                const auto src = tocra_test::RandomBytes(static_cast<size_t>(stride) * h, w * 31 + h);
                std::vector<int32_t> dst(static_cast<size_t>(w + 1) * (h + 1), -7);
                IntergralMat_MT(src.data(), dst.data(), w, h, stride);
                EXPECT_EQ(dst, NaiveIntegral(src, w, h, stride)) << w << "x" << h;
            }
        }
        if (pool) filter_test::StopPool();
    }
}

TEST(IntegralImage, WidthZeroGivesOneZeroColumn) {
    std::vector<int32_t> dst(6, -1);
    const uint8_t src[1] = {9};
    IntergralMat_MT(src, dst.data(), 0, 5, 1);
    EXPECT_EQ(dst, std::vector<int32_t>(6, 0));
}

TEST(IntegralImage, LargeSumsWrapModulo2To32) {
    // 4097 x 4112 pixels of 255 sum past 2^32 in the last corner.
    const int w = 4097, h = 4112;
    std::vector<uint8_t> src(static_cast<size_t>(w) * h, 255);
    std::vector<int32_t> dst(static_cast<size_t>(w + 1) * (h + 1));
    IntergralMat_MT(src.data(), dst.data(), w, h, w);
    const uint32_t want = static_cast<uint32_t>(255ull * w * h);
    EXPECT_EQ(static_cast<uint32_t>(dst.back()), want);
}

TEST(IntegralImage, PlainAndVectorRowsAndPlanesAgree) {
    for (int w = 0; w <= 70; ++w) {
        const auto src = tocra_test::RandomBytes(w + 1, 100 + w);
        const auto above8 = tocra_test::RandomBytes(4 * (w + 1), 200 + w);
        std::vector<uint32_t> above(w + 1);
        memcpy(above.data(), above8.data(), above8.size());
        std::vector<uint32_t> a(w + 1, 1), b(w + 1, 1);  // the last value is never written
        // Each row form against its definition, from a start sum near the wrap.
        const uint32_t start = 0xFFFFF000u;
        const uint32_t endA = tocra::IntegralRow_C(a.data(), above.data(), src.data(), w, start);
        uint32_t s = start;
        for (int x = 0; x < w; ++x) {
            s += src[x];
            ASSERT_EQ(a[x], above[x] + s) << w << " at " << x;
        }
        ASSERT_EQ(endA, s);
        std::vector<uint32_t> sums(w + 1, 5), sumsB(w + 1, 5), add(above), addB(above);
        tocra::IntegralColSumRows_C(sums.data(), src.data(), w, 1, w);
        tocra::IntegralAddRow_C(add.data(), a.data(), w);
        for (int x = 0; x < w; ++x) ASSERT_EQ(sums[x], 5u + src[x]);
#if !defined(BRIMVEL_PLAIN_ONLY)
        const uint32_t endB = tocra::IntegralRow_NEON(b.data(), above.data(), src.data(), w, start);
        ASSERT_EQ(a, b) << w;
        ASSERT_EQ(endA, endB) << w;
        tocra::IntegralColSumRows_NEON(sumsB.data(), src.data(), w, 1, w);
        ASSERT_EQ(sums, sumsB) << w;
        tocra::IntegralAddRow_NEON(addB.data(), a.data(), w);
        ASSERT_EQ(add, addB) << w;
        // In place (out = above), as the row-prefix task uses it.
        std::vector<uint32_t> c(above), d(above);
        tocra::IntegralRow_C(c.data(), c.data(), src.data(), w, 0);
        tocra::IntegralRow_NEON(d.data(), d.data(), src.data(), w, 0);
        ASSERT_EQ(c, d) << w;
#endif
    }
    // Whole planes, bands of every shape, with and without the pool.
    for (bool pool : {false, true}) {
        if (pool) filter_test::StartPool();
        for (int h : {1, 3, 4, 7, 9, 33}) {
            for (int w : {0, 1, 15, 16, 17, 47}) {
                const int stride = w + 1;
                const auto src = tocra_test::RandomBytes(static_cast<size_t>(stride) * h, h * 7 + w);
                std::vector<uint32_t> a(static_cast<size_t>(w + 1) * (h + 1), 3), b(a.size(), 4);
                tocra::IntegralPlane(src.data(), a.data(), w, h, stride, true);
                tocra::IntegralPlane(src.data(), b.data(), w, h, stride, false);
                ASSERT_EQ(a, b) << w << "x" << h;
                const auto want = NaiveIntegral(src, w, h, stride);
                ASSERT_EQ(0, memcmp(a.data(), want.data(), a.size() * 4)) << w << "x" << h;
            }
        }
        if (pool) filter_test::StopPool();
    }
}

// The exported task bodies on their own: row prefixes (column 0 zero), then
// the column pass on the calling thread.
TEST(IntegralImage, ExportedTaskBodiesBuildTheSameTable) {
    const int w = 19, h = 10, stride = 24;
    const auto src = tocra_test::RandomBytes(static_cast<size_t>(stride) * h, 5);
    std::vector<int32_t> dst(static_cast<size_t>(w + 1) * (h + 1), 77);
    std::fill(dst.begin(), dst.begin() + w + 1, 0);
    IntegralJob job{dst.data() + w + 1, src.data(), w + 1, stride, h + 1, 4};
    for (int k = 0; k < 4; ++k) IntegralMat_partH_Caller(&job, k);
    EXPECT_EQ(dst[static_cast<size_t>(3) * (w + 1)], 0);
    EXPECT_EQ(dst[static_cast<size_t>(3) * (w + 1) + 2], src[2 * stride] + src[2 * stride + 1]);
    IntegralMat_partV_Caller(dst.data() + w + 1, w + 1, h + 1);
    EXPECT_EQ(dst, NaiveIntegral(src, w, h, stride));
}

// Column sums over many rows (the 16-bit runs end at 256 rows) and row
// pairs, on widths around the 16- and 64-column strips.
TEST(IntegralImage, ColumnSumsAndRowPairsMatchTheirDefinition) {
    for (int w : {0, 1, 15, 16, 17, 63, 64, 65, 80, 95, 129}) {
        for (int rows : {0, 1, 2, 255, 256, 257, 600}) {
            const int stride = w + 5;
            auto src = tocra_test::RandomBytes(static_cast<size_t>(stride) * rows + 1, w * 13 + rows);
            if (rows == 600) std::fill(src.begin(), src.end(), 255);  // 16-bit runs at their largest
            std::vector<uint32_t> want(w + 1, 0xFFFFFF00u), a(want), b(want);
            for (int r = 0; r < rows; ++r)
                for (int x = 0; x < w; ++x) want[x] += src[static_cast<size_t>(r) * stride + x];
            tocra::IntegralColSumRows_C(a.data(), src.data(), stride, rows, w);
            ASSERT_EQ(a, want) << w << "x" << rows;
#if !defined(BRIMVEL_PLAIN_ONLY)
            tocra::IntegralColSumRows_NEON(b.data(), src.data(), stride, rows, w);
            ASSERT_EQ(b, want) << w << "x" << rows;
#endif
        }
    }
    for (int w = 0; w <= 70; ++w) {
        const int pitch = w + 3, stride = w + 2;
        auto src = tocra_test::RandomBytes(static_cast<size_t>(2 * stride), 300 + w);
        if (w == 70) std::fill(src.begin(), src.end(), 255);
        const auto above8 = tocra_test::RandomBytes(4 * static_cast<size_t>(pitch), 400 + w);
        std::vector<uint32_t> above(pitch);
        memcpy(above.data(), above8.data(), above8.size());
        std::vector<uint32_t> want(2 * static_cast<size_t>(pitch), 9), a(want), b(want);
        uint32_t s0 = 0, s1 = 0;
        for (int x = 0; x < w; ++x) {
            s0 += src[x];
            s1 += src[stride + x];
            want[x] = above[x] + s0;
            want[pitch + x] = above[x] + s0 + s1;
        }
        tocra::IntegralRowPair_C(a.data(), above.data(), src.data(), pitch, stride, w);
        ASSERT_EQ(a, want) << w;
#if !defined(BRIMVEL_PLAIN_ONLY)
        tocra::IntegralRowPair_NEON(b.data(), above.data(), src.data(), pitch, stride, w);
        ASSERT_EQ(b, want) << w;
#endif
    }
}

TEST(IntegralImage, BadInputIsRefusedWithALogLine) {
    tocra_test::ClearLog();
    std::vector<int32_t> dst(16, 5);
    const uint8_t src[16] = {};
    IntergralMat_MT(src, nullptr, 3, 3, 3);
    IntergralMat_MT(nullptr, dst.data(), 3, 3, 3);
    IntergralMat_MT(src, dst.data(), -1, 3, 3);
    IntergralMat_MT(src, dst.data(), 3, -2, 3);
    IntergralMat_MT(src, dst.data(), 3, 3, 2);  // stride below width
    EXPECT_EQ(dst, std::vector<int32_t>(16, 5));
    EXPECT_TRUE(tocra_test::Logged(6, "IntergralMat_MT invalid input: width[3] height[3] stride[2]\n"));
    EXPECT_EQ(tocra_test::Log().size(), 5u);
    // Width 0 reads no source byte: a null source is fine there.
    tocra_test::ClearLog();
    IntergralMat_MT(nullptr, dst.data(), 0, 3, 7);
    EXPECT_EQ(std::vector<int32_t>(dst.begin(), dst.begin() + 4), std::vector<int32_t>(4, 0));
    EXPECT_EQ(dst[4], 5);
    EXPECT_TRUE(tocra_test::Log().empty());
}

}  // namespace
