// Valid requests for every entry point, each buffer behind a handle table
// and fenced by guard bytes, so that a test sees any write outside what the
// caller contract gives the library. A seed varies the contents (and, for the
// registration, the motion) while keeping every request valid.
#ifndef TOCRA_TESTS_SUPPORT_ENTRY_CASES_H
#define TOCRA_TESTS_SUPPORT_ENTRY_CASES_H

#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace tocra_test {

// n elements of T with kGuard bytes of a fixed pattern on each side.
template <typename T>
class Guarded {
  public:
    static constexpr size_t kGuard = 64;
    static constexpr uint8_t kPattern = 0xA5;

    explicit Guarded(size_t n) : n_(n), raw_(2 * kGuard + n * sizeof(T), kPattern) { std::memset(data(), 0, bytes()); }
    T* data() { return reinterpret_cast<T*>(raw_.data() + kGuard); }
    const T* data() const { return reinterpret_cast<const T*>(raw_.data() + kGuard); }
    T& operator[](size_t i) { return data()[i]; }
    size_t size() const { return n_; }
    size_t bytes() const { return n_ * sizeof(T); }
    void Fill(uint8_t v) { std::memset(data(), v, bytes()); }
    void Set(const std::vector<uint8_t>& b) { std::memcpy(data(), b.data(), bytes() < b.size() ? bytes() : b.size()); }
    std::vector<uint8_t> Bytes() const {
        const uint8_t* p = raw_.data() + kGuard;
        return std::vector<uint8_t>(p, p + bytes());
    }
    bool GuardsIntact() const {
        for (size_t i = 0; i < kGuard; ++i) {
            if (raw_[i] != kPattern || raw_[raw_.size() - 1 - i] != kPattern) return false;
        }
        return true;
    }

  private:
    size_t n_;
    std::vector<uint8_t> raw_;
};

// Filled into every output before a call, so that two calls that write the
// same bytes leave the same buffers.
constexpr uint8_t kOutputFill = 0x3C;

struct BoxFilterCase {
    static constexpr int W = 64, H = 48, R = 2, Stride = 128;
    Guarded<uint8_t> map{Stride * H};
    Guarded<FaceInfo> faces{1};
    Guarded<uint8_t> work{W * H * 4 + Stride * (2 * R + (H + 3) / 4) * 4};
    BoxFilterApiParams p{};
    void Init(HandleTable& t, uint32_t seed) {
        faces[0].left = 10 + static_cast<int>(seed % 20);
        faces[0].top = 16;
        faces[0].right = 60 + static_cast<int>(seed % 30);
        faces[0].bottom = 50;
        p = {t.Add(map.data()),
             t.Add(faces.data()),
             t.Add(work.data()),
             static_cast<int32_t>(work.bytes()),
             1,
             static_cast<int32_t>(seed % 200),
             2,
             W,
             H,
             R,
             static_cast<uint8_t>(seed)};
    }
    void Prepare() {
        map.Fill(kOutputFill);
        work.Fill(kOutputFill);
    }
    std::vector<std::vector<uint8_t>> Outputs() const { return {map.Bytes()}; }
    bool GuardsIntact() const { return map.GuardsIntact() && faces.GuardsIntact() && work.GuardsIntact(); }
};

struct YuvHistCase {
    static constexpr int W = 128, H = 64, Stride = 128, MapW = 64, MapH = 32, MapStride = 128, R = 2;
    static constexpr int S = (H / 2) * 128;
    Guarded<uint8_t> map{MapStride * MapH};
    Guarded<FaceInfo> faces{1};
    Guarded<uint8_t> work{MapW * MapH * 4 + MapStride * (2 * R + (MapH + 3) / 4) * 4};
    Guarded<uint8_t> source{H * Stride + (H / 2) * Stride};
    Guarded<uint8_t> dest{4 * S + 4096 + H * Stride + 4};
    BoxfilterYuvParams p{};
    void Init(HandleTable& t, uint32_t seed) {
        faces[0].left = 10;
        faces[0].top = 10 + static_cast<int>(seed % 10);
        faces[0].right = 40;
        faces[0].bottom = 30 + static_cast<int>(seed % 20);
        source.Set(RandomBytes(source.bytes(), seed + 5));
        p = {t.Add(map.data()),
             t.Add(faces.data()),
             t.Add(work.data()),
             static_cast<int32_t>(work.bytes()),
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
    void Prepare() {
        map.Fill(kOutputFill);
        work.Fill(kOutputFill);
        dest.Fill(kOutputFill);
    }
    std::vector<std::vector<uint8_t>> Outputs() const { return {map.Bytes(), dest.Bytes()}; }
    bool GuardsIntact() const {
        return map.GuardsIntact() && faces.GuardsIntact() && work.GuardsIntact() && source.GuardsIntact() &&
               dest.GuardsIntact();
    }
};

struct BalanceCase {
    static constexpr int W = 64, H = 48;
    Guarded<uint8_t> a{W * H}, b{W * H};
    Guarded<uint8_t> out{sizeof(FrameBalanceResult)};
    FrameBalanceParams p{};
    void Init(HandleTable& t, uint32_t seed) {
        a.Set(RandomBytes(a.bytes(), seed + 1));
        b.Set(RandomBytes(b.bytes(), seed + 2));
        p = {t.Add(a.data()), t.Add(b.data()), t.Add(out.data()), W, H, W};
    }
    void Prepare() { out.Fill(kOutputFill); }
    std::vector<std::vector<uint8_t>> Outputs() const { return {out.Bytes()}; }
    bool GuardsIntact() const { return a.GuardsIntact() && b.GuardsIntact() && out.GuardsIntact(); }
};

struct BriefCase {
    static constexpr int W = 96, H = 96, N = 6;
    Guarded<uint8_t> image{W * H};
    Guarded<tagST_KEYPOINT> keys{N};
    Guarded<uint8_t> desc{N * 64};
    tagST_BRIEF_REQUEST p{};
    void Init(HandleTable& t, uint32_t seed) {
        image.Set(RandomBytes(image.bytes(), seed + 3));
        for (int i = 0; i < N; ++i) {
            // Centres 30..65: every descriptor box inside the image.
            keys[i] = {(30 + static_cast<int>((seed + 7 * i) % 36)) * 64 + static_cast<int>(seed % 31),
                       (30 + static_cast<int>((seed + 11 * i) % 36)) * 64, 0};
        }
        p = {t.Add(image.data()), 0, t.Add(keys.data()), t.Add(desc.data()), W, H, W, N};
    }
    void Prepare() { desc.Fill(kOutputFill); }
    std::vector<std::vector<uint8_t>> Outputs() const { return {desc.Bytes()}; }
    bool GuardsIntact() const { return image.GuardsIntact() && keys.GuardsIntact() && desc.GuardsIntact(); }
};

// A 128x64 planar registration of a frame shifted by a few pixels, frame
// index 2.
struct RegistrationCase {
    static constexpr int W = 128, H = 64, N = 40, K = 2;
    static constexpr int Pitch = 128, CPitch = 128;
    Guarded<uint8_t> refY{Pitch * H}, refU{CPitch * H / 2}, refV{CPitch * H / 2};
    Guarded<uint8_t> srcY{Pitch * H}, srcU{CPitch * H / 2}, srcV{CPitch * H / 2};
    Guarded<uint8_t> outY{Pitch * H}, outU{CPitch * H / 2}, outV{CPitch * H / 2};
    Guarded<tagST_KEYPOINT> refKeys{N}, matchKeys{N};
    Guarded<uint16_t> query{N}, train{N};
    Guarded<float> dist{N}, refPts{2 * N}, matchPts{2 * N};
    Guarded<tagST_RANSAC_REQUEST> ransac{1};
    Guarded<tagST_REGIS_INPUT_RECORD> in{1};
    Guarded<tagST_REGIS_OUTPUT_RECORD> out{1};
    tagST_RANSAC_REGIS_REQUEST combined{};
    tagST_REGISTRATION_REQUEST reg{};
    void Init(HandleTable& t, uint32_t seed) {
        const int dx = 1 + static_cast<int>(seed % 4), dy = static_cast<int>((seed / 4) % 3);
        refY.Set(RandomBytes(refY.bytes(), seed + 7));
        srcY.Set(RandomBytes(srcY.bytes(), seed + 8));
        for (auto* plane : {&refU, &refV, &srcU, &srcV}) plane->Fill(128);
        for (int i = 0; i < N; ++i) {
            const int x = 8 + (i * 37) % 110, y = 6 + (i * 23) % 50;
            refKeys[i] = {x * 64, y * 64, 0};
            matchKeys[i] = {(x + dx) * 64, (y + dy) * 64, 0};
            query[i] = static_cast<uint16_t>(i);
            train[i] = static_cast<uint16_t>(i);
        }
        const uint32_t hRef = t.Add(refPts.data()), hMatch = t.Add(matchPts.data());
        ransac[0] = {hRef, hMatch, N, t.Add(query.data()),   t.Add(train.data()),    t.Add(dist.data()),
                     N,    1,      0, t.Add(refKeys.data()), t.Add(matchKeys.data())};
        tagST_REGIS_INPUT_RECORD& a = in[0];
        a = tagST_REGIS_INPUT_RECORD{};
        a.refPic = {W, H, 0, t.Add(refY.data()), t.Add(refU.data()), t.Add(refV.data()), TOCRA_FORMAT_YUV420};
        a.srcPic = {W, H, 0, t.Add(srcY.data()), t.Add(srcU.data()), t.Add(srcV.data()), 0};
        a.framePairs[K - 1] = {hRef, hMatch, 0};
        out[0] = tagST_REGIS_OUTPUT_RECORD{};
        out[0].outPic[K] = {W, H, 0, t.Add(outY.data()), t.Add(outU.data()), t.Add(outV.data()), 0};
        combined = {t.Add(ransac.data()), t.Add(in.data()), t.Add(out.data()), K};
        reg = {in.data(), out.data(), K};
    }
    // Outputs cleared; the pair counts as a pipeline sets them. For a call of
    // Registration_TocraAPI alone, the pairs are those RANSAC would keep:
    // all of them.
    void Prepare() {
        for (auto* plane : {&outY, &outU, &outV}) plane->Fill(kOutputFill);
        refPts.Fill(kOutputFill);
        matchPts.Fill(kOutputFill);
        ransac[0].pointNum = N;
        out[0].area = {0, 0, 0, 0};
        in[0].framePairs[K - 1].pointNum = 0;
    }
    void PreparePairs() {
        Prepare();
        for (int i = 0; i < N; ++i) {
            refPts[2 * i] = refKeys[i].x / 64.0f;
            refPts[2 * i + 1] = refKeys[i].y / 64.0f;
            matchPts[2 * i] = matchKeys[i].x / 64.0f;
            matchPts[2 * i + 1] = matchKeys[i].y / 64.0f;
        }
        in[0].framePairs[K - 1].pointNum = N;
    }
    std::vector<std::vector<uint8_t>> Outputs() const {
        return {outY.Bytes(),     outU.Bytes(),   outV.Bytes(), refPts.Bytes(),
                matchPts.Bytes(), ransac.Bytes(), in.Bytes(),   out.Bytes()};
    }
    bool GuardsIntact() const {
        for (const Guarded<uint8_t>* g : {&refY, &refU, &refV, &srcY, &srcU, &srcV, &outY, &outU, &outV}) {
            if (!g->GuardsIntact()) return false;
        }
        return refKeys.GuardsIntact() && matchKeys.GuardsIntact() && query.GuardsIntact() && train.GuardsIntact() &&
               dist.GuardsIntact() && refPts.GuardsIntact() && matchPts.GuardsIntact() && ransac.GuardsIntact() &&
               in.GuardsIntact() && out.GuardsIntact();
    }
};

struct XmlCase {
    Guarded<uint8_t> record{sizeof(_stXmlConfigInfoHdr)};
    std::string dir = std::string(TOCRA_SOURCE_DIR) + "/data/";
    tagST_XML_PARSE_REQUEST p{};
    void Init(HandleTable& t, uint32_t) { p = {t.Add(record.data()), dir.c_str()}; }
    // The reader keeps the last file loaded: a call for a directory without
    // one makes the next call read and parse the file again.
    void Prepare() {
        record.Fill(kOutputFill);
        tagST_XML_PARSE_REQUEST none{p.xmlInfo, "/nonexistent/"};
        ParseXML_TocraAPI(&none);
    }
    std::vector<std::vector<uint8_t>> Outputs() const { return {record.Bytes()}; }
    bool GuardsIntact() const { return record.GuardsIntact(); }
};

struct AllCases {
    HandleTable table;
    BoxFilterCase box;
    YuvHistCase yuv;
    BalanceCase balance;
    BriefCase brief;
    RegistrationCase reg;
    XmlCase xml;

    explicit AllCases(uint32_t seed = 1) { Init(seed); }
    void Init(uint32_t seed) {
        table.Install();
        box.Init(table, seed);
        yuv.Init(table, seed);
        balance.Init(table, seed);
        brief.Init(table, seed);
        reg.Init(table, seed);
        xml.Init(table, seed);
    }
};

}  // namespace tocra_test

#endif
