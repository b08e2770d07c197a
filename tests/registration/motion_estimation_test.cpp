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
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.area.x, x);
    EXPECT_EQ(r.area.y, y);
    EXPECT_EQ(r.area.width, w);
    EXPECT_EQ(r.area.height, h);
}

void ExpectRejected(const Result& r, const char* message) {
    EXPECT_EQ(r.status, 3);
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
    EXPECT_EQ(Estimate({1, 0, 0, 0, 1, 0, 0.00005f, 0, 1}).status, 0);
}

TEST(MotionEstimation, SingularOrNanMatricesAreIncorrect) {
    ExpectRejected(Estimate({0, 0, 0, 0, 0, 0, 0, 0, 0}), "IMG_REGISTRATION: Incorrect h!");
    ExpectRejected(Estimate({NAN, 0, 0, 0, 1, 0, 0, 0, 1}), "IMG_REGISTRATION: Incorrect h!");
    ExpectRejected(Estimate({1, 0, INFINITY, 0, 1, 0, 0, 0, 1}), "IMG_REGISTRATION: Incorrect h!");
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
        Result r = Estimate({1 + rnd(0.05f), rnd(0.05f), rnd(150), rnd(0.05f), 1 + rnd(0.05f), rnd(150), rnd(5e-5f),
                             rnd(5e-5f), 1},
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
    EXPECT_EQ(ImgRegistration_Query(&size, &other, 1920, 1080), 0);
    EXPECT_EQ(size, (1920 * 1080 * 3 / 2 + 48) * 4);
    EXPECT_EQ(other, 0);
    EXPECT_EQ(ImgRegistration_Query(&size, &other, 4000, 3000), 0);
    EXPECT_EQ(size, (4000 * 3000 * 3 / 2 + 48) * 4);
    EXPECT_EQ(ImgRegistration_Query(nullptr, &other, 64, 64), -998);
}

TEST(ImgRegistration, TooFewPairsAndBadRecords) {
    float pts[16] = {0};
    tagST_IMGREGISTRATION_PARAMS_IN in{};
    tagST_IMGREGISTRATION_PARAMS_OUT out{};
    in.refPic.width = 640;
    in.refPic.height = 480;
    in.matchPairs = {pts, pts + 8, 4};
    tocra_test::ClearLog();
    EXPECT_EQ(ImgRegistration(&in, &out, 1), 3);
    EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration: not enough keypoints = 4\n"));
    EXPECT_EQ(ImgRegistration(nullptr, &out, 1), -998);
    EXPECT_EQ(ImgRegistration(&in, nullptr, 1), -998);
    in.matchPairs.pointNum = 8;
    EXPECT_EQ(ImgRegistration(&in, &out, 0), -998);
    EXPECT_EQ(ImgRegistration(&in, &out, 6), -998);
    EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration: frame index 6 out of range\n"));
    in.matchPairs.pRefPoint = nullptr;
    EXPECT_EQ(ImgRegistration(&in, &out, 1), -998);
}

}  // namespace
