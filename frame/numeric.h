// Small numeric rules that every kernel, plain or vector, and every
// processor must apply identically. One definition each; tested once
// (tests/frame/numeric_test.cpp).
#ifndef BRIMVEL_FRAME_NUMERIC_H
#define BRIMVEL_FRAME_NUMERIC_H

#include <cstdint>

namespace tocra {

// Float to int32 by truncation toward zero, saturating at the int32 range,
// NaN to 0: what the ARM conversion instruction does, made defined
// everywhere (a plain cast is undefined outside the range).
inline int32_t TruncSatToInt32(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483648.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}
inline int32_t TruncSatToInt32(float v) { return TruncSatToInt32(static_cast<double>(v)); }

// An int clamped to 0..255.
inline uint8_t ClampToByte(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// An int clamped to -128..127.
inline int8_t ClampToInt8(int v) { return static_cast<int8_t>(v < -128 ? -128 : (v > 127 ? 127 : v)); }

// v / 2^shift rounded half up (an arithmetic shift of v + 2^(shift-1)), as
// the NEON rounding shifts (vrshr, vrshrn) do it; shift >= 1. The sum is
// formed in 64 bits, so it does not overflow for any int32 v.
inline int32_t RoundShift(int32_t v, int shift) {
    return static_cast<int32_t>((static_cast<int64_t>(v) + (int64_t{1} << (shift - 1))) >> shift);
}

// Row pitch of a plane: the width rounded up to a multiple of 128 bytes.
// Unsigned arithmetic: widths near the top of the int range wrap instead of
// overflowing; callers check sizes before they rely on the result.
constexpr int Pitch128(int width) { return static_cast<int>((static_cast<unsigned>(width) + 127u) & ~127u); }

}  // namespace tocra

#endif
