// Work buffer of the scan engine: local storage first, then heap blocks of
// twice the size, copied with memcpy_s and cleared with memset_s.
#include "boundscheck/scan_buffer.h"

#include <cstdlib>

#include "brimvel_tocra.h"
#include "frame/platform.h"

namespace tocra {

void ScanBufferInit(ScanBuffer* buf) {
    buf->data = buf->local;
    buf->size = kScanLocalSize;
    buf->used = 0;
    buf->onHeap = false;
}

bool ScanBufferGrow(ScanBuffer* buf) {
    const size_t newSize = buf->size * 2;
    // Sizes are powers of two below 2^30, so the doubled size cannot wrap;
    // the second test guards a buffer that was set up by hand.
    if ((newSize & kScanRefusedSizeBit) != 0 || newSize < buf->size) return false;
    char* block = static_cast<char*>(buf->onHeap ? platform_malloc(newSize) : platform_calloc(newSize, 1));
    if (block == nullptr) return false;
    if (memcpy_s(block, newSize, buf->data, buf->used) != TOCRA_EOK) {
        platform_free(block);
        return false;
    }
    if (buf->onHeap) {
        memset_s(buf->data, buf->size, 0, buf->size);
        platform_free(buf->data);
    }
    buf->data = block;
    buf->size = newSize;
    buf->onHeap = true;
    return true;
}

bool ScanBufferPush(ScanBuffer* buf, char c) {
    if (buf->used == buf->size && !ScanBufferGrow(buf)) return false;
    buf->data[buf->used++] = c;
    return true;
}

void ScanBufferRelease(ScanBuffer* buf) {
    if (buf->onHeap) {
        memset_s(buf->data, buf->size, 0, buf->size);
        platform_free(buf->data);
    }
    ScanBufferInit(buf);
}

}  // namespace tocra
