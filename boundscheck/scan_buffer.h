// The scan engine's work buffer: collects the text of one field (a
// floating-point number) so that it can be converted in one go. It starts in
// local storage and doubles onto the heap when it fills up.
#ifndef BRIMVEL_BOUNDSCHECK_SCAN_BUFFER_H
#define BRIMVEL_BOUNDSCHECK_SCAN_BUFFER_H

#include <cstddef>

namespace tocra {

constexpr size_t kScanLocalSize = 128;
// A block whose size has this bit set is never allocated: the field that
// needs it fails instead.
constexpr size_t kScanRefusedSizeBit = size_t{1} << 30;

struct ScanBuffer {
    char local[kScanLocalSize];
    char* data;   // local or the current heap block
    size_t size;  // bytes at data
    size_t used;  // bytes collected
    bool onHeap;
};

void ScanBufferInit(ScanBuffer* buf);
// Moves the contents to a block twice the size. The first move takes a
// zeroed heap block; later moves clear and free the old block. False (and
// the buffer unchanged) when the new size is refused or allocation fails.
bool ScanBufferGrow(ScanBuffer* buf);
// Appends one byte, growing when full. False when it cannot grow.
bool ScanBufferPush(ScanBuffer* buf, char c);
// Clears and frees a heap block; the buffer is back in local storage.
void ScanBufferRelease(ScanBuffer* buf);

}  // namespace tocra

#endif
