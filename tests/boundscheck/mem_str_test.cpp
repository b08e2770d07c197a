#include <cstring>

#include "boundscheck/safe_internal.h"
#include "support/test_support.h"

namespace {

const size_t kTooBig = size_t{0x80000000u};

TEST(MemcpyS, ChecksFireInOrder) {
    uint8_t dst[8], src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    memset(dst, 0x55, sizeof dst);
    EXPECT_EQ(memcpy_s(dst, 0, src, 4), 34);  // size before null
    EXPECT_EQ(memcpy_s(nullptr, 0, src, 4), TOCRA_ERANGE);
    EXPECT_EQ(memcpy_s(dst, kTooBig, src, 4), TOCRA_ERANGE);
    EXPECT_EQ(memcpy_s(nullptr, 8, src, 4), TOCRA_EINVAL);
    for (uint8_t v : dst) EXPECT_EQ(v, 0x55);      // nothing written so far
    EXPECT_EQ(memcpy_s(dst, 8, nullptr, 4), 150);  // null source before count
    for (uint8_t v : dst) EXPECT_EQ(v, 0);
    memset(dst, 0x55, sizeof dst);
    EXPECT_EQ(memcpy_s(dst, 8, src, 9), TOCRA_ERANGE_AND_RESET);
    for (uint8_t v : dst) EXPECT_EQ(v, 0);
    EXPECT_EQ(memcpy_s(dst, 8, src, 8), TOCRA_EOK);
    EXPECT_EQ(memcmp(dst, src, 8), 0);
    EXPECT_EQ(memcpy_s(dst, 8, dst, 8), 0);  // same address: nothing to do
    EXPECT_EQ(memcpy_s(dst, 8, src, 0), TOCRA_EOK);
}

TEST(MemcpyS, OverlapInBothDirectionsResets) {
    uint8_t buf[16];
    for (int i = 0; i < 16; ++i) buf[i] = static_cast<uint8_t>(i + 1);
    EXPECT_EQ(memcpy_s(buf + 1, 8, buf, 4), 182);  // dst above src
    for (int i = 1; i < 9; ++i) EXPECT_EQ(buf[i], 0);
    EXPECT_EQ(buf[0], 1);
    EXPECT_EQ(buf[9], 10);
    for (int i = 0; i < 16; ++i) buf[i] = static_cast<uint8_t>(i + 1);
    EXPECT_EQ(memcpy_s(buf, 8, buf + 3, 4), 182);  // dst below src
    for (int i = 0; i < 8; ++i) EXPECT_EQ(buf[i], 0);
    for (int i = 0; i < 16; ++i) buf[i] = static_cast<uint8_t>(i + 1);
    EXPECT_EQ(memcpy_s(buf, 8, buf + 4, 4), 0);  // adjacent, no overlap
    EXPECT_EQ(buf[0], 5);
}

TEST(MemcpyS, OverlapTestDoesNotWrapAtTheTopOfTheAddressSpace) {
    // Regions in the last bytes of the address space: adding the count to
    // the lower address wraps to a small number, which must not hide the
    // overlap. Only the helper sees these addresses.
    const void* high = reinterpret_cast<const void*>(UINTPTR_MAX - 3);
    const void* lower = reinterpret_cast<const void*>(UINTPTR_MAX - 7);
    EXPECT_TRUE(tocra::Overlap(high, lower, 8));
    EXPECT_TRUE(tocra::Overlap(lower, high, 8));
    EXPECT_FALSE(tocra::Overlap(high, lower, 4));  // adjacent
    EXPECT_FALSE(tocra::Overlap(high, high, 8));   // equal addresses are handled before
}

TEST(MemmoveS, MovesOverlappingBytes) {
    uint8_t buf[16];
    for (int i = 0; i < 16; ++i) buf[i] = static_cast<uint8_t>(i + 1);
    EXPECT_EQ(memmove_s(buf + 1, 8, buf, 4), TOCRA_EOK);
    const uint8_t want[] = {1, 1, 2, 3, 4, 6};
    EXPECT_EQ(memcmp(buf, want, 6), 0);
    EXPECT_EQ(memmove_s(buf, 8, nullptr, 4), TOCRA_EINVAL_AND_RESET);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(buf[i], 0);
    EXPECT_EQ(memmove_s(buf, 4, buf + 8, 5), TOCRA_ERANGE_AND_RESET);
    EXPECT_EQ(memmove_s(buf, 0, buf + 8, 1), TOCRA_ERANGE);
    EXPECT_EQ(memmove_s(nullptr, 4, buf, 1), TOCRA_EINVAL);
    EXPECT_EQ(memmove_s(buf, 4, buf + 8, 0), TOCRA_EOK);
}

TEST(MemsetS, TooManyBytesFillsTheWholeDestinationWithTheValue) {
    uint8_t buf[8];
    memset(buf, 0, sizeof buf);
    EXPECT_EQ(memset_s(buf, 4, 0xAB, 10), TOCRA_ERANGE_AND_RESET);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(buf[i], 0xAB);
    for (int i = 4; i < 8; ++i) EXPECT_EQ(buf[i], 0);
    EXPECT_EQ(memset_s(buf, 8, 0x11, 3), TOCRA_EOK);
    EXPECT_EQ(buf[2], 0x11);
    EXPECT_EQ(buf[3], 0xAB);
    EXPECT_EQ(memset_s(buf, kTooBig, 0, 1), TOCRA_ERANGE);
    EXPECT_EQ(memset_s(nullptr, 8, 0, 1), TOCRA_EINVAL);
}

TEST(StrcpyS, DestinationMustHoldTheTerminator) {
    char dst[8];
    strcpy(dst, "zzzz");
    EXPECT_EQ(strcpy_s(dst, 4, "abcd"), TOCRA_ERANGE_AND_RESET);
    EXPECT_EQ(dst[0], '\0');
    EXPECT_EQ(strcpy_s(dst, 5, "abcd"), TOCRA_EOK);
    EXPECT_STREQ(dst, "abcd");
    EXPECT_EQ(strcpy_s(dst, 8, nullptr), TOCRA_EINVAL_AND_RESET);
    EXPECT_EQ(dst[0], '\0');
    EXPECT_EQ(strcpy_s(nullptr, 8, "a"), TOCRA_EINVAL);
    EXPECT_EQ(strcpy_s(dst, 0, "a"), TOCRA_ERANGE);
    EXPECT_EQ(strcpy_s(dst, kTooBig, "a"), TOCRA_ERANGE);
    strcpy(dst, "same");
    EXPECT_EQ(strcpy_s(dst, 8, dst), TOCRA_EOK);
    EXPECT_STREQ(dst, "same");
}

TEST(StrcpyS, OverlapIsFoundDuringTheCopy) {
    char buf[32] = "abcdefgh";
    EXPECT_EQ(strcpy_s(buf + 2, 16, buf), 182);  // read position reaches dst
    EXPECT_EQ(buf[2], '\0');
    strcpy(buf, "abcdefgh");
    EXPECT_EQ(strcpy_s(buf, 4, buf + 2), 182);  // write position reaches src
    EXPECT_EQ(buf[0], '\0');
    strcpy(buf, "abcdefgh");
    EXPECT_EQ(strcpy_s(buf, 16, buf + 2), TOCRA_EOVERLAP_AND_RESET);
    strcpy(buf, "ab");
    EXPECT_EQ(strcpy_s(buf + 8, 8, buf), 0);  // far enough apart
    EXPECT_STREQ(buf + 8, "ab");
}

TEST(StrncpyS, CountAndRoomRules) {
    char dst[8];
    EXPECT_EQ(strncpy_s(dst, 5, "abcdef", 3), TOCRA_EOK);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(strncpy_s(dst, 5, "abcdef", 5), 162);  // count == size, long source
    EXPECT_EQ(dst[0], '\0');
    EXPECT_EQ(strncpy_s(dst, 5, "abcd", 5), 0);  // the NUL fits
    EXPECT_STREQ(dst, "abcd");
    EXPECT_EQ(strncpy_s(dst, 5, "abcdef", 4), TOCRA_EOK);
    EXPECT_STREQ(dst, "abcd");
    EXPECT_EQ(strncpy_s(dst, 5, "ab", 10), TOCRA_EOK);
    EXPECT_STREQ(dst, "ab");
    strcpy(dst, "xyz");
    EXPECT_EQ(strncpy_s(dst, 5, "ab", 0), TOCRA_EOK);
    EXPECT_EQ(dst[0], '\0');
    strcpy(dst, "xyz");
    EXPECT_EQ(strncpy_s(dst, 5, "ab", kTooBig), TOCRA_ERANGE_AND_RESET);
    EXPECT_EQ(dst[0], '\0');
    EXPECT_EQ(strncpy_s(dst, 5, nullptr, 1), TOCRA_EINVAL_AND_RESET);
    EXPECT_EQ(strncpy_s(nullptr, 5, "a", 1), TOCRA_EINVAL);
    EXPECT_EQ(strncpy_s(dst, 0, "a", 1), TOCRA_ERANGE);
}

TEST(StrncpyS, PathOf255CharactersDoesNotSurviveSize255) {
    std::string path(255, 'a');
    char buf[256];
    EXPECT_EQ(strncpy_s(buf, 255, path.c_str(), 255), TOCRA_ERANGE_AND_RESET);
    EXPECT_EQ(buf[0], '\0');
    path.resize(254);
    EXPECT_EQ(strncpy_s(buf, 255, path.c_str(), 255), TOCRA_EOK);
    EXPECT_EQ(strlen(buf), 254u);
}

TEST(StrncpyS, OverlapResets) {
    char buf[32] = "abcdefgh";
    EXPECT_EQ(strncpy_s(buf + 1, 16, buf, 6), TOCRA_EOVERLAP_AND_RESET);
    EXPECT_EQ(buf[1], '\0');
    strcpy(buf, "abcdefgh");
    EXPECT_EQ(strncpy_s(buf, 8, buf + 3, 6), TOCRA_EOVERLAP_AND_RESET);
    EXPECT_EQ(buf[0], '\0');
}

TEST(StrncpyS, TerminatorLandingOnTheSourceIsAnOverlap) {
    // Two characters from buf + 2 into buf: the terminator would be written
    // at buf + 2, the source's first byte, as strcpy_s would write its NUL.
    char buf[16] = "abcdef";
    EXPECT_EQ(strncpy_s(buf, 8, buf + 2, 2), TOCRA_EOVERLAP_AND_RESET);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(buf[2], 'c');  // the source is left as it was
    strcpy(buf, "cd");
    strcpy(buf + 4, "ef");
    EXPECT_EQ(strcpy_s(buf + 2, 8, buf + 4), 182);  // the same shape with strcpy_s
    strcpy(buf, "abcdef");
    EXPECT_EQ(strncpy_s(buf, 8, buf + 3, 2), 0);  // one byte short of the source
    EXPECT_STREQ(buf, "de");
    EXPECT_STREQ(buf + 3, "def");
}

}  // namespace
