// Parsing text into a node tree, reading files, and locating errors.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "config/xml_internal.h"

using tocra_xml::GlobalOptions;
using tocra_xml::NameEqualsN;

namespace {

inline bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Characters that end a tag or attribute name.
inline bool EndsName(char c) {
    return c == '\0' || IsSpace(c) || c == '/' || c == '>' || c == '<' || c == '=' || c == '"' || c == '\'' ||
           c == '?';
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
    XMLNodeData* Current() const { return open_.back(); }

    // Text runs: segments between markup, joined across comments that sit
    // in the middle of text when that option is on.
    void AddText(const char* start, size_t len);
    bool Significant(const char* s, size_t len) const;
    void FlushText();
    bool Decode(const char* s, size_t len, std::string& out);

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
    std::vector<XMLNodeData*> open_;
    std::vector<Segment> run_;
    bool runSignificant_ = false;
    std::vector<HeldComment> held_;
    bool sawElement_ = false;
};

bool Parser::Significant(const char* s, size_t len) const {
    if (!GlobalOptions().dropWhiteSpace) return len > 0;
    for (size_t i = 0; i < len; ++i) {
        if (!IsSpace(s[i])) return true;
    }
    return false;
}

bool Parser::Decode(const char* s, size_t len, std::string& out) {
    size_t at = 0;
    if (tocra_xml::DecodeEntities(s, len, out, &at)) return true;
    Fail(eXMLErrorUnknownCharacterEntity, s + at);
    return false;
}

void Parser::AddText(const char* start, size_t len) {
    std::string scratch;
    if (!Decode(start, len, scratch)) return;  // references are checked in reading order
    if (Significant(start, len)) {
        held_.clear();  // the comments held so far sit in the middle of this text
        runSignificant_ = true;
    }
    run_.push_back({start, len});
}

void Parser::FlushText() {
    if (runSignificant_ && !run_.empty()) {
        size_t first = 0, last = run_.size() - 1;
        size_t headSkip = 0, tailLen = run_[last].len;
        if (GlobalOptions().dropWhiteSpace) {
            // Skip white space at the front of the run and at its back.
            while (first < run_.size() && !Significant(run_[first].start, run_[first].len)) ++first;
            while (headSkip < run_[first].len && IsSpace(run_[first].start[headSkip])) ++headSkip;
            while (last > first && !Significant(run_[last].start, run_[last].len)) --last;
            tailLen = run_[last].len;
            while (tailLen > 0 && IsSpace(run_[last].start[tailLen - 1])) --tailLen;
        }
        std::string text, piece;
        for (size_t k = first; k <= last; ++k) {
            const char* s = run_[k].start;
            size_t n = (k == last) ? tailLen : run_[k].len;
            if (k == first) {
                s += headSkip;
                n -= headSkip;
            }
            if (!Decode(s, n, piece)) return;
            text += piece;
        }
        Current()->AppendText(std::move(text));
    }
    for (const HeldComment& c : held_) Current()->AppendClear(c.start, c.len, "<!--", "-->");
    run_.clear();
    held_.clear();
    runSignificant_ = false;
}

void Parser::ParseComment() {
    const char* body = p_ + 4;
    const char* end = strstr(body, "-->");
    if (end == nullptr) return Fail(eXMLErrorUnmatchedEndClearTag, p_);
    const size_t len = static_cast<size_t>(end - body);
    if (GlobalOptions().removeCommentsInMiddleOfText && runSignificant_) {
        held_.push_back({body, len});  // dropped if more text follows
    } else {
        FlushText();
        Current()->AppendClear(body, len, "<!--", "-->");
    }
    p_ = end + 3;
}

void Parser::ParseClear(const char* open, const char* close) {
    const char* body = p_ + strlen(open);
    const char* end = strstr(body, close);
    if (end == nullptr) return Fail(eXMLErrorUnmatchedEndClearTag, p_);
    FlushText();
    Current()->AppendClear(body, static_cast<size_t>(end - body), open, close);
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
    // The innermost open element of that name; elements inside it that are
    // still open close here too (tolerated).
    for (size_t k = open_.size() - 1; k > 0; --k) {
        const char* n = open_[k]->name.get();
        if (NameEqualsN(n, name, len) && n[len] == '\0') {
            if (k != open_.size() - 1) Tolerate(eXMLErrorMissingEndTag, tagStart);
            open_.resize(k);
            p_ = q + 1;
            return;
        }
    }
    Fail(eXMLErrorUnmatchedEndTag, tagStart);
}

bool Parser::ParseAttributes(XMLNodeData* node, const char* tagStart, bool declaration, bool* selfClosed) {
    const char* q = p_;
    std::string value;
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
            node->AppendAttribute(name, nameLen, nullptr);
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
            while (*q && !IsSpace(*q) && *q != '>' && !(*q == '/' && q[1] == '>') && !(declaration && *q == '?' && q[1] == '>'))
                ++q;
            vlen = static_cast<size_t>(q - vstart);
            if (vlen == 0) {
                Fail(*q == '\0' ? eXMLErrorMissingEndOfTag : eXMLErrorUnexpectedToken, *q == '\0' ? tagStart : q);
                return false;
            }
        }
        if (!Decode(vstart, vlen, value)) return false;
        node->AppendAttribute(name, nameLen, &value);
    }
}

void Parser::ParseStartTag(bool declaration) {
    const char* tagStart = p_;
    const char* name = p_ + (declaration ? 2 : 1);
    const char* q = name;
    while (!EndsName(*q)) ++q;
    if (q == name) return Fail(eXMLErrorMissingTagName, tagStart);
    FlushText();
    // A declaration keeps its '?' in its name: "?xml".
    const char* stored = declaration ? name - 1 : name;
    XMLNodeData* node = Current()->AppendChild(stored, static_cast<size_t>(q - stored), declaration ? 1 : 0);
    if (!declaration) sawElement_ = true;
    p_ = q;
    bool selfClosed = false;
    if (!ParseAttributes(node, tagStart, declaration, &selfClosed)) return;
    if (!selfClosed) open_.push_back(node);
}

void Parser::Run(XMLNodeData* top) {
    open_.assign(1, top);
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
    if (open_.size() > 1) Tolerate(eXMLErrorMissingEndTag, p_);
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
    Parser parser(text);
    parser.Run(top.d);
    if (parser.fatal != eXMLErrorNone) {
        SetResults(results, parser.fatal, text, parser.fatalPos);
        return XMLNode();
    }
    XMLNode result = top;
    if (top.d->children.size() == 1 && top.d->order.size() == 1 && !top.d->children[0].isDeclaration())
        result = top.d->children[0];
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
    // The text is held for the length of the parse and released however it
    // ends. A heap too small for it is reported as the parser's containers
    // report theirs, with std::bad_alloc (once the file is closed).
    std::unique_ptr<char[]> text;
    if (ok) {
        text.reset(new (std::nothrow) char[static_cast<size_t>(size) + 4]);
        if (text == nullptr) {
            fclose(f);
            throw std::bad_alloc();
        }
        buf = text.get();
    }
    if (ok) {
        got = fread(buf, 1, static_cast<size_t>(size), f);
        // Whole means exactly size bytes and then the end: a directory, or a
        // file that changed under us, fails here.
        ok = got == static_cast<size_t>(size) && fgetc(f) == EOF && !ferror(f);
    }
    fclose(f);
    if (!ok) {
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
    return parseString(start, tag, results);
}

XMLNode XMLNode::openFileHelper(XMLCSTR path, XMLCSTR tag) {
    if (path == nullptr) return XMLNode();
    FILE* f = fopen(path, "rb");
    if (f == nullptr) return XMLNode();
    unsigned char head[200];
    const size_t n = fread(head, 1, sizeof head, f);
    fclose(f);
    if (n < sizeof head) return XMLNode();  // configuration files are at least 200 bytes
    const tocra_xml::Options o = GlobalOptions();
    setGlobalOptions(guessCharEncoding(head, static_cast<int>(sizeof head), 1), o.guessWideChar, o.dropWhiteSpace,
                     o.removeCommentsInMiddleOfText);
    return parseFile(path, tag, nullptr);
}

XMLCSTR XMLNode::getError(XMLError error) {
    switch (error) {
        case eXMLErrorNone: return "No error";
        case eXMLErrorMissingEndTag: return "Warning: unmatched end tag";
        case eXMLErrorNoElements: return "Warning: no XML element found";
        case eXMLErrorFileSeek: return "Error reading the file";
        case eXMLErrorUnmatchedEndTag: return "End tag closes no open element";
        case eXMLErrorMissingTagName: return "Missing tag name";
        case eXMLErrorUnexpectedToken: return "Unexpected character in a tag";
        case eXMLErrorUnmatchedEndClearTag: return "Unterminated clear section";
        case eXMLErrorMissingEndOfTag: return "Text ends inside a tag";
        case eXMLErrorNoXMLText: return "No XML text";
        case eXMLErrorFileNotFound: return "File not found";
        case eXMLErrorFirstTagNotFound: return "First tag not found";
        case eXMLErrorUnknownCharacterEntity: return "Unknown character entity";
    }
    return "Unknown error";
}
