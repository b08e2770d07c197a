#include "options.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace demo {
namespace {

const char kHelp[] =
    "Usage: tocra_demo [OPTION]... [REFERENCE FRAME...]\n"
    "\n"
    "Plays the camera pipeline's part around libbrimvel_tocra on a burst: converts the\n"
    "frames to YUV buffers known to the library by handles, finds keypoints, asks the\n"
    "library for their descriptors, matches them, and calls, per frame, the registration\n"
    "(RANSAC, homography warp, border fill) and the brightness balance against the\n"
    "reference; then the face map and small RGB image of the reference and the tuning\n"
    "file. Pictures and a report (report.md, report.json) are written to the output folder.\n"
    "\n"
    "Input:\n"
    "  REFERENCE FRAME...     2 to 6 pictures of one scene, the reference first: PNG or JPEG,\n"
    "                         or raw .yuv files (see --size); a .yuv file may hold several\n"
    "                         frames back to back. Without pictures the tool makes its own\n"
    "                         burst: a reference and 5 frames warped from a photograph by\n"
    "                         known homographies, with flash / no-flash exposures, and\n"
    "                         reports how far the recovered alignment is from the truth.\n"
    "  --size WxH             size of raw .yuv inputs (required with them), or of the\n"
    "                         built-in burst (default 768x512)\n"
    "  --yuv i420|nv12        layout of raw .yuv inputs (default i420)\n"
    "  --photo FILE           photograph to make the built-in burst from (default: the first\n"
    "                         of building.jpg, aero1.jpg, leuvenA.jpg in\n"
    "                         /usr/share/doc/opencv-doc/examples/data/)\n"
    "  --synthetic            make the built-in burst from a generated texture instead\n"
    "  --frames N             frames besides the reference in the built-in burst, 1 to 5\n"
    "                         (default 5)\n"
    "  --faces FILE           face rectangles for the face map: one face per line,\n"
    "                         'LEFT TOP RIGHT BOTTOM' in pixels of the reference frame;\n"
    "                         empty lines and lines starting with '#' are skipped. Without\n"
    "                         it the map has no faces (the built-in burst has a made-up one)\n"
    "  --no-crop              hand frames to the library at their own size (by default they\n"
    "                         are cropped at the right and bottom to multiples of 8, the\n"
    "                         registration's size rule; odd sizes are always made even)\n"
    "\n"
    "Pipeline:\n"
    "  --format yuv420|nv12   buffer layout handed to the library: planar YUV420 with rows\n"
    "                         padded to 128 bytes, or NV12 (default yuv420)\n"
    "  --scale N              find keypoints on the luma reduced N times (1, 2 or 4); the\n"
    "                         library scales the surviving points back (default 1)\n"
    "  --max-keypoints N      keypoints per frame, at most 65535 (default 2000)\n"
    "  --ratio R              ratio test of the 2-nearest-neighbour matching, 0 < R <= 1\n"
    "                         (default 0.8)\n"
    "  --config-dir DIR       folder holding brimvel.xml (default: the repository's data/);\n"
    "                         its Face values (AjustRatio, Margin, SmoothRadius) drive the\n"
    "                         face map (64, 100 and 40 when the file cannot be read)\n"
    "\n"
    "Output:\n"
    "  --out DIR              output folder (default demo-output), created if missing\n"
    "  --verbose              also show the library's own log lines (standard error) and\n"
    "                         timings (standard output); its error lines are quoted in\n"
    "                         the progress lines and the report either way\n"
    "  -h, --help             show this help and exit\n"
    "\n"
    "Files written:\n"
    "  aligned_K.png          frame K as the library aligned it onto the reference\n"
    "  contact_K.png          reference, frame K, aligned frame, differences before and after\n"
    "                         alignment with the registration area, surviving point pairs\n"
    "  balance_K.png          cumulative luma histograms of reference and frame K, the\n"
    "                         mapping between them and the joint point\n"
    "  face_map.png           the half-size face weight map of the reference\n"
    "  small_rgb.png          the half-size RGB image of the reference\n"
    "  upscale_error.png      the luma's up-scaling error, 128 + error\n"
    "  report.md, report.json per frame: status, library messages, point pairs, area, joint\n"
    "                         point, corner error (built-in burst), stage times\n"
    "\n"
    "Exit status: 0 when the pipeline ran (frames the library rejected are listed in the\n"
    "report), 2 for a bad option or an input that cannot be read.\n";

int Fail(const std::string& message) {
    fprintf(stderr, "tocra_demo: %s (see --help)\n", message.c_str());
    return 2;
}

bool ParseInt(const char* text, int lo, int hi, int* out) {
    char* end = nullptr;
    const long v = strtol(text, &end, 10);
    if (end == text || *end != '\0' || v < lo || v > hi) return false;
    *out = static_cast<int>(v);
    return true;
}

bool ParseSize(const char* text, int* width, int* height) {
    int w = 0;
    int h = 0;
    char extra = 0;
    if (sscanf(text, "%dx%d%c", &w, &h, &extra) != 2 || w < 2 || h < 2 || w > 16384 || h > 16384) return false;
    *width = w;
    *height = h;
    return true;
}

}  // namespace

int ParseOptions(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        // Options that take a value accept "--name value" and "--name=value".
        std::string name = arg;
        std::string value;
        bool hasValue = false;
        const size_t eq = arg.find('=');
        if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            name = arg.substr(0, eq);
            value = arg.substr(eq + 1);
            hasValue = true;
        }
        auto next = [&](std::string* out) {
            if (hasValue) {
                *out = value;
                return true;
            }
            if (i + 1 >= argc) return false;
            *out = argv[++i];
            return true;
        };
        std::string v;
        if (name == "-h" || name == "--help") {
            fputs(kHelp, stdout);
            return 1;
        } else if (name == "--synthetic") {
            o->synthetic = true;
        } else if (name == "--no-crop") {
            o->crop = false;
        } else if (name == "--verbose") {
            o->verbose = true;
        } else if (name == "--out") {
            if (!next(&o->outDir) || o->outDir.empty()) return Fail("--out needs a folder");
        } else if (name == "--size") {
            if (!next(&v) || !ParseSize(v.c_str(), &o->width, &o->height)) return Fail("--size needs WxH, e.g. 640x480");
        } else if (name == "--yuv") {
            if (!next(&v) || (v != "i420" && v != "nv12")) return Fail("--yuv is i420 or nv12");
            o->rawNv12 = v == "nv12";
        } else if (name == "--format") {
            if (!next(&v) || (v != "yuv420" && v != "nv12")) return Fail("--format is yuv420 or nv12");
            o->layout = v == "nv12" ? Layout::kNv12 : Layout::kYuv420;
        } else if (name == "--photo") {
            if (!next(&o->photo) || o->photo.empty()) return Fail("--photo needs a file");
        } else if (name == "--frames") {
            if (!next(&v) || !ParseInt(v.c_str(), 1, 5, &o->burstFrames)) return Fail("--frames is 1 to 5");
        } else if (name == "--faces") {
            if (!next(&o->facesFile) || o->facesFile.empty()) return Fail("--faces needs a file");
        } else if (name == "--scale") {
            if (!next(&v) || !ParseInt(v.c_str(), 1, 4, &o->scale) || o->scale == 3) return Fail("--scale is 1, 2 or 4");
        } else if (name == "--max-keypoints") {
            if (!next(&v) || !ParseInt(v.c_str(), 8, 65535, &o->maxKeypoints)) {
                return Fail("--max-keypoints is 8 to 65535");
            }
        } else if (name == "--ratio") {
            char* end = nullptr;
            if (!next(&v)) return Fail("--ratio needs a number");
            o->ratio = strtod(v.c_str(), &end);
            if (end == v.c_str() || *end != '\0' || !(o->ratio > 0.0 && o->ratio <= 1.0)) {
                return Fail("--ratio is a number above 0 and at most 1");
            }
        } else if (name == "--config-dir") {
            if (!next(&o->configDir) || o->configDir.empty()) return Fail("--config-dir needs a folder");
            if (o->configDir.back() != '/') o->configDir += '/';
        } else if (arg.size() > 1 && arg[0] == '-') {
            return Fail("unknown option " + arg);
        } else {
            o->inputs.push_back(arg);
        }
    }
    if (o->configDir.empty()) o->configDir = TOCRA_DEMO_CONFIG_DIR;
    return 0;
}

}  // namespace demo
