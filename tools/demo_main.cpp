// tocra_demo: the capture pipeline around libbrimvel_tocra, end to end.
//
// What a camera pipeline does, in order:
//   1. hold the burst in YUV graphic buffers and install the two buffer hooks;
//   2. read the tuning file (ParseXML_TocraAPI);
//   3. find keypoints in every frame and get their descriptors
//      (GetBrief_Descriptors_TocraAPI), match each frame against the reference;
//   4. align each frame onto the reference (Ransac_Regis_TocraAPI) and balance
//      its brightness against the reference (CalcuFrameBalance_TocraAPI);
//   5. build the face map and the small RGB image of the reference
//      (BoxfilterYuv2RgbHist_TocraAPI).
// Everything the library returns is written as pictures and a report.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "burst.h"
#include "evaluate.h"
#include "options.h"
#include "render.h"
#include "report.h"
#include "stages.h"
#include "util.h"

namespace demo {
namespace {

// One progress line per stage on standard error.
void Progress(const std::string& text) {
    fprintf(stderr, "tocra_demo: %s\n", text.c_str());
    fflush(stderr);
}

bool MakeFolder(const std::string& path, std::string* error) {
    std::error_code ec;
    std::filesystem::create_directories(path, ec);
    if (ec) *error = "cannot create the output folder '" + path + "': " + ec.message();
    return !ec;
}

// Faces file: "LEFT TOP RIGHT BOTTOM" per line, '#' comments.
bool ReadFaces(const std::string& path, std::vector<cv::Rect>* faces, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = "cannot open the faces file '" + path + "'";
        return false;
    }
    int lineNo = 0;
    for (std::string line; std::getline(in, line);) {
        ++lineNo;
        const size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') continue;
        std::istringstream fields(line);
        int left = 0, top = 0, right = 0, bottom = 0;
        std::string extra;
        if (!(fields >> left >> top >> right >> bottom) || (fields >> extra) || right <= left || bottom <= top) {
            *error = cv::format("%s:%d: expected 'LEFT TOP RIGHT BOTTOM' with RIGHT > LEFT and BOTTOM > TOP",
                                path.c_str(), lineNo);
            return false;
        }
        faces->push_back(cv::Rect(left, top, right - left, bottom - top));
    }
    return true;
}

bool SavePicture(const std::string& dir, const std::string& name, const cv::Mat& img, std::vector<std::string>* list) {
    if (img.empty() || !cv::imwrite(dir + "/" + name, img)) return false;
    list->push_back(name);
    return true;
}

std::string CallText(const char* what, const StageCall& c) {
    std::string text = cv::format("%s status %d", what, c.status);
    if (c.status != TOCRA_OK) text += " (" + StatusText(c.status) + ")";
    return text;
}

// Keypoints, matches, registration, checks and balance of frame k.
FrameRun RunFrame(int k, const Options& o, const Burst& burst, const std::vector<YuvFrame>& frames,
                  const Features& reference, RegistrationRecords& records, LibraryLog& log) {
    FrameRun f;
    f.index = k;
    f.name = burst.names[static_cast<size_t>(k)];
    if (!burst.exposures.empty()) f.exposure = burst.exposures[static_cast<size_t>(k)];

    Features features;
    DetectAndDescribe(frames[static_cast<size_t>(k)], o.scale, o.maxKeypoints, log, &features);
    f.keypoints = features.count;
    f.detectMs = features.detectMs;
    f.describe = features.describe;

    std::vector<cv::DMatch> matches;
    if (f.describe.status == TOCRA_OK && reference.describe.status == TOCRA_OK) {
        const auto start = std::chrono::steady_clock::now();
        matches = MatchFeatures(features, reference, o.ratio);
        f.matchMs = MsSince(start);
    }
    f.matches = static_cast<int>(matches.size());
    Progress(cv::format("frame %d: %d keypoints, %s, %d matches", k, f.keypoints,
                        CallText("descriptors", f.describe).c_str(), f.matches));

    f.registration =
        RegisterFrame(k, frames[static_cast<size_t>(k)], reference, features, matches, o.scale, records, log);
    const Registration& r = f.registration;
    f.hasFit = r.call.status == TOCRA_OK && FitHomography(r.refPoints, r.framePoints, &f.fit, &f.fitRms);
    f.hasTruth = f.hasFit && !burst.truth.empty();
    if (f.hasTruth) {
        f.cornerErrors = CornerErrors(f.fit, burst.truth[static_cast<size_t>(k)], burst.frames[0].size());
        f.maxCornerError = *std::max_element(f.cornerErrors.begin(), f.cornerErrors.end());
    }
    std::string line = cv::format("frame %d: %s, %d of %d pairs survive", k, CallText("registration", r.call).c_str(),
                                  r.survivors, r.matches);
    if (r.hasArea) line += cv::format(", area (%d, %d) %dx%d", r.area.x, r.area.y, r.area.width, r.area.height);
    if (f.hasTruth) line += cv::format(", corner error %.3f px", f.maxCornerError);
    Progress(line + cv::format(" (%.1f ms)", r.call.ms));
    for (const std::string& e : r.call.errors) Progress(cv::format("frame %d: library says \"%s\"", k, e.c_str()));

    f.balance = BalanceFrames(frames[0], frames[static_cast<size_t>(k)], log);
    std::string balanceLine = cv::format("frame %d: %s", k, CallText("balance", f.balance.call).c_str());
    if (f.balance.call.status == TOCRA_OK) balanceLine += cv::format(", joint point %d", f.balance.result.joint);
    Progress(balanceLine + cv::format(" (%.1f ms)", f.balance.call.ms));
    return f;
}

// The pictures of frame k: aligned frame, contact sheet, balance plot.
void DrawFrame(FrameRun* f, const Options& o, const std::vector<YuvFrame>& frames, const std::vector<YuvFrame>& outputs,
               const cv::Mat& referenceBgr) {
    const size_t k = static_cast<size_t>(f->index);
    const Registration& r = f->registration;
    const bool aligned = r.call.status == TOCRA_OK;
    const cv::Mat table = f->balance.call.status == TOCRA_OK ? BalanceTable(f->balance.result) : IdentityTable();
    const cv::Mat refLuma = frames[0].Luma();
    SheetInput sheet;
    sheet.reference = referenceBgr;
    sheet.frame = frames[k].ToBgr();
    sheet.diffBefore = BalancedDifference(refLuma, frames[k].Luma(), table);
    sheet.title = cv::format("frame %d: registration status %d", f->index, r.call.status);
    if (aligned) {
        sheet.aligned = outputs[k].ToBgr();
        sheet.diffAfter = BalancedDifference(refLuma, outputs[k].Luma(), table);
        sheet.hasArea = true;
        sheet.area = cv::Rect(r.area.x, r.area.y, r.area.width, r.area.height);
        sheet.refPoints = r.refPoints;
        sheet.framePoints = r.framePoints;
        f->diffBefore = MeanInside(sheet.diffBefore, sheet.area);
        f->diffAfter = MeanInside(sheet.diffAfter, sheet.area);
        sheet.title +=
            cv::format(", %d pairs, area (%d, %d) %dx%d", r.survivors, r.area.x, r.area.y, r.area.width, r.area.height);
        if (f->hasTruth) sheet.title += cv::format(", corner error %.3f px", f->maxCornerError);
        SavePicture(o.outDir, cv::format("aligned_%d.png", f->index), sheet.aligned, &f->pictures);
    } else {
        sheet.title += " (" + StatusText(r.call.status) + ")";
    }
    SavePicture(o.outDir, cv::format("contact_%d.png", f->index), ContactSheet(sheet), &f->pictures);
    if (f->balance.call.status == TOCRA_OK) {
        SavePicture(o.outDir, cv::format("balance_%d.png", f->index),
                    BalancePlot(f->balance.result, cv::format("frame %d against the reference", f->index)),
                    &f->pictures);
    }
}

int Run(const Options& o) {
    const auto runStart = std::chrono::steady_clock::now();
    RunReport run;
    Burst burst;
    std::string error;
    run.generated = o.inputs.empty();
    if (!(run.generated ? MakeBurst(o, &burst, &error) : ReadBurst(o, &burst, &error))) {
        Progress(error);
        return 2;
    }
    if (!o.facesFile.empty()) {
        burst.faces.clear();
        if (!ReadFaces(o.facesFile, &burst.faces, &error)) {
            Progress(error);
            return 2;
        }
    } else if (!burst.faces.empty()) {
        burst.notes.push_back("The face rectangle is made up (no --faces file); the scene need not show a face there.");
    }
    FitFrameSize(o.crop, &burst);
    if (!MakeFolder(o.outDir, &error)) {
        Progress(error);
        return 2;
    }
    const cv::Size size = burst.frames[0].size();
    const int count = static_cast<int>(burst.frames.size());
    run.source = burst.source;
    run.frameNames = burst.names;
    run.exposures = burst.exposures;
    run.size = size;
    run.layout = o.layout == Layout::kNv12 ? "NV12" : "planar YUV420";
    run.scale = o.scale;
    run.ratio = o.ratio;
    run.maxKeypoints = o.maxKeypoints;
    run.notes = burst.notes;
    run.faces = burst.faces;
    Progress(cv::format("burst: %s, %d frames of %dx%d, buffers %s", burst.source.c_str(), count, size.width,
                        size.height, run.layout.c_str()));

    // 1. The burst in graphic buffers, one output buffer per frame index,
    //    and the hooks through which the library reaches them.
    handles::InstallHooks();
    std::vector<YuvFrame> frames;
    std::vector<YuvFrame> outputs;
    for (int k = 0; k < count; ++k) {
        cv::Mat i420;
        cv::cvtColor(burst.frames[static_cast<size_t>(k)], i420, cv::COLOR_BGR2YUV_I420);
        frames.emplace_back(size.width, size.height, o.layout);
        frames.back().FromI420(i420);
        outputs.emplace_back(k == 0 ? YuvFrame() : YuvFrame(size.width, size.height, o.layout));
    }
    LibraryLog log(o.verbose);

    // 2. The tuning file; its face parameters drive the face map.
    run.config = ReadConfig(o.configDir, log);
    Progress(cv::format("config: %s, %s (%.1f ms)", CallText("ParseXML", run.config.call).c_str(),
                        run.config.file.c_str(), run.config.call.ms));
    FaceParams faceParams;
    if (run.config.call.status == TOCRA_OK) {
        faceParams.ajustRatio = run.config.record.AjustRatio;
        faceParams.margin = run.config.record.Margin;
        faceParams.radius = run.config.record.SmoothRadius;
    }

    // 3. Reference keypoints and descriptors.
    Features reference;
    DetectAndDescribe(frames[0], o.scale, o.maxKeypoints, log, &reference);
    run.refKeypoints = reference.count;
    run.refDetectMs = reference.detectMs;
    run.refDescribe = reference.describe;
    Progress(cv::format("frame 0: %d keypoints, %s (%.1f ms)", reference.count,
                        CallText("descriptors", reference.describe).c_str(), reference.describe.ms));

    // 4. Every other frame: align and balance.
    RegistrationRecords records(frames[0], outputs);
    const cv::Mat referenceBgr = frames[0].ToBgr();
    for (int k = 1; k < count; ++k) {
        run.frames.push_back(RunFrame(k, o, burst, frames, reference, records, log));
        DrawFrame(&run.frames.back(), o, frames, outputs, referenceBgr);
    }

    // 5. Face map and small RGB image of the reference.
    run.faceMap = BuildFaceMap(frames[0], burst.faces, faceParams, log);
    const FaceMap& fm = run.faceMap;
    std::string faceLine =
        cv::format("face map: %s, %zu face(s), radius %d", CallText("BoxfilterYuv2RgbHist", fm.call).c_str(),
                   burst.faces.size(), fm.used.radius);
    if (fm.call.status == TOCRA_OK) faceLine += cv::format(", mean half-size luma %u", fm.meanLuma);
    Progress(faceLine + cv::format(" (%.1f ms)", fm.call.ms));
    if (fm.call.status == TOCRA_OK) {
        SavePicture(o.outDir, "face_map.png", fm.map, &run.pictures);
        SavePicture(o.outDir, "small_rgb.png", fm.smallBgr, &run.pictures);
        SavePicture(o.outDir, "upscale_error.png", fm.upscaleError, &run.pictures);
    }

    run.invalidations = handles::Invalidations();
    run.totalMs = MsSince(runStart);
    const bool written = WriteMarkdown(run, o.outDir + "/report.md") && WriteJson(run, o.outDir + "/report.json");
    if (!written) {
        Progress("cannot write the report into '" + o.outDir + "'");
        return 2;
    }
    size_t pictures = run.pictures.size();
    for (const FrameRun& f : run.frames) pictures += f.pictures.size();
    Progress(cv::format("wrote %zu pictures, report.md and report.json to %s (%.0f ms in all)", pictures,
                        o.outDir.c_str(), run.totalMs));
    return 0;
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
    demo::Options options;
    const int parsed = demo::ParseOptions(argc, argv, &options);
    if (parsed == 1) return 0;  // --help
    if (parsed != 0) return parsed;
    return demo::Run(options);
}
