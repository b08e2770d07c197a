#include <cmath>
#include <random>

#include "warp/warp_internal.h"
#include "warp_frames.h"

namespace {

using tocra_test::Frame;

struct Matrix {
    float h[9];
};

Matrix Identity() { return Matrix{{1, 0, 0, 0, 1, 0, 0, 0, 1}}; }

// A random matrix near the identity: small rotation and scale, translation
// of a few pixels, slight perspective.
Matrix NearIdentity(std::mt19937& g) {
    std::uniform_real_distribution<float> a(-0.02f, 0.02f), t(-4.0f, 4.0f), p(-2e-5f, 2e-5f);
    return Matrix{{1 + a(g), a(g), t(g), a(g), 1 + a(g), t(g), p(g), p(g), 1}};
}

std::vector<unsigned char> Table(int width) {
    return std::vector<unsigned char>(static_cast<size_t>(width / 8 + 8) * 16);
}

using WarpFn = int (*)(tagST_PIC*, tagST_PIC*, tagST_PIC*, float*, tagST_REGISTRATION_AREA*, unsigned char*);

int Warp(WarpFn fn, Frame& src, Frame& dst, Matrix m, tagST_REGISTRATION_AREA area) {
    auto table = Table(dst.pitch);
    tagST_PIC ref = src.pic;
    return fn(&ref, &src.pic, &dst.pic, m.h, &area, table.data());
}

// The same with the source's planes in one block (JoinedFrame).
int WarpJoined(WarpFn fn, const Frame& src, Frame& dst, Matrix m, tagST_REGISTRATION_AREA area) {
    tocra_test::JoinedFrame joined(src);
    auto table = Table(dst.pitch);
    tagST_PIC ref = joined.pic;
    return fn(&ref, &joined.pic, &dst.pic, m.h, &area, table.data());
}

struct Variant {
    const char* name;
    WarpFn fn;
    bool nv12;
};

const Variant kVariants[] = {
    {"AffineTransform_YUV420", AffineTransform_YUV420, false},
    {"AffineTransform_NV12", AffineTransform_NV12, true},
    {"AffineTransform_neon_YUV420", AffineTransform_neon_YUV420, false},
    {"AffineTransform_neon_NV12", AffineTransform_neon_NV12, true},
};

TEST(PerspectiveWarp, IdentityReproducesTheSourceInsideTheArea) {
    for (const Variant& v : kVariants) {
        // The whole frame (the last block's third texel column is the next
        // row's first byte; the last row pair reads the row after the luma,
        // the chroma's first bytes, with weight 0) from a frame in one block.
        for (tagST_REGISTRATION_AREA area :
             {tagST_REGISTRATION_AREA{0, 0, 64, 48}, tagST_REGISTRATION_AREA{8, 6, 40, 32}}) {
            Frame src(64, 48, v.nv12);
            src.Randomize(3);
            Frame dst(64, 48, v.nv12);
            ASSERT_EQ(WarpJoined(v.fn, src, dst, Identity(), area), 0) << v.name;
            for (int r = area.y; r < area.y + area.height; ++r)
                for (int c = area.x; c < area.x + area.width; ++c)
                    ASSERT_EQ(dst.Y(c, r), src.Y(c, r)) << v.name << " " << c << "," << r;
            // Chroma of the area: the nearest sample of each block is its own.
            for (int r = area.y / 2; r < (area.y + area.height) / 2; ++r) {
                if (v.nv12) {
                    for (int c = area.x; c < area.x + area.width; ++c)
                        ASSERT_EQ(dst.u[r * dst.pitch + c], src.u[r * src.pitch + c]) << v.name;
                } else {
                    for (int c = area.x / 2; c < (area.x + area.width) / 2; ++c) {
                        ASSERT_EQ(dst.u[r * dst.chromaPitch + c], src.u[r * src.chromaPitch + c]) << v.name;
                        ASSERT_EQ(dst.v[r * dst.chromaPitch + c], src.v[r * src.chromaPitch + c]) << v.name;
                    }
                }
            }
        }
    }
}

TEST(PerspectiveWarp, StrideVariantIdentityUsesThe128AlignedPitches) {
    // Width 200: luma pitch 256, chroma pitch 128.
    // The whole frame, the source in one block.
    Frame src(200, 32, false, 256, 128), dst(200, 32, false, 256, 128);
    src.Randomize(9);
    tocra_test::JoinedFrame joined(src);
    tagST_REGISTRATION_AREA area{0, 0, 200, 32};
    Matrix m = Identity();
    auto table = Table(256);
    tagST_PIC ref = joined.pic;
    joined.pic.stride = 0;
    ASSERT_EQ(AffineTransform_neon_Stride_YUV420(&ref, &joined.pic, &dst.pic, m.h, &area, table.data()), TOCRA_OK);
    EXPECT_EQ(joined.pic.stride, 256);
    EXPECT_EQ(dst.pic.stride, 256);
    for (int r = 0; r < 32; ++r)
        for (int c = 0; c < 200; ++c) ASSERT_EQ(dst.Y(c, r), src.Y(c, r));
    for (int r = 0; r < 16; ++r)
        for (int c = 0; c < 100; ++c) ASSERT_EQ(dst.u[r * 128 + c], src.u[r * 128 + c]);
}

TEST(PerspectiveWarp, HalfPixelShiftAveragesNeighboursWithRounding) {
    for (const Variant& v : kVariants) {
        Frame src(64, 32, v.nv12), dst(64, 32, v.nv12);
        src.Randomize(5);
        Matrix m = Identity();
        m.h[2] = 0.5f;
        ASSERT_EQ(WarpJoined(v.fn, src, dst, m, {0, 0, 56, 32}), 0);
        for (int r = 0; r < 32; ++r)
            for (int c = 0; c < 56; ++c)
                ASSERT_EQ(dst.Y(c, r), (src.Y(c, r) + src.Y(c + 1, r) + 1) >> 1) << v.name << " " << c << "," << r;
    }
}

// Straight from the definition, pixel by pixel: the divisor of a pixel is
// the one of its run's first column, accumulated run by run; the fractions
// come from the block's top-left pixel.
uint8_t ReferencePixel(const Frame& s, const Matrix& m, int x, int c, int r) {
    const int bc = c & ~1, br = r & ~1;  // block top-left (x, y even)
    const int run = (bc - x) / 8;
    float D = m.h[6] * static_cast<float>(x) + m.h[7] * static_cast<float>(br) + 1.0f;
    for (int k = 0; k < run; ++k) D += 8.0f * m.h[6];
    const float q = 1.0f / D;
    const float sx = (m.h[0] * bc + m.h[1] * br + m.h[2]) * q;
    const float sy = (m.h[3] * bc + m.h[4] * br + m.h[5]) * q;
    const int ix = static_cast<int>(sx), iy = static_cast<int>(sy);
    const int fx = static_cast<int>(std::fabs(sx - ix) * 128.0f), fy = static_cast<int>(std::fabs(sy - iy) * 128.0f);
    const int bx = ix + (c - bc), by = iy + (r - br);
    const int T = (128 - fx) * s.Y(bx, by) + fx * s.Y(bx + 1, by);
    const int B = (128 - fx) * s.Y(bx, by + 1) + fx * s.Y(bx + 1, by + 1);
    return static_cast<uint8_t>((((T + 32) >> 6) * (128 - fy) + ((B + 32) >> 6) * fy + 128) >> 8);
}

TEST(PerspectiveWarp, PerspectiveMatchesTheDefinitionWithTheDivisorHeldPerRun) {
    Frame src(128, 64, false), dst(128, 64, false);
    src.Randomize(11);
    // Strong perspective: the divisor changes by ~0.5% per column.
    Matrix m{{0.9f, 0.01f, 4.0f, -0.01f, 0.9f, 3.0f, 0.0006f, 0.0001f, 1.0f}};
    const tagST_REGISTRATION_AREA area{4, 2, 64, 40};
    ASSERT_EQ(Warp(AffineTransform_YUV420, src, dst, m, area), TOCRA_OK);
    int differsFromExact = 0;
    for (int r = area.y; r < area.y + area.height; ++r) {
        for (int c = area.x; c < area.x + area.width; ++c) {
            ASSERT_EQ(dst.Y(c, r), ReferencePixel(src, m, area.x, c, r)) << c << "," << r;
            // With a fresh divisor per block the mapping of the other
            // blocks of a run moves.
            const int bc = c & ~1, br = r & ~1;
            const float D = m.h[6] * bc + m.h[7] * br + 1.0f;
            const float sx = (m.h[0] * bc + m.h[1] * br + m.h[2]) / D;
            const float heldSx = (m.h[0] * bc + m.h[1] * br + m.h[2]) *
                                 (1.0f / (m.h[6] * (area.x + ((bc - area.x) & ~7)) + m.h[7] * br + 1.0f));
            if (((bc - area.x) & 7) != 0 && std::fabs(sx - heldSx) * 128.0f >= 1.0f) ++differsFromExact;
        }
    }
    EXPECT_GT(differsFromExact, 100);
}

#if !defined(BRIMVEL_PLAIN_ONLY)
TEST(PerspectiveWarp, PlainAndVectorRowsGiveTheSameBytesAndTheSameChecks) {
    std::mt19937 g(21);
    int refused = 0, edge = 0;
    for (int trial = 0; trial < 80; ++trial) {
        const bool nv12 = trial & 1;
        const int W = 16 + 2 * static_cast<int>(g() % 100), H = 8 + 2 * static_cast<int>(g() % 40);
        const int pitch = W + 2 * static_cast<int>(g() % 8);
        Frame src(W, H, nv12, pitch, pitch / 2), a(W, H, nv12, pitch, pitch / 2), b(W, H, nv12, pitch, pitch / 2);
        src.Randomize(trial);
        Matrix m = NearIdentity(g);
        if (trial % 5 == 0) {  // far off the picture
            m.h[2] += (g() & 1) ? 3 * W : -3.0f * W;
            m.h[6] *= 50;
        } else if (trial % 5 == 1) {  // reaching over the left, right or bottom edge
            m.h[2] += (g() & 1) ? 1.5f : -1.5f;
            m.h[5] += 2.0f;
        }
        const int x = 2 * static_cast<int>(g() % (W / 4)), w = 2 * static_cast<int>(g() % ((W - x) / 2 + 1));
        std::vector<float> table(static_cast<size_t>(W / 8 + 1) * 4);
        tocra::FillColumnTable(table.data(), x, W / 8);
        const tocra::WarpPlanes pa{src.y.data(),
                                   src.u.data(),
                                   nv12 ? nullptr : src.v.data(),
                                   a.y.data(),
                                   a.u.data(),
                                   nv12 ? nullptr : a.v.data(),
                                   pitch,
                                   nv12 ? pitch : pitch / 2,
                                   H,
                                   nv12};
        tocra::WarpPlanes pb = pa;
        pb.dstY = b.y.data();
        pb.dstU = b.u.data();
        pb.dstV = nv12 ? nullptr : b.v.data();
        for (int r = 0; r + 1 < H; r += 2) {
            const bool two = (r / 2) % 3 != 2, chroma = (r / 2) % 4 != 1;
            const bool inside = tocra::WarpRowInside_C(pa, m.h, x, w, r, two, table.data(), chroma);
            ASSERT_EQ(tocra::WarpRowInside_NEON(pa, m.h, x, w, r, two, table.data(), chroma), inside)
                << "trial " << trial << " row " << r;
            if (!inside) {
                ++refused;
                continue;
            }
            tocra::WarpRow_C(pa, m.h, x, w, r, two, table.data(), chroma);
            tocra::WarpRow_NEON(pb, m.h, x, w, r, two, table.data(), chroma);
        }
        if (trial % 5 == 1) ++edge;
        ASSERT_TRUE(a.Same(b)) << "trial " << trial << " W " << W << " x " << x << " w " << w;
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(edge, 0);
}
#endif

TEST(PerspectiveWarp, ThreadedVariantsEqualThePlainOnesWhenBandsAreEven) {
    std::mt19937 g(7);
    for (int trial = 0; trial < 12; ++trial) {
        Matrix m = NearIdentity(g);
        const tagST_REGISTRATION_AREA area{8, 8, 96, 48};  // h / 4 even
        for (bool nv12 : {false, true}) {
            Frame src(128, 64, nv12), a(128, 64, nv12), b(128, 64, nv12);
            src.Randomize(100 + trial);
            ASSERT_EQ(Warp(nv12 ? AffineTransform_NV12 : AffineTransform_YUV420, src, a, m, area), TOCRA_OK);
            ASSERT_EQ(Warp(nv12 ? AffineTransform_neon_NV12 : AffineTransform_neon_YUV420, src, b, m, area), TOCRA_OK);
            ASSERT_TRUE(a.Same(b)) << trial << (nv12 ? " nv12" : " planar");
        }
        // The stride variant with 128-aligned pitches (width 256).
        Frame src(256, 48, false), a(256, 48, false), b(256, 48, false);
        src.Randomize(200 + trial);
        const tagST_REGISTRATION_AREA area2{16, 16, 224, 16};
        ASSERT_EQ(Warp(AffineTransform_YUV420, src, a, m, area2), TOCRA_OK);
        ASSERT_EQ(Warp(AffineTransform_neon, src, b, m, area2), TOCRA_OK);
        ASSERT_TRUE(a.Same(b)) << trial << " stride";
    }
}

TEST(PerspectiveWarp, DispatchersChooseByFormat) {
    Frame src(64, 32, false), a(64, 32, false), b(64, 32, false);
    src.Randomize(4);
    Matrix m = Identity();
    m.h[2] = 1.25f;
    ASSERT_EQ(WarpJoined(AffineTransform, src, a, m, {0, 0, 56, 32}), 0);
    ASSERT_EQ(WarpJoined(AffineTransform_YUV420, src, b, m, {0, 0, 56, 32}), 0);
    EXPECT_TRUE(a.Same(b));
    // Any format but 2 is NV12.
    for (int format : {0, 1, 3}) {
        Frame s(64, 32, true), c(64, 32, true), d(64, 32, true);
        s.Randomize(5);
        s.pic.format = format;
        ASSERT_EQ(WarpJoined(AffineTransform, s, c, m, {0, 0, 56, 32}), 0);
        ASSERT_EQ(WarpJoined(AffineTransform_NV12, s, d, m, {0, 0, 56, 32}), 0);
        EXPECT_TRUE(c.Same(d)) << format;
    }
}

TEST(PerspectiveWarp, BandsLeaveTheRowsAfterFourEqualBandsUnwarped) {
    for (bool nv12 : {false, true}) {
        Frame src(64, 48, nv12), dst(64, 48, nv12);
        src.Randomize(8);
        dst.Fill(7);
        const tagST_REGISTRATION_AREA area{0, 0, 64, 46};  // 4 bands of 11 rows; rows 44, 45 left over
        ASSERT_EQ(Warp(nv12 ? AffineTransform_neon_NV12 : AffineTransform_neon_YUV420, src, dst, Identity(), area),
                  TOCRA_OK);
        for (int r = 0; r < 44; ++r)
            for (int c = 0; c < 64; ++c) ASSERT_EQ(dst.Y(c, r), src.Y(c, r)) << r;
        for (int r = 44; r < 46; ++r)
            for (int c = 0; c < 64; ++c) ASSERT_EQ(dst.Y(c, r), 7) << r;
    }
}

TEST(PerspectiveWarp, OneBandOnTheCallingThreadEqualsFourThreads) {
    Frame src(96, 64, false), a(96, 64, false), b(96, 64, false);
    src.Randomize(12);
    std::mt19937 g(3);
    Matrix m = NearIdentity(g);
    const tagST_REGISTRATION_AREA area{8, 8, 80, 48};
    std::vector<float> table(96 / 8 * 4);
    tocra::FillColumnTable(table.data(), area.x, 96 / 8);
    tocra::WarpJob job{};
    job.planes = {src.y.data(), src.u.data(), src.v.data(), a.y.data(), a.u.data(), a.v.data(), 96, 48, 64, false};
    job.H = m.h;
    job.table = table.data();
    job.x = area.x;
    job.y = area.y;
    job.w = area.width;
    job.h = area.height;
    job.row = tocra::DefaultWarpRow();
    job.inside = tocra::DefaultWarpCheck();
    ASSERT_TRUE(tocra::BandInside(job, 0, 1));
    tocra::WarpBand(job, 0, 1);
    job.planes.dstY = b.y.data();
    job.planes.dstU = b.u.data();
    job.planes.dstV = b.v.data();
    for (int band = 0; band < 4; ++band) tocra::WarpBand(job, band, 4);
    EXPECT_TRUE(a.Same(b));
}

TEST(PerspectiveWarp, HeightZeroGivesOnlyTheFill) {
    Frame src(64, 32, true), dst(64, 32, true);
    src.Randomize(2);
    dst.Fill(9);
    ASSERT_EQ(Warp(AffineTransform_NV12, src, dst, Identity(), {0, 0, 64, 0}), TOCRA_OK);
    EXPECT_TRUE(dst.Same(src));  // the copy fill covers everything
}

TEST(PerspectiveWarp, PlanarVectorVariantLogsTheAreaHeight) {
    Frame src(64, 32, false), dst(64, 32, false);
    tocra_test::ClearLog();
    ASSERT_EQ(Warp(AffineTransform_neon_YUV420, src, dst, Identity(), {0, 0, 64, 24}), TOCRA_OK);
    EXPECT_TRUE(tocra_test::Logged(4, "Reg pstRegistrationArea->realHeight = 24\n"));
}

TEST(PerspectiveWarp, MatricesThatReadOutsideTheSourceAreRefusedBeforeAnythingIsWritten) {
    // Exact-size planes: ASan reports any read past them. The area leaves
    // the last rows for the lower texels of the last row pair.
    struct Case {
        float h[9];
        bool accepted;
    };
    const Case cases[] = {
        {{1, 0, 5000, 0, 1, 0, 0, 0, 1}, false},       // far right
        {{1, 0, -5000, 0, 1, -5000, 0, 0, 1}, false},  // far up and left
        {{1, 0, 0, 0, 1, 1e30f, 0, 0, 1}, false},      // beyond the int range
        {{1, 0, 0, 0, 1, 0, -0.5f, 0, 1}, false},      // D crosses 0 in the second run
        {{1, 0, 0, 0, 1, 4.0f, 0, 0, 1}, false},       // four rows down: the last rows read row 32
        {{1, 0, -1.0f, 0, 1, 0, 0, 0, 1}, false},      // one column left: row 0 reads before the plane
        {{0, 0, 0, 0, 0, 0, 0, 0, 0}, true},           // every block samples (0, 0)
        {{NAN, 0, 0, 0, 1, 0, 0, 0, 1}, true},         // NaN columns convert to 0, as on ARM
        {{1, 0, 0, 0, 1, 0, 0, 0, 1}, true},           // the identity
    };
    const tagST_REGISTRATION_AREA area{0, 0, 48, 30};
    for (const Variant& v : kVariants) {
        for (const Case& k : cases) {
            Matrix m;
            memcpy(m.h, k.h, sizeof m.h);
            Frame src(48, 32, v.nv12), dst(48, 32, v.nv12);
            src.Randomize(1);
            dst.Fill(5);
            const Frame before(dst);
            tocra_test::ClearLog();
            const int status = Warp(v.fn, src, dst, m, area);
            if (k.accepted) {
                EXPECT_EQ(status, 0) << v.name << " " << k.h[2];
                continue;
            }
            EXPECT_EQ(status, -998) << v.name << " " << k.h[2] << " " << k.h[5];
            EXPECT_TRUE(dst.Same(before)) << v.name;
            EXPECT_TRUE(
                tocra_test::Logged(6, std::string(v.name) + " invalid input: picture, matrix or area out of range\n"))
                << v.name;
        }
    }
}

TEST(PerspectiveWarp, AReadPastARowsEndIntoTheNextRowIsDoneAsDescribed) {
    // Shifted one column right: the last block of each row reads the next
    // row's first texel (inside the plane), which the definition blends in.
    for (const Variant& v : kVariants) {
        Frame src(16, 12, v.nv12), dst(16, 12, v.nv12);
        src.Randomize(6);
        Matrix m = Identity();
        m.h[2] = 1.5f;  // fx = 64
        ASSERT_EQ(Warp(v.fn, src, dst, m, {0, 0, 16, 8}), 0) << v.name;
        for (int r = 0; r < 8; ++r) {
            // Column 15 blends source columns 16 and 17, that is the next
            // row's columns 0 and 1.
            const int a = src.y[static_cast<size_t>(r * 16 + 16)], b = src.y[static_cast<size_t>(r * 16 + 17)];
            EXPECT_EQ(dst.Y(15, r), (a + b + 1) >> 1) << v.name << " row " << r;
        }
    }
    // The whole frame: the last row pair reads one row past the luma. With
    // the planes in separate blocks that row is outside and the call is
    // refused, nothing written.
    for (const Variant& v : kVariants) {
        Frame src(16, 8, v.nv12), dst(16, 8, v.nv12);
        src.Randomize(7);
        dst.Fill(4);
        const Frame before(dst);
        EXPECT_EQ(Warp(v.fn, src, dst, Identity(), {0, 0, 16, 8}), -998) << v.name;
        EXPECT_TRUE(dst.Same(before)) << v.name;
    }
}

TEST(PerspectiveWarp, AReadPastTheLumaIntoTheChromaOfAFrameInOneBlockIsDoneAsDescribed) {
    // The source's planes in one heap block ending at the frame's end
    // (ASan reports any read after it). Half a row down (fy = 64): the last
    // luma row blends itself with the row after the luma, which is the
    // chroma's first bytes: (Y + U + 1) >> 1, worked by hand below.
    for (const Variant& v : kVariants) {
        for (int W : {16, 48}) {
            const int Hh = 8;
            Frame src(W, Hh, v.nv12), dst(W, Hh, v.nv12);
            src.Randomize(40 + W);
            Matrix m = Identity();
            m.h[5] = 0.5f;
            ASSERT_EQ(WarpJoined(v.fn, src, dst, m, {0, 0, W, Hh}), 0) << v.name;
            for (int r = 0; r + 1 < Hh; ++r)
                for (int c = 0; c < W; ++c)
                    ASSERT_EQ(dst.Y(c, r), (src.Y(c, r) + src.Y(c, r + 1) + 1) >> 1) << v.name << " " << c << "," << r;
            for (int c = 0; c < W; ++c)
                ASSERT_EQ(dst.Y(c, Hh - 1), (src.Y(c, Hh - 1) + src.u[static_cast<size_t>(c)] + 1) >> 1)
                    << v.name << " column " << c;
            // The same frame with its planes apart: that read leaves the luma.
            Frame apart(W, Hh, v.nv12);
            EXPECT_EQ(Warp(v.fn, src, apart, m, {0, 0, W, Hh}), -998) << v.name;
        }
    }
    // The identity over the whole frame is a copy: the reads past the luma
    // have weight 0.
    for (const Variant& v : kVariants) {
        Frame src(32, 16, v.nv12), dst(32, 16, v.nv12);
        src.Randomize(44);
        ASSERT_EQ(WarpJoined(v.fn, src, dst, Identity(), {0, 0, 32, 16}), 0) << v.name;
        EXPECT_EQ(dst.y, src.y) << v.name;
        EXPECT_EQ(dst.u, src.u) << v.name;
        EXPECT_EQ(dst.v, src.v) << v.name;
    }
    // A read that leaves the whole frame is still refused: a full row down,
    // the last row pair reads two rows past the luma. With 4:2:0 chroma of
    // a 16 x 4 frame (planar U and V 8 x 2 each, 32 bytes; NV12 16 x 2) the
    // frame ends before the third row after the luma.
    for (const Variant& v : kVariants) {
        Frame src(16, 4, v.nv12), dst(16, 4, v.nv12);
        src.Randomize(45);
        Matrix m = Identity();
        m.h[5] = 2.0f;
        EXPECT_EQ(WarpJoined(v.fn, src, dst, m, {0, 0, 16, 4}), -998) << v.name;
    }
}

TEST(PerspectiveWarp, BadInputIsRefusedWithALogLineAndNothingWritten) {
    Frame src(64, 32, false), dst(64, 32, false);
    src.Randomize(1);
    Matrix m = Identity();
    auto table = Table(64);
    tagST_PIC ref = src.pic;
    // Writes before the first byte of a plane (x or y negative on the first
    // row), an odd or negative w (the column loop would not end), rows past
    // the last (h = 33; the bottom mirror of {62, 0, 4, 4} reads above row 0,
    // the NV12 copy would copy -2 bytes on the right).
    const tagST_REGISTRATION_AREA badAreas[] = {{-2, 0, 16, 16}, {0, -2, 16, 16}, {0, 0, 15, 16},
                                                {0, 0, 64, 33},  {0, 0, -2, 4},   {62, 0, 4, 4}};
    for (const Variant& v : kVariants) {
        for (tagST_REGISTRATION_AREA a : badAreas) {
            tocra_test::ClearLog();
            Frame s(64, 32, v.nv12), d(64, 32, v.nv12);
            d.Fill(3);
            tagST_PIC r = s.pic;
            EXPECT_EQ(v.fn(&r, &s.pic, &d.pic, m.h, &a, table.data()), -998) << v.name << " " << a.x << "," << a.width;
            EXPECT_TRUE(
                tocra_test::Logged(6, std::string(v.name) + " invalid input: picture, matrix or area out of range\n"));
            for (uint8_t b : d.y) ASSERT_EQ(b, 3);
            for (uint8_t b : d.u) ASSERT_EQ(b, 3);
        }
        tagST_REGISTRATION_AREA a{0, 0, 16, 16};
        Frame s(64, 32, v.nv12), d(64, 32, v.nv12);
        tagST_PIC r = s.pic;
        EXPECT_EQ(v.fn(nullptr, &s.pic, &d.pic, m.h, &a, table.data()), TOCRA_NULL_POINTER);
        EXPECT_EQ(v.fn(&r, nullptr, &d.pic, m.h, &a, table.data()), TOCRA_NULL_POINTER);
        EXPECT_EQ(v.fn(&r, &s.pic, nullptr, m.h, &a, table.data()), TOCRA_NULL_POINTER);
        EXPECT_EQ(v.fn(&r, &s.pic, &d.pic, nullptr, &a, table.data()), TOCRA_NULL_POINTER);
        EXPECT_EQ(v.fn(&r, &s.pic, &d.pic, m.h, nullptr, table.data()), TOCRA_NULL_POINTER);
        tagST_PIC noPlane = d.pic;
        noPlane.pY = nullptr;
        EXPECT_EQ(v.fn(&r, &s.pic, &noPlane, m.h, &a, table.data()), TOCRA_NULL_POINTER);
        // A destination declaring more rows than the frame: its fill would
        // pass the planes' end.
        tagST_PIC taller = d.pic;
        taller.height = 34;
        EXPECT_EQ(v.fn(&r, &s.pic, &taller, m.h, &a, table.data()), TOCRA_NULL_POINTER);
        tagST_PIC negative = r;
        negative.width = -64;
        EXPECT_EQ(v.fn(&negative, &s.pic, &d.pic, m.h, &a, table.data()), TOCRA_NULL_POINTER);
    }
    tagST_REGISTRATION_AREA a{0, 0, 16, 16};
    EXPECT_EQ(AffineTransform_neon_NV12(&ref, &src.pic, &dst.pic, m.h, &a, nullptr), TOCRA_NULL_POINTER);
    EXPECT_EQ(AffineTransform_neon(nullptr, &src.pic, &dst.pic, m.h, &a, table.data()), TOCRA_NULL_POINTER);
    EXPECT_EQ(AffineTransform(nullptr, &src.pic, &dst.pic, m.h, &a, table.data()), TOCRA_NULL_POINTER);
}

TEST(PerspectiveWarp, TheSourceAndDestinationOwnSizesAreNotCompared) {
    // The warp takes its pitch and rows from the first picture; the
    // destination's own width and height only shape its fill. A source
    // claiming 5 x 3 changes nothing; a destination claiming 16 of its 32
    // rows gets the same area (rows 2 to 15) and a fill of those 16 rows,
    // the rows after them untouched.
    for (const Variant& v : kVariants) {
        Frame src(64, 32, v.nv12), full(64, 32, v.nv12), half(64, 32, v.nv12);
        src.Randomize(31);
        full.Fill(9);
        half.Fill(9);
        std::mt19937 g(5);
        Matrix m = NearIdentity(g);
        const tagST_REGISTRATION_AREA area{8, 2, 48, 14};
        ASSERT_EQ(Warp(v.fn, src, full, m, area), 0) << v.name;
        auto table = Table(64);
        tagST_PIC ref = src.pic, s = src.pic, d = half.pic;
        s.width = 5;
        s.height = 3;
        d.height = 16;
        tagST_REGISTRATION_AREA a = area;
        ASSERT_EQ(v.fn(&ref, &s, &d, m.h, &a, table.data()), 0) << v.name;
        for (int r = 0; r < 32; ++r)
            for (int c = 0; c < 64; ++c)
                ASSERT_EQ(half.Y(c, r), r < 16 ? full.Y(c, r) : 9) << v.name << " " << c << "," << r;
        const size_t chromaRow = v.nv12 ? 64 : 32;
        for (size_t i = 0; i < half.u.size(); ++i) {
            ASSERT_EQ(half.u[i], i < 8 * chromaRow ? full.u[i] : 9) << v.name << " " << i;
            if (!v.nv12) {
                ASSERT_EQ(half.v[i], i < 8 * chromaRow ? full.v[i] : 9) << v.name << " " << i;
            }
        }
    }
}

TEST(PerspectiveWarp, NegativeHeightInTheNv12WarpRunsOnlyTheCopy) {
    // No area rows: the top band copies rows 0 and 1 (y = 2), the bottom band
    // every row from there. The whole picture comes from the source, on an
    // odd width of 7 and 6 rows.
    for (WarpFn fn : {AffineTransform_NV12, AffineTransform_neon_NV12, AffineTransform}) {
        Frame src(7, 6, true), dst(7, 6, true);
        src.Randomize(8);
        src.pic.format = 0;
        dst.Fill(1);
        ASSERT_EQ(Warp(fn, src, dst, Identity(), {2, 2, 4, -2}), TOCRA_OK);
        EXPECT_TRUE(dst.Same(src));
    }
    // The planar mirror would read rows above the picture: refused.
    Frame src(7, 6, false), dst(7, 6, false);
    dst.Fill(1);
    Frame before(dst);
    EXPECT_EQ(Warp(AffineTransform_YUV420, src, dst, Identity(), {2, 2, 4, -2}), TOCRA_NULL_POINTER);
    EXPECT_TRUE(dst.Same(before));
}

// ---- a flat reference ---------------------------------------------------------
//
// The described warp, byte by byte on flat planes: every texel index is
// row * pitch + column, so a read past a row's end takes the next row's
// first bytes. Bounds-checked vector access makes a read outside the planes
// fail the test rather than pass unseen.

struct RefPlanes {
    const Frame& src;
    Frame& dst;
    int pitch, chromaPitch;
};

void RefRow(const RefPlanes& p, const Matrix& m, int x, int w, int r, bool twoRows, bool writeChroma) {
    const float* H = m.h;
    const float rf = static_cast<float>(r);
    float denom = H[6] * static_cast<float>(x) + H[7] * rf + 1.0f;
    float q = 0.0f;
    for (int c = x; c != x + w; c += 2) {
        if (((c - x) & 7) == 0) {
            q = 1.0f / denom;
            denom += 8.0f * H[6];
        }
        const float cf = static_cast<float>(c);
        const float sx = (H[0] * cf + H[1] * rf + H[2]) * q;
        const float sy = (H[3] * cf + H[4] * rf + H[5]) * q;
        const int ix = static_cast<int>(sx), iy = static_cast<int>(sy);
        const int fx = static_cast<int>(std::fabs(sx - static_cast<float>(ix)) * 128.0f);
        const int fy = static_cast<int>(std::fabs(sy - static_cast<float>(iy)) * 128.0f);
        const int P = p.pitch;
        for (int j = 0; j < (twoRows ? 2 : 1); ++j) {
            for (int i = 0; i < 2; ++i) {
                const size_t b = static_cast<size_t>((iy + j) * P + ix + i);
                const int T = (128 - fx) * p.src.y.at(b) + fx * p.src.y.at(b + 1);
                const int B = (128 - fx) * p.src.y.at(b + P) + fx * p.src.y.at(b + P + 1);
                p.dst.y.at(static_cast<size_t>((r + j) * P + c + i)) =
                    static_cast<uint8_t>((((T + 32) >> 6) * (128 - fy) + ((B + 32) >> 6) * fy + 128) >> 8);
            }
        }
        if (!writeChroma) continue;
        const int CP = p.chromaPitch;
        if (p.dst.nv12) {
            const size_t from = static_cast<size_t>(((ix + 1) & ~1) + CP * ((iy + 1) >> 1));
            const size_t to = static_cast<size_t>((r >> 1) * CP + c);
            p.dst.u.at(to) = p.src.u.at(from);
            p.dst.u.at(to + 1) = p.src.u.at(from + 1);
        } else {
            const size_t from = static_cast<size_t>(((iy + 1) >> 1) * CP + ((ix + 1) >> 1));
            const size_t to = static_cast<size_t>((r >> 1) * CP + (c >> 1));
            p.dst.u.at(to) = p.src.u.at(from);
            p.dst.v.at(to) = p.src.v.at(from);
        }
    }
}

// Row pairs for the single-threaded variants; four bands of h / 4 rows for
// the threaded ones (pairs, then a last single row with its own mapping; a
// band starting on an odd row after an odd band leaves that chroma row to
// the band before).
void RefWarp(const RefPlanes& p, const Matrix& m, const tagST_REGISTRATION_AREA& a, bool threaded) {
    if (!threaded) {
        for (int r = a.y; r < a.y + a.height; r += 2) RefRow(p, m, a.x, a.width, r, true, true);
        return;
    }
    const int bandH = a.height / 4;
    for (int b = 0; b < 4; ++b) {
        const int start = a.y + b * bandH, end = start + bandH;
        const bool shared = b > 0 && (bandH & 1) && (start & 1);
        int r = start;
        for (; r + 1 < end; r += 2) RefRow(p, m, a.x, a.width, r, true, !(shared && r == start));
        if (r < end) RefRow(p, m, a.x, a.width, r, false, !(shared && r == start));
    }
}

TEST(PerspectiveWarp, OddAndSmallSizesMatchTheFlatReference) {
    struct Case {
        int W, Hh;
        tagST_REGISTRATION_AREA area;
        Matrix m;
    };
    // Widths 7, 13, 10 and 6 (odd, not multiples of 4, below 8), heights 6
    // and 10; odd x and y, odd h, areas reaching the right edge so that the
    // last block reads the next row's first texel.
    const Case cases[] = {
        {7, 6, {1, 1, 4, 4}, {{1, 0, 0.5f, 0, 1, 0.25f, 0, 0, 1}}},
        {7, 8, {1, 0, 6, 4}, {{1, 0, 0.5f, 0, 1, 0, 0, 0, 1}}},
        {13, 10, {2, 2, 8, 5}, {{1.02f, 0.01f, 0.4f, -0.01f, 0.98f, 0.3f, 0.001f, 0.0005f, 1}}},
        {6, 6, {0, 0, 6, 4}, {{1, 0, 0, 0, 1, 0, 0, 0, 1}}},
        {10, 6, {3, 0, 4, 4}, {{0.95f, 0.03f, 1.3f, 0.02f, 1.01f, 0.6f, -0.002f, 0.001f, 1}}},
        {7, 6, {0, 0, 6, 4}, {{1, 0, 0.75f, 0, 1, 0.5f, 0, 0, 1}}},
        // Seven rows (three chroma rows): the planar mirror works on whole
        // rows and fits; the NV12 copy's last row pair would write row 7.
        {7, 7, {1, 1, 4, 4}, {{1, 0, 0.5f, 0, 1, 0.25f, 0, 0, 1}}},
    };
    struct Run {
        const char* name;
        WarpFn fn;
        bool nv12, threaded, stride;
    };
    const Run runs[] = {
        {"AffineTransform_YUV420", AffineTransform_YUV420, false, false, false},
        {"AffineTransform_NV12", AffineTransform_NV12, true, false, false},
        {"AffineTransform_neon_YUV420", AffineTransform_neon_YUV420, false, true, false},
        {"AffineTransform_neon_NV12", AffineTransform_neon_NV12, true, true, false},
        {"AffineTransform_neon_Stride_YUV420", AffineTransform_neon_Stride_YUV420, false, true, true},
    };
    for (const Case& k : cases) {
        for (const Run& run : runs) {
            const int pitch = run.stride ? (k.W + 127) & ~127 : k.W;
            const int cpitch = run.nv12 ? pitch : run.stride ? 128 : k.W / 2;
            Frame src(k.W, k.Hh, run.nv12, pitch, cpitch), dst(k.W, k.Hh, run.nv12, pitch, cpitch);
            src.Randomize(static_cast<uint32_t>(k.W * 100 + k.Hh));
            dst.Fill(77);
            if (run.nv12 && (k.Hh & 1)) {
                std::vector<unsigned char> table(static_cast<size_t>(pitch / 8 + 1) * 16);
                tagST_PIC ref = src.pic;
                tagST_REGISTRATION_AREA a = k.area;
                Matrix m = k.m;
                const Frame before(dst);
                EXPECT_EQ(run.fn(&ref, &src.pic, &dst.pic, m.h, &a, table.data()), -998) << run.name;
                EXPECT_TRUE(dst.Same(before)) << run.name;
                continue;
            }
            Frame want(dst);
            // The reference warp, then the variant's own fill on it (the
            // fills have their own tests); the NV12 copy comes first.
            tagST_REGISTRATION_AREA a = k.area;
            const RefPlanes rp{src, want, pitch, cpitch};
            if (run.nv12) {
                (run.threaded ? FillBlank_neon_NV12 : FillBlank_NV12)(&want.pic, &src.pic, a.x, a.y, a.width, a.height);
                RefWarp(rp, k.m, a, run.threaded);
            } else {
                RefWarp(rp, k.m, a, run.threaded);
                want.pic.stride = pitch;
                (run.stride ? FillBlank3_Stride : FillBlank3)(&want.pic, a.x, a.y, a.width, a.height);
            }
            std::vector<unsigned char> table(static_cast<size_t>(pitch / 8 + 1) * 16);
            tagST_PIC ref = src.pic;
            Matrix m = k.m;
            tocra_test::ClearLog();
            ASSERT_EQ(run.fn(&ref, &src.pic, &dst.pic, m.h, &a, table.data()), 0) << run.name << " " << k.W;
            EXPECT_EQ(dst.y, want.y) << run.name << " " << k.W << "x" << k.Hh;
            EXPECT_EQ(dst.u, want.u) << run.name << " " << k.W << "x" << k.Hh;
            EXPECT_EQ(dst.v, want.v) << run.name << " " << k.W << "x" << k.Hh;
        }
    }
}

}  // namespace
