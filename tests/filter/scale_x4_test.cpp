#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "filter/filter_kernels.h"
#include "filter_test_util.h"

namespace {

using tocra_test::RandomBytes;

// ---- down-scale --------------------------------------------------------------

TEST(DownScale, PlainAndVectorAgreeOnEveryTailAndOddSize) {
    for (int w = 1; w <= 75; ++w) {
        for (int rows : {1, 2, 3, 5, 6}) {
            for (int pad : {0, 1, 9}) {
                const int srcStride = w + pad, dstStride = (w + 1) / 2 + 3;
                // Room for the row after an odd row count and the byte after an odd width.
                const auto src = RandomBytes(static_cast<size_t>(srcStride) * (rows + 1) + 1, w * 17 + rows + pad);
                std::vector<uint8_t> a(static_cast<size_t>(dstStride) * ((rows + 1) / 2), 0x11), b = a;
                tocra::DownScalePlane(src.data(), rows, w, a.data(), srcStride, dstStride, tocra::DownScaleRow_C);
                Neon_DownScaleX4(src.data(), rows, w, b.data(), srcStride, dstStride);
                ASSERT_EQ(a, b) << w << "x" << rows << " pad " << pad;
            }
        }
    }
}

// Rows long enough for the 32- and 16-output steps and every tail after
// them, with values at the rounding edges (block sums 1020 and 2 mod 4).
TEST(DownScale, PlainAndVectorAgreeOnWideRows) {
    for (int w : {63, 64, 65, 95, 96, 97, 127, 128, 129, 159, 160, 161, 191, 192, 193, 255, 1001}) {
        for (int rows : {1, 2, 3}) {
            const int srcStride = w + 3, dstStride = (w + 1) / 2 + 1;
            auto src = RandomBytes(static_cast<size_t>(srcStride) * (rows + 1) + 1, w * 7 + rows);
            for (size_t i = 0; i < src.size(); i += 5) src[i] = (i / 5) % 3 == 0 ? 255 : 1;
            std::vector<uint8_t> a(static_cast<size_t>(dstStride) * ((rows + 1) / 2), 0x22), b = a;
            tocra::DownScalePlane(src.data(), rows, w, a.data(), srcStride, dstStride, tocra::DownScaleRow_C);
            Neon_DownScaleX4(src.data(), rows, w, b.data(), srcStride, dstStride);
            ASSERT_EQ(a, b) << w << "x" << rows;
        }
    }
}

TEST(DownScale, RoundedMeanOfEachBlockAndTheOddEdges) {
    // 3 x 3 source with stride 4 and the row after it: the odd column reads
    // the padding byte, the odd row's pair is the row after.
    const uint8_t src[] = {10,  11, 20,  40,  //
                           12,  14, 30,  50,  //
                           100, 0,  200, 7,   //
                           60,  80, 90,  255};
    uint8_t dst[4] = {};
    Neon_DownScaleX4(src, 3, 3, dst, 4, 2);
    EXPECT_EQ(dst[0], 12);   // (10 + 11 + 12 + 14 + 2) >> 2
    EXPECT_EQ(dst[1], 35);   // (20 + 40 + 30 + 50 + 2) >> 2
    EXPECT_EQ(dst[2], 60);   // (100 + 0 + 60 + 80 + 2) >> 2
    EXPECT_EQ(dst[3], 138);  // (200 + 7 + 90 + 255 + 2) >> 2
    // Without padding, column 3 of a row is the next row's first byte.
    const uint8_t tight[] = {10, 11, 20, 12, 14, 30, 77};
    Neon_DownScaleX4(tight, 2, 3, dst, 3, 2);
    EXPECT_EQ(dst[1], 35);  // (20 + 12 + 30 + 77 + 2) >> 2
}

// The band split by its definition: bands in order, each pair written where
// its band puts it, so a later band overwrites an earlier one. Returns the
// number of source bytes read (one past the last).
size_t BandsByDefinition(const std::vector<uint8_t>& src, int h, int w, int ss, std::vector<uint8_t>& dst, int ds) {
    size_t used = 0;
    auto at = [&](int row, int col) {
        const size_t i = static_cast<size_t>(row) * ss + col;
        used = std::max(used, i + 1);
        return static_cast<int>(src[i]);
    };
    const int band = h / 4;
    for (int k = 0; k < 4; ++k) {
        const int first = k * band, rows = k < 3 ? band : h - 3 * band;
        for (int r = 0; r < rows; r += 2) {
            for (int x = 0; 2 * x < w; ++x) {
                const int y = first + r, c = 2 * x;
                dst[static_cast<size_t>(k * (band >> 1) + r / 2) * ds + x] =
                    static_cast<uint8_t>((at(y, c) + at(y, c + 1) + at(y + 1, c) + at(y + 1, c + 1) + 2) >> 2);
            }
        }
    }
    return used;
}

TEST(DownScale, BandsFollowTheirDefinitionOnOddAndSmallSizes) {
    filter_test::StartPool();
    for (int h = 1; h <= 13; ++h) {
        for (int w = 1; w <= 13; ++w) {
            for (int pad : {0, 1}) {
                const int ss = w + pad, ds = (w + 1) / 2 + 2;
                // The source ends exactly after the last byte the definition reads.
                std::vector<uint8_t> big = RandomBytes(static_cast<size_t>(ss) * (h + 2), h * 31 + w + pad);
                std::vector<uint8_t> want(static_cast<size_t>(ds) * ((h + 1) / 2), 0xEE);
                const size_t used = BandsByDefinition(big, h, w, ss, want, ds);
                const std::vector<uint8_t> src(big.begin(), big.begin() + static_cast<std::ptrdiff_t>(used));
                std::vector<uint8_t> got(want.size(), 0xEE);
                ASSERT_EQ(DownScaleX4_Neon_MT(src.data(), got.data(), h, w, ss, ds), TOCRA_OK);
                ASSERT_EQ(got, want) << w << "x" << h << " pad " << pad;
            }
        }
    }
    filter_test::StopPool();
}

TEST(DownScale, HandWorkedOddBandsAndTheRowAfter) {
    filter_test::StartPool();
    // Height 6, width 3, stride 3: bands of 1 row, the last of rows 3..5.
    // Every band writes from output row 0, so the last band's rows stand:
    // pairs (3, 4) and (5, 6), row 6 being the row after the image. Column
    // 3 of a row is the next row's first byte; after row 6 comes byte 21.
    std::vector<uint8_t> src(22);
    for (int r = 0; r < 7; ++r)
        for (int c = 0; c < 3; ++c) src[r * 3 + c] = static_cast<uint8_t>(10 * r + c);
    src[21] = 99;
    std::vector<uint8_t> dst(2 * 3, 0xEE);
    ASSERT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), 6, 3, 3, 2), TOCRA_OK);
    EXPECT_EQ(dst[0], 36);    // (30 + 31 + 40 + 41 + 2) >> 2
    EXPECT_EQ(dst[1], 41);    // (32 + 40 + 42 + 50 + 2) >> 2
    EXPECT_EQ(dst[2], 56);    // (50 + 51 + 60 + 61 + 2) >> 2
    EXPECT_EQ(dst[3], 68);    // (52 + 60 + 62 + 99 + 2) >> 2
    EXPECT_EQ(dst[4], 0xEE);  // output row 2 is nobody's
    EXPECT_EQ(dst[5], 0xEE);
    filter_test::StopPool();
}

TEST(DownScale, BandsMatchTheWholePlaneAndOddBandsHaveOneWriterPerRow) {
    filter_test::StartPool();
    // Even bands (and heights below 4, all in the last band) give the whole-plane result.
    for (int h : {8, 16, 40, 2, 3}) {
        const int w = 37, srcStride = 40, dstStride = 24;
        const auto src = RandomBytes(static_cast<size_t>(srcStride) * (h + 1), h);
        std::vector<uint8_t> a(static_cast<size_t>(dstStride) * h, 0), b = a;
        tocra::DownScalePlane(src.data(), h, w, a.data(), srcStride, dstStride, tocra::DownScaleRow_C);
        ASSERT_EQ(DownScaleX4_Neon_MT(src.data(), b.data(), h, w, srcStride, dstStride), TOCRA_OK);
        ASSERT_EQ(a, b) << h;
    }
    // Height 12: bands of 3 rows; rows come from pairs (0,1) (3,4) (6,7) (9,10) (11,12).
    const int w = 16, h = 12;
    const auto src = RandomBytes(static_cast<size_t>(w) * (h + 1), 99);
    std::vector<uint8_t> dst(8 * 6, 0xAB);
    ASSERT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), h, w, w, 8), TOCRA_OK);
    const int pairs[5][2] = {{0, 1}, {3, 4}, {6, 7}, {9, 10}, {11, 12}};
    for (int r = 0; r < 5; ++r) {
        std::vector<uint8_t> two(2 * w);
        memcpy(two.data(), &src[pairs[r][0] * w], w);
        memcpy(two.data() + w, &src[pairs[r][1] * w], w);
        uint8_t want[8];
        tocra::DownScalePlane(two.data(), 2, w, want, w, 8, tocra::DownScaleRow_C);
        EXPECT_EQ(0, memcmp(want, &dst[r * 8], 8)) << r;
    }
    EXPECT_EQ(dst[5 * 8], 0xAB);
    filter_test::StopPool();
}

// ---- up-scale ----------------------------------------------------------------

// The up-scale by its definition, pixel by pixel.
std::vector<uint8_t> NaiveUp(const std::vector<uint8_t>& s, int w, int h, int ss, int ds) {
    std::vector<uint8_t> d(static_cast<size_t>(ds) * 2 * h, 0);
    auto S = [&](int y, int x) { return static_cast<int>(s[static_cast<size_t>(y) * ss + x]); };
    auto border = [&](int dy, int y) {
        uint8_t* row = &d[static_cast<size_t>(dy) * ds];
        row[0] = S(y, 0);
        for (int x = 0; x + 1 < w; ++x) {
            row[2 * x + 1] = (3 * S(y, x) + S(y, x + 1) + 2) >> 2;
            row[2 * x + 2] = (S(y, x) + 3 * S(y, x + 1) + 2) >> 2;
        }
        row[2 * w - 1] = S(y, w - 1);
    };
    border(0, 0);
    for (int y = 0; y + 1 < h; ++y) {
        uint8_t* r1 = &d[static_cast<size_t>(2 * y + 1) * ds];
        uint8_t* r2 = r1 + ds;
        for (int x = 0; x + 1 < w; ++x) {
            const int a = S(y, x), b = S(y, x + 1), c = S(y + 1, x), e = S(y + 1, x + 1);
            r1[2 * x + 1] = (9 * a + 3 * b + 3 * c + e + 8) >> 4;
            r1[2 * x + 2] = (3 * a + 9 * b + c + 3 * e + 8) >> 4;
            r2[2 * x + 1] = (3 * a + b + 9 * c + 3 * e + 8) >> 4;
            r2[2 * x + 2] = (a + 3 * b + 3 * c + 9 * e + 8) >> 4;
        }
        for (int side = 0; side < 2; ++side) {
            const int sx = side ? w - 1 : 0, dx = side ? 2 * w - 1 : 0;
            r1[dx] = (3 * S(y, sx) + S(y + 1, sx) + 2) >> 2;
            r2[dx] = (S(y, sx) + 3 * S(y + 1, sx) + 2) >> 2;
        }
    }
    border(2 * h - 1, h - 1);
    return d;
}

TEST(UpScale, PlainAndVectorPairsAgree) {
    for (int w = 1; w <= 40; ++w) {
        const int ss = w + 2, ds = 2 * w + 5, h = 4;
        const auto src = RandomBytes(static_cast<size_t>(ss) * h, w);
        std::vector<uint8_t> a(static_cast<size_t>(ds) * 2 * h, 0x33), b = a;
        tocra::UpScalePairs(src.data(), 0, h - 1, w, ss, a.data(), ds, tocra::UpScaleRow_C);
#if !defined(BRIMVEL_PLAIN_ONLY)
        tocra::UpScalePairs(src.data(), 0, h - 1, w, ss, b.data(), ds, tocra::UpScaleRow_NEON);
        ASSERT_EQ(a, b) << w;
#endif
    }
}

TEST(UpScale, MatchesTheDefinitionForEveryHeightAndWidth) {
    filter_test::StartPool();
    for (int h : {1, 2, 3, 4, 5, 10, 11, 23}) {
        for (int w : {1, 2, 3, 8, 9, 17, 26}) {
            const int ss = w + 1, ds = 2 * w + 3;
            const auto src = RandomBytes(static_cast<size_t>(ss) * h, h * 50 + w);
            std::vector<uint8_t> d(static_cast<size_t>(ds) * 2 * h, 0);
            MT_UpScale4X_NEON(src.data(), h, w, ss, ds, d.data());
            ASSERT_EQ(d, NaiveUp(src, w, h, ss, ds)) << w << "x" << h;
        }
    }
    filter_test::StopPool();
}

TEST(UpScale, HandWorkedTwoByTwoAndConstantPlanes) {
    const uint8_t src[] = {0, 16, 32, 48};
    uint8_t d[16];
    MT_UpScale4X_NEON(src, 2, 2, 2, 4, d);
    const uint8_t want[16] = {0,  4,  12, 16,  //
                              8,  12, 20, 24,  // (9*0 + 3*16 + 3*32 + 48 + 8) >> 4 = 12
                              24, 28, 36, 40,  //
                              32, 36, 44, 48};
    EXPECT_EQ(0, memcmp(d, want, 16));
    std::vector<uint8_t> flat(30 * 7, 201), out(60 * 14, 0);
    MT_UpScale4X_NEON(flat.data(), 7, 30, 30, 60, out.data());
    EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 201));
    // Width 1: each destination row is the source pixel twice.
    const uint8_t col[] = {10, 50};
    uint8_t two[8];
    MT_UpScale4X_NEON(col, 2, 1, 1, 2, two);
    const uint8_t wantCol[8] = {10, 10, 20, 20, 40, 40, 50, 50};
    EXPECT_EQ(0, memcmp(two, wantCol, 8));
}

// ---- error -----------------------------------------------------------------

TEST(UpScaleError, SaturatesAndWorksInPlace) {
    const uint8_t a[] = {255, 0, 100, 128, 0};
    uint8_t b[] = {0, 255, 100, 0, 128};
    int8_t e[5];
    UpScaleError_NEON(a, b, e, 5, 1, 5);
    const int8_t want[5] = {127, -128, 0, 127, -128};
    EXPECT_EQ(0, memcmp(e, want, 5));
    UpScaleError_NEON(a, b, reinterpret_cast<int8_t*>(b), 5, 1, 5);
    EXPECT_EQ(0, memcmp(b, want, 5));
}

TEST(UpScaleError, PlainVectorAndBandsAgree) {
    filter_test::StartPool();
    for (int w = 1; w <= 40; ++w) {
        for (int h : {1, 3, 7}) {
            const int stride = w + 4;
            const auto a = RandomBytes(static_cast<size_t>(stride) * h, w);
            auto b = RandomBytes(static_cast<size_t>(stride) * h, w + 1000);
            std::vector<int8_t> x(a.size(), 5), y(a.size(), 5);
            tocra::UpScaleErrorPlane(a.data(), b.data(), x.data(), w, h, stride, tocra::UpScaleErrorRow_C);
            ASSERT_EQ(UpScaleError_Neon_MT(a.data(), b.data(), y.data(), w, h, stride), 0);
            ASSERT_EQ(x, y);
            ASSERT_EQ(UpScaleError_Neon_MT(a.data(), b.data(), reinterpret_cast<int8_t*>(b.data()), w, h, stride), 0);
            for (size_t i = 0; i < b.size(); ++i)
                if (i % stride < static_cast<size_t>(w)) {
                    ASSERT_EQ(static_cast<int8_t>(b[i]), x[i]);
                }
        }
    }
    filter_test::StopPool();
}

TEST(Scaling, BadInputIsRefusedWithoutWriting) {
    std::vector<uint8_t> src(64, 9), dst(256, 1);
    tocra_test::ClearLog();
    EXPECT_EQ(DownScaleX4_Neon_MT(nullptr, dst.data(), 8, 8, 8, 4), TOCRA_NULL_POINTER);
    EXPECT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), 8, 8, 7, 4), TOCRA_NULL_POINTER);
    EXPECT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), -8, 8, 8, 4), TOCRA_NULL_POINTER);
    EXPECT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), 8, 8, 8, 0), TOCRA_NULL_POINTER);
    EXPECT_EQ(UpScaleError_Neon_MT(src.data(), nullptr, reinterpret_cast<int8_t*>(dst.data()), 8, 8, 8),
              TOCRA_NULL_POINTER);
    EXPECT_EQ(UpScaleError_Neon_MT(src.data(), src.data(), reinterpret_cast<int8_t*>(dst.data()), 8, 8, 4),
              TOCRA_NULL_POINTER);
    MT_UpScale4X_NEON(src.data(), 8, 8, 8, 15, dst.data());
    MT_UpScale4X_NEON(nullptr, 8, 8, 8, 16, dst.data());
    MT_UpScale4X_NEON(src.data(), -1, 8, 8, 16, dst.data());
    EXPECT_EQ(dst, std::vector<uint8_t>(256, 1));
    EXPECT_EQ(tocra_test::Log().size(), 9u);
    EXPECT_TRUE(
        tocra_test::Logged(6, "MT_UpScale4X_NEON invalid input: width[8] height[8] srcStride[8] dstStride[15]\n"));
    // Nothing to do is not an error: no line, nothing written.
    tocra_test::ClearLog();
    MT_UpScale4X_NEON(src.data(), 0, 8, 8, 16, dst.data());
    MT_UpScale4X_NEON(src.data(), 8, 0, 8, 16, dst.data());
    EXPECT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), 0, 8, 8, 4), TOCRA_OK);
    EXPECT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), 8, 0, 8, 0), TOCRA_OK);
    EXPECT_EQ(UpScaleError_Neon_MT(src.data(), src.data(), reinterpret_cast<int8_t*>(dst.data()), 8, 0, 8), 0);
    EXPECT_EQ(tocra_test::Log().size(), 0u);
    EXPECT_EQ(dst, std::vector<uint8_t>(256, 1));
    // An output row of 4 bytes for a width of 9 (5 outputs) would leave the
    // destination on its last row.
    EXPECT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), 4, 9, 9, 4), TOCRA_NULL_POINTER);
    Neon_DownScaleX4(src.data(), 2, 9, dst.data(), 9, 4);
    EXPECT_EQ(tocra_test::Log().size(), 2u);
    EXPECT_TRUE(tocra_test::Logged(6, "Neon_DownScaleX4 invalid input: width[9] rows[2] srcStride[9] dstStride[4]\n"));
    EXPECT_EQ(dst, std::vector<uint8_t>(256, 1));
    EXPECT_EQ(DownScaleX4_Neon_MT(src.data(), dst.data(), 4, 9, 9, 5), TOCRA_OK);
}

}  // namespace
