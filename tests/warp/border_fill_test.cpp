#include <random>

#include "warp_frames.h"

namespace {

using tocra_test::Frame;

using CopyFill = void (*)(tagST_PIC*, tagST_PIC*, int, int, int, int);
using SelfFill = void (*)(tagST_PIC*, int, int, int, int);

bool InArea(int c, int r, int x, int y, int w, int h) { return c >= x && c < x + w && r >= y && r < y + h; }

TEST(ConstantFill, WhiteFrameWithNeutralChromaAroundTheArea) {
    Frame dst(64, 32, false);
    dst.Fill(7);
    FillBlank2(&dst.pic, 8, 4, 40, 20);
    for (int r = 0; r < 32; ++r)
        for (int c = 0; c < 64; ++c) ASSERT_EQ(dst.Y(c, r), InArea(c, r, 8, 4, 40, 20) ? 7 : 255) << c << "," << r;
    for (int r = 0; r < 16; ++r) {
        for (int c = 0; c < 32; ++c) {
            const bool inside = c >= 4 && c < 24 && r >= 2 && r < 12;
            ASSERT_EQ(dst.u[r * 32 + c], inside ? 7 : 128);
            ASSERT_EQ(dst.v[r * 32 + c], inside ? 7 : 128);
        }
    }
}

TEST(CopyFill, BorderComesFromTheSourceAtTheSamePlaces) {
    for (bool nv12 : {false, true}) {
        Frame src(64, 32, nv12), dst(64, 32, nv12);
        src.Randomize(1);
        dst.Fill(7);
        (nv12 ? FillBlank_NV12 : FillBlank_YUV420)(&dst.pic, &src.pic, 6, 4, 50, 22);
        for (int r = 0; r < 32; ++r)
            for (int c = 0; c < 64; ++c)
                ASSERT_EQ(dst.Y(c, r), InArea(c, r, 6, 4, 50, 22) ? 7 : src.Y(c, r)) << c << "," << r;
        if (nv12) {
            for (int r = 0; r < 16; ++r)
                for (int c = 0; c < 64; ++c)
                    ASSERT_EQ(dst.u[r * 64 + c], InArea(c, r, 6, 2, 50, 11) ? 7 : src.u[r * 64 + c]);
        } else {
            // Chroma: columns 0 .. 2 and from (6 + 50) / 2 = 28 for (64 - 56) / 2 = 4 bytes.
            for (int r = 0; r < 16; ++r)
                for (int c = 0; c < 32; ++c) {
                    const bool inside = c >= 3 && c < 28 && r >= 2 && r < 13;
                    ASSERT_EQ(dst.u[r * 32 + c], inside ? 7 : src.u[r * 32 + c]) << c << "," << r;
                    ASSERT_EQ(dst.v[r * 32 + c], inside ? 7 : src.v[r * 32 + c]);
                }
        }
    }
}

TEST(CopyFill, OddTopRoundsUpSoOneAreaRowComesFromTheSource) {
    Frame src(32, 16, true), dst(32, 16, true);
    src.Randomize(2);
    dst.Fill(7);
    FillBlank_NV12(&dst.pic, &src.pic, 4, 3, 24, 8);
    for (int c = 0; c < 32; ++c) EXPECT_EQ(dst.Y(c, 3), src.Y(c, 3));  // row y of the area, whole
    EXPECT_EQ(dst.Y(10, 4), 7);
}

TEST(CopyFill, PlainAndVectorFormsAgreeOnEvenAreas) {
    std::mt19937 g(5);
    for (int trial = 0; trial < 40; ++trial) {
        const bool nv12 = trial & 1;
        const int W = 2 + 2 * static_cast<int>(g() % 60), H = 2 + 2 * static_cast<int>(g() % 30);
        Frame src(W, H, nv12), a(W, H, nv12), b(W, H, nv12);
        src.Randomize(trial);
        a.Fill(9);
        b.Fill(9);
        const int x = static_cast<int>(g() % (W + 1)), y = 2 * static_cast<int>(g() % (H / 2 + 1));
        const int w = static_cast<int>(g() % (W - x + 1)), h = static_cast<int>(g() % (H - y + 1));
        (nv12 ? FillBlank_NV12 : FillBlank_YUV420)(&a.pic, &src.pic, x, y, w, h);
        (nv12 ? FillBlank_neon_NV12 : FillBlank_neon_YUV420)(&b.pic, &src.pic, x, y, w, h);
        ASSERT_TRUE(a.Same(b)) << trial;
    }
}

TEST(Fills, WholePictureAreaChangesNothing) {
    for (bool nv12 : {false, true}) {
        Frame src(48, 16, nv12), dst(48, 16, nv12);
        src.Randomize(3);
        dst.Randomize(4);
        Frame before(dst);
        if (nv12) {
            FillBlank_NV12(&dst.pic, &src.pic, 0, 0, 48, 16);
            FillBlank_neon_NV12(&dst.pic, &src.pic, 0, 0, 48, 16);
        } else {
            FillBlank_YUV420(&dst.pic, &src.pic, 0, 0, 48, 16);
            FillBlank_neon_YUV420(&dst.pic, &src.pic, 0, 0, 48, 16);
            FillBlank2(&dst.pic, 0, 0, 48, 16);
            FillBlank3(&dst.pic, 0, 0, 48, 16);
            dst.pic.stride = 48;
            FillBlank3_Stride(&dst.pic, 0, 0, 48, 16);
        }
        EXPECT_TRUE(dst.Same(before));
    }
}

TEST(MirrorFill, LeftAndTopReflectWithoutRepeatingRightAndBottomWithRepeating) {
    Frame dst(32, 16, false);
    dst.Randomize(6);
    const int x = 2, y = 2, w = 26, h = 12;  // right border 4, bottom border 2
    FillBlank3(&dst.pic, x, y, w, h);
    for (int r = y; r < y + h; ++r) {
        EXPECT_EQ(dst.Y(0, r), dst.Y(4, r));
        EXPECT_EQ(dst.Y(1, r), dst.Y(3, r));
        const int last = x + w - 1;  // 27
        EXPECT_EQ(dst.Y(last + 1, r), dst.Y(last, r));
        EXPECT_EQ(dst.Y(last + 2, r), dst.Y(last - 1, r));
        EXPECT_EQ(dst.Y(last + 4, r), dst.Y(last - 3, r));
    }
    for (int c = 0; c < 32; ++c) {
        EXPECT_EQ(dst.Y(c, 0), dst.Y(c, 4));
        EXPECT_EQ(dst.Y(c, 1), dst.Y(c, 3));
        EXPECT_EQ(dst.Y(c, 14), dst.Y(c, 13));
        EXPECT_EQ(dst.Y(c, 15), dst.Y(c, 12));
    }
    // Chroma: edge 1 on the left (chroma[0] = chroma[2]), right edge 14 with
    // a border of 2, top row 0 from row 2, bottom row 7 from row 6.
    for (int r = 1; r < 7; ++r) {
        EXPECT_EQ(dst.u[r * 16 + 0], dst.u[r * 16 + 2]);
        EXPECT_EQ(dst.u[r * 16 + 14], dst.u[r * 16 + 13]);
        EXPECT_EQ(dst.v[r * 16 + 15], dst.v[r * 16 + 12]);
    }
    for (int c = 0; c < 16; ++c) {
        EXPECT_EQ(dst.u[0 * 16 + c], dst.u[2 * 16 + c]);
        EXPECT_EQ(dst.v[7 * 16 + c], dst.v[6 * 16 + c]);
    }
}

TEST(MirrorFill, StrideFormUsesTheStrideAndTheRoundedChromaPitch) {
    // Width 100: luma stride 128, chroma pitch (50 + 127) & ~127 = 128.
    Frame a(100, 16, false, 128, 128);
    a.Randomize(7);
    a.pic.stride = 128;
    Frame b(a);
    b.pic.stride = 128;
    FillBlank3_Stride(&a.pic, 4, 2, 90, 12);
    // The same mirror done by hand on row 5 and chroma row 3.
    for (int i = 0; i < 4; ++i) EXPECT_EQ(a.y[5 * 128 + i], b.y[5 * 128 + 8 - i]);
    for (int d = 0; d < 6; ++d) EXPECT_EQ(a.y[5 * 128 + 94 + d], b.y[5 * 128 + 93 - d]);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(a.u[3 * 128 + i], b.u[3 * 128 + 4 - i]);
    for (int c = 0; c < 100; ++c) EXPECT_EQ(a.y[0 * 128 + c], a.y[4 * 128 + c]);
}

TEST(Fills, BadInputIsRefusedWithALogLine) {
    Frame src(32, 16, false), dst(32, 16, false);
    dst.Fill(5);
    Frame before(dst);
    tocra_test::ClearLog();
    FillBlank2(nullptr, 0, 0, 4, 4);
    FillBlank2(&dst.pic, -2, 0, 4, 4);
    FillBlank2(&dst.pic, 0, 0, 40, 4);
    FillBlank_YUV420(&dst.pic, nullptr, 0, 0, 4, 4);
    FillBlank_NV12(&dst.pic, &src.pic, 0, 14, 4, 4);
    FillBlank_neon_YUV420(&dst.pic, &src.pic, 0, 0, 4, -4);
    FillBlank_neon_NV12(&dst.pic, nullptr, 0, 0, 4, 4);
    // Borders wider than the area beside them.
    FillBlank3(&dst.pic, 10, 0, 8, 16);
    FillBlank3(&dst.pic, 0, 6, 32, 4);
    FillBlank3(&dst.pic, 0, 0, 10, 16);
    FillBlank3_Stride(&dst.pic, 0, 0, 32, 4);
    tagST_PIC odd = dst.pic;
    odd.height = 15;
    FillBlank2(&odd, 0, 0, 4, 4);
    EXPECT_TRUE(dst.Same(before));
    EXPECT_EQ(tocra_test::CountLogged("FillBlank2 invalid input: picture or area out of range\n"), 4);
    EXPECT_TRUE(tocra_test::Logged(6, "FillBlank3 invalid input: border wider than the area beside it\n"));
    EXPECT_TRUE(tocra_test::Logged(6, "FillBlank3_Stride invalid input: border wider than the area beside it\n"));
    EXPECT_TRUE(tocra_test::Logged(6, "FillBlank_NV12 invalid input: picture or area out of range\n"));
}

}  // namespace
