// The formatted-input engine behind sscanf_s and vsscanf_s.
//
// It reads a string source under a scanf-style format. Conventions chosen
// here, where the C library leaves room:
//  - The input ends after `len` bytes or at a NUL byte, whichever comes first.
//  - A numeric field is the longest valid number at the read position that
//    fits in the width; characters looked at beyond it stay unread. So "0x"
//    followed by a non-hex character reads as 0 and leaves the "x", and
//    "1e" followed by a non-digit reads as 1 and leaves the "e".
//  - Integers that do not fit the destination saturate at its limits (as
//    strtol does); unsigned conversions of a negative number wrap modulo the
//    destination's range (as strtoul does), and saturate at the maximum when
//    the magnitude is too large.
//  - Text destinations (%c, %s, %[) take a pointer and an unsigned int size.
//    A field that does not fit (its characters plus the NUL of %s and %[)
//    fails and leaves an empty string. A null destination, a size of 0 or a
//    size above 2147483647 fails the field without writing.
//  - %c with a width reads what is left when the input ends early (at least
//    one character), as the C libraries do; it never adds a NUL.
//  - Any destination pointer that is null fails the field.
//  - Wide-character text (%lc, %ls, %l[) is not supported: the field fails.
//  - A malformed or unknown directive stops the scan like a matching failure.
//  - The result is the number of fields assigned, or -1 when the input ended
//    before the first conversion (suppressed ones included) completed.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include "boundscheck/safe_internal.h"
#include "boundscheck/scan_buffer.h"
#include "boundscheck/scan_directive.h"
#include "brimvel_tocra.h"

namespace tocra {
namespace {

struct Source {
    const unsigned char* text;
    size_t len;
    size_t pos;
};

// Character at pos + k, or -1 past the end of the input.
int PeekAt(const Source& s, size_t k) {
    if (k >= s.len - s.pos) return -1;
    const unsigned char c = s.text[s.pos + k];
    return c == 0 ? -1 : c;
}

int Peek(const Source& s) { return PeekAt(s, 0); }

// Character k of the field: -1 past the width or the end of the input.
int FieldAt(const Source& s, size_t width, size_t k) { return k < width ? PeekAt(s, k) : -1; }

bool IsSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(int c) { return c >= '0' && c <= '9'; }
bool IsAlnum(int c) { return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
int Lower(int c) { return (c >= 'A' && c <= 'Z') ? c + ('a' - 'A') : c; }

// Value of c as a digit, or 99 for anything else.
int DigitValue(int c) {
    if (IsDigit(c)) return c - '0';
    c = Lower(c);
    if (c >= 'a' && c <= 'z') return c - 'a' + 10;
    return 99;
}

void SkipSpace(Source* s) {
    while (IsSpace(Peek(*s))) ++s->pos;
}

enum class Outcome { kOk, kMatchFail, kInputFail };

// ---------------------------------------------------------------------------
// Numbers
// ---------------------------------------------------------------------------

struct IntItem {
    uint64_t magnitude;  // saturated at UINT64_MAX
    bool negative;
};

// Reads the longest integer in `base` (0: decimal, octal after a leading 0,
// hexadecimal after 0x) that fits in the width. False when there is none.
bool ReadInteger(Source* s, size_t width, int base, IntItem* item) {
    size_t k = 0;
    int c = FieldAt(*s, width, 0);
    item->negative = c == '-';
    if (c == '+' || c == '-') ++k;
    size_t accepted = 0;
    uint64_t mag = 0;
    if ((base == 0 || base == 16) && FieldAt(*s, width, k) == '0') {
        accepted = ++k;
        const int x = FieldAt(*s, width, k);
        if ((x == 'x' || x == 'X') && DigitValue(FieldAt(*s, width, k + 1)) < 16) {
            ++k;
            base = 16;
        } else if (base == 0) {
            base = 8;
        }
    }
    if (base == 0) base = 10;
    const uint64_t b = static_cast<uint64_t>(base);
    for (;;) {
        const int d = DigitValue(FieldAt(*s, width, k));
        if (d >= base) break;
        const uint64_t ud = static_cast<uint64_t>(d);
        mag = mag > (UINT64_MAX - ud) / b ? UINT64_MAX : mag * b + ud;
        accepted = ++k;
    }
    if (accepted == 0) return false;
    item->magnitude = mag;
    s->pos += accepted;
    return true;
}

// Length of the longest floating-point text at the read position within
// the width: [sign] then decimal digits with an optional point and
// exponent, 0x hexadecimal digits with an optional point and binary
// exponent, "inf", "infinity" or "nan" with an optional "(chars)", letters
// in either case. 0 when there is none.
size_t MeasureFloat(const Source& s, size_t width) {
    auto at = [&](size_t k) { return FieldAt(s, width, k); };
    auto word = [&](size_t k, const char* w) {
        for (; *w != '\0'; ++w, ++k) {
            if (Lower(at(k)) != *w) return false;
        }
        return true;
    };
    size_t k = 0;
    if (at(0) == '+' || at(0) == '-') k = 1;
    if (word(k, "inf")) return word(k + 3, "inity") ? k + 8 : k + 3;
    if (word(k, "nan")) {
        size_t m = k + 3;
        if (at(m) != '(') return m;
        ++m;
        while (IsAlnum(at(m)) || at(m) == '_') ++m;
        return at(m) == ')' ? m + 1 : k + 3;
    }
    int base = 10;
    if (at(k) == '0' && Lower(at(k + 1)) == 'x' &&
        (DigitValue(at(k + 2)) < 16 || (at(k + 2) == '.' && DigitValue(at(k + 3)) < 16))) {
        base = 16;
        k += 2;
    }
    size_t digits = 0;
    while (DigitValue(at(k)) < base) {
        ++k;
        ++digits;
    }
    if (at(k) == '.') {
        size_t m = k + 1;
        while (DigitValue(at(m)) < base) {
            ++m;
            ++digits;
        }
        if (digits > 0) k = m;
    }
    if (digits == 0) return 0;
    if (Lower(at(k)) == (base == 16 ? 'p' : 'e')) {
        size_t m = k + 1;
        if (at(m) == '+' || at(m) == '-') ++m;
        if (IsDigit(at(m))) {
            while (IsDigit(at(m))) ++m;
            k = m;
        }
    }
    return k;
}

// ---------------------------------------------------------------------------
// Destinations. Every destination is fetched as void* and written with
// memcpy, so a misaligned destination is written correctly too.
// ---------------------------------------------------------------------------

template <typename T>
void StoreInteger(void* dst, bool negative, uint64_t mag) {
    T v;
    const uint64_t maxv = static_cast<uint64_t>(std::numeric_limits<T>::max());
    if constexpr (std::is_signed_v<T>) {
        if (negative) {
            v = mag > maxv ? std::numeric_limits<T>::min() : static_cast<T>(-static_cast<T>(mag));
        } else {
            v = mag > maxv ? std::numeric_limits<T>::max() : static_cast<T>(mag);
        }
    } else {
        if (mag > maxv) {
            v = std::numeric_limits<T>::max();
        } else {
            v = static_cast<T>(negative ? (0 - mag) & maxv : mag);
        }
    }
    memcpy(dst, &v, sizeof v);
}

using SignedSize = std::make_signed_t<size_t>;
using UnsignedPtrDiff = std::make_unsigned_t<ptrdiff_t>;

void StoreSigned(void* dst, Mod mod, bool negative, uint64_t mag) {
    switch (mod) {
        case Mod::kHH:
            StoreInteger<signed char>(dst, negative, mag);
            break;
        case Mod::kH:
            StoreInteger<short>(dst, negative, mag);
            break;
        case Mod::kL:
            StoreInteger<long>(dst, negative, mag);
            break;
        case Mod::kLL:
        case Mod::kBigL:
        case Mod::kI64:
            StoreInteger<long long>(dst, negative, mag);
            break;
        case Mod::kJ:
            StoreInteger<intmax_t>(dst, negative, mag);
            break;
        case Mod::kZ:
            StoreInteger<SignedSize>(dst, negative, mag);
            break;
        case Mod::kT:
        case Mod::kI:
            StoreInteger<ptrdiff_t>(dst, negative, mag);
            break;
        case Mod::kI32:
            StoreInteger<int32_t>(dst, negative, mag);
            break;
        case Mod::kNone:
            StoreInteger<int>(dst, negative, mag);
            break;
    }
}

void StoreUnsigned(void* dst, Mod mod, bool negative, uint64_t mag) {
    switch (mod) {
        case Mod::kHH:
            StoreInteger<unsigned char>(dst, negative, mag);
            break;
        case Mod::kH:
            StoreInteger<unsigned short>(dst, negative, mag);
            break;
        case Mod::kL:
            StoreInteger<unsigned long>(dst, negative, mag);
            break;
        case Mod::kLL:
        case Mod::kBigL:
        case Mod::kI64:
            StoreInteger<unsigned long long>(dst, negative, mag);
            break;
        case Mod::kJ:
            StoreInteger<uintmax_t>(dst, negative, mag);
            break;
        case Mod::kZ:
        case Mod::kI:
            StoreInteger<size_t>(dst, negative, mag);
            break;
        case Mod::kT:
            StoreInteger<UnsignedPtrDiff>(dst, negative, mag);
            break;
        case Mod::kI32:
            StoreInteger<uint32_t>(dst, negative, mag);
            break;
        case Mod::kNone:
            StoreInteger<unsigned int>(dst, negative, mag);
            break;
    }
}

// Converts the collected text, which holds exactly one valid number. The
// conversion must use all of it; it does not when the process runs with a
// decimal point other than '.', and then the field fails.
bool StoreFloat(void* dst, Mod mod, const char* text, size_t len) {
    char* end = nullptr;
    if (mod == Mod::kNone) {
        const float v = strtof(text, &end);
        if (end != text + len) return false;
        memcpy(dst, &v, sizeof v);
    } else if (mod == Mod::kL) {
        const double v = strtod(text, &end);
        if (end != text + len) return false;
        memcpy(dst, &v, sizeof v);
    } else {
        const long double v = strtold(text, &end);
        if (end != text + len) return false;
        memcpy(dst, &v, sizeof v);
    }
    return true;
}

// ---------------------------------------------------------------------------
// Directives
// ---------------------------------------------------------------------------

struct Scan {
    Source src;
    va_list ap;
    ScanBuffer buf;
    int assigned;
    bool converted;  // some conversion, suppressed or not, has completed
};

void* NextDestination(Scan* sc) { return va_arg(sc->ap, void*); }

Outcome ScanInteger(Scan* sc, const Directive& dir) {
    int base = 10;
    bool isSigned = false;
    switch (dir.conv) {
        case 'd':
            isSigned = true;
            break;
        case 'i':
            base = 0;
            isSigned = true;
            break;
        case 'o':
            base = 8;
            break;
        case 'x':
        case 'X':
            base = 16;
            break;
        default:
            break;  // 'u'
    }
    SkipSpace(&sc->src);
    if (Peek(sc->src) < 0) return Outcome::kInputFail;
    IntItem item;
    if (!ReadInteger(&sc->src, dir.width, base, &item)) return Outcome::kMatchFail;
    sc->converted = true;
    if (dir.suppress) return Outcome::kOk;
    void* dst = NextDestination(sc);
    if (dst == nullptr) return Outcome::kMatchFail;
    if (isSigned) {
        StoreSigned(dst, dir.mod, item.negative, item.magnitude);
    } else {
        StoreUnsigned(dst, dir.mod, item.negative, item.magnitude);
    }
    ++sc->assigned;
    return Outcome::kOk;
}

// %p: hexadecimal with an optional 0x, or "(nil)" as glibc prints a null
// pointer.
Outcome ScanPointer(Scan* sc, const Directive& dir) {
    if (dir.mod != Mod::kNone) return Outcome::kMatchFail;
    SkipSpace(&sc->src);
    if (Peek(sc->src) < 0) return Outcome::kInputFail;
    IntItem item{0, false};
    const char* nil = "(nil)";
    size_t k = 0;
    while (nil[k] != '\0' && FieldAt(sc->src, dir.width, k) == nil[k]) ++k;
    if (nil[k] == '\0') {
        sc->src.pos += k;
    } else if (!ReadInteger(&sc->src, dir.width, 16, &item)) {
        return Outcome::kMatchFail;
    }
    sc->converted = true;
    if (dir.suppress) return Outcome::kOk;
    void* dst = NextDestination(sc);
    if (dst == nullptr) return Outcome::kMatchFail;
    uintptr_t v = 0;
    StoreInteger<uintptr_t>(&v, item.negative, item.magnitude);
    void* p = reinterpret_cast<void*>(v);
    memcpy(dst, &p, sizeof p);
    ++sc->assigned;
    return Outcome::kOk;
}

Outcome ScanFloat(Scan* sc, const Directive& dir) {
    if (dir.mod != Mod::kNone && dir.mod != Mod::kL && dir.mod != Mod::kBigL) return Outcome::kMatchFail;
    SkipSpace(&sc->src);
    if (Peek(sc->src) < 0) return Outcome::kInputFail;
    const size_t n = MeasureFloat(sc->src, dir.width);
    if (n == 0) return Outcome::kMatchFail;
    const char* text = reinterpret_cast<const char*>(sc->src.text + sc->src.pos);
    sc->src.pos += n;
    sc->converted = true;
    if (dir.suppress) return Outcome::kOk;
    void* dst = NextDestination(sc);
    if (dst == nullptr) return Outcome::kMatchFail;
    sc->buf.used = 0;
    for (size_t i = 0; i < n; ++i) {
        if (!ScanBufferPush(&sc->buf, text[i])) return Outcome::kMatchFail;
    }
    if (!ScanBufferPush(&sc->buf, '\0')) return Outcome::kMatchFail;
    if (!StoreFloat(dst, dir.mod, sc->buf.data, n)) return Outcome::kMatchFail;
    ++sc->assigned;
    return Outcome::kOk;
}

// %c, %s and %[: measure the field, then copy it in one go if it fits.
Outcome ScanText(Scan* sc, const Directive& dir) {
    if (dir.mod != Mod::kNone) return Outcome::kMatchFail;
    if (dir.conv == 's') SkipSpace(&sc->src);
    if (Peek(sc->src) < 0) return Outcome::kInputFail;
    size_t n = 0;
    if (dir.conv == 'c') {
        const size_t want = dir.width == kNoWidth ? 1 : dir.width;
        while (n < want && PeekAt(sc->src, n) >= 0) ++n;
    } else if (dir.conv == 's') {
        for (int c; (c = FieldAt(sc->src, dir.width, n)) >= 0 && !IsSpace(c);) ++n;
    } else {
        for (int c; (c = FieldAt(sc->src, dir.width, n)) >= 0 && dir.set.Has(c);) ++n;
        if (n == 0) return Outcome::kMatchFail;
    }
    const unsigned char* text = sc->src.text + sc->src.pos;
    sc->converted = true;
    if (dir.suppress) {
        sc->src.pos += n;
        return Outcome::kOk;
    }
    char* dst = static_cast<char*>(NextDestination(sc));
    const unsigned int size = va_arg(sc->ap, unsigned int);
    if (dst == nullptr || size == 0 || size > kMaxSafeSize) return Outcome::kMatchFail;
    const size_t need = dir.conv == 'c' ? n : n + 1;
    if (need > size) {
        dst[0] = '\0';
        return Outcome::kMatchFail;
    }
    memcpy(dst, text, n);
    if (dir.conv != 'c') dst[n] = '\0';
    sc->src.pos += n;
    ++sc->assigned;
    return Outcome::kOk;
}

// %n: the number of characters read so far; no input, not counted.
Outcome ScanCount(Scan* sc, const Directive& dir) {
    if (dir.suppress) return Outcome::kOk;
    void* dst = NextDestination(sc);
    if (dst == nullptr) return Outcome::kMatchFail;
    StoreSigned(dst, dir.mod, false, sc->src.pos);
    return Outcome::kOk;
}

Outcome RunDirective(Scan* sc, const Directive& dir) {
    switch (dir.conv) {
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            return ScanInteger(sc, dir);
        case 'p':
            return ScanPointer(sc, dir);
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            return ScanFloat(sc, dir);
        case 'c':
        case 's':
        case '[':
            return ScanText(sc, dir);
        case 'n':
            return ScanCount(sc, dir);
        case '%':
            SkipSpace(&sc->src);
            if (Peek(sc->src) < 0) return Outcome::kInputFail;
            if (Peek(sc->src) != '%') return Outcome::kMatchFail;
            ++sc->src.pos;
            return Outcome::kOk;
        default:
            return Outcome::kMatchFail;
    }
}

}  // namespace
}  // namespace tocra

extern "C" int scan_input_s(const char* str, size_t len, const char* format, va_list args) {
    using namespace tocra;
    if (str == nullptr || format == nullptr) return -1;
    Scan sc;
    sc.src = Source{reinterpret_cast<const unsigned char*>(str), len, 0};
    va_copy(sc.ap, args);
    ScanBufferInit(&sc.buf);
    sc.assigned = 0;
    sc.converted = false;
    const unsigned char* f = reinterpret_cast<const unsigned char*>(format);
    Outcome out = Outcome::kOk;
    while (*f != '\0' && out == Outcome::kOk) {
        if (IsSpace(*f)) {
            // Any run of white space matches any amount of it, none included.
            while (IsSpace(*f)) ++f;
            SkipSpace(&sc.src);
        } else if (*f != '%') {
            const int c = Peek(sc.src);
            if (c < 0) {
                out = Outcome::kInputFail;
            } else if (c != *f) {
                out = Outcome::kMatchFail;
            } else {
                ++sc.src.pos;
                ++f;
            }
        } else {
            ++f;
            Directive dir;
            out = ParseDirective(&f, &dir) ? RunDirective(&sc, dir) : Outcome::kMatchFail;
        }
    }
    ScanBufferRelease(&sc.buf);
    va_end(sc.ap);
    if (out == Outcome::kInputFail && !sc.converted) return -1;
    return sc.assigned;
}
