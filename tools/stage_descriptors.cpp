// Keypoints (found here, with OpenCV) and their descriptors (from the library).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include "stages.h"
#include "util.h"

namespace demo {
namespace {

// Corners of the plane, refined to a fraction of a pixel, none nearer than
// kKeypointBorder to an edge.
std::vector<cv::Point2f> FindCorners(const cv::Mat& plane, int maxKeypoints) {
    std::vector<cv::Point2f> corners;
    const int inner = kKeypointBorder;
    if (plane.cols <= 2 * inner + 2 || plane.rows <= 2 * inner + 2) return corners;
    cv::Mat mask = cv::Mat::zeros(plane.size(), CV_8UC1);
    mask(cv::Rect(inner, inner, plane.cols - 2 * inner, plane.rows - 2 * inner)).setTo(255);
    cv::goodFeaturesToTrack(plane, corners, maxKeypoints, 0.01, 10.0, mask, 5);
    if (corners.empty()) return corners;
    cv::cornerSubPix(plane, corners, cv::Size(5, 5), cv::Size(-1, -1),
                     cv::TermCriteria(cv::TermCriteria::EPS + cv::TermCriteria::COUNT, 30, 0.01));
    // The refinement may move a corner by a few pixels: keep the border.
    const float lo = static_cast<float>(inner - 2);
    const float hiX = static_cast<float>(plane.cols - inner + 1);
    const float hiY = static_cast<float>(plane.rows - inner + 1);
    corners.erase(
        std::remove_if(corners.begin(), corners.end(),
                       [&](const cv::Point2f& p) { return !(p.x >= lo && p.y >= lo && p.x <= hiX && p.y <= hiY); }),
        corners.end());
    return corners;
}

}  // namespace

void DetectAndDescribe(const YuvFrame& frame, int scale, int maxKeypoints, LibraryLog& log, Features* out) {
    const auto detectStart = std::chrono::steady_clock::now();

    // The plane the keypoints are found on: the frame's own luma, or a
    // reduced copy of it in a buffer of its own.
    cv::Mat plane = frame.Luma();
    uint32_t planeHandle = frame.lumaHandle();
    int planeStride = frame.lumaPitch();
    GraphicBuffer reduced;
    if (scale > 1) {
        const int w = frame.width() / scale;
        const int h = frame.height() / scale;
        planeStride = Align128(w);
        reduced = GraphicBuffer(static_cast<size_t>(planeStride) * h);
        plane = cv::Mat(h, w, CV_8UC1, reduced.data(), planeStride);
        cv::resize(frame.Luma(), plane, plane.size(), 0, 0, cv::INTER_AREA);
        planeHandle = reduced.handle();
    }

    const std::vector<cv::Point2f> corners = FindCorners(plane, maxKeypoints);
    out->count = static_cast<int>(corners.size());
    out->keypoints = GraphicBuffer(corners.size() * sizeof(tagST_KEYPOINT));
    out->descriptors = GraphicBuffer(corners.size() * TOCRA_DESCRIPTOR_BYTES);
    tagST_KEYPOINT* kp = reinterpret_cast<tagST_KEYPOINT*>(out->keypoints.data());
    for (size_t i = 0; i < corners.size(); ++i) {
        kp[i].x = static_cast<int32_t>(std::lround(corners[i].x * 64.0f));  // 1/64 pixel
        kp[i].y = static_cast<int32_t>(std::lround(corners[i].y * 64.0f));
        kp[i].reserved = 0;
    }
    out->detectMs = MsSince(detectStart);

    tagST_BRIEF_REQUEST request;
    memset(&request, 0, sizeof request);
    request.hImage = planeHandle;
    request.reserved = 0;
    request.hKeyPoints = out->keypoints.handle();
    request.hDescriptors = out->descriptors.handle();
    request.width = plane.cols;
    request.height = plane.rows;
    request.stride = planeStride;
    request.count = out->count;
    const auto start = std::chrono::steady_clock::now();
    out->describe.status =
        CallLogged(log, &out->describe.errors, [&] { return GetBrief_Descriptors_TocraAPI(&request); });
    out->describe.ms = MsSince(start);
}

std::vector<cv::DMatch> MatchFeatures(const Features& frame, const Features& reference, double ratio) {
    std::vector<cv::DMatch> good;
    if (frame.count < 2 || reference.count < 2) return good;
    cv::BFMatcher matcher(cv::NORM_HAMMING);
    std::vector<std::vector<cv::DMatch>> knn;
    matcher.knnMatch(frame.Descriptors(), reference.Descriptors(), knn, 2);
    // Best match per reference keypoint, after the ratio test.
    std::vector<int> best(static_cast<size_t>(reference.count), -1);
    for (const std::vector<cv::DMatch>& m : knn) {
        if (m.size() < 2 || m[0].distance >= ratio * m[1].distance) continue;
        int& slot = best[static_cast<size_t>(m[0].trainIdx)];
        if (slot < 0 || m[0].distance < good[static_cast<size_t>(slot)].distance) {
            if (slot < 0) {
                slot = static_cast<int>(good.size());
                good.push_back(m[0]);
            } else {
                good[static_cast<size_t>(slot)] = m[0];
            }
        }
    }
    return good;
}

}  // namespace demo
