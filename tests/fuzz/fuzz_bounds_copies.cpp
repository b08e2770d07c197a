// Fuzzes memcpy_s, memmove_s, memset_s, strcpy_s and strncpy_s inside one
// heap block: a work area between two guard zones. Destination, source,
// sizes and counts come from the fuzz bytes, so sources and destinations
// overlap in every way. Each call is compared, result code and every byte of
// the block, with a model worked out from the rules; a write outside
// [dst, dst + dstSize) shows up as a difference (or, past the block, as an
// AddressSanitizer report).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "brimvel_tocra.h"

namespace {

constexpr size_t kGuard = 48;
constexpr size_t kWork = 256;
constexpr size_t kBlock = kGuard + kWork + kGuard;
constexpr size_t kMaxSize = 2147483647u;

struct Reader {
    const uint8_t* p;
    size_t n;
    uint8_t u8() {
        if (n == 0) return 0;
        --n;
        return *p++;
    }
    uint32_t u16() { return u8() | static_cast<uint32_t>(u8()) << 8; }
};

struct Call {
    int op;
    bool dstNull, srcNull;
    size_t dst;      // offset in the block
    size_t dstSize;  // as passed
    size_t src;      // offset in the block
    size_t count;
    int value;
};

bool BadSize(size_t size) { return size == 0 || size > kMaxSize; }

// Sizes that exercise the range checks; they never lead to a write.
size_t OddSize(uint8_t pick) {
    const size_t odd[] = {0, size_t{0x80000000u}, size_t{0xFFFFFFFFu}, SIZE_MAX, kMaxSize + size_t{1}};
    return odd[pick % 5];
}

// memcpy_s, memmove_s, memset_s by their rules.
int ModelMem(const Call& c, std::vector<uint8_t>& m) {
    if (BadSize(c.dstSize)) return 34;
    if (c.dstNull) return 22;
    uint8_t* dst = m.data() + c.dst;
    if (c.op == 2) {
        const size_t n = c.count <= c.dstSize ? c.count : c.dstSize;
        memset(dst, c.value, n);
        return c.count <= c.dstSize ? 0 : 162;
    }
    if (c.srcNull) {
        memset(dst, 0, c.dstSize);
        return 150;
    }
    if (c.count > c.dstSize) {
        memset(dst, 0, c.dstSize);
        return 162;
    }
    if (c.dst == c.src) return 0;
    if (c.op == 0) {
        const bool overlap = (c.src < c.dst && c.dst < c.src + c.count) || (c.dst < c.src && c.src < c.dst + c.count);
        if (overlap) {
            memset(dst, 0, c.dstSize);
            return 182;
        }
    }
    std::vector<uint8_t> tmp(m.begin() + static_cast<ptrdiff_t>(c.src),
                             m.begin() + static_cast<ptrdiff_t>(c.src + c.count));
    if (!tmp.empty()) memcpy(dst, tmp.data(), tmp.size());
    return 0;
}

// strcpy_s and strncpy_s by their rules, worked out from lengths. The copy
// of byte j happens at step j; the first event decides, and at one step the
// events are tested in the order overlap, NUL copied, room used up, count
// reached. The source bytes are read before any write reaches them, so the
// original bytes are the ones copied.
int ModelStr(const Call& c, std::vector<uint8_t>& m) {
    if (BadSize(c.dstSize)) return 34;
    if (c.dstNull) return 22;
    uint8_t* dst = m.data() + c.dst;
    if (c.srcNull) {
        dst[0] = 0;
        return 150;
    }
    const bool limited = c.op == 4;
    if (limited && c.count > kMaxSize) {
        dst[0] = 0;
        return 162;
    }
    if (limited && c.count == 0) {
        dst[0] = 0;
        return 0;
    }
    if (!limited && c.dst == c.src) return 0;
    const std::vector<uint8_t> orig = m;
    const size_t len = strlen(reinterpret_cast<const char*>(orig.data() + c.src));
    const size_t gap = c.dst > c.src ? c.dst - c.src : c.src - c.dst;  // step of the overlap
    enum { kOverlap, kNul, kRoom, kCount };
    size_t at[4] = {gap, len, c.dstSize - 1, limited ? c.count - 1 : SIZE_MAX};
    int first = kOverlap;
    for (int e = 1; e < 4; ++e) {
        if (at[e] < at[first]) first = e;
    }
    const size_t step = at[first];
    auto copy = [&](size_t n) { memcpy(dst, orig.data() + c.src, n); };
    switch (first) {
        case kOverlap:
            copy(step);
            dst[0] = 0;
            return 182;
        case kNul:
            copy(len + 1);
            return 0;
        case kRoom:
            copy(c.dstSize);
            dst[0] = 0;
            return 162;
        default:
            copy(c.count);
            if (c.dst < c.src && c.dst + c.count == c.src) {  // the terminator lands on the source
                dst[0] = 0;
                return 182;
            }
            dst[c.count] = 0;
            return 0;
    }
}

int Run(const Call& c, uint8_t* block) {
    void* dst = c.dstNull ? nullptr : block + c.dst;
    const void* src = c.srcNull ? nullptr : block + c.src;
    switch (c.op) {
        case 0:
            return memcpy_s(dst, c.dstSize, src, c.count);
        case 1:
            return memmove_s(dst, c.dstSize, src, c.count);
        case 2:
            return memset_s(dst, c.dstSize, c.value, c.count);
        case 3:
            return strcpy_s(static_cast<char*>(dst), c.dstSize, static_cast<const char*>(src));
        default:
            return strncpy_s(static_cast<char*>(dst), c.dstSize, static_cast<const char*>(src), c.count);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    Reader r{data, size};
    // The block's initial bytes come from the input too, so strings end at
    // every possible place; the last byte is always a NUL so that no string
    // runs off the block.
    uint8_t* block = static_cast<uint8_t*>(malloc(kBlock));
    for (size_t k = 0; k < kBlock; ++k) block[k] = static_cast<uint8_t>(0xC0 + k * 7);
    const uint8_t fillMode = r.u8();
    for (size_t k = kGuard; k < kGuard + kWork; ++k) {
        // Mostly printable bytes with some NULs.
        const uint8_t b = fillMode & 1 ? r.u8() : static_cast<uint8_t>('a' + k % 26);
        block[k] = (fillMode & 2) && b % 11 == 0 ? 0 : b;
    }
    block[kBlock - 1] = 0;

    int calls = 0;
    while (r.n >= 6 && calls++ < 16) {
        Call c{};
        c.op = r.u8() % 5;
        const uint8_t flags = r.u8();
        c.dstNull = (flags & 0x07) == 0x07;
        c.srcNull = (flags & 0x38) == 0x38;
        c.dst = kGuard + r.u16() % kWork;
        c.dstSize = (flags & 0xC0) == 0xC0 ? OddSize(r.u8()) : 1 + r.u16() % (kGuard + kWork - c.dst);
        switch (r.u8() % 4) {
            case 0:
                c.count = OddSize(r.u8());
                break;
            case 1:
                c.count = c.dstSize;
                break;
            default:
                c.count = r.u16() % (kWork + 16);
                break;
        }
        c.value = static_cast<int8_t>(r.u8());
        // Any source whose count bytes stay in the block (strings stop at
        // the block's final NUL at the latest).
        const size_t span = c.count < kBlock ? kBlock - c.count : kBlock;
        c.src = (r.u8() & 1) ? c.dst - kGuard + r.u16() % (2 * kGuard) : r.u16() % span;
        if (c.op < 2 && c.count <= c.dstSize && c.src + c.count > kBlock) c.src = kBlock - c.count;
        if (c.src >= kBlock) c.src = kBlock - 1;

        std::vector<uint8_t> model(block, block + kBlock);
        const int want = (c.op <= 2) ? ModelMem(c, model) : ModelStr(c, model);
        const int got = Run(c, block);
        if (got != want || memcmp(model.data(), block, kBlock) != 0) {
            fprintf(stderr, "op %d dst %zu%s dstSize %zu src %zu%s count %zu value %d: got %d want %d\n", c.op, c.dst,
                    c.dstNull ? " (null)" : "", c.dstSize, c.src, c.srcNull ? " (null)" : "", c.count, c.value, got,
                    want);
            for (size_t k = 0; k < kBlock; ++k) {
                if (model[k] != block[k]) fprintf(stderr, "  byte %zu: got %d want %d\n", k, block[k], model[k]);
            }
            abort();
        }
    }
    free(block);
    return 0;
}
