// Parsing of the formatted-input engine's directives.
#include "boundscheck/scan_directive.h"

#include <cstring>

#include "boundscheck/safe_internal.h"

namespace tocra {
namespace {

bool IsDigit(int c) { return c >= '0' && c <= '9'; }

}  // namespace

// Reads the set of a %[ directive; f points after the '['. A ']' right after
// the '[' or "[^" belongs to the set; "a-z" is a range unless the '-' is
// first or last or the range runs backwards, in which case the characters
// stand for themselves. False when the format ends before the closing ']'.
bool ParseScanSet(const unsigned char** pf, ScanSet* set) {
    const unsigned char* f = *pf;
    bool negate = false;
    if (*f == '^') {
        negate = true;
        ++f;
    }
    memset(set->bits, 0, sizeof set->bits);
    if (*f == ']') {
        set->Add(']');
        ++f;
    }
    while (*f != ']') {
        if (*f == '\0') return false;
        const int c = *f++;
        if (*f == '-' && f[1] != ']' && f[1] != '\0' && f[1] >= c) {
            for (int x = c; x <= f[1]; ++x) set->Add(x);
            f += 2;
        } else {
            set->Add(c);
        }
    }
    if (negate) {
        for (uint8_t& b : set->bits) b = static_cast<uint8_t>(~b);
    }
    *pf = f + 1;
    return true;
}

// Parses one directive; f points after the '%'. False when the format ends
// inside it.
bool ParseDirective(const unsigned char** pf, Directive* dir) {
    const unsigned char* f = *pf;
    dir->suppress = false;
    if (*f == '*') {
        dir->suppress = true;
        ++f;
    }
    dir->width = kNoWidth;
    if (IsDigit(*f)) {
        size_t w = 0;
        while (IsDigit(*f)) {
            // Saturates at 2147483647 without overflowing a 32-bit size_t.
            const size_t d = static_cast<size_t>(*f - '0');
            w = w > (kMaxSafeSize - d) / 10 ? kMaxSafeSize : w * 10 + d;
            ++f;
        }
        if (w > 0) dir->width = w;  // a width of 0 means none, as in the C library
    }
    dir->mod = Mod::kNone;
    switch (*f) {
        case 'h':
            dir->mod = f[1] == 'h' ? Mod::kHH : Mod::kH;
            f += f[1] == 'h' ? 2 : 1;
            break;
        case 'l':
            dir->mod = f[1] == 'l' ? Mod::kLL : Mod::kL;
            f += f[1] == 'l' ? 2 : 1;
            break;
        case 'L':
            dir->mod = Mod::kBigL;
            ++f;
            break;
        case 'j':
            dir->mod = Mod::kJ;
            ++f;
            break;
        case 'z':
            dir->mod = Mod::kZ;
            ++f;
            break;
        case 't':
            dir->mod = Mod::kT;
            ++f;
            break;
        case 'I':
            if (f[1] == '3' && f[2] == '2') {
                dir->mod = Mod::kI32;
                f += 3;
            } else if (f[1] == '6' && f[2] == '4') {
                dir->mod = Mod::kI64;
                f += 3;
            } else {
                dir->mod = Mod::kI;
                ++f;
            }
            break;
        default:
            break;
    }
    if (*f == '\0') return false;
    dir->conv = *f++;
    if (dir->conv == '[' && !ParseScanSet(&f, &dir->set)) return false;
    *pf = f;
    return true;
}

}  // namespace tocra
