#include <algorithm>
#include <cstring>
#include <vector>

#include "filter/filter_kernels.h"
#include "filter_test_util.h"

namespace {

using tocra_test::Logged;
using tocra_test::RandomBytes;

const char kRefused[] = "YUV2RGBX4_LUT_NEON height and width % 2 != 0.";

struct Px {
    uint8_t b, g, r;
};

// B, G and R of one pixel by the formulas, u = U - 128, v = V - 128.
Px Formula(int Y, int U, int V) {
    auto clamp = [](int c) { return static_cast<uint8_t>(std::min(255, std::max(0, c))); };
    const int u = U - 128, v = V - 128;
    return Px{clamp((64 * Y + 113 * u + 32) >> 6), clamp((64 * Y - 22 * u - 46 * v + 32) >> 6),
              clamp((64 * Y + 90 * v + 32) >> 6)};
}

Px One(uint8_t y, uint8_t u, uint8_t v) {
    // Width 1: the pair of pixels is columns 0 and 1, so rows hold 2 pixels.
    const uint8_t luma[4] = {y, y, y, y}, uv[8] = {u, v, u, v, u, v, u, v};
    uint8_t b[4], g[4], r[4];
    uint32_t hist[768];
    YUV2RGB_LUTX4_NEON(luma, uv, b, g, r, hist, 1, 2, 2, 4);
    return Px{b[0], g[0], r[0]};
}

TEST(Yuv2Rgb, HandWorkedPixelsAndClamping) {
    for (int y : {0, 1, 77, 254, 255}) {
        const Px p = One(static_cast<uint8_t>(y), 128, 128);  // grey
        EXPECT_EQ(p.b, y);
        EXPECT_EQ(p.g, y);
        EXPECT_EQ(p.r, y);
    }
    EXPECT_EQ(One(255, 255, 128).b, 255);  // (16320 + 14351 + 32) >> 6 = 479, clamped
    Px p = One(100, 200, 50);              // u = 72, v = -78
    EXPECT_EQ(p.b, 227);                   // (6400 + 8136 + 32) >> 6
    EXPECT_EQ(p.g, 131);                   // (6400 - 1584 + 3588 + 32) >> 6
    EXPECT_EQ(p.r, 0);                     // (6400 - 7020 + 32) >> 6 = -10, clamped
    p = One(0, 0, 0);
    EXPECT_EQ(p.b, 0);
    EXPECT_EQ(p.g, 136);  // (2816 + 5888 + 32) >> 6
}

TEST(Yuv2Rgb, BlockHistogramCountsRoundedMeans) {
    // Grey 2 x 2 blocks: 10 10 / 10 11 -> (41 + 2) >> 2 = 10; 200 201 / 202 203 -> 202.
    const uint8_t y[] = {10, 10, 200, 201, 10, 11, 202, 203};
    std::vector<uint8_t> uv(16, 128);
    uint8_t b[8], g[8], r[8];
    uint32_t hist[768];
    YUV2RGB_LUTX4_NEON(y, uv.data(), b, g, r, hist, 4, 2, 4, 8);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(hist[c * 256 + 9], 0u);
        EXPECT_EQ(hist[c * 256 + 10], 1u);
        EXPECT_EQ(hist[c * 256 + 201], 1u);
        EXPECT_EQ(hist[c * 256 + 202], 2u);
        EXPECT_EQ(hist[c * 256 + 255], 2u);
    }
}

TEST(Yuv2Rgb, PlainAndVectorBandsAgree) {
    using tocra::RowAfter;
    for (int w = 1; w <= 50; ++w) {
        for (int rows : {1, 2, 3, 4, 5}) {
            for (RowAfter after : {RowAfter::kReadWrite, RowAfter::kRead, RowAfter::kRepeat}) {
                for (int tight : {0, 1}) {
                    const int stride = tight ? w : w + 3, uvStride = tight ? 2 * w : 2 * w + 6, total = rows + 2;
                    const auto y = RandomBytes(static_cast<size_t>(stride) * total, w * 11 + rows);
                    const auto uv = RandomBytes(static_cast<size_t>(uvStride) * total, w * 13 + rows);
                    const size_t plane = static_cast<size_t>(stride) * total;
                    {
                        std::vector<uint8_t> out1(plane * 3, 0x77), out2 = out1;
                        std::vector<uint32_t> h1(768, 1), h2(768, 2);
                        tocra::Yuv2RgbBand(
                            {y.data(), uv.data(), &out1[0], &out1[plane], &out1[2 * plane], stride, uvStride},
                            h1.data(), w, rows, after, tocra::Yuv2RgbRow_C);
#if defined(BRIMVEL_PLAIN_ONLY)
                        tocra::Yuv2RgbBand(
                            {y.data(), uv.data(), &out2[0], &out2[plane], &out2[2 * plane], stride, uvStride},
                            h2.data(), w, rows, after, tocra::Yuv2RgbRow_C);
#else
                        tocra::Yuv2RgbBand(
                            {y.data(), uv.data(), &out2[0], &out2[plane], &out2[2 * plane], stride, uvStride},
                            h2.data(), w, rows, after, tocra::Yuv2RgbRow_NEON);
#endif
                        ASSERT_EQ(out1, out2) << w << "x" << rows << " tight " << tight;
                        ASSERT_EQ(h1, h2) << w << "x" << rows << " tight " << tight;
                        if (after != RowAfter::kReadWrite) {
                            // A band that keeps to its rows writes nothing past its last row.
                            const size_t own = static_cast<size_t>(stride) * rows;
                            for (size_t i = own; i < plane; ++i) ASSERT_EQ(out1[i], 0x77) << w << "x" << rows;
                        }
                    }
                }
            }
        }
    }
}

// The conversion by its definition, on `bands` bands split as the four-band
// form splits them (1: the kernel on all rows): bands in order; a band whose
// row count and width are both odd is skipped and counted; every other band
// clears its counters, converts and writes every pixel of its row pairs
// (the row after an odd row count, column `width` of an odd width) and
// counts every 2x2 block. Records one past the last byte used in each plane.
struct Planes {
    std::vector<uint8_t> y, uv, b, g, r;
    std::vector<uint32_t> set = std::vector<uint32_t>(4 * 768, 0xA5A5A5A5u);
    size_t usedY = 1, usedUV = 1;
};

int ConvertByDefinition(Planes& p, int w, int h, int stride, int uvStride, int bands) {
    int refused = 0;
    const int band = bands == 1 ? h : h / 4;
    for (int k = 0; k < bands; ++k) {
        const int first = k * band, rows = k < bands - 1 ? band : h - (bands - 1) * band;
        if ((w & 1) && (rows & 1)) {
            ++refused;
            continue;
        }
        uint32_t* hist = &p.set[768 * k];
        std::fill(hist, hist + 768, 0u);
        for (int rr = 0; rr < rows; rr += 2) {
            for (int x = 0; x < w; x += 2) {
                int sum[3] = {0, 0, 0};
                for (int dy = 0; dy < 2; ++dy) {
                    for (int dx = 0; dx < 2; ++dx) {
                        const size_t yi = static_cast<size_t>(first + rr + dy) * stride + x + dx;
                        const size_t ci = static_cast<size_t>(first + rr + dy) * uvStride + 2 * (x + dx);
                        p.usedY = std::max(p.usedY, yi + 1);
                        p.usedUV = std::max(p.usedUV, ci + 2);
                        const Px px = Formula(p.y[yi], p.uv[ci], p.uv[ci + 1]);
                        p.b[yi] = px.b, p.g[yi] = px.g, p.r[yi] = px.r;
                        sum[0] += px.b, sum[1] += px.g, sum[2] += px.r;
                    }
                }
                for (int c = 0; c < 3; ++c) ++hist[256 * c + ((sum[c] + 2) >> 2)];
            }
        }
        for (int c = 0; c < 3; ++c)
            for (int v = 1; v < 256; ++v) hist[256 * c + v] += hist[256 * c + v - 1];
    }
    return refused;
}

Planes RandomPlanes(int w, int h, int stride, int uvStride) {
    Planes p;
    p.y = RandomBytes(static_cast<size_t>(stride) * (h + 2), w * 7 + h);
    p.uv = RandomBytes(static_cast<size_t>(uvStride) * (h + 2), w * 5 + h);
    p.b.assign(p.y.size(), 0x5A);
    p.g = p.b;
    p.r = p.b;
    return p;
}

// Copies of the first `used` bytes: planes that end where the reads end.
std::vector<uint8_t> Head(const std::vector<uint8_t>& v, size_t used) {
    return std::vector<uint8_t>(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(used));
}

TEST(Yuv2Rgb, KernelAndBandsFollowTheirDefinitionOnOddAndSmallSizes) {
    filter_test::StartPool();
    for (int h = 1; h <= 13; ++h) {
        for (int w = 1; w <= 9; ++w) {
            for (int tight : {1, 0}) {
                const int stride = tight ? w : w + 1, uvStride = tight ? 2 * w : 2 * w + 3;
                for (int bands : {1, 4}) {
                    Planes want = RandomPlanes(w, h, stride, uvStride);
                    Planes got;
                    got.y = want.y;
                    got.uv = want.uv;
                    const int refused = ConvertByDefinition(want, w, h, stride, uvStride, bands);
                    got.y = Head(got.y, want.usedY);
                    got.uv = Head(got.uv, want.usedUV);
                    got.b.assign(want.usedY, 0x5A);
                    got.g = got.b;
                    got.r = got.b;
                    tocra_test::ClearLog();
                    if (bands == 1) {
                        YUV2RGB_LUTX4_NEON(got.y.data(), got.uv.data(), got.b.data(), got.g.data(), got.r.data(),
                                           got.set.data(), w, h, stride, uvStride);
                    } else {
                        ASSERT_EQ(YUV2RGB_LUTX4_NEON_MT(got.y.data(), got.uv.data(), got.b.data(), got.g.data(),
                                                        got.r.data(), got.set.data(), w, h, uvStride, stride),
                                  0);
                    }
                    const std::string at = std::to_string(w) + "x" + std::to_string(h) + " tight " +
                                           std::to_string(tight) + " bands " + std::to_string(bands);
                    ASSERT_EQ(got.b, Head(want.b, want.usedY)) << at;
                    ASSERT_EQ(got.g, Head(want.g, want.usedY)) << at;
                    ASSERT_EQ(got.r, Head(want.r, want.usedY)) << at;
                    ASSERT_EQ(got.set, want.set) << at;
                    ASSERT_EQ(tocra_test::CountLogged(kRefused), refused) << at;
                }
            }
        }
    }
    filter_test::StopPool();
}

TEST(Yuv2Rgb, OddBandsBorrowTheNextBandsFirstRowAndTheLastWritesTheRowAfter) {
    filter_test::StartPool();
    // Height 6: bands 1, 1, 1, 3 rows. Band k < 3 counts the block of rows
    // (k, k + 1); band 3 counts (3, 4) and (5, 6), row 6 being the row
    // after the plane, which it converts as well.
    const int w = 4, h = 6;
    std::vector<uint8_t> y(w * (h + 1)), uv(2 * w * (h + 1), 128), b(y.size()), g(y.size()), r(y.size());
    for (int row = 0; row <= h; ++row)
        for (int x = 0; x < w; ++x) y[row * w + x] = static_cast<uint8_t>(40 * row);
    std::vector<uint32_t> set(4 * 768, 0xFFFFFFFF);
    ASSERT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), w, h, 2 * w, w), 0);
    EXPECT_EQ(b, y);
    EXPECT_EQ(g, y);
    EXPECT_EQ(r, y);
    for (int k = 0; k < 3; ++k) {
        const int mean = (2 * 40 * k + 2 * 40 * (k + 1) + 2) >> 2;  // 20, 60, 100
        EXPECT_EQ(set[768 * k + mean], 2u) << k;
        EXPECT_EQ(set[768 * k + mean - 1], 0u) << k;
        EXPECT_EQ(set[768 * k + 255], 2u) << k;
    }
    EXPECT_EQ(set[768 * 3 + 139], 0u);
    EXPECT_EQ(set[768 * 3 + 140], 2u);  // rows 3, 4: (2 * 120 + 2 * 160 + 2) >> 2
    EXPECT_EQ(set[768 * 3 + 219], 2u);
    EXPECT_EQ(set[768 * 3 + 220], 4u);  // rows 5, 6: (2 * 200 + 2 * 240 + 2) >> 2
    filter_test::StopPool();
}

TEST(Yuv2Rgb, EachBandOfOddHeightIsRefusedOnItsOwnWithAnOddWidth) {
    filter_test::StartPool();
    std::vector<uint8_t> y(80, 50), uv(160, 128), b(80, 1), g(80, 1), r(80, 1);
    std::vector<uint32_t> set(4 * 768, 9);
    // Width 5, height 7: bands of 1, 1, 1 and 4 rows; the three odd ones
    // refuse, the last converts rows 3..6 (columns 0..5).
    tocra_test::ClearLog();
    EXPECT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), 5, 7, 16, 8), 0);
    EXPECT_EQ(tocra_test::CountLogged(kRefused), 3);
    EXPECT_TRUE(Logged(6, kRefused));
    for (int i = 0; i < 80; ++i) {
        const int row = i / 8, col = i % 8;
        ASSERT_EQ(b[i], row >= 3 && row <= 6 && col <= 5 ? 50 : 1) << row << "," << col;
    }
    EXPECT_EQ(std::vector<uint32_t>(set.begin(), set.begin() + 3 * 768), std::vector<uint32_t>(3 * 768, 9));
    EXPECT_EQ(set[3 * 768 + 255], 6u);  // 2 x 3 blocks
    // Width 5, height 6: bands of 1, 1, 1 and 3 rows, all refused.
    std::fill(b.begin(), b.end(), 1);
    std::fill(set.begin(), set.end(), 9);
    tocra_test::ClearLog();
    EXPECT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), 5, 6, 16, 8), 0);
    EXPECT_EQ(tocra_test::CountLogged(kRefused), 4);
    EXPECT_EQ(b, std::vector<uint8_t>(80, 1));
    EXPECT_EQ(set, std::vector<uint32_t>(4 * 768, 9));
    // The kernel on its own: 3 x 3 refused, counters untouched.
    tocra_test::ClearLog();
    YUV2RGB_LUTX4_NEON(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), 3, 3, 8, 16);
    EXPECT_EQ(tocra_test::CountLogged(kRefused), 1);
    EXPECT_EQ(b, std::vector<uint8_t>(80, 1));
    EXPECT_EQ(set, std::vector<uint32_t>(4 * 768, 9));
    EXPECT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), nullptr, b.data(), g.data(), r.data(), set.data(), 4, 4, 16, 8),
              TOCRA_NULL_POINTER);
    EXPECT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), 4, 4, 7, 8),
              TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "YUV2RGB_LUTX4_NEON_MT invalid input: width[4] rows[4] stride[8] uvStride[7]\n"));
    filter_test::StopPool();
}

// ---- the histogram entry point --------------------------------------------

struct YuvRequest {
    tocra_test::HandleTable table;
    int w, h, stride, mapStride;
    std::vector<uint8_t> frame, dest, map;
    std::vector<FaceInfo> faces;
    std::vector<uint32_t> work;
    BoxfilterYuvParams p{};
    std::string out;

    // exact: the frame ends where its chroma plane ends and the result where
    // its mean word ends; otherwise both have room to spare.
    YuvRequest(int width, int height, int strideBytes, int faceNum = 0, int ratio = 100, bool exact = false)
        : w(width), h(height), stride(strideBytes), mapStride(((width / 2) + 127) & ~127) {
        const size_t frameRows = exact ? h + h / 2 : 2 * h;
        frame = RandomBytes(static_cast<size_t>(stride) * frameRows, width + height);
        const size_t S = static_cast<size_t>(h / 2) * (((w / 2) + 127) & ~127);
        dest.assign(4 * S + 4096 + static_cast<size_t>(h) * stride + 4 + (exact ? 0 : 64), 0xC3);
        map.assign(static_cast<size_t>(mapStride) * (h / 2), 0);
        faces.assign(faceNum > 0 ? faceNum : 1, FaceInfo{});
        for (auto& f : faces) f.left = 4, f.top = 4, f.right = 40, f.bottom = 40;
        work.assign(1 << 16, 0);
        table.Install();
        p.hMap = table.Add(map.data());
        p.hFaces = table.Add(faces.data());
        p.hWork = table.Add(work.data());
        p.workSize = static_cast<int>(work.size() * 4);
        p.faceNum = faceNum;
        p.nFaceAjustRatio = ratio;
        p.nMargin = 1;
        p.mapWidth = w / 2;
        p.mapHeight = h / 2;
        p.nSmoothRadius = 1;
        p.background = 7;
        p.hSource = table.Add(frame.data());
        p.hDest = table.Add(dest.data());
        p.width = w;
        p.height = h;
        p.stride = stride;
    }
    int Run() {
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
        int status = 0;
        out = tocra_test::CaptureStdout([&] { status = BoxfilterYuv2RgbHist_TocraAPI(&p); });
        return status;
    }
};

uint32_t U32(const std::vector<uint8_t>& v, size_t at) {
    uint32_t x;
    memcpy(&x, &v[at], 4);
    return x;
}

TEST(YuvHistApi, ResultLayoutRegionByRegion) {
    // Height a multiple of 8, so that every band of the down-scale is even.
    const int w = 52, h = 32, stride = 64;
    YuvRequest q(w, h, stride);
    ASSERT_EQ(q.Run(), TOCRA_OK);
    const int w2 = w / 2, h2 = h / 2, s2 = 128;
    const size_t S = static_cast<size_t>(h2) * s2;
    const std::vector<uint8_t>& d = q.dest;

    std::vector<uint8_t> half(S, 0);
    tocra::DownScalePlane(q.frame.data(), h, w, half.data(), stride, s2, tocra::DownScaleRow_C);
    for (int y = 0; y < h2; ++y) ASSERT_EQ(0, memcmp(&half[y * s2], &d[y * s2], w2)) << "luma row " << y;

    // R, G, B planes from the half-size luma and the frame's chroma rows.
    const uint8_t* uv = q.frame.data() + static_cast<size_t>(h) * stride;
    uint32_t cum[3][256] = {};  // R, G, B block histograms
    for (int y = 0; y < h2; ++y) {
        for (int x = 0; x < w2; ++x) {
            const int Y = half[y * s2 + x], u = uv[y * stride + 2 * x] - 128, v = uv[y * stride + 2 * x + 1] - 128;
            auto clamp = [](int c) { return std::min(255, std::max(0, c)); };
            ASSERT_EQ(d[S + y * s2 + x], clamp((64 * Y + 90 * v + 32) >> 6));
            ASSERT_EQ(d[2 * S + y * s2 + x], clamp((64 * Y - 22 * u - 46 * v + 32) >> 6));
            ASSERT_EQ(d[3 * S + y * s2 + x], clamp((64 * Y + 113 * u + 32) >> 6));
        }
    }
    // h2 = 16: bands of 4 rows, so blocks are the plane's 2 x 2 blocks.
    for (int y = 0; y < h2; y += 2)
        for (int x = 0; x < w2; x += 2)
            for (int c = 0; c < 3; ++c) {
                const size_t base = (c + 1) * S;
                const int m = (d[base + y * s2 + x] + d[base + y * s2 + x + 1] + d[base + (y + 1) * s2 + x] +
                               d[base + (y + 1) * s2 + x + 1] + 2) >>
                              2;
                for (int v = m; v < 256; ++v) ++cum[c][v];
            }
    for (int c = 0; c < 3; ++c)
        for (int v = 0; v < 256; ++v) ASSERT_EQ(U32(d, 4 * S + 1024 * (c + 1) + 4 * v), cum[c][v]) << c << " " << v;

    // Luma histogram and the mean over the padded plane.
    uint64_t sum = 0;
    uint32_t lcum[256] = {};
    for (int y = 0; y < h2; ++y)
        for (int x = 0; x < w2; ++x) {
            sum += half[y * s2 + x];
            for (int v = half[y * s2 + x]; v < 256; ++v) ++lcum[v];
        }
    for (int v = 0; v < 256; ++v) ASSERT_EQ(U32(d, 4 * S + 4 * v), lcum[v]);
    const size_t meanAt = 4 * S + 4096 + static_cast<size_t>(h) * stride;
    EXPECT_EQ(U32(d, meanAt), (sum + S / 2) / S);
    EXPECT_LT(U32(d, meanAt), sum / (w2 * h2));  // the padded divisor shrinks it

    // Error plane: frame luma minus the half-size luma brought back up.
    std::vector<uint8_t> up(static_cast<size_t>(h) * stride, 0);
    MT_UpScale4X_NEON(half.data(), h2, w2, s2, stride, up.data());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int e = std::min(127, std::max(-128, q.frame[y * stride + x] - up[y * stride + x]));
            ASSERT_EQ(static_cast<int8_t>(d[4 * S + 4096 + y * stride + x]), e) << x << "," << y;
        }
    EXPECT_EQ(d[meanAt + 4], 0xC3);  // nothing past the result

    // No faces: the map is 255 everywhere.
    EXPECT_EQ(q.map, std::vector<uint8_t>(q.map.size(), 255));
    EXPECT_TRUE(tocra_test::Flushed(q.map.data(), q.map.size()));
    EXPECT_TRUE(tocra_test::Flushed(q.dest.data(), static_cast<size_t>(h) * stride + 2 * h * q.mapStride + 4100));
    EXPECT_NE(q.out.find("   DownScaleYuv2RgbHist_Neon time:"), std::string::npos);
    EXPECT_TRUE(Logged(4, "exit func BoxfilterYuv2RgbHist_TocraAPI\n"));
    EXPECT_TRUE(Logged(4, "nFaceAjustRatio = 0x64\n"));
}

TEST(YuvHistApi, FacesAreSmoothedOnA255Background) {
    YuvRequest q(128, 96, 128, 1, 100);
    ASSERT_EQ(q.Run(), TOCRA_OK);
    EXPECT_TRUE(Logged(4, "BoxFilter BoxFiltering_neon start\n"));
    EXPECT_TRUE(Logged(4, "faceRect[0] = (4, 4), - (40, 40).\n"));
    EXPECT_EQ(q.map[10 * q.mapStride + 10], 100);  // deep inside the face
    EXPECT_EQ(q.map[40 * q.mapStride + 60], 255);  // far from it
    const uint8_t edge = q.map[21 * q.mapStride + 10];
    EXPECT_GT(edge, 100);
    EXPECT_LT(edge, 255);
}

// The whole result by its definition, on a copy of the result buffer as the
// caller handed it over, for a frame that ends where its chroma plane ends.
// Steps in order, bands in order (a later band overwrites an earlier one).
// The colour conversion's last band pairs an odd last row with itself and
// does not write it twice; it is refused when its last chroma row's pair
// for column w2 lies past the frame. A refused band's counters are those
// the luma histograms left in the shared set, merged like the others.
// Returns the number of bands refused for their size.
int ResultByDefinition(const std::vector<uint8_t>& frame, std::vector<uint8_t>& d, int w, int h, int stride) {
    const int w2 = w / 2, h2 = h / 2, s2 = (w2 + 127) & ~127;
    const size_t S = static_cast<size_t>(h2) * s2;
    auto F = [&](size_t i) { return static_cast<int>(frame.at(i)); };

    int band = h / 4;
    for (int k = 0; k < 4; ++k) {
        const int first = k * band, rows = k < 3 ? band : h - 3 * band;
        for (int r = 0; r < rows; r += 2) {
            for (int x = 0; 2 * x < w; ++x) {
                const size_t t = static_cast<size_t>(first + r) * stride + 2 * x, bt = t + stride;
                d[static_cast<size_t>(k * (band >> 1) + r / 2) * s2 + x] =
                    static_cast<uint8_t>((F(t) + F(t + 1) + F(bt) + F(bt + 1) + 2) >> 2);
            }
        }
    }

    // Error plane: the frame's luma minus the half-size luma brought back up
    // (up-scale taken as the peer), over the plane as it was.
    const size_t err = 4 * S + 4096;
    std::vector<uint8_t> up(d.begin() + static_cast<std::ptrdiff_t>(err),
                            d.begin() + static_cast<std::ptrdiff_t>(err + static_cast<size_t>(h) * stride));
    MT_UpScale4X_NEON(d.data(), h2, w2, s2, stride, up.data());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const size_t i = static_cast<size_t>(y) * stride + x;
            up[i] = static_cast<uint8_t>(std::min(127, std::max(-128, F(i) - up[i])));
        }
    std::copy(up.begin(), up.end(), d.begin() + static_cast<std::ptrdiff_t>(err));

    // The shared set: four luma band histograms at 256 k, then each colour
    // band's B, G, R at 768 k.
    std::vector<uint32_t> set(4 * 768, 0);
    uint32_t lcum[256] = {};
    uint32_t sum = 0;
    band = h2 / 4;
    for (int y = 0; y < h2; ++y) {
        const int k = band == 0 ? 3 : std::min(3, y / band);
        for (int x = 0; x < w2; ++x) {
            const uint8_t v = d[static_cast<size_t>(y) * s2 + x];
            sum += v;
            for (int l = v; l < 256; ++l) ++lcum[l], ++set[256 * k + l];
        }
    }
    memcpy(&d[4 * S], lcum, sizeof(lcum));
    const int32_t mean = static_cast<int32_t>(sum + static_cast<uint32_t>(S / 2)) / static_cast<int32_t>(S);
    memcpy(&d[err + static_cast<size_t>(h) * stride], &mean, 4);

    const size_t chroma = static_cast<size_t>(h) * stride;
    int refused = 0;
    for (int k = 0; k < 4; ++k) {
        const int first = k * band, rows = k < 3 ? band : h2 - 3 * band;
        if ((w2 & 1) && (rows & 1)) {
            ++refused;
            continue;
        }
        if (k == 3 && (w2 & 1) &&
            chroma + static_cast<size_t>(first + rows - 1) * stride + 2 * w2 + 1 >= frame.size()) {
            continue;
        }
        uint32_t* hist = &set[768 * k];  // B, G, R
        std::fill(hist, hist + 768, 0u);
        for (int rr = 0; rr < rows; rr += 2) {
            const bool alone = k == 3 && rr + 1 == rows;
            const int pairRows[2] = {first + rr, alone ? first + rr : first + rr + 1};
            for (int x = 0; x < w2; x += 2) {
                int sums[3] = {0, 0, 0};
                for (int dy = 0; dy < 2; ++dy) {
                    for (int dx = 0; dx < 2; ++dx) {
                        const int row = pairRows[dy];
                        const size_t yi = static_cast<size_t>(row) * s2 + x + dx;
                        const size_t ci = chroma + static_cast<size_t>(row) * stride + 2 * (x + dx);
                        const Px px = Formula(d[yi], F(ci), F(ci + 1));
                        if (!(dy == 1 && alone)) d[S + yi] = px.r, d[2 * S + yi] = px.g, d[3 * S + yi] = px.b;
                        sums[0] += px.b, sums[1] += px.g, sums[2] += px.r;
                    }
                }
                for (int c = 0; c < 3; ++c) {
                    for (int l = (sums[c] + 2) >> 2; l < 256; ++l) ++hist[256 * c + l];
                }
            }
        }
    }
    uint32_t merged[3][256] = {};  // R, G, B; a band's set is B, G, R
    for (int c = 0; c < 3; ++c)
        for (int v = 0; v < 256; ++v)
            for (int k = 0; k < 4; ++k) merged[c][v] += set[768 * k + 256 * (2 - c) + v];
    memcpy(&d[4 * S + 1024], merged, sizeof(merged));
    return refused;
}

TEST(YuvHistApi, OddAndSmallFramesGiveTheResultOfTheDefinition) {
    // width, height, stride: odd and even halves in both directions, bands of
    // odd heights, the last band's pair reaching the chroma plane, tight and
    // padded rows; buffers end exactly where the layout ends.
    const int sizes[][3] = {{7, 7, 7},    {13, 11, 13}, {10, 14, 10}, {6, 6, 6},    {5, 3, 6},
                            {7, 17, 8},   {8, 6, 8},    {16, 19, 17}, {50, 38, 64}, {9, 5, 9},
                            {14, 26, 14}, {14, 26, 16}, {26, 30, 27}, {6, 3, 7},    {3, 2, 3}};
    for (const auto& sz : sizes) {
        YuvRequest q(sz[0], sz[1], sz[2], 0, 100, true);
        std::vector<uint8_t> want = q.dest;
        const int refused = ResultByDefinition(q.frame, want, sz[0], sz[1], sz[2]);
        ASSERT_EQ(q.Run(), TOCRA_OK);
        const std::string at = std::to_string(sz[0]) + "x" + std::to_string(sz[1]) + " stride " + std::to_string(sz[2]);
        EXPECT_EQ(tocra_test::CountLogged(kRefused), refused) << at;
        ASSERT_EQ(q.dest.size(), want.size());
        for (size_t i = 0; i < want.size(); ++i) ASSERT_EQ(q.dest[i], want[i]) << at << " byte " << i;
        EXPECT_TRUE(Logged(4, "exit func BoxfilterYuv2RgbHist_TocraAPI\n")) << at;
    }
}

TEST(YuvHistApi, HandWorkedFiveByThreeFrame) {
    // Frame 5 x 3, stride 6, one chroma row; half size 2 x 1, s2 = 128, S = 128.
    YuvRequest q(5, 3, 6, 0, 100, true);
    const uint8_t frame[24] = {0,   4,   8,   12,  16, 100,  //
                               20,  24,  28,  32,  36, 200,  //
                               40,  44,  48,  52,  56, 10,   //
                               128, 128, 128, 128, 60, 70};
    ASSERT_EQ(q.frame.size(), 24u);
    memcpy(q.frame.data(), frame, 24);
    ASSERT_EQ(q.Run(), TOCRA_OK);
    const std::vector<uint8_t>& d = q.dest;
    // Down-scale, one band of 3 rows: pairs (0, 1) and (2, 3), row 3 being
    // the chroma row; column 5 of a row is its padding byte.
    EXPECT_EQ(d[0], 12);  // (0 + 4 + 20 + 24 + 2) >> 2
    EXPECT_EQ(d[1], 20);  // (8 + 12 + 28 + 32 + 2) >> 2
    EXPECT_EQ(d[2], 88);  // (16 + 100 + 36 + 200 + 2) >> 2
    // Output row 1 is the R plane's first row; its column 2 is
    // (56 + 10 + 60 + 70 + 2) >> 2 = 49. Columns 0 and 1 (85, 89) are then
    // overwritten by the grey conversion of 12 and 20.
    EXPECT_EQ(d[128], 12);
    EXPECT_EQ(d[129], 20);
    EXPECT_EQ(d[130], 49);
    EXPECT_EQ(d[256], 12);  // G
    EXPECT_EQ(d[257], 20);
    EXPECT_EQ(d[384], 12);  // B
    EXPECT_EQ(d[385], 20);
    EXPECT_EQ(d[386], 0xC3);
    // Histograms: luma 12 and 20; the one colour block is row 0 counted
    // twice: (12 + 20 + 12 + 20 + 2) >> 2 = 16.
    for (int v : {0, 11, 12, 19, 20, 255}) EXPECT_EQ(U32(d, 512 + 4 * v), v < 12 ? 0u : v < 20 ? 1u : 2u) << v;
    for (int c = 1; c <= 3; ++c)
        for (int v : {15, 16, 255}) EXPECT_EQ(U32(d, 512 + 1024 * c + 4 * v), v < 16 ? 0u : 1u) << c << " " << v;
    EXPECT_EQ(U32(d, 512 + 4096 + 18), 0u);  // mean (32 + 64) / 128
    EXPECT_EQ(tocra_test::CountLogged(kRefused), 0);
    // With stride 5 the down-scale's last block would read byte 20, one past
    // the frame: such a frame is refused.
    YuvRequest tight(5, 3, 5, 0, 100, true);
    const std::vector<uint8_t> before = tight.dest;
    EXPECT_EQ(tight.Run(), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxfilterYuv2RgbHist_TocraAPI invalid frame: width[5] height[3] stride[5]\n"));
    EXPECT_EQ(tight.dest, before);
}

TEST(YuvHistApi, OddHalfSizeInBothDirectionsConvertsOnlyTheEvenBands) {
    // 50 x 38 gives 25 x 19: bands of 4, 4, 4 and 7 rows; the last refuses.
    YuvRequest q(50, 38, 64);
    ASSERT_EQ(q.Run(), TOCRA_OK);
    EXPECT_EQ(tocra_test::CountLogged(kRefused), 1);
    EXPECT_TRUE(Logged(6, kRefused));
    const size_t S = 19 * 128;
    EXPECT_NE(q.dest[S + 11 * 128 + 25], 0xC3);  // band 2's last row, column 25 included
    EXPECT_EQ(q.dest[S + 12 * 128], 0xC3);       // band 3's rows are not written
    // The histograms merge all four sets; the refused band's holds the zeros
    // the luma histograms left there. 3 bands x 2 pairs x 13 blocks.
    for (int c = 1; c <= 3; ++c) EXPECT_EQ(U32(q.dest, 4 * S + 1024 * c + 4 * 255), 78u) << c;
    EXPECT_EQ(U32(q.dest, 4 * S + 1020), 19u * 25u);  // the luma histogram

    // 14 x 26 stride 16 gives 7 x 13: bands of 3, 3, 3 and 4 rows; bands 0..2
    // refuse and their sets still hold the luma band histograms (band k at
    // 256 k): B gets luma bands 0 and 3, G band 1, R band 2, each plus the
    // last band's 2 pairs x 4 blocks.
    YuvRequest r(14, 26, 16, 0, 100, true);
    ASSERT_EQ(r.Run(), TOCRA_OK);
    EXPECT_EQ(tocra_test::CountLogged(kRefused), 3);
    const size_t S2 = 13 * 128;
    EXPECT_EQ(U32(r.dest, 4 * S2 + 1024 + 4 * 255), 21u + 8u);        // R
    EXPECT_EQ(U32(r.dest, 4 * S2 + 2048 + 4 * 255), 21u + 8u);        // G
    EXPECT_EQ(U32(r.dest, 4 * S2 + 3072 + 4 * 255), 21u + 28u + 8u);  // B
    // Stride 14: the last chroma row's pair for column 7 (bytes 14, 15) lies
    // past the frame, so the last band is refused too.
    YuvRequest t(14, 26, 14, 0, 100, true);
    ASSERT_EQ(t.Run(), TOCRA_OK);
    EXPECT_EQ(tocra_test::CountLogged(kRefused), 3);
    EXPECT_TRUE(Logged(6, tocra::kLastBandPastFrame));
    EXPECT_EQ(t.dest[S2 + 9 * 128], 0xC3);
    EXPECT_EQ(U32(t.dest, 4 * S2 + 3072 + 4 * 255), 21u + 28u);
}

TEST(YuvHistApi, APoolThatCannotStartAnswersMinus997) {
    YuvRequest q(64, 48, 64);
    const std::vector<uint8_t> dest = q.dest;
    {
        tocra_test::FailingThreadStarts failing({3});
        EXPECT_EQ(q.Run(), TOCRA_THREAD_FAILED);
        EXPECT_EQ(failing.starts(), 3);
    }
    EXPECT_TRUE(Logged(6, "BoxFiltering_neon MultiThread_Init fail\n"));
    EXPECT_NE(q.out.find("[MultiThread_Init] Create Thread Failed!"), std::string::npos);
    EXPECT_EQ(q.dest, dest);
    tocra_test::CaptureStdout([] { MultiThread_Init(0); });  // stops the two workers left running
}

TEST(YuvHistApi, EachHandleFailingInTurnAndBadSizes) {
    for (int which = 0; which < 5; ++which) {
        YuvRequest q(64, 48, 64, 1, 100);
        const uint32_t handles[5] = {q.p.hMap, q.p.hFaces, q.p.hSource, q.p.hDest, q.p.hWork};
        q.table.Break(handles[which]);
        const std::vector<uint8_t> dest = q.dest;
        if (which < 4) {
            EXPECT_EQ(q.Run(), -997) << which;
            EXPECT_TRUE(Logged(4, "BoxfilterYuv2RgbHist convert addr pointer error\n"));
        } else {
            EXPECT_EQ(q.Run(), TOCRA_NULL_POINTER);
            EXPECT_TRUE(Logged(6, "BoxFilter BoxFiltering_neon error -998\n"));
            filter_test::StopPool();
        }
        EXPECT_EQ(q.dest, dest);
    }
    const int frames[][3] = {{1, 48, 64}, {64, 1, 64}, {64, 48, 63}, {-64, 48, 64}, {0x40000000, 4, 0x40000000},
                             {5, 3, 5}};
    for (const auto& f : frames) {
        YuvRequest q(64, 48, 64);
        q.p.width = f[0];
        q.p.height = f[1];
        q.p.stride = f[2];
        const std::vector<uint8_t> dest = q.dest;
        EXPECT_EQ(q.Run(), TOCRA_NULL_POINTER);
        EXPECT_TRUE(Logged(6, "BoxfilterYuv2RgbHist_TocraAPI invalid frame: width[" + std::to_string(f[0]) +
                                  "] height[" + std::to_string(f[1]) + "] stride[" + std::to_string(f[2]) + "]\n"));
        EXPECT_EQ(q.dest, dest);
    }
    YuvRequest q(64, 48, 64);
    q.p.faceNum = -1;
    EXPECT_EQ(q.Run(), TOCRA_NULL_POINTER);
    q.p.faceNum = 0;
    q.p.mapHeight = 0;
    EXPECT_EQ(q.Run(), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxfilterYuv2RgbHist_TocraAPI invalid map: width[32] height[0] face_num[0]\n"));
    tocra_test::ClearLog();
    EXPECT_EQ(BoxfilterYuv2RgbHist_TocraAPI(nullptr), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxfilterYuv2RgbHist_TocraAPI null request\n"));
    DownScaleYuv2RgbHist_Neon(q.frame.data(), q.dest.data(), 64, 48, 32);
    EXPECT_TRUE(Logged(6, "DownScaleYuv2RgbHist_Neon invalid input: width[64] height[48] stride[32]\n"));
}

}  // namespace
