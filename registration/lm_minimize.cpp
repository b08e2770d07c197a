// Levenberg-Marquardt least squares (the lmdif algorithm of MINPACK: Moré,
// Garbow and Hillstrom) in single precision, with all work memory taken from
// the caller's buffer.
//
// Conventions of this port:
// - floats throughout; square roots are the double sqrt of the float value,
//   and the few named limits below are double constants, so expressions
//   that use them are evaluated in double and rounded back to float;
// - matrices are column-major with leading dimension m: element (i, j) of
//   fjac is fjac[j * m + i];
// - one int holds both the termination code and the status word handed to
//   the residual function (reset to 0 before each evaluation), so a
//   negative value stored by the function ends the run.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "brimvel_tocra.h"

namespace tocra {
namespace {

constexpr double kMachEp = 1.2e-16;                   // precision used in every convergence test
constexpr double kDwarf = 1.0e-38;                    // smallest positive number
constexpr double kRDwarf = 3.834e-20;                 // enorm: below this, scaled small sum
constexpr double kRGiant = 1.304e19;                  // enorm: above this / n, scaled large sum
constexpr double kNormGuard = 2.220446049250313e-16;  // added to divisor norms

constexpr float kP1 = 0.1f;
constexpr float kP5 = 0.5f;
constexpr float kP25 = 0.25f;
constexpr float kP75 = 0.75f;
constexpr float kP0001 = 1.0e-4f;
constexpr float kP05 = 0.05f;
constexpr float kP001 = 0.001f;
constexpr int kMaxOuterIterations = 1001;

inline float Sq(float v) { return v * v; }
// Square root in double of a float value; the expression around it carries
// on in double until it is stored.
inline double SqrtD(float v) { return std::sqrt(static_cast<double>(v)); }
inline float Max(float a, float b) { return a > b ? a : b; }
inline float Min(float a, float b) { return a < b ? a : b; }

// Euclidean norm without destructive underflow or overflow: small, medium
// and large components are summed separately, each scaled.
float Enorm(int n, const float* x) {
    float s1 = 0.0f, s2 = 0.0f, s3 = 0.0f;
    float x1max = 0.0f, x3max = 0.0f;
    const float agiant = static_cast<float>(kRGiant / (n + kNormGuard));
    for (int i = 0; i < n; ++i) {
        const float xabs = std::fabs(x[i]);
        if (xabs > kRDwarf && xabs < agiant) {
            s2 += xabs * xabs;
        } else if (xabs <= kRDwarf) {
            if (xabs > x3max) {
                s3 = 1.0f + s3 * Sq(x3max / xabs);
                x3max = xabs;
            } else if (xabs != 0.0f) {
                s3 += Sq(xabs / x3max);
            }
        } else {
            if (xabs > x1max) {
                s1 = 1.0f + s1 * Sq(x1max / xabs);
                x1max = xabs;
            } else {
                s1 += Sq(xabs / x1max);
            }
        }
    }
    if (s1 != 0.0f) return static_cast<float>(x1max * SqrtD(s1 + (s2 / x1max) / x1max));
    if (s2 != 0.0f) {
        if (s2 >= x3max) return static_cast<float>(SqrtD(s2 * (1.0f + (x3max / s2) * (x3max * s3))));
        return static_cast<float>(SqrtD(x3max * ((s2 / x3max) + (x3max * s3))));
    }
    return static_cast<float>(x3max * SqrtD(s3));
}

// Householder QR with column pivoting of the m x n matrix a: R's diagonal
// goes to rdiag, the rest of R to the upper triangle of a, the Householder
// vectors below it; acnorm gets the column norms of the input.
void Qrfac(int m, int n, float* a, int* ipvt, float* rdiag, float* acnorm, float* wa) {
    for (int j = 0; j < n; ++j) {
        acnorm[j] = Enorm(m, a + static_cast<size_t>(j) * m);
        rdiag[j] = acnorm[j];
        wa[j] = rdiag[j];
        ipvt[j] = j;
    }
    const int minmn = m < n ? m : n;
    for (int j = 0; j < minmn; ++j) {
        float* aj = a + static_cast<size_t>(j) * m;
        // Bring the column of largest remaining norm to position j.
        int kmax = j;
        for (int k = j; k < n; ++k) {
            if (rdiag[k] > rdiag[kmax]) kmax = k;
        }
        if (kmax != j) {
            float* ak = a + static_cast<size_t>(kmax) * m;
            for (int i = 0; i < m; ++i) {
                const float t = aj[i];
                aj[i] = ak[i];
                ak[i] = t;
            }
            rdiag[kmax] = rdiag[j];
            wa[kmax] = wa[j];
            const int t = ipvt[j];
            ipvt[j] = ipvt[kmax];
            ipvt[kmax] = t;
        }

        // Householder transformation that reduces column j to a multiple of
        // the j-th unit vector.
        float ajnorm = Enorm(m - j, aj + j);
        if (ajnorm != 0.0f) {
            if (aj[j] < 0.0f) ajnorm = -ajnorm;
            for (int i = j; i < m; ++i) aj[i] /= ajnorm;
            aj[j] += 1.0f;
            for (int k = j + 1; k < n; ++k) {
                float* ak = a + static_cast<size_t>(k) * m;
                float sum = 0.0f;
                for (int i = j; i < m; ++i) sum += aj[i] * ak[i];
                const float temp = sum / aj[j];
                for (int i = j; i < m; ++i) ak[i] -= temp * aj[i];
                if (rdiag[k] != 0.0f) {
                    float t = ak[j] / rdiag[k];
                    t = Max(0.0f, 1.0f - t * t);
                    rdiag[k] = static_cast<float>(rdiag[k] * SqrtD(t));
                    if (kP05 * Sq(rdiag[k] / wa[k]) <= kMachEp) {
                        rdiag[k] = Enorm(m - j - 1, ak + j + 1);
                        wa[k] = rdiag[k];
                    }
                }
            }
        }
        rdiag[j] = -ajnorm;
    }
}

// Solves the least-squares system a x = b, d x = 0 given the QR factors of
// a (r, ipvt, qtb) and the diagonal d: a Givens sweep eliminates d into R;
// the lower triangle of r and sdiag receive the new factor.
void Qrsolv(int n, float* r, int ldr, const int* ipvt, const float* diag, const float* qtb, float* x, float* sdiag,
            float* wa) {
    auto R = [r, ldr](int i, int j) -> float& { return r[static_cast<size_t>(j) * ldr + i]; };
    for (int j = 0; j < n; ++j) {
        for (int i = j; i < n; ++i) R(i, j) = R(j, i);
        x[j] = R(j, j);
        wa[j] = qtb[j];
    }
    for (int j = 0; j < n; ++j) {
        const int l = ipvt[j];
        if (diag[l] != 0.0f) {
            for (int k = j; k < n; ++k) sdiag[k] = 0.0f;
            sdiag[j] = diag[l];
            float qtbpj = 0.0f;
            for (int k = j; k < n; ++k) {
                if (sdiag[k] == 0.0f) continue;
                float sn, cs;
                if (std::fabs(R(k, k)) < std::fabs(sdiag[k])) {
                    const float cotan = R(k, k) / sdiag[k];
                    sn = static_cast<float>(kP5 / SqrtD(kP25 + kP25 * Sq(cotan)));
                    cs = sn * cotan;
                } else {
                    const float tn = sdiag[k] / R(k, k);
                    cs = static_cast<float>(kP5 / SqrtD(kP25 + kP25 * Sq(tn)));
                    sn = cs * tn;
                }
                R(k, k) = cs * R(k, k) + sn * sdiag[k];
                const float temp = cs * wa[k] + sn * qtbpj;
                qtbpj = -sn * wa[k] + cs * qtbpj;
                wa[k] = temp;
                for (int i = k + 1; i < n; ++i) {
                    const float t = cs * R(i, k) + sn * sdiag[i];
                    sdiag[i] = -sn * R(i, k) + cs * sdiag[i];
                    R(i, k) = t;
                }
            }
        }
        sdiag[j] = R(j, j);
        R(j, j) = x[j];
    }

    int nsing = n;
    for (int j = 0; j < n; ++j) {
        if (sdiag[j] == 0.0f && nsing == n) nsing = j;
        if (nsing < n) wa[j] = 0.0f;
    }
    for (int j = nsing - 1; j >= 0; --j) {
        float sum = 0.0f;
        for (int i = j + 1; i < nsing; ++i) sum += R(i, j) * wa[i];
        wa[j] = (wa[j] - sum) / sdiag[j];
    }
    for (int j = 0; j < n; ++j) x[ipvt[j]] = wa[j];
}

// Levenberg-Marquardt parameter: finds par such that the scaled step x
// solving (J^T J + par D^T D) x = -J^T f has |D x| within 10% of delta (or
// par = 0 when the Gauss-Newton step is already short enough).
void Lmpar(int n, float* r, int ldr, const int* ipvt, const float* diag, const float* qtb, float delta, float* par,
           float* x, float* sdiag, float* wa1, float* wa2) {
    auto R = [r, ldr](int i, int j) -> float& { return r[static_cast<size_t>(j) * ldr + i]; };

    // Gauss-Newton direction; a rank-deficient R gives a least-squares one.
    int nsing = n;
    for (int j = 0; j < n; ++j) {
        wa1[j] = qtb[j];
        if (R(j, j) == 0.0f && nsing == n) nsing = j;
        if (nsing < n) wa1[j] = 0.0f;
    }
    for (int j = nsing - 1; j >= 0; --j) {
        wa1[j] /= R(j, j);
        const float temp = wa1[j];
        for (int i = 0; i < j; ++i) wa1[i] -= R(i, j) * temp;
    }
    for (int j = 0; j < n; ++j) x[ipvt[j]] = wa1[j];

    int iter = 0;
    for (int j = 0; j < n; ++j) wa2[j] = diag[j] * x[j];
    float dxnorm = Enorm(n, wa2);
    float fp = dxnorm - delta;
    if (fp <= kP1 * delta) {
        *par = 0.0f;
        return;
    }

    // Lower bound from the Newton step (only for full rank).
    float parl = 0.0f;
    if (nsing >= n) {
        for (int j = 0; j < n; ++j) {
            const int l = ipvt[j];
            wa1[j] = diag[l] * (wa2[l] / dxnorm);
        }
        for (int j = 0; j < n; ++j) {
            float sum = 0.0f;
            for (int i = 0; i < j; ++i) sum += R(i, j) * wa1[i];
            wa1[j] = (wa1[j] - sum) / R(j, j);
        }
        const float temp = Enorm(n, wa1);
        parl = ((fp / delta) / temp) / temp;
    }

    // Upper bound from the scaled gradient.
    for (int j = 0; j < n; ++j) {
        float sum = 0.0f;
        for (int i = 0; i <= j; ++i) sum += R(i, j) * qtb[i];
        wa1[j] = sum / diag[ipvt[j]];
    }
    const float gnorm = Enorm(n, wa1);
    float paru = gnorm / delta;
    if (paru == 0.0f) paru = static_cast<float>(kDwarf / Min(delta, kP1));

    *par = Max(*par, parl);
    *par = Min(*par, paru);
    if (*par == 0.0f) *par = gnorm / dxnorm;

    for (;;) {
        ++iter;
        if (*par == 0.0f) *par = static_cast<float>(kDwarf > kP001 * paru ? kDwarf : kP001 * paru);
        const float temp = static_cast<float>(SqrtD(*par));
        for (int j = 0; j < n; ++j) wa1[j] = temp * diag[j];
        Qrsolv(n, r, ldr, ipvt, wa1, qtb, x, sdiag, wa2);
        for (int j = 0; j < n; ++j) wa2[j] = diag[j] * x[j];
        dxnorm = Enorm(n, wa2);
        const float fpOld = fp;
        fp = dxnorm - delta;
        if (std::fabs(fp) <= kP1 * delta || (parl == 0.0f && fp <= fpOld && fpOld < 0.0f) || iter == 10) break;

        // Newton correction.
        for (int j = 0; j < n; ++j) {
            const int l = ipvt[j];
            wa1[j] = diag[l] * (wa2[l] / dxnorm);
        }
        for (int j = 0; j < n; ++j) {
            wa1[j] /= sdiag[j];
            const float t = wa1[j];
            for (int i = j + 1; i < n; ++i) wa1[i] -= R(i, j) * t;
        }
        const float tn = Enorm(n, wa1);
        const float parc = ((fp / delta) / tn) / tn;
        if (fp > 0.0f) parl = Max(parl, *par);
        if (fp < 0.0f) paru = Min(paru, *par);
        *par = Max(parl, *par + parc);
    }
}

struct Work {
    float* fvec;
    float* diag;
    float* qtf;
    float* fjac;
    float* wa1;
    float* wa2;
    float* wa3;
    float* wa4;
    int* ipvt;
};

Work Layout(unsigned char* work, int m, int n) {
    // Every array follows the first 4-byte boundary of the buffer: the
    // documented order and sizes, with the 3 bytes of slack covering an
    // unaligned start.
    float* p = reinterpret_cast<float*>((reinterpret_cast<uintptr_t>(work) + 3) & ~uintptr_t{3});
    Work w;
    w.fvec = p;
    w.diag = w.fvec + m;
    w.qtf = w.diag + n;
    w.fjac = w.qtf + n;
    w.wa1 = w.fjac + static_cast<size_t>(m) * n;
    w.wa2 = w.wa1 + n;
    w.wa3 = w.wa2 + n;
    w.wa4 = w.wa3 + n;
    w.ipvt = reinterpret_cast<int*>(w.wa4 + m);
    return w;
}

// The lmdif iteration. info is the shared termination code / status word.
void LmDif(int m, int n, float* x, lm_evaluate_ftype evaluate, void* data, float ftol, float xtol, float gtol,
           int maxfev, float epsfcn, float factor, const Work& w, int* info, int* nfev) {
    float* fvec = w.fvec;
    float* diag = w.diag;
    float* qtf = w.qtf;
    float* fjac = w.fjac;
    float* wa1 = w.wa1;
    float* wa2 = w.wa2;
    float* wa3 = w.wa3;
    float* wa4 = w.wa4;
    int* ipvt = w.ipvt;
    auto J = [fjac, m](int i, int j) -> float& { return fjac[static_cast<size_t>(j) * m + i]; };

    *info = 0;
    evaluate(x, m, fvec, data, info);
    *nfev = 1;
    if (*info < 0) return;
    float fnorm = Enorm(m, fvec);

    float par = 0.0f;
    int iter = 1;
    float delta = 0.0f;
    float xnorm = 0.0f;
    const float eps = static_cast<float>(SqrtD(epsfcn));

    for (int outerLeft = kMaxOuterIterations;;) {
        // Forward-difference Jacobian.
        for (int j = 0; j < n; ++j) {
            const float temp = x[j];
            float h = eps * std::fabs(temp);
            if (h == 0.0f) h = eps;
            x[j] = temp + h;
            *info = 0;
            evaluate(x, m, wa4, data, info);
            x[j] = temp;
            if (*info < 0) return;
            for (int i = 0; i < m; ++i) J(i, j) = (wa4[i] - fvec[i]) / h;
        }
        *nfev += n;

        Qrfac(m, n, fjac, ipvt, wa1, wa2, wa3);

        // First iteration: scale by the column norms and set the step bound.
        if (iter == 1) {
            for (int j = 0; j < n; ++j) {
                diag[j] = wa2[j];
                if (wa2[j] == 0.0f) diag[j] = 1.0f;
            }
            for (int j = 0; j < n; ++j) wa3[j] = diag[j] * x[j];
            xnorm = Enorm(n, wa3);
            delta = factor * xnorm;
            if (delta == 0.0f) delta = factor;
        }

        // Q^T fvec; its first n elements go to qtf.
        for (int i = 0; i < m; ++i) wa4[i] = fvec[i];
        for (int j = 0; j < n; ++j) {
            if (J(j, j) != 0.0f) {
                float sum = 0.0f;
                for (int i = j; i < m; ++i) sum += J(i, j) * wa4[i];
                const float temp = -sum / J(j, j);
                for (int i = j; i < m; ++i) wa4[i] += J(i, j) * temp;
            }
            J(j, j) = wa1[j];
            qtf[j] = wa4[j];
        }

        // Norm of the scaled gradient.
        float gnorm = 0.0f;
        if (fnorm != 0.0f) {
            for (int j = 0; j < n; ++j) {
                const int l = ipvt[j];
                if (wa2[l] == 0.0f) continue;
                float sum = 0.0f;
                for (int i = 0; i <= j; ++i) sum += J(i, j) * (qtf[i] / fnorm);
                gnorm = Max(gnorm, std::fabs(sum / wa2[l]));
            }
        }
        if (gnorm <= gtol) *info = 4;
        if (*info != 0) return;

        for (int j = 0; j < n; ++j) diag[j] = Max(diag[j], wa2[j]);

        // Inner loop: until a step reduces the sum of squares.
        float ratio;
        do {
            Lmpar(n, fjac, m, ipvt, diag, qtf, delta, &par, wa1, wa2, wa3, wa4);
            for (int j = 0; j < n; ++j) {
                wa1[j] = -wa1[j];
                wa2[j] = x[j] + wa1[j];
                wa3[j] = diag[j] * wa1[j];
            }
            const float pnorm = Enorm(n, wa3);
            if (iter == 1) delta = Min(delta, pnorm);

            *info = 0;
            evaluate(wa2, m, wa4, data, info);
            ++*nfev;
            if (*info < 0) return;
            const float fnorm1 = Enorm(m, wa4);

            // Scaled actual and predicted reductions, directional derivative.
            float actred = -1.0f;
            if (kP1 * fnorm1 < fnorm) actred = 1.0f - Sq(static_cast<float>(fnorm1 / (fnorm + kNormGuard)));
            for (int j = 0; j < n; ++j) {
                wa3[j] = 0.0f;
                const float temp = wa1[ipvt[j]];
                for (int i = 0; i <= j; ++i) wa3[i] += J(i, j) * temp;
            }
            const float temp1 = static_cast<float>(Enorm(n, wa3) / (fnorm + kNormGuard));
            const float temp2 = static_cast<float>((SqrtD(par) * pnorm) / (fnorm + kNormGuard));
            const float prered = temp1 * temp1 + temp2 * temp2 / kP5;
            const float dirder = -(temp1 * temp1 + temp2 * temp2);
            ratio = 0.0f;
            if (prered != 0.0f) ratio = actred / prered;

            // Step bound update.
            if (ratio <= kP25) {
                float temp = kP5;
                if (actred < 0.0f) temp = kP5 * dirder / (dirder + 0.55f * actred);
                if (kP1 * fnorm1 >= fnorm || temp < kP1) temp = kP1;
                delta = temp * Min(delta, pnorm / kP1);
                par = par / temp;
            } else if (par == 0.0f || ratio >= kP75) {
                delta = pnorm / kP5;
                par = kP5 * par;
            }

            // Successful step: take it.
            if (ratio >= kP0001) {
                for (int j = 0; j < n; ++j) {
                    x[j] = wa2[j];
                    wa2[j] = diag[j] * x[j];
                }
                for (int i = 0; i < m; ++i) fvec[i] = wa4[i];
                xnorm = Enorm(n, wa2);
                fnorm = fnorm1;
                ++iter;
            }

            // Convergence.
            if (std::fabs(actred) <= ftol && prered <= ftol && kP5 * ratio <= 1.0f) *info = 1;
            if (delta <= xtol * xnorm) *info = 2;
            if (std::fabs(actred) <= ftol && prered <= ftol && kP5 * ratio <= 1.0f && *info == 2) *info = 3;
            if (*info != 0) return;

            // Tolerances too small or budget spent.
            if (*nfev >= maxfev) *info = 5;
            if (std::fabs(actred) <= kMachEp && prered <= kMachEp && kP5 * ratio <= 1.0f) *info = 6;
            if (delta <= kMachEp * xnorm) *info = 7;
            if (gnorm <= kMachEp) *info = 8;
            if (*info != 0) return;
        } while (ratio < kP0001);

        if (--outerLeft == 0) return;
    }
}

}  // namespace
}  // namespace tocra

extern "C" void LM_Minimize(int m, int n, float* x, lm_evaluate_ftype evaluate, lm_print_ftype /*printout*/, void* data,
                            lm_control_type* control, unsigned char* work) {
    // Nothing can be reported without the control record.
    if (control == nullptr) return;
    control->info = 0;
    control->nfev = 0;

    // Work words: m (n + 2) + 6 n, which must be addressable.
    const int64_t words = static_cast<int64_t>(m) * (static_cast<int64_t>(n) + 2) + 6 * static_cast<int64_t>(n);
    const int64_t budget = (static_cast<int64_t>(n) + 1) * control->maxcall;
    const bool improper = n <= 0 || m < n || control->ftol < 0.0f || control->xtol < 0.0f || control->gtol < 0.0f ||
                          budget <= 0 || control->stepbound <= 0.0f;
    // Guards of our own, also answered with info 0 before anything is read:
    // null pointers and sizes whose work buffer could not exist.
    const bool unusable =
        x == nullptr || evaluate == nullptr || work == nullptr || static_cast<uint64_t>(words) > (SIZE_MAX - 3) / 4;
    if (improper || unusable) {
        // The final norm is taken over the residual area as the buffer holds
        // it, where the documented size has room for m residuals.
        const bool residualsAddressable = work != nullptr && m > 0 && n >= 0 && !unusable;
        control->fnorm = residualsAddressable ? tocra::Enorm(m, tocra::Layout(work, m, n < 0 ? 0 : n).fvec) : 0.0f;
        return;
    }

    const tocra::Work w = tocra::Layout(work, m, n);
    float epsfcn = control->epsilon;
    if (epsfcn < tocra::kMachEp) epsfcn = static_cast<float>(tocra::kMachEp);
    // The count of evaluations may pass the budget by n before it is checked.
    const int64_t fevLimit = INT32_MAX - static_cast<int64_t>(n);
    const int maxfev = static_cast<int>(budget > fevLimit ? fevLimit : budget);
    tocra::LmDif(m, n, x, evaluate, data, control->ftol, control->xtol, control->gtol, maxfev, epsfcn,
                 control->stepbound, w, &control->info, &control->nfev);
    control->fnorm = tocra::Enorm(m, w.fvec);
    if (control->info < 0) control->info = 10;
}

extern "C" void LM_Evaluate(float* h, int m, float* fvec, void* data, int* /*info*/) {
    // Guard of our own: nothing is written through a null pointer, and no
    // residual past the m that fvec holds (with m odd, the last pair that
    // starts inside gets its x residual only).
    const tagST_MATCH_PAIRS* pairs = static_cast<const tagST_MATCH_PAIRS*>(data);
    if (h == nullptr || fvec == nullptr || pairs == nullptr || pairs->pRefPoint == nullptr ||
        pairs->pMatchPoint == nullptr) {
        return;
    }
    const int64_t residuals = m;
    for (int64_t i = 0; i < pairs->pointNum && 2 * i < residuals; ++i) {
        const float x = pairs->pRefPoint[2 * i];
        const float y = pairs->pRefPoint[2 * i + 1];
        const float w = 1.0f / (h[6] * x + h[7] * y + h[8]);
        fvec[2 * i] = (h[0] * x + h[1] * y + h[2]) * w - pairs->pMatchPoint[2 * i];
        if (2 * i + 1 < residuals) fvec[2 * i + 1] = (h[3] * x + h[4] * y + h[5]) * w - pairs->pMatchPoint[2 * i + 1];
    }
}
