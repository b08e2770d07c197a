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

std::vector<unsigned char> Table(int width) { return std::vector<unsigned char>(static_cast<size_t>(width / 8 + 8) * 16); }

using WarpFn = int (*)(tagST_PIC*, tagST_PIC*, tagST_PIC*, float*, tagST_REGISTRATION_AREA*, unsigned char*);

int Warp(WarpFn fn, Frame& src, Frame& dst, Matrix m, tagST_REGISTRATION_AREA area) {
    auto table = Table(dst.pitch);
    tagST_PIC ref = src.pic;
    return fn(&ref, &src.pic, &dst.pic, m.h, &area, table.data());
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
        for (tagST_REGISTRATION_AREA area : {tagST_REGISTRATION_AREA{0, 0, 64, 48}, tagST_REGISTRATION_AREA{8, 6, 40, 32}}) {
            Frame src(64, 48, v.nv12);
            src.Randomize(3);
            Frame dst(64, 48, v.nv12);
            ASSERT_EQ(Warp(v.fn, src, dst, Identity(), area), 0) << v.name;
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
    Frame src(200, 32, false, 256, 128), dst(200, 32, false, 256, 128);
    src.Randomize(9);
    tagST_REGISTRATION_AREA area{0, 0, 200, 32};
    Matrix m = Identity();
    auto table = Table(256);
    tagST_PIC ref = src.pic;
    src.pic.stride = 0;
    ASSERT_EQ(AffineTransform_neon_Stride_YUV420(&ref, &src.pic, &dst.pic, m.h, &area, table.data()), 0);
    EXPECT_EQ(src.pic.stride, 256);
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
        ASSERT_EQ(Warp(v.fn, src, dst, m, {0, 0, 56, 32}), 0);
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
    ASSERT_EQ(Warp(AffineTransform_YUV420, src, dst, m, area), 0);
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

TEST(PerspectiveWarp, PlainAndVectorRowsGiveTheSameBytes) {
    std::mt19937 g(21);
    for (int trial = 0; trial < 60; ++trial) {
        const bool nv12 = trial & 1;
        const int W = 16 + 2 * static_cast<int>(g() % 100), H = 8 + 2 * static_cast<int>(g() % 40);
        const int pitch = W + 2 * static_cast<int>(g() % 8);
        Frame src(W, H, nv12, pitch, pitch / 2), a(W, H, nv12, pitch, pitch / 2), b(W, H, nv12, pitch, pitch / 2);
        src.Randomize(trial);
        Matrix m = NearIdentity(g);
        if (trial % 5 == 0) {  // far off the picture: every read clamped
            m.h[2] += (g() & 1) ? 3 * W : -3.0f * W;
            m.h[6] *= 50;
        }
        const int x = 2 * static_cast<int>(g() % (W / 4)), w = 2 * static_cast<int>(g() % ((W - x) / 2 + 1));
        std::vector<float> table(static_cast<size_t>(W / 8 + 1) * 4);
        tocra::FillColumnTable(table.data(), x, W / 8);
        const tocra::WarpPlanes pa{src.y.data(), src.u.data(), nv12 ? nullptr : src.v.data(), a.y.data(), a.u.data(),
                                   nv12 ? nullptr : a.v.data(), pitch, nv12 ? pitch : pitch / 2, H, nv12};
        tocra::WarpPlanes pb = pa;
        pb.dstY = b.y.data();
        pb.dstU = b.u.data();
        pb.dstV = nv12 ? nullptr : b.v.data();
        for (int r = 0; r + 1 < H; r += 2) {
            const bool two = (r / 2) % 3 != 2;
            tocra::WarpRowPlain(pa, m.h, x, w, r, two);
            tocra::WarpRowNeon(pb, m.h, x, w, r, two, table.data());
        }
        ASSERT_TRUE(a.Same(b)) << "trial " << trial << " W " << W << " x " << x << " w " << w;
    }
}

TEST(PerspectiveWarp, ThreadedVariantsEqualThePlainOnesWhenBandsAreEven) {
    std::mt19937 g(7);
    for (int trial = 0; trial < 12; ++trial) {
        Matrix m = NearIdentity(g);
        const tagST_REGISTRATION_AREA area{8, 8, 96, 48};  // h / 4 even
        for (bool nv12 : {false, true}) {
            Frame src(128, 64, nv12), a(128, 64, nv12), b(128, 64, nv12);
            src.Randomize(100 + trial);
            ASSERT_EQ(Warp(nv12 ? AffineTransform_NV12 : AffineTransform_YUV420, src, a, m, area), 0);
            ASSERT_EQ(Warp(nv12 ? AffineTransform_neon_NV12 : AffineTransform_neon_YUV420, src, b, m, area), 0);
            ASSERT_TRUE(a.Same(b)) << trial << (nv12 ? " nv12" : " planar");
        }
        // The stride variant with 128-aligned pitches (width 256).
        Frame src(256, 32, false), a(256, 32, false), b(256, 32, false);
        src.Randomize(200 + trial);
        const tagST_REGISTRATION_AREA area2{8, 0, 232, 32};
        ASSERT_EQ(Warp(AffineTransform_YUV420, src, a, m, area2), 0);
        ASSERT_EQ(Warp(AffineTransform_neon, src, b, m, area2), 0);
        ASSERT_TRUE(a.Same(b)) << trial << " stride";
    }
}

TEST(PerspectiveWarp, DispatchersChooseByFormat) {
    Frame src(64, 32, false), a(64, 32, false), b(64, 32, false);
    src.Randomize(4);
    Matrix m = Identity();
    m.h[2] = 1.25f;
    ASSERT_EQ(Warp(AffineTransform, src, a, m, {0, 0, 56, 32}), 0);
    ASSERT_EQ(Warp(AffineTransform_YUV420, src, b, m, {0, 0, 56, 32}), 0);
    EXPECT_TRUE(a.Same(b));
    // Any format but 2 is NV12.
    for (int format : {0, 1, 3}) {
        Frame s(64, 32, true), c(64, 32, true), d(64, 32, true);
        s.Randomize(5);
        s.pic.format = format;
        ASSERT_EQ(Warp(AffineTransform, s, c, m, {0, 0, 56, 32}), 0);
        ASSERT_EQ(Warp(AffineTransform_NV12, s, d, m, {0, 0, 56, 32}), 0);
        EXPECT_TRUE(c.Same(d)) << format;
    }
}

TEST(PerspectiveWarp, BandsLeaveTheRowsAfterFourEqualBandsUnwarped) {
    for (bool nv12 : {false, true}) {
        Frame src(64, 48, nv12), dst(64, 48, nv12);
        src.Randomize(8);
        dst.Fill(7);
        const tagST_REGISTRATION_AREA area{0, 0, 64, 46};  // 4 bands of 11 rows; rows 44, 45 left over
        ASSERT_EQ(Warp(nv12 ? AffineTransform_neon_NV12 : AffineTransform_neon_YUV420, src, dst, Identity(), area), 0);
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
    ASSERT_EQ(Warp(AffineTransform_NV12, src, dst, Identity(), {0, 0, 64, 0}), 0);
    EXPECT_TRUE(dst.Same(src));  // the copy fill covers everything
}

TEST(PerspectiveWarp, PlanarVectorVariantLogsTheAreaHeight) {
    Frame src(64, 32, false), dst(64, 32, false);
    tocra_test::ClearLog();
    ASSERT_EQ(Warp(AffineTransform_neon_YUV420, src, dst, Identity(), {0, 0, 64, 24}), 0);
    EXPECT_TRUE(tocra_test::Logged(4, "Reg pstRegistrationArea->realHeight = 24\n"));
}

TEST(PerspectiveWarp, MatricesOffThePictureNeverReadOutside) {
    // Exact-size planes: ASan reports any read past them.
    const float far[][9] = {{1, 0, 5000, 0, 1, 0, 0, 0, 1},       {1, 0, -5000, 0, 1, -5000, 0, 0, 1},
                            {1, 0, 0, 0, 1, 1e30f, 0, 0, 1},      {0, 0, 0, 0, 0, 0, 0, 0, 0},
                            {1, 0, 0, 0, 1, 0, -0.5f, 0, 1},      {NAN, 0, 0, 0, 1, 0, 0, 0, 1}};
    for (const Variant& v : kVariants) {
        for (const auto& f : far) {
            Matrix m;
            memcpy(m.h, f, sizeof m.h);
            Frame src(48, 32, v.nv12), dst(48, 32, v.nv12);
            src.Randomize(1);
            EXPECT_EQ(Warp(v.fn, src, dst, m, {0, 0, 48, 32}), 0) << v.name;
        }
    }
}

TEST(PerspectiveWarp, BadInputIsRefusedWithALogLineAndNothingWritten) {
    Frame src(64, 32, false), dst(64, 32, false);
    src.Randomize(1);
    Matrix m = Identity();
    auto table = Table(64);
    tagST_PIC ref = src.pic;
    struct Case {
        tagST_REGISTRATION_AREA area;
    };
    const tagST_REGISTRATION_AREA badAreas[] = {{-2, 0, 16, 16}, {0, -2, 16, 16}, {1, 0, 16, 16}, {0, 0, 15, 16},
                                                {0, 0, 66, 16},  {0, 0, 64, 33},  {0, 31, 64, 1}, {0, 0, -2, 4},
                                                {0, 0, 4, -2},   {62, 0, 4, 4}};
    for (const Variant& v : kVariants) {
        for (tagST_REGISTRATION_AREA a : badAreas) {
            tocra_test::ClearLog();
            Frame s(64, 32, v.nv12), d(64, 32, v.nv12);
            d.Fill(3);
            tagST_PIC r = s.pic;
            EXPECT_EQ(v.fn(&r, &s.pic, &d.pic, m.h, &a, table.data()), -998) << v.name;
            EXPECT_TRUE(tocra_test::Logged(6, std::string(v.name) +
                                                  " invalid input: picture, matrix or area out of range\n"));
            for (uint8_t b : d.y) ASSERT_EQ(b, 3);
        }
        tagST_REGISTRATION_AREA a{0, 0, 16, 16};
        Frame s(64, 32, v.nv12), d(64, 32, v.nv12);
        tagST_PIC r = s.pic;
        EXPECT_EQ(v.fn(nullptr, &s.pic, &d.pic, m.h, &a, table.data()), -998);
        EXPECT_EQ(v.fn(&r, nullptr, &d.pic, m.h, &a, table.data()), -998);
        EXPECT_EQ(v.fn(&r, &s.pic, nullptr, m.h, &a, table.data()), -998);
        EXPECT_EQ(v.fn(&r, &s.pic, &d.pic, nullptr, &a, table.data()), -998);
        EXPECT_EQ(v.fn(&r, &s.pic, &d.pic, m.h, nullptr, table.data()), -998);
        tagST_PIC noPlane = d.pic;
        noPlane.pY = nullptr;
        EXPECT_EQ(v.fn(&r, &s.pic, &noPlane, m.h, &a, table.data()), -998);
        tagST_PIC smaller = d.pic;
        smaller.height = 16;
        EXPECT_EQ(v.fn(&r, &s.pic, &smaller, m.h, &a, table.data()), -998);
    }
    tagST_REGISTRATION_AREA a{0, 0, 16, 16};
    EXPECT_EQ(AffineTransform_neon_NV12(&ref, &src.pic, &dst.pic, m.h, &a, nullptr), -998);
    EXPECT_EQ(AffineTransform_neon(nullptr, &src.pic, &dst.pic, m.h, &a, table.data()), -998);
    EXPECT_EQ(AffineTransform(nullptr, &src.pic, &dst.pic, m.h, &a, table.data()), -998);
}

}  // namespace
