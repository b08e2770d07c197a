// Shared rules of the bounds-checked functions.
#ifndef BRIMVEL_BOUNDSCHECK_SAFE_INTERNAL_H
#define BRIMVEL_BOUNDSCHECK_SAFE_INTERNAL_H

#include <cstddef>
#include <cstdint>

namespace tocra {

// Sizes are tested as signed 32-bit values first: 0, or anything above
// 2147483647, is out of range.
constexpr size_t kMaxSafeSize = 2147483647u;
inline bool SizeOutOfRange(size_t size) { return size == 0 || size > kMaxSafeSize; }

// True when [a, a+count) and [b, b+count) share a byte and a != b. Written
// with differences so that a region near the top of the address space does
// not wrap around.
inline bool Overlap(const void* a, const void* b, size_t count) {
    const uintptr_t pa = reinterpret_cast<uintptr_t>(a), pb = reinterpret_cast<uintptr_t>(b);
    return (pb < pa && pa - pb < count) || (pa < pb && pb - pa < count);
}

}  // namespace tocra

#endif
