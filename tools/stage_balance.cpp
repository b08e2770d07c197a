// Brightness balance between the reference and one frame: the library
// returns the two cumulative luma histograms and the joint point of the
// intensity mapping between them.
#include <chrono>
#include <cstring>

#include "stages.h"
#include "util.h"

namespace demo {

Balance BalanceFrames(const YuvFrame& reference, const YuvFrame& frame, LibraryLog& log) {
    Balance b;
    GraphicBuffer result(sizeof(FrameBalanceResult));

    FrameBalanceParams params;
    params.hFrameA = reference.lumaHandle();
    params.hFrameB = frame.lumaHandle();
    params.hOutput = result.handle();
    params.width = reference.width();
    params.height = reference.height();
    params.stride = reference.lumaPitch();  // both frames share one layout

    const auto start = std::chrono::steady_clock::now();
    b.call.status = CallLogged(log, &b.call.errors, [&] { return CalcuFrameBalance_TocraAPI(&params); });
    b.call.ms = MsSince(start);
    if (b.call.status == TOCRA_OK) memcpy(&b.result, result.data(), sizeof b.result);
    return b;
}

}  // namespace demo
