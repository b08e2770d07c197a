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

TEST(IntegralImage, PlainAndVectorRowsAndColumnsAgree) {
    for (int w = 0; w <= 70; ++w) {
        const auto src = tocra_test::RandomBytes(w + 1, 100 + w);
        std::vector<uint32_t> a(w + 1, 1), b(w + 1, 2);
        tocra::IntegralRowPrefix_C(a.data(), src.data(), w);
        tocra::IntegralRowPrefix_Neon(b.data(), src.data(), w);
        ASSERT_EQ(a, b) << w;
    }
    for (int cols : {1, 15, 16, 17, 31, 33}) {
        const int rows = 9, pitch = cols + 2;
        std::vector<uint32_t> a(static_cast<size_t>(pitch) * rows);
        const auto bytes = tocra_test::RandomBytes(a.size() * 4, cols);
        memcpy(a.data(), bytes.data(), bytes.size());
        std::vector<uint32_t> b = a;
        tocra::IntegralColumns_C(a.data(), pitch, rows, cols);
        tocra::IntegralColumns_Neon(b.data(), pitch, rows, cols);
        ASSERT_EQ(a, b) << cols;
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
}

}  // namespace
