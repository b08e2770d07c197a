// Entity decoding of texts and attribute values, escaping back to XML, and
// the text-to-value converters.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "config/xml_internal.h"
#include "frame/platform.h"

namespace tocra_xml {

char* CopyStr(const char* s, size_t len) {
    char* p = static_cast<char*>(platform_malloc(len + 1));
    if (p == nullptr) return nullptr;
    if (len > 0) memcpy(p, s, len);
    p[len] = '\0';
    return p;
}

bool CopyOpt(const char* s, char** out) {
    *out = nullptr;
    if (s == nullptr) return true;
    *out = CopyStr(s, strlen(s));
    return *out != nullptr;
}

namespace {

inline unsigned char Lower(unsigned char c) { return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + 32) : c; }

struct NamedEntity {
    const char* text;  // with '&' and ';'
    size_t len;
    char value;
};

const NamedEntity kNamed[] = {
    {"&amp;", 5, '&'}, {"&lt;", 4, '<'}, {"&gt;", 4, '>'}, {"&quot;", 6, '"'}, {"&apos;", 6, '\''},
};

// Appends code point cp in the current encoding. A well-formed reference
// always decodes: what the encoding cannot hold becomes the encoding's
// stand-in rather than an error. UTF-8 takes every scalar value; 0 (which
// would end the text), surrogates and values above 0x10FFFF become U+FFFD.
// Single-byte text takes 1 to 255 as that byte; the multi-byte encodings take
// ASCII (1 to 127) only, as there is no table from code points to their
// bytes here. Everything else becomes '?'.
size_t PutCodePoint(unsigned long cp, char* out) {
    const XMLCharEncoding enc = GlobalOptions().encoding;
    char bytes[4];
    size_t n;
    if (enc == char_encoding_UTF8) {
        if (cp == 0 || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
        if (cp < 0x80) {
            bytes[0] = static_cast<char>(cp);
            n = 1;
        } else if (cp < 0x800) {
            bytes[0] = static_cast<char>(0xC0 | (cp >> 6));
            bytes[1] = static_cast<char>(0x80 | (cp & 0x3F));
            n = 2;
        } else if (cp < 0x10000) {
            bytes[0] = static_cast<char>(0xE0 | (cp >> 12));
            bytes[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            bytes[2] = static_cast<char>(0x80 | (cp & 0x3F));
            n = 3;
        } else {
            bytes[0] = static_cast<char>(0xF0 | (cp >> 18));
            bytes[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            bytes[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            bytes[3] = static_cast<char>(0x80 | (cp & 0x3F));
            n = 4;
        }
    } else {
        const unsigned long limit = enc == char_encoding_legacy ? 0xFF : 0x7F;
        bytes[0] = cp == 0 || cp > limit ? '?' : static_cast<char>(cp);
        n = 1;
    }
    if (out) memcpy(out, bytes, n);
    return n;
}

// Decodes "&#...;" starting at s[0] == '&', s[1] == '#'. Returns the bytes
// consumed, or 0 when the reference is malformed (no digits, or no ';'
// right after them). *written gets the bytes put at out (null: none put).
size_t DecodeNumeric(const char* s, size_t len, char* out, size_t* written) {
    size_t i = 2;
    int base = 10;
    if (i < len && (s[i] == 'x' || s[i] == 'X')) {
        base = 16;
        ++i;
    }
    unsigned long value = 0;
    size_t digits = 0;
    for (; i < len; ++i) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        int v;
        if (c >= '0' && c <= '9')
            v = c - '0';
        else if (base == 16 && Lower(c) >= 'a' && Lower(c) <= 'f')
            v = Lower(c) - 'a' + 10;
        else
            break;
        ++digits;
        // Stop growing once past the largest code point: any larger value
        // decodes the same way.
        if (value <= 0x10FFFF) value = value * static_cast<unsigned long>(base) + static_cast<unsigned long>(v);
    }
    if (digits == 0 || i >= len || s[i] != ';') return 0;
    *written = PutCodePoint(value, out);
    return i + 1;
}

}  // namespace

bool NameEqualsN(const char* a, const char* b, size_t n) {
    if (a == nullptr || b == nullptr) return false;
    for (size_t i = 0; i < n; ++i) {
        const unsigned char ca = Lower(static_cast<unsigned char>(a[i]));
        const unsigned char cb = Lower(static_cast<unsigned char>(b[i]));
        if (ca != cb) return false;
        if (ca == '\0') return true;
    }
    return true;
}

bool NameEquals(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return false;
    for (;; ++a, ++b) {
        const unsigned char ca = Lower(static_cast<unsigned char>(*a));
        const unsigned char cb = Lower(static_cast<unsigned char>(*b));
        if (ca != cb) return false;
        if (ca == '\0') return true;
    }
}

bool DecodeEntities(const char* s, size_t len, char* out, size_t* outLen, size_t* errOffset) {
    size_t i = 0, o = 0;
    while (i < len) {
        const char* amp = static_cast<const char*>(memchr(s + i, '&', len - i));
        const size_t at = amp ? static_cast<size_t>(amp - s) : len;
        if (out) memcpy(out + o, s + i, at - i);
        o += at - i;
        if (amp == nullptr) break;
        const size_t rest = len - at;
        size_t used = 0, written = 0;
        if (rest >= 2 && amp[1] == '#') {
            used = DecodeNumeric(amp, rest, out ? out + o : nullptr, &written);
        } else {
            for (const NamedEntity& e : kNamed) {
                if (rest >= e.len && NameEqualsN(amp, e.text, e.len)) {
                    if (out) out[o] = e.value;
                    written = 1;
                    used = e.len;
                    break;
                }
            }
        }
        if (used == 0) {
            if (errOffset) *errOffset = at;
            return false;
        }
        o += written;
        i = at + used;
    }
    if (outLen) *outLen = o;
    return true;
}

// Escaped length of the character at p and the bytes it spans.
static size_t EscapedLen(const char* p, size_t* span) {
    switch (*p) {
        case '&':
            *span = 1;
            return 5;
        case '<':
            *span = 1;
            return 4;
        case '>':
            *span = 1;
            return 4;
        case '"':
            *span = 1;
            return 6;
        case '\'':
            *span = 1;
            return 6;
        default:
            *span = CharLen(p);
            return *span;
    }
}

static size_t EscapedLength(const char* s) {
    size_t total = 0;
    while (*s) {
        size_t span;
        total += EscapedLen(s, &span);
        s += span;
    }
    return total;
}

static char* Escape(char* dest, const char* s) {
    char* d = dest;
    while (*s) {
        size_t span;
        const char* rep = nullptr;
        switch (*s) {
            case '&':
                rep = "&amp;";
                break;
            case '<':
                rep = "&lt;";
                break;
            case '>':
                rep = "&gt;";
                break;
            case '"':
                rep = "&quot;";
                break;
            case '\'':
                rep = "&apos;";
                break;
            default:
                break;
        }
        if (rep) {
            const size_t n = strlen(rep);
            memcpy(d, rep, n);
            d += n;
            ++s;
        } else {
            EscapedLen(s, &span);
            memcpy(d, s, span);
            d += span;
            s += span;
        }
    }
    *d = '\0';
    return dest;
}

}  // namespace tocra_xml

XMLSTR XMLNode::fromXMLString(XMLCSTR s, int len, XMLError* error, int* errorOffset) {
    if (error) *error = eXMLErrorNone;
    if (s == nullptr) {
        if (error) *error = eXMLErrorNoXMLText;
        return nullptr;
    }
    const size_t n = len < 0 ? strlen(s) : strnlen(s, static_cast<size_t>(len));
    size_t at = 0;
    if (!tocra_xml::DecodeEntities(s, n, nullptr, nullptr, &at)) {
        if (error) *error = eXMLErrorUnknownCharacterEntity;
        if (errorOffset) *errorOffset = static_cast<int>(at);
        return nullptr;
    }
    char* r = static_cast<char*>(platform_malloc(n + 1));
    if (r == nullptr) {
        if (error) *error = eXMLErrorOutOfMemory;
        return nullptr;
    }
    size_t used = 0;
    tocra_xml::DecodeEntities(s, n, r, &used, nullptr);
    r[used] = '\0';
    return r;
}

void XMLNode::freeXMLString(XMLSTR s) { platform_free(s); }

ToXMLStringTool::~ToXMLStringTool() { freeBuffer(); }

void ToXMLStringTool::freeBuffer() {
    platform_free(buf);
    buf = nullptr;
    bufLen = 0;
}

XMLSTR ToXMLStringTool::toXML(XMLCSTR source) {
    if (source == nullptr) source = "";
    const size_t need = tocra_xml::EscapedLength(source) + 1;
    if (need > static_cast<size_t>(INT_MAX)) return nullptr;
    if (static_cast<size_t>(bufLen) < need) {
        char* p = static_cast<char*>(platform_realloc(buf, need));
        if (p == nullptr) return nullptr;
        buf = p;
        bufLen = static_cast<int>(need);
    }
    return tocra_xml::Escape(buf, source);
}

int ToXMLStringTool::lengthXMLString(XMLCSTR source) {
    if (source == nullptr) return 0;
    const size_t n = tocra_xml::EscapedLength(source);
    return n > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(n);
}

XMLSTR ToXMLStringTool::toXMLUnSafe(XMLSTR dest, XMLCSTR source) {
    if (dest == nullptr) return nullptr;
    return tocra_xml::Escape(dest, source ? source : "");
}

char xmltob(XMLCSTR text, char def) {
    if (text == nullptr) return def;
    switch (text[0]) {
        case '1':
        case 't':
        case 'T':
        case 'y':
        case 'Y':
            return 1;
        default:
            return 0;
    }
}

long long xmltol(XMLCSTR text, long long def) {
    if (text == nullptr) return def;
    return strtoll(text, nullptr, 10);  // saturates at the long long range
}

int xmltoi(XMLCSTR text, int def) {
    if (text == nullptr) return def;
    const long long v = strtoll(text, nullptr, 10);
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

double xmltof(XMLCSTR text, double def) {
    if (text == nullptr) return def;
    return strtod(text, nullptr);
}

XMLCSTR xmltoa(XMLCSTR text, XMLCSTR def) { return text ? text : def; }

XMLCHAR xmltoc(XMLCSTR text, XMLCHAR def) { return (text && text[0]) ? text[0] : def; }
