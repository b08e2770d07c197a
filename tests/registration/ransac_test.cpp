// RANSAC homography estimation, its refits and the numerical pieces under it.
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "registration/homography.h"
#include "support/test_support.h"

namespace {

using tocra_test::CountLogged;
using tocra_test::Logged;

// A mild perspective, as between two hand-held frames of 1000 x 750.
const float kTruth[9] = {1.02f, 0.015f, 12.5f, -0.012f, 0.99f, -7.25f, 2.0e-5f, -1.5e-5f, 1.0f};

void Map(const float* H, float x, float y, float* ox, float* oy) {
    const double w = H[6] * double(x) + H[7] * double(y) + 1.0;
    *ox = float((H[0] * double(x) + H[1] * double(y) + H[2]) / w);
    *oy = float((H[3] * double(x) + H[4] * double(y) + H[5]) / w);
}

// Small deterministic generator for test data (not the library's sampler).
struct Lcg {
    uint32_t s;
    explicit Lcg(uint32_t seed) : s(seed) {}
    uint32_t Next() { return s = s * 1664525u + 1013904223u; }
    float Uniform(float lo, float hi) { return lo + (hi - lo) * float(Next() >> 8) / 16777216.0f; }
};

struct PairSet {
    std::vector<float> ref, match;
    std::vector<int> inlier;  // 1 for pairs generated on the truth
    tagST_MATCH_PAIRS Record() { return {ref.data(), match.data(), int(ref.size() / 2)}; }
};

// n pairs on kTruth with uniform noise of +-noise pixels; every pair whose
// index hits the outlier rule is displaced 40 to 200 pixels instead.
PairSet MakePairs(int n, float noise, int outlierPercent, uint32_t seed) {
    PairSet p;
    Lcg rng(seed);
    for (int i = 0; i < n; ++i) {
        const float x = rng.Uniform(0.0f, 999.0f), y = rng.Uniform(0.0f, 749.0f);
        float mx, my;
        Map(kTruth, x, y, &mx, &my);
        const bool outlier = int(rng.Next() % 100) < outlierPercent;
        if (outlier) {
            const float r = rng.Uniform(40.0f, 200.0f), a = rng.Uniform(0.0f, 6.2831853f);
            mx += r * std::cos(a);
            my += r * std::sin(a);
        } else {
            mx += rng.Uniform(-noise, noise);
            my += rng.Uniform(-noise, noise);
        }
        p.ref.insert(p.ref.end(), {x, y});
        p.match.insert(p.match.end(), {mx, my});
        p.inlier.push_back(outlier ? 0 : 1);
    }
    return p;
}

double MaxCornerError(const float* H, const float* truth, float w, float h) {
    const float corners[4][2] = {{0, 0}, {w - 1, 0}, {0, h - 1}, {w - 1, h - 1}};
    double worst = 0.0;
    for (const auto& c : corners) {
        float ax, ay, bx, by;
        Map(H, c[0], c[1], &ax, &ay);
        Map(truth, c[0], c[1], &bx, &by);
        worst = std::max(worst, std::hypot(double(ax) - bx, double(ay) - by));
    }
    return worst;
}

}  // namespace

// ---------------------------------------------------------------------------
// Sampler, subset test, product, alignment
// ---------------------------------------------------------------------------

TEST(RansacSampler, FirstLowWordsFromTheAllOnesSeed) {
    uint64_t s = tocra::kMwcSeed;
    EXPECT_EQ(tocra::MwcNext(&s), 0x07C09CF5u);
    EXPECT_EQ(tocra::MwcNext(&s), 0xBAC3439Cu);
    EXPECT_EQ(tocra::MwcNext(&s), 0x99AE7B8Cu);
    EXPECT_EQ(tocra::MwcNext(&s), 0x37275F45u);
}

TEST(CheckSubset, RejectsTriplesWithinTheTenthRule) {
    // A square is fine.
    const float square[8] = {0, 0, 100, 0, 100, 100, 0, 100};
    EXPECT_EQ(tocra::CheckSubset(square), 1);
    // Exactly collinear triple among the four.
    const float line[8] = {0, 0, 10, 10, 20, 20, 0, 50};
    EXPECT_EQ(tocra::CheckSubset(line), 0);
    // (0,0), (10,0), (100,1): cross 10 against 0.1 * 192 = 19.2 -> degenerate
    // although not exactly collinear.
    const float nearLine[8] = {0, 0, 10, 0, 100, 1, 0, 80};
    EXPECT_EQ(tocra::CheckSubset(nearLine), 0);
    // (0,0), (10,0), (20,1): cross 10 against 3.2 -> usable.
    const float bent[8] = {0, 0, 10, 0, 20, 1, 0, 80};
    EXPECT_EQ(tocra::CheckSubset(bent), 1);
    // Coincident points are degenerate; huge coordinates do not overflow.
    const float same[8] = {5, 5, 5, 5, 40, 7, 9, 60};
    EXPECT_EQ(tocra::CheckSubset(same), 0);
    const float huge[8] = {-3e9f, 0, 3e9f, 0, 0, 3e9f, 1e9f, -2e9f};
    (void)tocra::CheckSubset(huge);
    const float nan[8] = {NAN, 0, 1, 2, 3, 4, 5, 6};
    (void)tocra::CheckSubset(nan);
}

TEST(MatrixMul3x3, RowTimesColumn) {
    const float a[9] = {1, 2, 3, 4, 5, 6, 7, 8, 10};
    const float b[9] = {-1, 0, 2, 3, 1, 0, 0, -2, 1};
    float c[9];
    tocra::MatrixMul3x3(a, b, c);
    const float expect[9] = {5, -4, 5, 11, -7, 14, 17, -12, 24};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(c[i], expect[i]) << i;
}

TEST(AlignData, RoundsUpToPowerOfTwo) {
    EXPECT_EQ(AlignData(13, 8), 16);
    EXPECT_EQ(AlignData(16, 8), 16);
    EXPECT_EQ(AlignData(0, 4), 0);
    EXPECT_EQ(AlignData(1, 4), 4);
    EXPECT_EQ(AlignData(-3, 4), 0);
    EXPECT_EQ(AlignData(161, 4), 164);
    (void)AlignData(INT32_MAX, 16);  // wraps, no overflow trap
}

// ---------------------------------------------------------------------------
// Eigen solver and DLT
// ---------------------------------------------------------------------------

TEST(JacobiEigen, DiagonalInputIsSortedDescendingWithStableTies) {
    const float diag[9] = {1, 3, 3, 2, 0.5f, 0.25f, 0.125f, 0.0625f, 0.03125f};
    float A[81] = {};
    for (int i = 0; i < 9; ++i) A[i * 9 + i] = diag[i];
    float W[9], V[81];
    unsigned char work[tocra::kJacobiWorkBytes];
    EXPECT_EQ(tocra::JacobiEigen(A, W, V, 2, work), 0);
    const float expectW[9] = {3, 3, 2, 1, 0.5f, 0.25f, 0.125f, 0.0625f, 0.03125f};
    // Position 0 takes the first of the two 3s.
    const int expectRow[9] = {1, 2, 3, 0, 4, 5, 6, 7, 8};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(W[i], expectW[i]) << i;
        for (int j = 0; j < 9; ++j) EXPECT_EQ(V[i * 9 + j], j == expectRow[i] ? 1.0f : 0.0f) << i << "," << j;
    }
}

TEST(JacobiEigen, RandomSymmetricMatrixIsDecomposed) {
    Lcg rng(7);
    float A[81], A0[81];
    for (int i = 0; i < 9; ++i) {
        for (int j = i; j < 9; ++j) A[i * 9 + j] = A[j * 9 + i] = rng.Uniform(-10.0f, 10.0f);
    }
    memcpy(A0, A, sizeof(A));
    float W[9], V[81];
    unsigned char work[tocra::kJacobiWorkBytes + 1];
    tocra::JacobiEigen(A, W, V, 30, work + 1);  // unaligned work area is fine
    for (int i = 0; i + 1 < 9; ++i) EXPECT_GE(W[i], W[i + 1]);
    for (int i = 0; i < 9; ++i) {
        for (int j = 0; j < 9; ++j) {
            double dot = 0.0, av = 0.0;
            for (int k = 0; k < 9; ++k) dot += double(V[i * 9 + k]) * V[j * 9 + k];
            EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, 1e-5);
            for (int k = 0; k < 9; ++k) av += double(A0[j * 9 + k]) * V[i * 9 + k];
            EXPECT_NEAR(av, double(W[i]) * V[i * 9 + j], 1e-4) << "eigenpair " << i;
        }
    }
}

#if !defined(BRIMVEL_PLAIN_ONLY)
TEST(DltNormalMatrix, PlainAndVectorGiveTheSameBytes) {
    for (int n : {1, 4, 7, 300}) {
        SCOPED_TRACE(n);
        std::vector<uint8_t> r = tocra_test::RandomBytes(size_t(n) * 16 + 32, uint32_t(n));
        std::vector<float> ref(2 * n), match(2 * n);
        for (int i = 0; i < 2 * n; ++i) {
            ref[i] = float(r[4 * i] | (r[4 * i + 1] << 8)) / 17.0f - 1000.0f;
            match[i] = float(r[4 * i + 2] | (r[4 * i + 3] << 8)) / 13.0f + 5.0f;
        }
        const float norm[8] = {12.5f, -3.25f, 0.0213f, 0.0177f, 40.0f, 2.0f, 0.019f, 0.0231f};
        float a[81], b[81];
        memset(a, 0x7F, sizeof(a));
        memset(b, 0x11, sizeof(b));
        tocra::DltNormalMatrix_C(ref.data(), match.data(), n, norm, a);
        tocra::DltNormalMatrix_NEON(ref.data(), match.data(), n, norm, b);
        EXPECT_EQ(memcmp(a, b, sizeof(a)), 0);
        for (int j = 0; j < 9; ++j) {
            for (int k = 0; k < 9; ++k) EXPECT_EQ(a[j * 9 + k], a[k * 9 + j]);
        }
    }
    // Non-finite points reach the same entries in both (a NaN's sign and
    // payload depend on operand order, which the compiler may swap).
    float ref[8] = {1, 2, INFINITY, 4, 5, NAN, 7, 8}, match[8] = {0, 1, 2, 3, -INFINITY, 5, 6, 7};
    const float norm[8] = {0, 0, 1, 1, 0, 0, 1, 1};
    float a[81], b[81];
    tocra::DltNormalMatrix_C(ref, match, 4, norm, a);
    tocra::DltNormalMatrix_NEON(ref, match, 4, norm, b);
    for (int i = 0; i < 81; ++i) {
        if (std::isnan(a[i])) {
            EXPECT_TRUE(std::isnan(b[i])) << i;
        } else {
            EXPECT_EQ(memcmp(&a[i], &b[i], 4), 0) << i;
        }
    }
}
#endif

TEST(DltNormalMatrix, OnePairAtTheOrigins) {
    // Lx = (0,0,1,0,0,0,0,0,0), Ly = (0,0,0,0,0,1,0,0,0): ones at (2,2) and
    // (5,5) only.
    const float zero[2] = {0, 0};
    const float norm[8] = {0, 0, 1, 1, 0, 0, 1, 1};
    float b[81];
    tocra::DltNormalMatrix_C(zero, zero, 1, norm, b);
    for (int i = 0; i < 81; ++i) EXPECT_EQ(b[i], (i == 2 * 9 + 2 || i == 5 * 9 + 5) ? 1.0f : 0.0f) << i;
#if !defined(BRIMVEL_PLAIN_ONLY)
    tocra::DltNormalMatrix_NEON(zero, zero, 1, norm, b);
    for (int i = 0; i < 81; ++i) EXPECT_EQ(b[i], (i == 2 * 9 + 2 || i == 5 * 9 + 5) ? 1.0f : 0.0f) << i;
#endif
}

TEST(HomographyDLT, RecoversAnExactHomography) {
    PairSet p = MakePairs(20, 0.0f, 0, 3);
    float H[9];
    unsigned char work[tocra::kJacobiWorkBytes];
    ASSERT_EQ(tocra::HomographyDLT(p.ref.data(), p.match.data(), 20, H, 30, work), 0);
    EXPECT_LT(MaxCornerError(H, kTruth, 1000, 750), 0.05);
    EXPECT_NEAR(H[8], 1.0f, 1e-6f);
}

TEST(HomographyDLT, NoSpreadLeavesHUntouched) {
    const float ref[8] = {5, 1, 5, 2, 5, 3, 5, 4};  // x has no spread
    const float match[8] = {1, 1, 2, 5, 7, 3, 4, 4};
    float H[9];
    for (float& h : H) h = 42.0f;
    unsigned char work[tocra::kJacobiWorkBytes];
    EXPECT_EQ(tocra::HomographyDLT(ref, match, 4, H, 2, work), 0);
    for (float h : H) EXPECT_EQ(h, 42.0f);
    // No pairs have no spread either: nothing read, result 0.
    EXPECT_EQ(tocra::HomographyDLT(nullptr, nullptr, 0, H, 2, work), 0);
    EXPECT_EQ(tocra::HomographyDLT(ref, match, -3, H, 2, work), 0);
    EXPECT_EQ(tocra::HomographyDLT(nullptr, match, 4, H, 2, work), -1);
    for (float h : H) EXPECT_EQ(h, 42.0f);
}

// ---------------------------------------------------------------------------
// Inliers and refits
// ---------------------------------------------------------------------------

TEST(FindInliers, ThresholdIsInclusiveAndNaNIsOutlier) {
    const float H[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    float ref[8] = {0, 0, 10, 10, 20, 20, NAN, 0};
    float match[8] = {3, 4, 10, 10, 20, 26, 1, 1};  // e = 25, 0, 36, NaN
    tagST_MATCH_PAIRS pairs = {ref, match, 4};
    unsigned char mask[4] = {9, 9, 9, 9};
    float err = -1.0f;
    EXPECT_EQ(tocra::FindInliers(&pairs, mask, H, 25.0f, &err), 2);
    EXPECT_EQ(err, 25.0f);
    const unsigned char expect[4] = {1, 1, 0, 0};
    EXPECT_EQ(memcmp(mask, expect, 4), 0);

    pairs.pointNum = 0;
    memset(mask, 9, 4);
    EXPECT_EQ(tocra::FindInliers(&pairs, mask, H, 25.0f, &err), 0);
    EXPECT_EQ(err, 0.0f);
    EXPECT_EQ(mask[0], 9);
}

TEST(Refine, ImprovesAModelOnItsInliers) {
    PairSet p = MakePairs(60, 0.5f, 30, 11);
    tagST_MATCH_PAIRS pairs = p.Record();
    float H[9];
    memcpy(H, kTruth, sizeof(H));
    H[2] += 2.0f;  // two pixels off
    std::vector<unsigned char> mask(60);
    float err;
    int count = tocra::FindInliers(&pairs, mask.data(), H, 160.0f, &err);
    ASSERT_EQ(Refine(&pairs, mask.data(), H, 160.0f, &err, &count), TOCRA_OK);
    EXPECT_LT(MaxCornerError(H, kTruth, 1000, 750), 0.5);
    float check;
    std::vector<unsigned char> mask2(60);
    EXPECT_EQ(tocra::FindInliers(&pairs, mask2.data(), H, 160.0f, &check), count);
    EXPECT_EQ(mask, mask2);
    EXPECT_EQ(check, err);
    for (int i = 0; i < 60; ++i) EXPECT_EQ(mask[i], p.inlier[i]) << i;
}

TEST(Refine, BadInputAnswersMinusOne) {
    PairSet p = MakePairs(8, 0.0f, 0, 1);
    tagST_MATCH_PAIRS pairs = p.Record();
    float H[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    unsigned char mask[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    float err = 0;
    int count = 8;
    EXPECT_EQ(Refine(nullptr, mask, H, 1.0f, &err, &count), -1);
    EXPECT_EQ(Refine(&pairs, nullptr, H, 1.0f, &err, &count), -1);
    EXPECT_EQ(Refine(&pairs, mask, nullptr, 1.0f, &err, &count), -1);
    EXPECT_EQ(Refine(&pairs, mask, H, 1.0f, nullptr, &count), -1);
    EXPECT_EQ(Refine(&pairs, mask, H, 1.0f, &err, nullptr), -1);
    // A negative count asks for a negative size of work memory: the request
    // fails, with its line, and nothing else is touched.
    tagST_MATCH_PAIRS negative = {p.ref.data(), p.match.data(), -5};
    tocra_test::ClearLog();
    EXPECT_EQ(Refine(&negative, mask, H, 1.0f, &err, &count), -1);
    EXPECT_TRUE(Logged(6, "Refine malloc failed!\n"));
    EXPECT_EQ(count, 8);
    EXPECT_EQ(H[0], 1.0f);
    tagST_MATCH_PAIRS nullArrays = {nullptr, nullptr, 8};
    EXPECT_EQ(Refine(&nullArrays, mask, H, 1.0f, &err, &count), -1);
    // A count that disagrees with the mask cannot make the fit read past the
    // gathered pairs.
    count = 1000;
    EXPECT_EQ(Refine(&pairs, mask, H, 1.0f, &err, &count), TOCRA_OK);
    EXPECT_EQ(count, 8);
}

TEST(Refine, FitsTheFirstInlierCountGatheredPairs) {
    // Pairs 0..5 follow kTruth exactly, pairs 6..9 a shift of 30 pixels.
    // With the mask all set but a count of 6, the first pass fits pairs 0..5
    // only, which recovers kTruth; the reclassification then finds those six
    // again and stops. A fit on all ten would be pulled off by the shifted
    // four.
    PairSet p = MakePairs(10, 0.0f, 0, 5);
    for (int i = 6; i < 10; ++i) p.match[2 * i] += 30.0f;
    tagST_MATCH_PAIRS pairs = p.Record();
    unsigned char mask[10];
    memset(mask, 1, sizeof mask);
    float H[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    float err = -1.0f;
    int count = 6;
    ASSERT_EQ(Refine(&pairs, mask, H, 1.0f, &err, &count), TOCRA_OK);
    EXPECT_EQ(count, 6);
    EXPECT_LT(MaxCornerError(H, kTruth, 1000, 750), 0.01);
    const unsigned char expect[10] = {1, 1, 1, 1, 1, 1, 0, 0, 0, 0};
    EXPECT_EQ(memcmp(mask, expect, 10), 0);
}

// ---------------------------------------------------------------------------
// RansacEstimation
// ---------------------------------------------------------------------------

namespace {

const tagRANSAC_PARAMS kFirstPass = {100, 160.0f, 0.9995f};

struct RansacRun {
    int ret;
    float H[9];
    std::vector<float> ref, match;
    int pointNum;
};

RansacRun RunRansac(const PairSet& p, tagRANSAC_PARAMS params) {
    RansacRun r;
    r.ref = p.ref;
    r.match = p.match;
    tagST_MATCH_PAIRS pairs = {r.ref.data(), r.match.data(), int(p.ref.size() / 2)};
    for (float& h : r.H) h = -7.0f;
    std::vector<unsigned char> scratch(80 * p.ref.size() / 2, 0);
    r.ret = RansacEstimation(&pairs, r.H, &params, scratch.data());
    r.pointNum = pairs.pointNum;
    return r;
}

}  // namespace

TEST(RansacEstimation, RecoversHomographyDespiteNoiseAndOutliers) {
    const PairSet p = MakePairs(300, 1.0f, 30, 2024);
    int inliers = 0;
    for (int v : p.inlier) inliers += v;
    ASSERT_GT(300 - inliers, 60);  // about 30% gross outliers

    RansacRun r = RunRansac(p, kFirstPass);
    ASSERT_EQ(r.ret, TOCRA_OK);
    EXPECT_LT(MaxCornerError(r.H, kTruth, 1000, 750), 0.5);

    // Survivors: exactly the generated inliers, compacted in their order,
    // and exactly the pairs within the threshold of the returned model.
    ASSERT_EQ(r.pointNum, inliers);
    int j = 0;
    for (int i = 0; i < 300; ++i) {
        if (!p.inlier[i]) continue;
        EXPECT_EQ(r.ref[2 * j], p.ref[2 * i]);
        EXPECT_EQ(r.ref[2 * j + 1], p.ref[2 * i + 1]);
        EXPECT_EQ(r.match[2 * j], p.match[2 * i]);
        EXPECT_EQ(r.match[2 * j + 1], p.match[2 * i + 1]);
        ++j;
    }
    std::vector<float> ref = p.ref, match = p.match;
    tagST_MATCH_PAIRS all = {ref.data(), match.data(), 300};
    std::vector<unsigned char> mask(300);
    float err;
    EXPECT_EQ(tocra::FindInliers(&all, mask.data(), r.H, 160.0f, &err), inliers);
    for (int i = 0; i < 300; ++i) EXPECT_EQ(mask[i], p.inlier[i]) << i;

    // Pairs beyond the compacted count are left as they were.
    for (size_t i = 2 * inliers; i < 600; ++i) EXPECT_EQ(r.ref[i], p.ref[i]);
}

TEST(RansacEstimation, EqualInputsGiveEqualBytes) {
    const PairSet p = MakePairs(200, 2.0f, 35, 99);
    RansacRun a = RunRansac(p, kFirstPass);
    RansacRun b = RunRansac(p, kFirstPass);
    EXPECT_EQ(a.ret, b.ret);
    EXPECT_EQ(a.pointNum, b.pointNum);
    EXPECT_EQ(memcmp(a.H, b.H, sizeof(a.H)), 0);
    EXPECT_EQ(a.ref, b.ref);
    EXPECT_EQ(a.match, b.match);
}

TEST(RansacEstimation, TwoPassesAsTheEntryPointRunsThem) {
    const PairSet p = MakePairs(400, 1.0f, 30, 5);
    RansacRun r = RunRansac(p, kFirstPass);
    ASSERT_EQ(r.ret, TOCRA_OK);
    const float scale = 4.0f;
    for (float& v : r.ref) v *= scale;
    for (float& v : r.match) v *= scale;
    PairSet second;
    second.ref.assign(r.ref.begin(), r.ref.begin() + 2 * r.pointNum);
    second.match.assign(r.match.begin(), r.match.begin() + 2 * r.pointNum);
    RansacRun r2 = RunRansac(second, {100, 80.0f, 0.9995f});
    ASSERT_EQ(r2.ret, TOCRA_OK);
    EXPECT_GE(r2.pointNum, r.pointNum * 9 / 10);
    // The truth in full-frame coordinates: S * H * S^-1.
    float truth4[9];
    memcpy(truth4, kTruth, sizeof(truth4));
    truth4[2] *= scale;
    truth4[5] *= scale;
    truth4[6] /= scale;
    truth4[7] /= scale;
    EXPECT_LT(MaxCornerError(r2.H, truth4, 4000, 3000), 2.0);
}

TEST(RansacEstimation, AllInliersStopAtTheFirstAcceptance) {
    const PairSet p = MakePairs(50, 0.0f, 0, 8);
    tocra_test::ClearLog();
    RansacRun r = RunRansac(p, kFirstPass);
    EXPECT_EQ(r.ret, TOCRA_OK);
    EXPECT_EQ(r.pointNum, 50);
    EXPECT_EQ(r.ref, p.ref);
    EXPECT_TRUE(Logged(4, "ransac iteration count:0\n"));
    EXPECT_TRUE(Logged(4, "ransac find inliner count:50/50\n"));
    EXPECT_LT(MaxCornerError(r.H, kTruth, 1000, 750), 0.05);
}

TEST(RansacEstimation, IterationBudgetShrinksWithTheInlierRatio) {
    // 10% outliers: 1 - 0.9^4 gives log(0.0005)/log(0.3439) ~ 7.1 -> 7 iterations.
    PairSet p = MakePairs(100, 0.5f, 0, 21);
    for (int i = 0; i < 100; i += 10) {
        p.match[2 * i] += 90.0f;
        p.inlier[i] = 0;
    }
    tocra_test::ClearLog();
    RansacRun r = RunRansac(p, kFirstPass);
    EXPECT_EQ(r.ret, TOCRA_OK);
    EXPECT_EQ(r.pointNum, 90);
    EXPECT_TRUE(Logged(4, "ransac iteration count:7\n"));
    EXPECT_TRUE(Logged(4, "ransac find inliner count:90/100\n"));
}

TEST(RansacEstimation, ZeroIterationsReportFourAndCompactFromTheScratchMask) {
    const PairSet p = MakePairs(10, 0.0f, 0, 4);
    std::vector<float> ref = p.ref, match = p.match;
    tagST_MATCH_PAIRS pairs = {ref.data(), match.data(), 10};
    tagRANSAC_PARAMS params = {0, 160.0f, 0.9995f};
    std::vector<unsigned char> scratch(800, 0);
    scratch[3] = 1;
    scratch[7] = 1;
    float H[9];
    for (float& h : H) h = -7.0f;
    tocra_test::ClearLog();
    EXPECT_EQ(RansacEstimation(&pairs, H, &params, scratch.data()), TOCRA_OK);
    EXPECT_EQ(pairs.pointNum, 4);
    for (float h : H) EXPECT_EQ(h, -7.0f);
    EXPECT_EQ(ref[0], p.ref[6]);
    EXPECT_EQ(ref[2], p.ref[14]);
    EXPECT_EQ(match[3], p.match[15]);
    EXPECT_EQ(ref[4], p.ref[4]);  // past the moved pairs: untouched
    EXPECT_TRUE(Logged(4, "ransac iteration count:0\n"));
    EXPECT_TRUE(Logged(4, "ransac find inliner count:4/10\n"));
}

TEST(RansacEstimation, ZeroIterationsWithFewerThanFourPairsReadOnlyThoseThatExist) {
    // Three pairs, the middle one's mask byte clear: pairs 0 and 2 move to
    // the front, the count becomes 4 all the same. The arrays and the scratch
    // are exactly as long as the three pairs, so ASan sees any read past them.
    for (int iters : {0, -5}) {
        std::vector<float> ref = {1, 2, 3, 4, 5, 6}, match = {10, 20, 30, 40, 50, 60};
        std::vector<unsigned char> scratch = {7, 0, 1};
        tagST_MATCH_PAIRS pairs = {ref.data(), match.data(), 3};
        tagRANSAC_PARAMS params = {iters, 160.0f, 0.9995f};
        float H[9];
        for (float& h : H) h = -7.0f;
        tocra_test::ClearLog();
        EXPECT_EQ(RansacEstimation(&pairs, H, &params, scratch.data()), TOCRA_OK);
        EXPECT_EQ(pairs.pointNum, 4);
        EXPECT_EQ(ref, (std::vector<float>{1, 2, 5, 6, 5, 6}));
        EXPECT_EQ(match, (std::vector<float>{10, 20, 50, 60, 50, 60}));
        EXPECT_EQ(scratch, (std::vector<unsigned char>{7, 0, 1}));
        for (float h : H) EXPECT_EQ(h, -7.0f);
        EXPECT_TRUE(Logged(4, "ransac iteration count:0\n"));
        EXPECT_TRUE(Logged(4, "ransac find inliner count:4/3\n"));
    }
    // One pair, and no pair at all (nothing to read: null arrays and scratch
    // are fine).
    float one[2] = {4, 5}, oneMatch[2] = {6, 7};
    unsigned char oneMask = 0;
    tagST_MATCH_PAIRS single = {one, oneMatch, 1};
    tagRANSAC_PARAMS none = {0, 80.0f, 0.9995f};
    float H[9] = {};
    tocra_test::ClearLog();
    EXPECT_EQ(RansacEstimation(&single, H, &none, &oneMask), TOCRA_OK);
    EXPECT_EQ(single.pointNum, 4);
    EXPECT_EQ(one[0], 4.0f);
    EXPECT_TRUE(Logged(4, "ransac find inliner count:4/1\n"));
    for (int n : {0, -2}) {
        tagST_MATCH_PAIRS empty = {nullptr, nullptr, n};
        tocra_test::ClearLog();
        EXPECT_EQ(RansacEstimation(&empty, H, &none, nullptr), 0) << n;
        EXPECT_EQ(empty.pointNum, 4);
        EXPECT_TRUE(Logged(4, "ransac iteration count:0\n"));
        EXPECT_TRUE(Logged(4, "ransac find inliner count:4/" + std::to_string(n) + "\n"));
    }
}

TEST(RansacEstimation, CollinearDataFailsWithEverythingUntouched) {
    PairSet p;
    for (int i = 0; i < 30; ++i) {
        const float x = 20.0f * i;
        p.ref.insert(p.ref.end(), {x, 2.0f * x + 1.0f});
        p.match.insert(p.match.end(), {x + 5.0f, 3.0f * x});
    }
    tocra_test::ClearLog();
    RansacRun r = RunRansac(p, kFirstPass);
    EXPECT_EQ(r.ret, -1);
    EXPECT_EQ(r.pointNum, 30);
    EXPECT_EQ(r.ref, p.ref);
    EXPECT_EQ(r.match, p.match);
    for (float h : r.H) EXPECT_EQ(h, -7.0f);
    EXPECT_EQ(CountLogged("ransac iteration count:0\n"), 0);
    EXPECT_TRUE(tocra_test::Log().empty());
}

TEST(RansacEstimation, DistanceGateMixesEarlierReferenceWithLaterMatch) {
    // Six reference points within a 9 x 9 pixel square: any two lie closer
    // than sqrt(200). With matched points on top of them no sample passes the
    // gate; shifted by 60 pixels every reference/match distance passes.
    const float pts[12] = {0, 0, 8, 0, 0, 8, 8, 8, 3, 5, 6, 2};
    PairSet same, shifted;
    for (int i = 0; i < 6; ++i) {
        const float x = 500 + pts[2 * i], y = 300 + pts[2 * i + 1];
        same.ref.insert(same.ref.end(), {x, y});
        same.match.insert(same.match.end(), {x, y});
        shifted.ref.insert(shifted.ref.end(), {x, y});
        shifted.match.insert(shifted.match.end(), {x + 60.0f, y});
    }
    EXPECT_EQ(RunRansac(same, kFirstPass).ret, -1);
    RansacRun r = RunRansac(shifted, kFirstPass);
    EXPECT_EQ(r.ret, TOCRA_OK);
    EXPECT_EQ(r.pointNum, 6);
}

TEST(RansacEstimation, BadInputAnswersMinusOneAndTouchesNothing) {
    PairSet p = MakePairs(10, 0.0f, 0, 4);
    tagST_MATCH_PAIRS pairs = p.Record();
    tagRANSAC_PARAMS params = kFirstPass;
    std::vector<unsigned char> scratch(800, 0xEE);
    float H[9] = {};
    EXPECT_EQ(RansacEstimation(nullptr, H, &params, scratch.data()), -1);
    EXPECT_EQ(RansacEstimation(&pairs, nullptr, &params, scratch.data()), -1);
    EXPECT_EQ(RansacEstimation(&pairs, H, nullptr, scratch.data()), -1);
    EXPECT_EQ(RansacEstimation(&pairs, H, &params, nullptr), -1);
    for (int n : {-1, 0, 1, 2, 3, INT32_MIN}) {
        // With iterations: one to three pairs never give four distinct
        // indices (the 100th attempt ends in -1, silently); no pairs at all
        // are refused with a line.
        tagST_MATCH_PAIRS few = {p.ref.data(), p.match.data(), n};
        tocra_test::ClearLog();
        EXPECT_EQ(RansacEstimation(&few, H, &params, scratch.data()), -1) << n;
        EXPECT_EQ(few.pointNum, n);
        EXPECT_EQ(tocra_test::Log().empty(), n >= 1) << n;
    }
    tagST_MATCH_PAIRS nullRef = {nullptr, p.match.data(), 10};
    EXPECT_EQ(RansacEstimation(&nullRef, H, &params, scratch.data()), -1);
    tagST_MATCH_PAIRS nullMatch = {p.ref.data(), nullptr, 10};
    EXPECT_EQ(RansacEstimation(&nullMatch, H, &params, scratch.data()), -1);
    for (unsigned char b : scratch) ASSERT_EQ(b, 0xEE);
    for (float h : H) EXPECT_EQ(h, 0.0f);
}

TEST(RansacEstimation, NonFiniteParametersAndPointsDoNotTrap) {
    PairSet p = MakePairs(40, 0.5f, 20, 77);
    for (float conf : {NAN, -1.0f, 2.0f, INFINITY}) {
        RansacRun r = RunRansac(p, {100, 160.0f, conf});
        EXPECT_EQ(r.ret, TOCRA_OK);
    }
    RansacRun r = RunRansac(p, {100, NAN, 0.9995f});  // nothing is an inlier
    EXPECT_EQ(r.ret, TOCRA_OK);
    EXPECT_EQ(r.pointNum, 4);
    p.ref[6] = NAN;
    p.match[11] = INFINITY;
    p.ref[20] = 1e30f;
    r = RunRansac(p, kFirstPass);
    EXPECT_EQ(r.ret, TOCRA_OK);
}

// ---------------------------------------------------------------------------
// RefineHomography and HomographyEstimation
// ---------------------------------------------------------------------------

TEST(RefineHomography, LeastSquaresOnAllPairs) {
    PairSet p = MakePairs(100, 0.5f, 0, 31);
    tagST_MATCH_PAIRS pairs = p.Record();
    float H[9] = {};
    std::vector<unsigned char> scratch(100 * 176 + 224);
    EXPECT_EQ(RefineHomography(&pairs, H, scratch.data()), TOCRA_OK);
    EXPECT_LT(MaxCornerError(H, kTruth, 1000, 750), 0.5);

    float keep[9];
    for (float& h : keep) h = 3.0f;
    memcpy(H, keep, sizeof(H));
    EXPECT_EQ(RefineHomography(nullptr, H, scratch.data()), -1);
    EXPECT_EQ(RefineHomography(&pairs, nullptr, scratch.data()), -1);
    EXPECT_EQ(RefineHomography(&pairs, H, nullptr), -1);
    EXPECT_EQ(memcmp(H, keep, sizeof(H)), 0);
    // No pair: nothing to fit, H untouched, result 0 (nothing is read, so
    // the arrays may be null).
    for (int n : {0, -3, INT32_MIN}) {
        tagST_MATCH_PAIRS none = {nullptr, nullptr, n};
        EXPECT_EQ(RefineHomography(&none, H, scratch.data()), 0) << n;
    }
    EXPECT_EQ(memcmp(H, keep, sizeof(H)), 0);
}

TEST(HomographyEstimation, PrintsTheMeanReprojectionError) {
    PairSet p = MakePairs(80, 0.0f, 25, 12);
    int inliers = 0;
    for (int v : p.inlier) inliers += v;
    tagST_MATCH_PAIRS pairs = p.Record();
    float H[9] = {};
    std::vector<unsigned char> scratch(80 * 176 + 224);
    tagRANSAC_PARAMS params = kFirstPass;
    int ret = 1;
    const std::string out =
        tocra_test::CaptureStdout([&] { ret = HomographyEstimation(&pairs, H, &params, scratch.data()); });
    EXPECT_EQ(ret, TOCRA_OK);
    EXPECT_EQ(pairs.pointNum, inliers);
    double mean = -1;
    int num = -1;
    ASSERT_EQ(sscanf(out.c_str(), "project error after lmmin:%lf, pointNum:%d\n", &mean, &num), 2) << out;
    EXPECT_EQ(num, inliers);
    EXPECT_GE(mean, 0.0);
    EXPECT_LT(mean, 0.01);
    EXPECT_EQ(out.back(), '\n');
    EXPECT_EQ(out.find("project error after lmmin:"), 0u);
}

TEST(HomographyEstimation, NoPairsPrintsNaNAndNullInputPrintsNothing) {
    float ref[2] = {0, 0}, match[2] = {0, 0};
    tagST_MATCH_PAIRS pairs = {ref, match, 0};
    float H[9] = {};
    unsigned char scratch[512];
    tagRANSAC_PARAMS params = kFirstPass;
    std::string out = tocra_test::CaptureStdout([&] { HomographyEstimation(&pairs, H, &params, scratch); });
    EXPECT_TRUE(out == "project error after lmmin:nan, pointNum:0\n" ||
                out == "project error after lmmin:-nan, pointNum:0\n")
        << out;
    out = tocra_test::CaptureStdout([&] { EXPECT_EQ(HomographyEstimation(nullptr, H, &params, scratch), -1); });
    EXPECT_EQ(out, "");
    out = tocra_test::CaptureStdout([&] { EXPECT_EQ(HomographyEstimation(&pairs, H, nullptr, scratch), -1); });
    EXPECT_EQ(out, "");
}
