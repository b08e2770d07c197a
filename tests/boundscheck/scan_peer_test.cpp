// sscanf_s against the C library's sscanf on generated formats and inputs,
// restricted to what both define the same way: numbers that fit their
// destinations, text destinations large enough, no width on conversions
// whose cut-off text the two read differently (a width that splits "0x" or
// an exponent), and a first conversion that assigns.
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "boundscheck/scan_call.h"
#include "support/test_support.h"

namespace {

using tocra_test::ScanArg;

struct Piece {
    const char* conv;  // directive without '%', width or '*'
    bool text;         // takes a size in sscanf_s
    bool widthOk;      // a width reads the same in both
    size_t bytes;      // destination size
};

const Piece kConversions[] = {
    {"d", false, true, sizeof(int)},
    {"u", false, true, sizeof(unsigned)},
    {"o", false, true, sizeof(unsigned)},
    {"x", false, false, sizeof(unsigned)},
    {"X", false, false, sizeof(unsigned)},
    {"i", false, false, sizeof(int)},
    {"ld", false, true, sizeof(long)},
    {"lld", false, true, sizeof(long long)},
    {"f", false, false, sizeof(float)},
    {"lf", false, false, sizeof(double)},
    {"e", false, false, sizeof(float)},
    {"lg", false, false, sizeof(double)},
    {"s", true, true, 64},
    {"c", true, true, 64},
    {"[a-z]", true, true, 64},
    {"[^ ,;]", true, true, 64},
    {"[0-9.]", true, true, 64},
    {"n", false, false, sizeof(int)},
};

const char* const kWords[] = {"bcd", "ghk", "q", "mrt", "uvwyz", "zz", "b", "%", "dog", "hub"};
const char* const kSeparators[] = {" ", "  ", ",", ";", "\t", " , ", "\n"};

std::string Token(std::mt19937& rng) {
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    auto digits = [&](int maxLen, const char* set, int setLen) {
        std::string s;
        const int n = 1 + pick(maxLen);
        for (int k = 0; k < n; ++k) s += set[pick(setLen)];
        return s;
    };
    const char* sign = pick(3) == 0 ? (pick(2) ? "-" : "+") : "";
    switch (pick(6)) {
        case 0:
            return sign + digits(6, "0123456789", 10);
        case 1:
            return sign + digits(4, "0123456789", 10) + "." + digits(4, "0123456789", 10);
        case 2:
            return sign + digits(3, "0123456789", 10) + (pick(2) ? "e" : "E") + (pick(2) ? "-" : "") +
                   digits(2, "0123456789", 10);
        case 3:
            return sign + std::string(pick(2) ? "0x" : "0X") + digits(6, "0123456789abcdefABCDEF", 22);
        case 4:
            return pick(2) ? "." + digits(3, "0123456789", 10) : digits(3, "0123456789", 10) + ".";
        default:
            return kWords[pick(static_cast<int>(sizeof kWords / sizeof *kWords))];
    }
}

struct Case {
    std::string input;
    std::string format;
    std::vector<size_t> sizes;  // one per destination
    std::vector<bool> text;
};

Case Generate(std::mt19937& rng) {
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    Case c;
    const int tokens = 1 + pick(6);
    for (int t = 0; t < tokens; ++t) {
        if (t > 0 || pick(4) == 0) c.input += kSeparators[pick(7)];
        c.input += Token(rng);
    }
    if (pick(3) == 0) c.input += kSeparators[pick(7)];

    const int directives = 1 + pick(6);
    bool firstConversion = true;
    for (int k = 0; k < directives; ++k) {
        switch (pick(8)) {
            case 0:
                c.format += " ";
                continue;
            case 1:
                c.format += pick(2) ? "," : ";";
                continue;
            case 2:
                c.format += "%%";
                continue;
            default:
                break;
        }
        const Piece& p = kConversions[pick(static_cast<int>(sizeof kConversions / sizeof *kConversions))];
        const bool isCount = p.conv[0] == 'n';
        if (firstConversion && isCount) continue;
        c.format += '%';
        const bool suppress = !firstConversion && !isCount && pick(4) == 0;
        if (suppress) c.format += '*';
        if (p.widthOk && pick(3) == 0) c.format += std::to_string(1 + pick(6));
        c.format += p.conv;
        if (!isCount) firstConversion = false;
        if (!suppress) {
            c.sizes.push_back(p.bytes);
            c.text.push_back(p.text);
        }
    }
    return c;
}

TEST(ScanPeer, AgreesWithTheCLibraryOnGeneratedCases) {
    std::mt19937 rng(20240611);
    int compared = 0, assigning = 0;
    for (int iter = 0; iter < 20000; ++iter) {
        const Case c = Generate(rng);
        const int n = static_cast<int>(c.sizes.size());
        if (n > tocra_test::kMaxScanArgs) continue;
        std::vector<std::vector<unsigned char>> mine(n), theirs(n);
        std::vector<ScanArg> args(n);
        void* plain[tocra_test::kMaxScanArgs] = {};
        for (int k = 0; k < n; ++k) {
            mine[k].assign(c.sizes[k], 0xA5);
            theirs[k].assign(c.sizes[k], 0xA5);
            args[k] = ScanArg{mine[k].data(), static_cast<unsigned>(c.sizes[k]), c.text[k]};
            plain[k] = theirs[k].data();
        }
        const int got = tocra_test::CallScan(c.input.c_str(), c.format.c_str(), args.data(), n);
        const int want = sscanf(c.input.c_str(), c.format.c_str(), plain[0], plain[1], plain[2], plain[3], plain[4],
                                plain[5], plain[6], plain[7]);
        ASSERT_EQ(got, want) << "input \"" << c.input << "\" format \"" << c.format << "\"";
        for (int k = 0; k < n; ++k) {
            ASSERT_EQ(mine[k], theirs[k])
                << "destination " << k << ", input \"" << c.input << "\" format \"" << c.format << "\"";
        }
        ++compared;
        assigning += got > 0;
    }
    // The generator must exercise real conversions, not only early failures.
    EXPECT_GT(compared, 19000);
    EXPECT_GT(assigning, compared / 3);
}

}  // namespace
