// Descriptors from windows of integral rows instead of a whole-frame
// integral: the walk order, the window upkeep and the plain row builder.
#include <algorithm>
#include <cstring>

#include "registration/brief.h"

namespace tocra {

size_t BriefOrderBytes(int count) { return static_cast<size_t>(count > 1 ? count : 1) * sizeof(BriefSlot); }

void BriefIntegralRow_C(const uint8_t* src, const uint32_t* above, uint32_t* out, int n, uint32_t sum) {
    for (int j = 0; j < n; ++j) {
        out[j] = above[j] + sum;
        if (j + 1 < n) sum += src[j];
    }
}

void BriefOrderKeypoints(const tagST_KEYPOINT* keypoints, int count, BriefSlot* slots) {
    for (int i = 0; i < count; ++i) {
        // Centres are non-negative here: every keypoint passed the range check.
        const uint32_t band = static_cast<uint32_t>(BriefCentre(keypoints[i].x)) / kBriefBandColumns;
        const uint32_t row = static_cast<uint32_t>(BriefCentre(keypoints[i].y));
        slots[i].key = (static_cast<uint64_t>(band) << 32) | row;
        slots[i].index = i;
    }
    std::sort(slots, slots + count, [](const BriefSlot& a, const BriefSlot& b) {
        return a.key < b.key || (a.key == b.key && a.index < b.index);
    });
}

namespace {

// Integral rows first .. first + rows - 1 of columns left .. left + columns - 1,
// counted from the window's first row and column.
struct Window {
    uint32_t* entries;
    uint32_t band;
    int left;
    int columns;
    int first;
    int rows;
};

void StartBand(Window& w, uint32_t band, int width) {
    const int lo = static_cast<int>(band) * kBriefBandColumns + kBriefReach.left;
    const int hi = static_cast<int>(band) * kBriefBandColumns + kBriefBandColumns - 1 + kBriefReach.right;
    w.band = band;
    w.left = std::max(lo, 0);
    w.columns = std::min(hi, width) - w.left + 1;
    w.rows = 0;
}

// Makes integral rows top .. bottom present. Rows above top are no longer
// needed by this band (the walk goes down), so they are dropped when room is
// short, and a window with no row in common starts again from zero.
void Cover(Window& w, int top, int bottom, const uint8_t* image, ptrdiff_t stride, BriefIntegralRowFn row) {
    const size_t columns = static_cast<size_t>(w.columns);
    if (w.rows == 0 || top < w.first || top >= w.first + w.rows) {
        w.first = top;
        w.rows = 1;
        memset(w.entries, 0, columns * sizeof(uint32_t));
    } else if (bottom - w.first + 1 > kBriefWindowRows) {
        const int keep = w.first + w.rows - top;
        memmove(w.entries, w.entries + static_cast<size_t>(top - w.first) * columns,
                static_cast<size_t>(keep) * columns * sizeof(uint32_t));
        w.first = top;
        w.rows = keep;
    }
    while (w.first + w.rows - 1 < bottom) {
        // Integral row r adds image row r - 1.
        const int imageRow = w.first + w.rows - 1;
        uint32_t* out = w.entries + static_cast<size_t>(w.rows) * columns;
        row(image + static_cast<ptrdiff_t>(imageRow) * stride + w.left, out - columns, out, w.columns, 0);
        ++w.rows;
    }
}

}  // namespace

void BriefDescribeSlots(const uint8_t* image, int width, int stride, const ST_IMAGEFEATURES& features,
                        const BriefSlot* slots, int begin, int end, uint32_t* window, BriefIntegralRowFn row) {
    Window w = {window, 0, 0, 0, 0, 0};
    for (int s = begin; s < end; ++s) {
        const int i = slots[s].index;
        const tagST_KEYPOINT& kp = features.pKeyPoints[i];
        const int px = BriefCentre(kp.x);
        const int py = BriefCentre(kp.y);
        const uint32_t band = static_cast<uint32_t>(slots[s].key >> 32);
        if (w.rows == 0 || band != w.band) StartBand(w, band, width);
        Cover(w, py + kBriefReach.up, py + kBriefReach.down, image, stride, row);
        const uint32_t* p = w.entries + static_cast<ptrdiff_t>(py - w.first) * w.columns + (px - w.left);
        BriefDescriptorAt(p, w.columns, features.pDescriptors + static_cast<size_t>(i) * TOCRA_DESCRIPTOR_BYTES);
    }
}

}  // namespace tocra
