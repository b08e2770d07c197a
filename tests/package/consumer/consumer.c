/*
 * A camera pipeline's smallest use of the installed library, in plain C99:
 * install both buffer hooks over a handle table, balance two identical
 * frames that hold every grey level, and check the answer.
 */
#include <brimvel_tocra.h>

#include <stdio.h>
#include <string.h>

enum { kWidth = 32, kHeight = 32, kStride = 48 };

static uint8_t frameA[kHeight * kStride];
static uint8_t frameB[kHeight * kStride];
static FrameBalanceResult result;

/* Handle -> buffer. Handle 0 is never valid. */
static void* const handles[] = {NULL, frameA, frameB, &result};

static void* convert(uint32_t handle) { return handle < sizeof(handles) / sizeof(handles[0]) ? handles[handle] : NULL; }

/* The frames were written by this process: nothing to invalidate. */
static void invalidate(void* addr) { (void)addr; }

int main(void) {
    FrameBalanceParams params;
    int x, y, status;

    /* The sampled pixels (even rows and columns) hold each level once. */
    for (y = 0; y < kHeight; ++y)
        for (x = 0; x < kStride; ++x) frameA[y * kStride + x] = (uint8_t)(x < kWidth ? (y / 2) * 16 + x / 2 : 0xEE);
    memcpy(frameB, frameA, sizeof(frameA));
    memset(&result, 0xA5, sizeof(result));

    setIO2VAConverter(convert);
    setGraphicBufferInvalidater(invalidate);

    params.hFrameA = 1;
    params.hFrameB = 2;
    params.hOutput = 3;
    params.width = kWidth;
    params.height = kHeight;
    params.stride = kStride;
    status = CalcuFrameBalance_TocraAPI(&params);
    if (status != TOCRA_OK) {
        fprintf(stderr, "CalcuFrameBalance_TocraAPI: status %d\n", status);
        return 1;
    }
    /* Every level once: the cumulative count at v is v + 1, and identical
     * frames with every level present meet at (0 + 255) >> 1. */
    for (x = 0; x < 256; ++x) {
        if (result.cumA[x] != (uint32_t)x + 1 || result.cumB[x] != (uint32_t)x + 1) {
            fprintf(stderr, "cumulative histograms: level %d holds %u and %u, expected %d\n", x,
                    (unsigned)result.cumA[x], (unsigned)result.cumB[x], x + 1);
            return 1;
        }
    }
    if (result.joint != 127) {
        fprintf(stderr, "joint point %d, expected 127\n", (int)result.joint);
        return 1;
    }
    /* A handle that does not convert is refused. */
    params.hOutput = 7;
    status = CalcuFrameBalance_TocraAPI(&params);
    if (status != TOCRA_NULL_POINTER) {
        fprintf(stderr, "unconvertible output handle: status %d, expected %d\n", status, TOCRA_NULL_POINTER);
        return 1;
    }
    printf("OK %s\n", CONSUMER_NAME);
    return 0;
}
