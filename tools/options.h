// Command-line options of tocra_demo.
#ifndef TOCRA_DEMO_OPTIONS_H
#define TOCRA_DEMO_OPTIONS_H

#include <string>
#include <vector>

#include "yuv_frame.h"

namespace demo {

struct Options {
    std::vector<std::string> inputs;  // reference first; empty: the built-in burst
    std::string outDir = "demo-output";
    Layout layout = Layout::kYuv420;

    // Raw .yuv inputs and the generated burst.
    int width = 0;  // 0: not given
    int height = 0;
    bool rawNv12 = false;  // layout of raw .yuv inputs (I420 otherwise)

    // The built-in burst.
    bool synthetic = false;  // the built-in texture even when a photograph is installed
    std::string photo;       // empty: the first installed opencv-doc photograph
    int burstFrames = 5;     // non-reference frames, 1 to 5

    // Keypoints and matching.
    int scale = 1;  // keypoints found on the luma reduced this many times
    int maxKeypoints = 2000;
    double ratio = 0.8;

    std::string facesFile;  // empty: no faces (the built-in burst has a made-up one)
    std::string configDir;  // folder holding brimvel.xml, ending in '/'
    bool crop = true;       // crop frames to multiples of 8
    bool verbose = false;   // echo the library's own log and timing lines
};

// Fills options from argv. Returns 0 to run, 1 after printing the help, or
// 2 after printing a one-line error to standard error.
int ParseOptions(int argc, char** argv, Options* options);

}  // namespace demo

#endif
