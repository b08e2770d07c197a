// sscanf_s, vsscanf_s and the scan engine: argument checks, conversions,
// widths, sizes of text destinations, the return value and the work buffer.
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <string>

#include "boundscheck/scan_buffer.h"
#include "support/test_support.h"

namespace {

int ScanN(const char* str, size_t len, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    const int r = scan_input_s(str, len, format, ap);
    va_end(ap);
    return r;
}

int CallV(const char* str, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    const int r = vsscanf_s(str, format, ap);
    va_end(ap);
    return r;
}

TEST(ScanArguments, NullOrEmptyInputIsMinusOne) {
    int a = 7;
    EXPECT_EQ(sscanf_s(nullptr, "%d", &a), -1);
    EXPECT_EQ(sscanf_s("5", nullptr), -1);
    EXPECT_EQ(sscanf_s("", "%d", &a), -1);
    EXPECT_EQ(sscanf_s("", ""), -1);  // empty input fails even without conversions
    EXPECT_EQ(CallV(nullptr, "%d", &a), -1);
    EXPECT_EQ(CallV("", "%d", &a), -1);
    EXPECT_EQ(a, 7);
    EXPECT_EQ(ScanN(nullptr, 3, "%d", &a), -1);
    EXPECT_EQ(ScanN("5", 1, nullptr), -1);
    EXPECT_EQ(ScanN("5", 0, "%d", &a), -1);
    EXPECT_EQ(a, 7);
}

TEST(ScanArguments, InputFailureBeforeTheFirstConversionIsMinusOne) {
    int a = 7, b = 7;
    EXPECT_EQ(sscanf_s("   \t\n", "%d", &a), -1);
    EXPECT_EQ(sscanf_s("abc", "abc%d", &a), -1);
    EXPECT_EQ(sscanf_s("ab", "abc%d", &a), -1);         // literal runs out of input
    EXPECT_EQ(sscanf_s("abc", "abc%n%d", &b, &a), -1);  // %n is not a conversion
    EXPECT_EQ(b, 3);
    EXPECT_EQ(sscanf_s("5", "%*d %d", &a), 0);  // a suppressed conversion completed
    EXPECT_EQ(sscanf_s("5", "%d %d", &a, &b), 1);
    EXPECT_EQ(sscanf_s("x", "%d", &a), 0);  // matching failure, not input failure
    EXPECT_EQ(sscanf_s("-", "%d", &a), 0);
    EXPECT_EQ(sscanf_s("abc", "abd"), 0);
    EXPECT_EQ(sscanf_s("abc", "abc"), 0);
    EXPECT_EQ(a, 5);
}

TEST(ScanArguments, LengthLimitsAndNulEndTheInput) {
    int a = 0;
    EXPECT_EQ(ScanN("12345", 3, "%d", &a), 1);
    EXPECT_EQ(a, 123);
    const char withNul[] = {'4', '2', '\0', '7', '7'};
    EXPECT_EQ(ScanN(withNul, sizeof withNul, "%d", &a), 1);
    EXPECT_EQ(a, 42);
    char s[8] = "zzzzzzz";
    EXPECT_EQ(ScanN("abcdef", 2, "%s", s, 8u), 1);
    EXPECT_STREQ(s, "ab");
    EXPECT_EQ(ScanN(withNul, sizeof withNul, "%d%d", &a, &a), 1);
}

TEST(ScanIntegers, SignsBasesAndPrefixes) {
    int d = 0, i = 0;
    unsigned u = 0, o = 0, x = 0;
    EXPECT_EQ(sscanf_s("  -17 +8 0x1F 017 ff", "%d%i%i%o%x", &d, &i, &x, &o, &u), 5);
    EXPECT_EQ(d, -17);
    EXPECT_EQ(i, 8);
    EXPECT_EQ(x, 31u);
    EXPECT_EQ(o, 15u);
    EXPECT_EQ(u, 255u);
    EXPECT_EQ(sscanf_s("017 0X1a -0x10 12", "%i %i %i %X", &d, &i, &x, &u), 4);
    EXPECT_EQ(d, 15);
    EXPECT_EQ(i, 26);
    EXPECT_EQ(x, 0u - 16u);
    EXPECT_EQ(u, 0x12u);
    EXPECT_EQ(sscanf_s("-1 -0", "%u %d", &u, &d), 2);
    EXPECT_EQ(u, UINT_MAX);
    EXPECT_EQ(d, 0);
}

TEST(ScanIntegers, LongestValidNumberLeavesTheRest) {
    int a = 0;
    unsigned x = 9;
    char rest[8];
    EXPECT_EQ(sscanf_s("0xg", "%x%s", &x, rest, 8u), 2);  // "0x" without a digit is 0
    EXPECT_EQ(x, 0u);
    EXPECT_STREQ(rest, "xg");
    EXPECT_EQ(sscanf_s("08", "%i%d", &a, &x), 2);  // octal stops at 8
    EXPECT_EQ(a, 0);
    EXPECT_EQ(x, 8u);
    EXPECT_EQ(sscanf_s("3.5e2", "%d%s", &a, rest, 8u), 2);
    EXPECT_EQ(a, 3);
    EXPECT_STREQ(rest, ".5e2");
    EXPECT_EQ(sscanf_s("+x", "%d", &a), 0);
    EXPECT_EQ(sscanf_s("9", "%o", &x), 0);
}

TEST(ScanIntegers, WidthCountsSignAndPrefix) {
    int a = 0, b = 0, n = 0;
    EXPECT_EQ(sscanf_s("12345", "%2d%d", &a, &b), 2);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(b, 345);
    EXPECT_EQ(sscanf_s("-123", "%3d%n", &a, &n), 1);
    EXPECT_EQ(a, -12);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(sscanf_s("-5", "%1d", &a), 0);
    EXPECT_EQ(sscanf_s("0x1A", "%2i%n", &a, &n), 1);  // "0x" is cut: reads 0
    EXPECT_EQ(a, 0);
    EXPECT_EQ(n, 1);
    EXPECT_EQ(sscanf_s("0x1A", "%3x", &a), 1);
    EXPECT_EQ(a, 1);
    EXPECT_EQ(sscanf_s("12", "%0d", &a), 1);  // width 0 means none
    EXPECT_EQ(a, 12);
    EXPECT_EQ(sscanf_s("   77", "%2d", &a), 1);  // leading white space is not counted
    EXPECT_EQ(a, 77);
    // Huge widths saturate rather than wrap: 4294967298 taken modulo 2^32
    // would be a width of 2.
    EXPECT_EQ(sscanf_s("123456", "%4294967298d", &a), 1);
    EXPECT_EQ(a, 123456);
    EXPECT_EQ(sscanf_s("123456", "%99999999999999999999d", &a), 1);
    EXPECT_EQ(a, 123456);
}

TEST(ScanIntegers, OutOfRangeSaturatesAtTheDestination) {
    int a = 0;
    EXPECT_EQ(sscanf_s("2147483647 2147483648", "%d", &a), 1);
    EXPECT_EQ(a, INT_MAX);
    EXPECT_EQ(sscanf_s("2147483648", "%d", &a), 1);
    EXPECT_EQ(a, INT_MAX);
    EXPECT_EQ(sscanf_s("-2147483648", "%d", &a), 1);
    EXPECT_EQ(a, INT_MIN);
    EXPECT_EQ(sscanf_s("-2147483649", "%d", &a), 1);
    EXPECT_EQ(a, INT_MIN);
    EXPECT_EQ(sscanf_s("123456789012345678901234567890", "%i", &a), 1);
    EXPECT_EQ(a, INT_MAX);
    unsigned u = 0;
    EXPECT_EQ(sscanf_s("4294967296", "%u", &u), 1);
    EXPECT_EQ(u, UINT_MAX);
    EXPECT_EQ(sscanf_s("-4294967295", "%u", &u), 1);  // wraps like strtoul
    EXPECT_EQ(u, 1u);
    EXPECT_EQ(sscanf_s("-99999999999", "%u", &u), 1);  // too large: saturates
    EXPECT_EQ(u, UINT_MAX);
    signed char hh = 0;
    short h = 0;
    unsigned char uhh = 0;
    unsigned short uh = 0;
    EXPECT_EQ(sscanf_s("200 -40000 -1 70000", "%hhd %hd %hhu %hu", &hh, &h, &uhh, &uh), 4);
    EXPECT_EQ(hh, 127);
    EXPECT_EQ(h, -32768);
    EXPECT_EQ(uhh, 255);
    EXPECT_EQ(uh, 65535);
}

TEST(ScanIntegers, SizeModifiersReachTheirWholeRange) {
    long long ll = 0;
    unsigned long long ull = 0;
    int32_t i32 = 0;
    uint32_t u32 = 0;
    EXPECT_EQ(sscanf_s("9223372036854775807 -9223372036854775808", "%lld %I64d", &ll, &ll), 2);
    EXPECT_EQ(ll, LLONG_MIN);
    EXPECT_EQ(sscanf_s("9223372036854775807", "%I64d", &ll), 1);
    EXPECT_EQ(ll, LLONG_MAX);
    EXPECT_EQ(sscanf_s("9223372036854775808", "%lld", &ll), 1);
    EXPECT_EQ(ll, LLONG_MAX);
    EXPECT_EQ(sscanf_s("18446744073709551615", "%I64u", &ull), 1);
    EXPECT_EQ(ull, ULLONG_MAX);
    EXPECT_EQ(sscanf_s("18446744073709551616", "%llu", &ull), 1);
    EXPECT_EQ(ull, ULLONG_MAX);
    EXPECT_EQ(sscanf_s("ffffffffffffffff", "%llx", &ull), 1);
    EXPECT_EQ(ull, ULLONG_MAX);
    EXPECT_EQ(sscanf_s("-1", "%Lx", &ull), 1);
    EXPECT_EQ(ull, ULLONG_MAX);
    EXPECT_EQ(sscanf_s("-2147483648 4294967295", "%I32d %I32u", &i32, &u32), 2);
    EXPECT_EQ(i32, INT32_MIN);
    EXPECT_EQ(u32, UINT32_MAX);
    long l = 0;
    unsigned long ul = 0;
    EXPECT_EQ(sscanf_s("-2147483648 4294967295", "%ld %lu", &l, &ul), 2);
    EXPECT_EQ(l, -2147483647L - 1);
    EXPECT_EQ(ul, 4294967295UL);
    intmax_t j = 0;
    size_t z = 0;
    ptrdiff_t t = 0;
    EXPECT_EQ(sscanf_s("-5 6 -7", "%jd %zu %td", &j, &z, &t), 3);
    EXPECT_EQ(j, -5);
    EXPECT_EQ(z, 6u);
    EXPECT_EQ(t, -7);
    size_t iz = 0;
    EXPECT_EQ(sscanf_s("1234", "%Iu", &iz), 1);
    EXPECT_EQ(iz, 1234u);
}

TEST(ScanIntegers, LongDestinationIsNotOverrun) {
    // An int destination takes exactly four bytes, whatever the value.
    unsigned char bytes[12];
    memset(bytes, 0xEE, sizeof bytes);
    EXPECT_EQ(sscanf_s("99999999999999999999", "%d", bytes + 4), 1);
    int v;
    memcpy(&v, bytes + 4, sizeof v);
    EXPECT_EQ(v, INT_MAX);
    for (int k : {0, 1, 2, 3, 8, 9, 10, 11}) EXPECT_EQ(bytes[k], 0xEE) << k;
    // A misaligned destination is written correctly.
    EXPECT_EQ(sscanf_s("-3", "%d", bytes + 1), 1);
    memcpy(&v, bytes + 1, sizeof v);
    EXPECT_EQ(v, -3);
}

TEST(ScanFloats, DecimalForms) {
    float f = 0;
    double d = 0;
    EXPECT_EQ(sscanf_s("3.25", "%f", &f), 1);
    EXPECT_EQ(f, 3.25f);
    EXPECT_EQ(sscanf_s("-1.5e3", "%f", &f), 1);
    EXPECT_EQ(f, -1500.0f);
    EXPECT_EQ(sscanf_s("+.5", "%e", &f), 1);
    EXPECT_EQ(f, 0.5f);
    EXPECT_EQ(sscanf_s("5.", "%g", &f), 1);
    EXPECT_EQ(f, 5.0f);
    EXPECT_EQ(sscanf_s("1E+2 1e-2", "%f %lf", &f, &d), 2);
    EXPECT_EQ(f, 100.0f);
    EXPECT_EQ(d, 0.01);
    EXPECT_EQ(sscanf_s("0.1 0.1", "%f %lf", &f, &d), 2);  // each rounded once, to its own type
    EXPECT_EQ(f, 0.1f);
    EXPECT_EQ(d, 0.1);
    EXPECT_EQ(sscanf_s("7", "%F", &f), 1);
    EXPECT_EQ(f, 7.0f);
    long double ld = 0;
    EXPECT_EQ(sscanf_s("0.1", "%Lf", &ld), 1);
    EXPECT_EQ(ld, 0.1L);
    EXPECT_EQ(sscanf_s(".", "%f", &f), 0);
    EXPECT_EQ(sscanf_s("-.e1", "%f", &f), 0);
}

TEST(ScanFloats, IncompleteExponentIsLeftUnread) {
    float f = 0;
    char rest[8];
    EXPECT_EQ(sscanf_s("100ergs", "%f%s", &f, rest, 8u), 2);
    EXPECT_EQ(f, 100.0f);
    EXPECT_STREQ(rest, "ergs");
    EXPECT_EQ(sscanf_s("1.5e+x", "%f%s", &f, rest, 8u), 2);
    EXPECT_EQ(f, 1.5f);
    EXPECT_STREQ(rest, "e+x");
    EXPECT_EQ(sscanf_s("1,5", "%f%s", &f, rest, 8u), 2);  // the decimal point is '.'
    EXPECT_EQ(f, 1.0f);
    EXPECT_STREQ(rest, ",5");
    EXPECT_EQ(sscanf_s("1.2345", "%3f%s", &f, rest, 8u), 2);
    EXPECT_EQ(f, 1.2f);
    EXPECT_STREQ(rest, "345");
}

TEST(ScanFloats, HexInfinityAndNan) {
    double d = 0;
    char rest[8];
    EXPECT_EQ(sscanf_s("0x1.8p1", "%lf", &d), 1);
    EXPECT_EQ(d, 3.0);
    EXPECT_EQ(sscanf_s("-0X.8", "%lf", &d), 1);
    EXPECT_EQ(d, -0.5);
    EXPECT_EQ(sscanf_s("0x1p", "%lf%s", &d, rest, 8u), 2);
    EXPECT_EQ(d, 1.0);
    EXPECT_STREQ(rest, "p");
    EXPECT_EQ(sscanf_s("0xz", "%lf%s", &d, rest, 8u), 2);
    EXPECT_EQ(d, 0.0);
    EXPECT_STREQ(rest, "xz");
    EXPECT_EQ(sscanf_s("-INF", "%lf", &d), 1);
    EXPECT_TRUE(std::isinf(d) && d < 0);
    EXPECT_EQ(sscanf_s("infinityx", "%lf%s", &d, rest, 8u), 2);
    EXPECT_TRUE(std::isinf(d));
    EXPECT_STREQ(rest, "x");
    EXPECT_EQ(sscanf_s("infin", "%lf%s", &d, rest, 8u), 2);
    EXPECT_STREQ(rest, "in");
    EXPECT_EQ(sscanf_s("nan(x_1)y", "%lf%s", &d, rest, 8u), 2);
    EXPECT_TRUE(std::isnan(d));
    EXPECT_STREQ(rest, "y");
    EXPECT_EQ(sscanf_s("NaN(1", "%lf%s", &d, rest, 8u), 2);
    EXPECT_TRUE(std::isnan(d));
    EXPECT_STREQ(rest, "(1");
    EXPECT_EQ(sscanf_s("in", "%lf", &d), 0);
}

// Text long enough that the work buffer doubles from local storage onto
// the heap several times; every digit still counts.
TEST(ScanFloats, LongTextIsConvertedExactly) {
    float f = 0;
    double d = 0;
    const std::string zeros(5000, '0');
    EXPECT_EQ(sscanf_s((zeros + "1.5").c_str(), "%f", &f), 1);
    EXPECT_EQ(f, 1.5f);
    // 1 + 2^-24 lies halfway between two floats and rounds to even (1.0);
    // a 1 far behind it tips it upwards.
    const std::string half = "1.000000059604644775390625";
    EXPECT_EQ(sscanf_s(half.c_str(), "%f", &f), 1);
    EXPECT_EQ(f, 1.0f);
    EXPECT_EQ(sscanf_s((half + zeros + "1").c_str(), "%f", &f), 1);
    EXPECT_EQ(f, 1.0f + FLT_EPSILON);
    EXPECT_EQ(sscanf_s(("0." + zeros + "1e5001").c_str(), "%lf", &d), 1);
    EXPECT_EQ(d, 1.0);
    int n = 0;
    EXPECT_EQ(sscanf_s((zeros + "2.5 7").c_str(), "%lf %n", &d, &n), 1);
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(n, 5004);
}

TEST(ScanText, StringMustFitWithItsTerminator) {
    char buf[8];
    memset(buf, 'z', sizeof buf);
    EXPECT_EQ(sscanf_s("abc", "%s", buf, 4u), 1);  // size - 1 characters fit
    EXPECT_STREQ(buf, "abc");
    memset(buf, 'z', sizeof buf);
    EXPECT_EQ(sscanf_s("abcd", "%s", buf, 4u), 0);  // size characters do not
    EXPECT_EQ(buf[0], '\0');
    for (int k = 1; k < 8; ++k) EXPECT_EQ(buf[k], 'z') << k;
    int a = 0;
    EXPECT_EQ(sscanf_s("5 abcd 6", "%d %s %d", &a, buf, 4u, &a), 1);  // stops at the failed field
    EXPECT_EQ(a, 5);
    EXPECT_EQ(sscanf_s("abcdef", "%3s", buf, 4u), 1);  // width keeps it short enough
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(sscanf_s("abcdef", "%4s", buf, 4u), 0);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(sscanf_s("  hello world", "%s%s", buf, 8u, buf + 6, 2u), 1);
    EXPECT_STREQ(buf, "hello");
}

TEST(ScanText, BadDestinationsFailWithoutWriting) {
    char buf[4] = {'q', 'q', 'q', 'q'};
    EXPECT_EQ(sscanf_s("ab", "%s", buf, 0u), 0);
    EXPECT_EQ(sscanf_s("ab", "%s", buf, 0x80000000u), 0);
    EXPECT_EQ(sscanf_s("ab", "%c", buf, 0u), 0);
    for (char c : buf) EXPECT_EQ(c, 'q');
    EXPECT_EQ(sscanf_s("ab", "%s", static_cast<char*>(nullptr), 4u), 0);
    int a = 3;
    EXPECT_EQ(sscanf_s("1 2", "%d %d", &a, static_cast<int*>(nullptr)), 1);
    EXPECT_EQ(sscanf_s("1", "%f", static_cast<float*>(nullptr)), 0);
    EXPECT_EQ(sscanf_s("1", "%n", static_cast<int*>(nullptr)), 0);
    wchar_t w[4] = {L'q', L'q', L'q', L'q'};
    EXPECT_EQ(sscanf_s("ab", "%ls", w, 4u), 0);  // wide text is not supported
    EXPECT_EQ(sscanf_s("ab", "%lc", w, 4u), 0);
    EXPECT_EQ(w[0], L'q');
}

TEST(ScanText, CharactersHaveNoTerminator) {
    char buf[6];
    memset(buf, 'z', sizeof buf);
    EXPECT_EQ(sscanf_s(" x", "%c", buf, 1u), 1);  // %c does not skip white space
    EXPECT_EQ(buf[0], ' ');
    EXPECT_EQ(buf[1], 'z');
    EXPECT_EQ(sscanf_s("abcdef", "%3c%c", buf, 3u, buf + 4, 1u), 2);
    EXPECT_EQ(std::string(buf, 6), "abczdz");
    memset(buf, 'z', sizeof buf);
    EXPECT_EQ(sscanf_s("abcdef", "%3c", buf, 2u), 0);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(buf[1], 'z');
    memset(buf, 'z', sizeof buf);
    EXPECT_EQ(sscanf_s("ab", "%5c", buf, 6u), 1);  // input ends early: what is left
    EXPECT_EQ(std::string(buf, 6), "abzzzz");
    EXPECT_EQ(sscanf_s("ab", "%5c", buf, 2u), 1);
}

TEST(ScanText, ScanSets) {
    char buf[16];
    EXPECT_EQ(sscanf_s("abc123", "%[a-z]", buf, 16u), 1);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(sscanf_s("key=value, next", "%[^=]=%[^,]", buf, 16u, buf + 8, 8u), 2);
    EXPECT_STREQ(buf, "key");
    EXPECT_STREQ(buf + 8, "value");
    EXPECT_EQ(sscanf_s("]]x]", "%[]x]", buf, 16u), 1);  // ']' first belongs to the set
    EXPECT_STREQ(buf, "]]x]");
    EXPECT_EQ(sscanf_s("ab]c", "%[^]]", buf, 16u), 1);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(sscanf_s("a-b-", "%[-a]", buf, 16u), 1);  // '-' first or last stands for itself
    EXPECT_STREQ(buf, "a-");
    EXPECT_EQ(sscanf_s("-a-b", "%[ab-]", buf, 16u), 1);
    EXPECT_STREQ(buf, "-a-b");
    EXPECT_EQ(sscanf_s("z-ab", "%[z-a]", buf, 16u), 1);  // backwards: three characters
    EXPECT_STREQ(buf, "z-a");
    EXPECT_EQ(sscanf_s(" abc", "%[a-z]", buf, 16u), 0);  // no white-space skip
    EXPECT_EQ(sscanf_s("abcdef", "%2[a-z]%s", buf, 16u, buf + 8, 8u), 2);
    EXPECT_STREQ(buf, "ab");
    EXPECT_STREQ(buf + 8, "cdef");
    memset(buf, 'z', sizeof buf);
    EXPECT_EQ(sscanf_s("abcd", "%[a-d]", buf, 4u), 0);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(buf[1], 'z');
    EXPECT_EQ(sscanf_s("abc", "%[a-z", buf, 16u), 0);  // unterminated set
    EXPECT_EQ(sscanf_s("\xe9t\xe9", "%[\xe0-\xff]", buf, 16u), 1);
    EXPECT_STREQ(buf, "\xe9");
}

TEST(ScanDirectives, WhiteSpaceLiteralsPercentAndCount) {
    int a = 0, b = 0, n1 = -1, n2 = -1;
    EXPECT_EQ(sscanf_s("1,\t\n 2", "%d ,%d", &a, &b), 2);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(sscanf_s("1,2", "%d , %d", &a, &b), 2);  // white space matches none too
    EXPECT_EQ(sscanf_s("1 ,2", "%d,%d", &a, &b), 1);   // a literal does not skip
    EXPECT_EQ(sscanf_s("50 %", "%d%%", &a), 1);
    EXPECT_EQ(sscanf_s("50%x", "%d%%%n", &a, &n1), 1);
    EXPECT_EQ(n1, 3);
    EXPECT_EQ(sscanf_s("50x", "%d%%", &a), 1);
    EXPECT_EQ(sscanf_s("  12  ab", "%n%d%n %n", &n1, &a, &n2, &b), 1);
    EXPECT_EQ(n1, 0);
    EXPECT_EQ(n2, 4);
    EXPECT_EQ(b, 6);
    long long ln = 0;
    signed char hn = 0;
    EXPECT_EQ(sscanf_s("abc", "abc%lln%hhn", &ln, &hn), 0);
    EXPECT_EQ(ln, 3);
    EXPECT_EQ(hn, 3);
    EXPECT_EQ(sscanf_s("5 6", "%d%y%d", &a, &b), 1);  // unknown conversion stops
    EXPECT_EQ(sscanf_s("5", "%", &a), 0);
    EXPECT_EQ(sscanf_s("5", "%5", &a), 0);
    EXPECT_EQ(sscanf_s("5", "%hf", &a), 0);
}

TEST(ScanDirectives, SuppressionTakesNoArgument) {
    int a = 0;
    char buf[8];
    EXPECT_EQ(sscanf_s("1 skip 2.5 [x] 3", "%*d %*s %*f %*[][x] %d", &a), 1);
    EXPECT_EQ(a, 3);
    EXPECT_EQ(sscanf_s("abcdef 9", "%*3c%s%d", buf, 8u, &a), 2);
    EXPECT_STREQ(buf, "def");
    EXPECT_EQ(a, 9);
    EXPECT_EQ(sscanf_s("x", "%*d"), 0);
    EXPECT_EQ(sscanf_s("5", "%*d"), 0);
    // A suppressed field is not bound by any destination size.
    EXPECT_EQ(sscanf_s((std::string(300, 'a') + " 4").c_str(), "%*s%d", &a), 1);
    EXPECT_EQ(a, 4);
}

TEST(ScanDirectives, PointersRoundTrip) {
    int object = 0;
    void* p = nullptr;
    char text[32];
    snprintf(text, sizeof text, "%p", static_cast<void*>(&object));
    EXPECT_EQ(sscanf_s(text, "%p", &p), 1);
    EXPECT_EQ(p, static_cast<void*>(&object));
    EXPECT_EQ(sscanf_s("(nil)", "%p", &p), 1);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(sscanf_s("0x10", "%p", &p), 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p), 16u);
}

TEST(ScanBuffer, DoublesOntoTheHeapAndKeepsItsContents) {
    tocra::ScanBuffer buf;
    tocra::ScanBufferInit(&buf);
    EXPECT_EQ(buf.data, buf.local);
    for (size_t k = 0; k < tocra::kScanLocalSize; ++k) ASSERT_TRUE(tocra::ScanBufferPush(&buf, 'a'));
    EXPECT_FALSE(buf.onHeap);  // exactly full, still local
    const size_t total = 1000;
    for (size_t k = tocra::kScanLocalSize; k < total; ++k) {
        ASSERT_TRUE(tocra::ScanBufferPush(&buf, static_cast<char>('a' + k % 26)));
    }
    EXPECT_TRUE(buf.onHeap);
    EXPECT_EQ(buf.size, 1024u);  // 128 -> 256 -> 512 -> 1024
    EXPECT_EQ(buf.used, total);
    for (size_t k = 0; k < total; ++k) {
        ASSERT_EQ(buf.data[k], k < tocra::kScanLocalSize ? 'a' : static_cast<char>('a' + k % 26)) << k;
    }
    tocra::ScanBufferRelease(&buf);
    EXPECT_EQ(buf.data, buf.local);
    EXPECT_EQ(buf.used, 0u);
    EXPECT_FALSE(buf.onHeap);
}

TEST(ScanBuffer, SizeWithBit30IsRefused) {
    tocra::ScanBuffer buf;
    tocra::ScanBufferInit(&buf);
    // A buffer that claims 2^29 bytes: doubling would need bit 30, so it is
    // refused before anything is allocated or copied.
    buf.size = size_t{1} << 29;
    buf.used = buf.size;
    EXPECT_FALSE(tocra::ScanBufferGrow(&buf));
    EXPECT_FALSE(tocra::ScanBufferPush(&buf, 'x'));
    EXPECT_EQ(buf.data, buf.local);
    EXPECT_EQ(buf.size, size_t{1} << 29);
    tocra::ScanBufferInit(&buf);
    buf.size = (size_t{1} << 29) + 1;  // not a power of two: 2^30 + 2 has bit 30 too
    EXPECT_FALSE(tocra::ScanBufferGrow(&buf));
}

}  // namespace
