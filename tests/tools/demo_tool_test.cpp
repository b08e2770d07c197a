// Runs the built tocra_demo as a subprocess, as a user would, and checks what
// it leaves behind: the report's content (statuses, areas, corner errors
// against the known motion of the generated burst), that every picture is a
// valid PNG, and how it reports frames the library rejects and bad inputs.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace {

using Json = nlohmann::json;

struct ToolRun {
    int exitCode = -1;
    std::string out;  // standard output
    std::string err;  // standard error
    std::string dir;  // the output folder
};

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

bool Exists(const std::string& path) { return std::filesystem::exists(path); }

std::string TempDir(const std::string& name) {
    std::string pattern = testing::TempDir() + "tocra_demo_" + name + "_XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    const char* made = mkdtemp(buf.data());
    return made ? std::string(made) : std::string();
}

std::string Quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Runs the tool with the arguments and --out into a fresh folder.
ToolRun RunTool(const std::string& name, const std::vector<std::string>& args) {
    ToolRun r;
    r.dir = TempDir(name);
    const std::string outDir = r.dir + "/out";
    std::string cmd = Quote(TOCRA_DEMO_BINARY) + " --out " + Quote(outDir);
    for (const std::string& a : args) cmd += " " + Quote(a);
    cmd += " > " + Quote(r.dir + "/stdout.txt") + " 2> " + Quote(r.dir + "/stderr.txt");
    const int status = system(cmd.c_str());
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = ReadFile(r.dir + "/stdout.txt");
    r.err = ReadFile(r.dir + "/stderr.txt");
    r.dir = outDir;
    return r;
}

// Strict: a report that loads is valid JSON.
bool LoadReport(const ToolRun& r, Json* report) {
    *report = Json::parse(ReadFile(r.dir + "/report.json"), nullptr, false);
    return !report->is_discarded();
}

int Lines(const std::string& text) {
    int n = 0;
    for (char c : text) n += c == '\n';
    return n;
}

// ---------------------------------------------------------------------------
// PNG files checked chunk by chunk: signature, chunk CRCs, IHDR first, IEND
// last; then decoded.
// ---------------------------------------------------------------------------
uint32_t Crc32(const uint8_t* p, size_t n, uint32_t crc = 0xFFFFFFFFu) {
    for (size_t i = 0; i < n; ++i) {
        crc ^= p[i];
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return crc;
}

uint32_t BigEndian(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

::testing::AssertionResult ValidPng(const std::string& path) {
    const std::string bytes = ReadFile(path);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(bytes.data());
    const uint8_t signature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (bytes.size() < 8 || memcmp(p, signature, 8) != 0)
        return ::testing::AssertionFailure() << path << ": no PNG signature";
    size_t pos = 8;
    std::vector<std::string> chunks;
    while (pos + 12 <= bytes.size()) {
        const uint32_t len = BigEndian(p + pos);
        if (pos + 12 + len > bytes.size()) return ::testing::AssertionFailure() << path << ": chunk runs past the end";
        const std::string type(bytes.data() + pos + 4, 4);
        const uint32_t crc = Crc32(p + pos + 4, 4 + len) ^ 0xFFFFFFFFu;
        if (crc != BigEndian(p + pos + 8 + len))
            return ::testing::AssertionFailure() << path << ": bad CRC in " << type;
        chunks.push_back(type);
        pos += 12 + len;
    }
    if (pos != bytes.size()) return ::testing::AssertionFailure() << path << ": bytes after the last chunk";
    if (chunks.empty() || chunks.front() != "IHDR" || chunks.back() != "IEND") {
        return ::testing::AssertionFailure() << path << ": IHDR must come first and IEND last";
    }
    if (cv::imread(path, cv::IMREAD_UNCHANGED).empty())
        return ::testing::AssertionFailure() << path << ": does not decode";
    return ::testing::AssertionSuccess();
}

// Every picture the report names, and nothing else, in the output folder.
void ExpectPicturesValid(const ToolRun& r, const Json& report) {
    std::vector<std::string> named;
    for (const Json& p : report.at("pictures")) named.push_back(p.get<std::string>());
    for (const Json& f : report.at("frames")) {
        for (const Json& p : f.at("pictures")) named.push_back(p.get<std::string>());
    }
    EXPECT_FALSE(named.empty());
    for (const std::string& name : named) EXPECT_TRUE(ValidPng(r.dir + "/" + name));
}

// The registration area as the library promises it: even corner, sizes in
// multiples of 8, inside the frame, more than half of it.
void ExpectAreaValid(const Json& area, int width, int height) {
    ASSERT_TRUE(area.is_object());
    const int x = area.at("x").get<int>(), y = area.at("y").get<int>(), w = area.at("width").get<int>(),
              h = area.at("height").get<int>();
    EXPECT_EQ(x % 2, 0);
    EXPECT_EQ(y % 2, 0);
    EXPECT_EQ(w % 8, 0);
    EXPECT_EQ(h % 8, 0);
    EXPECT_GE(x, 0);
    EXPECT_GE(y, 0);
    EXPECT_LE(x + w, width);
    EXPECT_LE(y + h, height);
    EXPECT_GT(w, width / 2);
    EXPECT_GT(h, height / 2);
}

// A picture with corners everywhere: random shapes on a gradient.
cv::Mat Scene(cv::Size size, uint64_t seed) {
    cv::Mat img(size, CV_8UC3);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            img.at<cv::Vec3b>(y, x) =
                cv::Vec3b(static_cast<uint8_t>(40 + x / 4), static_cast<uint8_t>(60 + y / 3), 110);
        }
    }
    cv::RNG rng(seed);
    for (int i = 0; i < size.area() / 700; ++i) {
        const cv::Point p(rng.uniform(0, size.width), rng.uniform(0, size.height));
        const cv::Scalar colour(rng.uniform(0, 256), rng.uniform(0, 256), rng.uniform(0, 256));
        cv::rectangle(img, cv::Rect(p.x, p.y, rng.uniform(4, 30), rng.uniform(4, 30)), colour, cv::FILLED);
    }
    cv::GaussianBlur(img, img, cv::Size(0, 0), 0.7);
    return img;
}

cv::Mat Shifted(const cv::Mat& img, double dx, double dy) {
    cv::Mat out;
    const cv::Mat m = (cv::Mat_<double>(2, 3) << 1, 0, dx, 0, 1, dy);
    cv::warpAffine(img, out, m, img.size(), cv::INTER_LINEAR, cv::BORDER_REFLECT101);
    return out;
}

// ---------------------------------------------------------------------------
// The generated burst, small, from the built-in texture (no opencv-doc).
// ---------------------------------------------------------------------------
class GeneratedBurst : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        run_ = new ToolRun(RunTool("burst", {"--synthetic", "--size", "640x480"}));
        report_ = new Json();
        parsed_ = LoadReport(*run_, report_);
    }
    static void TearDownTestSuite() {
        delete run_;
        delete report_;
    }
    static ToolRun* run_;
    static Json* report_;
    static bool parsed_;
};
ToolRun* GeneratedBurst::run_ = nullptr;
Json* GeneratedBurst::report_ = nullptr;
bool GeneratedBurst::parsed_ = false;

TEST_F(GeneratedBurst, RunsAndWritesValidJson) {
    EXPECT_EQ(run_->exitCode, 0) << run_->err;
    ASSERT_TRUE(parsed_) << "report.json is missing or not valid JSON";
    EXPECT_TRUE(report_->at("input").at("generated").get<bool>());
    EXPECT_EQ(report_->at("input").at("width").get<int>(), 640);
    EXPECT_EQ(report_->at("input").at("height").get<int>(), 480);
    EXPECT_EQ(report_->at("input").at("frames").size(), 6u);
    EXPECT_EQ(report_->at("frames").size(), 5u);
}

// What scripts reading report.json rely on: these members, with these JSON
// types ('i' integer, 'n' number, 's' string, 'b' bool, 'a' array, 'o' object).
TEST_F(GeneratedBurst, ReportKeepsItsMembersAndTypes) {
    ASSERT_TRUE(parsed_);
    const std::vector<std::pair<std::string, char>> members = {
        {"/tool", 's'},
        {"/version", 's'},
        {"/corner_error_method", 's'},
        {"/input/source", 's'},
        {"/input/generated", 'b'},
        {"/input/frames", 'a'},
        {"/input/exposures", 'a'},
        {"/input/width", 'i'},
        {"/input/height", 'i'},
        {"/input/format", 's'},
        {"/input/keypoint_scale", 'i'},
        {"/input/max_keypoints", 'i'},
        {"/input/ratio", 'n'},
        {"/input/notes", 'a'},
        {"/reference/keypoints", 'i'},
        {"/reference/status", 'i'},
        {"/reference/status_text", 's'},
        {"/reference/library_messages", 'a'},
        {"/reference/times_ms/detect", 'n'},
        {"/reference/times_ms/descriptors", 'n'},
        {"/frames/0/index", 'i'},
        {"/frames/0/name", 's'},
        {"/frames/0/exposure", 's'},
        {"/frames/0/status", 'i'},
        {"/frames/0/status_text", 's'},
        {"/frames/0/library_messages", 'a'},
        {"/frames/0/keypoints", 'i'},
        {"/frames/0/descriptor_status", 'i'},
        {"/frames/0/matches", 'i'},
        {"/frames/0/survivors", 'i'},
        {"/frames/0/area/x", 'i'},
        {"/frames/0/area/y", 'i'},
        {"/frames/0/area/width", 'i'},
        {"/frames/0/area/height", 'i'},
        {"/frames/0/area_inside_frame", 'b'},
        {"/frames/0/balance_status", 'i'},
        {"/frames/0/joint_point", 'i'},
        {"/frames/0/corner_error_px/max", 'n'},
        {"/frames/0/corner_error_px/corners/3", 'n'},
        {"/frames/0/fit_rms_px", 'n'},
        {"/frames/0/mean_abs_diff_in_area/before", 'n'},
        {"/frames/0/mean_abs_diff_in_area/after", 'n'},
        {"/frames/0/times_ms/detect", 'n'},
        {"/frames/0/times_ms/descriptors", 'n'},
        {"/frames/0/times_ms/match", 'n'},
        {"/frames/0/times_ms/registration", 'n'},
        {"/frames/0/times_ms/balance", 'n'},
        {"/frames/0/pictures", 'a'},
        {"/summary/frames", 'i'},
        {"/summary/aligned", 'i'},
        {"/summary/max_corner_error_px", 'n'},
        {"/face_map/status", 'i'},
        {"/face_map/status_text", 's'},
        {"/face_map/library_messages", 'a'},
        {"/face_map/faces/0/3", 'i'},
        {"/face_map/ajust_ratio", 'i'},
        {"/face_map/margin", 'i'},
        {"/face_map/smooth_radius", 'i'},
        {"/face_map/mean_luma", 'i'},
        {"/face_map/notes", 'a'},
        {"/face_map/time_ms", 'n'},
        {"/config/file", 's'},
        {"/config/status", 'i'},
        {"/config/status_text", 's'},
        {"/config/library_messages", 'a'},
        {"/config/fields/AjustRatio", 'i'},
        {"/config/fields/MotionRatio", 'n'},
        {"/config/time_ms", 'n'},
        {"/pictures", 'a'},
        {"/cache_invalidations", 'i'},
        {"/total_ms", 'n'},
    };
    for (const auto& [pointer, type] : members) {
        SCOPED_TRACE(pointer);
        const Json::json_pointer at(pointer);
        ASSERT_TRUE(report_->contains(at));
        const Json& v = report_->at(at);
        const bool typed = (type == 'i' && v.is_number_integer()) || (type == 'n' && v.is_number()) ||
                           (type == 's' && v.is_string()) || (type == 'b' && v.is_boolean()) ||
                           (type == 'a' && v.is_array()) || (type == 'o' && v.is_object());
        EXPECT_TRUE(typed) << v.type_name();
    }
}

TEST_F(GeneratedBurst, EveryFrameAlignsWithinAPixelOfTheTruth) {
    ASSERT_TRUE(parsed_);
    const Json& frames = report_->at("frames");
    ASSERT_EQ(frames.size(), 5u);
    for (size_t i = 0; i < frames.size(); ++i) {
        const Json& f = frames.at(i);
        SCOPED_TRACE("frame " + std::to_string(i + 1));
        EXPECT_EQ(f.at("index").get<int>(), static_cast<int>(i) + 1);
        EXPECT_EQ(f.at("status").get<int>(), 0) << f.at("status_text");
        EXPECT_EQ(f.at("descriptor_status").get<int>(), 0);
        EXPECT_GE(f.at("survivors").get<int>(), 5);
        EXPECT_LE(f.at("survivors").get<int>(), f.at("matches").get<int>());
        ExpectAreaValid(f.at("area"), 640, 480);
        EXPECT_TRUE(f.at("area_inside_frame").get<bool>());
        ASSERT_TRUE(f.at("corner_error_px").is_object());
        EXPECT_LT(f.at("corner_error_px").at("max").get<double>(), 1.0);
        EXPECT_EQ(f.at("corner_error_px").at("corners").size(), 4u);
        // Alignment makes the frame look like the reference inside the area.
        ASSERT_TRUE(f.at("mean_abs_diff_in_area").is_object());
        EXPECT_LT(f.at("mean_abs_diff_in_area").at("after").get<double>(),
                  f.at("mean_abs_diff_in_area").at("before").get<double>());
    }
    EXPECT_EQ(report_->at("summary").at("aligned").get<int>(), 5);
    EXPECT_LT(report_->at("summary").at("max_corner_error_px").get<double>(), 1.0);
}

TEST_F(GeneratedBurst, BalancesEveryFrameAgainstTheReference) {
    ASSERT_TRUE(parsed_);
    for (const Json& f : report_->at("frames")) {
        EXPECT_EQ(f.at("balance_status").get<int>(), 0);
        ASSERT_TRUE(f.at("joint_point").is_number_integer());
        EXPECT_GE(f.at("joint_point").get<int>(), 0);
        EXPECT_LE(f.at("joint_point").get<int>(), 255);
    }
}

TEST_F(GeneratedBurst, WritesEveryPictureAsValidPng) {
    ASSERT_TRUE(parsed_);
    ExpectPicturesValid(*run_, *report_);
    EXPECT_EQ(cv::imread(run_->dir + "/face_map.png", cv::IMREAD_UNCHANGED).size(), cv::Size(320, 240));
    EXPECT_EQ(cv::imread(run_->dir + "/small_rgb.png", cv::IMREAD_UNCHANGED).size(), cv::Size(320, 240));
    for (int k = 1; k <= 5; ++k) {
        EXPECT_TRUE(Exists(run_->dir + "/contact_" + std::to_string(k) + ".png"));
        EXPECT_TRUE(Exists(run_->dir + "/balance_" + std::to_string(k) + ".png"));
    }
    for (int k = 1; k <= 5; ++k) {
        const cv::Mat aligned = cv::imread(run_->dir + "/aligned_" + std::to_string(k) + ".png");
        EXPECT_EQ(aligned.size(), cv::Size(640, 480));
    }
}

TEST_F(GeneratedBurst, BuildsTheFaceMapAndReadsTheTuningFile) {
    ASSERT_TRUE(parsed_);
    const Json& fm = report_->at("face_map");
    EXPECT_EQ(fm.at("status").get<int>(), 0) << fm.at("status_text");
    EXPECT_EQ(fm.at("faces").size(), 1u);
    // The made-up face is painted below the background of 255.
    const cv::Mat map = cv::imread(run_->dir + "/face_map.png", cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(map.empty());
    double lo = 0, hi = 0;
    cv::minMaxLoc(map, &lo, &hi);
    EXPECT_LT(lo, 255.0);

    const Json& config = report_->at("config");
    EXPECT_EQ(config.at("status").get<int>(), 0) << config.at("status_text");
    EXPECT_EQ(config.at("fields").size(), 28u);
}

TEST_F(GeneratedBurst, WritesTheMarkdownReportAndProgress) {
    ASSERT_TRUE(parsed_);
    const std::string md = ReadFile(run_->dir + "/report.md");
    ASSERT_FALSE(md.empty());
    for (int k = 1; k <= 5; ++k) EXPECT_NE(md.find("| " + std::to_string(k) + " | 0 aligned |"), std::string::npos);
    EXPECT_NE(md.find("How the corner error is measured"), std::string::npos);
    // One progress line per stage; the library's own lines only with --verbose.
    for (int k = 1; k <= 5; ++k) {
        EXPECT_NE(run_->err.find("tocra_demo: frame " + std::to_string(k) + ": registration status 0"),
                  std::string::npos);
        EXPECT_NE(run_->err.find("tocra_demo: frame " + std::to_string(k) + ": balance status 0"), std::string::npos);
    }
    EXPECT_EQ(run_->err.find("BRIMVEL_AP"), std::string::npos);
}

// ---------------------------------------------------------------------------
// Other inputs and layouts.
// ---------------------------------------------------------------------------

TEST(DemoTool, AlignsNv12Buffers) {
    const ToolRun r = RunTool("nv12", {"--synthetic", "--size", "320x240", "--frames", "2", "--format", "nv12"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    Json report;
    ASSERT_TRUE(LoadReport(r, &report));
    EXPECT_EQ(report.at("input").at("format").get<std::string>(), "NV12");
    ASSERT_EQ(report.at("frames").size(), 2u);
    for (const Json& f : report.at("frames")) {
        EXPECT_EQ(f.at("status").get<int>(), 0);
        ExpectAreaValid(f.at("area"), 320, 240);
        EXPECT_LT(f.at("corner_error_px").at("max").get<double>(), 1.0);
    }
    ExpectPicturesValid(r, report);
}

TEST(DemoTool, ReportsRejectedFramesAndGoesOn) {
    const std::string dir = TempDir("inputs");
    const cv::Mat ref = Scene(cv::Size(320, 240), 7);
    ASSERT_TRUE(cv::imwrite(dir + "/ref.png", ref));
    ASSERT_TRUE(cv::imwrite(dir + "/flat.png", cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 90, 90))));
    ASSERT_TRUE(cv::imwrite(dir + "/moved.jpg", Shifted(ref, 5.5, -3.25)));

    const ToolRun r = RunTool("rejected", {"--verbose", dir + "/ref.png", dir + "/flat.png", dir + "/moved.jpg"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    Json report;
    ASSERT_TRUE(LoadReport(r, &report));
    EXPECT_FALSE(report.at("input").at("generated").get<bool>());
    ASSERT_EQ(report.at("frames").size(), 2u);
    // No faces given: the map is the background everywhere.
    const cv::Mat map = cv::imread(r.dir + "/face_map.png", cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(map.empty());
    EXPECT_EQ(cv::countNonZero(map != 255), 0);
    // Nothing to match on a flat frame: the library rejects it, with its reason.
    const Json& flat = report.at("frames").at(0);
    EXPECT_EQ(flat.at("status").get<int>(), 3);
    EXPECT_TRUE(flat.at("area").is_null());
    EXPECT_GE(flat.at("library_messages").size(), 1u);
    EXPECT_FALSE(Exists(r.dir + "/aligned_1.png"));
    EXPECT_TRUE(ValidPng(r.dir + "/contact_1.png"));
    // The next frame is still aligned. No truth is known for given pictures.
    const Json& moved = report.at("frames").at(1);
    EXPECT_EQ(moved.at("status").get<int>(), 0);
    ExpectAreaValid(moved.at("area"), 320, 240);
    EXPECT_TRUE(moved.at("corner_error_px").is_null());
    EXPECT_LT(moved.at("fit_rms_px").get<double>(), 1.0);
    const std::string md = ReadFile(r.dir + "/report.md");
    EXPECT_NE(md.find("Frame 1, registration: status 3"), std::string::npos);
    // With --verbose the library's own lines are passed through.
    EXPECT_NE(r.err.find("BRIMVEL_AP"), std::string::npos);
}

TEST(DemoTool, PassesSizesTheLibraryRefusesWithNoCrop) {
    const std::string dir = TempDir("sizes");
    const cv::Mat ref = Scene(cv::Size(324, 244), 11);
    ASSERT_TRUE(cv::imwrite(dir + "/a.png", ref));
    ASSERT_TRUE(cv::imwrite(dir + "/b.png", Shifted(ref, 3, 2)));

    const ToolRun refused = RunTool("nocrop", {"--no-crop", dir + "/a.png", dir + "/b.png"});
    EXPECT_EQ(refused.exitCode, 0) << refused.err;
    Json report;
    ASSERT_TRUE(LoadReport(refused, &report));
    EXPECT_EQ(report.at("input").at("width").get<int>(), 324);
    EXPECT_EQ(report.at("frames").at(0).at("status").get<int>(), 1);

    const ToolRun cropped = RunTool("crop", {dir + "/a.png", dir + "/b.png"});
    Json croppedReport;
    ASSERT_TRUE(LoadReport(cropped, &croppedReport));
    EXPECT_EQ(croppedReport.at("input").at("width").get<int>(), 320);
    EXPECT_EQ(croppedReport.at("input").at("height").get<int>(), 240);
    EXPECT_EQ(croppedReport.at("frames").at(0).at("status").get<int>(), 0);
}

TEST(DemoTool, ReadsRawYuvAndFaces) {
    const std::string dir = TempDir("raw");
    const cv::Mat ref = Scene(cv::Size(320, 240), 5);
    cv::Mat a, b;
    cv::cvtColor(ref, a, cv::COLOR_BGR2YUV_I420);
    cv::cvtColor(Shifted(ref, -4, 6), b, cv::COLOR_BGR2YUV_I420);
    {
        std::ofstream out(dir + "/burst.yuv", std::ios::binary);
        out.write(reinterpret_cast<const char*>(a.data), static_cast<std::streamsize>(a.total()));
        out.write(reinterpret_cast<const char*>(b.data), static_cast<std::streamsize>(b.total()));
    }
    {
        std::ofstream faces(dir + "/faces.txt");
        faces << "# left top right bottom\n\n120 80 200 180\n";
    }
    const ToolRun r = RunTool("raw", {"--size", "320x240", "--faces", dir + "/faces.txt", dir + "/burst.yuv"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    Json report;
    ASSERT_TRUE(LoadReport(r, &report));
    ASSERT_EQ(report.at("frames").size(), 1u);
    EXPECT_EQ(report.at("face_map").at("faces").size(), 1u);
    EXPECT_EQ(report.at("face_map").at("faces").at(0).at(2).get<int>(), 200);
    // The face's centre, at half resolution, is painted below the background.
    const cv::Mat map = cv::imread(r.dir + "/face_map.png", cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(map.empty());
    EXPECT_LT(map.at<uint8_t>(65, 80), 255);
    EXPECT_EQ(report.at("frames").at(0).at("status").get<int>(), 0);
}

// ---------------------------------------------------------------------------
// Bad inputs end with one line on standard error and a non-zero exit code.
// ---------------------------------------------------------------------------

TEST(DemoTool, BadInputsEndWithOneLineAndNonZeroExit) {
    const std::string dir = TempDir("bad");
    {
        std::ofstream text(dir + "/notapicture.png");
        text << "hello\n";
        std::ofstream raw(dir + "/short.yuv", std::ios::binary);
        raw << std::string(1000, '\x80');
        std::ofstream faces(dir + "/faces.txt");
        faces << "10 10 5 20\n";
    }
    const cv::Mat ref = Scene(cv::Size(320, 240), 3);
    ASSERT_TRUE(cv::imwrite(dir + "/ref.png", ref));
    ASSERT_TRUE(cv::imwrite(dir + "/small.png", ref(cv::Rect(0, 0, 200, 100))));

    const std::vector<std::vector<std::string>> cases = {
        {dir + "/ref.png", dir + "/missing.png"},
        {dir + "/ref.png", dir + "/notapicture.png"},
        {"--size", "320x240", dir + "/ref.png", dir + "/short.yuv"},
        {dir + "/ref.png", dir + "/short.yuv"},
        {dir + "/ref.png", dir + "/small.png"},
        {"--faces", dir + "/faces.txt", dir + "/ref.png", dir + "/ref.png"},
        {dir + "/ref.png"},
        {dir + "/ref.png", dir + "/ref.png", dir + "/ref.png", dir + "/ref.png", dir + "/ref.png", dir + "/ref.png",
         dir + "/ref.png"},
        {"--format", "rgb"},
        {"--frames", "9"},
        {"--ratio", "0"},
        {"--scale", "3"},
        {"--size", "640"},
        {"--out", ""},
        {"--bogus"},
    };
    for (const auto& args : cases) {
        std::string joined;
        for (const std::string& a : args) joined += a + " ";
        SCOPED_TRACE(joined);
        const ToolRun r = RunTool("bad", args);
        EXPECT_EQ(r.exitCode, 2);
        EXPECT_EQ(Lines(r.err), 1) << r.err;
        EXPECT_EQ(r.err.rfind("tocra_demo: ", 0), 0u) << r.err;
        EXPECT_FALSE(Exists(r.dir + "/report.json"));
    }
}

TEST(DemoTool, HelpExplainsEveryOption) {
    const ToolRun r = RunTool("help", {"--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("REFERENCE FRAME..."), std::string::npos);
    for (const char* option :
         {"--out", "--size", "--yuv", "--photo", "--synthetic", "--frames", "--faces", "--no-crop", "--format",
          "--scale", "--max-keypoints", "--ratio", "--config-dir", "--verbose", "--help"}) {
        EXPECT_NE(r.out.find(option), std::string::npos) << option;
    }
}

}  // namespace
