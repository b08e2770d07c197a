// A small DOM parser for the tuning file and other short XML documents.
//
// XMLNode is a handle onto shared, reference-counted node data: copying a
// handle shares the node, and the last handle to go frees the node and its
// subtree. A failed lookup answers with the empty node (isEmpty() true), so
// calls can be chained: root.getChildNode("a").getChildNode("b").getText().
// Nothing in here prints, aborts or throws; failures come back as the empty
// node plus an XMLError in XMLResults. An exhausted heap is one of them:
// parsing then answers with the empty node and code 13, having released
// whatever it had built (ParseXML_TocraAPI turns that into -1000), and the
// building functions change nothing and answer as on the empty node.
//
// How the text is read (the rules a user may rely on):
// - Elements: "<name attributes>" ... "</name>", or "<name attributes/>".
//   A name runs up to white space, '/', '>' or the end; end tags match their
//   start tag without regard to case.
// - Attributes: name="value", name='value', name=value (unquoted, up to
//   white space or '>'), or a bare name (set, with a null value). Values and
//   texts have their entities decoded (see fromXMLString).
// - Texts: by default (dropWhiteSpace on) a text is trimmed of leading and
//   trailing white space, and a text made only of white space is dropped;
//   with dropWhiteSpace off every text is kept byte for byte after decoding.
//   A comment between two pieces of text of one element is dropped and the
//   two pieces join into one text when removeCommentsInMiddleOfText is on
//   (the default); everywhere else comments are kept as clears.
// - Clears are kept raw: "<![CDATA[" .. "]]>", "<!--" .. "-->",
//   "<!DOCTYPE" .. ">" (.. "]>" when a '<' comes before the first '>'),
//   and any other "<!" .. ">".
// - "<?name attributes?>" is a declaration: a child node named "?name"
//   whose isDeclaration() is true, holding the attributes.
// - The unnamed top node holds what the top level of the text holds. When
//   that is exactly one child node and nothing else (no declaration, text,
//   clear or attribute), parseString answers with that child instead.
//
// Error codes (XMLError). 0, 1 and 2 are tolerated: the tree is returned and
// the code is still reported. 3 and above give the empty node.
//   0 none
//   1 an element was left open: it is closed at the end of the text, or at
//     the end tag of an element around it
//   2 the text holds no element at all (only text, clears or nothing)
//   3 the file's size could not be found, or the file could not be read whole
//   4 an end tag that closes no open element
//   5 a tag without a name ("<>", "< a>", "</>")
//   6 unexpected character inside a tag (an attribute without a name, '='
//     without a value, text after "/" or "?" that does not end the tag)
//   7 an unterminated clear section
//   8 the text ends inside a tag or a quoted attribute value
//   9 null text given to parseString
//   10 the file cannot be opened, or is not a regular file
//   11 the requested tag was not found
//   12 an unknown entity, or a malformed numeric reference ("&#" or "&#x"
//      without digits, or digits not followed by ';'). A well-formed
//      reference always decodes; see fromXMLString for the values the
//      encoding cannot hold
//   13 memory ran out (fromXMLString reports it too)
// Line and column (both from 1, multi-byte characters counted once) are
// those of the start of the offending construct for codes 4 to 8 and 12; for
// code 1 those of the end tag that closed the open element, or of the end of
// the text; for code 2 those of the end of the text. Codes that do not belong to a
// place in the text (3, 9, 10, 11, 13) and success report line 0, column 0.
//
// Encoding and options are process-wide (see setGlobalOptions) and not
// guarded: do not parse on two threads at once.
#ifndef BRIMVEL_CONFIG_XML_PARSER_H
#define BRIMVEL_CONFIG_XML_PARSER_H

#define TOCRA_XML_API __attribute__((visibility("default")))

typedef char XMLCHAR;
typedef const char* XMLCSTR;
typedef char* XMLSTR;
// Position in a node's order array; -1 (or anything past the end) appends.
typedef int XMLElementPosition;

enum XMLError {
    eXMLErrorNone = 0,
    eXMLErrorMissingEndTag = 1,
    eXMLErrorNoElements = 2,
    eXMLErrorFileSeek = 3,
    eXMLErrorUnmatchedEndTag = 4,
    eXMLErrorMissingTagName = 5,
    eXMLErrorUnexpectedToken = 6,
    eXMLErrorUnmatchedEndClearTag = 7,
    eXMLErrorMissingEndOfTag = 8,
    eXMLErrorNoXMLText = 9,
    eXMLErrorFileNotFound = 10,
    eXMLErrorFirstTagNotFound = 11,
    eXMLErrorUnknownCharacterEntity = 12,
    eXMLErrorOutOfMemory = 13
};

enum XMLCharEncoding {
    char_encoding_error = 0,
    char_encoding_UTF8 = 1,
    char_encoding_legacy = 2,  // one byte per character: ASCII, ISO-8859-x and the like
    char_encoding_ShiftJIS = 3,
    char_encoding_GB2312 = 4,
    char_encoding_Big5 = 5,
    char_encoding_GBK = 6
};

// What the order array holds at each position.
enum XMLElementType { eNodeChild = 0, eNodeAttribute = 1, eNodeText = 2, eNodeClear = 3, eNodeNULL = 4 };

struct XMLResults {
    XMLError error;
    int nLine;
    int nColumn;
};

// Strings point into the node and stay valid until that item is updated or
// deleted, or the node is freed.
struct XMLAttribute {
    XMLCSTR lpszName;
    XMLCSTR lpszValue;  // null for a bare attribute
};

struct XMLClear {
    XMLCSTR lpszValue;
    XMLCSTR lpszOpenTag;
    XMLCSTR lpszCloseTag;
};

struct XMLNodeContents;
struct XMLNodeData;

class TOCRA_XML_API XMLNode {
  public:
    // ---- loading -------------------------------------------------------
    // Parses a NUL-terminated text. tag: when non-empty, the element of that
    // name (the result itself or its first child of that name) is returned.
    static XMLNode parseString(XMLCSTR text, XMLCSTR tag = nullptr, XMLResults* results = nullptr);
    // Reads the whole file and parses it (a leading UTF-8 byte-order mark,
    // and FF FE when wide characters are guessed, are skipped).
    static XMLNode parseFile(XMLCSTR path, XMLCSTR tag = nullptr, XMLResults* results = nullptr);
    // parseFile for configuration files: files shorter than 200 bytes are
    // refused (empty node), the encoding is guessed from the first 200 bytes
    // (declaration honoured) and installed before parsing.
    static XMLNode openFileHelper(XMLCSTR path, XMLCSTR tag = nullptr);
    // A fixed English sentence for each code; never null.
    static XMLCSTR getError(XMLError error);

    // ---- handles ---------------------------------------------------------
    constexpr XMLNode() noexcept : d(nullptr) {}
    XMLNode(const XMLNode& other);
    XMLNode& operator=(const XMLNode& other);
    ~XMLNode();

    static XMLNode emptyNode();
    bool isEmpty() const { return d == nullptr; }
    // The shared empty node. Its handle holds no data, so it is ready before
    // any constructor of another static object runs (constant initialised).
    static const XMLNode emptyXMLNode;

    // ---- lookups ---------------------------------------------------------
    XMLCSTR getName() const;  // null for the unnamed top node
    XMLNode getParentNode() const;
    char isDeclaration() const;

    XMLNode getChildNode(int i) const;
    // The i-th child named name (case-insensitive); a negative i is the last.
    XMLNode getChildNode(XMLCSTR name, int i = 0) const;
    // The first child named name at or after position *index of the child
    // list; *index moves past it. A null index starts at 0. A negative
    // *index counts as 0.
    XMLNode getChildNode(XMLCSTR name, int* index) const;
    // The first child named tagName with attribute attributeName (names
    // case-insensitive) whose value equals attributeValue byte for byte (any
    // value when attributeValue is null), from position *index on.
    XMLNode getChildNodeWithAttribute(XMLCSTR tagName, XMLCSTR attributeName, XMLCSTR attributeValue = nullptr,
                                      int* index = nullptr) const;

    int nChildNode() const;
    int nChildNode(XMLCSTR name) const;
    int nText() const;
    int nClear() const;
    int nAttribute() const;
    int nElement() const;  // children + attributes + texts + clears

    XMLCSTR getText(int i = 0) const;        // null when there is no i-th text
    XMLClear getClear(int i = 0) const;      // all null when there is no i-th clear
    XMLAttribute getAttribute(int i) const;  // all null when out of range
    XMLCSTR getAttributeName(int i) const;
    XMLCSTR getAttributeValue(int i) const;
    // Value of the j-th attribute called name (case-insensitive), or null.
    XMLCSTR getAttribute(XMLCSTR name, int j = 0) const;
    // Value of the first attribute called name at or after position *index;
    // *index moves past it.
    XMLCSTR getAttribute(XMLCSTR name, int* index) const;
    char isAttributeSet(XMLCSTR name) const;

    // The i-th entry of the order array; type eNodeNULL when out of range.
    XMLNodeContents enumContents(XMLElementPosition i) const;
    // Position in the order array of an item, or -1.
    int positionOfText(int i = 0) const;
    int positionOfClear(int i = 0) const;
    int positionOfChildNode(int i = 0) const;
    int positionOfChildNode(const XMLNode& child) const;

    // ---- building ----------------------------------------------------------
    // Every string is copied. Building on the empty node does nothing and
    // answers with the empty node or null.
    static XMLNode createXMLTopNode(XMLCSTR name = nullptr, char isDeclaration = 0);
    XMLNode addChild(XMLCSTR name, char isDeclaration = 0, XMLElementPosition pos = -1);
    // Moves child under this node (taking it from its old parent). Refused
    // (empty node) when child is empty, this node, or one of its ancestors.
    XMLNode addChild(XMLNode child, XMLElementPosition pos = -1);
    XMLAttribute addAttribute(XMLCSTR name, XMLCSTR value);
    XMLCSTR addText(XMLCSTR text, XMLElementPosition pos = -1);
    // Default markers are those of CDATA.
    XMLClear addClear(XMLCSTR value, XMLCSTR openTag = nullptr, XMLCSTR closeTag = nullptr,
                      XMLElementPosition pos = -1);

    XMLCSTR updateName(XMLCSTR name);
    // Replaces value (and name, when newName is non-null) of the i-th
    // attribute; the all-null attribute when there is none.
    XMLAttribute updateAttribute(XMLCSTR newValue, XMLCSTR newName, int i);
    // The same for the first attribute called oldName; added when missing.
    XMLAttribute updateAttribute(XMLCSTR newValue, XMLCSTR newName, XMLCSTR oldName);
    XMLCSTR updateText(XMLCSTR newText, int i = 0);  // added when missing
    XMLCSTR updateText(XMLCSTR newText, XMLCSTR oldText);
    XMLClear updateClear(XMLCSTR newValue, int i = 0);  // added when missing

    // Takes the node out of its parent and empties it; handles stay valid.
    void deleteNodeContent();
    void deleteAttribute(int i = 0);
    void deleteAttribute(XMLCSTR name);
    void deleteText(int i = 0);
    void deleteText(XMLCSTR text);  // the text stored at that address
    void deleteClear(int i = 0);
    void deleteClear(XMLCSTR value);  // the clear whose value is stored at that address

    // ---- text ----------------------------------------------------------------
    // Decodes the five named entities (any case) and numeric references in
    // the first len bytes of s (len < 0: up to the NUL). Returns a new
    // NUL-terminated string to release with freeXMLString, or null with
    // *error set to eXMLErrorUnknownCharacterEntity (and *errorOffset to the
    // offset of the '&') when a reference is unknown or malformed, or to
    // eXMLErrorOutOfMemory.
    // Well-formed numeric references whose value the current encoding cannot
    // hold decode to a stand-in: in UTF-8, 0, surrogates (D800 to DFFF) and
    // values above 10FFFF give U+FFFD (EF BF BD); in single-byte text, 0 and
    // values above 255 give '?'; in the multi-byte encodings, 0 and values
    // above 127 give '?'.
    static XMLSTR fromXMLString(XMLCSTR s, int len = -1, XMLError* error = nullptr, int* errorOffset = nullptr);
    static void freeXMLString(XMLSTR s);

    // ---- process-wide options ------------------------------------------------
    // Installs the character encoding (codes 1 to 6) and the three flags.
    // The flags are always stored; returns 0, or 1 for code 0 or an unknown
    // code, in which case the previous encoding stays in force.
    //   guessWideCharChars: text that looks like UTF-16 is recognised (the
    //     encoding guess gives 0, parseFile skips an FF FE mark)
    //   dropWhiteSpace, removeCommentsInMiddleOfText: see the top of this file
    static char setGlobalOptions(XMLCharEncoding encoding = char_encoding_UTF8, char guessWideCharChars = 1,
                                 char dropWhiteSpace = 1, char removeCommentsInMiddleOfText = 1);
    static XMLCharEncoding getCharEncoding();
    // Guesses the encoding of the first bufLen bytes of buffer (see the
    // tuning-file loader). useDeclaration: honour encoding="..." in the first
    // 200 bytes.
    static XMLCharEncoding guessCharEncoding(const void* buffer, int bufLen, char useDeclaration = 1);

  private:
    explicit XMLNode(XMLNodeData* data);  // adopts one reference
    XMLNodeData* d;
    friend struct XMLNodeData;
    friend struct XMLParserAccess;
};

struct XMLNodeContents {
    XMLElementType etype;
    XMLNode child;
    XMLAttribute attrib;
    XMLCSTR text;
    XMLClear clear;
};

// Escapes the five characters &, <, >, " and ' (multi-byte characters pass
// through whole, by the current encoding's length table).
class TOCRA_XML_API ToXMLStringTool {
  public:
    ToXMLStringTool() : buf(nullptr), bufLen(0) {}
    ~ToXMLStringTool();
    ToXMLStringTool(const ToXMLStringTool&) = delete;
    ToXMLStringTool& operator=(const ToXMLStringTool&) = delete;

    // The escaped source in a buffer owned by this tool, valid until the
    // next call or freeBuffer. Null only when memory runs out.
    XMLSTR toXML(XMLCSTR source);
    void freeBuffer();

    // Bytes of the escaped form of source, NUL excluded (0 for null).
    static int lengthXMLString(XMLCSTR source);
    // Writes the escaped form of source and a NUL into dest, which the caller
    // sizes to at least lengthXMLString(source) + 1 bytes: this function
    // cannot check that. Returns dest; null dest writes nothing, null source
    // writes an empty string.
    static XMLSTR toXMLUnSafe(XMLSTR dest, XMLCSTR source);

  private:
    XMLSTR buf;
    int bufLen;
};

// Text to value, with the default for null text.
TOCRA_XML_API char xmltob(XMLCSTR text, char def = 0);            // 1 when the text starts with 1, t, T, y or Y
TOCRA_XML_API int xmltoi(XMLCSTR text, int def = 0);              // decimal, clamped to the int range
TOCRA_XML_API long long xmltol(XMLCSTR text, long long def = 0);  // decimal, clamped
TOCRA_XML_API double xmltof(XMLCSTR text, double def = 0.0);
TOCRA_XML_API XMLCSTR xmltoa(XMLCSTR text, XMLCSTR def = "");
TOCRA_XML_API XMLCHAR xmltoc(XMLCSTR text, XMLCHAR def = '\0');  // first character; def for null or ""

#endif
