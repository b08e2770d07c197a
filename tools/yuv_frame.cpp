#include "yuv_frame.h"

#include <opencv2/imgproc.hpp>

namespace demo {
namespace {

// The Y, U and V planes of a tightly packed I420 picture, sharing its memory.
void I420Planes(const cv::Mat& i420, int w, int h, cv::Mat planes[3]) {
    const cv::Mat flat = i420.reshape(1, 1);
    const int lumaSize = w * h;
    const int chromaSize = (w / 2) * (h / 2);
    planes[0] = flat.colRange(0, lumaSize).reshape(1, h);
    planes[1] = flat.colRange(lumaSize, lumaSize + chromaSize).reshape(1, h / 2);
    planes[2] = flat.colRange(lumaSize + chromaSize, lumaSize + 2 * chromaSize).reshape(1, h / 2);
}

}  // namespace

YuvFrame::YuvFrame(int width, int height, Layout layout) : width_(width), height_(height), layout_(layout) {
    if (layout == Layout::kYuv420) {
        lumaPitch_ = Align128(width);
        chromaPitch_ = Align128(width / 2);
        uOffset_ = static_cast<size_t>(lumaPitch_) * height;
        vOffset_ = uOffset_ + static_cast<size_t>(chromaPitch_) * (height / 2);
    } else {
        // The NV12 warp and border fill step through rows of exactly width
        // bytes, in luma and chroma alike.
        lumaPitch_ = width;
        chromaPitch_ = width;
        uOffset_ = static_cast<size_t>(width) * height;
        vOffset_ = 0;
    }
    // Room for the widest layout either way: the registration writes back the
    // caches over 128-byte-padded planes whatever the layout.
    const size_t padded =
        static_cast<size_t>(Align128(width)) * height + 2 * static_cast<size_t>(Align128(width / 2)) * (height / 2);
    buffer_ = GraphicBuffer(padded);
    hY_ = buffer_.handle();
    hU_ = buffer_.HandleAt(uOffset_);
    hV_ = layout == Layout::kYuv420 ? buffer_.HandleAt(vOffset_) : 0;
}

tagST_PIC_HANDLE YuvFrame::PictureRecord() const {
    tagST_PIC_HANDLE pic{};
    pic.width = width_;
    pic.height = height_;
    pic.stride = lumaPitch_;
    pic.hY = hY_;
    pic.hU = hU_;
    pic.hV = hV_;
    pic.format = layout_ == Layout::kYuv420 ? TOCRA_FORMAT_YUV420 : 1;
    return pic;
}

cv::Mat YuvFrame::Luma() const { return cv::Mat(height_, width_, CV_8UC1, luma(), lumaPitch_); }

cv::Mat YuvFrame::Plane(size_t offset, int rows, int cols, int type, int pitch) const {
    return cv::Mat(rows, cols, type, buffer_.data() + offset, static_cast<size_t>(pitch));
}

void YuvFrame::FromI420(const cv::Mat& i420) {
    cv::Mat src[3];
    I420Planes(i420, width_, height_, src);
    src[0].copyTo(Luma());
    const int h = height_ / 2;
    const int w = width_ / 2;
    if (layout_ == Layout::kYuv420) {
        src[1].copyTo(Plane(uOffset_, h, w, CV_8UC1, chromaPitch_));
        src[2].copyTo(Plane(vOffset_, h, w, CV_8UC1, chromaPitch_));
    } else {
        cv::Mat uv = Plane(uOffset_, h, w, CV_8UC2, chromaPitch_);
        cv::merge(src + 1, 2, uv);  // U, V interleaved
    }
}

cv::Mat YuvFrame::ToI420() const {
    cv::Mat i420(height_ * 3 / 2, width_, CV_8UC1);
    cv::Mat dst[3];
    I420Planes(i420, width_, height_, dst);
    Luma().copyTo(dst[0]);
    const int h = height_ / 2;
    const int w = width_ / 2;
    if (layout_ == Layout::kYuv420) {
        Plane(uOffset_, h, w, CV_8UC1, chromaPitch_).copyTo(dst[1]);
        Plane(vOffset_, h, w, CV_8UC1, chromaPitch_).copyTo(dst[2]);
    } else {
        cv::split(Plane(uOffset_, h, w, CV_8UC2, chromaPitch_), dst + 1);
    }
    return i420;
}

cv::Mat YuvFrame::ToBgr() const {
    cv::Mat bgr;
    cv::cvtColor(ToI420(), bgr, cv::COLOR_YUV2BGR_I420);
    return bgr;
}

}  // namespace demo
