// Geometry rules of the pictures that cross the interface.
#ifndef BRIMVEL_FRAME_PICTURE_H
#define BRIMVEL_FRAME_PICTURE_H

namespace tocra {

// Row pitch of a plane: the width rounded up to a multiple of 128 bytes.
// Unsigned arithmetic: widths near the top of the int range wrap instead of
// overflowing; callers check sizes before they rely on the result.
constexpr int Pitch128(int width) { return static_cast<int>((static_cast<unsigned>(width) + 127u) & ~127u); }

// Pitch of a planar chroma plane of a picture `width` pixels wide.
constexpr int ChromaPitch128(int width) { return Pitch128(width / 2); }

}  // namespace tocra

#endif
