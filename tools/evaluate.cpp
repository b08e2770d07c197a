#include "evaluate.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include <opencv2/calib3d.hpp>

namespace demo {
namespace {

cv::Point2d Map(const cv::Matx33d& h, cv::Point2d p) {
    const cv::Vec3d q = h * cv::Vec3d(p.x, p.y, 1.0);
    return cv::Point2d(q[0] / q[2], q[1] / q[2]);
}

}  // namespace

bool FitHomography(const std::vector<cv::Point2f>& ref, const std::vector<cv::Point2f>& frame, cv::Matx33d* h,
                   double* rms) {
    if (ref.size() < 4 || ref.size() != frame.size()) return false;
    // Method 0: every pair takes part, as in the library's own refit.
    const cv::Mat fitted = cv::findHomography(ref, frame, 0);
    if (fitted.empty()) return false;
    *h = cv::Matx33d(fitted);
    double sum = 0.0;
    for (size_t i = 0; i < ref.size(); ++i) {
        const cv::Point2d d = Map(*h, ref[i]) - cv::Point2d(frame[i]);
        sum += d.dot(d);
    }
    *rms = std::sqrt(sum / static_cast<double>(ref.size()));
    return true;
}

std::array<double, 4> CornerErrors(const cv::Matx33d& fitted, const cv::Matx33d& truth, cv::Size size) {
    const double w = size.width - 1;
    const double hgt = size.height - 1;
    const cv::Point2d corners[4] = {{0, 0}, {w, 0}, {0, hgt}, {w, hgt}};
    std::array<double, 4> e{};
    for (int i = 0; i < 4; ++i) e[static_cast<size_t>(i)] = cv::norm(Map(fitted, corners[i]) - Map(truth, corners[i]));
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
