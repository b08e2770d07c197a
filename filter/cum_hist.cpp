// Cumulative histograms of 8-bit planes: entry v counts the pixels <= v.
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"

namespace tocra {

void CumCountRow_C(uint32_t* counts, const uint8_t* p, int width, int step) {
    for (int x = 0; x < width; x += step) ++counts[p[x]];
}

void CumHistPlane(const uint8_t* plane, int width, int rows, int stride, int step, uint32_t* hist, bool plain) {
    CumCountRowFn row = CumCountRow_C;
#if !defined(BRIMVEL_PLAIN_ONLY)
    if (!plain) row = CumCountRow_NEON;
#else
    (void)plain;
#endif
    // Four counter sets, added up at the end, so that runs of equal pixels
    // do not serialise on one counter.
    uint32_t counts[4 * 256];
    memset(counts, 0, sizeof(counts));
    for (int y = 0; y < rows; y += step) row(counts, plane + RowOffset(y, stride), width, step);
    for (int v = 0; v < 256; ++v) hist[v] = counts[v] + counts[256 + v] + counts[512 + v] + counts[768 + v];
    for (int v = 1; v < 256; ++v) hist[v] += hist[v - 1];
}

void GetCumHist_C(const uint8_t* plane, int width, int rows, int stride, int step, uint32_t* hist) {
    CumHistPlane(plane, width, rows, stride, step, hist, true);
}

void GetCumSum_C(const uint8_t* plane, int width, int rows, int stride, uint32_t* hist) {
    CumHistPlane(plane, width, rows, stride, 1, hist, true);
}

namespace {

// Last byte offset read (rows 0, step, ... < rows, columns 0, step, ... <
// width), or -1 when nothing is read.
int64_t LastRead(int width, int rows, int stride, int step) {
    if (width <= 0 || rows <= 0) return -1;
    return static_cast<int64_t>((rows - 1) / step) * step * stride + static_cast<int64_t>((width - 1) / step) * step;
}

// Kernels check what they would do: nothing to count is not an error (the
// histogram is all zeros), but a null histogram, a step below 1 with rows
// to walk (the row loop would never end), and sampled bytes through a null
// plane or past `rows` rows of `stride` bytes are refused with a line.
bool HistArgsOk(const char* name, const uint8_t* plane, int width, int rows, int stride, int step, const uint32_t* hist,
                int64_t lastRead) {
    const bool reads = width > 0 && rows > 0;
    if (hist == nullptr || (rows > 0 && step <= 0) ||
        (reads && step > 0 && (plane == nullptr || stride < 0 || lastRead >= static_cast<int64_t>(rows) * stride))) {
        TOCRA_LOGE("%s invalid input: width[%d] rows[%d] stride[%d] step[%d]\n", name, width, rows, stride, step);
        return false;
    }
    return true;
}

}  // namespace

// The farthest sampled byte lies in the last band (it always holds the
// last row).
bool CumHistBandsReadInside(const uint8_t* plane, int width, int height, int stride, int step) {
    if (width <= 0 || height <= 0 || step <= 0) return true;
    const Band b = QuarterBand(height, kBandTasks - 1);
    const int64_t last = static_cast<int64_t>(b.first) * stride + LastRead(width, b.rows, stride, step);
    return plane != nullptr && stride >= 0 && last < static_cast<int64_t>(height) * stride;
}

}  // namespace tocra

using tocra::RowOffset;

// Rows 0, step, 2*step, ... and in them columns 0, step, ...; for step 2
// the even columns are taken sixteen at a time by de-interleaving loads.
extern "C" void GetCumHist_Neon(const uint8_t* plane, int width, int rows, int stride, int step, uint32_t* hist) {
    const int64_t last = step > 0 ? tocra::LastRead(width, rows, stride, step) : -1;
    if (!tocra::HistArgsOk("GetCumHist_Neon", plane, width, rows, stride, step, hist, last)) return;
    tocra::CumHistPlane(plane, width, rows, stride, step > 0 ? step : 1, hist, false);
}

// Every pixel, sixteen per step, scalar tail.
extern "C" void GetCumSum_NEON(const uint8_t* plane, int width, int rows, int stride, uint32_t* hist) {
    if (!tocra::HistArgsOk("GetCumSum_NEON", plane, width, rows, stride, 1, hist,
                           tocra::LastRead(width, rows, stride, 1)))
        return;
    tocra::CumHistPlane(plane, width, rows, stride, 1, hist, false);
}

namespace {

struct HistJob {
    const uint8_t* plane;
    int width;
    int height;
    int stride;
    int step;
    uint32_t* set;
};

// Task k: band k of floor(height / 4) rows (the last takes the rest) into
// its own 256 counters; subsampling restarts at the band's first row.
void HistBand(void* arg, int index) {
    const HistJob* job = static_cast<const HistJob*>(arg);
    const tocra::Band band = tocra::QuarterBand(job->height, index);
    const uint8_t* p = band.rows > 0 ? job->plane + RowOffset(band.first, job->stride) : job->plane;
    tocra::CumHistPlane(p, job->width, band.rows, job->stride, job->step, job->set + 256 * index, false);
}

// Refused (-998 and a line) as the kernels refuse, for the whole plane.
int RunHistBands(const char* name, const HistJob& job) {
    if (job.set == nullptr || (job.height > 0 && job.step <= 0) ||
        !tocra::CumHistBandsReadInside(job.plane, job.width, job.height, job.stride, job.step)) {
        TOCRA_LOGE("%s invalid input: width[%d] rows[%d] stride[%d] step[%d]\n", name, job.width, job.height,
                   job.stride, job.step);
        return TOCRA_NULL_POINTER;
    }
    HistJob j = job;
    if (j.step <= 0) j.step = 1;  // no rows: every band only clears its counters
    return tocra::RunFourBands(HistBand, &j);
}

}  // namespace

// set holds 4 x 256 counters, one cumulative histogram per band; the caller adds them.
extern "C" int GetCumHist_Neon_MT(const uint8_t* plane, int width, int height, int stride, int step, uint32_t* set) {
    return RunHistBands("GetCumHist_Neon_MT", HistJob{plane, width, height, stride, step, set});
}

extern "C" int GetCumSum_Neon_MT(const uint8_t* plane, int width, int height, int stride, uint32_t* set) {
    return RunHistBands("GetCumSum_Neon_MT", HistJob{plane, width, height, stride, 1, set});
}
