#include "report.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "util.h"

namespace demo {

const char kCornerErrorMethod[] =
    "The library does not return the homography it warps with. The demo fits one with OpenCV "
    "(cv::findHomography, least squares over all pairs) to the surviving point pairs that the RANSAC "
    "request hands back, in the library's convention (reference point -> frame point, frame pixels). "
    "The corner error is the distance, in frame pixels, between where this fitted homography and the "
    "known true one take each of the four frame corners (0,0), (W-1,0), (0,H-1), (W-1,H-1); the report "
    "gives the largest of the four.";

namespace {

// ---------------------------------------------------------------------------
// A small JSON writer: keeps track of commas and indentation.
// ---------------------------------------------------------------------------
class Json {
public:
    void Open(const char* key, char bracket) {
        Key(key);
        out_ << bracket;
        first_.push_back(true);
    }
    void Close(char bracket) {
        first_.pop_back();
        out_ << '\n' << Indent() << bracket;
    }
    void String(const char* key, const std::string& v) {
        Key(key);
        out_ << Quote(v);
    }
    void Int(const char* key, long long v) {
        Key(key);
        out_ << v;
    }
    void Number(const char* key, double v) {
        Key(key);
        if (std::isfinite(v)) {
            out_ << Format("%.4f", v);
        } else {
            out_ << "null";
        }
    }
    void Bool(const char* key, bool v) {
        Key(key);
        out_ << (v ? "true" : "false");
    }
    // A number given as text, e.g. a value as the library formatted it.
    void NumberText(const char* key, const std::string& text) {
        Key(key);
        char* end = nullptr;
        const double v = strtod(text.c_str(), &end);
        if (!text.empty() && *end == '\0' && std::isfinite(v)) {
            out_ << text;
        } else {
            out_ << Quote(text);
        }
    }
    void Null(const char* key) {
        Key(key);
        out_ << "null";
    }
    std::string Text() const { return out_.str() + "\n"; }

private:
    // Starts the next member (key given) or array element (key null).
    void Key(const char* key) {
        if (!first_.empty()) {
            if (!first_.back()) out_ << ',';
            first_.back() = false;
            out_ << '\n' << Indent();
        }
        if (key != nullptr) out_ << Quote(key) << ": ";
    }
    std::string Indent() const { return std::string(2 * first_.size(), ' '); }
    static std::string Quote(const std::string& s) {
        std::string q = "\"";
        for (unsigned char c : s) {
            if (c == '"' || c == '\\') {
                q += '\\';
                q += static_cast<char>(c);
            } else if (c == '\n') {
                q += "\\n";
            } else if (c < 0x20) {
                q += Format("\\u%04x", c);
            } else {
                q += static_cast<char>(c);
            }
        }
        return q + "\"";
    }

    std::ostringstream out_;
    std::vector<bool> first_;
};

void StringArray(Json& j, const char* key, const std::vector<std::string>& items) {
    j.Open(key, '[');
    for (const std::string& s : items) j.String(nullptr, s);
    j.Close(']');
}

void Call(Json& j, const StageCall& c) {
    j.Int("status", c.status);
    j.String("status_text", StatusText(c.status));
    StringArray(j, "library_messages", c.errors);
}

void Area(Json& j, const tagST_REGISTRATION_AREA& a) {
    j.Open("area", '{');
    j.Int("x", a.x);
    j.Int("y", a.y);
    j.Int("width", a.width);
    j.Int("height", a.height);
    j.Close('}');
}

bool AreaInside(const tagST_REGISTRATION_AREA& a, cv::Size size) {
    return a.x >= 0 && a.y >= 0 && a.width > 0 && a.height > 0 && a.x + a.width <= size.width &&
           a.y + a.height <= size.height;
}

void FrameJson(Json& j, const FrameRun& f, cv::Size size) {
    j.Open(nullptr, '{');
    j.Int("index", f.index);
    j.String("name", f.name);
    if (!f.exposure.empty()) j.String("exposure", f.exposure);
    const Registration& r = f.registration;
    Call(j, r.call);
    j.Int("keypoints", f.keypoints);
    j.Int("descriptor_status", f.describe.status);
    j.Int("matches", r.matches);
    j.Int("survivors", r.survivors);
    if (r.hasArea) {
        Area(j, r.area);
        j.Bool("area_inside_frame", AreaInside(r.area, size));
    } else {
        j.Null("area");
    }
    j.Int("balance_status", f.balance.call.status);
    if (f.balance.call.status == TOCRA_OK) {
        j.Int("joint_point", f.balance.result.joint);
    } else {
        j.Null("joint_point");
    }
    if (f.hasTruth) {
        j.Open("corner_error_px", '{');
        j.Number("max", f.maxCornerError);
        j.Open("corners", '[');
        for (double e : f.cornerErrors) j.Number(nullptr, e);
        j.Close(']');
        j.Close('}');
    } else {
        j.Null("corner_error_px");
    }
    if (f.hasFit) {
        j.Number("fit_rms_px", f.fitRms);
    } else {
        j.Null("fit_rms_px");
    }
    if (f.diffAfter >= 0.0) {
        j.Open("mean_abs_diff_in_area", '{');
        j.Number("before", f.diffBefore);
        j.Number("after", f.diffAfter);
        j.Close('}');
    } else {
        j.Null("mean_abs_diff_in_area");
    }
    j.Open("times_ms", '{');
    j.Number("detect", f.detectMs);
    j.Number("descriptors", f.describe.ms);
    j.Number("match", f.matchMs);
    j.Number("registration", r.call.ms);
    j.Number("balance", f.balance.call.ms);
    j.Close('}');
    if (f.balance.call.status != TOCRA_OK) StringArray(j, "balance_messages", f.balance.call.errors);
    StringArray(j, "pictures", f.pictures);
    j.Close('}');
}

std::string AreaText(const tagST_REGISTRATION_AREA& a) {
    return Format("(%d, %d) %dx%d", a.x, a.y, a.width, a.height);
}

std::string Ms(double ms) { return Format("%.1f", ms); }

bool WriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    return static_cast<bool>(out);
}

}  // namespace

bool WriteJson(const RunReport& run, const std::string& path) {
    Json j;
    j.Open(nullptr, '{');
    j.String("tool", "tocra_demo");
    j.String("version", TOCRA_DEMO_VERSION);

    j.Open("input", '{');
    j.String("source", run.source);
    j.Bool("generated", run.generated);
    StringArray(j, "frames", run.frameNames);
    if (!run.exposures.empty()) StringArray(j, "exposures", run.exposures);
    j.Int("width", run.size.width);
    j.Int("height", run.size.height);
    j.String("format", run.layout);
    j.Int("keypoint_scale", run.scale);
    j.Int("max_keypoints", run.maxKeypoints);
    j.Number("ratio", run.ratio);
    StringArray(j, "notes", run.notes);
    j.Close('}');

    if (run.generated) j.String("corner_error_method", kCornerErrorMethod);

    j.Open("reference", '{');
    j.Int("keypoints", run.refKeypoints);
    Call(j, run.refDescribe);
    j.Open("times_ms", '{');
    j.Number("detect", run.refDetectMs);
    j.Number("descriptors", run.refDescribe.ms);
    j.Close('}');
    j.Close('}');

    int aligned = 0;
    double worst = 0.0;
    bool allTruth = run.generated;
    j.Open("frames", '[');
    for (const FrameRun& f : run.frames) {
        FrameJson(j, f, run.size);
        aligned += f.registration.call.status == TOCRA_OK;
        if (f.hasTruth) worst = std::max(worst, f.maxCornerError);
        allTruth = allTruth && f.hasTruth;
    }
    j.Close(']');

    j.Open("summary", '{');
    j.Int("frames", static_cast<long long>(run.frames.size()));
    j.Int("aligned", aligned);
    if (allTruth && !run.frames.empty()) {
        j.Number("max_corner_error_px", worst);
    } else {
        j.Null("max_corner_error_px");
    }
    j.Close('}');

    j.Open("face_map", '{');
    Call(j, run.faceMap.call);
    j.Open("faces", '[');
    for (const cv::Rect& r : run.faces) {
        j.Open(nullptr, '[');
        j.Int(nullptr, r.x);
        j.Int(nullptr, r.y);
        j.Int(nullptr, r.x + r.width);
        j.Int(nullptr, r.y + r.height);
        j.Close(']');
    }
    j.Close(']');
    j.Int("ajust_ratio", run.faceMap.used.ajustRatio);
    j.Int("margin", run.faceMap.used.margin);
    j.Int("smooth_radius", run.faceMap.used.radius);
    if (run.faceMap.call.status == TOCRA_OK) {
        j.Int("mean_luma", run.faceMap.meanLuma);
    } else {
        j.Null("mean_luma");
    }
    StringArray(j, "notes", run.faceMap.notes);
    j.Number("time_ms", run.faceMap.call.ms);
    j.Close('}');

    j.Open("config", '{');
    j.String("file", run.config.file);
    Call(j, run.config.call);
    if (run.config.call.status == TOCRA_OK) {
        j.Open("fields", '{');
        for (const auto& field : ConfigFields(run.config.record)) j.NumberText(field.first.c_str(), field.second);
        j.Close('}');
    }
    j.Number("time_ms", run.config.call.ms);
    j.Close('}');

    StringArray(j, "pictures", run.pictures);
    j.Int("cache_invalidations", run.invalidations);
    j.Number("total_ms", run.totalMs);
    j.Close('}');
    return WriteFile(path, j.Text());
}

bool WriteMarkdown(const RunReport& run, const std::string& path) {
    std::ostringstream md;
    md << "# tocra_demo report\n\n";
    md << "Input: " << run.source << ", " << run.frames.size() + 1 << " frames of " << run.size.width << "x"
       << run.size.height << ", handed to the library as " << run.layout << ". Keypoints: up to "
       << run.maxKeypoints << " per frame";
    if (run.scale > 1) md << ", found on the luma reduced " << run.scale << " times";
    md << "; matching ratio " << Format("%.2f", run.ratio) << ".\n\n";
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
        md << "| " << f.index << " | " << r.call.status << outcome
           << " | " << r.matches << " | " << r.survivors << " | " << (r.hasArea ? AreaText(r.area) : "-") << " | "
           << (f.balance.call.status == TOCRA_OK ? std::to_string(f.balance.result.joint) : "-") << " |";
        if (run.generated) md << " " << (f.hasTruth ? Format("%.3f", f.maxCornerError) : "-") << " |";
        md << " " << (f.diffAfter >= 0.0 ? Format("%.1f / %.1f", f.diffBefore, f.diffAfter) : "-") << " | "
           << Ms(f.detectMs) << " / " << Ms(f.describe.ms) << " / " << Ms(f.matchMs) << " / " << Ms(r.call.ms)
           << " / " << Ms(f.balance.call.ms) << " |\n";
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
            md << "| " << f.index << " | " << f.exposure << " | " << (f.hasFit ? Format("%.3f", f.fitRms) : "-")
               << " | ";
            if (f.hasTruth) {
                md << Format("%.3f %.3f %.3f %.3f", f.cornerErrors[0], f.cornerErrors[1], f.cornerErrors[2],
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
