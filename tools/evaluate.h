// Independent checks of the library's results: the homography recovered
// from the surviving pairs against the known truth, and how much the frames
// differ from the reference before and after alignment.
#ifndef TOCRA_DEMO_EVALUATE_H
#define TOCRA_DEMO_EVALUATE_H

#include <array>
#include <vector>

#include <opencv2/core.hpp>

#include "brimvel_tocra.h"

namespace demo {

// Least-squares homography (reference point -> frame point) through the
// pairs, with the root-mean-square distance of the pairs from it in frame
// pixels. False with fewer than 4 pairs.
bool FitHomography(const std::vector<cv::Point2f>& ref, const std::vector<cv::Point2f>& frame, cv::Matx33d* h,
                   double* rms);

// Distances, in frame pixels, between where the fitted and the true
// homography take the four frame corners (0,0), (W-1,0), (0,H-1), (W-1,H-1).
std::array<double, 4> CornerErrors(const cv::Matx33d& fitted, const cv::Matx33d& truth, cv::Size size);

// A look-up table that carries the frame's luma levels onto the reference's:
// level j goes to the reference level whose cumulative count is nearest to
// the frame's count at j (cumA: reference, cumB: frame).
cv::Mat BalanceTable(const FrameBalanceResult& balance);
// The table that leaves every level as it is.
cv::Mat IdentityTable();

// |reference - table(frame)| on the luma, in a rectangle.
cv::Mat BalancedDifference(const cv::Mat& refLuma, const cv::Mat& frameLuma, const cv::Mat& table);
double MeanInside(const cv::Mat& plane, const cv::Rect& rect);

}  // namespace demo

#endif
