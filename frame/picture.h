// Geometry rules of the pictures that cross the interface.
#ifndef BRIMVEL_FRAME_PICTURE_H
#define BRIMVEL_FRAME_PICTURE_H

#include "frame/numeric.h"

namespace tocra {

// Pitch of a planar chroma plane of a picture `width` pixels wide.
constexpr int ChromaPitch128(int width) { return Pitch128(width / 2); }

}  // namespace tocra

#endif
