// Descriptors from windows of integral rows: the row builder worked by hand
// and plain == NEON, the walk order, and the entry point against the kernel
// run over a whole-frame integral on frames and keypoints that exercise
// bands, windows that slide, restart and fill, and keypoints at the edges.
#include <algorithm>
#include <cstring>
#include <vector>

#include "registration/brief.h"
#include "support/test_support.h"

namespace {

using tocra::BriefIntegralRow_C;
using tocra::BriefReach;
using tocra::kBriefReach;

TEST(BriefIntegralRow, WorkedByHand) {
    const uint8_t src[4] = {1, 2, 3, 4};
    const uint32_t above[5] = {10, 20, 30, 40, 50};
    uint32_t out[5] = {};
    BriefIntegralRow_C(src, above, out, 5, 7);
    const uint32_t want[5] = {17, 28, 40, 53, 67};
    EXPECT_TRUE(std::equal(out, out + 5, want));
    // Sums wrap modulo 2^32 as the whole-frame integral's entries do.
    const uint32_t high[3] = {0xFFFFFFF0u, 0xFFFFFFFFu, 0u};
    BriefIntegralRow_C(src, high, out, 3, 0x10u);
    EXPECT_EQ(out[0], 0u);
    EXPECT_EQ(out[1], 0x10u);
    EXPECT_EQ(out[2], 0x13u);
    BriefIntegralRow_C(src, above, out, 1, 5);
    EXPECT_EQ(out[0], 15u);
}

#if !defined(BRIMVEL_PLAIN_ONLY)
TEST(BriefIntegralRow, PlainAndNeonGiveTheSameEntries) {
    const int sizes[] = {1, 2, 7, 8, 9, 10, 15, 16, 17, 18, 25, 63, 64, 65, 311, 312, 313};
    uint32_t seed = 1;
    for (int n : sizes) {
        for (uint32_t sum : {0u, 12345u, 0xFFFFFF00u}) {
            SCOPED_TRACE(n);
            // The row reads src[0 .. n - 2] only: a buffer of exactly that.
            std::vector<uint8_t> src = tocra_test::RandomBytes(size_t(n - 1), seed++);
            std::vector<uint8_t> words = tocra_test::RandomBytes(size_t(n) * 4, seed++);
            std::vector<uint32_t> above(n);
            memcpy(above.data(), words.data(), words.size());
            std::vector<uint32_t> plain(n, 1), neon(n, 2);
            BriefIntegralRow_C(src.data(), above.data(), plain.data(), n, sum);
            tocra::BriefIntegralRow_NEON(src.data(), above.data(), neon.data(), n, sum);
            ASSERT_EQ(plain, neon);
            // Saturated pixels: the group sums are at their largest.
            std::fill(src.begin(), src.end(), uint8_t(255));
            BriefIntegralRow_C(src.data(), above.data(), plain.data(), n, sum);
            tocra::BriefIntegralRow_NEON(src.data(), above.data(), neon.data(), n, sum);
            ASSERT_EQ(plain, neon);
        }
    }
}
#endif

TEST(BriefOrder, BandThenRowThenIndex) {
    auto at = [](int px, int py) { return tagST_KEYPOINT{px * 64, py * 64, 0}; };
    const int b = tocra::kBriefBandColumns;
    const std::vector<tagST_KEYPOINT> kps = {at(b + 40, 30), at(40, 500), at(40, 30),       at(b - 1, 30),
                                             at(b, 29),      at(40, 30),  at(2 * b + 3, 28)};
    std::vector<tocra::BriefSlot> slots(kps.size());
    tocra::BriefOrderKeypoints(kps.data(), int(kps.size()), slots.data());
    std::vector<int> order;
    for (const tocra::BriefSlot& s : slots) order.push_back(s.index);
    EXPECT_EQ(order, (std::vector<int>{2, 3, 5, 1, 4, 0, 6}));
}

// Plane whose padding past the width is bright, so that reading it shows.
std::vector<uint8_t> Plane(int width, int height, int stride, uint32_t seed) {
    // The buffer ends where the last row does.
    std::vector<uint8_t> p = tocra_test::RandomBytes(size_t(stride) * (height - 1) + width, seed);
    for (size_t i = 0; i < p.size(); ++i) p[i] = uint8_t((p[i] & 63) + ((i * 7) & 127));
    for (int y = 0; y + 1 < height; ++y) {
        for (int x = width; x < stride; ++x) p[size_t(y) * stride + x] = 255;
    }
    return p;
}

// The kernel over a whole-frame integral, entries wrapped to 32 bits.
std::vector<uint8_t> WholeFrame(const std::vector<uint8_t>& img, int w, int h, int stride,
                                std::vector<tagST_KEYPOINT> kps) {
    std::vector<int> s(size_t(w + 1) * (h + 1), 0);
    for (int r = 1; r <= h; ++r) {
        uint32_t row = 0;
        for (int c = 1; c <= w; ++c) {
            row += img[size_t(r - 1) * stride + c - 1];
            s[size_t(r) * (w + 1) + c] = int(uint32_t(s[size_t(r - 1) * (w + 1) + c]) + row);
        }
    }
    std::vector<uint8_t> d(64 * kps.size() + 64, 0xCD);
    ST_IMAGEFEATURES f = {kps.data(), d.data(), int(kps.size())};
    GenerateDiscriptor_Brief(s.data(), &f, w + 1);
    return d;
}

struct Call {
    int w, h, stride;
    std::vector<uint8_t> image;
    std::vector<tagST_KEYPOINT> kps;
    std::vector<uint8_t> desc;
    tocra_test::HandleTable table;
    tagST_BRIEF_REQUEST req = {};
    Call(int width, int height, int pitch, std::vector<tagST_KEYPOINT> keys, uint32_t seed)
        : w(width), h(height), stride(pitch), image(Plane(width, height, pitch, seed)), kps(std::move(keys)) {
        desc.assign(64 * kps.size() + 64, 0xCD);
        req.hImage = table.Add(image.data());
        req.hKeyPoints = table.Add(kps.empty() ? static_cast<void*>(&req) : kps.data());
        req.hDescriptors = table.Add(desc.data());
        req.width = w;
        req.height = h;
        req.stride = stride;
        req.count = int(kps.size());
        table.Install();
    }
    int Run() {
        int ret = 1;
        tocra_test::CaptureStdout([&] { ret = GetBrief_Descriptors_TocraAPI(&req); });
        return ret;
    }
};

// Keypoints anywhere a descriptor is allowed, at any 1/64 fraction.
std::vector<tagST_KEYPOINT> Anywhere(int count, int w, int h, uint32_t seed) {
    const int x0 = -kBriefReach.left, x1 = w - kBriefReach.right;  // centres x0 .. x1
    const int y0 = -kBriefReach.up, y1 = h - kBriefReach.down;
    std::vector<uint8_t> r = tocra_test::RandomBytes(size_t(count) * 8, seed);
    std::vector<tagST_KEYPOINT> k(count);
    for (int i = 0; i < count; ++i) {
        uint32_t a, b;
        memcpy(&a, &r[8 * i], 4);
        memcpy(&b, &r[8 * i + 4], 4);
        // Centre c comes from 64 * c - 32 .. 64 * c + 31.
        k[i] = {int32_t(64 * x0 + a % uint32_t(64 * (x1 - x0) + 32)),
                int32_t(64 * y0 + b % uint32_t(64 * (y1 - y0) + 32)), 0x5A5A5A5Au};
    }
    return k;
}

void ExpectWholeFrameBytes(Call& c) {
    ASSERT_EQ(c.Run(), TOCRA_OK);
    const std::vector<uint8_t> want = WholeFrame(c.image, c.w, c.h, c.stride, c.kps);
    for (size_t i = 0; i < c.kps.size(); ++i) {
        ASSERT_EQ(memcmp(c.desc.data() + 64 * i, want.data() + 64 * i, 64), 0) << "keypoint " << i;
    }
    for (size_t i = 64 * c.kps.size(); i < c.desc.size(); ++i) ASSERT_EQ(c.desc[i], 0xCD);
}

TEST(BriefStrips, RandomFramesAndUnsortedKeypoints) {
    struct Size {
        int w, h, stride, count;
    };
    // Odd sizes, a stride equal to the width, bands cut short at the right
    // edge, frames taller than a window and a narrow one.
    const Size sizes[] = {{57, 58, 57, 3},        {58, 59, 61, 9},      {1001, 777, 1003, 600},
                          {600, 1300, 600, 2000}, {257, 400, 259, 150}, {833, 61, 840, 37}};
    uint32_t seed = 40;
    for (const Size& s : sizes) {
        SCOPED_TRACE(s.w);
        Call c(s.w, s.h, s.stride, Anywhere(s.count, s.w, s.h, seed), seed + 1);
        seed += 2;
        ExpectWholeFrameBytes(c);
    }
}

TEST(BriefStrips, EdgesClustersAndRepeats) {
    const int w = 700, h = 500;
    const int x0 = -kBriefReach.left, x1 = w - kBriefReach.right;
    const int y0 = -kBriefReach.up, y1 = h - kBriefReach.down;
    const int b = tocra::kBriefBandColumns;
    std::vector<tagST_KEYPOINT> k;
    auto at = [&](int px, int py) { k.push_back({px * 64, py * 64, 0}); };
    // The four corners and every edge, at band borders too.
    for (int px : {x0, b - 1, b, 2 * b - 1, 2 * b, x1}) {
        at(px, y0);
        at(px, y1);
    }
    for (int py = y0; py <= y1; py += 37) {
        at(x0, py);
        at(x1, py);
    }
    // One column band from top to bottom in reverse (the window slides),
    // rows just further apart than a window (it starts again), repeats.
    for (int py = y1; py >= y0; py -= 3) at(300, py);
    for (int py = y0; py <= y1; py += tocra::kBriefWindowRows) at(400, py);
    for (int i = 0; i < 9; ++i) at(450, 250);
    std::vector<tagST_KEYPOINT> shuffled = k;
    std::reverse(shuffled.begin() + 5, shuffled.end());
    std::swap(shuffled[0], shuffled[shuffled.size() / 2]);
    Call c(w, h, w + 5, shuffled, 77);
    ExpectWholeFrameBytes(c);
}

TEST(BriefStrips, ManyKeypointsInOneWindowAndFewerThanFour) {
    Call dense(300, 300, 300, Anywhere(3000, 300, 300, 5), 6);
    ExpectWholeFrameBytes(dense);
    for (int n = 1; n < 4; ++n) {
        Call few(120, 90, 128, Anywhere(n, 120, 90, 10 + n), 20 + n);
        ExpectWholeFrameBytes(few);
    }
}

TEST(BriefStrips, NegativeCountIsAnEmptyCall) {
    for (int count : {-1, -5, INT32_MIN}) {
        Call c(100, 100, 100, Anywhere(4, 100, 100, 3), 4);
        c.req.count = count;
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
        EXPECT_EQ(c.Run(), 0) << count;
        EXPECT_TRUE(tocra_test::Log().empty());
        for (uint8_t v : c.desc) ASSERT_EQ(v, 0xCD);
        EXPECT_TRUE(tocra_test::Flushed(c.desc.data(), 0));
    }
    // No keypoint: the sizes are not looked at.
    Call none(100, 100, 100, {}, 4);
    none.req.width = 0;
    none.req.stride = -3;
    EXPECT_EQ(none.Run(), TOCRA_OK);
}

}  // namespace
