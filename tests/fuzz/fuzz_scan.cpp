// Fuzzes the scan engine. A few leading bytes describe the format; the rest
// is the text to scan. The format is
// built only from pieces whose destinations this target passes, each with
// its exact size in its own heap block, so any write past a destination is
// an AddressSanitizer report. After the scan, the result and every
// destination are checked against what the scan may have done.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "boundscheck/scan_call.h"
#include "brimvel_tocra.h"

namespace {

using tocra_test::ScanArg;

enum class Kind { kNumber, kCount, kChars, kString, kSet, kWide };

struct Conversion {
    const char* text;  // directive after the width
    Kind kind;
    size_t bytes;  // destination size for numbers and counts
};

const Conversion kConversions[] = {
    {"d", Kind::kNumber, sizeof(int)},
    {"i", Kind::kNumber, sizeof(int)},
    {"u", Kind::kNumber, sizeof(unsigned)},
    {"o", Kind::kNumber, sizeof(unsigned)},
    {"x", Kind::kNumber, sizeof(unsigned)},
    {"X", Kind::kNumber, sizeof(unsigned)},
    {"hhd", Kind::kNumber, sizeof(signed char)},
    {"hhu", Kind::kNumber, sizeof(unsigned char)},
    {"hd", Kind::kNumber, sizeof(short)},
    {"hx", Kind::kNumber, sizeof(unsigned short)},
    {"ld", Kind::kNumber, sizeof(long)},
    {"lu", Kind::kNumber, sizeof(unsigned long)},
    {"lld", Kind::kNumber, sizeof(long long)},
    {"llx", Kind::kNumber, sizeof(unsigned long long)},
    {"Li", Kind::kNumber, sizeof(long long)},
    {"I32d", Kind::kNumber, sizeof(int32_t)},
    {"I64i", Kind::kNumber, sizeof(int64_t)},
    {"I64u", Kind::kNumber, sizeof(uint64_t)},
    {"jd", Kind::kNumber, sizeof(intmax_t)},
    {"zu", Kind::kNumber, sizeof(size_t)},
    {"td", Kind::kNumber, sizeof(ptrdiff_t)},
    {"Id", Kind::kNumber, sizeof(ptrdiff_t)},
    {"p", Kind::kNumber, sizeof(void*)},
    {"f", Kind::kNumber, sizeof(float)},
    {"e", Kind::kNumber, sizeof(float)},
    {"G", Kind::kNumber, sizeof(float)},
    {"a", Kind::kNumber, sizeof(float)},
    {"lf", Kind::kNumber, sizeof(double)},
    {"lg", Kind::kNumber, sizeof(double)},
    {"Lf", Kind::kNumber, sizeof(long double)},
    {"n", Kind::kCount, sizeof(int)},
    {"hhn", Kind::kCount, sizeof(signed char)},
    {"lln", Kind::kCount, sizeof(long long)},
    {"zn", Kind::kCount, sizeof(size_t)},
    {"c", Kind::kChars, 0},
    {"s", Kind::kString, 0},
    {"[", Kind::kSet, 0},
    {"ls", Kind::kWide, 0},
    {"lc", Kind::kWide, 0},
};
constexpr int kConversionCount = static_cast<int>(sizeof kConversions / sizeof kConversions[0]);

struct Reader {
    const uint8_t* p;
    size_t n;
    bool empty() const { return n == 0; }
    uint8_t next() {
        if (n == 0) return 0;
        --n;
        return *p++;
    }
};

struct Destination {
    Kind kind;
    bool counts;  // assigning conversion: counts in the result
    size_t size;  // bytes allocated (size argument for text)
    unsigned char* block;
    std::string set;  // %[ members (after negation), as a 256-entry map
};

constexpr unsigned char kFill = 0xA5;

bool IsSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

void Fail(const char* what, size_t index) {
    fprintf(stderr, "fuzz_scan: %s (destination %zu)\n", what, index);
    abort();
}

// What a destination may look like after the scan.
void CheckDestination(const Destination& d, size_t index, bool assigned, bool failedHere) {
    if (d.kind == Kind::kNumber || d.kind == Kind::kCount) return;  // any value; the size is guarded
    if (d.size == 0) {
        if (d.block[0] != kFill) Fail("size 0 destination written", index);
        return;
    }
    if (!assigned) {
        // Untouched, or emptied by the field that failed.
        const size_t from = failedHere && d.block[0] == 0 ? 1 : 0;
        for (size_t k = from; k < d.size; ++k) {
            if (d.block[k] != kFill) Fail("destination of an unassigned field written", index);
        }
        return;
    }
    if (d.kind == Kind::kChars) return;
    const void* nul = memchr(d.block, 0, d.size);
    if (nul == nullptr) Fail("text without terminator", index);
    const size_t len = static_cast<size_t>(static_cast<const unsigned char*>(nul) - d.block);
    if (len == 0) Fail("empty text assigned", index);
    for (size_t k = 0; k < len; ++k) {
        const unsigned char c = d.block[k];
        if (d.kind == Kind::kString && IsSpace(c)) Fail("white space in %s", index);
        if (d.kind == Kind::kSet && d.set[c] == 0) Fail("character outside the set", index);
    }
    for (size_t k = len + 1; k < d.size; ++k) {
        if (d.block[k] != kFill) Fail("written past the terminator", index);
    }
}

// Reads a scan set from the fuzz bytes: optional '^', then members that
// never close the set early (']' only first), then the closing ']'.
void AppendSet(Reader* r, uint8_t flags, std::string* format, std::string* members) {
    std::string body;
    const bool negate = (flags & 4) != 0;
    if (negate) body += '^';
    const int n = r->next() % 9;
    for (int k = 0; k < n; ++k) {
        unsigned char c = r->next();
        if (c == 0 || (c == ']' && k > 0)) c = 'a' + (c & 7);
        body += static_cast<char>(c);
    }
    if (n == 0) body += 'x';
    *format += body;
    *format += ']';
    // Members as the engine reads them: leading ']' literal, "a-b" ranges
    // unless the '-' is first or last or the range runs backwards.
    members->assign(256, 0);
    size_t k = negate ? 1 : 0;
    if (k < body.size() && body[k] == ']') (*members)[']'] = 1, ++k;
    while (k < body.size()) {
        const unsigned char c = static_cast<unsigned char>(body[k++]);
        if (k + 1 < body.size() && body[k] == '-' && static_cast<unsigned char>(body[k + 1]) >= c) {
            for (unsigned x = c; x <= static_cast<unsigned char>(body[k + 1]); ++x) (*members)[x] = 1;
            k += 2;
        } else {
            (*members)[c] = 1;
        }
    }
    if (negate) {
        for (char& m : *members) m = m ? 0 : 1;
    }
}

// The text as an exact heap block without terminator, for scan_input_s.
const unsigned char* g_text;
size_t g_textLen;

int ScanExact(const char* /*unused*/, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    const int r = scan_input_s(reinterpret_cast<const char*>(g_text), g_textLen, format, ap);
    va_end(ap);
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Byte 0: length of the format description; byte 1: mode bits; then
    // the description; the rest is the text.
    if (size < 2) return 0;
    const size_t descLen = data[0] < size - 2 ? data[0] : size - 2;
    const uint8_t mode = data[1];
    Reader r{data + 2, descLen};
    const uint8_t* text = data + 2 + descLen;
    const size_t textLen = size - 2 - descLen;

    std::string format;
    std::vector<Destination> dests;
    while (!r.empty() && dests.size() < static_cast<size_t>(tocra_test::kMaxScanArgs)) {
        const uint8_t pick = r.next();
        if (pick < 40) {  // plain pieces
            switch (pick % 8) {
                case 0:
                    format += ' ';
                    break;
                case 1:
                    format += '\t';
                    break;
                case 2:
                    format += "%%";
                    break;
                case 3:
                    format += "%y";
                    break;  // unknown: stops the scan
                default: {
                    const char c = static_cast<char>(r.next());
                    if (c == '%') {
                        format += "%%";
                    } else if (c != 0) {
                        format += c;
                    }
                }
            }
            continue;
        }
        const Conversion& conv = kConversions[pick % kConversionCount];
        const uint8_t flags = r.next();
        format += '%';
        const bool suppress = (flags & 1) != 0 && conv.kind != Kind::kCount;
        if (suppress) format += '*';
        if (flags & 2) format += std::to_string(r.next() % 24);
        format += conv.text;
        Destination d{conv.kind, conv.kind != Kind::kCount, conv.bytes, nullptr, {}};
        if (conv.kind == Kind::kSet) AppendSet(&r, flags, &format, &d.set);
        if (suppress) continue;
        if (conv.kind != Kind::kNumber && conv.kind != Kind::kCount) d.size = r.next() % 40;
        dests.push_back(d);
    }
    // Sometimes end the format inside a directive.
    if (mode & 0x80) format += (mode & 0x40) ? "%" : "%5";

    std::vector<ScanArg> args(dests.size());
    for (size_t k = 0; k < dests.size(); ++k) {
        Destination& d = dests[k];
        d.block = static_cast<unsigned char*>(malloc(d.size > 0 ? d.size : 1));
        memset(d.block, kFill, d.size > 0 ? d.size : 1);
        const bool text = d.kind != Kind::kNumber && d.kind != Kind::kCount;
        args[k] = ScanArg{d.block, static_cast<unsigned>(d.size), text};
    }

    int result;
    const int n = static_cast<int>(args.size());
    if (mode & 1) {
        // Exact length, no terminator: reading one byte too far is a report.
        unsigned char* exact = static_cast<unsigned char*>(malloc(textLen > 0 ? textLen : 1));
        if (textLen > 0) memcpy(exact, text, textLen);
        g_text = exact;
        g_textLen = textLen;
        result = tocra_test::CallScan<ScanExact>(nullptr, format.c_str(), args.data(), n);
        free(exact);
    } else {
        const std::string str(reinterpret_cast<const char*>(text), textLen);
        result = tocra_test::CallScan<sscanf_s>(str.c_str(), format.c_str(), args.data(), n);
        if (strlen(str.c_str()) == 0 && result != -1) Fail("empty input must give -1", 0);
    }

    int assigning = 0;
    for (const Destination& d : dests) assigning += d.counts;
    if (result < -1 || result > assigning) Fail("result out of range", 0);
    // Fields are assigned in order and the scan stops at the first failure:
    // the first `result` assigning destinations were assigned, the next one
    // may have failed.
    int seen = 0;
    for (size_t k = 0; k < dests.size(); ++k) {
        const Destination& d = dests[k];
        if (!d.counts) continue;
        CheckDestination(d, k, seen < result, seen == (result < 0 ? 0 : result));
        ++seen;
    }
    for (Destination& d : dests) free(d.block);
    return 0;
}
