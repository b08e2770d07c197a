// memcpy_s, memmove_s, memset_s. Checks run in a fixed order and the first
// that fires decides the result; errors that reset leave the destination
// in a defined state.
#include <cstring>

#include "boundscheck/safe_internal.h"
#include "brimvel_tocra.h"

using tocra::SizeOutOfRange;

namespace {

constexpr int kCopyMayGoAhead = -1;

// The checks that both copies make first, in this order; a source that is
// missing or too long resets the destination. kCopyMayGoAhead when none
// fires.
int CopyChecks(void* dst, size_t dstSize, const void* src, size_t count) {
    if (SizeOutOfRange(dstSize)) return TOCRA_ERANGE;
    if (dst == nullptr) return TOCRA_EINVAL;
    if (src == nullptr) {
        memset(dst, 0, dstSize);
        return TOCRA_EINVAL_AND_RESET;
    }
    if (count > dstSize) {
        memset(dst, 0, dstSize);
        return TOCRA_ERANGE_AND_RESET;
    }
    return kCopyMayGoAhead;
}

}  // namespace

extern "C" int memcpy_s(void* dst, size_t dstSize, const void* src, size_t count) {
    const int status = CopyChecks(dst, dstSize, src, count);
    if (status != kCopyMayGoAhead) return status;
    if (dst == src) return TOCRA_EOK;
    if (tocra::Overlap(dst, src, count)) {
        memset(dst, 0, dstSize);
        return TOCRA_EOVERLAP_AND_RESET;
    }
    if (count > 0) memcpy(dst, src, count);
    return TOCRA_EOK;
}

extern "C" int memmove_s(void* dst, size_t dstSize, const void* src, size_t count) {
    const int status = CopyChecks(dst, dstSize, src, count);
    if (status != kCopyMayGoAhead) return status;
    if (dst == src || count == 0) return TOCRA_EOK;
    memmove(dst, src, count);
    return TOCRA_EOK;
}

extern "C" int memset_s(void* dst, size_t dstSize, int value, size_t count) {
    if (SizeOutOfRange(dstSize)) return TOCRA_ERANGE;
    if (dst == nullptr) return TOCRA_EINVAL;
    if (count <= dstSize) {
        memset(dst, value, count);
        return TOCRA_EOK;
    }
    memset(dst, value, dstSize);
    return TOCRA_ERANGE_AND_RESET;
}
