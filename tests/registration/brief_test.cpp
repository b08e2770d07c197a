// BRIEF descriptors: kernels against a reference built here from the pattern
// file, the keypoint rounding, the four-way split and the entry point.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "registration/brief.h"
#include "support/test_support.h"

namespace {

using tocra_test::Logged;

struct Test4 {
    int dy1, dx1, dy2, dx2;
};

std::vector<Test4> LoadPattern() {
    std::ifstream in(std::string(TOCRA_SOURCE_DIR) + "/data/brief_pattern_64.txt");
    std::vector<Test4> tests;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream s(line);
        Test4 t;
        s >> t.dy1 >> t.dx1 >> t.dy2 >> t.dx2;
        tests.push_back(t);
    }
    return tests;
}

// A plane with texture at several scales, so that the tests are not all ties.
std::vector<uint8_t> Textured(int width, int height, int stride, uint32_t seed) {
    std::vector<uint8_t> noise = tocra_test::RandomBytes(size_t(stride) * height, seed);
    std::vector<uint8_t> p(size_t(stride) * height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < stride; ++x) {
            const int v = ((x * 5 + y * 3) & 127) + ((x / 7 + y / 5) % 3) * 30 + (noise[size_t(y) * stride + x] & 63);
            // Padding past the width is bright, so that reading it would show.
            p[size_t(y) * stride + x] = x < width ? uint8_t(v) : 255;
        }
    }
    return p;
}

// Integral image computed here, in 64-bit, row by row.
std::vector<int64_t> Integral(const uint8_t* img, int width, int height, int stride) {
    std::vector<int64_t> s(size_t(width + 1) * (height + 1), 0);
    for (int r = 1; r <= height; ++r) {
        int64_t row = 0;
        for (int c = 1; c <= width; ++c) {
            row += img[size_t(r - 1) * stride + c - 1];
            s[size_t(r) * (width + 1) + c] = s[size_t(r - 1) * (width + 1) + c] + row;
        }
    }
    return s;
}

// Straightforward descriptor: pattern from the file, four-corner box sums.
std::vector<uint8_t> Reference(const std::vector<int64_t>& s, int width, const tagST_KEYPOINT& kp) {
    static const std::vector<Test4> pattern = LoadPattern();
    const int W1 = width + 1;
    const int px = int(double(float(kp.x) * 0.015625f) + 0.5);
    const int py = int(double(float(kp.y) * 0.015625f) + 0.5);
    auto box = [&](int dy, int dx) {
        const int r = py + dy, c = px + dx;
        return s[size_t(r + 5) * W1 + c + 5] - s[size_t(r + 5) * W1 + c - 4] - s[size_t(r - 4) * W1 + c + 5] +
               s[size_t(r - 4) * W1 + c - 4];
    };
    std::vector<uint8_t> d(64, 0);
    for (size_t t = 0; t < pattern.size(); ++t) {
        const Test4& p = pattern[t];
        if (box(p.dy1, p.dx1) < box(p.dy2, p.dx2)) d[t / 8] |= uint8_t(1 << (7 - t % 8));
    }
    return d;
}

std::vector<tagST_KEYPOINT> RandomKeypoints(int count, int width, int height, uint32_t seed) {
    std::vector<uint8_t> r = tocra_test::RandomBytes(size_t(count) * 8, seed);
    std::vector<tagST_KEYPOINT> kps(count);
    for (int i = 0; i < count; ++i) {
        uint32_t a, b;
        memcpy(&a, &r[8 * i], 4);
        memcpy(&b, &r[8 * i + 4], 4);
        // Centres 28 .. size - 30 as the descriptor needs, any 1/64 fraction.
        kps[i].x = int32_t(28 * 64 + a % uint32_t((width - 58) * 64));
        kps[i].y = int32_t(28 * 64 + b % uint32_t((height - 58) * 64));
        kps[i].reserved = 0xA5A5A5A5u;
    }
    return kps;
}

std::vector<int> LibraryIntegral(const std::vector<int64_t>& s) {
    std::vector<int> out(s.size());
    for (size_t i = 0; i < s.size(); ++i) out[i] = int(uint32_t(s[i]));
    return out;
}

}  // namespace

TEST(BriefPattern, FileHasTheFiveHundredTwelvePublishedTests) {
    const std::vector<Test4> p = LoadPattern();
    ASSERT_EQ(p.size(), 512u);
    EXPECT_EQ(p[0].dy1, -2);
    EXPECT_EQ(p[0].dx1, -1);
    EXPECT_EQ(p[0].dy2, 7);
    EXPECT_EQ(p[0].dx2, -1);
    EXPECT_EQ(p[1].dy1, -14);
    EXPECT_EQ(p[1].dx2, 3);
    EXPECT_EQ(p[2].dy2, 11);
    EXPECT_EQ(p[2].dx2, 2);
}

TEST(BriefCentre, HalfPixelRounding) {
    for (int px : {0, 1, 28, 100, 3999}) {
        EXPECT_EQ(tocra::BriefCentre(64 * px), px);
        EXPECT_EQ(tocra::BriefCentre(64 * px + 31), px);
        EXPECT_EQ(tocra::BriefCentre(64 * px + 32), px + 1);
        EXPECT_EQ(tocra::BriefCentre(64 * px + 63), px + 1);
    }
    // Truncation toward zero: negatives round toward zero.
    EXPECT_EQ(tocra::BriefCentre(-32), 0);
    EXPECT_EQ(tocra::BriefCentre(-33), 0);
    EXPECT_EQ(tocra::BriefCentre(-64), 0);
    EXPECT_EQ(tocra::BriefCentre(-97), -1);
}

TEST(SmoothedSum, NineByNineBoxFromFourCorners) {
    const int w = 40, h = 30;
    std::vector<uint8_t> img = Textured(w, h, w, 3);
    const std::vector<int> s = LibraryIntegral(Integral(img.data(), w, h, w));
    // Box centred at row 10 + 2, column 15 - 3.
    int direct = 0;
    for (int y = 12 - 4; y <= 12 + 4; ++y) {
        for (int x = 12 - 4; x <= 12 + 4; ++x) direct += img[y * w + x];
    }
    EXPECT_EQ(smoothedSum(s.data(), 15, 10, 2, -3, w + 1), direct);
}

TEST(BriefKernels, MatchTheReferenceOnATexturedImage) {
    const int w = 160, h = 120, stride = 176;
    const std::vector<uint8_t> img = Textured(w, h, stride, 11);
    const std::vector<int64_t> s64 = Integral(img.data(), w, h, stride);
    std::vector<int> s = LibraryIntegral(s64);
    std::vector<tagST_KEYPOINT> kps = RandomKeypoints(150, w, h, 5);
    // The extreme centres the pattern allows.
    kps.push_back({27 * 64, 27 * 64, 0});
    kps.push_back({(w - 29) * 64, (h - 29) * 64, 0});
    const int n = int(kps.size());
    std::vector<uint8_t> unrolled(64 * n, 0xCD), table(64 * n, 0x3C);
    ST_IMAGEFEATURES fu = {kps.data(), unrolled.data(), n};
    ST_IMAGEFEATURES ft = {kps.data(), table.data(), n};
    GenerateDiscriptor_Brief(s.data(), &fu, w + 1);
    tocra::GenerateDiscriptor_Brief_Table(s.data(), &ft, w + 1);
    int ones = 0;
    for (int i = 0; i < n; ++i) {
        const std::vector<uint8_t> ref = Reference(s64, w, kps[i]);
        ASSERT_EQ(memcmp(unrolled.data() + 64 * i, ref.data(), 64), 0) << "keypoint " << i;
        ASSERT_EQ(memcmp(table.data() + 64 * i, ref.data(), 64), 0) << "keypoint " << i;
        for (uint8_t b : ref) ones += __builtin_popcount(b);
    }
    // Textured enough that bits of both values appear.
    EXPECT_GT(ones, n * 512 / 5);
    EXPECT_LT(ones, n * 512 * 4 / 5);
}

TEST(BriefKernels, BitOrderFollowsThePatternOnGradients) {
    // Brightness rising downwards: a test is 1 exactly when its first box
    // lies higher (smaller dy); equal rows give equal sums and bit 0.
    const int w = 96, h = 96;
    std::vector<uint8_t> down(w * h), right(w * h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            down[y * w + x] = uint8_t(2 * y);
            right[y * w + x] = uint8_t(2 * x);
        }
    }
    const std::vector<Test4> pattern = LoadPattern();
    tagST_KEYPOINT kp = {48 * 64, 48 * 64, 0};
    for (int dir = 0; dir < 2; ++dir) {
        std::vector<int> s = LibraryIntegral(Integral(dir == 0 ? down.data() : right.data(), w, h, w));
        uint8_t d[64];
        ST_IMAGEFEATURES f = {&kp, d, 1};
        GenerateDiscriptor_Brief(s.data(), &f, w + 1);
        for (int t = 0; t < 512; ++t) {
            const Test4& p = pattern[t];
            const bool expect = dir == 0 ? p.dy1 < p.dy2 : p.dx1 < p.dx2;
            EXPECT_EQ((d[t / 8] >> (7 - t % 8)) & 1, expect ? 1 : 0) << "test " << t;
        }
        if (dir == 0) {
            // Worked by hand from the first eight tests: 1 1 1 0 0 1 1 0.
            EXPECT_EQ(d[0], 0xE6);
        }
    }
}

TEST(BriefKernels, FlatImageGivesAllZeroBits) {
    const int w = 64, h = 64;
    std::vector<uint8_t> img(w * h, 77);
    std::vector<int> s = LibraryIntegral(Integral(img.data(), w, h, w));
    tagST_KEYPOINT kp = {32 * 64, 32 * 64, 0};
    uint8_t d[64];
    memset(d, 0xFF, 64);
    ST_IMAGEFEATURES f = {&kp, d, 1};
    GenerateDiscriptor_Brief(s.data(), &f, w + 1);
    for (uint8_t b : d) EXPECT_EQ(b, 0);
}

TEST(BriefKernels, WrappedIntegralEntriesGiveTheSameBytes) {
    // Entries of a very large image wrap modulo 2^32; both kernels take the
    // four-corner difference modulo 2^32 as well. Random entries stand in.
    const int w = 80, h = 80;
    std::vector<uint8_t> r = tocra_test::RandomBytes(size_t(w + 1) * (h + 1) * 4, 17);
    std::vector<int> s(size_t(w + 1) * (h + 1));
    memcpy(s.data(), r.data(), s.size() * 4);
    std::vector<tagST_KEYPOINT> kps = RandomKeypoints(20, w, h, 9);
    std::vector<uint8_t> a(64 * 20), b(64 * 20);
    ST_IMAGEFEATURES fa = {kps.data(), a.data(), 20}, fb = {kps.data(), b.data(), 20};
    GenerateDiscriptor_Brief(s.data(), &fa, w + 1);
    tocra::GenerateDiscriptor_Brief_Table(s.data(), &fb, w + 1);
    EXPECT_EQ(a, b);
}

TEST(BriefKernels, NullAndEmptyInputWriteNothing) {
    uint8_t d[64];
    memset(d, 0xAB, 64);
    tagST_KEYPOINT kp = {40 * 64, 40 * 64, 0};
    int s[4] = {};
    ST_IMAGEFEATURES f = {&kp, d, 0};
    GenerateDiscriptor_Brief(s, &f, 81);
    f.count = -3;
    GenerateDiscriptor_Brief(s, &f, 81);
    f.count = 1;
    GenerateDiscriptor_Brief(nullptr, &f, 81);
    GenerateDiscriptor_Brief(s, nullptr, 81);
    ST_IMAGEFEATURES noKeys = {nullptr, d, 1};
    GenerateDiscriptor_Brief(s, &noKeys, 81);
    for (uint8_t b : d) EXPECT_EQ(b, 0xAB);
    EXPECT_EQ(smoothedSum(nullptr, 0, 0, 0, 0, 1), 0);
    EXPECT_EQ(GenerateDiscriptor_Brief_MT(nullptr, s, 81), -1);
    EXPECT_EQ(GenerateDiscriptor_Brief_MT(&f, nullptr, 81), -1);
    GenerateDiscriptor_Brief_MT_Caller(nullptr, 0);
}

// ---------------------------------------------------------------------------
// Four-way split
// ---------------------------------------------------------------------------

TEST(BriefSplit, FourWorkersMatchOneCallForEveryCount) {
    const int w = 120, h = 100;
    const std::vector<uint8_t> img = Textured(w, h, w, 21);
    std::vector<int> s = LibraryIntegral(Integral(img.data(), w, h, w));
    for (int count : {0, 1, 3, 4, 5, 7, 17}) {
        SCOPED_TRACE(count);
        std::vector<tagST_KEYPOINT> kps = RandomKeypoints(count, w, h, 100 + count);
        std::vector<uint8_t> one(64 * count + 64, 0x11), four(64 * count + 64, 0x11), serial(64 * count + 64, 0x11);
        ST_IMAGEFEATURES f1 = {kps.data(), one.data(), count};
        GenerateDiscriptor_Brief(s.data(), &f1, w + 1);
        ST_IMAGEFEATURES f4 = {kps.data(), four.data(), count};
        tocra_test::CaptureStdout([&] {
            ASSERT_EQ(MultiThread_Init(4), TOCRA_OK);
            EXPECT_EQ(GenerateDiscriptor_Brief_MT(&f4, s.data(), w + 1), TOCRA_OK);
            MultiThread_destory();
        });
        EXPECT_EQ(one, four);
        // Without a started pool every share runs on the calling thread.
        ST_IMAGEFEATURES fs = {kps.data(), serial.data(), count};
        GenerateDiscriptor_Brief_MT(&fs, s.data(), w + 1);
        EXPECT_EQ(one, serial);
        // Nothing past the last descriptor.
        for (int i = 64 * count; i < 64 * count + 64; ++i) EXPECT_EQ(four[i], 0x11);
    }
}

TEST(BriefSplit, WorkerShares) {
    // count 6: per = 1; workers 0..2 take one keypoint each, worker 3 three.
    const int w = 100, h = 100;
    const std::vector<uint8_t> img = Textured(w, h, w, 4);
    std::vector<int> s = LibraryIntegral(Integral(img.data(), w, h, w));
    std::vector<tagST_KEYPOINT> kps = RandomKeypoints(6, w, h, 6);
    std::vector<uint8_t> d(64 * 6, 0);
    ST_IMAGEFEATURES f = {kps.data(), d.data(), 6};
    struct {
        int32_t stride, workers;
        const int* integral;
        ST_IMAGEFEATURES* features;
    } job = {w + 1, 4, s.data(), &f};
    GenerateDiscriptor_Brief_MT_Caller(&job, 3);
    for (int i = 0; i < 3 * 64; ++i) ASSERT_EQ(d[i], 0) << i;
    std::vector<uint8_t> all(64 * 6);
    ST_IMAGEFEATURES fa = {kps.data(), all.data(), 6};
    GenerateDiscriptor_Brief(s.data(), &fa, w + 1);
    EXPECT_EQ(memcmp(d.data() + 3 * 64, all.data() + 3 * 64, 3 * 64), 0);
    GenerateDiscriptor_Brief_MT_Caller(&job, 1);
    EXPECT_EQ(memcmp(d.data() + 64, all.data() + 64, 64), 0);
    EXPECT_EQ(d[0], 0);
    GenerateDiscriptor_Brief_MT_Caller(&job, 4);  // no such worker: nothing
    GenerateDiscriptor_Brief_MT_Caller(&job, -1);
}

// ---------------------------------------------------------------------------
// Entry point
// ---------------------------------------------------------------------------

namespace {

struct BriefCall {
    int w = 200, h = 150, stride = 256;
    std::vector<uint8_t> image;
    std::vector<tagST_KEYPOINT> kps;
    std::vector<uint8_t> desc;
    tocra_test::HandleTable table;
    tagST_BRIEF_REQUEST req = {};

    explicit BriefCall(int count, uint32_t seed = 1) {
        image = Textured(w, h, stride, seed);
        kps = RandomKeypoints(count, w, h, seed + 7);
        desc.assign(64 * size_t(count) + 64, 0xCD);
        req.hImage = table.Add(image.data());
        req.reserved = 0xDEADBEEFu;
        req.hKeyPoints = table.Add(kps.empty() ? static_cast<void*>(&req) : kps.data());
        req.hDescriptors = table.Add(desc.data());
        req.width = w;
        req.height = h;
        req.stride = stride;
        req.count = count;
        table.Install();
    }
    int Run() {
        int ret = 1;
        tocra_test::CaptureStdout([&] { ret = GetBrief_Descriptors_TocraAPI(&req); });
        return ret;
    }
    bool Untouched() const {
        for (uint8_t b : desc) {
            if (b != 0xCD) return false;
        }
        return true;
    }
};

}  // namespace

TEST(GetBriefDescriptors, DescriptorsMatchTheReferenceAndAreFlushed) {
    BriefCall c(37);
    tocra_test::ClearFlushes();
    tocra_test::ClearLog();
    ASSERT_EQ(c.Run(), TOCRA_OK);
    const std::vector<int64_t> s = Integral(c.image.data(), c.w, c.h, c.stride);
    for (int i = 0; i < 37; ++i) {
        const std::vector<uint8_t> ref = Reference(s, c.w, c.kps[i]);
        ASSERT_EQ(memcmp(c.desc.data() + 64 * i, ref.data(), 64), 0) << "keypoint " << i;
    }
    for (size_t i = 64 * 37; i < c.desc.size(); ++i) EXPECT_EQ(c.desc[i], 0xCD);
    EXPECT_TRUE(tocra_test::Flushed(c.desc.data(), 64 * 37));
    EXPECT_TRUE(tocra_test::Log().empty());
    for (const tagST_KEYPOINT& k : c.kps) EXPECT_EQ(k.reserved, 0xA5A5A5A5u);
}

TEST(GetBriefDescriptors, FewerThanFourAndNoKeypoints) {
    BriefCall three(3, 5);
    ASSERT_EQ(three.Run(), TOCRA_OK);
    const std::vector<int64_t> s = Integral(three.image.data(), three.w, three.h, three.stride);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(memcmp(three.desc.data() + 64 * i, Reference(s, three.w, three.kps[i]).data(), 64), 0);
    }

    BriefCall none(0);
    tocra_test::ClearFlushes();
    EXPECT_EQ(none.Run(), TOCRA_OK);
    EXPECT_TRUE(none.Untouched());
    EXPECT_TRUE(tocra_test::Flushed(none.desc.data(), 0));
}

TEST(GetBriefDescriptors, HalfPixelRoundingOfKeypoints) {
    BriefCall c(4, 9);
    const int px = 90, py = 70;
    c.kps[0] = {64 * px + 31, 64 * py, 0};
    c.kps[1] = {64 * px, 64 * py + 31, 0};
    c.kps[2] = {64 * px + 32, 64 * py, 0};
    c.kps[3] = {64 * (px + 1), 64 * py, 0};
    ASSERT_EQ(c.Run(), TOCRA_OK);
    const std::vector<int64_t> s = Integral(c.image.data(), c.w, c.h, c.stride);
    const std::vector<uint8_t> at = Reference(s, c.w, {64 * px, 64 * py, 0});
    EXPECT_EQ(memcmp(c.desc.data(), at.data(), 64), 0);
    EXPECT_EQ(memcmp(c.desc.data() + 64, at.data(), 64), 0);
    EXPECT_EQ(memcmp(c.desc.data() + 128, c.desc.data() + 192, 64), 0);
    EXPECT_NE(memcmp(c.desc.data(), c.desc.data() + 128, 64), 0);
}

TEST(GetBriefDescriptors, NullRequestAndFailedConversions) {
    tocra_test::ClearLog();
    EXPECT_EQ(GetBrief_Descriptors_TocraAPI(nullptr), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "GetBrief_Descriptors_TocraAPI request pointer is null\n"));
    for (int which = 0; which < 3; ++which) {
        SCOPED_TRACE(which);
        BriefCall c(5);
        c.table.Break(which == 0 ? c.req.hImage : which == 1 ? c.req.hKeyPoints : c.req.hDescriptors);
        tocra_test::ClearLog();
        EXPECT_EQ(c.Run(), TOCRA_NULL_POINTER);
        EXPECT_TRUE(Logged(6, "GetBrief_Descriptors_TocraAPI FunConvert2Addr convert addr pointer error\n"));
        EXPECT_TRUE(c.Untouched());
    }
    // Handle 0 never converts.
    BriefCall c(5);
    c.req.hImage = 0;
    EXPECT_EQ(c.Run(), TOCRA_NULL_POINTER);
    setIO2VAConverter(nullptr);  // no hook at all: every conversion fails
    EXPECT_EQ(c.Run(), TOCRA_NULL_POINTER);
    EXPECT_TRUE(c.Untouched());
}

TEST(GetBriefDescriptors, ImpossibleSizesAreRefused) {
    struct Case {
        int w, h, stride, count;
    };
    const Case cases[] = {{0, 150, 256, 5},
                          {-200, 150, 256, 5},
                          {200, 0, 256, 5},
                          {200, -1, 256, 5},
                          {200, 150, 199, 5},
                          {200, 150, -4, 5},
                          {INT32_MAX, INT32_MAX, INT32_MAX, 5}};
    for (const Case& k : cases) {
        BriefCall c(5);
        c.req.width = k.w;
        c.req.height = k.h;
        c.req.stride = k.stride;
        c.req.count = k.count;
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
        EXPECT_EQ(c.Run(), -998) << k.w << "x" << k.h << " stride " << k.stride << " count " << k.count;
        char line[200];
        snprintf(line, sizeof(line),
                 "GetBrief_Descriptors_TocraAPI invalid size: width[%d] height[%d] stride[%d] count[%d]\n", k.w, k.h,
                 k.stride, k.count);
        EXPECT_TRUE(Logged(6, line)) << line;
        EXPECT_TRUE(c.Untouched());
        EXPECT_TRUE(tocra_test::Flushes().empty());
    }
}

TEST(GetBriefDescriptors, KeypointsWhoseBoxesLeaveTheImageAreRefused) {
    // Centres 27 .. size - 29 keep every box inside (offsets -23 .. 24,
    // boxes reach 4 further, plus the integral's extra entry).
    struct Case {
        int px, py;
        bool ok;
    };
    const int w = 200, h = 150;
    const Case cases[] = {{27, 27, true},         {26, 60, false},      {60, 26, false},
                          {w - 29, h - 29, true}, {w - 28, 60, false},  {60, h - 28, false},
                          {-5000, 60, false},     {60, 1 << 20, false}, {1 << 24, 1 << 24, false}};
    for (const Case& k : cases) {
        BriefCall c(5);
        c.kps[3] = {k.px * 64, k.py * 64, 0};
        tocra_test::ClearLog();
        const int ret = c.Run();
        if (k.ok) {
            EXPECT_EQ(ret, 0) << k.px << "," << k.py;
        } else {
            EXPECT_EQ(ret, -998) << k.px << "," << k.py;
            EXPECT_TRUE(Logged(6, "GetBrief_Descriptors_TocraAPI keypoint 3 out of range\n"));
            EXPECT_TRUE(c.Untouched());
        }
    }
    // 1/64 positions round before the check: 26.5 pixels is pixel 27.
    BriefCall c(5);
    c.kps[0] = {26 * 64 + 31, 27 * 64, 0};
    EXPECT_EQ(c.Run(), TOCRA_NULL_POINTER);
    c.kps[0] = {26 * 64 + 32, 26 * 64 + 32, 0};
    EXPECT_EQ(c.Run(), TOCRA_OK);
}
