// The pipeline's side of each library stage: fill the request record field
// by field, hand over buffers by handle, call the entry point, check the
// status, read the results back.
#ifndef TOCRA_DEMO_STAGES_H
#define TOCRA_DEMO_STAGES_H

#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "brimvel_tocra.h"
#include "buffers.h"
#include "library_log.h"
#include "yuv_frame.h"

namespace demo {

// What every stage call hands back besides its results.
struct StageCall {
    int status = 0;
    std::vector<std::string> errors;  // the library's error log lines of the call
    double ms = 0.0;                  // wall-clock time of the call
};

// What a status means, in words.
std::string StatusText(int status);

// ---------------------------------------------------------------------------
// Keypoints and descriptors
// ---------------------------------------------------------------------------

// Keypoints are kept this far from every edge of the plane they were found
// on: the descriptor's tests reach 28 pixels around a keypoint, and the
// library does not check.
constexpr int kKeypointBorder = 32;

struct Features {
    int count = 0;
    GraphicBuffer keypoints;    // tagST_KEYPOINT[count], 1/64 pixel
    GraphicBuffer descriptors;  // count x 64 bytes
    double detectMs = 0.0;
    StageCall describe;

    const tagST_KEYPOINT* Keypoints() const { return reinterpret_cast<const tagST_KEYPOINT*>(keypoints.data()); }
    cv::Mat Descriptors() const { return cv::Mat(count, TOCRA_DESCRIPTOR_BYTES, CV_8UC1, descriptors.data()); }
};

// Finds up to maxKeypoints corners on the frame's luma reduced scale times
// and asks the library for their descriptors.
void DetectAndDescribe(const YuvFrame& frame, int scale, int maxKeypoints, LibraryLog& log, Features* out);

// Ratio-tested 2-nearest-neighbour matches of the frame's descriptors
// (query) against the reference's (train), at most one per reference keypoint.
std::vector<cv::DMatch> MatchFeatures(const Features& frame, const Features& reference, double ratio);

// ---------------------------------------------------------------------------
// Registration
// ---------------------------------------------------------------------------

// The records the pipeline keeps for a whole burst: the registration input
// record (reference picture, frame picture, point pairs per frame index) and
// the output record (one output picture per frame index, the area).
class RegistrationRecords {
  public:
    // outputs[k] receives the aligned frame k (k = 1..5).
    RegistrationRecords(const YuvFrame& reference, const std::vector<YuvFrame>& outputs);

    uint32_t inputHandle() const { return input_.handle(); }
    uint32_t outputHandle() const { return output_.handle(); }
    tagST_REGIS_INPUT_RECORD* input() const { return reinterpret_cast<tagST_REGIS_INPUT_RECORD*>(input_.data()); }
    tagST_REGIS_OUTPUT_RECORD* output() const { return reinterpret_cast<tagST_REGIS_OUTPUT_RECORD*>(output_.data()); }

  private:
    GraphicBuffer input_;
    GraphicBuffer output_;
};

struct Registration {
    StageCall call;
    int matches = 0;    // pairs handed to RANSAC
    int survivors = 0;  // pairs RANSAC kept (the request's pointNum afterwards)
    bool hasArea = false;
    tagST_REGISTRATION_AREA area{};
    // The surviving pairs in frame pixels, reference point -> frame point
    // (only when the call succeeded).
    std::vector<cv::Point2f> refPoints;
    std::vector<cv::Point2f> framePoints;
};

// RANSAC and registration of frame k (1..5) in one call of Ransac_Regis_TocraAPI.
Registration RegisterFrame(int k, const YuvFrame& frame, const Features& reference, const Features& features,
                           const std::vector<cv::DMatch>& matches, int scale, RegistrationRecords& records,
                           LibraryLog& log);

// ---------------------------------------------------------------------------
// Brightness balance
// ---------------------------------------------------------------------------

struct Balance {
    StageCall call;
    FrameBalanceResult result{};  // cumulative histograms of reference (A) and frame (B), joint point
};

Balance BalanceFrames(const YuvFrame& reference, const YuvFrame& frame, LibraryLog& log);

// ---------------------------------------------------------------------------
// Face map and small RGB image
// ---------------------------------------------------------------------------

struct FaceParams {
    int ajustRatio = 64;  // value painted into faces; 255 or more: no smoothing
    int margin = 100;     // map pixels added around each face
    int radius = 40;      // box radius of the smoothing
};

struct FaceMap {
    StageCall call;
    FaceParams used;
    std::vector<std::string> notes;
    cv::Mat map;                    // half-size weight map
    cv::Mat smallBgr;               // half-size colour picture from the R, G, B planes
    cv::Mat smallLuma;              // half-size luma
    cv::Mat upscaleError;           // full-size signed error, shown as 128 + error
    uint32_t cumHist[4][256] = {};  // luma, R, G, B
    uint32_t meanLuma = 0;
};

// BoxfilterYuv2RgbHist_TocraAPI on the reference frame with the given faces
// (full-resolution rectangles).
FaceMap BuildFaceMap(const YuvFrame& reference, const std::vector<cv::Rect>& faces, FaceParams params, LibraryLog& log);

// ---------------------------------------------------------------------------
// Tuning file
// ---------------------------------------------------------------------------

struct Config {
    StageCall call;
    std::string file;  // the file the library was asked to read
    _stXmlConfigInfoHdr record{};
};

// ParseXML_TocraAPI on dir (ending in '/').
Config ReadConfig(const std::string& dir, LibraryLog& log);

// The record's fields as name / value texts, in record order.
std::vector<std::pair<std::string, std::string>> ConfigFields(const _stXmlConfigInfoHdr& record);

}  // namespace demo

#endif
