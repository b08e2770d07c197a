#include <cmath>

#include "support/test_support.h"

namespace {

struct Result {
    int status;
    tagST_REGISTRATION_AREA area;
};

Result Estimate(std::initializer_list<float> h, int W = 1920, int Hh = 1080) {
    float H[9];
    std::copy(h.begin(), h.end(), H);
    Result r{0, {-7, -7, -7, -7}};
    tocra_test::ClearLog();
    r.status = MotionEstimation(H, W, Hh, &r.area);
    return r;
}

void ExpectArea(const Result& r, int x, int y, int w, int h) {
    ASSERT_EQ(r.status, TOCRA_OK);
    EXPECT_EQ(r.area.x, x);
    EXPECT_EQ(r.area.y, y);
    EXPECT_EQ(r.area.width, w);
    EXPECT_EQ(r.area.height, h);
}

void ExpectRejected(const Result& r, const char* message) {
    EXPECT_EQ(r.status, TOCRA_REG_REJECTED);
    EXPECT_TRUE(tocra_test::Logged(6, message)) << message;
    EXPECT_EQ(r.area.x, -7);  // untouched
    EXPECT_EQ(r.area.width, -7);
}

TEST(MotionEstimation, IdentityShrinksTwoInPassCThenAligns) {
    // Corners give 1920 x 1080; the bottom-right corner maps to 1920 and
    // 1919 > 1918 twice, so 1918 x 1078, aligned down to 1912 x 1072.
    ExpectArea(Estimate({1, 0, 0, 0, 1, 0, 0, 0, 1}), 0, 0, 1912, 1072);
}

TEST(MotionEstimation, TranslationsWorkedByHand) {
    // Frame point = reference point + 100: the covered columns are 0 .. 1819
    // (left corner -99.5 rounds to -99); pass c takes two columns and two
    // rows; 1818 aligns to 1816.
    ExpectArea(Estimate({1, 0, 100, 0, 1, 0, 0, 0, 1}), 0, 0, 1816, 1072);
    // Frame point = reference point - 100: columns 100 .. 1919.
    ExpectArea(Estimate({1, 0, -100, 0, 1, 0, 0, 0, 1}), 100, 0, 1816, 1072);
    // An odd start (101, width 1819): w8 = 1816, d = 3 is odd, x moves by 3.
    ExpectArea(Estimate({1, 0, -101, 0, 1, 0, 0, 0, 1}), 104, 0, 1816, 1072);
    // Rows the same way: 1080 - 60 rows from row 60, 1020 aligned to 1016.
    ExpectArea(Estimate({1, 0, 0, 0, 1, -60, 0, 0, 1}), 0, 60, 1912, 1016);
}

TEST(MotionEstimation, LargeMotionIsRejected) {
    ExpectRejected(Estimate({1, 0, 350, 0, 1, 0, 0, 0, 1}),
                   "IMG_REGISTRATION: the global motion between two frames is too large!");
    ExpectRejected(Estimate({1, 0, 0, 0, 1, -301, 0, 0, 1}),
                   "IMG_REGISTRATION: the global motion between two frames is too large!");
}

TEST(MotionEstimation, StrongPerspectiveIsIncorrect) {
    // The inverse of a pure perspective has i20 = -h6.
    ExpectRejected(Estimate({1, 0, 0, 0, 1, 0, -0.0002f, 0, 1}), "IMG_REGISTRATION: Incorrect h!");
    ExpectRejected(Estimate({1, 0, 0, 0, 1, 0, 0, 0.0002f, 1}), "IMG_REGISTRATION: Incorrect h!");
    // 0.00005 is within the limit.
    EXPECT_EQ(Estimate({1, 0, 0, 0, 1, 0, 0.00005f, 0, 1}).status, TOCRA_OK);
}

TEST(MotionEstimation, SingularAndNonFiniteMatricesEndInTheAreaError) {
    // All zero (h8 taken as 1): det = 0, r = 1/0 = inf, every inverse entry
    // 0 * inf = NaN. NaN passes the perspective check (the comparison is
    // false), every corner converts to 0, so the middle two X values are
    // equal: step 4's message.
    const char* area = "IMG_REGISTRATION: calculate motion area error!";
    for (const auto& h : {std::initializer_list<float>{0, 0, 0, 0, 0, 0, 0, 0, 0},
                          std::initializer_list<float>{NAN, 0, 0, 0, 1, 0, 0, 0, 1},
                          std::initializer_list<float>{1, 0, INFINITY, 0, 1, 0, 0, 0, 1},
                          std::initializer_list<float>{1, 0, 0, 0, 1, 0, NAN, NAN, 1}}) {
        const Result r = Estimate(h);
        ExpectRejected(r, area);
        EXPECT_FALSE(tocra_test::Logged(6, "IMG_REGISTRATION: Incorrect h!"));
    }
    // A finite but enormous shift: every corner saturates at the int range
    // (left ones round, right ones truncate, both to INT32_MIN), so the
    // middle two are again equal.
    ExpectRejected(Estimate({1, 0, 1e30f, 0, 1, 0, 0, 0, 1}), area);
    // Small frames go through the same steps: identity on 6 x 6 covers
    // columns 0 .. 5; pass c maps 6 and then 5 past 4 and keeps 4 x 4,
    // which aligns to 0, not above 3.
    ExpectRejected(Estimate({1, 0, 0, 0, 1, 0, 0, 0, 1}, 6, 6), area);
}

TEST(MotionEstimation, AreaErrors) {
    // A 10000x zoom: all four corners come back to column 0.
    ExpectRejected(Estimate({10000, 0, 0, 0, 10000, 0, 0, 0, 1}), "IMG_REGISTRATION: calculate motion area error!");
    // No overlap at all (the message has no exclamation mark).
    ExpectRejected(Estimate({1, 0, 2500, 0, 1, 0, 0, 0, 1}), "IMG_REGISTRATION: calculate motion area error");
    // A small frame that keeps no more than half its width.
    ExpectRejected(Estimate({1, 0, 40, 0, 1, 0, 0, 0, 1}, 64, 64), "IMG_REGISTRATION: calculate motion area error!");
}

TEST(MotionEstimation, AreaIsAlwaysInsideTheFrameAndAligned) {
    uint32_t s = 1;
    auto rnd = [&s](float span) {
        s = s * 1664525u + 1013904223u;
        return (static_cast<float>(s >> 8) / 16777216.0f * 2.0f - 1.0f) * span;
    };
    int accepted = 0;
    for (int i = 0; i < 2000; ++i) {
        Result r = Estimate(
            {1 + rnd(0.05f), rnd(0.05f), rnd(150), rnd(0.05f), 1 + rnd(0.05f), rnd(150), rnd(5e-5f), rnd(5e-5f), 1},
            640 + 8 * static_cast<int>(s % 50), 480 + 8 * static_cast<int>((s >> 8) % 40));
        if (r.status != 0) continue;
        ++accepted;
        EXPECT_GE(r.area.x, 0);
        EXPECT_GE(r.area.y, 0);
        EXPECT_EQ(r.area.x % 2, 0);
        EXPECT_EQ(r.area.y % 2, 0);
        EXPECT_EQ(r.area.width % 8, 0);
        EXPECT_EQ(r.area.height % 8, 0);
    }
    EXPECT_GT(accepted, 100);
}

TEST(MotionEstimation, AreaFitsTheFrame) {
    for (int W : {64, 200, 1920}) {
        for (float t : {-30.f, -3.f, 0.f, 3.f, 30.f}) {
            float H[9] = {1, 0, t, 0, 1, t / 2, 0, 0, 1};
            tagST_REGISTRATION_AREA a{};
            if (MotionEstimation(H, W, W / 2 + 64, &a) != 0) continue;
            EXPECT_LE(a.x + a.width, W);
            EXPECT_LE(a.y + a.height, W / 2 + 64);
        }
    }
}

TEST(ImgRegistrationQuery, SizeInUnsigned32BitArithmetic) {
    int size = 0, other = 7;
    EXPECT_EQ(ImgRegistration_Query(&size, &other, 1920, 1080), TOCRA_OK);
    EXPECT_EQ(size, (1920 * 1080 * 3 / 2 + 48) * 4);
    EXPECT_EQ(other, 0);
    EXPECT_EQ(ImgRegistration_Query(&size, &other, 4000, 3000), TOCRA_OK);
    EXPECT_EQ(size, (4000 * 3000 * 3 / 2 + 48) * 4);
    EXPECT_EQ(ImgRegistration_Query(nullptr, &other, 64, 64), TOCRA_NULL_POINTER);
}

// Pairs on a grid mapped by a translation (tx, ty): the refit recovers it.
struct GridPairs {
    std::vector<float> ref, match;
    GridPairs(int W, int Hh, float tx, float ty) {
        for (int y = 4; y < Hh - 4; y += 9) {
            for (int x = 3; x < W - 4; x += 11) {
                ref.insert(ref.end(), {static_cast<float>(x), static_cast<float>(y)});
                match.insert(match.end(), {x + tx, y + ty});
            }
        }
    }
    tagST_MATCH_PAIRS Record() { return {ref.data(), match.data(), static_cast<int32_t>(ref.size() / 2)}; }
};

// A registration frame of exact size: planar luma pitch (W + 127) & ~127
// with chroma pitch ((W / 2) + 127) & ~127, NV12 planes of pitch W.
struct RegFrame {
    std::vector<uint8_t> y, u, v;
    tagST_PIC pic{};
    RegFrame(int W, int Hh, bool nv12, uint32_t seed) {
        const int pitch = nv12 ? W : (W + 127) & ~127, cpitch = nv12 ? W : ((W / 2) + 127) & ~127;
        y = tocra_test::RandomBytes(static_cast<size_t>(pitch) * Hh, seed);
        u = tocra_test::RandomBytes(static_cast<size_t>(cpitch) * (Hh / 2), seed + 1);
        if (!nv12) v = tocra_test::RandomBytes(static_cast<size_t>(cpitch) * (Hh / 2), seed + 2);
        pic = {W, Hh, pitch, y.data(), u.data(), nv12 ? nullptr : v.data(), nv12 ? 0 : TOCRA_FORMAT_YUV420};
    }
};

TEST(ImgRegistration, PairCountFirstThenPairArraysThenMotionThenSlotAndPlanes) {
    const int W = 64, Hh = 64;
    tagST_IMGREGISTRATION_PARAMS_IN in{};
    tagST_IMGREGISTRATION_PARAMS_OUT out{};
    in.refPic = {W, Hh, 128, nullptr, nullptr, nullptr, TOCRA_FORMAT_YUV420};
    out.area = {-7, -7, -7, -7};
    // Too few pairs: 3, although nothing else is usable.
    in.matchPairs = {nullptr, nullptr, 4};
    tocra_test::ClearLog();
    EXPECT_EQ(ImgRegistration(&in, &out, 1), TOCRA_REG_REJECTED);
    EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration: not enough keypoints = 4\n"));
    // Enough pairs, no arrays: refused before the refit.
    in.matchPairs.pointNum = 8;
    tocra_test::ClearLog();
    EXPECT_EQ(ImgRegistration(&in, &out, 1), TOCRA_NULL_POINTER);
    EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration: matchPairs.pRefPoint is invalid\n"));
    // A motion of 40 columns on a 64-wide frame keeps less than half of it:
    // 3 before any plane (all null here) is looked at, whatever the slot.
    GridPairs far(W, Hh, 40, 0);
    in.matchPairs = far.Record();
    for (int k : {1, 6, -1}) {
        tocra_test::ClearLog();
        EXPECT_EQ(ImgRegistration(&in, &out, k), 3) << k;
        EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration: MotionEstimation fail 3\n"));
        EXPECT_EQ(out.area.x, -7);
    }
    // An accepted motion: then the slot, then each plane the warp touches.
    GridPairs near(W, Hh, 0, 0);
    in.matchPairs = near.Record();
    for (int k : {6, -1, 1000}) {
        tocra_test::ClearLog();
        EXPECT_EQ(ImgRegistration(&in, &out, k), TOCRA_NULL_POINTER);
        EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration: frame index " + std::to_string(k) + " out of range\n"));
    }
    RegFrame src(W, Hh, false, 3), dst(W, Hh, false, 9);
    in.srcPic = src.pic;
    out.outPic[2] = dst.pic;
    const char* names[6] = {"srcPic.pY", "srcPic.pU", "srcPic.pV", "outPic.pY", "outPic.pU", "outPic.pV"};
    uint8_t** fields[6] = {&in.srcPic.pY,     &in.srcPic.pU,     &in.srcPic.pV,
                           &out.outPic[2].pY, &out.outPic[2].pU, &out.outPic[2].pV};
    for (int i = 0; i < 6; ++i) {
        uint8_t* keep = *fields[i];
        *fields[i] = nullptr;
        tocra_test::ClearLog();
        EXPECT_EQ(ImgRegistration(&in, &out, 2), -998) << names[i];
        EXPECT_TRUE(tocra_test::Logged(6, std::string("Reg ImgRegistration: ") + names[i] + " is invalid\n"));
        *fields[i] = keep;
    }
    // NV12 has no V plane to check.
    in.refPic.format = 0;
    in.srcPic.pV = nullptr;
    out.outPic[2].pV = nullptr;
    RegFrame srcNv(W, Hh, true, 3), dstNv(W, Hh, true, 9);
    in.srcPic = srcNv.pic;
    out.outPic[2] = dstNv.pic;
    EXPECT_EQ(ImgRegistration(&in, &out, 2), TOCRA_OK);
    EXPECT_EQ(ImgRegistration(nullptr, &out, 1), TOCRA_NULL_POINTER);
    EXPECT_EQ(ImgRegistration(&in, nullptr, 1), TOCRA_NULL_POINTER);
}

TEST(ImgRegistration, SlotZeroIsWrittenLikeAnyOther) {
    // Identity pairs on 64 x 64: the area is 56 x 56 (62 x 62 after pass c,
    // aligned down; the refit's rounding may move its start). Slot 0
    // receives the same bytes as slot 1, and inside the area they are the
    // source (up to that rounding, which can move a fraction to 127/128 of
    // a neighbour).
    for (bool nv12 : {false, true}) {
        const int W = 64, Hh = 64;
        GridPairs pairs(W, Hh, 0, 0);
        RegFrame src(W, Hh, nv12, 21), dst0(W, Hh, nv12, 5), dst1(W, Hh, nv12, 5);
        tagST_IMGREGISTRATION_PARAMS_IN in{};
        tagST_IMGREGISTRATION_PARAMS_OUT out{};
        in.refPic = src.pic;
        in.srcPic = src.pic;
        in.matchPairs = pairs.Record();
        out.outPic[0] = dst0.pic;
        out.outPic[1] = dst1.pic;
        ASSERT_EQ(ImgRegistration(&in, &out, 1), TOCRA_OK);
        const std::vector<uint8_t> untouched = RegFrame(W, Hh, nv12, 5).y;
        EXPECT_EQ(dst0.y, untouched);
        ASSERT_EQ(ImgRegistration(&in, &out, 0), TOCRA_OK);
        const tagST_REGISTRATION_AREA a = out.area;
        EXPECT_EQ(a.width, 56);
        EXPECT_EQ(a.height, 56);
        EXPECT_EQ(dst0.y, dst1.y);
        EXPECT_EQ(dst0.u, dst1.u);
        EXPECT_EQ(dst0.v, dst1.v);
        for (int r = a.y; r < a.y + a.height; ++r)
            for (int c = a.x; c < a.x + a.width; ++c)
                ASSERT_LE(std::abs(dst0.y[r * src.pic.stride + c] - src.y[r * src.pic.stride + c]), 3)
                    << nv12 << " " << c << "," << r;
    }
}

}  // namespace
