// A YUV 4:2:0 frame in one graphic buffer, laid out the way the library's
// stages read it, with conversions to and from OpenCV pictures.
#ifndef TOCRA_DEMO_YUV_FRAME_H
#define TOCRA_DEMO_YUV_FRAME_H

#include <opencv2/core.hpp>

#include "brimvel_tocra.h"
#include "buffers.h"

namespace demo {

enum class Layout {
    kYuv420,  // three planes; luma rows padded to 128 bytes, chroma rows likewise
    kNv12,    // luma, then interleaved U/V right behind it, rows of exactly width bytes
};

// Width rounded up to a multiple of 128: the row pitch the registration path uses.
inline int Align128(int width) { return (width + 127) & ~127; }

class YuvFrame {
  public:
    YuvFrame() = default;
    YuvFrame(int width, int height, Layout layout);

    int width() const { return width_; }
    int height() const { return height_; }
    Layout layout() const { return layout_; }
    int lumaPitch() const { return lumaPitch_; }
    int chromaPitch() const { return chromaPitch_; }

    uint8_t* luma() const { return buffer_.data(); }
    uint8_t* chroma() const { return buffer_.data() + uOffset_; }  // U plane, or the NV12 U/V plane
    uint32_t lumaHandle() const { return hY_; }

    // The picture record as the pipeline hands it over: sizes and plane
    // handles. format is 2 for planar YUV420 and 1 for NV12.
    tagST_PIC_HANDLE PictureRecord() const;

    // Copies a tightly packed I420 picture (OpenCV's COLOR_BGR2YUV_I420) in.
    void FromI420(const cv::Mat& i420);
    // The frame as a tightly packed I420 picture, and as a BGR picture.
    cv::Mat ToI420() const;
    cv::Mat ToBgr() const;
    // The luma plane as an 8-bit picture sharing the frame's memory.
    cv::Mat Luma() const;

  private:
    // A plane of the buffer: rows x cols of type, pitch bytes apart.
    cv::Mat Plane(size_t offset, int rows, int cols, int type, int pitch) const;

    int width_ = 0;
    int height_ = 0;
    Layout layout_ = Layout::kYuv420;
    int lumaPitch_ = 0;
    int chromaPitch_ = 0;
    size_t uOffset_ = 0;
    size_t vOffset_ = 0;
    GraphicBuffer buffer_;
    uint32_t hY_ = 0;
    uint32_t hU_ = 0;
    uint32_t hV_ = 0;
};

}  // namespace demo

#endif
