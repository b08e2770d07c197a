// The frames of one capture: read from files, or generated from a photograph
// with known motion and exposure.
#ifndef TOCRA_DEMO_BURST_H
#define TOCRA_DEMO_BURST_H

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "options.h"

namespace demo {

constexpr int kMaxFrames = 6;  // the reference and frames 1 to 5

struct Burst {
    std::vector<cv::Mat> frames;         // BGR, all of one size; frame 0 is the reference
    std::vector<std::string> names;      // where each frame came from
    std::vector<cv::Matx33d> truth;      // generated burst only: reference point -> frame point
    std::vector<std::string> exposures;  // generated burst only: how each frame was exposed
    std::vector<cv::Rect> faces;         // a made-up face of the generated burst
    std::string source;                  // one line: what the burst is
    std::vector<std::string> notes;      // things the report should say
};

// Reads the pictures named in the options (PNG, JPEG, raw .yuv). On failure
// returns false with a one-line reason.
bool ReadBurst(const Options& options, Burst* burst, std::string* error);

// Makes the built-in burst: frame 0 a flash exposure of the scene, frames
// 1..N no-flash exposures of it moved by known homographies.
bool MakeBurst(const Options& options, Burst* burst, std::string* error);

// Crops every frame at the right and bottom to a size the stages take:
// multiples of 8 when crop is set, else even. Notes what it did.
void FitFrameSize(bool crop, Burst* burst);

}  // namespace demo

#endif
