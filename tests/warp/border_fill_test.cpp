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
    FillBlank2(&dst.pic, -2, 0, 4, 4);  // a copy of -2 bytes on the left
    FillBlank2(&dst.pic, 0, 0, 40, 4);  // and of -8 on the right
    FillBlank_YUV420(&dst.pic, nullptr, 0, 0, 4, 4);
    FillBlank_NV12(&dst.pic, &src.pic, 0, 14, 4, 4);  // rows 16 and 17
    FillBlank_neon_NV12(&dst.pic, nullptr, 0, 0, 4, 4);
    // The mirror reading before the plane: the right side of row 0 from
    // column 10 - 22, the bottom rows from row -1 on.
    FillBlank3(&dst.pic, 0, 0, 10, 16);
    FillBlank3(&dst.pic, 0, 0, 32, -2);
    FillBlank3_Stride(&dst.pic, 0, 0, 32, 4);
    tagST_PIC odd = dst.pic;
    odd.height = 15;  // the last row pair writes row 15
    FillBlank2(&odd, 0, 0, 4, 4);
    EXPECT_TRUE(dst.Same(before));
    EXPECT_EQ(tocra_test::CountLogged("FillBlank2 invalid input: picture or area out of range\n"), 4);
    EXPECT_EQ(tocra_test::CountLogged("FillBlank3 invalid input: picture or area out of range\n"), 2);
    EXPECT_TRUE(tocra_test::Logged(6, "FillBlank3_Stride invalid input: picture or area out of range\n"));
    EXPECT_TRUE(tocra_test::Logged(6, "FillBlank_NV12 invalid input: picture or area out of range\n"));
    EXPECT_TRUE(tocra_test::Logged(6, "FillBlank_neon_NV12 invalid input: picture or area out of range\n"));
}

TEST(CopyFill, OddWidthOddAreaByHand) {
    // 7 x 6, area (1, 1, 4, 3): the plain forms copy rows 0 and 1 whole (y
    // rounded up), then rows 2 and 3 beside the area (luma columns 0 and 5,
    // 6; planar chroma row 1 from column (1 + 4) / 2 = 2 for (7 - 5) / 2 = 1
    // byte; NV12 chroma row 1 bytes 0 and 5, 6), then rows 4 and 5 whole.
    // The source's own width and height are never read.
    for (bool nv12 : {false, true}) {
        Frame src(7, 6, nv12), dst(7, 6, nv12);
        src.Randomize(17);
        src.pic.width = 1;
        src.pic.height = 1;
        dst.Fill(7);
        (nv12 ? FillBlank_NV12 : FillBlank_YUV420)(&dst.pic, &src.pic, 1, 1, 4, 3);
        for (int r = 0; r < 6; ++r) {
            for (int c = 0; c < 7; ++c) {
                const bool copied = r < 2 || r > 3 || c < 1 || c >= 5;
                ASSERT_EQ(dst.Y(c, r), copied ? src.Y(c, r) : 7) << nv12 << " " << c << "," << r;
            }
        }
        const int cw = nv12 ? 7 : 3;
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < cw; ++c) {
                const bool copied = r != 1 || (nv12 ? (c < 1 || c >= 5) : c == 2);
                const size_t i = static_cast<size_t>(r * cw + c);
                ASSERT_EQ(dst.u[i], copied ? src.u[i] : 7) << nv12 << " " << c << "," << r;
                if (!nv12) {
                    ASSERT_EQ(dst.v[i], copied ? src.v[i] : 7);
                }
            }
        }
    }
}

TEST(CopyFill, NegativeHeightCopiesEveryRow) {
    // No area band: the top band and the bottom band together are the whole
    // picture, plain and vector forms alike.
    for (bool nv12 : {false, true}) {
        for (CopyFill fill :
             {nv12 ? FillBlank_NV12 : FillBlank_YUV420, nv12 ? FillBlank_neon_NV12 : FillBlank_neon_YUV420}) {
            Frame src(7, 6, nv12), dst(7, 6, nv12);
            src.Randomize(3);
            dst.Fill(1);
            fill(&dst.pic, &src.pic, 2, 2, 4, -2);
            EXPECT_TRUE(dst.Same(src)) << nv12;
        }
    }
}

// The mirror as described, on flat planes (bounds-checked access): a read
// past a row's end takes the next row's bytes.
void RefMirror(Frame& f, int pitch, int cpitch, int x, int y, int w, int h) {
    const int W = f.width, Hh = f.height;
    auto Y = [&](int r, int c) -> uint8_t& { return f.y.at(static_cast<size_t>(r * pitch + c)); };
    for (int k = 0; 2 * k < h; ++k) {
        for (int j = 0; j < 2; ++j) {
            const int r = y + 2 * k + j;
            if (r >= y + h) continue;
            for (int i = 0; i < x; ++i) Y(r, i) = Y(r, 2 * x - i);
            for (int d = 0; d < W - x - w; ++d) Y(r, x + w + d) = Y(r, x + w - 1 - d);
        }
        for (std::vector<uint8_t>* plane : {&f.u, &f.v}) {
            auto C = [&](int c) -> uint8_t& { return plane->at(static_cast<size_t>(((y >> 1) + k) * cpitch + c)); };
            for (int i = 0; i < (x >> 1); ++i) C(i) = C(x - i);
            const int edge = (x + w) >> 1;
            for (int d = 0; d < ((W - x - w) >> 1); ++d) C(edge + d) = C(edge - 1 - d);
        }
    }
    auto copyRow = [](std::vector<uint8_t>& p, int rowBytes, int to, int from) {
        for (int c = 0; c < rowBytes; ++c)
            p.at(static_cast<size_t>(to * rowBytes + c)) = p.at(static_cast<size_t>(from * rowBytes + c));
    };
    for (int i = 0; i < y; ++i) copyRow(f.y, pitch, i, 2 * y - i);
    if (y >= 2) {
        for (int i = 0; i < (y >> 1); ++i) {
            copyRow(f.u, cpitch, i, y - i);
            copyRow(f.v, cpitch, i, y - i);
        }
    }
    for (int r = y + h; r < Hh; ++r) copyRow(f.y, pitch, r, 2 * (y + h) - 1 - r);
    const int cb = (y >> 1) + (h >> 1);
    for (int k = 0; ((y + h) >> 1) + k < (Hh >> 1); ++k) {
        copyRow(f.u, cpitch, cb + k, cb - 1 - k);
        copyRow(f.v, cpitch, cb + k, cb - 1 - k);
    }
}

TEST(MirrorFill, BordersWiderThanTheAreaReadOnIntoTheNextRow) {
    // 13 x 10 with the area (8, 2, 4, 6): the left border of 8 reads columns
    // 16 down to 9, the first four of them (16 to 13) in the next row;
    // chroma reads columns 8 down to 5 of rows 6 bytes long. Everything stays inside the
    // planes, so it runs as described. Exact-size planes: ASan sees any read
    // past them.
    struct Case {
        int x, y, w, h;
    };
    for (Case k : {Case{8, 2, 4, 6}, Case{1, 2, 6, 6}, Case{5, 3, 2, 6}, Case{0, 4, 13, 6}}) {
        Frame a(13, 10, false, 13, 6);
        a.Randomize(static_cast<uint32_t>(k.x + 10 * k.y));
        Frame want(a);
        RefMirror(want, 13, 6, k.x, k.y, k.w, k.h);
        tocra_test::ClearLog();
        FillBlank3(&a.pic, k.x, k.y, k.w, k.h);
        EXPECT_TRUE(tocra_test::Log().empty()) << k.x << "," << k.y;
        EXPECT_EQ(a.y, want.y) << k.x << "," << k.y;
        EXPECT_EQ(a.u, want.u) << k.x << "," << k.y;
        EXPECT_EQ(a.v, want.v) << k.x << "," << k.y;

        // The stride form: luma pitch 16, chroma pitch (13 / 2) rounded up to
        // 128.
        Frame b(13, 10, false, 16, 128);
        b.Randomize(static_cast<uint32_t>(k.x + 10 * k.y + 5));
        Frame wantB(b);
        RefMirror(wantB, 16, 128, k.x, k.y, k.w, k.h);
        FillBlank3_Stride(&b.pic, k.x, k.y, k.w, k.h);
        EXPECT_EQ(b.y, wantB.y) << k.x << "," << k.y;
        EXPECT_EQ(b.u, wantB.u) << k.x << "," << k.y;
        EXPECT_EQ(b.v, wantB.v) << k.x << "," << k.y;
    }
}

}  // namespace
