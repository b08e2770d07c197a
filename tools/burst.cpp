#include "burst.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace demo {
namespace {

const char kPhotoDir[] = "/usr/share/doc/opencv-doc/examples/data/";
const char* const kPhotos[] = {"building.jpg", "aero1.jpg", "leuvenA.jpg"};

constexpr int kDefaultWidth = 768;
constexpr int kDefaultHeight = 512;
// The scene is this much larger than a frame, so that moved frames still
// show real picture content up to their edges.
constexpr double kSceneMargin = 1.12;

bool EndsWithYuv(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext == ".yuv";
}

std::string SizeText(const cv::Size& s) { return std::to_string(s.width) + "x" + std::to_string(s.height); }

// All frames of a raw file: I420 or NV12, back to back.
bool ReadRawFrames(const std::string& path, const Options& o, Burst* burst, std::string* error) {
    if (o.width == 0) {
        *error = "'" + path + "' is a raw .yuv file: give its size with --size WxH";
        return false;
    }
    if (o.width % 2 != 0 || o.height % 2 != 0) {
        *error = "--size " + std::to_string(o.width) + "x" + std::to_string(o.height) +
                 " is odd; YUV 4:2:0 frames have even sizes";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t frameBytes = static_cast<size_t>(o.width) * o.height * 3 / 2;
    if (bytes.empty() || bytes.size() % frameBytes != 0) {
        *error = "'" + path + "' holds " + std::to_string(bytes.size()) + " bytes, not a whole number of " +
                 std::to_string(o.width) + "x" + std::to_string(o.height) + " YUV 4:2:0 frames (" +
                 std::to_string(frameBytes) + " bytes each)";
        return false;
    }
    const size_t count = bytes.size() / frameBytes;
    for (size_t i = 0; i < count; ++i) {
        cv::Mat yuv(o.height * 3 / 2, o.width, CV_8UC1, bytes.data() + i * frameBytes);
        cv::Mat bgr;
        cv::cvtColor(yuv, bgr, o.rawNv12 ? cv::COLOR_YUV2BGR_NV12 : cv::COLOR_YUV2BGR_I420);
        burst->frames.push_back(bgr);
        burst->names.push_back(count == 1 ? path : path + " #" + std::to_string(i));
    }
    return true;
}

// Reference point -> frame point: a rotation by degrees and a zoom about the
// frame centre c, then a shift, with a slight perspective tilt (perspX and
// perspY: relative change of the projective divisor across half the frame).
cv::Matx33d MotionAbout(cv::Point2d c, double degrees, double zoom, cv::Point2d shift, double perspX, double perspY) {
    const double a = degrees * CV_PI / 180.0;
    const cv::Matx33d toCentre(1, 0, -c.x, 0, 1, -c.y, 0, 0, 1);
    const cv::Matx33d tilt(1, 0, 0, 0, 1, 0, perspX / c.x, perspY / c.y, 1);
    const cv::Matx33d turn(zoom * std::cos(a), -zoom * std::sin(a), 0, zoom * std::sin(a), zoom * std::cos(a), 0, 0, 0,
                           1);
    const cv::Matx33d back(1, 0, c.x + shift.x, 0, 1, c.y + shift.y, 0, 0, 1);
    cv::Matx33d h = back * turn * tilt * toCentre;
    return h * (1.0 / h(2, 2));
}

struct FrameRecipe {
    double degrees, zoom, shiftX, shiftY, perspX, perspY;  // shifts as fractions of the frame size
    double gain;                                           // no-flash exposure
};

// Frames 1 to 5: handheld motion between shots, each a little under- or
// over-exposed against the others.
const FrameRecipe kRecipes[5] = {
    {0.40, 1.000, 0.010, -0.006, 0.000, 0.000, 0.62}, {-0.90, 1.000, -0.016, 0.010, 0.000, 0.000, 0.50},
    {0.25, 1.000, 0.005, 0.015, 0.010, -0.006, 0.70}, {-0.50, 1.015, -0.008, -0.012, 0.000, 0.000, 0.45},
    {1.10, 1.000, 0.018, 0.008, -0.006, 0.010, 0.56},
};

// A deterministic picture with corners at every scale: overlapping
// rectangles and strokes of random colours on a gradient, slightly blurred.
cv::Mat MakeTexture(cv::Size size) {
    cv::Mat img(size, CV_8UC3);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            img.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<uint8_t>(60 + 100 * x / size.width),
                                                static_cast<uint8_t>(80 + 90 * y / size.height), 120);
        }
    }
    cv::RNG rng(20240611);
    const int shapes = std::max(60, size.area() / 600);
    for (int i = 0; i < shapes; ++i) {
        const cv::Point p(rng.uniform(0, size.width), rng.uniform(0, size.height));
        const int r = rng.uniform(4, std::max(8, std::min(size.width, size.height) / 10));
        const cv::Scalar colour(rng.uniform(0, 256), rng.uniform(0, 256), rng.uniform(0, 256));
        if (rng.uniform(0, 4) == 0) {
            cv::line(img, p, p + cv::Point(rng.uniform(-3 * r, 3 * r), rng.uniform(-3 * r, 3 * r)), colour,
                     rng.uniform(1, 4));
        } else {
            cv::rectangle(img, cv::Rect(p.x, p.y, r, rng.uniform(4, 2 * r + 4)), colour, cv::FILLED);
        }
    }
    cv::GaussianBlur(img, img, cv::Size(0, 0), 0.8);
    return img;
}

// The scene the burst looks at: the photograph (or the texture) scaled so
// that it covers a frame with a margin on every side.
bool MakeScene(const Options& o, cv::Size frame, Burst* burst, cv::Mat* scene, std::string* error) {
    std::string photo = o.photo;
    if (photo.empty() && !o.synthetic) {
        for (const char* name : kPhotos) {
            if (std::filesystem::is_regular_file(std::string(kPhotoDir) + name)) {
                photo = std::string(kPhotoDir) + name;
                break;
            }
        }
    }
    const cv::Size sceneSize(static_cast<int>(std::ceil(frame.width * kSceneMargin)),
                             static_cast<int>(std::ceil(frame.height * kSceneMargin)));
    if (o.synthetic || photo.empty()) {
        *scene = MakeTexture(sceneSize);
        burst->source = "generated texture";
        if (!o.synthetic) {
            burst->notes.push_back("No photograph found in " + std::string(kPhotoDir) +
                                   " (Debian package opencv-doc): the burst is made from a generated texture.");
        }
        return true;
    }
    cv::Mat img = cv::imread(photo, cv::IMREAD_COLOR);
    if (img.empty()) {
        *error = "cannot read the photograph '" + photo + "'";
        return false;
    }
    const double f =
        std::max(static_cast<double>(sceneSize.width) / img.cols, static_cast<double>(sceneSize.height) / img.rows);
    cv::resize(img, img, cv::Size(), f, f, f < 1.0 ? cv::INTER_AREA : cv::INTER_CUBIC);
    const cv::Rect centre((img.cols - sceneSize.width) / 2, (img.rows - sceneSize.height) / 2, sceneSize.width,
                          sceneSize.height);
    *scene = img(centre).clone();
    burst->source = "photograph " + photo;
    return true;
}

// Brightness, colour and noise of one exposure, in place. The flash frame is
// bright in the middle and falls off towards the corners with a cool tint;
// the no-flash frames are darker, warmer and noisier.
void Expose(cv::Mat* frame, bool flash, double gain, uint64_t seed) {
    const cv::Size size = frame->size();
    const double gamma = flash ? 0.95 : 1.15;
    const cv::Vec3d tint = flash ? cv::Vec3d(1.04, 1.00, 0.96) : cv::Vec3d(0.85, 1.00, 1.10);
    const double sigma = flash ? 1.0 : 2.5;
    cv::Mat noise(size, CV_32FC3);
    cv::RNG rng(seed);
    rng.fill(noise, cv::RNG::NORMAL, 0.0, sigma);
    double curve[256];  // the exposure's tone curve, level -> level
    for (int v = 0; v < 256; ++v) curve[v] = 255.0 * std::pow(v / 255.0, gamma);
    const double cx = size.width / 2.0;
    const double cy = size.height / 2.0;
    const double r2max = cx * cx + cy * cy;
    for (int y = 0; y < size.height; ++y) {
        cv::Vec3b* row = frame->ptr<cv::Vec3b>(y);
        const cv::Vec3f* n = noise.ptr<cv::Vec3f>(y);
        for (int x = 0; x < size.width; ++x) {
            const double r2 = ((x - cx) * (x - cx) + (y - cy) * (y - cy)) / r2max;
            const double g = flash ? 1.12 - 0.32 * r2 : gain;
            for (int c = 0; c < 3; ++c)
                row[x][c] = cv::saturate_cast<uint8_t>(curve[row[x][c]] * g * tint[c] + n[x][c]);
        }
    }
}

}  // namespace

bool ReadBurst(const Options& o, Burst* burst, std::string* error) {
    for (const std::string& path : o.inputs) {
        if (!std::filesystem::is_regular_file(path)) {
            *error = "cannot open '" + path + "': no such file";
            return false;
        }
        if (EndsWithYuv(path)) {
            if (!ReadRawFrames(path, o, burst, error)) return false;
            continue;
        }
        cv::Mat img = cv::imread(path, cv::IMREAD_COLOR);
        if (img.empty()) {
            *error = "cannot decode '" + path + "' as a PNG or JPEG picture";
            return false;
        }
        burst->frames.push_back(img);
        burst->names.push_back(path);
    }
    if (burst->frames.size() < 2 || burst->frames.size() > kMaxFrames) {
        *error = "the inputs hold " + std::to_string(burst->frames.size()) +
                 " frames; a burst is a reference and 1 to 5 frames";
        return false;
    }
    const cv::Size size = burst->frames[0].size();
    for (size_t i = 1; i < burst->frames.size(); ++i) {
        if (burst->frames[i].size() != size) {
            *error = "'" + burst->names[i] + "' is " + SizeText(burst->frames[i].size()) + " but the reference is " +
                     SizeText(size) + "; the frames of a burst share one size";
            return false;
        }
    }
    burst->source = std::to_string(burst->frames.size()) + " pictures given on the command line";
    return true;
}

bool MakeBurst(const Options& o, Burst* burst, std::string* error) {
    const cv::Size size(o.width > 0 ? o.width : kDefaultWidth, o.height > 0 ? o.height : kDefaultHeight);
    cv::Mat scene;
    if (!MakeScene(o, size, burst, &scene, error)) return false;
    const cv::Point2d origin((scene.cols - size.width) / 2, (scene.rows - size.height) / 2);
    const cv::Matx33d toScene(1, 0, origin.x, 0, 1, origin.y, 0, 0, 1);
    const cv::Point2d centre(size.width / 2.0, size.height / 2.0);
    for (int k = 0; k <= o.burstFrames; ++k) {
        cv::Matx33d truth = cv::Matx33d::eye();
        if (k > 0) {
            const FrameRecipe& r = kRecipes[k - 1];
            truth = MotionAbout(centre, r.degrees, r.zoom, cv::Point2d(r.shiftX * size.width, r.shiftY * size.height),
                                r.perspX, r.perspY);
        }
        // Frame k shows at u what the reference shows at truth^-1(u), which
        // is the scene at that point plus the crop origin.
        cv::Mat frame;
        cv::warpPerspective(scene, frame, cv::Mat(toScene * truth.inv()), size, cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                            cv::BORDER_REFLECT101);
        const bool flash = k == 0;
        const double gain = flash ? 1.0 : kRecipes[k - 1].gain;
        Expose(&frame, flash, gain, 1000 + k);
        burst->frames.push_back(frame);
        burst->truth.push_back(truth);
        if (flash) {
            burst->names.push_back("generated reference");
            burst->exposures.push_back(
                "flash: gain 1.12 at the centre falling to 0.80 in the corners, gamma 0.95, "
                "cool tint, noise sigma 1.0");
        } else {
            const FrameRecipe& r = kRecipes[k - 1];
            std::string name = cv::format("generated: rotation %.2f deg, zoom %.3f, shift (%.1f, %.1f) px", r.degrees,
                                          r.zoom, r.shiftX * size.width, r.shiftY * size.height);
            if (r.perspX != 0.0 || r.perspY != 0.0) name += ", perspective tilt";
            burst->names.push_back(name);
            burst->exposures.push_back(cv::format("no flash: gain %.2f, gamma 1.15, warm tint, noise sigma 2.5", gain));
        }
    }
    // A made-up face in the middle of the scene, so that the face map shows
    // what the library does with one.
    burst->faces.push_back(cv::Rect(size.width * 2 / 5, size.height * 3 / 10, size.width / 5, size.height * 3 / 10));
    return true;
}

void FitFrameSize(bool crop, Burst* burst) {
    const cv::Size size = burst->frames[0].size();
    const int step = crop ? 8 : 2;
    const cv::Size fitted(size.width / step * step, size.height / step * step);
    if (fitted == size) return;
    for (cv::Mat& f : burst->frames) f = f(cv::Rect(cv::Point(0, 0), fitted)).clone();
    burst->notes.push_back("Frames cropped at the right and bottom from " + SizeText(size) + " to " + SizeText(fitted) +
                           (crop ? " (multiples of 8, the registration's size rule; --no-crop keeps the size)."
                                 : " (YUV 4:2:0 needs even sizes)."));
}

}  // namespace demo
