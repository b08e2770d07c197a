// Character encodings: the byte-length tables, the process-wide options and
// the guess of a document's encoding from its first bytes.
#include <cstring>

#include "config/xml_internal.h"

namespace tocra_xml {
namespace {

// One table per encoding: entry b is the number of bytes of a character
// whose first byte is b. Built at compile time from the lead-byte ranges.
struct LengthTable {
    unsigned char len[256];
};

constexpr LengthTable MakeTable(int kind) {
    LengthTable t{};
    for (int b = 0; b < 256; ++b) {
        unsigned char n = 1;
        switch (kind) {
            case 1:  // UTF-8: 110xxxxx, 1110xxxx, 11110xxx lead 2, 3, 4 bytes
                if (b >= 0xC0 && b <= 0xDF)
                    n = 2;
                else if (b >= 0xE0 && b <= 0xEF)
                    n = 3;
                else if (b >= 0xF0 && b <= 0xF7)
                    n = 4;
                break;
            case 3:  // Shift-JIS: double-byte leads 81-9F and E0-FC
                if ((b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC)) n = 2;
                break;
            case 4:  // GB2312 (EUC-CN): leads A1-FE
                if (b >= 0xA1 && b <= 0xFE) n = 2;
                break;
            case 5:  // Big5 and GBK: leads 81-FE
                if (b >= 0x81 && b <= 0xFE) n = 2;
                break;
            default:  // single byte
                break;
        }
        t.len[b] = n;
    }
    return t;
}

constexpr LengthTable kUtf8 = MakeTable(1);
constexpr LengthTable kSingle = MakeTable(2);
constexpr LengthTable kShiftJis = MakeTable(3);
constexpr LengthTable kGb2312 = MakeTable(4);
constexpr LengthTable kBig5Gbk = MakeTable(5);

const unsigned char* TableFor(XMLCharEncoding e) {
    switch (e) {
        case char_encoding_UTF8:
            return kUtf8.len;
        case char_encoding_legacy:
            return kSingle.len;
        case char_encoding_ShiftJIS:
            return kShiftJis.len;
        case char_encoding_GB2312:
            return kGb2312.len;
        case char_encoding_Big5:
        case char_encoding_GBK:
            return kBig5Gbk.len;
        default:
            return nullptr;
    }
}

// Constant-initialised, so usable from any static constructor.
Options g_options = {char_encoding_UTF8, kUtf8.len, 1, 1, 1};

bool IsSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Wide-character text: a UTF-16 byte-order mark, or a zero byte among the
// first two (the high half of an ASCII character in either byte order).
bool LooksLikeUtf16(const unsigned char* b, int len) {
    if (len < 2) return false;
    if ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] == 0xFE && b[1] == 0xFF)) return true;
    return b[0] == 0 || b[1] == 0;
}

// Walks the bytes with the UTF-8 table: every byte after a multi-byte lead
// must be 10xxxxxx. A sequence cut by the end of the buffer is not held
// against the text (the buffer is usually the first 200 bytes of a file).
bool WalksAsUtf8(const unsigned char* b, int len) {
    int i = 0;
    while (i < len) {
        const int n = kUtf8.len[b[i]];
        for (int k = 1; k < n && i + k < len; ++k) {
            if ((b[i + k] & 0xC0) != 0x80) return false;
        }
        i += n;
    }
    return true;
}

bool HasPrefixNoCase(const unsigned char* s, int len, const char* prefix) {
    const int n = static_cast<int>(strlen(prefix));
    return len >= n && NameEqualsN(reinterpret_cast<const char*>(s), prefix, static_cast<size_t>(n));
}

// Reads encoding="name" in the first 200 bytes. Returns 0 when there is no
// usable declaration, else the code of the declared name.
XMLCharEncoding DeclaredEncoding(const unsigned char* b, int len) {
    if (len > 200) len = 200;
    static const char kKey[] = "encoding";
    const int keyLen = 8;
    int i = 0;
    for (; i + keyLen <= len; ++i) {
        if (memcmp(b + i, kKey, keyLen) == 0) break;
    }
    if (i + keyLen > len) return char_encoding_error;
    i += keyLen;
    while (i < len && IsSpace(b[i])) ++i;
    if (i >= len || b[i] != '=') return char_encoding_error;
    ++i;
    while (i < len && IsSpace(b[i])) ++i;
    if (i >= len || (b[i] != '"' && b[i] != '\'')) return char_encoding_error;
    ++i;
    while (i < len && IsSpace(b[i])) ++i;
    const unsigned char* name = b + i;
    const int rest = len - i;
    if (HasPrefixNoCase(name, rest, "utf-8") || HasPrefixNoCase(name, rest, "utf8")) return char_encoding_UTF8;
    if (HasPrefixNoCase(name, rest, "shiftjis") || HasPrefixNoCase(name, rest, "shift-jis") ||
        HasPrefixNoCase(name, rest, "sjis"))
        return char_encoding_ShiftJIS;
    if (HasPrefixNoCase(name, rest, "GB2312")) return char_encoding_GB2312;
    if (HasPrefixNoCase(name, rest, "Big5")) return char_encoding_Big5;
    if (HasPrefixNoCase(name, rest, "GBK")) return char_encoding_GBK;
    return char_encoding_legacy;
}

}  // namespace

Options& GlobalOptions() { return g_options; }

}  // namespace tocra_xml

char XMLNode::setGlobalOptions(XMLCharEncoding encoding, char guessWideCharChars, char dropWhiteSpace,
                               char removeCommentsInMiddleOfText) {
    tocra_xml::Options& o = tocra_xml::GlobalOptions();
    o.guessWideChar = guessWideCharChars;
    o.dropWhiteSpace = dropWhiteSpace;
    o.removeCommentsInMiddleOfText = removeCommentsInMiddleOfText;
    const unsigned char* table = tocra_xml::TableFor(encoding);
    if (table == nullptr) return 1;
    o.encoding = encoding;
    o.lengths = table;
    return 0;
}

XMLCharEncoding XMLNode::getCharEncoding() { return tocra_xml::GlobalOptions().encoding; }

XMLCharEncoding XMLNode::guessCharEncoding(const void* buffer, int bufLen, char useDeclaration) {
    using namespace tocra_xml;
    if (buffer == nullptr || bufLen < 25) return char_encoding_error;
    const unsigned char* b = static_cast<const unsigned char*>(buffer);
    if (GlobalOptions().guessWideChar && LooksLikeUtf16(b, bufLen)) return char_encoding_error;
    if (b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) return char_encoding_UTF8;
    const bool utf8 = WalksAsUtf8(b, bufLen);
    const XMLCharEncoding walked = utf8 ? char_encoding_UTF8 : char_encoding_legacy;
    if (!useDeclaration) return walked;
    const XMLCharEncoding declared = DeclaredEncoding(b, bufLen);
    if (declared == char_encoding_error) return walked;
    if (declared == char_encoding_UTF8 && !utf8) return char_encoding_error;
    return declared;
}
