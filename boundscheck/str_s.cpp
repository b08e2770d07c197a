// strcpy_s and strncpy_s: byte-by-byte copies that stop at the destination's
// size and notice when the copy runs into its own source.
#include "boundscheck/safe_internal.h"
#include "brimvel_tocra.h"

using tocra::SizeOutOfRange;

namespace {

// Copies at most `count` characters (or up to the NUL when count is 0,
// meaning unlimited) into dst of dstSize bytes. Overlap is found during the
// copy: when dst lies above src, the read position reaching dst is an
// overlap; when dst lies below src, the write position reaching src is.
int CopyString(char* dst, size_t dstSize, const char* src, size_t count, bool limited) {
    char* d = dst;
    const char* s = src;
    size_t room = dstSize;
    size_t left = count;
    const bool dstBelow = dst < src;
    while (room > 0) {
        if (dstBelow ? (d == src) : (s == dst)) {
            dst[0] = '\0';
            return TOCRA_EOVERLAP_AND_RESET;
        }
        *d = *s;
        if (*d == '\0') return TOCRA_EOK;
        ++d;
        ++s;
        --room;
        if (room == 0) break;
        if (limited && --left == 0) {
            // The terminator is a write like any other: when it would land
            // on the source's first byte, the regions overlap.
            if (dstBelow && d == src) {
                dst[0] = '\0';
                return TOCRA_EOVERLAP_AND_RESET;
            }
            *d = '\0';
            return TOCRA_EOK;
        }
    }
    dst[0] = '\0';
    return TOCRA_ERANGE_AND_RESET;
}

}  // namespace

extern "C" int strcpy_s(char* dst, size_t dstSize, const char* src) {
    if (SizeOutOfRange(dstSize)) return TOCRA_ERANGE;
    if (dst == nullptr) return TOCRA_EINVAL;
    if (src == nullptr) {
        dst[0] = '\0';
        return TOCRA_EINVAL_AND_RESET;
    }
    if (dst == src) return TOCRA_EOK;
    return CopyString(dst, dstSize, src, 0, false);
}

extern "C" int strncpy_s(char* dst, size_t dstSize, const char* src, size_t count) {
    if (SizeOutOfRange(dstSize)) return TOCRA_ERANGE;
    if (dst == nullptr) return TOCRA_EINVAL;
    if (src == nullptr) {
        dst[0] = '\0';
        return TOCRA_EINVAL_AND_RESET;
    }
    if (count > tocra::kMaxSafeSize) {  // negative when read as signed
        dst[0] = '\0';
        return TOCRA_ERANGE_AND_RESET;
    }
    if (count == 0) {
        dst[0] = '\0';
        return TOCRA_EOK;
    }
    return CopyString(dst, dstSize, src, count, true);
}
