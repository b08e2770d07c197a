// Parsing text into a node tree, reading files, and locating errors.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/xml_internal.h"

using tocra_xml::GlobalOptions;
using tocra_xml::NameEqualsN;

namespace {

inline bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Characters that end a tag or attribute name.
inline bool EndsName(char c) {
    return c == '\0' || IsSpace(c) || c == '/' || c == '>' || c == '<' || c == '=' || c == '"' || c == '\'' || c == '?';
}

inline bool StartsWith(const char* p, const char* lit) { return strncmp(p, lit, strlen(lit)) == 0; }

struct Segment {
    const char* start;
    size_t len;
};

struct HeldComment {
    const char* start;
    size_t len;
};

class Parser {
  public:
    explicit Parser(const char* text) : p_(text) {}
    ~Parser() {
        open_.Free();
        run_.Free();
        held_.Free();
    }
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    // Fills top with what the text holds.
    void Run(XMLNodeData* top);

    XMLError fatal = eXMLErrorNone;
    XMLError tolerated = eXMLErrorNone;
    const char* fatalPos = nullptr;
    const char* toleratedPos = nullptr;

  private:
    void Fail(XMLError e, const char* at) {
        if (fatal == eXMLErrorNone) {
            fatal = e;
            fatalPos = at;
        }
    }
    void Tolerate(XMLError e, const char* at) {
        if (tolerated == eXMLErrorNone) {
            tolerated = e;
            toleratedPos = at;
        }
    }
    void NoMemory() { Fail(eXMLErrorOutOfMemory, nullptr); }
    XMLNodeData* Current() { return open_.Back(); }

    // Text runs: segments between markup, joined across comments that sit
    // in the middle of text when that option is on.
    void AddText(const char* start, size_t len);
    bool Significant(const char* s, size_t len) const;
    void FlushText();
    // Decodes into out (room for len bytes; null: only checks).
    bool Decode(const char* s, size_t len, char* out, size_t* outLen);

    void ParseComment();
    void ParseClear(const char* open, const char* close);
    void ParseDoctype();
    void ParseOtherBang();
    void ParseEndTag();
    void ParseStartTag(bool declaration);
    // Reads attributes up to the end of the tag; returns false on error.
    // *selfClosed is set for "/>" (elements) and always for declarations.
    bool ParseAttributes(XMLNodeData* node, const char* tagStart, bool declaration, bool* selfClosed);

    const char* p_;
    tocra_xml::Array<XMLNodeData*> open_{};
    tocra_xml::Array<Segment> run_{};
    bool runSignificant_ = false;
    tocra_xml::Array<HeldComment> held_{};
    bool sawElement_ = false;
};

bool Parser::Significant(const char* s, size_t len) const {
    if (!GlobalOptions().dropWhiteSpace) return len > 0;
    for (size_t i = 0; i < len; ++i) {
        if (!IsSpace(s[i])) return true;
    }
    return false;
}

bool Parser::Decode(const char* s, size_t len, char* out, size_t* outLen) {
    size_t at = 0;
    if (tocra_xml::DecodeEntities(s, len, out, outLen, &at)) return true;
    Fail(eXMLErrorUnknownCharacterEntity, s + at);
    return false;
}

void Parser::AddText(const char* start, size_t len) {
    if (!Decode(start, len, nullptr, nullptr)) return;  // references are checked in reading order
    if (!run_.Push({start, len})) return NoMemory();
    if (Significant(start, len)) {
        held_.size = 0;  // the comments held so far sit in the middle of this text
        runSignificant_ = true;
    }
}

void Parser::FlushText() {
    if (runSignificant_ && run_.size > 0) {
        size_t first = 0, last = run_.size - 1;
        size_t headSkip = 0, tailLen = run_[last].len;
        if (GlobalOptions().dropWhiteSpace) {
            // Skip white space at the front of the run and at its back.
            while (first < run_.size && !Significant(run_[first].start, run_[first].len)) ++first;
            while (headSkip < run_[first].len && IsSpace(run_[first].start[headSkip])) ++headSkip;
            while (last > first && !Significant(run_[last].start, run_[last].len)) --last;
            tailLen = run_[last].len;
            while (tailLen > 0 && IsSpace(run_[last].start[tailLen - 1])) --tailLen;
        }
        // Decoding never lengthens a piece: the joined text fits their sum.
        size_t total = 0;
        for (size_t k = first; k <= last; ++k) total += run_[k].len;
        char* text = static_cast<char*>(platform_malloc(total + 1));
        if (text == nullptr) return NoMemory();
        size_t used = 0;
        for (size_t k = first; k <= last; ++k) {
            const char* s = run_[k].start;
            size_t n = (k == last) ? tailLen : run_[k].len;
            if (k == first) {
                s += headSkip;
                n -= headSkip;
            }
            size_t piece = 0;
            if (!Decode(s, n, text + used, &piece)) {
                platform_free(text);
                return;
            }
            used += piece;
        }
        text[used] = '\0';
        if (!Current()->AppendText(text)) return NoMemory();
    }
    for (size_t k = 0; k < held_.size; ++k) {
        if (!Current()->AppendClear(held_[k].start, held_[k].len, "<!--", "-->")) return NoMemory();
    }
    run_.size = 0;
    held_.size = 0;
    runSignificant_ = false;
}

void Parser::ParseComment() {
    const char* body = p_ + 4;
    const char* end = strstr(body, "-->");
    if (end == nullptr) return Fail(eXMLErrorUnmatchedEndClearTag, p_);
    const size_t len = static_cast<size_t>(end - body);
    if (GlobalOptions().removeCommentsInMiddleOfText && runSignificant_) {
        if (!held_.Push({body, len})) return NoMemory();  // dropped if more text follows
    } else {
        FlushText();
        if (fatal != eXMLErrorNone) return;
        if (!Current()->AppendClear(body, len, "<!--", "-->")) return NoMemory();
    }
    p_ = end + 3;
}

void Parser::ParseClear(const char* open, const char* close) {
    const char* body = p_ + strlen(open);
    const char* end = strstr(body, close);
    if (end == nullptr) return Fail(eXMLErrorUnmatchedEndClearTag, p_);
    FlushText();
    if (fatal != eXMLErrorNone) return;
    if (!Current()->AppendClear(body, static_cast<size_t>(end - body), open, close)) return NoMemory();
    p_ = end + strlen(close);
}

void Parser::ParseDoctype() {
    const char* body = p_ + 9;
    const char* gt = strchr(body, '>');
    if (gt == nullptr) return Fail(eXMLErrorUnmatchedEndClearTag, p_);
    const char* lt = static_cast<const char*>(memchr(body, '<', static_cast<size_t>(gt - body)));
    if (lt == nullptr) return ParseClear("<!DOCTYPE", ">");
    return ParseClear("<!DOCTYPE", "]>");  // internal subset
}

void Parser::ParseOtherBang() { ParseClear("<!", ">"); }

void Parser::ParseEndTag() {
    const char* tagStart = p_;
    const char* name = p_ + 2;
    const char* q = name;
    while (!EndsName(*q)) ++q;
    const size_t len = static_cast<size_t>(q - name);
    if (len == 0) return Fail(eXMLErrorMissingTagName, tagStart);
    while (IsSpace(*q)) ++q;
    if (*q == '\0') return Fail(eXMLErrorMissingEndOfTag, tagStart);
    if (*q != '>') return Fail(eXMLErrorUnexpectedToken, q);
    FlushText();
    if (fatal != eXMLErrorNone) return;
    // The innermost open element of that name; elements inside it that are
    // still open close here too (tolerated).
    for (size_t k = open_.size - 1; k > 0; --k) {
        const char* n = open_[k]->name;
        if (NameEqualsN(n, name, len) && n[len] == '\0') {
            if (k != open_.size - 1) Tolerate(eXMLErrorMissingEndTag, tagStart);
            open_.size = k;
            p_ = q + 1;
            return;
        }
    }
    Fail(eXMLErrorUnmatchedEndTag, tagStart);
}

bool Parser::ParseAttributes(XMLNodeData* node, const char* tagStart, bool declaration, bool* selfClosed) {
    const char* q = p_;
    for (;;) {
        while (IsSpace(*q)) ++q;
        if (*q == '\0') {
            Fail(eXMLErrorMissingEndOfTag, tagStart);
            return false;
        }
        if (*q == '>') {
            p_ = q + 1;
            *selfClosed = declaration;
            return true;
        }
        if (*q == (declaration ? '?' : '/')) {
            if (q[1] == '>') {
                p_ = q + 2;
                *selfClosed = true;
                return true;
            }
            Fail(q[1] == '\0' ? eXMLErrorMissingEndOfTag : eXMLErrorUnexpectedToken, q[1] == '\0' ? tagStart : q);
            return false;
        }
        const char* name = q;
        while (!EndsName(*q)) ++q;
        const size_t nameLen = static_cast<size_t>(q - name);
        if (nameLen == 0) {
            Fail(eXMLErrorUnexpectedToken, q);
            return false;
        }
        const char* afterName = q;
        while (IsSpace(*q)) ++q;
        if (*q != '=') {
            q = afterName;  // a bare attribute: set, without a value
            if (!node->AppendAttribute(name, nameLen, nullptr)) {
                NoMemory();
                return false;
            }
            continue;
        }
        ++q;
        while (IsSpace(*q)) ++q;
        const char* vstart;
        size_t vlen;
        if (*q == '"' || *q == '\'') {
            const char* close = strchr(q + 1, *q);
            if (close == nullptr) {
                Fail(eXMLErrorMissingEndOfTag, tagStart);
                return false;
            }
            vstart = q + 1;
            vlen = static_cast<size_t>(close - vstart);
            q = close + 1;
        } else {
            vstart = q;
            while (*q && !IsSpace(*q) && *q != '>' && !(*q == '/' && q[1] == '>') &&
                   !(declaration && *q == '?' && q[1] == '>'))
                ++q;
            vlen = static_cast<size_t>(q - vstart);
            if (vlen == 0) {
                Fail(*q == '\0' ? eXMLErrorMissingEndOfTag : eXMLErrorUnexpectedToken, *q == '\0' ? tagStart : q);
                return false;
            }
        }
        if (!Decode(vstart, vlen, nullptr, nullptr)) return false;
        char* value = static_cast<char*>(platform_malloc(vlen + 1));
        if (value == nullptr) {
            NoMemory();
            return false;
        }
        size_t used = 0;
        Decode(vstart, vlen, value, &used);
        value[used] = '\0';
        if (!node->AppendAttribute(name, nameLen, value)) {
            NoMemory();
            return false;
        }
    }
}

void Parser::ParseStartTag(bool declaration) {
    const char* tagStart = p_;
    const char* name = p_ + (declaration ? 2 : 1);
    const char* q = name;
    while (!EndsName(*q)) ++q;
    if (q == name) return Fail(eXMLErrorMissingTagName, tagStart);
    FlushText();
    if (fatal != eXMLErrorNone) return;
    // A declaration keeps its '?' in its name: "?xml".
    const char* stored = declaration ? name - 1 : name;
    XMLNodeData* node = Current()->AppendChild(stored, static_cast<size_t>(q - stored), declaration ? 1 : 0);
    if (node == nullptr) return NoMemory();
    if (!declaration) sawElement_ = true;
    p_ = q;
    bool selfClosed = false;
    if (!ParseAttributes(node, tagStart, declaration, &selfClosed)) return;
    if (!selfClosed && !open_.Push(node)) NoMemory();
}

void Parser::Run(XMLNodeData* top) {
    open_.size = 0;
    if (!open_.Push(top)) return NoMemory();
    while (*p_ != '\0' && fatal == eXMLErrorNone) {
        if (*p_ != '<') {
            const char* start = p_;
            const char* lt = strchr(p_, '<');
            p_ = lt ? lt : p_ + strlen(p_);
            AddText(start, static_cast<size_t>(p_ - start));
        } else if (StartsWith(p_, "<!--")) {
            ParseComment();
        } else if (StartsWith(p_, "<![CDATA[")) {
            ParseClear("<![CDATA[", "]]>");
        } else if (StartsWith(p_, "<!DOCTYPE")) {
            ParseDoctype();
        } else if (p_[1] == '!') {
            ParseOtherBang();
        } else if (p_[1] == '/') {
            ParseEndTag();
        } else {
            ParseStartTag(p_[1] == '?');
        }
    }
    if (fatal != eXMLErrorNone) return;
    FlushText();
    if (fatal != eXMLErrorNone) return;
    if (open_.size > 1) Tolerate(eXMLErrorMissingEndTag, p_);
    if (!sawElement_) Tolerate(eXMLErrorNoElements, p_);
}

// Line and column of pos, both from 1, characters counted by the current
// encoding's length table.
void Locate(const char* text, const char* pos, XMLResults* r) {
    int line = 1, column = 1;
    const char* q = text;
    while (q < pos && *q) {
        if (*q == '\n') {
            ++line;
            column = 1;
            ++q;
        } else {
            ++column;
            q += tocra_xml::CharLen(q);
        }
    }
    r->nLine = line;
    r->nColumn = column;
}

void SetResults(XMLResults* r, XMLError e, const char* text, const char* pos) {
    if (r == nullptr) return;
    r->error = e;
    r->nLine = 0;
    r->nColumn = 0;
    if (pos) Locate(text, pos, r);
}

}  // namespace

XMLNode XMLNode::parseString(XMLCSTR text, XMLCSTR tag, XMLResults* results) {
    if (text == nullptr) {
        SetResults(results, eXMLErrorNoXMLText, nullptr, nullptr);
        return XMLNode();
    }
    XMLNode top(XMLNodeData::Create(nullptr, 0));
    if (top.d == nullptr) {
        SetResults(results, eXMLErrorOutOfMemory, nullptr, nullptr);
        return XMLNode();
    }
    Parser parser(text);
    parser.Run(top.d);
    if (parser.fatal != eXMLErrorNone) {
        SetResults(results, parser.fatal, text, parser.fatalPos);
        return XMLNode();
    }
    XMLNode result = top;
    if (top.d->children.size == 1 && top.d->order.size == 1 && !top.d->children[0]->isDeclaration)
        result = top.getChildNode(0);
    if (tag && *tag && !tocra_xml::NameEquals(result.getName(), tag)) {
        XMLNode inner = result.getChildNode(tag);
        if (inner.isEmpty()) {
            SetResults(results, eXMLErrorFirstTagNotFound, nullptr, nullptr);
            return XMLNode();
        }
        result = inner;
    }
    SetResults(results, parser.tolerated, text, parser.toleratedPos);
    return result;
}

XMLNode XMLNode::parseFile(XMLCSTR path, XMLCSTR tag, XMLResults* results) {
    FILE* f = path ? fopen(path, "rb") : nullptr;
    // Only regular files are read: a directory opens, but its "size" is
    // whatever the file system makes of it. (A failing fstat, as the 32-bit
    // call can on 64-bit inode numbers, does not refuse the file.)
    struct stat st;
    if (f != nullptr && fstat(fileno(f), &st) == 0 && !S_ISREG(st.st_mode)) {
        fclose(f);
        f = nullptr;
    }
    if (f == nullptr) {
        SetResults(results, eXMLErrorFileNotFound, nullptr, nullptr);
        return XMLNode();
    }
    long size = -1;
    if (fseek(f, 0, SEEK_END) == 0) size = ftell(f);
    char* buf = nullptr;
    size_t got = 0;
    bool ok = size >= 0 && fseek(f, 0, SEEK_SET) == 0;
    // The text is held for the length of the parse only.
    if (ok) {
        buf = static_cast<char*>(platform_malloc(static_cast<size_t>(size) + 4));
        if (buf == nullptr) {
            fclose(f);
            SetResults(results, eXMLErrorOutOfMemory, nullptr, nullptr);
            return XMLNode();
        }
        got = fread(buf, 1, static_cast<size_t>(size), f);
        // Whole means exactly size bytes and then the end: a directory, or a
        // file that changed under us, fails here.
        ok = got == static_cast<size_t>(size) && fgetc(f) == EOF && !ferror(f);
    }
    fclose(f);
    if (!ok) {
        platform_free(buf);
        SetResults(results, eXMLErrorFileSeek, nullptr, nullptr);
        return XMLNode();
    }
    memset(buf + got, 0, 4);
    const unsigned char* u = reinterpret_cast<const unsigned char*>(buf);
    const char* start = buf;
    if (got >= 3 && u[0] == 0xEF && u[1] == 0xBB && u[2] == 0xBF) {
        start += 3;
    } else if (got >= 2 && u[0] == 0xFF && u[1] == 0xFE && GlobalOptions().guessWideChar) {
        start += 2;
    }
    XMLNode node = parseString(start, tag, results);
    platform_free(buf);
    return node;
}

XMLNode tocra_xml::OpenFile(const char* path, const char* tag, bool* noMemory) {
    *noMemory = false;
    if (path == nullptr) return XMLNode();
    FILE* f = fopen(path, "rb");
    if (f == nullptr) return XMLNode();
    unsigned char head[200];
    const size_t n = fread(head, 1, sizeof head, f);
    fclose(f);
    if (n < sizeof head) return XMLNode();  // configuration files are at least 200 bytes
    const Options o = GlobalOptions();
    XMLNode::setGlobalOptions(XMLNode::guessCharEncoding(head, static_cast<int>(sizeof head), 1), o.guessWideChar,
                              o.dropWhiteSpace, o.removeCommentsInMiddleOfText);
    XMLResults r{eXMLErrorNone, 0, 0};
    XMLNode node = XMLNode::parseFile(path, tag, &r);
    *noMemory = r.error == eXMLErrorOutOfMemory;
    return node;
}

XMLNode XMLNode::openFileHelper(XMLCSTR path, XMLCSTR tag) {
    bool noMemory;
    return tocra_xml::OpenFile(path, tag, &noMemory);
}

XMLCSTR XMLNode::getError(XMLError error) {
    switch (error) {
        case eXMLErrorNone:
            return "No error";
        case eXMLErrorMissingEndTag:
            return "Warning: unmatched end tag";
        case eXMLErrorNoElements:
            return "Warning: no XML element found";
        case eXMLErrorFileSeek:
            return "Error reading the file";
        case eXMLErrorUnmatchedEndTag:
            return "End tag closes no open element";
        case eXMLErrorMissingTagName:
            return "Missing tag name";
        case eXMLErrorUnexpectedToken:
            return "Unexpected character in a tag";
        case eXMLErrorUnmatchedEndClearTag:
            return "Unterminated clear section";
        case eXMLErrorMissingEndOfTag:
            return "Text ends inside a tag";
        case eXMLErrorNoXMLText:
            return "No XML text";
        case eXMLErrorFileNotFound:
            return "File not found";
        case eXMLErrorFirstTagNotFound:
            return "First tag not found";
        case eXMLErrorUnknownCharacterEntity:
            return "Unknown character entity";
        case eXMLErrorOutOfMemory:
            return "Out of memory";
    }
    return "Unknown error";
}
