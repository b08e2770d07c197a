#include <cstring>
#include <vector>

#include "filter_test_util.h"

namespace {

using tocra_test::Logged;

const char kDestroyLines[] =
    "=================After sem_wait=================\n=================After sem_post=================\n"
    "=================After pthread_join=================\n";

FaceInfo Face(int left, int top, int right, int bottom) {
    FaceInfo f{};
    f.left = left;
    f.top = top;
    f.right = right;
    f.bottom = bottom;
    return f;
}

// A pipeline-side request with its three buffers behind a handle table.
struct Request {
    tocra_test::HandleTable table;
    std::vector<uint8_t> map;
    std::vector<FaceInfo> faces;
    std::vector<uint32_t> work;
    BoxFilterApiParams p{};
    std::string out;

    Request(int w, int h, std::vector<FaceInfo> f, int ratio, int margin, int radius, uint8_t background = 0x40)
        : map(static_cast<size_t>((w + 127) & ~127) * h, 0xEE), faces(std::move(f)), work(1 << 16) {
        table.Install();
        p.hOutput = table.Add(map.data());
        p.hFaces = table.Add(faces.empty() ? static_cast<void*>(work.data()) : faces.data());
        p.hWork = table.Add(work.data());
        p.workSize = static_cast<int>(work.size() * 4);
        p.faceNum = static_cast<int>(faces.size());
        p.nFaceAjustRatio = ratio;
        p.nMargin = margin;
        p.width = w;
        p.height = h;
        p.nSmoothRadius = radius;
        p.background = background;
    }
    int Run() {
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
        int status = 0;
        out = tocra_test::CaptureStdout([&] { status = BoxFilter_TocraAPI(&p); });
        return status;
    }
    int stride() const { return (p.width + 127) & ~127; }
    bool Flushed() const { return tocra_test::Flushed(map.data(), map.size()); }
    uint8_t at(int x, int y) const { return map[static_cast<size_t>(y) * stride() + x]; }
};

TEST(BoxFilterApi, NoFacesGivesTheBackgroundAndStillCyclesThePool) {
    Request r(100, 40, {}, 10, 2, 3, 0x33);
    EXPECT_EQ(r.Run(), TOCRA_OK);
    EXPECT_EQ(r.map, std::vector<uint8_t>(r.map.size(), 0x33));  // padding included
    EXPECT_NE(r.out.find(std::string(kDestroyLines) + kDestroyLines + kDestroyLines + kDestroyLines),
              std::string::npos);
    EXPECT_TRUE(r.Flushed());
    EXPECT_TRUE(Logged(4, "[Face Parameter] face_num:0 nFaceAjustRatio:10 nSmoothRadius:3, nMargin:2"));
    EXPECT_FALSE(Logged(4, "BoxFilter BoxFiltering_neon start\n"));
    EXPECT_TRUE(Logged(4, "exit func BoxFilter_TocraAPI\n"));
}

TEST(BoxFilterApi, RatioAtLeast255PaintsHardRectanglesWithMarginsAndClipping) {
    // Faces in full resolution: halved, enlarged by 2, clipped to 60 x 30.
    Request r(60, 30,
              {Face(20, 10, 30, 16),     // -> x 8..17, y 3..10
               Face(-9, -3, 4, 2),       // -9>>1 = -5: clipped to x 0..4, y 0..3
               Face(110, 50, 140, 90),   // clipped to x 53..59, y 23..29
               Face(200, 10, 220, 20)},  // right of the map: nothing
              0x1FF, 2, 3);
    EXPECT_EQ(r.Run(), TOCRA_OK);
    auto inside = [](int x, int y) {
        return (x >= 8 && x < 17 && y >= 3 && y < 10) || (x < 4 && y < 3) || (x >= 53 && y >= 23);
    };
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 60; ++x) ASSERT_EQ(r.at(x, y), inside(x, y) ? 0xFF : 0x40) << x << "," << y;
    EXPECT_TRUE(Logged(4, "faceRect[1] = (-9, -3), - (4, 2).\n"));
    EXPECT_TRUE(Logged(4, "nFaceAjustRatio = 0x1ff\n"));
    EXPECT_FALSE(Logged(4, "BoxFilter BoxFiltering_neon start\n"));
}

TEST(BoxFilterApi, NegativeMarginShrinksAndEmptyRectanglesPaintNothing) {
    Request r(40, 20, {Face(10, 10, 30, 30), Face(10, 10, 12, 12)}, 255, -3, 1);
    EXPECT_EQ(r.Run(), TOCRA_OK);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 40; ++x) ASSERT_EQ(r.at(x, y), (x >= 8 && x < 12 && y >= 8 && y < 12) ? 255 : 0x40);
}

TEST(BoxFilterApi, SmoothedMapEqualsTheFilterOfThePaintedMap) {
    const int w = 90, h = 48, radius = 3;
    Request hard(w, h, {Face(40, 30, 80, 60)}, 255, 1, radius);
    ASSERT_EQ(hard.Run(), TOCRA_OK);
    Request smooth(w, h, {Face(40, 30, 80, 60)}, 200, 1, radius);
    ASSERT_EQ(smooth.Run(), TOCRA_OK);
    std::vector<uint8_t> painted = hard.map;
    for (auto& v : painted) v = v == 255 ? 200 : v;
    std::vector<uint32_t> work(1 << 16);
    tocra_test::CaptureStdout([&] {
        EXPECT_EQ(BoxFiltering_neon(painted.data(), painted.data(), w, 128, h, radius,
                                    reinterpret_cast<uint8_t*>(work.data()), 1 << 18),
                  0);
    });
    for (int y = 0; y < h; ++y) ASSERT_EQ(0, memcmp(&painted[y * 128], &smooth.map[y * 128], w)) << y;
    EXPECT_TRUE(Logged(4, "BoxFilter BoxFiltering_neon start\n"));
    EXPECT_NE(smooth.out.find("           BoxFiltering_neon time:"), std::string::npos);
    EXPECT_TRUE(Logged(4, "exit func BoxFilter_TocraAPI\n"));
    EXPECT_TRUE(smooth.Flushed());
}

TEST(BoxFilterApi, FilterFailurePassesThroughAndLeavesThePainting) {
    Request r(16, 40, {Face(0, 0, 10, 10)}, 100, 0, 8);  // width 16 = 2R
    EXPECT_EQ(r.Run(), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxFilter BoxFiltering_neon error -998\n"));
    EXPECT_EQ(r.at(0, 0), 100);
    EXPECT_EQ(r.at(6, 6), 0x40);
    EXPECT_TRUE(tocra_test::Flushes().empty());
    filter_test::StopPool();  // the failure path leaves the pool running
}

TEST(BoxFilterApi, EachHandleFailingInTurn) {
    for (int which = 0; which < 3; ++which) {
        Request r(64, 40, {Face(10, 10, 30, 30)}, 100, 1, 1);
        const uint32_t h[3] = {r.p.hOutput, r.p.hFaces, r.p.hWork};
        r.table.Break(h[which]);
        const std::vector<uint8_t> before = r.map;
        const int status = r.Run();
        if (which < 2) {
            EXPECT_EQ(status, TOCRA_THREAD_FAILED);
            EXPECT_TRUE(Logged(4, "BoxfilterYuv2RgbHist convert addr pointer error\n"));
            EXPECT_EQ(r.map, before);
        } else {
            // A missing work area only matters when the filter runs.
            EXPECT_EQ(status, TOCRA_NULL_POINTER);
            EXPECT_TRUE(Logged(6, "BoxFiltering_neon null pointer: src, dst and work must all be set\n"));
            filter_test::StopPool();
        }
    }
    Request r(64, 40, {Face(10, 10, 30, 30)}, 255, 1, 1);
    r.table.Break(r.p.hWork);
    EXPECT_EQ(r.Run(), TOCRA_OK);
}

TEST(BoxFilterApi, BadRequestsAreRefused) {
    tocra_test::ClearLog();
    EXPECT_EQ(BoxFilter_TocraAPI(nullptr), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxFilter_TocraAPI null request\n"));
    // A negative map size, or one past 2^31 - 1.
    struct Case {
        int w, h, faces;
    } cases[] = {{10, -1, 0}, {0x7FFFFFF0, 2, 0}, {1 << 20, 1 << 12, 0}};
    for (const Case& c : cases) {
        Request r(8, 8, {}, 10, 0, 0);
        const std::vector<uint8_t> before = r.map;
        r.p.width = c.w;
        r.p.height = c.h;
        r.p.faceNum = c.faces;
        EXPECT_EQ(r.Run(), -998) << c.w << "x" << c.h;
        EXPECT_TRUE(Logged(6, "BoxFilter_TocraAPI invalid map: width[" + std::to_string(c.w) + "] height[" +
                                  std::to_string(c.h) + "] face_num[" + std::to_string(c.faces) + "]\n"));
        EXPECT_EQ(r.map, before);
    }
}

// A map of no bytes (stride 0 for widths -127..0, or no rows) has nothing to
// paint: the pool is cycled, no filter runs without faces, and 0 comes back.
TEST(BoxFilterApi, EmptyMapsAreNothingToDo) {
    const int sizes[][2] = {{0, 10}, {-5, 10}, {10, 0}};
    for (const auto& s : sizes) {
        Request r(8, 8, {}, 10, 0, 0);
        const std::vector<uint8_t> before = r.map;
        r.p.width = s[0];
        r.p.height = s[1];
        EXPECT_EQ(r.Run(), 0) << s[0] << "x" << s[1];
        EXPECT_EQ(r.map, before);
        EXPECT_TRUE(Logged(4, "exit func BoxFilter_TocraAPI\n"));
    }
    // With faces and a ratio below 255 the filter runs and refuses the size.
    Request r(8, 8, {Face(0, 0, 4, 4)}, 10, 0, 1);
    r.p.width = 0;
    EXPECT_EQ(r.Run(), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "BoxFiltering_neon 2895 Input width[0] or height/4[8] less than 2*R[2]!\n"));
    filter_test::StopPool();
}

// A negative face count paints no face, but it is not zero: the filter runs.
TEST(BoxFilterApi, NegativeFaceCountStillSmooths) {
    Request r(64, 40, {}, 10, 0, 1, 0x40);
    r.p.faceNum = -1;
    EXPECT_EQ(r.Run(), TOCRA_OK);
    EXPECT_TRUE(Logged(4, "[Face Parameter] face_num:-1 nFaceAjustRatio:10 nSmoothRadius:1, nMargin:0"));
    EXPECT_TRUE(Logged(4, "BoxFilter BoxFiltering_neon start\n"));
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 64; ++x) ASSERT_EQ(r.at(x, y), 0x40);
}

}  // namespace
