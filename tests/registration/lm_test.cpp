// Levenberg-Marquardt minimiser on the classic nonlinear least-squares test
// problems (Moré, Garbow and Hillstrom, 1981), with their standard starting
// points and published minima, plus the homography residual.
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "registration/homography.h"
#include "support/test_support.h"

namespace {

using Residuals = std::function<void(const double* x, double* f)>;

struct Problem {
    const char* name;
    int m, n;
    std::vector<float> x0;
    Residuals f;
    double fmin;               // published minimum of the sum of squares
    std::vector<double> xmin;  // published minimiser, when the problem names one
    // Singular Jacobian at the solution: convergence is linear, and in single
    // precision the iterates keep shrinking until the budget ends the run.
    bool singular = false;
};

void EvaluateProblem(float* x, int m, float* fvec, void* data, int* /*info*/) {
    const Problem* p = static_cast<const Problem*>(data);
    std::vector<double> xd(x, x + p->n), fd(m);
    p->f(xd.data(), fd.data());
    for (int i = 0; i < m; ++i) fvec[i] = static_cast<float>(fd[i]);
}

size_t WorkBytes(int m, int n) { return 4u * (size_t(m) * (n + 2) + 6u * n) + 3u; }

lm_control_type Control() {
    lm_control_type c = {};
    c.ftol = 1e-7f;
    c.xtol = 1e-7f;
    c.gtol = 1e-7f;
    c.epsilon = 1e-7f;
    c.stepbound = 100.0f;
    c.maxcall = 200;
    return c;
}

std::vector<Problem> Problems() {
    std::vector<Problem> ps;
    ps.push_back({"Rosenbrock",
                  2,
                  2,
                  {-1.2f, 1.0f},
                  [](const double* x, double* f) {
                      f[0] = 10 * (x[1] - x[0] * x[0]);
                      f[1] = 1 - x[0];
                  },
                  0.0,
                  {1, 1}});
    ps.push_back({"HelicalValley",
                  3,
                  3,
                  {-1.0f, 0.0f, 0.0f},
                  [](const double* x, double* f) {
                      const double tpi = 8 * std::atan(1.0);
                      double th = std::atan(x[1] / x[0]) / tpi;
                      if (x[0] < 0) th += 0.5;
                      if (x[0] == 0) th = x[1] >= 0 ? 0.25 : -0.25;
                      f[0] = 10 * (x[2] - 10 * th);
                      f[1] = 10 * (std::sqrt(x[0] * x[0] + x[1] * x[1]) - 1);
                      f[2] = x[2];
                  },
                  0.0,
                  {1, 0, 0}});
    ps.push_back({"PowellSingular",
                  4,
                  4,
                  {3.0f, -1.0f, 0.0f, 1.0f},
                  [](const double* x, double* f) {
                      f[0] = x[0] + 10 * x[1];
                      f[1] = std::sqrt(5.0) * (x[2] - x[3]);
                      f[2] = (x[1] - 2 * x[2]) * (x[1] - 2 * x[2]);
                      f[3] = std::sqrt(10.0) * (x[0] - x[3]) * (x[0] - x[3]);
                  },
                  0.0,
                  {},
                  true});
    ps.push_back({"FreudensteinRoth",
                  2,
                  2,
                  {0.5f, -2.0f},
                  [](const double* x, double* f) {
                      f[0] = -13 + x[0] + ((5 - x[1]) * x[1] - 2) * x[1];
                      f[1] = -29 + x[0] + ((x[1] + 1) * x[1] - 14) * x[1];
                  },
                  48.98425367924,
                  {11.4128, -0.896805}});
    ps.push_back({"Bard",
                  15,
                  3,
                  {1.0f, 1.0f, 1.0f},
                  [](const double* x, double* f) {
                      static const double y[15] = {0.14, 0.18, 0.22, 0.25, 0.29, 0.32, 0.35, 0.39,
                                                   0.37, 0.58, 0.73, 0.96, 1.34, 2.10, 4.39};
                      for (int i = 0; i < 15; ++i) {
                          const double u = i + 1, v = 15 - i, w = std::min(u, v);
                          f[i] = y[i] - (x[0] + u / (v * x[1] + w * x[2]));
                      }
                  },
                  8.21487730657e-3,
                  {0.0824106, 1.13304, 2.34370}});
    ps.push_back({"Box3D",
                  10,
                  3,
                  {0.0f, 10.0f, 20.0f},
                  [](const double* x, double* f) {
                      for (int i = 0; i < 10; ++i) {
                          const double t = 0.1 * (i + 1);
                          f[i] = std::exp(-t * x[0]) - std::exp(-t * x[1]) - x[2] * (std::exp(-t) - std::exp(-10 * t));
                      }
                  },
                  0.0,
                  {}});
    ps.push_back({"Osborne1",
                  33,
                  5,
                  {0.5f, 1.5f, -1.0f, 0.01f, 0.02f},
                  [](const double* x, double* f) {
                      static const double y[33] = {0.844, 0.908, 0.932, 0.936, 0.925, 0.908, 0.881, 0.850, 0.818,
                                                   0.784, 0.751, 0.718, 0.685, 0.658, 0.628, 0.603, 0.580, 0.558,
                                                   0.538, 0.522, 0.506, 0.490, 0.478, 0.467, 0.457, 0.448, 0.438,
                                                   0.431, 0.424, 0.420, 0.414, 0.411, 0.406};
                      for (int i = 0; i < 33; ++i) {
                          const double t = 10.0 * i;
                          f[i] = y[i] - (x[0] + x[1] * std::exp(-t * x[3]) + x[2] * std::exp(-t * x[4]));
                      }
                  },
                  5.46489469748e-5,
                  {0.37541, 1.93585, -1.46469, 0.0128675, 0.0221227}});
    ps.push_back({"Beale",
                  3,
                  2,
                  {1.0f, 1.0f},
                  [](const double* x, double* f) {
                      static const double y[3] = {1.5, 2.25, 2.625};
                      for (int i = 0; i < 3; ++i) f[i] = y[i] - x[0] * (1 - std::pow(x[1], i + 1));
                  },
                  0.0,
                  {3, 0.5}});
    ps.push_back({"JennrichSampson",
                  10,
                  2,
                  {0.3f, 0.4f},
                  [](const double* x, double* f) {
                      for (int i = 1; i <= 10; ++i) f[i - 1] = 2 + 2 * i - (std::exp(i * x[0]) + std::exp(i * x[1]));
                  },
                  124.362182355,
                  {0.257825, 0.257825}});
    ps.push_back({"KowalikOsborne",
                  11,
                  4,
                  {0.25f, 0.39f, 0.415f, 0.39f},
                  [](const double* x, double* f) {
                      static const double y[11] = {0.1957, 0.1947, 0.1735, 0.1600, 0.0844, 0.0627,
                                                   0.0456, 0.0342, 0.0323, 0.0235, 0.0246};
                      static const double u[11] = {4, 2, 1, 0.5, 0.25, 0.167, 0.125, 0.1, 0.0833, 0.0714, 0.0625};
                      for (int i = 0; i < 11; ++i) {
                          f[i] = y[i] - x[0] * (u[i] * u[i] + u[i] * x[1]) / (u[i] * u[i] + u[i] * x[2] + x[3]);
                      }
                  },
                  3.07505603849e-4,
                  {0.192807, 0.191282, 0.123057, 0.136062}});
    ps.push_back({"Gaussian",
                  15,
                  3,
                  {0.4f, 1.0f, 0.0f},
                  [](const double* x, double* f) {
                      static const double y[15] = {0.0009, 0.0044, 0.0175, 0.0540, 0.1295, 0.2420, 0.3521, 0.3989,
                                                   0.3521, 0.2420, 0.1295, 0.0540, 0.0175, 0.0044, 0.0009};
                      for (int i = 0; i < 15; ++i) {
                          const double t = (8.0 - (i + 1)) / 2, d = t - x[2];
                          f[i] = x[0] * std::exp(-x[1] * d * d / 2) - y[i];
                      }
                  },
                  1.12793276961e-8,
                  {0.398956, 1.00002, 0.0}});
    return ps;
}

// Sum of squares of the problem's residuals at x, in double.
double SumOfSquares(const Problem& p, const float* x) {
    std::vector<double> xd(x, x + p.n), f(p.m);
    p.f(xd.data(), f.data());
    double s = 0;
    for (double v : f) s += v * v;
    return s;
}

}  // namespace

TEST(LmMinimize, ReachesThePublishedMinimaFromTheStandardStarts) {
    for (const Problem& p : Problems()) {
        SCOPED_TRACE(p.name);
        std::vector<float> x = p.x0;
        std::vector<unsigned char> work(WorkBytes(p.m, p.n));
        lm_control_type c = Control();
        int calls = 0;
        struct Counted {
            const Problem* p;
            int* calls;
        } counted = {&p, &calls};
        LM_Minimize(
            p.m, p.n, x.data(),
            [](float* xv, int m, float* fvec, void* data, int* info) {
                Counted* cd = static_cast<Counted*>(data);
                ++*cd->calls;
                EvaluateProblem(xv, m, fvec, const_cast<Problem*>(cd->p), info);
            },
            nullptr, &counted, &c, work.data());
        EXPECT_GE(c.info, 1);
        EXPECT_LE(c.info, 8);
        if (!p.singular) {
            EXPECT_NE(c.info, 5) << "budget spent";
        }
        EXPECT_EQ(c.nfev, calls);
        const double s = SumOfSquares(p, x.data());
        // The reported norm is the norm of the final residuals.
        EXPECT_NEAR(double(c.fnorm) * c.fnorm, s, 1e-5 * s + 1e-12);
        if (p.fmin == 0.0) {
            EXPECT_LT(s, 1e-9);
        } else {
            EXPECT_NEAR(s, p.fmin, 2e-4 * p.fmin);
        }
        for (size_t i = 0; i < p.xmin.size(); ++i) {
            EXPECT_NEAR(x[i], p.xmin[i], 2e-3 * std::max(1.0, std::fabs(p.xmin[i]))) << "x" << i;
        }
    }
}

TEST(LmMinimize, EqualInputsGiveEqualBytes) {
    const Problem p = Problems()[6];
    ASSERT_STREQ(p.name, "Osborne1");
    std::vector<float> a = p.x0, b = p.x0;
    std::vector<unsigned char> wa(WorkBytes(p.m, p.n)), wb(WorkBytes(p.m, p.n) + 1);
    lm_control_type ca = Control(), cb = Control();
    LM_Minimize(p.m, p.n, a.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), &ca, wa.data());
    LM_Minimize(p.m, p.n, b.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), &cb, wb.data() + 1);
    EXPECT_EQ(memcmp(a.data(), b.data(), a.size() * 4), 0);
    EXPECT_EQ(ca.nfev, cb.nfev);
    EXPECT_EQ(ca.info, cb.info);
    EXPECT_EQ(memcmp(&ca.fnorm, &cb.fnorm, 4), 0);
}

TEST(LmMinimize, ImproperInputEndsWithInfoZeroWithoutEvaluation) {
    struct Case {
        const char* what;
        int m, n;
        void (*tweak)(lm_control_type*);
    };
    const Case cases[] = {
        {"n = 0", 2, 0, [](lm_control_type*) {}},
        {"n < 0", 2, -1, [](lm_control_type*) {}},
        {"m < n", 1, 2, [](lm_control_type*) {}},
        {"ftol < 0", 2, 2, [](lm_control_type* c) { c->ftol = -1e-9f; }},
        {"xtol < 0", 2, 2, [](lm_control_type* c) { c->xtol = -1e-9f; }},
        {"gtol < 0", 2, 2, [](lm_control_type* c) { c->gtol = -1e-9f; }},
        {"maxcall 0", 2, 2, [](lm_control_type* c) { c->maxcall = 0; }},
        {"maxcall < 0", 2, 2, [](lm_control_type* c) { c->maxcall = -4; }},
        {"stepbound 0", 2, 2, [](lm_control_type* c) { c->stepbound = 0.0f; }},
        {"stepbound < 0", 2, 2, [](lm_control_type* c) { c->stepbound = -1.0f; }},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        float x[2] = {-1.2f, 1.0f};
        // The residual area holds 3, 4, ...: the final norm is taken over it.
        std::vector<float> work(64, 0.0f);
        work[0] = 3.0f;
        work[1] = 4.0f;
        lm_control_type c = Control();
        c.info = 77;
        c.nfev = 77;
        k.tweak(&c);
        int calls = 0;
        LM_Minimize(
            k.m, k.n, x, [](float*, int, float*, void* d, int*) { ++*static_cast<int*>(d); }, nullptr, &calls, &c,
            reinterpret_cast<unsigned char*>(work.data()));
        EXPECT_EQ(c.info, 0);
        EXPECT_EQ(c.nfev, 0);
        EXPECT_EQ(calls, 0);
        EXPECT_EQ(x[0], -1.2f);
        // Over m residuals where the documented work size holds them.
        EXPECT_EQ(c.fnorm, k.n < 0 ? 0.0f : k.m == 2 ? 5.0f : 3.0f);
    }
}

TEST(LmMinimize, NullPointersAreRefusedWithInfoZero) {
    const Problem p = Problems()[0];
    std::vector<float> x = p.x0;
    std::vector<unsigned char> work(WorkBytes(2, 2));
    lm_control_type c = Control();
    LM_Minimize(2, 2, nullptr, EvaluateProblem, nullptr, const_cast<Problem*>(&p), &c, work.data());
    EXPECT_EQ(c.info, 0);
    LM_Minimize(2, 2, x.data(), nullptr, nullptr, const_cast<Problem*>(&p), &c, work.data());
    EXPECT_EQ(c.info, 0);
    c.fnorm = -1.0f;
    LM_Minimize(2, 2, x.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), &c, nullptr);
    EXPECT_EQ(c.info, 0);
    EXPECT_EQ(c.fnorm, 0.0f);
    LM_Minimize(2, 2, x.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), nullptr, work.data());
    EXPECT_EQ(x, p.x0);
    // Sizes whose work buffer could not exist.
    LM_Minimize(INT32_MAX, INT32_MAX - 1, x.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), &c,
                work.data());
    EXPECT_EQ(c.info, 0);
    EXPECT_EQ(c.nfev, 0);
}

TEST(LmMinimize, StopRequestGivesInfoTen) {
    const Problem p = Problems()[0];
    for (int stopAt : {1, 2, 5}) {
        SCOPED_TRACE(stopAt);
        struct Stopper {
            const Problem* p;
            int calls, stopAt;
        } s = {&p, 0, stopAt};
        std::vector<float> x = p.x0;
        std::vector<unsigned char> work(WorkBytes(2, 2));
        lm_control_type c = Control();
        LM_Minimize(
            2, 2, x.data(),
            [](float* xv, int m, float* fvec, void* data, int* info) {
                Stopper* st = static_cast<Stopper*>(data);
                EXPECT_EQ(*info, 0);  // reset before every evaluation
                EvaluateProblem(xv, m, fvec, const_cast<Problem*>(st->p), info);
                if (++st->calls == st->stopAt) *info = -1;
            },
            nullptr, &s, &c, work.data());
        EXPECT_EQ(c.info, 10);
        EXPECT_EQ(s.calls, stopAt);
        EXPECT_FALSE(std::isnan(c.fnorm));
    }
}

TEST(LmMinimize, ExactStartEndsWithoutNaN) {
    const Problem p = Problems()[0];
    std::vector<float> x = {1.0f, 1.0f};
    std::vector<unsigned char> work(WorkBytes(2, 2));
    lm_control_type c = Control();
    LM_Minimize(2, 2, x.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), &c, work.data());
    EXPECT_EQ(c.info, 4);  // zero residuals: the gradient test holds at once
    EXPECT_EQ(c.nfev, 3);  // the start and one Jacobian
    EXPECT_EQ(c.fnorm, 0.0f);
    EXPECT_EQ(x[0], 1.0f);
    EXPECT_EQ(x[1], 1.0f);

    // Same with gtol 0, which leaves the gradient test only the exact zero.
    x = {1.0f, 1.0f};
    c = Control();
    c.gtol = 0.0f;
    LM_Minimize(2, 2, x.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), &c, work.data());
    EXPECT_EQ(c.info, 4);
    EXPECT_FALSE(std::isnan(x[0]) || std::isnan(x[1]) || std::isnan(c.fnorm));
}

TEST(LmMinimize, EvaluationBudgetIsNPlusOneTimesMaxcall) {
    const Problem p = Problems()[0];
    std::vector<float> x = p.x0;
    std::vector<unsigned char> work(WorkBytes(2, 2));
    lm_control_type c = Control();
    c.maxcall = 1;  // budget 3: the start and the Jacobian use it up
    LM_Minimize(2, 2, x.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), &c, work.data());
    EXPECT_EQ(c.info, 5);
    EXPECT_EQ(c.nfev, 4);
}

TEST(LmMinimize, TinyEpsilonIsRaisedNotUsed) {
    const Problem p = Problems()[3];
    ASSERT_STREQ(p.name, "FreudensteinRoth");
    std::vector<float> x = p.x0;
    std::vector<unsigned char> work(WorkBytes(2, 2));
    lm_control_type c = Control();
    c.epsilon = 0.0f;  // a zero step would divide by zero
    LM_Minimize(2, 2, x.data(), EvaluateProblem, nullptr, const_cast<Problem*>(&p), &c, work.data());
    EXPECT_FALSE(std::isnan(x[0]) || std::isnan(x[1]));
    EXPECT_FALSE(std::isnan(c.fnorm));
}

// ---------------------------------------------------------------------------
// Homography residuals
// ---------------------------------------------------------------------------

TEST(LmEvaluate, ResidualsUseAllNineEntries) {
    float ref[4] = {10, 20, -5, 7};
    float match[4] = {1, 2, 3, 4};
    tagST_MATCH_PAIRS pairs = {ref, match, 2};
    float h[9] = {2, 0, 1, 0, 3, -1, 0, 0, 2};  // h8 = 2 halves the projection
    float f[4];
    int info = 123;
    LM_Evaluate(h, 4, f, &pairs, &info);
    EXPECT_EQ(info, 123);
    EXPECT_FLOAT_EQ(f[0], (2 * 10 + 1) / 2.0f - 1);
    EXPECT_FLOAT_EQ(f[1], (3 * 20 - 1) / 2.0f - 2);
    EXPECT_FLOAT_EQ(f[2], (2 * -5 + 1) / 2.0f - 3);
    EXPECT_FLOAT_EQ(f[3], (3 * 7 - 1) / 2.0f - 4);

    // Exactly m residuals: with m = 3 the second pair gets its x residual,
    // nothing past it; nothing through null pointers.
    float g[4] = {7, 7, 7, 7};
    LM_Evaluate(h, 3, g, &pairs, &info);
    EXPECT_FLOAT_EQ(g[0], (2 * 10 + 1) / 2.0f - 1);
    EXPECT_FLOAT_EQ(g[2], (2 * -5 + 1) / 2.0f - 3);
    EXPECT_EQ(g[3], 7.0f);
    float one[2] = {7, 7};
    LM_Evaluate(h, 1, one, &pairs, &info);
    EXPECT_FLOAT_EQ(one[0], (2 * 10 + 1) / 2.0f - 1);
    EXPECT_EQ(one[1], 7.0f);
    LM_Evaluate(h, 0, one, &pairs, &info);
    LM_Evaluate(h, -4, one, &pairs, &info);
    EXPECT_EQ(one[1], 7.0f);
    LM_Evaluate(nullptr, 4, f, &pairs, &info);
    LM_Evaluate(h, 4, nullptr, &pairs, &info);
    LM_Evaluate(h, 4, f, nullptr, &info);
    tagST_MATCH_PAIRS none = {nullptr, nullptr, 2};
    LM_Evaluate(h, 4, f, &none, &info);
}

TEST(LmEvaluate, RefitOnExactPairsRecoversTheHomography) {
    const float truth[9] = {1.02f, 0.015f, 12.5f, -0.012f, 0.99f, -7.25f, 2.0e-5f, -1.5e-5f, 1.0f};
    std::vector<float> ref, match;
    for (int gy = 0; gy < 6; ++gy) {
        for (int gx = 0; gx < 8; ++gx) {
            const double x = 40 + gx * 130.0, y = 30 + gy * 135.0;
            const double w = truth[6] * x + truth[7] * y + 1;
            ref.insert(ref.end(), {float(x), float(y)});
            match.insert(match.end(), {float((truth[0] * x + truth[1] * y + truth[2]) / w),
                                       float((truth[3] * x + truth[4] * y + truth[5]) / w)});
        }
    }
    tagST_MATCH_PAIRS pairs = {ref.data(), match.data(), int(ref.size() / 2)};
    const int m = 2 * pairs.pointNum;
    // Start two pixels and a little rotation away.
    float h[9];
    memcpy(h, truth, sizeof(h));
    h[2] += 2.0f;
    h[5] -= 1.5f;
    h[1] += 0.002f;
    std::vector<unsigned char> work(WorkBytes(m, 9));
    lm_control_type c = Control();
    LM_Minimize(m, 9, h, LM_Evaluate, nullptr, &pairs, &c, work.data());
    EXPECT_GE(c.info, 1);
    EXPECT_LE(c.info, 8);
    EXPECT_LT(c.fnorm / std::sqrt(float(m)), 0.01f);  // rms residual in pixels
    // Same map at the corners of the frame (the scale of h is free).
    for (float cx : {0.0f, 999.0f}) {
        for (float cy : {0.0f, 749.0f}) {
            const double wt = truth[6] * cx + truth[7] * cy + 1, wh = h[6] * cx + h[7] * cy + h[8];
            EXPECT_NEAR((h[0] * cx + h[1] * cy + h[2]) / wh, (truth[0] * cx + truth[1] * cy + truth[2]) / wt, 0.05);
            EXPECT_NEAR((h[3] * cx + h[4] * cy + h[5]) / wh, (truth[3] * cx + truth[4] * cy + truth[5]) / wt, 0.05);
        }
    }
}
