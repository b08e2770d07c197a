// Every exported entry point as a pipeline calls it: each of its handles
// failing to convert in turn, null records, sizes and counts it cannot work
// with, and repeated calls that must not grow the heap. Buffers are exactly
// as large as the caller contract says, so the sanitizer builds see any
// access past them.
#include <malloc.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

using tocra_test::HandleTable;

// One entry point with valid buffers behind a handle table.
struct Call {
    std::string name;
    std::function<int()> run;
    std::vector<std::function<uint32_t()>> handles;  // read the request's handle fields
};

struct BoxFilterCase {
    static constexpr int W = 64, H = 48, R = 2, Stride = 128;
    std::vector<uint8_t> map = std::vector<uint8_t>(Stride * H);
    std::vector<FaceInfo> faces = std::vector<FaceInfo>(1);
    std::vector<uint8_t> work = std::vector<uint8_t>(W * H * 4 + Stride * (2 * R + (H + 3) / 4) * 4);
    BoxFilterApiParams p{};
    void Init(HandleTable& t) {
        faces[0].left = 20;
        faces[0].top = 16;
        faces[0].right = 60;
        faces[0].bottom = 50;
        p = {t.Add(map.data()),
             t.Add(faces.data()),
             t.Add(work.data()),
             static_cast<int32_t>(work.size()),
             1,
             64,
             2,
             W,
             H,
             R,
             10};
    }
};

struct YuvHistCase {
    static constexpr int W = 128, H = 64, Stride = 128, MapW = 64, MapH = 32, MapStride = 128, R = 2;
    static constexpr int S = (H / 2) * 128;
    std::vector<uint8_t> map = std::vector<uint8_t>(MapStride * MapH);
    std::vector<FaceInfo> faces = std::vector<FaceInfo>(1);
    std::vector<uint8_t> work = std::vector<uint8_t>(MapW * MapH * 4 + MapStride * (2 * R + (MapH + 3) / 4) * 4);
    std::vector<uint8_t> source = tocra_test::RandomBytes(H * Stride + (H / 2) * Stride, 5);
    std::vector<uint8_t> dest = std::vector<uint8_t>(4 * S + 4096 + H * Stride + 4);
    BoxfilterYuvParams p{};
    void Init(HandleTable& t) {
        faces[0].left = 10;
        faces[0].top = 10;
        faces[0].right = 40;
        faces[0].bottom = 30;
        p = {t.Add(map.data()),
             t.Add(faces.data()),
             t.Add(work.data()),
             static_cast<int32_t>(work.size()),
             1,
             64,
             2,
             MapW,
             MapH,
             R,
             0,
             t.Add(source.data()),
             t.Add(dest.data()),
             W,
             H,
             Stride};
    }
};

struct BalanceCase {
    static constexpr int W = 64, H = 48;
    std::vector<uint8_t> a = tocra_test::RandomBytes(W * H, 1), b = tocra_test::RandomBytes(W * H, 2);
    std::vector<uint8_t> out = std::vector<uint8_t>(sizeof(FrameBalanceResult));
    FrameBalanceParams p{};
    void Init(HandleTable& t) { p = {t.Add(a.data()), t.Add(b.data()), t.Add(out.data()), W, H, W}; }
};

struct BriefCase {
    static constexpr int W = 96, H = 96;
    std::vector<uint8_t> image = tocra_test::RandomBytes(W * H, 3);
    std::vector<tagST_KEYPOINT> keys = {{48 * 64, 48 * 64, 0}, {40 * 64, 50 * 64, 0}};
    std::vector<uint8_t> desc = std::vector<uint8_t>(2 * 64);
    tagST_BRIEF_REQUEST p{};
    void Init(HandleTable& t) { p = {t.Add(image.data()), 0, t.Add(keys.data()), t.Add(desc.data()), W, H, W, 2}; }
};

// A 64x64 planar registration of a frame shifted by (2, 1) pixels.
struct RegistrationCase {
    static constexpr int W = 128, H = 64, N = 40;
    static constexpr int Pitch = 128, CPitch = 128;
    std::vector<uint8_t> refY = tocra_test::RandomBytes(Pitch * H, 7), refU = std::vector<uint8_t>(CPitch * H / 2, 128),
                         refV = std::vector<uint8_t>(CPitch * H / 2, 128);
    std::vector<uint8_t> srcY = tocra_test::RandomBytes(Pitch * H, 8), srcU = std::vector<uint8_t>(CPitch * H / 2, 128),
                         srcV = std::vector<uint8_t>(CPitch * H / 2, 128);
    std::vector<uint8_t> outY = std::vector<uint8_t>(Pitch * H), outU = std::vector<uint8_t>(CPitch * H / 2),
                         outV = std::vector<uint8_t>(CPitch * H / 2);
    std::vector<tagST_KEYPOINT> refKeys, matchKeys;
    std::vector<uint16_t> query, train;
    std::vector<float> dist = std::vector<float>(N), refPts = std::vector<float>(2 * N),
                       matchPts = std::vector<float>(2 * N);
    tagST_RANSAC_REQUEST ransac{};
    tagST_REGIS_INPUT_RECORD in{};
    tagST_REGIS_OUTPUT_RECORD out{};
    tagST_RANSAC_REGIS_REQUEST combined{};
    tagST_REGISTRATION_REQUEST reg{};
    void Init(HandleTable& t) {
        refKeys.clear();
        matchKeys.clear();
        query.clear();
        train.clear();
        for (int i = 0; i < N; ++i) {
            const int x = 8 + (i * 37) % 110, y = 6 + (i * 23) % 50;
            refKeys.push_back({x * 64, y * 64, 0});
            matchKeys.push_back({(x + 2) * 64, (y + 1) * 64, 0});
            query.push_back(static_cast<uint16_t>(i));
            train.push_back(static_cast<uint16_t>(i));
        }
        ransac = {t.Add(refPts.data()),
                  t.Add(matchPts.data()),
                  N,
                  t.Add(query.data()),
                  t.Add(train.data()),
                  t.Add(dist.data()),
                  N,
                  1,
                  0,
                  t.Add(refKeys.data()),
                  t.Add(matchKeys.data())};
        in.refPic = {W, H, 0, t.Add(refY.data()), t.Add(refU.data()), t.Add(refV.data()), TOCRA_FORMAT_YUV420};
        in.srcPic = {W, H, 0, t.Add(srcY.data()), t.Add(srcU.data()), t.Add(srcV.data()), 0};
        in.framePairs[1] = {ransac.refPointBuf, ransac.matchPointBuf, 0};
        out.outPic[2] = {W, H, 0, t.Add(outY.data()), t.Add(outU.data()), t.Add(outV.data()), 0};
        combined = {t.Add(&ransac), t.Add(&in), t.Add(&out), 2};
        reg = {&in, &out, 2};
    }
};

std::string ConfigDir() { return std::string(TOCRA_SOURCE_DIR) + "/data/"; }

struct AllCases {
    HandleTable table;
    BoxFilterCase box;
    YuvHistCase yuv;
    BalanceCase balance;
    BriefCase brief;
    RegistrationCase reg;
    _stXmlConfigInfoHdr config{};
    std::string dir = ConfigDir();
    tagST_XML_PARSE_REQUEST xml{};

    AllCases() { Reset(); }
    void Reset() {
        table.Install();
        box.Init(table);
        yuv.Init(table);
        balance.Init(table);
        brief.Init(table);
        reg.Init(table);
        xml = {table.Add(&config), dir.c_str()};
    }
    std::vector<Call> Calls() {
        return {
            {"BoxFilter_TocraAPI",
             [this] { return BoxFilter_TocraAPI(&box.p); },
             {[this] { return static_cast<uint32_t>(box.p.hOutput); },
              [this] { return static_cast<uint32_t>(box.p.hFaces); },
              [this] { return static_cast<uint32_t>(box.p.hWork); }}},
            {"BoxfilterYuv2RgbHist_TocraAPI",
             [this] { return BoxfilterYuv2RgbHist_TocraAPI(&yuv.p); },
             {[this] { return static_cast<uint32_t>(yuv.p.hMap); },
              [this] { return static_cast<uint32_t>(yuv.p.hFaces); },
              [this] { return static_cast<uint32_t>(yuv.p.hWork); },
              [this] { return static_cast<uint32_t>(yuv.p.hSource); },
              [this] { return static_cast<uint32_t>(yuv.p.hDest); }}},
            {"CalcuFrameBalance_TocraAPI",
             [this] { return CalcuFrameBalance_TocraAPI(&balance.p); },
             {[this] { return static_cast<uint32_t>(balance.p.hFrameA); },
              [this] { return static_cast<uint32_t>(balance.p.hFrameB); },
              [this] { return static_cast<uint32_t>(balance.p.hOutput); }}},
            {"GetBrief_Descriptors_TocraAPI",
             [this] { return GetBrief_Descriptors_TocraAPI(&brief.p); },
             {[this] { return static_cast<uint32_t>(brief.p.hImage); },
              [this] { return static_cast<uint32_t>(brief.p.hKeyPoints); },
              [this] { return static_cast<uint32_t>(brief.p.hDescriptors); }}},
            {"RansacEst_TocraAPI",
             [this] {
                 reg.ransac.pointNum = RegistrationCase::N;
                 return RansacEst_TocraAPI(&reg.ransac);
             },
             {[this] { return static_cast<uint32_t>(reg.ransac.refPointBuf); },
              [this] { return static_cast<uint32_t>(reg.ransac.matchPointBuf); },
              [this] { return static_cast<uint32_t>(reg.ransac.queryIdx); },
              [this] { return static_cast<uint32_t>(reg.ransac.trainIdx); },
              [this] { return static_cast<uint32_t>(reg.ransac.pDistance); },
              [this] { return static_cast<uint32_t>(reg.ransac.refKeypoints); },
              [this] { return static_cast<uint32_t>(reg.ransac.matchKeypoints); }}},
            {"Ransac_Regis_TocraAPI",
             [this] {
                 reg.ransac.pointNum = RegistrationCase::N;
                 return Ransac_Regis_TocraAPI(&reg.combined);
             },
             {[this] { return static_cast<uint32_t>(reg.combined.hRansacRequest); },
              [this] { return static_cast<uint32_t>(reg.combined.hInput); },
              [this] { return static_cast<uint32_t>(reg.combined.hOutput); },
              [this] { return static_cast<uint32_t>(reg.in.srcPic.hY); },
              [this] { return static_cast<uint32_t>(reg.in.srcPic.hU); },
              [this] { return static_cast<uint32_t>(reg.in.srcPic.hV); },
              [this] { return static_cast<uint32_t>(reg.out.outPic[2].hY); },
              [this] { return static_cast<uint32_t>(reg.out.outPic[2].hU); },
              [this] { return static_cast<uint32_t>(reg.out.outPic[2].hV); }}},
            {"ParseXML_TocraAPI", [this] { return ParseXML_TocraAPI(&xml); }, {[this] {
                 return static_cast<uint32_t>(xml.xmlInfo);
             }}},
        };
    }
};

int CountErrors() {
    int n = 0;
    for (const auto& l : tocra_test::Log()) n += l.prio == 6 || l.text.find("error") != std::string::npos;
    return n;
}

TEST(EntryPoints, ValidCallsSucceed) {
    tocra_test::CaptureStdout([] {
        AllCases c;
        for (Call& call : c.Calls()) EXPECT_EQ(call.run(), 0) << call.name;
        tagST_REGISTRATION_REQUEST r = c.reg.reg;
        c.reg.in.framePairs[1].pointNum = RegistrationCase::N;
        EXPECT_EQ(Registration_TocraAPI(&r), TOCRA_OK);
    });
}

TEST(EntryPoints, EachHandleFailingInTurnIsAnsweredWithAStatusAndALogLine) {
    tocra_test::CaptureStdout([] {
        AllCases c;
        const std::vector<Call> calls = c.Calls();
        for (const Call& call : calls) {
            for (size_t i = 0; i < call.handles.size(); ++i) {
                c.Reset();
                // Reset made new handles; the call's pointers still name the same fields.
                const uint32_t h = call.handles[i]();
                c.table.Break(h);
                tocra_test::ClearLog();
                const int status = call.run();
                EXPECT_NE(status, 0) << call.name << " handle " << i;
                EXPECT_GT(CountErrors(), 0) << call.name << " handle " << i;
            }
        }
    });
}

TEST(EntryPoints, NullRecords) {
    tocra_test::CaptureStdout([] {
        EXPECT_EQ(BoxFilter_TocraAPI(nullptr), TOCRA_NULL_POINTER);
        EXPECT_EQ(BoxfilterYuv2RgbHist_TocraAPI(nullptr), TOCRA_NULL_POINTER);
        EXPECT_EQ(CalcuFrameBalance_TocraAPI(nullptr), TOCRA_NULL_POINTER);
        EXPECT_EQ(GetBrief_Descriptors_TocraAPI(nullptr), TOCRA_NULL_POINTER);
        EXPECT_EQ(RansacEst_TocraAPI(nullptr), TOCRA_NULL_POINTER);
        EXPECT_EQ(Registration_TocraAPI(nullptr), TOCRA_NULL_POINTER);
        EXPECT_EQ(Ransac_Regis_TocraAPI(nullptr), TOCRA_NULL_POINTER);
        EXPECT_EQ(ParseXML_TocraAPI(nullptr), TOCRA_NULL_POINTER);
    });
}

TEST(EntryPoints, SizesAndCountsTheyCannotWorkWith) {
    const int bad[] = {0, -1, -64, 1, 3, 0x40000000, 0x7fffffff, static_cast<int>(0x80000000u)};
    tocra_test::CaptureStdout([&] {
        AllCases c;
        for (int v : bad) {
            // Each field as a setter: the records are packed, so no pointers
            // into them.
            struct Field {
                const char* name;
                std::function<void(int32_t)> set;
                std::function<int()> run;
            };
            auto box = [&] { return BoxFilter_TocraAPI(&c.box.p); };
            auto yuv = [&] { return BoxfilterYuv2RgbHist_TocraAPI(&c.yuv.p); };
            auto balance = [&] { return CalcuFrameBalance_TocraAPI(&c.balance.p); };
            auto brief = [&] { return GetBrief_Descriptors_TocraAPI(&c.brief.p); };
            auto ransac = [&] { return RansacEst_TocraAPI(&c.reg.ransac); };
            auto regis = [&] { return Ransac_Regis_TocraAPI(&c.reg.combined); };
            const std::vector<Field> fields = {
                {"box width", [&](int32_t v) { c.box.p.width = v; }, box},
                {"box height", [&](int32_t v) { c.box.p.height = v; }, box},
                {"box radius", [&](int32_t v) { c.box.p.nSmoothRadius = v; }, box},
                {"box faces", [&](int32_t v) { c.box.p.faceNum = v; }, box},
                {"box work", [&](int32_t v) { c.box.p.workSize = v; }, box},
                {"yuv width", [&](int32_t v) { c.yuv.p.width = v; }, yuv},
                {"yuv stride", [&](int32_t v) { c.yuv.p.stride = v; }, yuv},
                {"yuv map height", [&](int32_t v) { c.yuv.p.mapHeight = v; }, yuv},
                {"balance height", [&](int32_t v) { c.balance.p.height = v; }, balance},
                {"balance stride", [&](int32_t v) { c.balance.p.stride = v; }, balance},
                {"brief width", [&](int32_t v) { c.brief.p.width = v; }, brief},
                {"brief count", [&](int32_t v) { c.brief.p.count = v; }, brief},
                {"ransac matchNum", [&](int32_t v) { c.reg.ransac.matchNum = v; }, ransac},
                {"registration width", [&](int32_t v) { c.reg.in.refPic.width = v; }, regis},
                {"frame index", [&](int32_t v) { c.reg.combined.frameIndex = v; }, regis},
            };
            for (const Field& f : fields) {
                // Face and keypoint counts beyond the records given are the
                // caller's to keep (nothing in the request tells the size).
                const std::string name = f.name;
                if ((name == "box faces" || name == "brief count") && v > 0) continue;
                c.Reset();
                f.set(v);
                c.reg.ransac.pointNum = RegistrationCase::N;
                tocra_test::ClearLog();
                const int status = f.run();
                // Sizes that still describe a workable request may succeed (a
                // count of 1, say); anything else must be refused.
                if (status == 0) continue;
                EXPECT_GT(CountErrors(), 0) << f.name << " = " << v;
            }
        }
    });
}

TEST(EntryPoints, KeypointsInsideTheDescriptorBorderAndWorkAreasTooSmall) {
    tocra_test::CaptureStdout([] {
        AllCases c;
        for (int x : {0, 10, 26, 70, 95}) {
            c.brief.keys[1] = {x * 64, 48 * 64, 0};
            tocra_test::ClearLog();
            EXPECT_EQ(GetBrief_Descriptors_TocraAPI(&c.brief.p), -998) << x;
            EXPECT_TRUE(tocra_test::Logged(6, "GetBrief_Descriptors_TocraAPI keypoint 1 out of range\n"));
        }
        // The last slice ends 2 rows before the reserved area does: one byte
        // short of what the passes touch.
        c.box.p.workSize -= 2 * BoxFilterCase::Stride + 1;
        tocra_test::ClearLog();
        EXPECT_NE(BoxFilter_TocraAPI(&c.box.p), TOCRA_OK);
        EXPECT_TRUE(tocra_test::Logged(6, "---[MEM_ERR]---[BoxFiltering_neon][2930] Memmory occur an error!\n"));
    });
}

// Heap in use, as the C library's allocator counts it (0 under the
// sanitizers, whose leak checker covers that build instead).
size_t HeapInUse() {
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
    return mallinfo2().uordblks;
#else
    return 0;
#endif
}

TEST(EntryPoints, RepeatedCallsDoNotGrowTheHeap) {
    tocra_test::CaptureStdout([] {
        AllCases c;
        auto round = [&c] {
            for (Call& call : c.Calls()) call.run();
            // And a failing call of each kind.
            const uint32_t saved = c.box.p.hWork;
            c.box.p.workSize = 16;
            BoxFilter_TocraAPI(&c.box.p);
            c.box.p.workSize = static_cast<int32_t>(c.box.work.size());
            c.box.p.hWork = saved;
            c.reg.ransac.pointNum = 4;
            RansacEst_TocraAPI(&c.reg.ransac);
            tagST_XML_PARSE_REQUEST missing{c.xml.xmlInfo, "/nonexistent/"};
            ParseXML_TocraAPI(&missing);
            ParseXML_TocraAPI(&c.xml);
            tocra_test::ClearLog();
            tocra_test::ClearFlushes();
        };
        for (int i = 0; i < 3; ++i) round();
        const size_t before = HeapInUse();
        for (int i = 0; i < 20; ++i) round();
        const size_t after = HeapInUse();
        EXPECT_LE(after, before + 4096) << "grew by " << (after - before) << " bytes over 20 rounds";
    });
}

}  // namespace
