#include "evaluate.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include <opencv2/calib3d.hpp>

namespace demo {
bool FitHomography(const std::vector<cv::Point2f>& ref, const std::vector<cv::Point2f>& frame, cv::Matx33d* h,
                   double* rms) {
    if (ref.size() < 4 || ref.size() != frame.size()) return false;
    // Method 0: every pair takes part, as in the library's own refit.
    const cv::Mat fitted = cv::findHomography(ref, frame, 0);
    if (fitted.empty()) return false;
    *h = cv::Matx33d(fitted);
    // In double precision: float points would round the distances.
    std::vector<cv::Point2d> refD(ref.begin(), ref.end());
    std::vector<cv::Point2d> frameD(frame.begin(), frame.end());
    std::vector<cv::Point2d> mapped;
    cv::perspectiveTransform(refD, mapped, *h);
    *rms = cv::norm(mapped, frameD, cv::NORM_L2) / std::sqrt(static_cast<double>(ref.size()));
    return true;
}

std::array<double, 4> CornerErrors(const cv::Matx33d& fitted, const cv::Matx33d& truth, cv::Size size) {
    const double w = size.width - 1;
    const double hgt = size.height - 1;
    const std::vector<cv::Point2d> corners = {{0, 0}, {w, 0}, {0, hgt}, {w, hgt}};
    std::vector<cv::Point2d> byFit;
    std::vector<cv::Point2d> byTruth;
    cv::perspectiveTransform(corners, byFit, fitted);
    cv::perspectiveTransform(corners, byTruth, truth);
    std::array<double, 4> e{};
    for (size_t i = 0; i < e.size(); ++i) e[i] = cv::norm(byFit[i] - byTruth[i]);
    return e;
}

cv::Mat BalanceTable(const FrameBalanceResult& b) {
    cv::Mat table(1, 256, CV_8UC1);
    for (int j = 0; j < 256; ++j) {
        long long best = std::numeric_limits<long long>::max();
        int level = 0;
        for (int i = 0; i < 256; ++i) {
            const long long d = std::llabs(static_cast<long long>(b.cumB[j]) - static_cast<long long>(b.cumA[i]));
            if (d < best) {
                best = d;
                level = i;
            }
        }
        table.at<uint8_t>(0, j) = static_cast<uint8_t>(level);
    }
    return table;
}

cv::Mat IdentityTable() {
    cv::Mat table(1, 256, CV_8UC1);
    for (int i = 0; i < 256; ++i) table.at<uint8_t>(0, i) = static_cast<uint8_t>(i);
    return table;
}

cv::Mat BalancedDifference(const cv::Mat& refLuma, const cv::Mat& frameLuma, const cv::Mat& table) {
    cv::Mat balanced;
    cv::LUT(frameLuma, table, balanced);
    cv::Mat diff;
    cv::absdiff(refLuma, balanced, diff);
    return diff;
}

double MeanInside(const cv::Mat& plane, const cv::Rect& rect) {
    const cv::Rect r = rect & cv::Rect(0, 0, plane.cols, plane.rows);
    if (r.area() == 0) return 0.0;
    return cv::mean(plane(r))[0];
}

}  // namespace demo
