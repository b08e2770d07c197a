// Band bookkeeping shared by the multi-threaded filter stages.
#ifndef BRIMVEL_FILTER_BANDS_H
#define BRIMVEL_FILTER_BANDS_H

#include <cstddef>
#include <cstdint>

#include "brimvel_tocra.h"

namespace tocra {

constexpr int kBandTasks = 4;

// Rows [first, first + rows) of one band.
struct Band {
    int first;
    int rows;
};

// Four bands of `band` rows each; the last takes whatever remains.
inline Band SplitBand(int height, int band, int k) {
    const int first = k * band;
    const int rows = k < kBandTasks - 1 ? band : height - first;
    return Band{first, rows < 0 ? 0 : rows};
}

// The usual split: floor(height / 4) rows per band, the last takes the rest.
inline Band QuarterBand(int height, int k) { return SplitBand(height, height / 4, k); }

// Hands task(job, k) to pool slots k = 0..3 (wait, set, post in that order),
// then collects the slots with MultiThread_clean(0..3) and returns the last
// clean-up's result. A slot the pool cannot take (the pool was not started
// by the caller) runs its band on the calling thread instead, so that the
// kernels never leave a band unwritten.
int RunFourBands(MultiThreadCallback task, void* job);

// Byte offset of row `row` in a plane of pitch `pitch`, in the address type.
inline size_t RowOffset(int row, int pitch) { return static_cast<size_t>(row) * static_cast<size_t>(pitch); }

}  // namespace tocra

#endif
