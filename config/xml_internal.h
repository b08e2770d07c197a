// Node data, encoding state and text helpers shared by the parser's files.
#ifndef BRIMVEL_CONFIG_XML_INTERNAL_H
#define BRIMVEL_CONFIG_XML_INTERNAL_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "config/xml_parser.h"

namespace tocra_xml {

// An owned NUL-terminated copy. Held by pointer so that the address a caller
// got stays put while the vectors around it grow.
using OwnedStr = std::unique_ptr<char[]>;
OwnedStr CopyStr(const char* s);
OwnedStr CopyStr(const char* s, size_t len);

struct OwnedAttr {
    OwnedStr name;
    OwnedStr value;  // null for a bare attribute
};

struct OwnedClear {
    OwnedStr value;
    OwnedStr open;
    OwnedStr close;
};

// Order array entries: (index within its kind << 2) | XMLElementType.
inline int OrderEntry(XMLElementType t, int index) { return (index << 2) | static_cast<int>(t); }
inline XMLElementType OrderType(int e) { return static_cast<XMLElementType>(e & 3); }
inline int OrderIndex(int e) { return e >> 2; }

// Case-insensitive (ASCII) comparison; null equals nothing.
bool NameEquals(const char* a, const char* b);
bool NameEqualsN(const char* a, const char* b, size_t n);

// ---- encoding -----------------------------------------------------------

struct Options {
    XMLCharEncoding encoding;
    const unsigned char* lengths;  // 256 entries: bytes of the character led by that byte
    char guessWideChar;
    char dropWhiteSpace;
    char removeCommentsInMiddleOfText;
};
Options& GlobalOptions();

// Length of the character at p by the current table, never crossing a NUL
// (so a truncated sequence at the end of the text counts its bytes only).
inline size_t CharLen(const char* p) {
    const size_t n = GlobalOptions().lengths[static_cast<unsigned char>(*p)];
    for (size_t k = 1; k < n; ++k) {
        if (p[k] == '\0') return k;
    }
    return n == 0 ? 1 : n;
}

// ---- entities -----------------------------------------------------------

// Decodes [s, s + len) into out. On a bad reference returns false with
// *errOffset the offset of its '&'.
bool DecodeEntities(const char* s, size_t len, std::string& out, size_t* errOffset);

}  // namespace tocra_xml

// Reference-counted node data behind XMLNode.
struct XMLNodeData {
    tocra_xml::OwnedStr name;  // null for the unnamed top node
    XMLNodeData* parent = nullptr;  // not owned; cleared when the parent goes
    char isDeclaration = 0;
    std::vector<XMLNode> children;
    std::vector<tocra_xml::OwnedAttr> attributes;
    std::vector<tocra_xml::OwnedStr> texts;
    std::vector<tocra_xml::OwnedClear> clears;
    std::vector<int> order;
    int refCount = 1;
    XMLNodeData* nextDying = nullptr;  // Release's work list: freeing allocates nothing

    static XMLNodeData* Create(const char* name, char isDeclaration);
    static void AddRef(XMLNodeData* d) { ++d->refCount; }
    // Drops one reference; frees the node and every subtree that loses its
    // last reference, without recursion (deep documents do not grow the stack).
    static void Release(XMLNodeData* d);

    // Inserts an entry of kind t in the order array at pos (-1 or past the
    // end: append) and returns the index the new item takes in its kind's
    // vector; the caller inserts it there.
    int InsertOrder(XMLElementType t, int pos);
    // Removes the order entry of item index of kind t and renumbers.
    void RemoveOrder(XMLElementType t, int index);

    // Appends during parsing (order at the end).
    XMLNodeData* AppendChild(const char* name, size_t nameLen, char isDeclaration);
    void AppendText(std::string&& text);
    void AppendClear(const char* value, size_t len, const char* open, const char* close);
    void AppendAttribute(const char* name, size_t nameLen, const std::string* value);
};

// Lets the parser build handles from data.
struct XMLParserAccess {
    static XMLNode Adopt(XMLNodeData* d) { return XMLNode(d); }
    static XMLNodeData* Data(const XMLNode& n) { return n.d; }
};

#endif
