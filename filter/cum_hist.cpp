// Cumulative histograms of 8-bit planes: entry v counts the pixels <= v.
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/neon.h"

namespace {

void RunningSum(uint32_t* hist) {
    for (int v = 1; v < 256; ++v) hist[v] += hist[v - 1];
}

// Four counter sets, merged at the end, so that runs of equal pixels do not
// serialise on one counter.
struct SplitCounts {
    uint32_t c[4][256];
    SplitCounts() { memset(c, 0, sizeof(c)); }
    void Count16(const uint8_t* b) {
        for (int i = 0; i < 16; i += 4) {
            ++c[0][b[i]];
            ++c[1][b[i + 1]];
            ++c[2][b[i + 2]];
            ++c[3][b[i + 3]];
        }
    }
    void MergeInto(uint32_t* hist) const {
        for (int v = 0; v < 256; ++v) hist[v] += c[0][v] + c[1][v] + c[2][v] + c[3][v];
    }
};

// Kernels check what they would read and write; a null histogram or a plane
// that cannot be read leaves everything untouched.
bool HistArgsOk(const char* name, const uint8_t* plane, int width, int rows, int stride, int step,
                const uint32_t* hist) {
    if (hist == nullptr || width < 0 || rows < 0 || step <= 0 ||
        (width > 0 && rows > 0 && (plane == nullptr || stride < width))) {
        TOCRA_LOGE("%s invalid input: width[%d] rows[%d] stride[%d] step[%d]\n", name, width, rows, stride, step);
        return false;
    }
    return true;
}

}  // namespace

namespace tocra {

void GetCumHist_C(const uint8_t* plane, int width, int rows, int stride, int step, uint32_t* hist) {
    memset(hist, 0, 256 * sizeof(uint32_t));
    for (int y = 0; y < rows; y += step) {
        const uint8_t* p = plane + RowOffset(y, stride);
        for (int x = 0; x < width; x += step) ++hist[p[x]];
    }
    RunningSum(hist);
}

void GetCumSum_C(const uint8_t* plane, int width, int rows, int stride, uint32_t* hist) {
    memset(hist, 0, 256 * sizeof(uint32_t));
    for (int y = 0; y < rows; ++y) {
        const uint8_t* p = plane + RowOffset(y, stride);
        for (int x = 0; x < width; ++x) ++hist[p[x]];
    }
    RunningSum(hist);
}

}  // namespace tocra

using tocra::RowOffset;

// Rows 0, step, 2*step, ... and in them columns 0, step, ...; for step 2
// the even columns are taken sixteen at a time by de-interleaving loads.
extern "C" void GetCumHist_Neon(const uint8_t* plane, int width, int rows, int stride, int step, uint32_t* hist) {
    if (!HistArgsOk("GetCumHist_Neon", plane, width, rows, stride, step, hist)) return;
    memset(hist, 0, 256 * sizeof(uint32_t));
    SplitCounts counts;
    uint8_t lanes[16];
    for (int y = 0; y < rows; y += step) {
        const uint8_t* p = plane + RowOffset(y, stride);
        int x = 0;
        if (step == 2) {
            // 32 source bytes per step, all inside the row.
            for (; x + 32 <= width; x += 32) {
                vst1q_u8(lanes, vld2q_u8(p + x).val[0]);
                counts.Count16(lanes);
            }
        }
        for (; x < width; x += step) ++hist[p[x]];
    }
    counts.MergeInto(hist);
    RunningSum(hist);
}

// Every pixel, sixteen per step with a prefetch ahead, scalar tail.
extern "C" void GetCumSum_NEON(const uint8_t* plane, int width, int rows, int stride, uint32_t* hist) {
    if (!HistArgsOk("GetCumSum_NEON", plane, width, rows, stride, 1, hist)) return;
    memset(hist, 0, 256 * sizeof(uint32_t));
    SplitCounts counts;
    uint8_t lanes[16];
    for (int y = 0; y < rows; ++y) {
        const uint8_t* p = plane + RowOffset(y, stride);
        int x = 0;
        for (; x + 16 <= width; x += 16) {
            __builtin_prefetch(p + x + 64);
            vst1q_u8(lanes, vld1q_u8(p + x));
            counts.Count16(lanes);
        }
        for (; x < width; ++x) ++hist[p[x]];
    }
    counts.MergeInto(hist);
    RunningSum(hist);
}

namespace {

struct HistJob {
    const uint8_t* plane;
    int width;
    int height;
    int stride;
    int step;  // 0: every pixel (GetCumSum_NEON)
    uint32_t* set;
};

// Task k: band k of floor(height / 4) rows (the last takes the rest) into
// its own 256 counters; subsampling restarts at the band's first row.
void HistBand(void* arg, int index) {
    const HistJob* job = static_cast<const HistJob*>(arg);
    const tocra::Band band = tocra::QuarterBand(job->height, index);
    const uint8_t* p = job->plane + RowOffset(band.first, job->stride);
    uint32_t* hist = job->set + 256 * index;
    if (job->step == 0) {
        GetCumSum_NEON(p, job->width, band.rows, job->stride, hist);
    } else {
        GetCumHist_Neon(p, job->width, band.rows, job->stride, job->step, hist);
    }
}

int RunHistBands(const char* name, const HistJob& job) {
    if (!HistArgsOk(name, job.plane, job.width, job.height, job.stride, job.step == 0 ? 1 : job.step, job.set)) {
        return TOCRA_NULL_POINTER;
    }
    HistJob j = job;
    return tocra::RunFourBands(HistBand, &j);
}

}  // namespace

// set holds 4 x 256 counters, one cumulative histogram per band; the caller adds them.
extern "C" int GetCumHist_Neon_MT(const uint8_t* plane, int width, int height, int stride, int step, uint32_t* set) {
    if (step <= 0) {
        TOCRA_LOGE("%s invalid input: width[%d] rows[%d] stride[%d] step[%d]\n", "GetCumHist_Neon_MT", width, height,
                   stride, step);
        return TOCRA_NULL_POINTER;
    }
    return RunHistBands("GetCumHist_Neon_MT", HistJob{plane, width, height, stride, step, set});
}

extern "C" int GetCumSum_Neon_MT(const uint8_t* plane, int width, int height, int stride, uint32_t* set) {
    return RunHistBands("GetCumSum_Neon_MT", HistJob{plane, width, height, stride, 0, set});
}
