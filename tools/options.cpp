#include "options.h"

#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

namespace demo {
namespace {

const char kDescription[] =
    "Plays the camera pipeline's part around libbrimvel_tocra on a burst: converts the\n"
    "frames to YUV buffers known to the library by handles, finds keypoints, asks the\n"
    "library for their descriptors, matches them, and calls, per frame, the registration\n"
    "(RANSAC, homography warp, border fill) and the brightness balance against the\n"
    "reference; then the face map and small RGB image of the reference and the tuning\n"
    "file. Pictures and a report (report.md, report.json) are written to the output folder.";

const char kFooter[] =
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
    "report), 2 for a bad option or an input that cannot be read.";

// CLI11's formatter with the usage line first and the positional named as
// the reference followed by the frames (CLI11 names it by one word).
class DemoFormatter : public CLI::Formatter {
  public:
    std::string make_description(const CLI::App*) const override { return ""; }
    std::string make_usage(const CLI::App* app, std::string) const override {
        return "Usage: tocra_demo [OPTION]... [REFERENCE FRAME...]\n\n" + app->get_description() + "\n";
    }
};

int Fail(const std::string& message) {
    fprintf(stderr, "tocra_demo: %s (see --help)\n", message.c_str());
    return 2;
}

// "WxH", both sides 2 to 16384.
bool ParseSize(const std::string& text, int* width, int* height) {
    int w = 0;
    int h = 0;
    char extra = 0;
    if (sscanf(text.c_str(), "%dx%d%c", &w, &h, &extra) != 2 || w < 2 || h < 2 || w > 16384 || h > 16384) return false;
    *width = w;
    *height = h;
    return true;
}

// A text option that may not be given as "".
CLI::Option* AddText(CLI::App& app, const char* name, std::string* value, const std::string& needs, const char* help) {
    return app.add_option(name, *value, help)->check([needs](const std::string& v) {
        return v.empty() ? "needs " + needs : std::string();
    });
}

void AddInputOptions(CLI::App& app, Options* o) {
    app.add_option("REFERENCE", o->inputs,
                   "2 to 6 pictures of one scene, the reference first: PNG or JPEG,\n"
                   "or raw .yuv files (see --size); a .yuv file may hold several\n"
                   "frames back to back. Without pictures the tool makes its own\n"
                   "burst: a reference and 5 frames warped from a photograph by\n"
                   "known homographies, with flash / no-flash exposures, and\n"
                   "reports how far the recovered alignment is from the truth.")
        ->option_text("FRAME...");
    app.option_defaults()->group("Input");  // for the options added from here on
    app.add_option_function<std::string>(
           "--size",
           [o](const std::string& v) {
               if (!ParseSize(v, &o->width, &o->height)) {
                   throw CLI::ValidationError("--size", "needs WxH, e.g. 640x480");
               }
           },
           "size of raw .yuv inputs (required with them), or of the\n"
           "built-in burst (default 768x512)")
        ->option_text("WxH");
    app.add_option_function<std::string>(
           "--yuv", [o](const std::string& v) { o->rawNv12 = v == "nv12"; }, "layout of raw .yuv inputs (default i420)")
        ->check(CLI::IsMember({"i420", "nv12"}))
        ->option_text("i420|nv12");
    AddText(app, "--photo", &o->photo, "a file",
            "photograph to make the built-in burst from (default: the first\n"
            "of building.jpg, aero1.jpg, leuvenA.jpg in\n"
            "/usr/share/doc/opencv-doc/examples/data/)")
        ->option_text("FILE");
    app.add_flag("--synthetic", o->synthetic, "make the built-in burst from a generated texture instead");
    app.add_option("--frames", o->burstFrames,
                   "frames besides the reference in the built-in burst, 1 to 5\n"
                   "(default 5)")
        ->check(CLI::Range(1, 5))
        ->option_text("N");
    AddText(app, "--faces", &o->facesFile, "a file",
            "face rectangles for the face map: one face per line,\n"
            "'LEFT TOP RIGHT BOTTOM' in pixels of the reference frame;\n"
            "empty lines and lines starting with '#' are skipped. Without\n"
            "it the map has no faces (the built-in burst has a made-up one)")
        ->option_text("FILE");
    app.add_flag_function(
        "--no-crop", [o](int64_t) { o->crop = false; },
        "hand frames to the library at their own size (by default they\n"
        "are cropped at the right and bottom to multiples of 8, the\n"
        "registration's size rule; odd sizes are always made even)");
}

void AddPipelineOptions(CLI::App& app, Options* o) {
    app.option_defaults()->group("Pipeline");
    app.add_option_function<std::string>(
           "--format", [o](const std::string& v) { o->layout = v == "nv12" ? Layout::kNv12 : Layout::kYuv420; },
           "buffer layout handed to the library: planar YUV420 with rows\n"
           "padded to 128 bytes, or NV12 (default yuv420)")
        ->check(CLI::IsMember({"yuv420", "nv12"}))
        ->option_text("yuv420|nv12");
    app.add_option("--scale", o->scale,
                   "find keypoints on the luma reduced N times (1, 2 or 4); the\n"
                   "library scales the surviving points back (default 1)")
        ->check(CLI::IsMember({1, 2, 4}))
        ->option_text("N");
    app.add_option("--max-keypoints", o->maxKeypoints, "keypoints per frame, 8 to 65535 (default 2000)")
        ->check(CLI::Range(8, 65535))
        ->option_text("N");
    app.add_option("--ratio", o->ratio,
                   "ratio test of the 2-nearest-neighbour matching, 0 < R <= 1\n"
                   "(default 0.8)")
        ->option_text("R");
    AddText(app, "--config-dir", &o->configDir, "a folder",
            "folder holding brimvel.xml (default: the repository's data/);\n"
            "its Face values (AjustRatio, Margin, SmoothRadius) drive the\n"
            "face map (64, 100 and 40 when the file cannot be read)")
        ->option_text("DIR");
}

void AddOutputOptions(CLI::App& app, Options* o) {
    app.option_defaults()->group("Output");
    AddText(app, "--out", &o->outDir, "a folder", "output folder (default demo-output), created if missing")
        ->option_text("DIR");
    app.add_flag("--verbose", o->verbose,
                 "also show the library's own log lines (standard error) and\n"
                 "timings (standard output); its error lines are quoted in\n"
                 "the progress lines and the report either way");
    app.set_help_flag("-h,--help", "show this help and exit")->group("Output");
}

}  // namespace

int ParseOptions(int argc, char** argv, Options* o) {
    CLI::App app(kDescription, "tocra_demo");
    auto formatter = std::make_shared<DemoFormatter>();
    formatter->column_width(25);
    formatter->label("Positionals", "Frames");
    app.formatter(formatter);
    app.footer(kFooter);
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);  // a repeated option: the last wins
    AddInputOptions(app, o);
    AddPipelineOptions(app, o);
    AddOutputOptions(app, o);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        fputs(app.help().c_str(), stdout);
        return 1;
    } catch (const CLI::ParseError& e) {
        return Fail(e.what());
    }
    // The check that also turns away "nan", which CLI11's ranges let through.
    if (!(o->ratio > 0.0 && o->ratio <= 1.0)) return Fail("--ratio is a number above 0 and at most 1");
    if (o->configDir.empty()) o->configDir = TOCRA_DEMO_CONFIG_DIR;
    if (o->configDir.back() != '/') o->configDir += '/';
    return 0;
}

}  // namespace demo
