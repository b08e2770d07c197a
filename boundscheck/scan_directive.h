// The directives of the formatted-input engine (scan_input.cpp): what one
// '%' directive of a format asks for, parsed.
#ifndef BRIMVEL_BOUNDSCHECK_SCAN_DIRECTIVE_H
#define BRIMVEL_BOUNDSCHECK_SCAN_DIRECTIVE_H

#include <cstddef>
#include <cstdint>

namespace tocra {

constexpr size_t kNoWidth = SIZE_MAX;

enum class Mod { kNone, kHH, kH, kL, kLL, kBigL, kJ, kZ, kT, kI, kI32, kI64 };

struct ScanSet {
    uint8_t bits[32];
    bool Has(int c) const { return c >= 0 && (bits[c >> 3] >> (c & 7)) & 1; }
    void Add(int c) { bits[c >> 3] = static_cast<uint8_t>(bits[c >> 3] | (1u << (c & 7))); }
};

struct Directive {
    bool suppress;
    size_t width;  // kNoWidth when none was given
    Mod mod;
    int conv;
    ScanSet set;  // %[ only
};

// Reads the set of a %[ directive; *pf points after the '['. False when
// the format ends before the closing ']'.
bool ParseScanSet(const unsigned char** pf, ScanSet* set);

// Parses one directive; *pf points after the '%'. False when the format
// ends inside it.
bool ParseDirective(const unsigned char** pf, Directive* dir);

}  // namespace tocra

#endif
