#include <cstring>
#include <string>

#include "config/temp_dir.h"
#include "config/xml_parser.h"
#include "support/test_support.h"

namespace {

// Every test starts from the library's default options.
class Xml : public ::testing::Test {
  protected:
    void SetUp() override { XMLNode::setGlobalOptions(char_encoding_UTF8, 1, 1, 1); }
    void TearDown() override { XMLNode::setGlobalOptions(char_encoding_UTF8, 1, 1, 1); }
};

XMLResults Parse(const char* text, XMLNode* out = nullptr, const char* tag = nullptr) {
    XMLResults r{eXMLErrorNone, -1, -1};
    XMLNode n = XMLNode::parseString(text, tag, &r);
    if (out) *out = n;
    return r;
}

void ExpectError(const char* text, XMLError e, int line, int column) {
    XMLNode n;
    const XMLResults r = Parse(text, &n);
    EXPECT_EQ(r.error, e) << text;
    EXPECT_EQ(r.nLine, line) << text;
    EXPECT_EQ(r.nColumn, column) << text;
    if (e >= 3) {
        EXPECT_TRUE(n.isEmpty()) << text;
    }
}

// ---- tree -------------------------------------------------------------------

TEST_F(Xml, ElementsAttributesTextsAndClearsKeepTheirOrder) {
    XMLNode a;
    const XMLResults r =
        Parse("<a x=\"1\" y='two' z=3 flag>t1<b/><![CDATA[<raw>&amp;]]>t2<!--c--><c k=\"v\">in</c></a>", &a);
    ASSERT_EQ(r.error, eXMLErrorNone);
    EXPECT_EQ(r.nLine, 0);
    EXPECT_STREQ(a.getName(), "a");
    ASSERT_EQ(a.nAttribute(), 4);
    EXPECT_STREQ(a.getAttribute("X"), "1");
    EXPECT_STREQ(a.getAttribute("y"), "two");
    EXPECT_STREQ(a.getAttribute("z"), "3");
    EXPECT_TRUE(a.isAttributeSet("flag"));
    EXPECT_EQ(a.getAttribute("flag"), nullptr);
    EXPECT_FALSE(a.isAttributeSet("w"));
    ASSERT_EQ(a.nText(), 2);
    EXPECT_STREQ(a.getText(0), "t1");
    EXPECT_STREQ(a.getText(1), "t2");
    EXPECT_EQ(a.getText(2), nullptr);
    ASSERT_EQ(a.nClear(), 2);
    EXPECT_STREQ(a.getClear(0).lpszValue, "<raw>&amp;");  // CDATA is not decoded
    EXPECT_STREQ(a.getClear(0).lpszOpenTag, "<![CDATA[");
    EXPECT_STREQ(a.getClear(0).lpszCloseTag, "]]>");
    EXPECT_STREQ(a.getClear(1).lpszValue, "c");
    EXPECT_STREQ(a.getClear(1).lpszOpenTag, "<!--");
    EXPECT_EQ(a.nChildNode(), 2);
    EXPECT_EQ(a.nElement(), 10);
    const XMLElementType want[] = {eNodeAttribute, eNodeAttribute, eNodeAttribute, eNodeAttribute, eNodeText,
                                   eNodeChild,     eNodeClear,     eNodeText,      eNodeClear,     eNodeChild};
    for (int i = 0; i < 10; ++i) EXPECT_EQ(a.enumContents(i).etype, want[i]) << i;
    EXPECT_EQ(a.enumContents(10).etype, eNodeNULL);
    EXPECT_STREQ(a.enumContents(9).child.getName(), "c");
    EXPECT_EQ(a.positionOfText(1), 7);
    EXPECT_EQ(a.positionOfClear(0), 6);
    EXPECT_EQ(a.positionOfChildNode(a.getChildNode("c")), 9);
    EXPECT_STREQ(a.getChildNode("c").getParentNode().getName(), "a");
}

TEST_F(Xml, DoctypeWithAndWithoutInternalSubset) {
    XMLNode top;
    ASSERT_EQ(Parse("<!DOCTYPE a SYSTEM \"a.dtd\"><a/>", &top).error, eXMLErrorNone);
    EXPECT_STREQ(top.getClear().lpszValue, " a SYSTEM \"a.dtd\"");
    EXPECT_STREQ(top.getClear().lpszCloseTag, ">");
    ASSERT_EQ(Parse("<!DOCTYPE a [ <!ENTITY e \"x\"> ]><a/>", &top).error, eXMLErrorNone);
    EXPECT_STREQ(top.getClear().lpszValue, " a [ <!ENTITY e \"x\"> ");
    EXPECT_STREQ(top.getClear().lpszCloseTag, "]>");
    EXPECT_STREQ(top.getChildNode(0).getName(), "a");
}

TEST_F(Xml, TopLevelWithOneElementIsThatElement) {
    XMLNode n;
    Parse("  <Config><A>1</A></Config>\n", &n);
    EXPECT_STREQ(n.getName(), "Config");
    EXPECT_TRUE(n.getParentNode().isEmpty());
    // A declaration, a comment or text beside it keeps the unnamed top node.
    for (const char* t : {"<?xml version=\"1.0\"?><Config/>", "<!-- c --><Config/>", "x<Config/>"}) {
        Parse(t, &n);
        EXPECT_EQ(n.getName(), nullptr) << t;
        EXPECT_STREQ(n.getChildNode("config").getName(), "Config") << t;
    }
    Parse("<?xml version=\"1.0\" encoding='utf-8'?><Config/>", &n);
    ASSERT_EQ(n.nChildNode(), 2);
    EXPECT_TRUE(n.getChildNode(0).isDeclaration());
    EXPECT_STREQ(n.getChildNode(0).getName(), "?xml");
    EXPECT_STREQ(n.getChildNode(0).getAttribute("encoding"), "utf-8");
    EXPECT_FALSE(n.getChildNode(1).isDeclaration());
}

TEST_F(Xml, WhiteSpaceAndCommentsInText) {
    XMLNode n;
    Parse("<a>\n  <b>  two words \t</b>\n  <c> x <!-- note --> y </c><d>p<!--q--></d></a>", &n);
    EXPECT_EQ(n.nText(), 0);
    EXPECT_STREQ(n.getChildNode("b").getText(), "two words");
    EXPECT_STREQ(n.getChildNode("c").getText(), "x  y");  // the comment between them is dropped
    EXPECT_EQ(n.getChildNode("c").nClear(), 0);
    EXPECT_EQ(n.getChildNode("d").nClear(), 1);  // after the text: kept
    XMLNode::setGlobalOptions(char_encoding_UTF8, 1, 0, 0);
    Parse("<a> <b> x </b><c>x<!--n-->y</c></a>", &n);
    EXPECT_STREQ(n.getText(), " ");
    EXPECT_STREQ(n.getChildNode("b").getText(), " x ");
    EXPECT_EQ(n.getChildNode("c").nText(), 2);
    EXPECT_EQ(n.getChildNode("c").nClear(), 1);
}

TEST_F(Xml, LookupsByNameIndexPositionAndAttribute) {
    XMLNode n;
    Parse("<r><k id='1'/><x/><K id='2'/><k id='3' on/><x/></r>", &n);
    EXPECT_EQ(n.nChildNode("k"), 3);
    EXPECT_STREQ(n.getChildNode("k", 1).getAttribute("id"), "2");
    EXPECT_STREQ(n.getChildNode("k", -1).getAttribute("id"), "3");
    EXPECT_TRUE(n.getChildNode("k", 3).isEmpty());
    EXPECT_STREQ(n.getChildNode(1).getName(), "x");
    EXPECT_TRUE(n.getChildNode(5).isEmpty());
    EXPECT_TRUE(n.getChildNode(-1).isEmpty());
    int i = 0;
    EXPECT_STREQ(n.getChildNode("k", &i).getAttribute("id"), "1");
    EXPECT_EQ(i, 1);
    EXPECT_STREQ(n.getChildNode("k", &i).getAttribute("id"), "2");
    EXPECT_EQ(i, 3);
    EXPECT_STREQ(n.getChildNode("k", &i).getAttribute("id"), "3");
    EXPECT_TRUE(n.getChildNode("k", &i).isEmpty());
    EXPECT_EQ(i, 4);
    EXPECT_STREQ(n.getChildNodeWithAttribute("k", "ID", "2").getAttribute("id"), "2");
    EXPECT_STREQ(n.getChildNodeWithAttribute("k", "on").getAttribute("id"), "3");
    EXPECT_TRUE(n.getChildNodeWithAttribute("x", "id").isEmpty());
    // Chained lookups through the empty node stay empty.
    EXPECT_EQ(n.getChildNode("nope").getChildNode("k").getText(), nullptr);
    EXPECT_EQ(n.getChildNode(nullptr).getName(), nullptr);
}

// ---- errors --------------------------------------------------------------------

TEST_F(Xml, FatalErrorsWithLineAndColumn) {
    ExpectError("<a>\n  <![CDATA[ open", eXMLErrorUnmatchedEndClearTag, 2, 3);
    ExpectError("<a><!-- open -- >\n</a>", eXMLErrorUnmatchedEndClearTag, 1, 4);
    ExpectError("<!DOCTYPE a [ <!ENTITY e 'x'> >", eXMLErrorUnmatchedEndClearTag, 1, 1);
    ExpectError("<!DOCTYPE a", eXMLErrorUnmatchedEndClearTag, 1, 1);
    ExpectError("<a>\n\n x &nbsp;</a>", eXMLErrorUnknownCharacterEntity, 3, 4);
    ExpectError("<a v='&#65'/>", eXMLErrorUnknownCharacterEntity, 1, 7);
    ExpectError("<a>&#;</a>", eXMLErrorUnknownCharacterEntity, 1, 4);
    ExpectError("<a>&#x;</a>", eXMLErrorUnknownCharacterEntity, 1, 4);
    ExpectError("<a>x&#12a;</a>", eXMLErrorUnknownCharacterEntity, 1, 5);
    ExpectError("<a>&#x1G;</a>", eXMLErrorUnknownCharacterEntity, 1, 4);
    ExpectError("<a>&# 1;</a>", eXMLErrorUnknownCharacterEntity, 1, 4);
    ExpectError("<a>&</a>", eXMLErrorUnknownCharacterEntity, 1, 4);
    ExpectError("<a></b>", eXMLErrorUnmatchedEndTag, 1, 4);
    ExpectError("</a>", eXMLErrorUnmatchedEndTag, 1, 1);
    ExpectError("<a>< b/></a>", eXMLErrorMissingTagName, 1, 4);
    ExpectError("<a></></a>", eXMLErrorMissingTagName, 1, 4);
    ExpectError("<a =1/>", eXMLErrorUnexpectedToken, 1, 4);
    ExpectError("<a b=/>", eXMLErrorUnexpectedToken, 1, 6);
    ExpectError("<a/ >", eXMLErrorUnexpectedToken, 1, 3);
    ExpectError("<a b='1", eXMLErrorMissingEndOfTag, 1, 1);
    ExpectError("<r><a b", eXMLErrorMissingEndOfTag, 1, 4);
    ExpectError("<", eXMLErrorMissingTagName, 1, 1);
    // Multi-byte characters count once in the column.
    ExpectError("<a>\xC3\xA9\xE2\x82\xAC&x;</a>", eXMLErrorUnknownCharacterEntity, 1, 6);
}

TEST_F(Xml, ToleratedErrorsKeepTheTree) {
    XMLNode n;
    XMLResults r = Parse("<a><b>text</a>", &n);
    EXPECT_EQ(r.error, eXMLErrorMissingEndTag);
    EXPECT_EQ(r.nColumn, 11);  // at the end tag that closed b
    EXPECT_STREQ(n.getChildNode("b").getText(), "text");
    r = Parse("<a>\n<b>", &n);
    EXPECT_EQ(r.error, eXMLErrorMissingEndTag);
    EXPECT_EQ(r.nLine, 2);
    EXPECT_EQ(r.nColumn, 4);
    EXPECT_STREQ(n.getChildNode("b").getName(), "b");
    r = Parse("just text", &n);
    EXPECT_EQ(r.error, eXMLErrorNoElements);
    EXPECT_FALSE(n.isEmpty());
    EXPECT_STREQ(n.getText(), "just text");
    EXPECT_EQ(Parse("", &n).error, eXMLErrorNoElements);
}

TEST_F(Xml, NullTextAndMissingTagAndMissingFile) {
    XMLResults r{eXMLErrorNone, -1, -1};
    EXPECT_TRUE(XMLNode::parseString(nullptr, nullptr, &r).isEmpty());
    EXPECT_EQ(r.error, eXMLErrorNoXMLText);
    EXPECT_EQ(r.nLine, 0);
    EXPECT_EQ(r.nColumn, 0);
    EXPECT_TRUE(XMLNode::parseString("<a><b/></a>", "c", &r).isEmpty());
    EXPECT_EQ(r.error, eXMLErrorFirstTagNotFound);
    EXPECT_EQ(r.nLine, 0);
    EXPECT_STREQ(XMLNode::parseString("<?xml version='1.0'?><a><b/></a>", "A", &r).getName(), "a");
    EXPECT_STREQ(XMLNode::parseString("<a><b/></a>", "B", &r).getName(), "b");
    EXPECT_TRUE(XMLNode::parseFile("/nonexistent/dir/x.xml", nullptr, &r).isEmpty());
    EXPECT_EQ(r.error, eXMLErrorFileNotFound);
    EXPECT_EQ(r.nLine, 0);
    EXPECT_TRUE(XMLNode::parseFile(nullptr, nullptr, &r).isEmpty());
    EXPECT_EQ(r.error, eXMLErrorFileNotFound);
    EXPECT_TRUE(XMLNode::parseFile("/tmp", nullptr, &r).isEmpty());  // a directory is not a file
    EXPECT_EQ(r.error, eXMLErrorFileNotFound);
}

// ---- entities and escaping --------------------------------------------------------

TEST_F(Xml, EntitiesDecodeInAnyCase) {
    XMLNode n;
    ASSERT_EQ(Parse("<a v='&QUOT;&Apos;'>&AMP;&lt;&Gt;&#65;&#x42;&#X63;&#233;&#x20AC;</a>", &n).error, eXMLErrorNone);
    EXPECT_STREQ(n.getText(), "&<>ABc\xC3\xA9\xE2\x82\xAC");
    EXPECT_STREQ(n.getAttribute("v"), "\"'");
    XMLError e = eXMLErrorNone;
    int at = -1;
    EXPECT_EQ(XMLNode::fromXMLString("ab&amp", -1, &e, &at), nullptr);
    EXPECT_EQ(e, eXMLErrorUnknownCharacterEntity);
    EXPECT_EQ(at, 2);
    char* s = XMLNode::fromXMLString("x&amp;y&zz", 7, &e);  // only the first 7 bytes
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "x&y");
    XMLNode::freeXMLString(s);
    // Outside UTF-8 a reference must fit one byte.
    XMLNode::setGlobalOptions(char_encoding_legacy);
    s = XMLNode::fromXMLString("&#233;", -1, &e);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(static_cast<unsigned char>(s[0]), 0xE9);
    XMLNode::freeXMLString(s);
}

// fromXMLString with the encoding set first; the result as a std::string.
std::string Decoded(XMLCharEncoding enc, const char* text) {
    XMLNode::setGlobalOptions(enc);
    XMLError e = eXMLErrorNone;
    char* s = XMLNode::fromXMLString(text, -1, &e);
    EXPECT_EQ(e, eXMLErrorNone) << text;
    std::string out = s ? s : "<null>";
    XMLNode::freeXMLString(s);
    return out;
}

TEST_F(Xml, WellFormedNumericReferencesAlwaysDecode) {
    // UTF-8: U+FFFD (EF BF BD) for 0, surrogates and values past 10FFFF,
    // however many digits; the edges of the ranges encode normally.
    const std::string fffd = "\xEF\xBF\xBD";
    EXPECT_EQ(Decoded(char_encoding_UTF8, "a&#0;b"), "a" + fffd + "b");
    EXPECT_EQ(Decoded(char_encoding_UTF8, "&#x0000;&#00;"), fffd + fffd);
    EXPECT_EQ(Decoded(char_encoding_UTF8, "&#xD800;&#xDFFF;&#55296;"), fffd + fffd + fffd);
    EXPECT_EQ(Decoded(char_encoding_UTF8, "&#xD7FF;&#xE000;"), "\xED\x9F\xBF\xEE\x80\x80");
    EXPECT_EQ(Decoded(char_encoding_UTF8, "&#x10FFFF;&#x110000;"), "\xF4\x8F\xBF\xBF" + fffd);
    EXPECT_EQ(Decoded(char_encoding_UTF8, "&#1114112;&#99999999999999999999999;&#xFFFFFFFFFFFFFFFFFFFF;"),
              fffd + fffd + fffd);
    EXPECT_EQ(Decoded(char_encoding_UTF8, "&#x7F;&#128;&#x7FF;&#x800;"), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80");
    // Single-byte text: 1 to 255 as that byte, anything else '?'.
    EXPECT_EQ(Decoded(char_encoding_legacy, "&#1;&#255;&#256;&#0;&#x20AC;&#x110000;"), "\x01\xFF????");
    // The multi-byte encodings: ASCII as it is, anything else '?'.
    for (XMLCharEncoding enc : {char_encoding_ShiftJIS, char_encoding_GB2312, char_encoding_Big5, char_encoding_GBK})
        EXPECT_EQ(Decoded(enc, "&#65;&#x7F;&#128;&#0;&#233;&#xD800;"), "A\x7F????") << enc;
    // In a document: text and attribute alike, the tree kept.
    XMLNode::setGlobalOptions(char_encoding_UTF8);
    XMLNode n;
    ASSERT_EQ(Parse("<a v='&#0;x'><!-- &#0; -->&#x110000;<b>&#xDC00;</b></a>", &n).error, eXMLErrorNone);
    EXPECT_EQ(std::string(n.getAttribute("v")), fffd + "x");
    EXPECT_EQ(std::string(n.getText()), fffd);
    EXPECT_EQ(std::string(n.getChildNode("b").getText()), fffd);
    EXPECT_STREQ(n.getClear().lpszValue, " &#0; ");
}

TEST_F(Xml, EscapingIsTheInverseOfDecoding) {
    const char* src = "a&b<c>d\"e'f \xC3\xA9";
    const int len = ToXMLStringTool::lengthXMLString(src);
    EXPECT_EQ(len, static_cast<int>(strlen("a&amp;b&lt;c&gt;d&quot;e&apos;f \xC3\xA9")));
    std::string buf(static_cast<size_t>(len) + 1, '\x7f');
    ToXMLStringTool::toXMLUnSafe(&buf[0], src);
    EXPECT_STREQ(buf.c_str(), "a&amp;b&lt;c&gt;d&quot;e&apos;f \xC3\xA9");
    char* back = XMLNode::fromXMLString(buf.c_str());
    EXPECT_STREQ(back, src);
    XMLNode::freeXMLString(back);
    ToXMLStringTool tool;
    EXPECT_STREQ(tool.toXML("<x>"), "&lt;x&gt;");
    EXPECT_STREQ(tool.toXML(nullptr), "");
    tool.freeBuffer();
    EXPECT_EQ(ToXMLStringTool::lengthXMLString(nullptr), 0);
    EXPECT_EQ(ToXMLStringTool::toXMLUnSafe(nullptr, "a"), nullptr);
    // A Shift-JIS double-byte character whose second byte is '>' passes whole.
    XMLNode::setGlobalOptions(char_encoding_ShiftJIS);
    EXPECT_EQ(ToXMLStringTool::lengthXMLString("\x81>>"), 2 + 4);
    char out[16];
    EXPECT_STREQ(ToXMLStringTool::toXMLUnSafe(out, "\x81>>"), "\x81>&gt;");
    EXPECT_STREQ(ToXMLStringTool::toXMLUnSafe(out, "\x81"), "\x81");  // cut at the NUL
}

TEST_F(Xml, Converters) {
    EXPECT_EQ(xmltob(nullptr, 7), 7);
    EXPECT_EQ(xmltob("yes"), 1);
    EXPECT_EQ(xmltob("True"), 1);
    EXPECT_EQ(xmltob("0", 1), 0);
    EXPECT_EQ(xmltoi(nullptr, -4), -4);
    EXPECT_EQ(xmltoi(" -12x"), -12);
    EXPECT_EQ(xmltoi("99999999999"), 2147483647);
    EXPECT_EQ(xmltol("-99999999999"), -99999999999LL);
    EXPECT_DOUBLE_EQ(xmltof("2.5e1"), 25.0);
    EXPECT_DOUBLE_EQ(xmltof(nullptr, 1.5), 1.5);
    EXPECT_STREQ(xmltoa(nullptr, "d"), "d");
    EXPECT_STREQ(xmltoa("t", "d"), "t");
    EXPECT_EQ(xmltoc("q"), 'q');
    EXPECT_EQ(xmltoc("", 'd'), 'd');
}

// ---- encodings ---------------------------------------------------------------------

XMLCharEncoding Guess(const std::string& s, char useDeclaration = 1) {
    return XMLNode::guessCharEncoding(s.data(), static_cast<int>(s.size()), useDeclaration);
}

TEST_F(Xml, EncodingGuess) {
    const std::string body = "<Config><Name>caf\xC3\xA9</Name></Config>";
    const std::string latin = "<Config><Name>caf\xE9 au lait</Name></Config>";
    EXPECT_EQ(Guess("<a>short</a>"), char_encoding_error);  // under 25 bytes
    EXPECT_EQ(Guess(body), char_encoding_UTF8);
    EXPECT_EQ(Guess("\xEF\xBB\xBF" + latin), char_encoding_UTF8);  // the mark decides
    EXPECT_EQ(Guess(latin), char_encoding_legacy);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding = \" UTF-8\"?>" + body), char_encoding_UTF8);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='utf8'?>" + latin), char_encoding_error);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='utf-8'?>" + latin, 0), char_encoding_legacy);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='ISO-8859-1'?>" + body), char_encoding_legacy);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='Shift_JIS'?>" + body), char_encoding_legacy);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='shift-jis'?>" + latin), char_encoding_ShiftJIS);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='SJIS'?>" + latin), char_encoding_ShiftJIS);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='gb2312'?>" + latin), char_encoding_GB2312);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='big5'?>" + latin), char_encoding_Big5);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding='gbk'?>" + latin), char_encoding_GBK);
    EXPECT_EQ(Guess("<?xml version='1.0' encoding=utf-8?>" + latin), char_encoding_legacy);  // no quote
    // A multi-byte sequence cut by the end of the bytes is not held against them.
    EXPECT_EQ(Guess(body + "\xE2\x82"), char_encoding_UTF8);
    const std::string wide("<\0?\0x\0m\0l\0 \0v\0e\0r\0s\0i\0o\0n\0=\0", 28);
    EXPECT_EQ(Guess(wide), char_encoding_error);
    XMLNode::setGlobalOptions(char_encoding_UTF8, 0);
    EXPECT_EQ(Guess(wide), char_encoding_UTF8);
}

TEST_F(Xml, GlobalOptionsKeepThePreviousEncodingOnABadCode) {
    EXPECT_EQ(XMLNode::setGlobalOptions(char_encoding_GBK), 0);
    EXPECT_EQ(XMLNode::getCharEncoding(), char_encoding_GBK);
    EXPECT_EQ(XMLNode::setGlobalOptions(char_encoding_error), 1);
    EXPECT_EQ(XMLNode::setGlobalOptions(static_cast<XMLCharEncoding>(9)), 1);
    EXPECT_EQ(XMLNode::getCharEncoding(), char_encoding_GBK);
    // GBK's table: a double-byte character counts as one column.
    ExpectError("<a>\x81\x40\x81\x40&q;</a>", eXMLErrorUnknownCharacterEntity, 1, 6);
    XMLNode::setGlobalOptions(char_encoding_legacy);
    ExpectError("<a>\x81\x40\x81\x40&q;</a>", eXMLErrorUnknownCharacterEntity, 1, 8);
}

// ---- files ----------------------------------------------------------------------------

std::string Padded(const std::string& head, size_t size, const std::string& tail = "</Config>") {
    std::string s = head + "<!--";
    while (s.size() + 3 + tail.size() < size) s += 'x';
    return s + "-->" + tail;
}

TEST_F(Xml, OpenFileHelperNeeds200BytesAndInstallsTheEncoding) {
    tocra_test::TempDir dir;
    const std::string xml = "<?xml version=\"1.0\" encoding=\"GBK\"?><Config><A>1</A>";
    const std::string p199 = dir.Write("a.xml", Padded(xml, 199));
    const std::string p200 = dir.Write("b.xml", Padded(xml, 200));
    EXPECT_TRUE(XMLNode::openFileHelper(p199.c_str()).isEmpty());
    EXPECT_EQ(XMLNode::getCharEncoding(), char_encoding_UTF8);
    XMLNode n = XMLNode::openFileHelper(p200.c_str());
    ASSERT_FALSE(n.isEmpty());
    EXPECT_STREQ(n.getChildNode("Config").getChildNode("A").getText(), "1");
    EXPECT_EQ(XMLNode::getCharEncoding(), char_encoding_GBK);
    // Declared UTF-8 but not: the guess is 0 and GBK stays in force.
    const std::string bad = "<?xml version=\"1.0\" encoding=\"utf-8\"?><Config><A>\xE9t\xE9</A>";
    EXPECT_FALSE(XMLNode::openFileHelper(dir.Write("c.xml", Padded(bad, 220)).c_str()).isEmpty());
    EXPECT_EQ(XMLNode::getCharEncoding(), char_encoding_GBK);
    // The same text of 150 bytes parses as a string.
    EXPECT_FALSE(XMLNode::parseString(Padded(xml, 150).c_str()).isEmpty());
    EXPECT_TRUE(XMLNode::openFileHelper(dir.file("missing.xml").c_str()).isEmpty());
    EXPECT_TRUE(XMLNode::openFileHelper(nullptr).isEmpty());
}

TEST_F(Xml, ParseFileSkipsByteOrderMarks) {
    tocra_test::TempDir dir;
    XMLResults r;
    XMLNode n = XMLNode::parseFile(dir.Write("a.xml", "\xEF\xBB\xBF<a>1</a>").c_str(), nullptr, &r);
    EXPECT_EQ(r.error, eXMLErrorNone);
    EXPECT_STREQ(n.getName(), "a");
    n = XMLNode::parseFile(dir.Write("b.xml", "\xFF\xFE<b/>").c_str(), nullptr, &r);
    EXPECT_STREQ(n.getName(), "b");
}

TEST_F(Xml, FileTextEndsAtItsFirstNul) {
    // The text is the file's bytes up to the first NUL: what follows one is
    // never read, as if the file ended there.
    tocra_test::TempDir dir;
    XMLResults r;
    XMLNode n = XMLNode::parseFile(dir.Write("a.xml", std::string("<a>x\0y</a>", 11)).c_str(), nullptr, &r);
    EXPECT_EQ(r.error, eXMLErrorMissingEndTag);  // <a> closed at the end of the text
    EXPECT_EQ(r.nLine, 1);
    EXPECT_EQ(r.nColumn, 5);
    EXPECT_STREQ(n.getName(), "a");
    EXPECT_STREQ(n.getText(), "x");
    EXPECT_EQ(n.nText(), 1);
    // A NUL inside a tag leaves the tag open: the text ends inside it.
    n = XMLNode::parseFile(dir.Write("b.xml", std::string("<a><b c='1\0'/></a>", 18)).c_str(), nullptr, &r);
    EXPECT_TRUE(n.isEmpty());
    EXPECT_EQ(r.error, eXMLErrorMissingEndOfTag);
    EXPECT_EQ(r.nColumn, 4);
    // A file that ends on its last byte, with no NUL of its own, reads whole.
    n = XMLNode::parseFile(dir.Write("c.xml", "<a>7</a>").c_str(), nullptr, &r);
    EXPECT_EQ(r.error, eXMLErrorNone);
    EXPECT_STREQ(n.getText(), "7");
}

// ---- building and lifetime ----------------------------------------------------------------

TEST_F(Xml, BuildingAndDeletingKeepTheOrderArray) {
    XMLNode top = XMLNode::createXMLTopNode("r");
    XMLNode b = top.addChild("b");
    top.addText("t0");
    top.addChild("a", 0, 0);  // first
    top.addText("t-first", 0);
    top.addClear("c0");
    top.addAttribute("k", "v");
    ASSERT_EQ(top.nElement(), 6);
    EXPECT_STREQ(top.getChildNode(0).getName(), "a");
    EXPECT_STREQ(top.getText(0), "t-first");
    EXPECT_EQ(top.positionOfChildNode(b), 2);
    EXPECT_EQ(top.positionOfText(1), 3);
    EXPECT_STREQ(top.getClear().lpszOpenTag, "<![CDATA[");
    top.deleteText(0);
    EXPECT_STREQ(top.enumContents(0).child.getName(), "a");
    EXPECT_EQ(top.positionOfText(0), 2);
    EXPECT_STREQ(top.updateText("t1", top.getText(0)), "t1");
    EXPECT_STREQ(top.updateAttribute("w", nullptr, "K").lpszValue, "w");
    EXPECT_STREQ(top.updateName("root"), "root");
    top.deleteAttribute("k");
    top.deleteClear(0);
    EXPECT_EQ(top.nElement(), 3);
    // Moving a child between parents, and refusing cycles.
    XMLNode other = XMLNode::createXMLTopNode("o");
    EXPECT_FALSE(other.addChild(b).isEmpty());
    EXPECT_EQ(top.nChildNode(), 1);
    EXPECT_STREQ(b.getParentNode().getName(), "o");
    EXPECT_TRUE(b.addChild(other).isEmpty());
    EXPECT_TRUE(b.addChild(b).isEmpty());
    // The empty node builds nothing.
    XMLNode e;
    EXPECT_TRUE(e.addChild("x").isEmpty());
    EXPECT_EQ(e.addText("x"), nullptr);
    e.deleteNodeContent();
}

TEST_F(Xml, HandlesShareDataAndChildrenOutliveTheirParent) {
    XMLNode child;
    {
        XMLNode root = XMLNode::parseString("<a><b>kept</b></a>");
        child = root.getChildNode("b");
        XMLNode copy = root;
        XMLNode& alias = copy;
        copy = alias;  // self-assignment keeps the node
        EXPECT_STREQ(copy.getName(), "a");
    }
    EXPECT_STREQ(child.getText(), "kept");
    EXPECT_TRUE(child.getParentNode().isEmpty());
    XMLNode root = XMLNode::parseString("<a><b><c/></b></a>");
    XMLNode b = root.getChildNode("b");
    b.deleteNodeContent();
    EXPECT_EQ(root.nChildNode(), 0);
    EXPECT_EQ(b.nChildNode(), 0);
    EXPECT_STREQ(b.getName(), "b");
    EXPECT_TRUE(XMLNode::emptyNode().isEmpty());
    EXPECT_TRUE(XMLNode::emptyXMLNode.isEmpty());
}

TEST_F(Xml, DeepNestingNeedsNoDeepStack) {
    const int depth = 200000;
    std::string s;
    for (int i = 0; i < depth; ++i) s += "<e>";
    XMLResults r;
    XMLNode n = XMLNode::parseString(s.c_str(), nullptr, &r);
    EXPECT_EQ(r.error, eXMLErrorMissingEndTag);
    int levels = 0;
    for (XMLNode c = n; !c.isEmpty(); c = c.getChildNode(0)) ++levels;
    EXPECT_EQ(levels, depth);
}

}  // namespace
