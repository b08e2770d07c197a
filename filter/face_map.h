// The face weight map shared by the two box-filter entry points: a plane
// filled with a background value, face rectangles (enlarged by a margin)
// painted with the adjustment value, then box-smoothed in place.
#ifndef BRIMVEL_FILTER_FACE_MAP_H
#define BRIMVEL_FILTER_FACE_MAP_H

#include <cstdint>

#include "frame/hooks.h"

namespace tocra {

struct FaceMap {
    uint8_t* map;          // stride * height bytes
    const uint8_t* faces;  // faceNum FaceInfo records (60 bytes each), any alignment
    uint8_t* work;         // box filter work area
    int32_t workSize;
    int32_t faceNum;
    int32_t ratio;   // nFaceAjustRatio
    int32_t margin;  // nMargin
    int32_t width;
    int32_t height;
    int32_t stride;  // width rounded up to a multiple of 128
    int32_t radius;  // nSmoothRadius
};

// The map of a request: its map, face and work buffers converted from their
// handles in that order (null where a handle does not convert), its face
// and smoothing fields copied; the stride is left to the caller. The two
// requests name the map handle and its size differently, hence the three
// arguments beside the request.
template <typename Request>
FaceMap FaceMapOf(const Request& p, uint32_t hMap, int32_t width, int32_t height) {
    FaceMap m;
    m.map = static_cast<uint8_t*>(ConvertAddr(hMap));
    m.faces = static_cast<const uint8_t*>(ConvertAddr(p.hFaces));
    m.work = static_cast<uint8_t*>(ConvertAddr(p.hWork));
    m.workSize = p.workSize;
    m.faceNum = p.faceNum;
    m.ratio = p.nFaceAjustRatio;
    m.margin = p.nMargin;
    m.width = width;
    m.height = height;
    m.stride = 0;
    m.radius = p.nSmoothRadius;
    return m;
}

// Sets the map stride (width rounded up to a multiple of 128) and refuses
// sizes whose map could not be addressed (width or height not positive,
// stride * height past 2^31 - 1) and negative face counts: logs
// "<api> invalid map: ..." and answers -998.
int PrepareFaceMap(const char* api, FaceMap& m);

// Fills the map with `background`, paints every face (one log line each)
// and logs the ratio.
void PaintFaceMap(const FaceMap& m, uint8_t background);

// Starts the pool, logs the face parameters and, when the ratio is below
// 255 and there are faces, smooths the map in place (timed). Returns 0,
// -997 when the pool did not start, or the filter's own failure code; the
// pool keeps running after a filter failure.
int StartPoolAndSmooth(const FaceMap& m);

}  // namespace tocra

#endif
