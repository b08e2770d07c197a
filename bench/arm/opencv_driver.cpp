// OpenCV doing the work of one of the library's kernels on the same inputs,
// single-threaded, for counting its instructions under the emulator:
//
//   opencv_driver KERNEL WIDTH HEIGHT CALLS [COUNT]
//
// Arguments, baseline (CALLS = 0) and the "cost-units N UNIT" line as for
// cost_driver. Exit status 3: no OpenCV counterpart for that kernel. The
// set-up of both runs also makes one call on a small plane, so that
// OpenCV's one-time initialisation (dispatch tables, thread pool, buffers)
// is in the baseline and not in the kernel's count.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/core/ocl.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "bench/arm/cost_inputs.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Args {
    std::string kernel;
    int width = 0, height = 0, calls = 0, count = 5000;
};

void Units(double n, const char* unit) { printf("cost-units %.0f %s\n", n, unit); }

cv::Mat Wrap(Bytes& b, int rows, int cols, int type, int pitch) { return cv::Mat(rows, cols, type, b.data(), pitch); }

// Runs op once on a 256 x 256 version of the work, then `calls` times on
// the real one.
template <typename Op>
void Repeat(const Args& a, Op op) {
    op(256, 256, true);
    for (int i = 0; i < a.calls; ++i) op(a.width, a.height, false);
}

void RunIntegral(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    Bytes src = cost::Plane(stride, a.height, 1);
    cv::Mat sum;
    Repeat(a, [&](int w, int h, bool) { cv::integral(Wrap(src, h, w, CV_8UC1, stride), sum, CV_32S); });
    Units(double(a.width) * a.height, "pixel");
}

// cv::blur with the same (2R+1) x (2R+1) window; borders replicated (ours
// averages the pixels that exist).
void RunBoxFilter(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    Bytes src = cost::Plane(stride, a.height, 2);
    cv::Mat dst;
    const int k = 2 * cost::kBoxRadius + 1;
    Repeat(a, [&](int w, int h, bool) {
        cv::blur(Wrap(src, h, w, CV_8UC1, stride), dst, cv::Size(k, k), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    });
    Units(double(a.width) * a.height, "pixel");
}

void RunDownScale(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    Bytes src = cost::Plane(stride, a.height, 3);
    cv::Mat dst;
    Repeat(a, [&](int w, int h, bool) {
        cv::resize(Wrap(src, h, w, CV_8UC1, stride), dst, cv::Size(w / 2, h / 2), 0, 0, cv::INTER_AREA);
    });
    Units(double(a.width / 2) * (a.height / 2), "pixel");
}

void RunUpScale(const Args& a) {
    const int s2 = cost::Pitch128(a.width / 2);
    Bytes src = cost::Plane(s2, a.height / 2, 4);
    cv::Mat dst;
    Repeat(a, [&](int w, int h, bool) {
        cv::resize(Wrap(src, h / 2, w / 2, CV_8UC1, s2), dst, cv::Size(w, h), 0, 0, cv::INTER_LINEAR);
    });
    Units(double(a.width) * a.height, "pixel");
}

// The saturated signed difference: cv::subtract into CV_8S.
void RunUpScaleError(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    Bytes pa = cost::Plane(stride, a.height, 5), pb = cost::Plane(stride, a.height, 6);
    cv::Mat err;
    Repeat(a, [&](int w, int h, bool) {
        cv::subtract(Wrap(pa, h, w, CV_8UC1, stride), Wrap(pb, h, w, CV_8UC1, stride), err, cv::noArray(), CV_8S);
    });
    Units(double(a.width) * a.height, "pixel");
}

// Colour conversion with the block histograms: NV12 to BGR at the same
// output size, the 2 x 2 block means (INTER_AREA to half size), and one
// 256-bin histogram per channel.
void RunYuv2Rgb(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    Bytes nv12 = cost::Plane(stride, a.height + a.height / 2, 7);
    cv::Mat bgr, means, hist;
    const int bins = 256;
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    Repeat(a, [&](int w, int h, bool) {
        cv::cvtColor(Wrap(nv12, h + h / 2, w, CV_8UC1, stride), bgr, cv::COLOR_YUV2BGR_NV12);
        cv::resize(bgr, means, cv::Size(w / 2, h / 2), 0, 0, cv::INTER_AREA);
        for (int c = 0; c < 3; ++c) cv::calcHist(&means, 1, &c, cv::Mat(), hist, 1, &bins, ranges);
    });
    Units(double(a.width) * a.height, "pixel");
}

void RunHist(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    Bytes p = cost::Plane(stride, a.height, 9);
    cv::Mat hist;
    const int bins = 256, channel = 0;
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    Repeat(a, [&](int w, int h, bool) {
        cv::Mat m = Wrap(p, h, w, CV_8UC1, stride);
        cv::calcHist(&m, 1, &channel, cv::Mat(), hist, 1, &bins, ranges);
    });
    Units(double(a.width) * a.height, "pixel");
}

// ORB descriptors of the same keypoints on one pyramid level (ORB also
// copies the frame into a bordered level image, blurs it and computes each
// keypoint's orientation).
void RunOrb(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    Bytes plane = cost::Plane(stride, a.height, 10);
    std::vector<cv::KeyPoint> base;
    for (const cost::Keypoint& kp : cost::Keypoints(a.count, a.width, a.height)) {
        base.emplace_back(kp.x / 64.0f, kp.y / 64.0f, 31.0f, -1.0f, 0, 0);
    }
    cv::Ptr<cv::ORB> orb = cv::ORB::create(a.count, 1.2f, 1, 31, 0, 2, cv::ORB::HARRIS_SCORE, 31);
    cv::Mat desc;
    Repeat(a, [&](int w, int h, bool small) {
        std::vector<cv::KeyPoint> kps;
        if (small) {
            kps.emplace_back(128.0f, 128.0f, 31.0f, -1.0f, 0, 0);
        } else {
            kps = base;
        }
        orb->compute(Wrap(plane, h, w, CV_8UC1, stride), kps, desc);
    });
    Units(a.count, "keypoint");
}

// findHomography with RANSAC on the full-frame matches: the same squared
// inlier bound (80) and confidence, its default iteration cap.
void RunFindHomography(const Args& a) {
    const cost::Matches m = cost::RansacMatches();
    std::vector<cv::Point2f> src(cost::kMatches), dst(cost::kMatches);
    for (int i = 0; i < cost::kMatches; ++i) {
        src[i] = {m.ref[2 * i] * cost::kMatchScale, m.ref[2 * i + 1] * cost::kMatchScale};
        dst[i] = {m.match[2 * i] * cost::kMatchScale, m.match[2 * i + 1] * cost::kMatchScale};
    }
    cv::Mat H, mask;
    Repeat(a, [&](int, int, bool small) {
        const int n = small ? 50 : cost::kMatches;
        H = cv::findHomography(std::vector<cv::Point2f>(src.begin(), src.begin() + n),
                               std::vector<cv::Point2f>(dst.begin(), dst.begin() + n), cv::RANSAC, std::sqrt(80.0),
                               mask, 2000, 0.9995);
    });
    Units(cost::kMatches, "pair");
}

// Luma bilinear, chroma nearest, with the library's matrix (destination to
// source, so WARP_INVERSE_MAP), the chroma matrix conjugated by the half
// scale; borders replicated. Planar: U and V apart; NV12: one two-channel
// chroma plane.
struct WarpFrame {
    Bytes y, u, v, dy, du, dv;
    int pitch, cpitch;
    WarpFrame(int width, int height, bool nv12) {
        pitch = nv12 ? width : cost::Pitch128(width);
        cpitch = nv12 ? width : cost::Pitch128(width / 2);
        y = cost::Plane(pitch, height, 11);
        u = cost::Plane(cpitch, height / 2, 12);
        if (!nv12) v = cost::Plane(cpitch, height / 2, 13);
        dy.assign(y.size(), 0);
        du.assign(u.size(), 0);
        dv.assign(v.size(), 0);
    }
    void Warp(const cv::Mat& H, int w, int h, bool nv12) {
        const cv::Mat half = (cv::Mat_<double>(3, 3) << 0.5, 0, 0, 0, 0.5, 0, 0, 0, 1);
        cv::Mat Hd;
        H.convertTo(Hd, CV_64F);
        const cv::Mat Hc = half * Hd * half.inv();
        cv::Mat dstY = Wrap(dy, h, w, CV_8UC1, pitch);
        cv::warpPerspective(Wrap(y, h, w, CV_8UC1, pitch), dstY, Hd, dstY.size(),
                            cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        if (nv12) {
            cv::Mat dstUV = Wrap(du, h / 2, w / 2, CV_8UC2, cpitch);
            cv::warpPerspective(Wrap(u, h / 2, w / 2, CV_8UC2, cpitch), dstUV, Hc, dstUV.size(),
                                cv::INTER_NEAREST | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        } else {
            cv::Mat dstU = Wrap(du, h / 2, w / 2, CV_8UC1, cpitch), dstV = Wrap(dv, h / 2, w / 2, CV_8UC1, cpitch);
            cv::warpPerspective(Wrap(u, h / 2, w / 2, CV_8UC1, cpitch), dstU, Hc, dstU.size(),
                                cv::INTER_NEAREST | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
            cv::warpPerspective(Wrap(v, h / 2, w / 2, CV_8UC1, cpitch), dstV, Hc, dstV.size(),
                                cv::INTER_NEAREST | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        }
    }
};

void RunWarp(const Args& a, bool nv12) {
    WarpFrame f(a.width, a.height, nv12);
    float h[9];
    cost::WarpMatrix(a.width, a.height, h);
    const cv::Mat H(3, 3, CV_32F, h);
    Repeat(a, [&](int w, int hh, bool) { f.Warp(H, w, hh, nv12); });
    Units(double(a.width) * a.height, "pixel");
}

// One registration's work: findHomography (RANSAC, squared bound 80) on the
// keypoint matches, then the planar warp.
void RunFindHomographyAndWarp(const Args& a) {
    WarpFrame f(a.width, a.height, false);
    float h[9];
    cost::WarpMatrix(a.width, a.height, h);
    const cost::RegistrationMatches m = cost::RegistrationPairs(a.width, a.height, h);
    std::vector<cv::Point2f> ref, match;
    for (size_t i = 0; i < m.refKeys.size(); ++i) {
        ref.emplace_back(m.refKeys[m.trainIdx[i]].x / 64.0f, m.refKeys[m.trainIdx[i]].y / 64.0f);
        match.emplace_back(m.matchKeys[m.queryIdx[i]].x / 64.0f, m.matchKeys[m.queryIdx[i]].y / 64.0f);
    }
    Repeat(a, [&](int w, int hh, bool small) {
        const size_t n = small ? 50 : ref.size();
        const cv::Mat H =
            cv::findHomography(std::vector<cv::Point2f>(ref.begin(), ref.begin() + n),
                               std::vector<cv::Point2f>(match.begin(), match.begin() + n), cv::RANSAC, std::sqrt(80.0));
        f.Warp(H, w, hh, false);
    });
    Units(double(a.width) * a.height, "pixel");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        fprintf(stderr, "usage: opencv_driver KERNEL WIDTH HEIGHT CALLS [COUNT]\n");
        return 2;
    }
    Args a;
    a.kernel = argv[1];
    a.width = atoi(argv[2]);
    a.height = atoi(argv[3]);
    a.calls = atoi(argv[4]);
    if (argc > 5) a.count = atoi(argv[5]);
    if (a.width < 256 || a.height < 256 || a.calls < 0 || a.count < 4) return 2;
    cv::setNumThreads(1);
    cv::ocl::setUseOpenCL(false);

    const std::string& k = a.kernel;
    if (k == "integral") {
        RunIntegral(a);
    } else if (k == "box_filter") {
        RunBoxFilter(a);
    } else if (k == "downscale") {
        RunDownScale(a);
    } else if (k == "upscale") {
        RunUpScale(a);
    } else if (k == "upscale_error") {
        RunUpScaleError(a);
    } else if (k == "yuv2rgb_hist") {
        RunYuv2Rgb(a);
    } else if (k == "cum_sum") {
        RunHist(a);
    } else if (k == "brief_api") {
        RunOrb(a);
    } else if (k == "ransac") {
        RunFindHomography(a);
    } else if (k == "warp_yuv420") {
        RunWarp(a, false);
    } else if (k == "warp_nv12") {
        RunWarp(a, true);
    } else if (k == "ransac_regis") {
        RunFindHomographyAndWarp(a);
    } else {
        return 3;  // box_h, box_v, cum_hist, brief_kernel, dlt_normal, fill_nv12: no counterpart
    }
    return 0;
}
