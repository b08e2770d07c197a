#include <cstdio>
#include <cstring>
#include <memory>

#include "registration_scene.h"

namespace {

using tocra_test::HandleTable;
using tocra_test::Homography;
using tocra_test::Planes;

std::string P(const void* p) {
    char buf[64];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

// Everything one registration call needs, registered in a handle table.
struct Scene {
    static constexpr int W = 640, Hh = 480;
    HandleTable table;
    bool nv12;
    Planes ref;
    std::unique_ptr<Planes> src, out;
    std::vector<tagST_KEYPOINT> refKeys, matchKeys;
    std::vector<uint16_t> queryIdx, trainIdx;
    std::vector<float> distance, refPoints, matchPoints;
    tagST_RANSAC_REQUEST ransac{};
    tagST_REGIS_INPUT_RECORD input{};
    tagST_REGIS_OUTPUT_RECORD output{};
    tagST_RANSAC_REGIS_REQUEST combined{};
    int wrong = 0;

    explicit Scene(bool isNv12)
        : nv12(isNv12), ref(tocra_test::Render(Homography{{1, 0, 0, 0, 1, 0, 0, 0, 1}}, W, Hh, isNv12, 1, 0)) {
        table.Install();
        input.refPic = {W, Hh, 0, Add(ref.y), Add(ref.u), nv12 ? 0u : Add(ref.v), nv12 ? 0 : TOCRA_FORMAT_YUV420};
    }
    template <typename T>
    uint32_t Add(std::vector<T>& v) {
        return table.Add(v.data());
    }

    // Frame k made from the reference by H with an exposure change; a grid
    // of keypoints, their matches, a quarter of them wrong.
    void Prepare(int k, const Homography& H, double gain, double offset) {
        src = std::make_unique<Planes>(tocra_test::Render(H, W, Hh, nv12, gain, offset));
        out = std::make_unique<Planes>(W, Hh, nv12);
        refKeys.clear();
        matchKeys.clear();
        for (int y = 40; y < Hh - 40; y += 18) {
            for (int x = 40; x < W - 40; x += 18) {
                double u, v;
                H.Map(x + 0.3, y + 0.6, &u, &v);
                if (u < 4 || v < 4 || u > W - 4 || v > Hh - 4) continue;
                refKeys.push_back({static_cast<int32_t>(std::lround((x + 0.3) * 64)),
                                   static_cast<int32_t>(std::lround((y + 0.6) * 64)), 0});
                matchKeys.push_back(
                    {static_cast<int32_t>(std::lround(u * 64)), static_cast<int32_t>(std::lround(v * 64)), 0});
            }
        }
        const int n = static_cast<int>(refKeys.size());
        queryIdx.resize(n);
        trainIdx.resize(n);
        wrong = 0;
        for (int i = 0; i < n; ++i) {
            trainIdx[i] = static_cast<uint16_t>(i);
            const bool bad = i % 4 == 1;
            queryIdx[i] = static_cast<uint16_t>(bad ? (i * 7 + n / 2) % n : i);
            wrong += bad;
        }
        distance.assign(n, 10.0f);
        refPoints.assign(2 * n, -1.0f);
        matchPoints.assign(2 * n, -1.0f);
        ransac = {Add(refPoints), Add(matchPoints), n, Add(queryIdx), Add(trainIdx), Add(distance), n, 1, 0,
                  Add(refKeys),   Add(matchKeys)};
        input.srcPic = {W, Hh, 0, Add(src->y), Add(src->u), nv12 ? 0u : Add(src->v), 0};
        input.framePairs[k - 1] = {ransac.refPointBuf, ransac.matchPointBuf, 0};
        output.outPic[k] = {W, Hh, 0, Add(out->y), Add(out->u), nv12 ? 0u : Add(out->v), 0};
        combined = {table.Add(&ransac), table.Add(&input), table.Add(&output), k};
    }
};

struct Motion {
    Homography H;
    double gain, offset;
};

// Rotation up to 2 degrees, translation up to 100 px, slight perspective,
// and one frame with a flash-like exposure change.
const Motion kBurst[5] = {
    {Homography::Make(2.0, 12, -8, 0, 0, 640, 480), 1.0, 0},
    {Homography::Make(-1.5, -100, 30, 0, 0, 640, 480), 1.0, 0},
    {Homography::Make(0.5, 60, 90, 2e-5, -1e-5, 640, 480), 1.0, 0},
    {Homography::Make(1.0, -20, -100, 0, 0, 640, 480), 0.7, 25},
    {Homography::Make(-2.0, 100, -60, -1.5e-5, 2e-5, 640, 480), 1.0, 0},
};

void RunBurst(bool nv12) {
    Scene s(nv12);
    for (int k = 1; k <= 5; ++k) {
        const Motion& m = kBurst[k - 1];
        s.Prepare(k, m.H, m.gain, m.offset);
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
        ASSERT_EQ(Ransac_Regis_TocraAPI(&s.combined), 0) << "frame " << k;

        // The survivors are written back into the input record.
        const int kept = s.ransac.pointNum;
        EXPECT_EQ(s.input.framePairs[k - 1].pointNum, kept);
        EXPECT_GE(kept, static_cast<int>(s.refKeys.size()) - s.wrong - 2);
        EXPECT_LE(kept, static_cast<int>(s.refKeys.size()) - s.wrong + 2);

        // The area is the one logged as ROI 2, inside the frame and aligned.
        const tagST_REGISTRATION_AREA a = s.output.area;
        char roi[128];
        snprintf(roi, sizeof roi, "Reg --RECT18--OUT ROI 2 = (%d, %d), - (%d, %d).\n", a.x, a.y, a.width, a.height);
        EXPECT_TRUE(tocra_test::Logged(4, roi));
        EXPECT_TRUE(tocra_test::Logged(
            4, "=============Reg Registration_TocraAPI for frame_Indx = " + std::to_string(k) + " end"));
        EXPECT_GE(a.x, 0);
        EXPECT_GE(a.y, 0);
        EXPECT_LE(a.x + a.width, Scene::W);
        EXPECT_LE(a.y + a.height, Scene::Hh);
        EXPECT_GT(a.width, Scene::W / 2);
        EXPECT_GT(a.height, Scene::Hh / 2);

        // Inside the area the aligned frame is the reference (with the
        // frame's exposure).
        double sum = 0;
        for (int r = a.y; r < a.y + a.height; ++r) {
            for (int c = a.x; c < a.x + a.width; ++c) {
                const double want = std::fmin(255, std::fmax(0, m.gain * tocra_test::Texture(c, r) + m.offset));
                sum += std::fabs(s.out->Y(c, r) - std::lround(want));
            }
        }
        const double mad = sum / (static_cast<double>(a.width) * a.height);
        EXPECT_LE(mad, 2.0) << "frame " << k << (nv12 ? " NV12" : " planar");

        // The output planes and the area are written back from the cache.
        EXPECT_TRUE(tocra_test::Flushed(s.out->y.data(), static_cast<size_t>(Scene::Hh) * 640));
        if (!nv12) {
            EXPECT_TRUE(tocra_test::Flushed(s.out->u.data(), 384u * 240u));
            EXPECT_TRUE(tocra_test::Flushed(s.out->v.data(), 384u * 240u));
        } else {
            EXPECT_TRUE(tocra_test::Flushed(s.out->u.data(), 640u * 240u));
        }
        EXPECT_TRUE(tocra_test::Flushed(&s.output.area, 16));
    }
}

TEST(RegistrationEndToEnd, PlanarBurstAlignsEveryFrame) { RunBurst(false); }

TEST(RegistrationEndToEnd, Nv12BurstAlignsEveryFrame) { RunBurst(true); }

TEST(RegistrationEndToEnd, AWholeFrameAreaFromFramesInOneBlockIsWarped) {
    // Frame k a little zoomed out: every reference pixel has a source pixel
    // two or more pixels inside the frame, so the area is the whole frame.
    // The source's planes lie in one block (luma, then chroma), as a camera
    // buffer holds them.
    for (bool nv12 : {false, true}) {
        Scene s(nv12);
        const double z = 0.98;
        const Homography zoom{{z, 0, (1 - z) * Scene::W / 2, 0, z, (1 - z) * Scene::Hh / 2, 0, 0, 1}};
        s.Prepare(1, zoom, 1, 0);
        std::vector<uint8_t> block(s.src->y);
        block.insert(block.end(), s.src->u.begin(), s.src->u.end());
        block.insert(block.end(), s.src->v.begin(), s.src->v.end());
        s.input.srcPic.hY = s.table.Add(block.data());
        s.input.srcPic.hU = s.table.Add(block.data() + s.src->y.size());
        if (!nv12) s.input.srcPic.hV = s.table.Add(block.data() + s.src->y.size() + s.src->u.size());
        tocra_test::ClearLog();
        ASSERT_EQ(Ransac_Regis_TocraAPI(&s.combined), 0) << (nv12 ? "NV12" : "planar");
        const tagST_REGISTRATION_AREA a = s.output.area;
        EXPECT_EQ(a.x, 0);
        EXPECT_EQ(a.y, 0);
        EXPECT_EQ(a.width, Scene::W);
        EXPECT_EQ(a.height, Scene::Hh);
        double sum = 0;
        for (int r = 0; r < Scene::Hh; ++r)
            for (int c = 0; c < Scene::W; ++c)
                sum += std::fabs(s.out->Y(c, r) - std::lround(tocra_test::Texture(c, r)));
        EXPECT_LE(sum / (Scene::W * Scene::Hh), 2.0) << (nv12 ? "NV12" : "planar");
    }
}

TEST(RegistrationEndToEnd, EqualInputsGiveEqualOutputs) {
    std::vector<uint8_t> firstY, firstU;
    tagST_REGISTRATION_AREA firstArea{};
    std::vector<float> firstPoints;
    for (int run = 0; run < 2; ++run) {
        Scene s(false);
        s.Prepare(3, kBurst[2].H, 1, 0);
        ASSERT_EQ(Ransac_Regis_TocraAPI(&s.combined), TOCRA_OK);
        if (run == 0) {
            firstY = s.out->y;
            firstU = s.out->u;
            firstArea = s.output.area;
            firstPoints = s.refPoints;
        } else {
            EXPECT_EQ(s.out->y, firstY);
            EXPECT_EQ(s.out->u, firstU);
            EXPECT_EQ(0, memcmp(&s.output.area, &firstArea, sizeof firstArea));
            EXPECT_EQ(s.refPoints, firstPoints);
        }
    }
}

TEST(RansacEstApi, TooFewMatchesReturn3BeforeAnyKeypointIsRead) {
    Scene s(false);
    s.Prepare(1, kBurst[0].H, 1, 0);
    s.ransac.pointNum = 4;
    s.table.Break(s.ransac.refKeypoints);
    s.table.Break(s.ransac.queryIdx);
    tocra_test::ClearLog();
    EXPECT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_REG_REJECTED);
    EXPECT_TRUE(tocra_test::Logged(6, "ransac RansacEstimation: not enough keypoints = 4\n"));
    EXPECT_TRUE(tocra_test::Logged(4, "ransac received match point num = " + std::to_string(s.ransac.matchNum)));
}

TEST(RansacEstApi, UnconvertibleHandlesAnswer998WithTheirLines) {
    {
        Scene s(false);
        s.Prepare(1, kBurst[0].H, 1, 0);
        s.table.Break(s.ransac.matchPointBuf);
        tocra_test::ClearLog();
        EXPECT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_NULL_POINTER);
        EXPECT_TRUE(tocra_test::Logged(6, "matchPairs.pRefPoint = " + P(s.refPoints.data())));
        EXPECT_TRUE(tocra_test::Logged(6, "matchPairs.pMatchPoint = " + P(nullptr)));
        EXPECT_TRUE(tocra_test::Logged(6, "FunConvert2Addr error!"));
    }
    {
        // The distances are never read but must convert.
        Scene s(false);
        s.Prepare(1, kBurst[0].H, 1, 0);
        s.table.Break(s.ransac.pDistance);
        tocra_test::ClearLog();
        EXPECT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_NULL_POINTER);
        EXPECT_TRUE(tocra_test::Logged(6, "knnResult.queryIdx = " + P(s.queryIdx.data())));
        EXPECT_TRUE(tocra_test::Logged(6, "knnResult.trainIdx = " + P(s.trainIdx.data())));
        EXPECT_TRUE(tocra_test::Logged(6, "knnResult.pDistance = " + P(nullptr)));
        EXPECT_TRUE(tocra_test::Logged(6, "FunConvert2Addr error!"));
        EXPECT_EQ(s.refPoints[0], -1.0f);  // nothing converted
    }
    {
        Scene s(false);
        s.Prepare(1, kBurst[0].H, 1, 0);
        s.table.Break(s.ransac.matchKeypoints);
        tocra_test::ClearLog();
        EXPECT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_NULL_POINTER);
        EXPECT_TRUE(tocra_test::Logged(6, "RefImgKeypoints = " + P(s.refKeys.data())));
        EXPECT_TRUE(tocra_test::Logged(6, "MatchImgKeypoints = " + P(nullptr)));
    }
    tocra_test::ClearLog();
    EXPECT_EQ(RansacEst_TocraAPI(nullptr), TOCRA_NULL_POINTER);
    EXPECT_TRUE(tocra_test::Logged(6, "ransac request pointer is invalid\n"));
}

TEST(RansacEstApi, ScratchOfMatchNumberMustHoldTheMasksOfThePairs) {
    // n pairs take 2n mask bytes and 147 bytes of solver work (after up to
    // 3 bytes of rounding): 80 * matchNum bytes must hold 2n + 150.
    Scene s(false);
    s.Prepare(1, kBurst[0].H, 1, 0);
    const int n = s.ransac.pointNum;
    ASSERT_GT(n, 20);
    // Fewer conversions than pairs, scratch still large enough: the pairs
    // past matchNum are read as the caller left them.
    s.ransac.matchNum = n - 1;
    tocra_test::ClearLog();
    EXPECT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_OK);
    EXPECT_TRUE(tocra_test::Logged(4, "ransac received match point num = " + std::to_string(n - 1)));
    for (int m : {-5, 0, 1}) {
        s.Prepare(1, kBurst[0].H, 1, 0);
        s.ransac.matchNum = m;
        tocra_test::ClearLog();
        EXPECT_EQ(RansacEst_TocraAPI(&s.ransac), -998) << m;
        EXPECT_TRUE(tocra_test::Logged(6, "ransac match number " + std::to_string(m) + " does not cover point number " +
                                              std::to_string(n) + "\n"));
    }
    // Exactly enough: 80 * 3 = 240 bytes for 45 pairs (90 + 150), one pair more is too many.
    s.Prepare(1, kBurst[0].H, 1, 0);
    s.ransac.pointNum = 45;
    s.ransac.matchNum = 3;
    EXPECT_NE(RansacEst_TocraAPI(&s.ransac), TOCRA_NULL_POINTER);
    s.Prepare(1, kBurst[0].H, 1, 0);
    s.ransac.pointNum = 46;
    s.ransac.matchNum = 3;
    EXPECT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_NULL_POINTER);
}

TEST(RansacEstApi, ConvertsKeypointsAndKeepsTheSurvivorsScaled) {
    Scene s(false);
    s.Prepare(1, kBurst[0].H, 1, 0);
    s.ransac.scale = 2;
    tocra_test::ClearLog();
    ASSERT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_OK);
    // Every survivor is a good match, in order, at twice its 1/64 position.
    int good = 0;
    for (int i = 0, j = 0; i < static_cast<int>(s.refKeys.size()) && j < s.ransac.pointNum; ++i) {
        if (s.queryIdx[i] != s.trainIdx[i]) continue;
        EXPECT_EQ(s.refPoints[2 * j], s.refKeys[i].x * 0.015625f * 2) << i;
        EXPECT_EQ(s.matchPoints[2 * j + 1], s.matchKeys[i].y * 0.015625f * 2) << i;
        ++j;
        ++good;
    }
    EXPECT_EQ(good, s.ransac.pointNum);
    EXPECT_TRUE(tocra_test::Logged(
        4, "ransac pstMatchPairs->pointNum after  RansacEstimation 1st = " + std::to_string(s.ransac.pointNum) + "\n"));
    EXPECT_TRUE(tocra_test::Logged(
        4, "ransac pstMatchPairs->pointNum after  RansacEstimation 2nd = " + std::to_string(s.ransac.pointNum)));
}

TEST(RansacEstApi, FirstPassKeepingFourReturns3AndWritesTheCount) {
    Scene s(false);
    s.Prepare(1, kBurst[0].H, 1, 0);
    // Five matches with no common homography: no model is ever accepted.
    const int n = 5;
    const int pos[5][4] = {
        {50, 60, 400, 30}, {500, 80, 90, 300}, {300, 400, 600, 420}, {100, 420, 320, 60}, {600, 250, 40, 200}};
    for (int i = 0; i < n; ++i) {
        s.refKeys[i] = {pos[i][0] * 64, pos[i][1] * 64, 0};
        s.matchKeys[i] = {pos[i][2] * 64, pos[i][3] * 64, 0};
        s.trainIdx[i] = s.queryIdx[i] = static_cast<uint16_t>(i);
    }
    s.ransac.pointNum = s.ransac.matchNum = n;
    EXPECT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_REG_REJECTED);
    EXPECT_EQ(s.ransac.pointNum, 4);
}

TEST(RegistrationApi, SizeChecks) {
    Scene s(false);
    s.Prepare(1, kBurst[0].H, 1, 0);
    tagST_REGISTRATION_REQUEST req{&s.input, &s.output, 1};
    s.input.framePairs[0].pointNum = 50;
    for (auto size : {std::pair<int, int>{1920, 1084}, std::pair<int, int>{56, 1080}, std::pair<int, int>{640, 60}}) {
        s.input.refPic.width = size.first;
        s.input.refPic.height = size.second;
        tocra_test::ClearLog();
        EXPECT_EQ(Registration_TocraAPI(&req), TOCRA_SIZE_NOT_SUPPORTED);
        EXPECT_TRUE(tocra_test::Logged(6, "ImageSize input size is not supported"));
        const int stride = (size.first + 127) & ~127;
        EXPECT_TRUE(tocra_test::Logged(4, "Reg image width = " + std::to_string(size.first) +
                                              ", height = " + std::to_string(size.second) +
                                              ", stride = " + std::to_string(stride) + "\n"));
    }
}

TEST(RegistrationApi, FrameIndicesOutsideTheRecordsAreRefused) {
    Scene s(false);
    s.Prepare(1, kBurst[0].H, 1, 0);
    for (int k : {6, -1, 7, INT32_MIN}) {
        tagST_REGISTRATION_REQUEST req{&s.input, &s.output, k};
        tocra_test::ClearLog();
        EXPECT_EQ(Registration_TocraAPI(&req), TOCRA_NULL_POINTER);
        EXPECT_TRUE(tocra_test::Logged(6, "Reg frame index " + std::to_string(k) + " out of range\n"));
        // The combined call first runs RANSAC (which knows no frame index)
        // and refuses where the index is first used, the pair record.
        s.Prepare(1, kBurst[0].H, 1, 0);
        s.combined.frameIndex = k;
        const tagST_REGIS_INPUT_RECORD before = s.input;
        tocra_test::ClearLog();
        EXPECT_EQ(Ransac_Regis_TocraAPI(&s.combined), TOCRA_NULL_POINTER);
        EXPECT_TRUE(tocra_test::Logged(4, "ransac RansacEst_TocraAPI end, ret = 0\n"));
        EXPECT_TRUE(tocra_test::Logged(6, "Reg frame index " + std::to_string(k) + " out of range\n"));
        EXPECT_EQ(memcmp(&before, &s.input, sizeof before), 0);
    }
    // The size check comes first.
    tagST_REGISTRATION_REQUEST req{&s.input, &s.output, 9};
    s.input.refPic.width = 60;
    EXPECT_EQ(Registration_TocraAPI(&req), TOCRA_SIZE_NOT_SUPPORTED);
    req = {nullptr, &s.output, 1};
    EXPECT_EQ(Registration_TocraAPI(&req), TOCRA_NULL_POINTER);
    EXPECT_EQ(Registration_TocraAPI(nullptr), TOCRA_NULL_POINTER);
    EXPECT_EQ(Ransac_Regis_TocraAPI(nullptr), TOCRA_NULL_POINTER);
}

TEST(RegistrationApi, FrameZeroTakesItsPairRecordFromTheWordsBeforeFrameOnes) {
    // Frame k's pair record starts at word 22 + 3 (k - 1) (from 0); frame
    // 0's is words 19 to 21, the last three of the eight after the source
    // picture. Its output picture is slot 0.
    for (bool nv12 : {false, true}) {
        Scene s(nv12);
        s.Prepare(1, kBurst[2].H, 1, 0);
        s.input.framePairs[0] = {0, 0, 0};
        s.input.reserved[5] = s.ransac.refPointBuf;
        s.input.reserved[6] = s.ransac.matchPointBuf;
        s.output.outPic[1] = {0, 0, 0, 0, 0, 0, 0};
        s.output.outPic[0] = {Scene::W, Scene::Hh, 0, s.Add(s.out->y), s.Add(s.out->u), nv12 ? 0u : s.Add(s.out->v), 0};
        s.combined.frameIndex = 0;
        const std::vector<uint8_t> before = s.out->y;
        tocra_test::ClearLog();
        ASSERT_EQ(Ransac_Regis_TocraAPI(&s.combined), 0) << nv12;
        uint32_t words[37];
        memcpy(words, &s.input, sizeof words);
        EXPECT_EQ(words[19], s.ransac.refPointBuf);
        EXPECT_EQ(words[20], s.ransac.matchPointBuf);
        EXPECT_EQ(static_cast<int32_t>(words[21]), s.ransac.pointNum);
        EXPECT_EQ(s.input.framePairs[0].pointNum, 0);  // frame 1's record untouched
        EXPECT_TRUE(tocra_test::Logged(4, "=============Reg Registration_TocraAPI for frame_Indx = 0 end"));
        EXPECT_NE(s.out->y, before);
        EXPECT_GT(s.output.area.width, Scene::W / 2);

        // The same frame as frame 1 gives the same bytes.
        Scene t(nv12);
        t.Prepare(1, kBurst[2].H, 1, 0);
        ASSERT_EQ(Ransac_Regis_TocraAPI(&t.combined), TOCRA_OK);
        EXPECT_EQ(t.out->y, s.out->y);
        EXPECT_EQ(t.out->u, s.out->u);
        EXPECT_EQ(0, memcmp(&t.output.area, &s.output.area, sizeof t.output.area));
    }
}

TEST(RegistrationApi, UnconvertedPlanesAnswer998WhereTheWarpWouldUseThem) {
    for (int which = 0; which < 4; ++which) {
        Scene s(false);
        s.Prepare(2, kBurst[1].H, 1, 0);
        ASSERT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_OK);
        const uint32_t handles[4] = {s.input.srcPic.hY, s.input.srcPic.hV, s.output.outPic[2].hU,
                                     s.input.framePairs[1].matchPointBuf};
        const char* lines[4] = {
            "Reg ImgRegistration: srcPic.pY is invalid\n", "Reg ImgRegistration: srcPic.pV is invalid\n",
            "Reg ImgRegistration: outPic.pU is invalid\n", "Reg ImgRegistration: matchPairs.pMatchPoint is invalid\n"};
        s.input.framePairs[1].pointNum = s.ransac.pointNum;
        s.table.Break(handles[which]);
        s.output.area = {-1, -1, -1, -1};
        tagST_REGISTRATION_REQUEST req{&s.input, &s.output, 2};
        tocra_test::ClearLog();
        EXPECT_EQ(Registration_TocraAPI(&req), -998) << which;
        EXPECT_TRUE(tocra_test::Logged(6, lines[which])) << which;
        EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration fail -998\n"));
        EXPECT_EQ(s.output.area.x, -1);
    }
}

TEST(RegistrationApi, TooFewPairsOrARejectedMotionAnswer3WhateverThePlanesGave) {
    for (bool motion : {false, true}) {
        Scene s(false);
        s.Prepare(1, Homography::Make(0, 0, 0, 0, 0, 640, 480), 1, 0);
        if (motion) {
            for (auto& k : s.matchKeys) k.x += 330 * 64;
            ASSERT_EQ(RansacEst_TocraAPI(&s.ransac), TOCRA_OK);
            s.input.framePairs[0].pointNum = s.ransac.pointNum;
        } else {
            s.input.framePairs[0].pointNum = 4;
            s.table.Break(s.input.framePairs[0].refPointBuf);
        }
        for (uint32_t h : {s.input.srcPic.hY, s.input.srcPic.hU, s.input.srcPic.hV, s.output.outPic[1].hY,
                           s.output.outPic[1].hU, s.output.outPic[1].hV})
            s.table.Break(h);
        tagST_REGISTRATION_REQUEST req{&s.input, &s.output, 1};
        tocra_test::ClearLog();
        EXPECT_EQ(Registration_TocraAPI(&req), 3) << motion;
        EXPECT_TRUE(tocra_test::Logged(6, motion ? "Reg ImgRegistration: MotionEstimation fail 3\n"
                                                 : "Reg ImgRegistration: not enough keypoints = 4\n"));
        EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration fail 3\n"));
    }
}

TEST(RansacRegisApi, RecordHandles) {
    Scene s(false);
    s.Prepare(1, kBurst[0].H, 1, 0);
    tagST_RANSAC_REGIS_REQUEST c = s.combined;
    c.hInput = 0;
    tocra_test::ClearLog();
    EXPECT_EQ(Ransac_Regis_TocraAPI(&c), TOCRA_NULL_POINTER);
    EXPECT_TRUE(tocra_test::Logged(6, "Reg input param pointer is invalid"));
    EXPECT_TRUE(tocra_test::Logged(4, "ransac RansacEst_TocraAPI end, ret = 0\n"));

    s.Prepare(1, kBurst[0].H, 1, 0);
    s.table.Break(s.combined.hOutput);
    tocra_test::ClearLog();
    EXPECT_EQ(Ransac_Regis_TocraAPI(&s.combined), TOCRA_NULL_POINTER);
    EXPECT_TRUE(tocra_test::Logged(6, "Reg converted input pointer is invalid"));

    s.Prepare(1, kBurst[0].H, 1, 0);
    s.table.Break(s.combined.hRansacRequest);
    tocra_test::ClearLog();
    EXPECT_EQ(Ransac_Regis_TocraAPI(&s.combined), TOCRA_NULL_POINTER);
    EXPECT_TRUE(tocra_test::Logged(6, "ransac RansacEst_TocraAPI return error [-998]\n"));

    // A registration failure is passed through with its own line.
    s.Prepare(1, kBurst[0].H, 1, 0);
    s.input.refPic.width = 636;
    tocra_test::ClearLog();
    EXPECT_EQ(Ransac_Regis_TocraAPI(&s.combined), TOCRA_SIZE_NOT_SUPPORTED);
    EXPECT_TRUE(tocra_test::Logged(6, "Reg Registration_TocraAPI have error [1]!\n"));
    EXPECT_EQ(s.input.framePairs[0].pointNum, s.ransac.pointNum);
}

TEST(RansacRegisApi, MotionRejectionIsStatus3WithTheAreaUntouched) {
    Scene s(false);
    // 250 px of motion plus rotation: the frame keeps less than it needs.
    s.Prepare(1, Homography::Make(0, 0, 0, 0, 0, 640, 480), 1, 0);
    for (auto& k : s.matchKeys) k.x += 330 * 64;
    s.output.area = {-1, -1, -1, -1};
    tocra_test::ClearLog();
    EXPECT_EQ(Ransac_Regis_TocraAPI(&s.combined), TOCRA_REG_REJECTED);
    EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration: MotionEstimation fail 3\n"));
    EXPECT_TRUE(tocra_test::Logged(6, "Reg ImgRegistration fail 3\n"));
    EXPECT_EQ(s.output.area.x, -1);
}

}  // namespace
