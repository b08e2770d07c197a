#include "yuv_frame.h"

#include <algorithm>
#include <cstring>

#include <opencv2/imgproc.hpp>

namespace demo {

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
    const size_t padded = static_cast<size_t>(Align128(width)) * height +
                          2 * static_cast<size_t>(Align128(width / 2)) * (height / 2);
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

void YuvFrame::FromI420(const cv::Mat& i420) {
    const int w = width_;
    const int h = height_;
    const uint8_t* srcY = i420.ptr<uint8_t>(0);
    const uint8_t* srcU = srcY + static_cast<size_t>(w) * h;
    const uint8_t* srcV = srcU + static_cast<size_t>(w / 2) * (h / 2);
    for (int y = 0; y < h; ++y) {
        memcpy(luma() + static_cast<size_t>(y) * lumaPitch_, srcY + static_cast<size_t>(y) * w, w);
    }
    for (int y = 0; y < h / 2; ++y) {
        const uint8_t* u = srcU + static_cast<size_t>(y) * (w / 2);
        const uint8_t* v = srcV + static_cast<size_t>(y) * (w / 2);
        if (layout_ == Layout::kYuv420) {
            memcpy(buffer_.data() + uOffset_ + static_cast<size_t>(y) * chromaPitch_, u, w / 2);
            memcpy(buffer_.data() + vOffset_ + static_cast<size_t>(y) * chromaPitch_, v, w / 2);
        } else {
            uint8_t* uv = buffer_.data() + uOffset_ + static_cast<size_t>(y) * chromaPitch_;
            for (int x = 0; x < w / 2; ++x) {
                uv[2 * x] = u[x];
                uv[2 * x + 1] = v[x];
            }
        }
    }
}

cv::Mat YuvFrame::ToI420() const {
    const int w = width_;
    const int h = height_;
    cv::Mat i420(h * 3 / 2, w, CV_8UC1);
    uint8_t* dstY = i420.ptr<uint8_t>(0);
    uint8_t* dstU = dstY + static_cast<size_t>(w) * h;
    uint8_t* dstV = dstU + static_cast<size_t>(w / 2) * (h / 2);
    for (int y = 0; y < h; ++y) {
        memcpy(dstY + static_cast<size_t>(y) * w, luma() + static_cast<size_t>(y) * lumaPitch_, w);
    }
    for (int y = 0; y < h / 2; ++y) {
        uint8_t* u = dstU + static_cast<size_t>(y) * (w / 2);
        uint8_t* v = dstV + static_cast<size_t>(y) * (w / 2);
        if (layout_ == Layout::kYuv420) {
            memcpy(u, buffer_.data() + uOffset_ + static_cast<size_t>(y) * chromaPitch_, w / 2);
            memcpy(v, buffer_.data() + vOffset_ + static_cast<size_t>(y) * chromaPitch_, w / 2);
        } else {
            const uint8_t* uv = buffer_.data() + uOffset_ + static_cast<size_t>(y) * chromaPitch_;
            for (int x = 0; x < w / 2; ++x) {
                u[x] = uv[2 * x];
                v[x] = uv[2 * x + 1];
            }
        }
    }
    return i420;
}

cv::Mat YuvFrame::ToBgr() const {
    cv::Mat bgr;
    cv::cvtColor(ToI420(), bgr, cv::COLOR_YUV2BGR_I420);
    return bgr;
}

}  // namespace demo
