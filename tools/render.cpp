#include "render.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace demo {
namespace {

constexpr int kCaption = 24;
const cv::Scalar kAreaColour(0, 200, 0);

cv::Mat AsBgr(const cv::Mat& img) {
    if (img.channels() == 3) return img.clone();
    cv::Mat bgr;
    cv::cvtColor(img, bgr, cv::COLOR_GRAY2BGR);
    return bgr;
}

// Differences made visible: four times brighter.
cv::Mat Amplified(const cv::Mat& diff) {
    cv::Mat out;
    diff.convertTo(out, CV_8UC1, 4.0);
    return AsBgr(out);
}

void DrawArea(cv::Mat* img, const cv::Rect& area) { cv::rectangle(*img, area, kAreaColour, 2); }

// A panel of the sheet: the picture scaled to the panel size under a caption.
cv::Mat Panel(const cv::Mat& img, cv::Size size, const std::string& caption) {
    cv::Mat panel(size.height + kCaption, size.width, CV_8UC3, cv::Scalar(235, 235, 235));
    cv::putText(panel, caption, cv::Point(6, 17), cv::FONT_HERSHEY_SIMPLEX, 0.45, cv::Scalar(20, 20, 20), 1,
                cv::LINE_AA);
    cv::Mat body = panel(cv::Rect(0, kCaption, size.width, size.height));
    if (img.empty()) {
        body.setTo(cv::Scalar(90, 90, 90));
        cv::putText(body, "no output", cv::Point(size.width / 2 - 40, size.height / 2), cv::FONT_HERSHEY_SIMPLEX, 0.6,
                    cv::Scalar(255, 255, 255), 1, cv::LINE_AA);
    } else {
        cv::resize(AsBgr(img), body, size, 0, 0, cv::INTER_AREA);
    }
    return panel;
}

cv::Mat PairsPicture(const SheetInput& in) {
    cv::Mat img = in.reference * 0.6;
    for (size_t i = 0; i < in.refPoints.size(); ++i) {
        cv::line(img, in.refPoints[i], in.framePoints[i], cv::Scalar(0, 255, 255), 1, cv::LINE_AA);
        cv::circle(img, in.refPoints[i], 2, cv::Scalar(0, 160, 255), cv::FILLED, cv::LINE_AA);
    }
    return img;
}

}  // namespace

cv::Mat ContactSheet(const SheetInput& in) {
    const int w = in.reference.cols;
    const int h = in.reference.rows;
    const double s = std::min(1.0, 480.0 / w);
    const cv::Size panel(std::max(1, static_cast<int>(std::lround(w * s))),
                         std::max(1, static_cast<int>(std::lround(h * s))));

    cv::Mat aligned = in.aligned.empty() ? cv::Mat() : AsBgr(in.aligned);
    cv::Mat before = Amplified(in.diffBefore);
    cv::Mat after = in.diffAfter.empty() ? cv::Mat() : Amplified(in.diffAfter);
    if (in.hasArea) {
        DrawArea(&aligned, in.area);
        DrawArea(&before, in.area);
        DrawArea(&after, in.area);
    }
    const cv::Mat panels[6] = {
        Panel(in.reference, panel, "reference (frame 0)"),
        Panel(in.frame, panel, "frame as captured"),
        Panel(aligned, panel, "aligned by the library, area in green"),
        Panel(before, panel, "|frame - reference| x4, before alignment"),
        Panel(after, panel, "|aligned - reference| x4, after alignment"),
        Panel(PairsPicture(in), panel, "RANSAC survivors: reference -> frame point"),
    };
    const int titleH = 30;
    const int cellW = panel.width;
    const int cellH = panel.height + kCaption;
    cv::Mat sheet(titleH + 2 * cellH + 4, 3 * cellW + 8, CV_8UC3, cv::Scalar(255, 255, 255));
    cv::putText(sheet, in.title, cv::Point(8, 21), cv::FONT_HERSHEY_SIMPLEX, 0.6, cv::Scalar(0, 0, 0), 1, cv::LINE_AA);
    for (int i = 0; i < 6; ++i) {
        const int col = i % 3;
        const int row = i / 3;
        panels[i].copyTo(sheet(cv::Rect(col * (cellW + 4), titleH + row * (cellH + 4), cellW, cellH)));
    }
    return sheet;
}

cv::Mat BalancePlot(const FrameBalanceResult& b, const std::string& title) {
    const int left = 56, top = 40, plotW = 512, plotH = 300;
    cv::Mat img(top + plotH + 50, left + plotW + 20, CV_8UC3, cv::Scalar(255, 255, 255));
    auto px = [&](double level) { return left + static_cast<int>(std::lround(level * plotW / 255.0)); };
    auto py = [&](double fraction) { return top + plotH - static_cast<int>(std::lround(fraction * plotH)); };
    const cv::Scalar grid(225, 225, 225), ink(40, 40, 40);
    const cv::Scalar refColour(200, 90, 0), frameColour(0, 130, 255), imfColour(150, 150, 150), jointColour(0, 0, 220);

    cv::putText(img, title, cv::Point(left, 24), cv::FONT_HERSHEY_SIMPLEX, 0.55, ink, 1, cv::LINE_AA);
    for (int v = 0; v <= 256; v += 64) {
        const int x = px(std::min(v, 255));
        cv::line(img, cv::Point(x, top), cv::Point(x, top + plotH), grid);
        cv::putText(img, std::to_string(std::min(v, 255)), cv::Point(x - 10, top + plotH + 16),
                    cv::FONT_HERSHEY_SIMPLEX, 0.4, ink, 1, cv::LINE_AA);
    }
    for (int q = 0; q <= 4; ++q) {
        const int y = py(q / 4.0);
        cv::line(img, cv::Point(left, y), cv::Point(left + plotW, y), grid);
        cv::putText(img, cv::format("%.2f", q / 4.0), cv::Point(8, y + 4), cv::FONT_HERSHEY_SIMPLEX, 0.4, ink, 1,
                    cv::LINE_AA);
    }
    cv::rectangle(img, cv::Point(left, top), cv::Point(left + plotW, top + plotH), ink);
    cv::putText(img, "luma level", cv::Point(left + plotW / 2 - 30, top + plotH + 36), cv::FONT_HERSHEY_SIMPLEX, 0.45,
                ink, 1, cv::LINE_AA);

    // Curves: cumulative fractions, and the mapping (reference level ->
    // frame level) on the same 0..1 scale.
    const double totalA = std::max(1u, b.cumA[255]);
    const double totalB = std::max(1u, b.cumB[255]);
    std::vector<cv::Point> ref, frame, imf;
    for (int v = 0; v < 256; ++v) {
        ref.emplace_back(px(v), py(b.cumA[v] / totalA));
        frame.emplace_back(px(v), py(b.cumB[v] / totalB));
        uint32_t best = UINT32_MAX;
        int level = 0;
        for (int j = 0; j < 256; ++j) {
            const uint32_t d = b.cumA[v] > b.cumB[j] ? b.cumA[v] - b.cumB[j] : b.cumB[j] - b.cumA[v];
            if (d < best) {
                best = d;
                level = j;
            }
        }
        imf.emplace_back(px(v), py(level / 255.0));
    }
    cv::polylines(img, imf, false, imfColour, 1, cv::LINE_AA);
    cv::polylines(img, ref, false, refColour, 2, cv::LINE_AA);
    cv::polylines(img, frame, false, frameColour, 2, cv::LINE_AA);
    const int jx = px(std::clamp(b.joint, 0, 255));
    cv::line(img, cv::Point(jx, top), cv::Point(jx, top + plotH), jointColour, 2, cv::LINE_AA);

    const int lx = left + 12;
    int ly = top + 18;
    auto legend = [&](const cv::Scalar& c, const std::string& text) {
        cv::line(img, cv::Point(lx, ly - 4), cv::Point(lx + 22, ly - 4), c, 2, cv::LINE_AA);
        cv::putText(img, text, cv::Point(lx + 28, ly), cv::FONT_HERSHEY_SIMPLEX, 0.42, ink, 1, cv::LINE_AA);
        ly += 18;
    };
    legend(refColour, "reference, cumulative (fraction of samples)");
    legend(frameColour, "frame, cumulative");
    legend(imfColour, "mapping reference level -> frame level (/255)");
    legend(jointColour, "joint point = " + std::to_string(b.joint));
    return img;
}

}  // namespace demo
