// Pictures for the warp and fill tests.
#ifndef TOCRA_TESTS_WARP_FRAMES_H
#define TOCRA_TESTS_WARP_FRAMES_H

#include <algorithm>
#include <cstring>
#include <vector>

#include "brimvel_tocra.h"
#include "support/test_support.h"

namespace tocra_test {

// One YUV 4:2:0 picture with its own planes. Planar chroma planes have
// `chromaPitch` bytes per row; NV12's interleaved plane has `pitch`.
struct Frame {
    int width = 0, height = 0, pitch = 0, chromaPitch = 0;
    bool nv12 = false;
    std::vector<uint8_t> y, u, v;
    tagST_PIC pic{};

    Frame(int w, int h, bool isNv12, int lumaPitch = 0, int cPitch = 0) {
        width = w;
        height = h;
        nv12 = isNv12;
        pitch = lumaPitch ? lumaPitch : w;
        chromaPitch = isNv12 ? pitch : (cPitch ? cPitch : w / 2);
        y.assign(static_cast<size_t>(pitch) * h, 0);
        u.assign(static_cast<size_t>(chromaPitch) * (h / 2), 0);
        if (!isNv12) v.assign(static_cast<size_t>(chromaPitch) * (h / 2), 0);
        pic = {w, h, pitch, y.data(), u.data(), isNv12 ? nullptr : v.data(), isNv12 ? 0 : TOCRA_FORMAT_YUV420};
    }
    Frame(const Frame& o) : Frame(o.width, o.height, o.nv12, o.pitch, o.chromaPitch) {
        y = o.y;
        u = o.u;
        v = o.v;
        pic.pY = y.data();
        pic.pU = u.data();
        pic.pV = nv12 ? nullptr : v.data();
    }
    Frame& operator=(const Frame&) = delete;

    void Randomize(uint32_t seed) {
        y = RandomBytes(y.size(), seed);
        u = RandomBytes(u.size(), seed + 1);
        if (!nv12) v = RandomBytes(v.size(), seed + 2);
        pic.pY = y.data();
        pic.pU = u.data();
        pic.pV = nv12 ? nullptr : v.data();
    }
    // A smooth picture: neighbouring pixels differ a little.
    void Smooth() {
        for (int r = 0; r < height; ++r)
            for (int c = 0; c < pitch; ++c)
                y[static_cast<size_t>(r) * pitch + c] = static_cast<uint8_t>((c * 3 + r * 2) & 255);
        for (size_t i = 0; i < u.size(); ++i) u[i] = static_cast<uint8_t>(i * 7);
        for (size_t i = 0; i < v.size(); ++i) v[i] = static_cast<uint8_t>(i * 11);
    }
    void Fill(uint8_t value) {
        std::fill(y.begin(), y.end(), value);
        std::fill(u.begin(), u.end(), value);
        std::fill(v.begin(), v.end(), value);
    }
    uint8_t Y(int c, int r) const { return y[static_cast<size_t>(r) * pitch + c]; }
    bool Same(const Frame& o) const { return y == o.y && u == o.u && v == o.v; }
};

// A copy of a frame's planes in one heap block of exactly their size, luma,
// then U (or the interleaved plane), then V: one frame in one buffer.
struct JoinedFrame {
    std::vector<uint8_t> block;
    tagST_PIC pic{};

    explicit JoinedFrame(const Frame& f) {
        block.resize(f.y.size() + f.u.size() + f.v.size());
        std::copy(f.y.begin(), f.y.end(), block.begin());
        std::copy(f.u.begin(), f.u.end(), block.begin() + static_cast<ptrdiff_t>(f.y.size()));
        std::copy(f.v.begin(), f.v.end(), block.begin() + static_cast<ptrdiff_t>(f.y.size() + f.u.size()));
        pic = f.pic;
        pic.pY = block.data();
        pic.pU = block.data() + f.y.size();
        pic.pV = f.nv12 ? nullptr : block.data() + f.y.size() + f.u.size();
    }
    JoinedFrame(const JoinedFrame&) = delete;
    JoinedFrame& operator=(const JoinedFrame&) = delete;
};

}  // namespace tocra_test

#endif
