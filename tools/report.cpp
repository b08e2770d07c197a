#include "report.h"

#include <cmath>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

namespace demo {

const char kCornerErrorMethod[] =
    "The library does not return the homography it warps with. The demo fits one with OpenCV "
    "(cv::findHomography, least squares over all pairs) to the surviving point pairs that the RANSAC "
    "request hands back, in the library's convention (reference point -> frame point, frame pixels). "
    "The corner error is the distance, in frame pixels, between where this fitted homography and the "
    "known true one take each of the four frame corners (0,0), (W-1,0), (0,H-1), (W-1,H-1); the report "
    "gives the largest of the four.";

namespace {

using Json = nlohmann::ordered_json;  // members in the order written

// Times, errors and ratios to 4 decimals; NaN and infinity dump as null.
double Rounded(double v) { return std::round(v * 1e4) / 1e4; }

Json Call(const StageCall& c) {
    return {{"status", c.status}, {"status_text", StatusText(c.status)}, {"library_messages", c.errors}};
}

bool AreaInside(const tagST_REGISTRATION_AREA& a, cv::Size size) {
    return a.x >= 0 && a.y >= 0 && a.width > 0 && a.height > 0 && a.x + a.width <= size.width &&
           a.y + a.height <= size.height;
}

// A value as the library formatted it: a number when the text is one.
Json NumberText(const std::string& text) {
    const Json v = Json::parse(text, nullptr, false);
    return v.is_number() ? v : Json(text);
}

Json FrameJson(const FrameRun& f, cv::Size size) {
    const Registration& r = f.registration;
    Json j = {{"index", f.index}, {"name", f.name}};
    if (!f.exposure.empty()) j["exposure"] = f.exposure;
    j.update(Call(r.call));
    j["keypoints"] = f.keypoints;
    j["descriptor_status"] = f.describe.status;
    j["matches"] = r.matches;
    j["survivors"] = r.survivors;
    j["area"] = nullptr;
    if (r.hasArea) {
        j["area"] = {{"x", r.area.x}, {"y", r.area.y}, {"width", r.area.width}, {"height", r.area.height}};
        j["area_inside_frame"] = AreaInside(r.area, size);
    }
    const bool balanced = f.balance.call.status == TOCRA_OK;
    j["balance_status"] = f.balance.call.status;
    j["joint_point"] = balanced ? Json(f.balance.result.joint) : Json(nullptr);
    j["corner_error_px"] = nullptr;
    if (f.hasTruth) {
        Json corners = Json::array();
        for (double e : f.cornerErrors) corners.push_back(Rounded(e));
        j["corner_error_px"] = {{"max", Rounded(f.maxCornerError)}, {"corners", corners}};
    }
    j["fit_rms_px"] = f.hasFit ? Json(Rounded(f.fitRms)) : Json(nullptr);
    j["mean_abs_diff_in_area"] = nullptr;
    if (f.diffAfter >= 0.0) {
        j["mean_abs_diff_in_area"] = {{"before", Rounded(f.diffBefore)}, {"after", Rounded(f.diffAfter)}};
    }
    j["times_ms"] = {{"detect", Rounded(f.detectMs)},
                     {"descriptors", Rounded(f.describe.ms)},
                     {"match", Rounded(f.matchMs)},
                     {"registration", Rounded(r.call.ms)},
                     {"balance", Rounded(f.balance.call.ms)}};
    if (!balanced) j["balance_messages"] = f.balance.call.errors;
    j["pictures"] = f.pictures;
    return j;
}

Json InputJson(const RunReport& run) {
    Json input = {{"source", run.source}, {"generated", run.generated}, {"frames", run.frameNames}};
    if (!run.exposures.empty()) input["exposures"] = run.exposures;
    input["width"] = run.size.width;
    input["height"] = run.size.height;
    input["format"] = run.layout;
    input["keypoint_scale"] = run.scale;
    input["max_keypoints"] = run.maxKeypoints;
    input["ratio"] = Rounded(run.ratio);
    input["notes"] = run.notes;
    return input;
}

Json ReferenceJson(const RunReport& run) {
    Json reference = {{"keypoints", run.refKeypoints}};
    reference.update(Call(run.refDescribe));
    reference["times_ms"] = {{"detect", Rounded(run.refDetectMs)}, {"descriptors", Rounded(run.refDescribe.ms)}};
    return reference;
}

// The worst corner error only when every frame has one.
Json SummaryJson(const RunReport& run) {
    int aligned = 0;
    double worst = 0.0;
    bool allTruth = run.generated && !run.frames.empty();
    for (const FrameRun& f : run.frames) {
        aligned += f.registration.call.status == TOCRA_OK;
        if (f.hasTruth) worst = std::max(worst, f.maxCornerError);
        allTruth = allTruth && f.hasTruth;
    }
    return {{"frames", run.frames.size()},
            {"aligned", aligned},
            {"max_corner_error_px", allTruth ? Json(Rounded(worst)) : Json(nullptr)}};
}

Json FaceMapJson(const RunReport& run) {
    const FaceMap& fm = run.faceMap;
    Json faces = Json::array();
    for (const cv::Rect& r : run.faces) faces.push_back({r.x, r.y, r.x + r.width, r.y + r.height});
    Json face = Call(fm.call);
    face["faces"] = faces;
    face["ajust_ratio"] = fm.used.ajustRatio;
    face["margin"] = fm.used.margin;
    face["smooth_radius"] = fm.used.radius;
    face["mean_luma"] = fm.call.status == TOCRA_OK ? Json(fm.meanLuma) : Json(nullptr);
    face["notes"] = fm.notes;
    face["time_ms"] = Rounded(fm.call.ms);
    return face;
}

Json ConfigJson(const Config& c) {
    Json config = {{"file", c.file}};
    config.update(Call(c.call));
    if (c.call.status == TOCRA_OK) {
        Json fields = Json::object();
        for (const auto& field : ConfigFields(c.record)) fields[field.first] = NumberText(field.second);
        config["fields"] = fields;
    }
    config["time_ms"] = Rounded(c.call.ms);
    return config;
}

std::string AreaText(const tagST_REGISTRATION_AREA& a) {
    return cv::format("(%d, %d) %dx%d", a.x, a.y, a.width, a.height);
}

std::string Ms(double ms) { return cv::format("%.1f", ms); }

bool WriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    return static_cast<bool>(out);
}

}  // namespace

bool WriteJson(const RunReport& run, const std::string& path) {
    Json j = {{"tool", "tocra_demo"}, {"version", TOCRA_DEMO_VERSION}, {"input", InputJson(run)}};
    if (run.generated) j["corner_error_method"] = kCornerErrorMethod;
    j["reference"] = ReferenceJson(run);
    j["frames"] = Json::array();
    for (const FrameRun& f : run.frames) j["frames"].push_back(FrameJson(f, run.size));
    j["summary"] = SummaryJson(run);
    j["face_map"] = FaceMapJson(run);
    j["config"] = ConfigJson(run.config);
    j["pictures"] = run.pictures;
    j["cache_invalidations"] = run.invalidations;
    j["total_ms"] = Rounded(run.totalMs);
    return WriteFile(path, j.dump(2) + "\n");
}

bool WriteMarkdown(const RunReport& run, const std::string& path) {
    std::ostringstream md;
    md << "# tocra_demo report\n\n";
    md << "Input: " << run.source << ", " << run.frames.size() + 1 << " frames of " << run.size.width << "x"
       << run.size.height << ", handed to the library as " << run.layout << ". Keypoints: up to " << run.maxKeypoints
       << " per frame";
    if (run.scale > 1) md << ", found on the luma reduced " << run.scale << " times";
    md << "; matching ratio " << cv::format("%.2f", run.ratio) << ".\n\n";
    for (size_t i = 0; i < run.frameNames.size(); ++i) {
        md << "- frame " << i << ": " << run.frameNames[i];
        if (i < run.exposures.size()) md << "; " << run.exposures[i];
        md << "\n";
    }
    md << "\n";
    for (const std::string& n : run.notes) md << "> " << n << "\n\n";

    md << "## Registration and balance\n\n";
    md << "Reference: " << run.refKeypoints << " keypoints, descriptors status " << run.refDescribe.status << " ("
       << Ms(run.refDescribe.ms) << " ms).\n\n";
    md << "| frame | status | matches | survivors | registration area (x, y) WxH | joint point |";
    if (run.generated) md << " corner error (px) |";
    md << " mean abs diff before / after | detect / descriptors / match / registration / balance (ms) |\n";
    md << "|---|---|---|---|---|---|";
    if (run.generated) md << "---|";
    md << "---|---|\n";
    for (const FrameRun& f : run.frames) {
        const Registration& r = f.registration;
        const char* outcome = r.call.status == TOCRA_OK ? " aligned" : " rejected";
        md << "| " << f.index << " | " << r.call.status << outcome << " | " << r.matches << " | " << r.survivors
           << " | " << (r.hasArea ? AreaText(r.area) : "-") << " | "
           << (f.balance.call.status == TOCRA_OK ? std::to_string(f.balance.result.joint) : "-") << " |";
        if (run.generated) md << " " << (f.hasTruth ? cv::format("%.3f", f.maxCornerError) : "-") << " |";
        md << " " << (f.diffAfter >= 0.0 ? cv::format("%.1f / %.1f", f.diffBefore, f.diffAfter) : "-") << " | "
           << Ms(f.detectMs) << " / " << Ms(f.describe.ms) << " / " << Ms(f.matchMs) << " / " << Ms(r.call.ms) << " / "
           << Ms(f.balance.call.ms) << " |\n";
    }
    md << "\n";
    for (const FrameRun& f : run.frames) {
        const StageCall* failed[] = {&f.describe, &f.registration.call, &f.balance.call};
        const char* what[] = {"descriptors", "registration", "balance"};
        for (int s = 0; s < 3; ++s) {
            if (failed[s]->status == TOCRA_OK) continue;
            md << "- Frame " << f.index << ", " << what[s] << ": status " << failed[s]->status << ", "
               << StatusText(failed[s]->status) << ".";
            for (const std::string& e : failed[s]->errors) md << " Library: \"" << e << "\"";
            md << "\n";
        }
    }
    md << "\nSurvivors are the point pairs that RANSAC kept; the registration area is the part of the "
          "reference frame that the aligned frame covers. The mean absolute difference is taken on the "
          "luma inside the area after mapping the frame's levels onto the reference's through the "
          "balance's cumulative histograms; it drops when the alignment is right.\n\n";
    if (run.generated) {
        md << "How the corner error is measured: " << kCornerErrorMethod << "\n\n";
        md << "| frame | exposure | fit RMS (px) | corner errors (0,0) (W-1,0) (0,H-1) (W-1,H-1) |\n";
        md << "|---|---|---|---|\n";
        for (const FrameRun& f : run.frames) {
            md << "| " << f.index << " | " << f.exposure << " | " << (f.hasFit ? cv::format("%.3f", f.fitRms) : "-")
               << " | ";
            if (f.hasTruth) {
                md << cv::format("%.3f %.3f %.3f %.3f", f.cornerErrors[0], f.cornerErrors[1], f.cornerErrors[2],
                                 f.cornerErrors[3]);
            } else {
                md << "-";
            }
            md << " |\n";
        }
        md << "\n";
    }
    for (const FrameRun& f : run.frames) {
        md << "### Frame " << f.index << "\n\n";
        for (const std::string& p : f.pictures) md << "![" << p << "](" << p << ")\n";
        md << "\n";
    }

    md << "## Face map and small RGB image of the reference\n\n";
    const FaceMap& fm = run.faceMap;
    md << "Status " << fm.call.status << " (" << StatusText(fm.call.status) << "), " << run.faces.size()
       << " face(s), AjustRatio " << fm.used.ajustRatio << ", margin " << fm.used.margin << ", radius "
       << fm.used.radius;
    if (fm.call.status == TOCRA_OK) md << ", mean half-size luma " << fm.meanLuma;
    md << ", " << Ms(fm.call.ms) << " ms.\n\n";
    for (const std::string& e : fm.call.errors) md << "- Library: \"" << e << "\"\n";
    for (const std::string& n : fm.notes) md << "> " << n << "\n\n";
    for (const std::string& p : run.pictures) md << "![" << p << "](" << p << ")\n";
    md << "\n";

    md << "## Tuning file\n\n";
    md << "`" << run.config.file << "`: status " << run.config.call.status << " (" << StatusText(run.config.call.status)
       << "), " << Ms(run.config.call.ms) << " ms.\n\n";
    for (const std::string& e : run.config.call.errors) md << "- Library: \"" << e << "\"\n";
    if (run.config.call.status == TOCRA_OK) {
        md << "| field | value |\n|---|---|\n";
        for (const auto& field : ConfigFields(run.config.record)) {
            md << "| " << field.first << " | " << field.second << " |\n";
        }
    }
    md << "\nTotal run time " << Ms(run.totalMs) << " ms.\n";
    return WriteFile(path, md.str());
}

}  // namespace demo
