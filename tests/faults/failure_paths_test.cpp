// Failure paths that only a crafted input or a failing resource reaches: the
// step counter of the motion check's shrink passes, the minimiser's cap on
// outer iterations, a refit inside RANSAC that cannot get memory, and the
// descriptor entry point whose worker pool does not start.
#include <cmath>
#include <string>
#include <vector>

#include "frame/platform.h"
#include "registration/brief.h"
#include "support/entry_cases.h"
#include "support/test_support.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using tocra_test::FaultKind;

// ---- MotionEstimation: 50 steps for passes a and b, 50 for c and d ------------
//
// Two matrices, each with a twin whose h2 is one pixel further, on a 640 x
// 480 frame. The passes were counted evaluation by evaluation, outside the
// library, from the steps as the motion check defines them (inverse corners,
// middle intervals, then the shrink passes through H):
//
// Passes a and b, H = [0.87109375 -0.37890625 h2; 0.21484375 1.1328125 -277;
// 2^-14 2^-14 1]. With h2 = -89 the inverse's area is x 311, y 203, width 329,
// height 277 before the passes; pass a trims it step by step (48
// evaluations, the last bringing the top-left corner inside), pass b's first
// evaluation passes: 49 in all. Passes c and d take 3 more, and alignment
// gives (312, 208, 328, 272). With h2 = -90, pass a needs one step more and
// pass b's evaluation is the 50th: rejected, although it found the corner
// inside.
//
// Passes c and d, H = [1.0234375 0.21875 h2; 0.234375 1.05078125 -236;
// -2^-15 -2^-14 1]. With h2 = -89 passes a and b take one evaluation each;
// pass c trims the bottom-right corner, entering pass d counts one step, and
// pass d finishes on the 49th: area (98, 224, 480, 256). With h2 = -90 pass
// d's last evaluation is the 50th: rejected.
struct Shrink {
    float h2;
    int status;
    tagST_REGISTRATION_AREA area;
};

void CheckShrink(const float (&base)[9], const Shrink (&cases)[2]) {
    for (const Shrink& c : cases) {
        float H[9];
        for (int i = 0; i < 9; ++i) H[i] = base[i];
        H[2] = c.h2;
        tagST_REGISTRATION_AREA area{-1, -1, -1, -1};
        tocra_test::ClearLog();
        EXPECT_EQ(MotionEstimation(H, 640, 480, &area), c.status) << c.h2;
        if (c.status == 0) {
            EXPECT_EQ(area.x, c.area.x);
            EXPECT_EQ(area.y, c.area.y);
            EXPECT_EQ(area.width, c.area.width);
            EXPECT_EQ(area.height, c.area.height);
        } else {
            EXPECT_TRUE(tocra_test::Logged(6, "IMG_REGISTRATION: calculate motion area error!")) << c.h2;
            EXPECT_EQ(tocra_test::Log().size(), 1u);
            EXPECT_EQ(area.x, -1) << "area written on failure";
        }
    }
}

const float kQ = 1.0f / 16384;  // 2^-14

TEST(MotionEstimationSteps, FiftyEvaluationsInPassesAAndBFail) {
    const float H[9] = {0.87109375f, -0.37890625f, 0, 0.21484375f, 1.1328125f, -277, kQ, kQ, 1};
    const Shrink cases[2] = {{-89.0f, 0, {312, 208, 328, 272}}, {-90.0f, 3, {}}};
    CheckShrink(H, cases);
}

TEST(MotionEstimationSteps, FiftyEvaluationsInPassesCAndDFail) {
    const float H[9] = {1.0234375f, 0.21875f, 0, 0.234375f, 1.05078125f, -236, -kQ / 2, -kQ, 1};
    const Shrink cases[2] = {{-89.0f, 0, {98, 224, 480, 256}}, {-90.0f, 3, {}}};
    CheckShrink(H, cases);
}

// ---- LM_Minimize: at most 1001 outer iterations ----------------------------------
//
// The residual f(x) = x, whose Jacobian evaluations report a slope of 7
// instead of 1. Each Gauss-Newton step then goes 1/7 of the way (x becomes
// 6/7 x): the sum of squares falls to (6/7)^2 of what it was, an actual
// reduction of 0.265 against a predicted 1, so every step is taken and the
// step bound follows the step, but the minimum is never reached and no
// tolerance (all 0) is met. From x = 1e37, (6/7)^1001 x is still about
// 1e-30: no underflow. The function recognises the Jacobian's evaluations:
// with epsilon 2^-20 the difference step is 2^-10 |x| of the point the call
// before it evaluated. One Jacobian per outer iteration, one trial step.
struct Moving {
    float prev = 0;
    bool havePrev = false;
    int jacobians = 0;
    int calls = 0;
};

void SteepResidual(float* x, int, float* fvec, void* data, int*) {
    Moving* s = static_cast<Moving*>(data);
    ++s->calls;
    bool jacobian = false;
    if (s->havePrev) {
        float h = 0.0009765625f * std::fabs(s->prev);
        if (h == 0.0f) h = 0.0009765625f;
        jacobian = x[0] == s->prev + h;
    }
    if (jacobian) {
        ++s->jacobians;
        fvec[0] = s->prev + 7.0f * (x[0] - s->prev);
        return;  // the base point stays the one before
    }
    fvec[0] = x[0];
    s->prev = x[0];
    s->havePrev = true;
}

TEST(LmMinimizeCap, EndsAfter1001OuterIterations) {
    const int m = 1, n = 1;
    std::vector<unsigned char> work(4u * (m * (n + 2) + 6u * n) + 3u);
    float x[1] = {1e37f};
    Moving s;
    lm_control_type c{};
    c.ftol = 0;
    c.xtol = 0;
    c.gtol = 0;
    c.epsilon = 1.0f / (1 << 20);
    c.stepbound = 1.0f;
    c.maxcall = 1000000;  // a budget of 2,000,000 evaluations: never the reason to stop
    LM_Minimize(m, n, x, SteepResidual, nullptr, &s, &c, work.data());
    EXPECT_EQ(s.jacobians, 1001) << "info " << c.info << ", evaluations " << c.nfev;
    EXPECT_EQ(c.nfev, 1 + 2 * 1001) << "the start, then one Jacobian and one step per iteration";
    EXPECT_EQ(c.nfev, s.calls);
    EXPECT_EQ(c.info, 0) << "the cap ends the call with the info then current";
    EXPECT_GT(x[0], 0.0f);
    EXPECT_LT(x[0], 1e-20f);
}

// ---- RANSAC: a refit that cannot get memory ----------------------------------------
//
// Forty pairs of one translation: the first sample's model has every pair as
// inlier, its refit is accepted, and iteration stops at once (all inliers;
// the log counts the iterations completed: 0). With that first refit
// failing, iteration 1's model is not accepted and the search goes on:
// iteration 2's refit is accepted and ends it (1 iteration completed).
TEST(RansacRefit, AFailingRefitSkipsThatModelAndTheSearchGoesOn) {
    constexpr int N = 40;
    std::vector<float> ref(2 * N), match(2 * N);
    auto fill = [&] {
        for (int i = 0; i < N; ++i) {
            ref[2 * i] = static_cast<float>(8 + (i * 37) % 110);
            ref[2 * i + 1] = static_cast<float>(6 + (i * 23) % 50);
            match[2 * i] = ref[2 * i] + 3;
            match[2 * i + 1] = ref[2 * i + 1] + 1;
        }
    };
    std::vector<unsigned char> scratch(N * 80);
    tagRANSAC_PARAMS params{100, 160.0f, 0.9995f};

    fill();
    tagST_MATCH_PAIRS pairs{ref.data(), match.data(), N};
    float H[9] = {};
    tocra_test::ClearLog();
    int refits;
    {
        tocra_test::FaultInjection count(FaultKind::kAllocation, 0);
        EXPECT_EQ(RansacEstimation(&pairs, H, &params, scratch.data()), TOCRA_OK);
        refits = count.count();
    }
    EXPECT_EQ(refits, 1);
    EXPECT_TRUE(tocra_test::Logged(4, "ransac iteration count:0\n"))
        << "all inliers: stopped within the first iteration";
    EXPECT_TRUE(tocra_test::Logged(4, "ransac find inliner count:40/40\n"));

    fill();
    pairs = {ref.data(), match.data(), N};
    float H2[9] = {};
    tocra_test::ClearLog();
    {
        tocra_test::FaultInjection fail(FaultKind::kAllocation, 1);
        EXPECT_EQ(RansacEstimation(&pairs, H2, &params, scratch.data()), TOCRA_OK);
        EXPECT_TRUE(fail.fired());
        EXPECT_EQ(fail.count(), 2) << "one refit failed, the next one ran";
    }
    EXPECT_EQ(tocra_test::CountLogged("Refine malloc failed!\n"), 1);
    EXPECT_TRUE(tocra_test::Logged(4, "ransac iteration count:1\n"))
        << "iteration 1 ran to its end, iteration 2 stopped the search";
    EXPECT_TRUE(tocra_test::Logged(4, "ransac find inliner count:40/40\n"));
    EXPECT_EQ(pairs.pointNum, N);
    // Both models are the translation.
    EXPECT_NEAR(H2[2], 3.0f, 1e-3f);
    EXPECT_NEAR(H2[5], 1.0f, 1e-3f);
    EXPECT_TRUE(tocra_test::Outstanding().empty());
}

// Refine on its own answers -1 and leaves everything as it was.
TEST(RansacRefit, RefineWithoutMemoryAnswersMinusOne) {
    float ref[10] = {0, 0, 10, 0, 0, 10, 10, 10, 5, 7}, match[10] = {1, 1, 11, 1, 1, 11, 11, 11, 6, 8};
    tagST_MATCH_PAIRS pairs{ref, match, 5};
    unsigned char mask[5] = {1, 1, 1, 1, 1};
    float H[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    float err = 7.0f;
    int count = 5;
    tocra_test::ClearLog();
    tocra_test::FaultInjection fail(FaultKind::kAllocation, 1);
    EXPECT_EQ(Refine(&pairs, mask, H, 10.0f, &err, &count), -1);
    EXPECT_TRUE(tocra_test::Logged(6, "Refine malloc failed!\n"));
    EXPECT_EQ(count, 5);
    EXPECT_EQ(err, 7.0f);
    EXPECT_EQ(H[2], 0.0f);
}

// ---- Descriptors: the worker pool does not start -----------------------------------
//
// -997 and its line; the keypoints' walk order is the one block not freed
// (the integral windows are), and LeakSanitizer finds it (in the ASan
// build) until the test frees it.
TEST(DescriptorPool, PoolFailureKeepsTheWalkOrderAndNothingElse) {
    {
        tocra_test::AllCases c{5};
        using B = tocra_test::BriefCase;
        for (int start = 1; start <= 13; start += 6) {  // the attribute, a semaphore, a thread
            c.brief.Prepare();
            const auto prepared = c.brief.Outputs();
            tocra_test::ClearLog();
            int status;
            {
                tocra_test::FaultInjection fail(FaultKind::kStart, start);
                status = GetBrief_Descriptors_TocraAPI(&c.brief.p);
            }
            EXPECT_EQ(status, TOCRA_THREAD_FAILED);
            EXPECT_TRUE(tocra_test::Logged(6, "GetBrief_Descriptors_TocraAPI MultiThread_Init fail\n"));
            EXPECT_TRUE(c.brief.Outputs() == prepared) << "descriptors written";
            const std::vector<tocra_test::Block> kept = tocra_test::Outstanding();
            ASSERT_EQ(kept.size(), 1u);
            EXPECT_EQ(kept[0].size, tocra::BriefOrderBytes(B::N));
#if defined(__SANITIZE_ADDRESS__)
            EXPECT_NE(__lsan_do_recoverable_leak_check(), 0) << "LeakSanitizer does not see the walk order";
#endif
            platform_free(kept[0].addr());
#if defined(__SANITIZE_ADDRESS__)
            EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
            // The next call starts the pool again (stopping what was left).
            c.brief.Prepare();
            EXPECT_EQ(GetBrief_Descriptors_TocraAPI(&c.brief.p), TOCRA_OK);
        }
    }
}

}  // namespace
