// Vertical box sums of the horizontal sums, divided by the number of pixels
// that the clipped (2R+1) x (2R+1) window covers, written as 8-bit pixels.
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/numeric.h"

namespace tocra {

void BoxSumVRow_C(uint8_t* dst, const BoxSumVLine& l, int width) {
    for (int x = 0; x < width; ++x) {
        if (l.add != nullptr) l.acc[x] += l.add[x];
        if (l.sub != nullptr) l.acc[x] -= l.sub[x];
        // Half the window's area added first: rounds to nearest.
        const float f = static_cast<float>(l.acc[x] + ((l.colCount[x] * l.rowCount) >> 1)) * l.rowRecip * l.colRecip[x];
        dst[x] = ClampToByte(TruncSatToInt32(f));
    }
}

namespace {

// The number that the slice kernel's "malloc fail" log line prints after its
// name: part of the line's text (the call's line when it was written as
// __LINE__), whatever line of this file the call is on now.
constexpr int kMallocFailLogLine = 90;

// count[i] = min(i, R) + 1 + min(L - 1 - i, R): the window's extent along a
// run of length L; recip[i] = 1 / count[i], divided in double, kept as float.
void WindowCounts(int32_t* count, float* recip, int length, int radius) {
    for (int i = 0; i < length; ++i) {
        const int before = i < radius ? i : radius;
        const int after = length - 1 - i < radius ? length - 1 - i : radius;
        count[i] = before + 1 + after;
        recip[i] = static_cast<float>(1.0 / count[i]);
    }
}

// The slice kernel: five arrays from the library allocator (column counts,
// row counts, column and row reciprocals, the zeroed accumulator), input
// rows 0..R-1 to seed the accumulator, then one row function per output
// row. The slice's first and last rows are the image's borders.
void BoxSumVSlice(uint8_t* dst, const int32_t* in, int width, int stride, int rows, int radius, BoxSumVRowFn row) {
    const char* const name = "IntegralMat_V_S32XS32_Neon2";
    const size_t w = static_cast<size_t>(width), n = static_cast<size_t>(rows);
    int32_t* colCount = static_cast<int32_t*>(iMalloc(w * sizeof(int32_t), name, __LINE__));
    int32_t* rowCount = static_cast<int32_t*>(iMalloc(n * sizeof(int32_t), name, __LINE__));
    float* colRecip = static_cast<float*>(iMalloc(w * sizeof(float), name, __LINE__));
    float* rowRecip = static_cast<float*>(iMalloc(n * sizeof(float), name, __LINE__));
    int32_t* acc = static_cast<int32_t*>(iMalloc(w * sizeof(int32_t), name, __LINE__));
    if (colCount != nullptr && rowCount != nullptr && colRecip != nullptr && rowRecip != nullptr && acc != nullptr) {
        WindowCounts(colCount, colRecip, width, radius);
        WindowCounts(rowCount, rowRecip, rows, radius);
        memset(acc, 0, w * sizeof(int32_t));
        BoxSumVLine line{acc, nullptr, nullptr, colCount, colRecip, 0, 0.0f};
        const int seed = radius < rows ? radius : rows;
        for (int r = 0; r < seed; ++r)
            IntegralAddRow_C(reinterpret_cast<uint32_t*>(acc),
                             reinterpret_cast<const uint32_t*>(in + RowOffset(r, width)), width);
        for (int y = 0; y < rows; ++y) {
            line.add = y + radius <= rows - 1 ? in + RowOffset(y + radius, width) : nullptr;
            line.sub = y >= radius + 1 ? in + RowOffset(y - radius - 1, width) : nullptr;
            line.rowCount = rowCount[y];
            line.rowRecip = rowRecip[y];
            row(dst + RowOffset(y, stride), line, width);
        }
    } else {
        TOCRA_LOGI("%s %d malloc fail!\n", name, kMallocFailLogLine);
    }
    iFree(colCount, name, __LINE__);
    iFree(rowCount, name, __LINE__);
    iFree(colRecip, name, __LINE__);
    iFree(rowRecip, name, __LINE__);
    iFree(acc, name, __LINE__);
}

BoxSumVRowFn VectorRow() {
#if defined(BRIMVEL_PLAIN_ONLY)
    return BoxSumVRow_C;
#else
    return BoxSumVRow_NEON;
#endif
}

// Rows [first, end) of the plane that task k computes, and the slice of
// input rows [sliceFirst, sliceEnd) it reads: band = ceil(height / 4), R
// rows of halo on each side. Clamped to the plane: for heights such as 5 or
// 9 the last bands would start at or past the last row, and for small
// heights the halo would reach outside the sums; such a task computes only
// the rows that exist, or nothing.
struct VSlice {
    int first, end, sliceFirst, sliceEnd;
    int64_t scratchRow;  // first scratch row of the task's slice
};

VSlice SliceOf(int height, int radius, int k) {
    const int band = (height + 3) / 4;
    VSlice s;
    s.first = k * band;
    s.end = k == kBandTasks - 1 || s.first + band > height ? height : s.first + band;
    s.sliceFirst = s.first - radius > 0 ? s.first - radius : 0;
    s.sliceEnd = s.end + radius < height ? s.end + radius : height;
    s.scratchRow = static_cast<int64_t>(k) * (band + 2 * static_cast<int64_t>(radius));
    return s;
}

}  // namespace

void BoxSumV_C(uint8_t* dst, const int32_t* in, int width, int stride, int rows, int radius) {
    if (width <= 0 || rows <= 0) return;
    BoxSumVSlice(dst, in, width, stride, rows, radius, BoxSumVRow_C);
}

int64_t BoxSumVScratchExtent(int width, int stride, int height, int radius) {
    int64_t extent = 0;
    for (int k = 0; k < kBandTasks; ++k) {
        const VSlice s = SliceOf(height, radius, k);
        if (s.first >= s.end) continue;
        const int64_t base = s.scratchRow * stride;
        // The kernel writes `width` bytes of each slice row; the copy reads
        // whole rows up to the band's last one.
        const int64_t written = base + static_cast<int64_t>(s.sliceEnd - s.sliceFirst - 1) * stride + width;
        const int64_t copied = base + static_cast<int64_t>(s.end - s.sliceFirst) * stride;
        const int64_t e = written > copied ? written : copied;
        if (e > extent) extent = e;
    }
    return extent;
}

}  // namespace tocra

using tocra::RowOffset;

// Slice kernel: rows of `in` (pitch width) to rows of dst (pitch stride); the
// first and last rows are the image's borders. Nothing to do without rows
// or columns. Refused with a line: null buffers, a negative radius (the
// window would reach rows before the slice) and a stride below the width
// (the last row would end past dst).
extern "C" void IntegralMat_V_S32XS32_Neon2(uint8_t* dst, const int32_t* in, int width, int stride, int rows,
                                            int radius) {
    if (width <= 0 || rows <= 0) return;
    if (dst == nullptr || in == nullptr || stride < width || radius < 0) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] rows[%d] radius[%d]\n", "IntegralMat_V_S32XS32_Neon2", width,
                   stride, rows, radius);
        return;
    }
    tocra::BoxSumVSlice(dst, in, width, stride, rows, radius, tocra::VectorRow());
}

// Task k computes its band's rows inside its own scratch slice of band + 2R
// rows, then copies them out in one block of whole rows.
extern "C" void IntegralMat_V_MtCaller(void* arg, int index) {
    const BoxSumVJob* job = static_cast<const BoxSumVJob*>(arg);
    const tocra::VSlice s = tocra::SliceOf(job->height, job->radius, index);
    if (s.first >= s.end) return;
    uint8_t* slice = job->pScratch + static_cast<size_t>(s.scratchRow) * static_cast<size_t>(job->stride);
    IntegralMat_V_S32XS32_Neon2(slice, job->pIn + RowOffset(s.sliceFirst, job->width), job->width, job->stride,
                                s.sliceEnd - s.sliceFirst, job->radius);
    memcpy(job->pDst + RowOffset(s.first, job->stride), slice + RowOffset(s.first - s.sliceFirst, job->stride),
           RowOffset(s.end - s.first, job->stride));
}

// dst needs height rows of stride bytes (each is written whole, padding
// included); in holds width * height int32 sums; *cursor points at a
// scratch area of stride * (2R + ceil(height / 4)) * 4 bytes and is advanced
// past it. No rows: only the cursor moves. Refused (-998 and a line): null
// buffers or cursor, and, when rows are computed, a negative radius or
// width, or a stride below the width.
extern "C" int IntegralMat_V_MT(uint8_t* dst, const int32_t* in, int width, int stride, int height, int radius,
                                uint8_t** cursor) {
    if (cursor == nullptr || *cursor == nullptr ||
        (height > 0 && (dst == nullptr || in == nullptr || width < 0 || stride < width || radius < 0))) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] height[%d] radius[%d]\n", "IntegralMat_V_MT", width, stride,
                   height, radius);
        return TOCRA_NULL_POINTER;
    }
    uint8_t* scratch = *cursor;
    const int64_t reserved = (2 * static_cast<int64_t>(radius) + (height + 3) / 4) * stride * 4;
    *cursor = reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(scratch) + static_cast<uintptr_t>(reserved));
    BoxSumVJob job{in, dst, scratch, width, stride, height, radius, tocra::kBandTasks};
    return tocra::RunFourBands(IntegralMat_V_MtCaller, &job);
}
