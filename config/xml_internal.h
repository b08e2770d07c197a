// Node data, encoding state and text helpers shared by the parser's files.
//
// Everything here lives on the platform allocator (platform_malloc and
// friends) and reports an exhausted heap by its return value: a null
// pointer or false. Nothing throws.
#ifndef BRIMVEL_CONFIG_XML_INTERNAL_H
#define BRIMVEL_CONFIG_XML_INTERNAL_H

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "config/xml_parser.h"
#include "frame/platform.h"

namespace tocra_xml {

// A growable array of trivially copyable items. All zero is the empty
// array, so arrays inside zeroed blocks need no constructor. Growing fails
// (false) when memory runs out, leaving the items as they were.
template <typename T>
struct Array {
    static_assert(std::is_trivially_copyable<T>::value, "items are moved bytewise");
    T* data;
    size_t size;
    size_t capacity;

    bool Reserve(size_t n) {
        if (n <= capacity) return true;
        size_t c = capacity < 4 ? 4 : capacity;
        while (c < n) {
            if (c > (static_cast<size_t>(-1) / sizeof(T)) / 2) return false;
            c *= 2;
        }
        T* p = static_cast<T*>(platform_realloc(data, c * sizeof(T)));
        if (p == nullptr) return false;
        data = p;
        capacity = c;
        return true;
    }
    bool Push(const T& v) {
        if (!Reserve(size + 1)) return false;
        data[size++] = v;
        return true;
    }
    bool Insert(size_t pos, const T& v) {
        if (!Reserve(size + 1)) return false;
        memmove(data + pos + 1, data + pos, (size - pos) * sizeof(T));
        data[pos] = v;
        ++size;
        return true;
    }
    void Erase(size_t pos) {
        memmove(data + pos, data + pos + 1, (size - pos - 1) * sizeof(T));
        --size;
    }
    void Free() {
        platform_free(data);
        data = nullptr;
        size = capacity = 0;
    }
    T& operator[](size_t i) { return data[i]; }
    const T& operator[](size_t i) const { return data[i]; }
    T& Back() { return data[size - 1]; }
};

// A NUL-terminated copy on the platform allocator, or null when memory runs out.
char* CopyStr(const char* s, size_t len);
// The same for an optional string: true with *out null for a null s; false
// only when memory runs out.
bool CopyOpt(const char* s, char** out);

struct OwnedAttr {
    char* name;
    char* value;  // null for a bare attribute
};

struct OwnedClear {
    char* value;
    char* open;
    char* close;
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

// Decodes [s, s + len) into out, which has room for len bytes: a decoded
// text is never longer than its source (the shortest reference, "&#0;",
// gives at most three bytes). *outLen gets the bytes written; no NUL is
// added. A null out only checks the references. On a bad reference returns
// false with *errOffset the offset of its '&'.
bool DecodeEntities(const char* s, size_t len, char* out, size_t* outLen, size_t* errOffset);

// openFileHelper, telling an exhausted heap (*noMemory) apart from a file
// that does not load.
XMLNode OpenFile(const char* path, const char* tag, bool* noMemory);

}  // namespace tocra_xml

// Reference-counted node data behind XMLNode. All zero is a valid node
// without name, parent or contents; blocks come from platform_calloc.
struct XMLNodeData {
    char* name;           // null for the unnamed top node
    XMLNodeData* parent;  // not owned; cleared when the parent goes
    char isDeclaration;
    tocra_xml::Array<XMLNodeData*> children;  // each holds one reference
    tocra_xml::Array<tocra_xml::OwnedAttr> attributes;
    tocra_xml::Array<char*> texts;
    tocra_xml::Array<tocra_xml::OwnedClear> clears;
    tocra_xml::Array<int> order;
    int refCount;
    XMLNodeData* nextDying;  // Release's work list: freeing allocates nothing

    // A node with one reference, or null when memory runs out.
    static XMLNodeData* Create(const char* name, size_t nameLen, char isDeclaration);
    static XMLNodeData* Create(const char* name, char isDeclaration);
    static void AddRef(XMLNodeData* d) { ++d->refCount; }
    // Drops one reference; frees the node and every subtree that loses its
    // last reference, without recursion (deep documents do not grow the stack).
    static void Release(XMLNodeData* d);

    // Makes room for an entry of kind t at pos in the order array (-1 or
    // past the end: append) and in the array of that kind (capacity, which
    // the caller passes: the kind's array reserved one more), renumbers, and
    // returns the index the new item takes in its kind's array; the caller
    // inserts it there, which cannot fail any more. -1 when memory runs out
    // (nothing changed).
    int InsertOrder(XMLElementType t, int pos);
    // Removes the order entry of item index of kind t and renumbers.
    void RemoveOrder(XMLElementType t, int index);

    // Appends during parsing (order at the end). Each answers false (or
    // null) when memory runs out; what it was given to own is then freed.
    XMLNodeData* AppendChild(const char* name, size_t nameLen, char isDeclaration);
    bool AppendText(char* text);
    bool AppendClear(const char* value, size_t len, const char* open, const char* close);
    bool AppendAttribute(const char* name, size_t nameLen, char* value);
};

// Lets the parser build handles from data.
struct XMLParserAccess {
    static XMLNode Adopt(XMLNodeData* d) { return XMLNode(d); }
    static XMLNodeData* Data(const XMLNode& n) { return n.d; }
};

#endif
