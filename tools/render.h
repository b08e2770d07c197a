// The pictures of the report.
#ifndef TOCRA_DEMO_RENDER_H
#define TOCRA_DEMO_RENDER_H

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "brimvel_tocra.h"

namespace demo {

struct SheetInput {
    std::string title;
    cv::Mat reference;   // BGR
    cv::Mat frame;       // BGR, as captured
    cv::Mat aligned;     // BGR, the library's output; empty when registration failed
    cv::Mat diffBefore;  // 8-bit |frame - reference| after level balancing
    cv::Mat diffAfter;   // 8-bit |aligned - reference|; empty when registration failed
    bool hasArea = false;
    cv::Rect area;
    std::vector<cv::Point2f> refPoints;  // surviving pairs
    std::vector<cv::Point2f> framePoints;
};

// Six panels: reference, frame, aligned frame, difference before and after
// alignment (registration area drawn), and the surviving pairs.
cv::Mat ContactSheet(const SheetInput& in);

// The two cumulative histograms of the balance, the mapping between them and
// the joint point.
cv::Mat BalancePlot(const FrameBalanceResult& balance, const std::string& title);

}  // namespace demo

#endif
