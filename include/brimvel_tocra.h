/*
 * libbrimvel_tocra: processor-side image stages of the flash / no-flash
 * capture fusion.
 *
 * The camera pipeline installs the two buffer hooks, then calls one entry
 * point per stage (the functions ending in _TocraAPI), one call at a time.
 * Every entry point takes one request record by address and returns an int
 * status (see TOCRA_STATUS). Kernels and helpers are exported as well; they
 * do not validate their arguments.
 *
 * Entry points are not re-entrant. One called while another entry point runs
 * on another thread is refused with TOCRA_BUSY (-996) and the error line
 * "<entry point> refused: another entry point is running", without touching
 * its record or buffers; one called from inside another on the same thread
 * runs (Ransac_Regis_TocraAPI calls RansacEst_TocraAPI and
 * Registration_TocraAPI). The pool functions, the thread helpers and the
 * kernels are not checked: called directly, they are the caller's to
 * serialise.
 *
 * Running out of memory or threads: every entry point answers with a status
 * and a log line, frees what it allocated (except the one buffer named at
 * GetBrief_Descriptors_TocraAPI) and leaves the pool, the hooks and the
 * configuration object ready for the next call.
 *
 * Records that come from the pipeline hold 32-bit buffer handles and 32-bit
 * ints, packed where marked, so the same bytes work on 32-bit and 64-bit
 * builds. The library's own records (tagST_PIC, tagST_MATCH_PAIRS,
 * ST_IMAGEFEATURES, the registration records) hold native pointers.
 *
 * Usable from C (C99 or later) and C++.
 */
#ifndef BRIMVEL_TOCRA_H
#define BRIMVEL_TOCRA_H

#include <pthread.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define TOCRA_API __attribute__((visibility("default")))
#define TOCRA_PACKED __attribute__((packed))
#else
#define TOCRA_API
#define TOCRA_PACKED
#endif

/* Layout checks of the records, at compile time in C++ and in C99 or later. */
#if defined(__cplusplus)
#define TOCRA_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define TOCRA_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#else
/* C99 has no static assertion: an array of negative size stops the build. */
#define TOCRA_ASSERT_NAME_(line) tocra_layout_check_##line
#define TOCRA_ASSERT_NAME(line) TOCRA_ASSERT_NAME_(line)
#define TOCRA_STATIC_ASSERT(cond, msg) typedef char TOCRA_ASSERT_NAME(__LINE__)[(cond) ? 1 : -1]
#endif

#if defined(__cplusplus)
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Status codes                                                              */
/* ------------------------------------------------------------------------ */

enum TOCRA_STATUS {
    TOCRA_OK = 0,
    TOCRA_SIZE_NOT_SUPPORTED = 1,   /* "ImageSize input size is not supported" */
    TOCRA_REG_REJECTED = 3,         /* too few pairs, implausible motion, no overlap */
    TOCRA_POOL_FAILED = -1,         /* worker pool: bad count, attribute, creation, busy */
    TOCRA_BUSY = -996,              /* another entry point is running on another thread:
                                       "<entry point> refused: another entry point is running" */
    TOCRA_THREAD_FAILED = -997,     /* thread or pool start failed (and stage-specific) */
    TOCRA_NULL_POINTER = -998,      /* null pointer or failed handle conversion */
    TOCRA_CONFIG_NOT_LOADED = -999, /* XML configuration file not loaded */
    TOCRA_NO_MEMORY = -1000         /* allocation failed */
};

/* Bounds-checked functions' codes. */
enum TOCRA_SAFE_STATUS {
    TOCRA_EOK = 0,
    TOCRA_EINVAL = 22,             /* destination null, nothing written */
    TOCRA_ERANGE = 34,             /* destination size 0 or above 2147483647 */
    TOCRA_EINVAL_AND_RESET = 150,  /* source null, destination reset */
    TOCRA_ERANGE_AND_RESET = 162,  /* too much data, destination reset */
    TOCRA_EOVERLAP_AND_RESET = 182 /* regions overlap, destination reset */
};

/* ------------------------------------------------------------------------ */
/* Library frame: picture, hooks, allocation                                 */
/* ------------------------------------------------------------------------ */

/* One YUV 4:2:0 picture. format 2 = planar YUV420, anything else = NV12. */
typedef struct tagST_PIC {
    int32_t width;
    int32_t height;
    int32_t stride;
    uint8_t* pY;
    uint8_t* pU; /* planar: U plane; NV12: interleaved chroma plane */
    uint8_t* pV; /* planar: V plane; NV12: unused */
    int32_t format;
} tagST_PIC;

#define TOCRA_FORMAT_YUV420 2

/* The same picture as the pipeline hands it over: plane fields hold handles. */
typedef struct tagST_PIC_HANDLE {
    int32_t width;
    int32_t height;
    int32_t stride;
    uint32_t hY;
    uint32_t hU;
    uint32_t hV;
    int32_t format;
} tagST_PIC_HANDLE;
TOCRA_STATIC_ASSERT(sizeof(tagST_PIC_HANDLE) == 28, "picture handle record is 7 words");

typedef void* (*FunConvert2Addr_t)(uint32_t handle);
typedef void (*FunInvalidBuff_t)(void* addr);

TOCRA_API void setIO2VAConverter(FunConvert2Addr_t fn);
TOCRA_API void setGraphicBufferInvalidater(FunInvalidBuff_t fn);

TOCRA_API void* iMalloc(size_t size, const char* func, int line);
TOCRA_API void iFree(void* ptr, const char* func, int line);

/* ------------------------------------------------------------------------ */
/* Worker pool                                                               */
/* ------------------------------------------------------------------------ */

#define TOCRA_POOL_MAX_THREADS 8

typedef void (*MultiThreadCallback)(void* arg, int index);

TOCRA_API int MultiThread_Init(int n);
TOCRA_API void MultiThread_set(int i, MultiThreadCallback callback, void* arg);
TOCRA_API int MultiThread_trySet(int i, MultiThreadCallback callback, void* arg);
TOCRA_API int MultiThread_post(int i);
TOCRA_API int MultiThread_wait(int i);
TOCRA_API int MultiThread_post_lock(int i);
TOCRA_API int MultiThread_clean(int i);
TOCRA_API void MultiThread_destory(void);

/* ------------------------------------------------------------------------ */
/* Thread helpers and parallel copy                                          */
/* ------------------------------------------------------------------------ */

/* One band of imgDataCopy. */
typedef struct tagST_COPY_BAND {
    const uint8_t* src;
    uint8_t* dst;
    int32_t srcPitch;
    int32_t dstPitch;
    int32_t rows;
} tagST_COPY_BAND;

/* What each thread of create_thread_lock / create_thread_unlock receives. */
typedef struct tagST_THREAD_RECORD {
    pthread_t thread;
    int32_t index;
    void* arg;
} tagST_THREAD_RECORD;

TOCRA_API int imgDataCopy(const uint8_t* src, uint8_t* dst, int srcPitch, int height, int dstPitch);
TOCRA_API void* MultiThreadDataCopy(void* band /* tagST_COPY_BAND* */);
TOCRA_API int create_thread_lock(void* (*fn)(void*), void* arg, int n);
TOCRA_API int create_thread_unlock(void* (*fn)(void*), void* arg, int n);
TOCRA_API int thread_wait(long thread);

/* ------------------------------------------------------------------------ */
/* Integral images and box sums                                              */
/* ------------------------------------------------------------------------ */

typedef struct IntegralJob {
    int32_t* pRow1; /* integral row 1 */
    const uint8_t* pSrc;
    int32_t pitch; /* width + 1 */
    int32_t srcStride;
    int32_t integralHeight; /* height + 1 */
    int32_t taskCount;      /* 4 */
} IntegralJob;

typedef struct BoxSumHJob {
    int32_t* pOut;
    const uint8_t* pSrc;
    int32_t width;
    int32_t stride;
    int32_t height;
    int32_t radius;
    int32_t taskCount;
} BoxSumHJob;

typedef struct BoxSumVJob {
    const int32_t* pIn;
    uint8_t* pDst;
    uint8_t* pScratch;
    int32_t width;
    int32_t stride;
    int32_t height;
    int32_t radius;
    int32_t taskCount;
} BoxSumVJob;

TOCRA_API void IntergralMat_MT(const uint8_t* src, int32_t* dst, int width, int height, int stride);
TOCRA_API void IntegralMat_partH_Caller(void* job, int index);
TOCRA_API void IntegralMat_partV_Caller(int32_t* row1, int pitch, int integralHeight);

TOCRA_API int IntegralMat_H_MT(int32_t* out, const uint8_t* src, int width, int stride, int height, int radius);
TOCRA_API void IntegralMat_H_MtCaller(void* job, int index);
TOCRA_API void IntegralMat_H_S32XS32(int32_t* out, const uint8_t* src, int width, int stride, int rows, int radius);
TOCRA_API void IntegralMat_H_S32XS32_Neon(int32_t* out, const uint8_t* src, int width, int stride, int rows,
                                          int radius);
TOCRA_API void IntegralMat_H_S32XS32_Neon3(int32_t* out, const uint8_t* src, int width, int stride, int rows,
                                           int radius);

TOCRA_API int IntegralMat_V_MT(uint8_t* dst, const int32_t* in, int width, int stride, int height, int radius,
                               uint8_t** cursor);
TOCRA_API void IntegralMat_V_MtCaller(void* job, int index);
TOCRA_API void IntegralMat_V_S32XS32_Neon2(uint8_t* dst, const int32_t* in, int width, int stride, int rows,
                                           int radius);

/* ------------------------------------------------------------------------ */
/* Box filter with face map                                                  */
/* ------------------------------------------------------------------------ */

/* One detected face: words 1..4 are the edges in full-resolution pixels. */
typedef struct FaceInfo {
    int32_t id;
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
    int32_t reserved[10];
} FaceInfo;
TOCRA_STATIC_ASSERT(sizeof(FaceInfo) == 60, "face record is 15 words");

#pragma pack(push, 1)
typedef struct BoxFilterApiParams {
    uint32_t hOutput; /* weight map */
    uint32_t hFaces;  /* FaceInfo records */
    uint32_t hWork;   /* work area */
    int32_t workSize;
    int32_t faceNum;
    int32_t nFaceAjustRatio;
    int32_t nMargin;
    int32_t width;
    int32_t height;
    int32_t nSmoothRadius;
    uint8_t background;
} TOCRA_PACKED BoxFilterApiParams;
#pragma pack(pop)
TOCRA_STATIC_ASSERT(sizeof(BoxFilterApiParams) == 41, "box filter request is 41 bytes");
TOCRA_STATIC_ASSERT(offsetof(BoxFilterApiParams, nSmoothRadius) == 36, "box filter request layout");
TOCRA_STATIC_ASSERT(offsetof(BoxFilterApiParams, background) == 40, "box filter request layout");

TOCRA_API int BoxFiltering_neon(const uint8_t* src, uint8_t* dst, int width, int stride, int height, int radius,
                                uint8_t* work, int workSize);
TOCRA_API int BoxFilter_TocraAPI(BoxFilterApiParams* params);

/* ------------------------------------------------------------------------ */
/* YUV-to-RGB downscale and histograms                                       */
/* ------------------------------------------------------------------------ */

#pragma pack(push, 1)
typedef struct BoxfilterYuvParams {
    uint32_t hMap;
    uint32_t hFaces;
    uint32_t hWork;
    int32_t workSize;
    int32_t faceNum;
    int32_t nFaceAjustRatio;
    int32_t nMargin;
    int32_t mapWidth;
    int32_t mapHeight;
    int32_t nSmoothRadius;
    uint8_t background; /* not used: this entry fills the map with 255 */
    uint32_t hSource;   /* luma plane, chroma plane height * stride behind it */
    uint32_t hDest;     /* result buffer, see the layout in the README */
    int32_t width;
    int32_t height;
    int32_t stride;
} TOCRA_PACKED BoxfilterYuvParams;
#pragma pack(pop)
TOCRA_STATIC_ASSERT(sizeof(BoxfilterYuvParams) == 61, "histogram request is 61 bytes");
TOCRA_STATIC_ASSERT(offsetof(BoxfilterYuvParams, hSource) == 41, "histogram request layout");
TOCRA_STATIC_ASSERT(offsetof(BoxfilterYuvParams, hDest) == 45, "histogram request layout");
TOCRA_STATIC_ASSERT(offsetof(BoxfilterYuvParams, width) == 49, "histogram request layout");
TOCRA_STATIC_ASSERT(offsetof(BoxfilterYuvParams, height) == 53, "histogram request layout");
TOCRA_STATIC_ASSERT(offsetof(BoxfilterYuvParams, stride) == 57, "histogram request layout");

/* The frame is height * stride luma bytes followed by the chroma plane
 * (height / 2 rows of stride bytes); the result is as laid out in the README.
 * Every read and write stays inside those two buffers. */
TOCRA_API int BoxfilterYuv2RgbHist_TocraAPI(BoxfilterYuvParams* params);
TOCRA_API void DownScaleYuv2RgbHist_Neon(const uint8_t* frame, uint8_t* dst, int width, int height, int stride);
/* Colour conversion of `rows` rows of `width` pixels, with 2x2-block
 * histograms (B, G, R) in hist. A width and a row count that are both odd
 * are refused: "YUV2RGBX4_LUT_NEON height and width % 2 != 0." is logged
 * and nothing is written, the counters included. Otherwise rows and pixels
 * are taken in pairs, so the caller provides, besides rows x width:
 *   - with an odd row count, row `rows` of y and uv (read) and of b, g and r
 *     (written);
 *   - with an odd width, in every row, luma byte `width` and chroma bytes
 *     2 width and 2 width + 1 (read), and byte `width` of b, g and r
 *     (written; with stride == width that is the next row's first byte).
 * YUV2RGB_LUTX4_NEON_MT runs the kernel on four bands of height / 4 rows
 * (the last takes the rest), each into its own 768 counters of hist. Each
 * band goes through the size check on its own: with an odd width, every band
 * of an odd row count logs the line and leaves its rows and its counters
 * as they were. A band 0..2 of an odd row count reads the next band's first
 * row for its last blocks and leaves the writing of it to that band; the
 * last band of an odd row count reads and writes row `height`. Where two
 * bands would write the same byte (column `width` of a band's last row when
 * stride == width), the later band's value stands. */
TOCRA_API void YUV2RGB_LUTX4_NEON(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r,
                                  uint32_t* hist, int width, int rows, int stride, int uvStride);
TOCRA_API int YUV2RGB_LUTX4_NEON_MT(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r,
                                    uint32_t* hist, int width, int height, int uvStride, int stride);

/* ------------------------------------------------------------------------ */
/* Frame brightness balance                                                  */
/* ------------------------------------------------------------------------ */

typedef struct FrameBalanceParams {
    uint32_t hFrameA;
    uint32_t hFrameB;
    uint32_t hOutput; /* FrameBalanceResult */
    int32_t width;
    int32_t height;
    int32_t stride;
} FrameBalanceParams;
TOCRA_STATIC_ASSERT(sizeof(FrameBalanceParams) == 24, "balance request is 6 words");

typedef struct FrameBalanceResult {
    uint32_t cumA[256];
    uint32_t cumB[256];
    int32_t joint;
} FrameBalanceResult;
TOCRA_STATIC_ASSERT(sizeof(FrameBalanceResult) == 2052, "balance result is 2052 bytes");
TOCRA_STATIC_ASSERT(offsetof(FrameBalanceResult, joint) == 2048, "balance result layout");

TOCRA_API int CalcuFrameBalance_TocraAPI(FrameBalanceParams* params);
TOCRA_API void GetCumHist_Neon(const uint8_t* plane, int width, int rows, int stride, int step, uint32_t* hist);
TOCRA_API int GetCumHist_Neon_MT(const uint8_t* plane, int width, int height, int stride, int step, uint32_t* set);
TOCRA_API void GetCumSum_NEON(const uint8_t* plane, int width, int rows, int stride, uint32_t* hist);
TOCRA_API int GetCumSum_Neon_MT(const uint8_t* plane, int width, int height, int stride, uint32_t* set);
TOCRA_API void CalcForwardIMF(const uint32_t* cumA, const uint32_t* cumB, uint8_t* imf);
TOCRA_API void CalcJointPoint(const uint32_t* cumB, const uint32_t* cumA, int32_t* joint);

/* ------------------------------------------------------------------------ */
/* x4 scaling and up-scale error                                             */
/* ------------------------------------------------------------------------ */

/* x2 down-scale by rounded 2x2 means: output row r / 2 from source rows
 * r, r + 1 (r = 0, 2, ... below `rows`), output column x from source
 * columns 2x, 2x + 1 (2x below `width`). So the caller provides, besides
 * rows x width: with an odd row count, row `rows` of the source; with an odd
 * width, the byte at column `width` of every row read (the padding, or the
 * next row's first byte). ceil(rows / 2) output rows are written, each with
 * ceil(width / 2) bytes but never more than dstStride.
 * DownScaleX4_Neon_MT: four bands of band = height / 4 source rows (the last
 * takes the rest); band k writes from output row k * (band / 2). With an odd
 * band, the last pair of bands 0..2 reads the next band's first row and
 * makes the same output row as the next band's first pair: the later band's
 * value stands. The last band, with an odd row count, reads row `height`.
 * Odd bands also leave the last output rows unwritten (a height of 12 writes
 * rows 0..4 only): use heights that are multiples of 8 for a plain halving. */
TOCRA_API void Neon_DownScaleX4(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride);
TOCRA_API int DownScaleX4_Neon_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride,
                                  int dstStride);
TOCRA_API void MT_UpScale4X_NEON(const uint8_t* src, int height, int width, int srcStride, int dstStride, uint8_t* dst);
TOCRA_API void UpScaleError_NEON(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int rows, int stride);
TOCRA_API int UpScaleError_Neon_MT(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int height, int stride);

/* ------------------------------------------------------------------------ */
/* Feature descriptors                                                       */
/* ------------------------------------------------------------------------ */

/* Keypoint as the pipeline stores it: 1/64 pixel fixed point. */
typedef struct tagST_KEYPOINT {
    int32_t x;
    int32_t y;
    uint32_t reserved; /* never read or written */
} tagST_KEYPOINT;
TOCRA_STATIC_ASSERT(sizeof(tagST_KEYPOINT) == 12, "keypoint record is 12 bytes");

typedef struct ST_IMAGEFEATURES {
    tagST_KEYPOINT* pKeyPoints;
    uint8_t* pDescriptors; /* count * 64 bytes */
    int32_t count;
} ST_IMAGEFEATURES;

#define TOCRA_DESCRIPTOR_BYTES 64

typedef struct tagST_BRIEF_REQUEST {
    uint32_t hImage;       /* 8-bit luma plane */
    uint32_t reserved;     /* not read */
    uint32_t hKeyPoints;   /* tagST_KEYPOINT[count] */
    uint32_t hDescriptors; /* count * 64 bytes, written */
    int32_t width;
    int32_t height;
    int32_t stride;
    int32_t count;
} tagST_BRIEF_REQUEST;
TOCRA_STATIC_ASSERT(sizeof(tagST_BRIEF_REQUEST) == 32, "descriptor request is 8 words");

/* -1000 with "GetBrief_Descriptors_TocraAPI malloc error\n" when the call's
 * scratch (16 bytes per keypoint for the walk order, 960 KiB of integral
 * windows) cannot be allocated; -997 with "GetBrief_Descriptors_TocraAPI
 * MultiThread_Init fail\n" when the worker pool cannot be started, in which
 * case the walk order's block is not freed (the interface's one documented
 * leak: treat -997 as fatal for the session). */
TOCRA_API int GetBrief_Descriptors_TocraAPI(tagST_BRIEF_REQUEST* request);
TOCRA_API int GenerateDiscriptor_Brief_MT(ST_IMAGEFEATURES* features, int* integral, int integralStride);
TOCRA_API void GenerateDiscriptor_Brief_MT_Caller(void* job, int workerIndex);
TOCRA_API void GenerateDiscriptor_Brief(const int* integral, ST_IMAGEFEATURES* features, int integralStride);
TOCRA_API int smoothedSum(const int* integral, int a, int b, int c, int d, int stride);

/* ------------------------------------------------------------------------ */
/* RANSAC homography estimation                                              */
/* ------------------------------------------------------------------------ */

typedef struct tagST_MATCH_PAIRS {
    float* pRefPoint;   /* x, y interleaved */
    float* pMatchPoint; /* x, y interleaved */
    int32_t pointNum;
} tagST_MATCH_PAIRS;

typedef struct tagRANSAC_PARAMS {
    int32_t maxIters;
    float threshold; /* squared distance, pixels^2 */
    float confidence;
} tagRANSAC_PARAMS;

TOCRA_API int RansacEstimation(tagST_MATCH_PAIRS* pairs, float* H, tagRANSAC_PARAMS* params, unsigned char* scratch);
TOCRA_API int Refine(tagST_MATCH_PAIRS* pairs, unsigned char* mask, float* H, float threshold, float* errSum,
                     int* inlierCount);
TOCRA_API int RefineHomography(tagST_MATCH_PAIRS* pairs, float* H, unsigned char* scratch);
TOCRA_API int HomographyEstimation(tagST_MATCH_PAIRS* pairs, float* H, tagRANSAC_PARAMS* params,
                                   unsigned char* scratch);
TOCRA_API int AlignData(int value, int alignment);

/* ------------------------------------------------------------------------ */
/* Levenberg-Marquardt minimiser                                             */
/* ------------------------------------------------------------------------ */

typedef struct lm_control_type {
    float ftol;
    float xtol;
    float gtol;
    float epsilon;
    float stepbound;
    float fnorm;
    int32_t maxcall;
    int32_t nfev;
    int32_t info;
} lm_control_type;

typedef void (*lm_evaluate_ftype)(float* x, int m, float* fvec, void* data, int* info);
typedef void (*lm_print_ftype)(int n, float* x, int m, float* fvec, void* data, int iflag, int iter, int nfev);

TOCRA_API void LM_Minimize(int m, int n, float* x, lm_evaluate_ftype evaluate, lm_print_ftype printout, void* data,
                           lm_control_type* control, unsigned char* work);
TOCRA_API void LM_Evaluate(float* h, int m, float* fvec, void* pairs, int* info);

/* ------------------------------------------------------------------------ */
/* Motion estimation and registration area                                   */
/* ------------------------------------------------------------------------ */

typedef struct tagST_REGISTRATION_AREA {
    int32_t x;
    int32_t y;
    int32_t width;
    int32_t height;
} tagST_REGISTRATION_AREA;

typedef struct tagST_IMGREGISTRATION_PARAMS_IN {
    tagST_PIC refPic;
    tagST_PIC srcPic;
    int32_t reserved[8];
    tagST_MATCH_PAIRS matchPairs;
} tagST_IMGREGISTRATION_PARAMS_IN;

#define TOCRA_OUT_PIC_SLOTS 6

typedef struct tagST_IMGREGISTRATION_PARAMS_OUT {
    tagST_PIC outPic[TOCRA_OUT_PIC_SLOTS];
    int32_t reserved[2];
    tagST_REGISTRATION_AREA area;
} tagST_IMGREGISTRATION_PARAMS_OUT;

TOCRA_API int ImgRegistration_Query(int* size, int* other, int width, int height);
/* Returns 3 for fewer than 5 pairs or a rejected motion, before any plane is
 * looked at; -998 with "Reg ImgRegistration: <field> is invalid\n" for a null
 * pair array (checked before the refit) or a null plane of srcPic or of
 * outPic[frameIndex] (checked before the warp; V only for the planar
 * format), and with "Reg ImgRegistration: frame index %d out of range\n" for
 * a slot outside 0 to 5 (checked before the warp as well). */
TOCRA_API int ImgRegistration(tagST_IMGREGISTRATION_PARAMS_IN* in, tagST_IMGREGISTRATION_PARAMS_OUT* out,
                              int frameIndex);
TOCRA_API int MotionEstimation(float* H, int width, int height, tagST_REGISTRATION_AREA* area);

/* ------------------------------------------------------------------------ */
/* Registration entry points (pipeline records: 32-bit words)                */
/* ------------------------------------------------------------------------ */

typedef struct tagST_RANSAC_REQUEST {
    uint32_t refPointBuf;   /* float x, y per pair, written */
    uint32_t matchPointBuf; /* float x, y per pair, written */
    int32_t pointNum;       /* in: matches; out: pairs kept */
    uint32_t queryIdx;      /* uint16 per match, into the match image's keypoints */
    uint32_t trainIdx;      /* uint16 per match, into the reference image's keypoints */
    uint32_t pDistance;     /* only checked to be convertible */
    int32_t matchNum;
    int32_t scale;
    int32_t reserved;
    uint32_t refKeypoints;   /* tagST_KEYPOINT records */
    uint32_t matchKeypoints; /* tagST_KEYPOINT records */
} tagST_RANSAC_REQUEST;
TOCRA_STATIC_ASSERT(sizeof(tagST_RANSAC_REQUEST) == 44, "RANSAC request is 11 words");

typedef struct tagST_MATCH_PAIRS_HANDLE {
    uint32_t refPointBuf;
    uint32_t matchPointBuf;
    int32_t pointNum;
} tagST_MATCH_PAIRS_HANDLE;

/* Registration input record: 22 words, then one pair record per frame 1..5. */
typedef struct tagST_REGIS_INPUT_RECORD {
    tagST_PIC_HANDLE refPic;
    tagST_PIC_HANDLE srcPic;
    uint32_t reserved[8];
    tagST_MATCH_PAIRS_HANDLE framePairs[5]; /* entry k-1 belongs to frame k; frame 0's
                                               record is reserved[5..7] */
} tagST_REGIS_INPUT_RECORD;
TOCRA_STATIC_ASSERT(sizeof(tagST_REGIS_INPUT_RECORD) == 37 * 4, "registration input is 22 + 3 x 5 words");
TOCRA_STATIC_ASSERT(offsetof(tagST_REGIS_INPUT_RECORD, framePairs) == 22 * 4, "registration input layout");

/* Registration output record: 48 words. */
typedef struct tagST_REGIS_OUTPUT_RECORD {
    tagST_PIC_HANDLE outPic[TOCRA_OUT_PIC_SLOTS];
    uint32_t reserved[2];
    tagST_REGISTRATION_AREA area;
} tagST_REGIS_OUTPUT_RECORD;
TOCRA_STATIC_ASSERT(sizeof(tagST_REGIS_OUTPUT_RECORD) == 48 * 4, "registration output is 48 words");
TOCRA_STATIC_ASSERT(offsetof(tagST_REGIS_OUTPUT_RECORD, area) == 44 * 4, "registration output layout");

typedef struct tagST_REGISTRATION_REQUEST {
    tagST_REGIS_INPUT_RECORD* pInput;
    tagST_REGIS_OUTPUT_RECORD* pOutput;
    int32_t frameIndex; /* 0..5 */
} tagST_REGISTRATION_REQUEST;

typedef struct tagST_RANSAC_REGIS_REQUEST {
    uint32_t hRansacRequest; /* tagST_RANSAC_REQUEST */
    uint32_t hInput;         /* tagST_REGIS_INPUT_RECORD */
    uint32_t hOutput;        /* tagST_REGIS_OUTPUT_RECORD */
    int32_t frameIndex;      /* 0..5 */
} tagST_RANSAC_REGIS_REQUEST;
TOCRA_STATIC_ASSERT(sizeof(tagST_RANSAC_REGIS_REQUEST) == 16, "combined request is 4 words");

/* Frame indices 0 to 5 name the records' slots; any other is refused with
 * -998 and "Reg frame index %d out of range\n" (by Ransac_Regis_TocraAPI
 * after its RANSAC step, where the index is first used). Registration_TocraAPI
 * does not check its handle conversions: ImgRegistration checks each address
 * where it is first used (see there), so too few pairs or a rejected motion
 * answer 3 whatever the handles gave. */
TOCRA_API int RansacEst_TocraAPI(tagST_RANSAC_REQUEST* request);
TOCRA_API int Registration_TocraAPI(tagST_REGISTRATION_REQUEST* request);
TOCRA_API int Ransac_Regis_TocraAPI(tagST_RANSAC_REGIS_REQUEST* request);

/* ------------------------------------------------------------------------ */
/* Perspective warp and border fill                                          */
/* ------------------------------------------------------------------------ */

/* The warps take the planes of all three pictures to hold a frame of the
 * first picture's size (pitch = its width, or that width rounded up to 128 in
 * the stride variant); the fills take the destination's own layout. A call
 * that would read or write outside those planes is refused: the warps return
 * -998, the fills return nothing; both log "<function> invalid input: ...".
 * Anything else runs as the loops say, bytes past a row's end included. */

TOCRA_API int AffineTransform(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H, tagST_REGISTRATION_AREA* area,
                              unsigned char* scratch);
TOCRA_API int AffineTransform_neon(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                   tagST_REGISTRATION_AREA* area, unsigned char* scratch);
TOCRA_API int AffineTransform_YUV420(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                     tagST_REGISTRATION_AREA* area, unsigned char* scratch);
TOCRA_API int AffineTransform_NV12(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                   tagST_REGISTRATION_AREA* area, unsigned char* scratch);
TOCRA_API int AffineTransform_neon_YUV420(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                          tagST_REGISTRATION_AREA* area, unsigned char* scratch);
TOCRA_API int AffineTransform_neon_Stride_YUV420(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                                 tagST_REGISTRATION_AREA* area, unsigned char* scratch);
TOCRA_API int AffineTransform_neon_NV12(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                        tagST_REGISTRATION_AREA* area, unsigned char* scratch);

TOCRA_API void FillBlank2(tagST_PIC* dst, int x, int y, int w, int h);
TOCRA_API void FillBlank_YUV420(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h);
TOCRA_API void FillBlank_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h);
TOCRA_API void FillBlank_neon_YUV420(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h);
TOCRA_API void FillBlank_neon_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h);
TOCRA_API void FillBlank3(tagST_PIC* dst, int x, int y, int w, int h);
TOCRA_API void FillBlank3_Stride(tagST_PIC* dst, int x, int y, int w, int h);

/* ------------------------------------------------------------------------ */
/* XML configuration                                                         */
/* ------------------------------------------------------------------------ */

#pragma pack(push, 1)
typedef struct _stXmlConfigInfoHdr {
    uint8_t MotionLowGray;
    uint8_t MotionHighGray;
    float MotionRatio;
    uint8_t DenoiseDarkThresh;
    int32_t GhostRemovalMethod;
    int32_t night_lumaavg;
    int32_t LocalMotionCorrection;
    int32_t ImageFusionMethod;
    int32_t PyramidTopSize;
    int32_t WeightCalcMethod;
    int32_t MinUnderExposureDiv;
    int32_t MaxUnderExposureDiv;
    int32_t MinOverExposureDiv;
    int32_t MaxOverExposureDiv;
    uint8_t BlendCenter;
    float BlendSigma;
    float MaxBrightWeight;
    float MaxDarkWeight;
    float MinDarkWeight;
    float MinBrightWeight;
    int32_t AjustRatio;
    int32_t Margin;
    int32_t SmoothRadius;
    int32_t VornelidPyramidTopSize;
    int32_t VornelidWeightCalcMethod;
    int32_t VornelidBlendCenter;
    float VornelidBlendSigma;
    uint8_t NoFlashWeight;
} TOCRA_PACKED _stXmlConfigInfoHdr;
#pragma pack(pop)
TOCRA_STATIC_ASSERT(sizeof(_stXmlConfigInfoHdr) == 97, "configuration record is 97 bytes");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MotionLowGray) == 0, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MotionHighGray) == 1, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MotionRatio) == 2, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, DenoiseDarkThresh) == 6, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, GhostRemovalMethod) == 7, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, night_lumaavg) == 11, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, LocalMotionCorrection) == 15, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, ImageFusionMethod) == 19, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, PyramidTopSize) == 23, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, WeightCalcMethod) == 27, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MinUnderExposureDiv) == 31, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MaxUnderExposureDiv) == 35, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MinOverExposureDiv) == 39, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MaxOverExposureDiv) == 43, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, BlendCenter) == 47, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, BlendSigma) == 48, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MaxBrightWeight) == 52, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MaxDarkWeight) == 56, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MinDarkWeight) == 60, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, MinBrightWeight) == 64, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, AjustRatio) == 68, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, Margin) == 72, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, SmoothRadius) == 76, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, VornelidPyramidTopSize) == 80, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, VornelidWeightCalcMethod) == 84, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, VornelidBlendCenter) == 88, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, VornelidBlendSigma) == 92, "configuration record layout");
TOCRA_STATIC_ASSERT(offsetof(_stXmlConfigInfoHdr, NoFlashWeight) == 96, "configuration record layout");

typedef struct tagST_XML_PARSE_REQUEST {
    uint32_t xmlInfo; /* handle of the 97-byte _stXmlConfigInfoHdr */
    const char* path; /* directory, ending with the path separator */
} tagST_XML_PARSE_REQUEST;

/* 0, -998, -999 ("xml XmlConfig.LoadConfig failed\n"), or -1000 with the
 * error line "ParseXML_TocraAPI malloc failed\n" when the parser runs out of
 * memory: nothing is then loaded (the next call reads the file again) and the
 * record is not written. */
TOCRA_API int ParseXML_TocraAPI(tagST_XML_PARSE_REQUEST* request);

/* ------------------------------------------------------------------------ */
/* Bounds-checked memory and string functions                                */
/* ------------------------------------------------------------------------ */

TOCRA_API int memcpy_s(void* dst, size_t dstSize, const void* src, size_t count);
TOCRA_API int memmove_s(void* dst, size_t dstSize, const void* src, size_t count);
TOCRA_API int memset_s(void* dst, size_t dstSize, int value, size_t count);
TOCRA_API int strcpy_s(char* dst, size_t dstSize, const char* src);
TOCRA_API int strncpy_s(char* dst, size_t dstSize, const char* src, size_t count);
/* Formatted input from a string, scanf-style. Text destinations (%c, %s, %[)
 * take the destination followed by its size as an unsigned int; a field that
 * does not fit (with the NUL of %s and %[) fails and leaves an empty string.
 * Integers saturate at the destination's limits. Returns the number of fields
 * assigned, or -1 for a null or empty str, a null format, or input that ended
 * before the first conversion. */
TOCRA_API int sscanf_s(const char* str, const char* format, ...);
TOCRA_API int vsscanf_s(const char* str, const char* format, va_list args);
/* The formatted-input engine behind both scan functions: reads at most len
 * characters of str, stopping early at a NUL. */
TOCRA_API int scan_input_s(const char* str, size_t len, const char* format, va_list args);

#if defined(__cplusplus)
} /* extern "C" */
#endif

#endif /* BRIMVEL_TOCRA_H */
