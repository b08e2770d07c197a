// What one run did, and its report in Markdown and JSON.
#ifndef TOCRA_DEMO_REPORT_H
#define TOCRA_DEMO_REPORT_H

#include <array>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "stages.h"

namespace demo {

struct FrameRun {
    int index = 0;
    std::string name;
    std::string exposure;  // generated burst only
    int keypoints = 0;
    double detectMs = 0.0;
    StageCall describe;
    int matches = 0;
    double matchMs = 0.0;
    Registration registration;
    Balance balance;
    // The alignment checked against the known truth (generated burst), and
    // the homography through the survivors.
    bool hasFit = false;
    cv::Matx33d fit;  // reference point -> frame point
    double fitRms = 0.0;
    bool hasTruth = false;
    std::array<double, 4> cornerErrors{};
    double maxCornerError = 0.0;
    // Mean |frame - reference| of the level-balanced luma inside the area,
    // before and after alignment (only when registration succeeded).
    double diffBefore = -1.0;
    double diffAfter = -1.0;
    std::vector<std::string> pictures;
};

struct RunReport {
    std::string source;
    std::vector<std::string> frameNames;
    std::vector<std::string> exposures;  // generated burst only
    cv::Size size;
    std::string layout;
    int scale = 1;
    double ratio = 0.0;
    int maxKeypoints = 0;
    std::vector<std::string> notes;
    bool generated = false;

    // Reference frame.
    int refKeypoints = 0;
    double refDetectMs = 0.0;
    StageCall refDescribe;

    std::vector<FrameRun> frames;

    Config config;
    std::vector<cv::Rect> faces;
    FaceMap faceMap;
    std::vector<std::string> pictures;  // face map and the others of the reference

    int invalidations = 0;  // FunInvalidBuff calls the library made
    double totalMs = 0.0;
};

// How the corner error is measured, in one paragraph.
extern const char kCornerErrorMethod[];

bool WriteMarkdown(const RunReport& run, const std::string& path);
bool WriteJson(const RunReport& run, const std::string& path);

}  // namespace demo

#endif
