#include <cstring>
#include <vector>

#include "filter/filter_kernels.h"
#include "filter_test_util.h"

namespace {

using tocra_test::Logged;
using tocra_test::RandomBytes;

struct Px {
    uint8_t b, g, r;
};

Px One(uint8_t y, uint8_t u, uint8_t v) {
    const uint8_t luma[2] = {y, y}, uv[4] = {u, v, u, v};
    uint8_t b[2], g[2], r[2];
    uint32_t hist[768];
    YUV2RGB_LUTX4_NEON(luma, uv, b, g, r, hist, 1, 2, 1, 2);  // rows 1 byte, chroma rows 2 bytes apart
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
    for (int w = 1; w <= 50; ++w) {
        for (int rows : {1, 2, 3, 4, 5}) {
            for (int below : {0, 1}) {
                const int stride = w + 3, uvStride = 2 * w + 6, total = rows + below;
                const auto y = RandomBytes(static_cast<size_t>(stride) * total, w * 11 + rows);
                const auto uv = RandomBytes(static_cast<size_t>(uvStride) * total, w * 13 + rows);
                std::vector<uint8_t> out1(static_cast<size_t>(stride) * total * 3, 0x77), out2 = out1;
                std::vector<uint32_t> h1(768, 1), h2(768, 2);
                const size_t plane = static_cast<size_t>(stride) * total;
                tocra::Yuv2RgbBand_C(y.data(), uv.data(), &out1[0], &out1[plane], &out1[2 * plane], h1.data(), w, rows,
                                     below, stride, uvStride);
                tocra::Yuv2RgbBand_Neon(y.data(), uv.data(), &out2[0], &out2[plane], &out2[2 * plane], h2.data(), w,
                                        rows, below, stride, uvStride);
                ASSERT_EQ(out1, out2) << w << "x" << rows;
                ASSERT_EQ(h1, h2) << w << "x" << rows;
                if (below) {
                    EXPECT_EQ(out1[static_cast<size_t>(rows) * stride], 0x77) << "row below is read, not written";
                }
            }
        }
    }
}

TEST(Yuv2Rgb, OddBandsBorrowTheNextBandsFirstRowForTheirLastBlock) {
    filter_test::StartPool();
    // Height 6: bands 1, 1, 1, 3 rows. Band k < 3 counts the block of rows
    // (k, k + 1); band 3 counts (3, 4) and (5, 5).
    const int w = 4, h = 6;
    std::vector<uint8_t> y(w * h), uv(2 * w * h, 128), b(w * h), g(w * h), r(w * h);
    for (int row = 0; row < h; ++row)
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
    EXPECT_EQ(set[768 * 3 + 140], 2u);  // rows 3, 4: (120 + 160) / 2
    EXPECT_EQ(set[768 * 3 + 200], 4u);  // row 5 repeated
    filter_test::StopPool();
}

TEST(Yuv2Rgb, BothOddIsRefusedOneOddIsProcessed) {
    std::vector<uint8_t> y(64, 50), uv(128, 128), b(64, 1), g(64, 1), r(64, 1);
    std::vector<uint32_t> set(4 * 768, 9);
    tocra_test::ClearLog();
    EXPECT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), 5, 7, 16, 8), 0);
    EXPECT_TRUE(Logged(6, "YUV2RGBX4_LUT_NEON height and width % 2 != 0."));
    EXPECT_EQ(b, std::vector<uint8_t>(64, 1));
    EXPECT_EQ(set, std::vector<uint32_t>(4 * 768, 9));
    YUV2RGB_LUTX4_NEON(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), 3, 3, 8, 16);
    EXPECT_EQ(b, std::vector<uint8_t>(64, 1));
    EXPECT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), 5, 6, 16, 8), 0);
    EXPECT_EQ(b[4], 50);
    EXPECT_EQ(b[5], 1);
    EXPECT_EQ(set[3 * 768 + 255], 6u);  // band 3: 3 rows x 5 columns -> 2 x 3 blocks
    EXPECT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), nullptr, b.data(), g.data(), r.data(), set.data(), 4, 4, 16, 8), -998);
    EXPECT_EQ(YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), 4, 4, 7, 8), -998);
    EXPECT_TRUE(Logged(6, "YUV2RGB_LUTX4_NEON_MT invalid input: width[4] rows[4] stride[8] uvStride[7]\n"));
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

    YuvRequest(int width, int height, int strideBytes, int faceNum = 0, int ratio = 100)
        : w(width), h(height), stride(strideBytes), mapStride(((width / 2) + 127) & ~127) {
        frame = RandomBytes(static_cast<size_t>(stride) * h * 2, width + height);
        const size_t S = static_cast<size_t>(h / 2) * (((w / 2) + 127) & ~127);
        dest.assign(4 * S + 4096 + static_cast<size_t>(h) * stride + 4 + 64, 0xC3);
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
    ASSERT_EQ(q.Run(), 0);
    const int w2 = w / 2, h2 = h / 2, s2 = 128;
    const size_t S = static_cast<size_t>(h2) * s2;
    const std::vector<uint8_t>& d = q.dest;

    std::vector<uint8_t> half(S, 0);
    tocra::DownScaleX4_C(q.frame.data(), h, w, half.data(), stride, s2);
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
                               d[base + (y + 1) * s2 + x + 1] + 2) >> 2;
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
    ASSERT_EQ(q.Run(), 0);
    EXPECT_TRUE(Logged(4, "BoxFilter BoxFiltering_neon start\n"));
    EXPECT_TRUE(Logged(4, "faceRect[0] = (4, 4), - (40, 40).\n"));
    EXPECT_EQ(q.map[10 * q.mapStride + 10], 100);  // deep inside the face
    EXPECT_EQ(q.map[40 * q.mapStride + 60], 255);  // far from it
    const uint8_t edge = q.map[21 * q.mapStride + 10];
    EXPECT_GT(edge, 100);
    EXPECT_LT(edge, 255);
}

TEST(YuvHistApi, OddHalfSizeInBothDirectionsLeavesTheColourUnwritten) {
    // 2 x 2 frame pixels per half-size pixel: 50 x 38 gives 25 x 19.
    YuvRequest q(50, 38, 64);
    ASSERT_EQ(q.Run(), 0);
    EXPECT_TRUE(Logged(6, "YUV2RGBX4_LUT_NEON height and width % 2 != 0."));
    const size_t S = 19 * 128;
    EXPECT_EQ(q.dest[S], 0xC3);
    EXPECT_EQ(q.dest[4 * S + 1024], 0xC3);
    EXPECT_EQ(q.dest[4 * S + 4095], 0xC3);
    EXPECT_NE(U32(q.dest, 4 * S + 1020), 0xC3C3C3C3u);  // the luma histogram is there
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
            EXPECT_EQ(q.Run(), -998);
            EXPECT_TRUE(Logged(6, "BoxFilter BoxFiltering_neon error -998\n"));
            filter_test::StopPool();
        }
        EXPECT_EQ(q.dest, dest);
    }
    const int frames[][3] = {{1, 48, 64}, {64, 1, 64}, {64, 48, 63}, {-64, 48, 64}, {0x40000000, 4, 0x40000000}};
    for (const auto& f : frames) {
        YuvRequest q(64, 48, 64);
        q.p.width = f[0];
        q.p.height = f[1];
        q.p.stride = f[2];
        const std::vector<uint8_t> dest = q.dest;
        EXPECT_EQ(q.Run(), -998);
        EXPECT_TRUE(Logged(6, "BoxfilterYuv2RgbHist_TocraAPI invalid frame: width[" + std::to_string(f[0]) +
                                  "] height[" + std::to_string(f[1]) + "] stride[" + std::to_string(f[2]) + "]\n"));
        EXPECT_EQ(q.dest, dest);
    }
    YuvRequest q(64, 48, 64);
    q.p.faceNum = -1;
    EXPECT_EQ(q.Run(), -998);
    q.p.faceNum = 0;
    q.p.mapHeight = 0;
    EXPECT_EQ(q.Run(), -998);
    EXPECT_TRUE(Logged(6, "BoxfilterYuv2RgbHist_TocraAPI invalid map: width[32] height[0] face_num[0]\n"));
    tocra_test::ClearLog();
    EXPECT_EQ(BoxfilterYuv2RgbHist_TocraAPI(nullptr), -998);
    EXPECT_TRUE(Logged(6, "BoxfilterYuv2RgbHist_TocraAPI null request\n"));
    DownScaleYuv2RgbHist_Neon(q.frame.data(), q.dest.data(), 64, 48, 32);
    EXPECT_TRUE(Logged(6, "DownScaleYuv2RgbHist_Neon invalid input: width[64] height[48] stride[32]\n"));
}

}  // namespace
