// parseString on arbitrary bytes, then the tree functions on its result.
// The first byte picks the encoding and options; the rest is the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "config/xml_parser.h"

namespace {

void Check(bool ok) {
    if (!ok) abort();
}

// Escapes a text and decodes it again. With one byte per character the two
// are exact inverses.
void RoundTrip(const char* text, bool exact) {
    if (text == nullptr) return;
    const int len = ToXMLStringTool::lengthXMLString(text);
    std::vector<char> buf(static_cast<size_t>(len) + 1, 'Z');
    ToXMLStringTool::toXMLUnSafe(buf.data(), text);
    Check(strlen(buf.data()) == static_cast<size_t>(len));
    XMLError e;
    char* back = XMLNode::fromXMLString(buf.data(), -1, &e);
    if (exact) Check(back != nullptr && strcmp(back, text) == 0);
    XMLNode::freeXMLString(back);
}

void Visit(const XMLNode& n, bool exact) {
    const char* name = n.getName();
    if (name) {
        Check(!n.getParentNode().isEmpty() || n.getParentNode().getName() == nullptr);
        int i = 0;
        XMLNode parent = n.getParentNode();
        if (!parent.isEmpty()) {
            Check(!parent.getChildNode(name, &i).isEmpty());
            Check(!parent.getChildNode(name, -1).isEmpty());
            Check(parent.nChildNode(name) >= 1);
        }
    }
    for (int i = 0; i < n.nAttribute(); ++i) {
        const XMLAttribute a = n.getAttribute(i);
        Check(a.lpszName != nullptr);
        Check(n.isAttributeSet(a.lpszName));
        RoundTrip(a.lpszValue, exact);
        n.getChildNodeWithAttribute(name ? name : "x", a.lpszName, a.lpszValue);
    }
    for (int i = 0; i < n.nText(); ++i) RoundTrip(n.getText(i), exact);
    for (int i = 0; i < n.nClear(); ++i) Check(n.getClear(i).lpszValue != nullptr);
    int counts[4] = {0, 0, 0, 0};
    for (int i = 0; i < n.nElement(); ++i) {
        const XMLNodeContents c = n.enumContents(i);
        Check(c.etype < eNodeNULL);
        ++counts[c.etype];
    }
    Check(counts[eNodeChild] == n.nChildNode() && counts[eNodeAttribute] == n.nAttribute() &&
          counts[eNodeText] == n.nText() && counts[eNodeClear] == n.nClear());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    const XMLCharEncoding enc = static_cast<XMLCharEncoding>(1 + (mode & 7) % 6);
    XMLNode::setGlobalOptions(enc, (mode >> 3) & 1, (mode >> 4) & 1, (mode >> 5) & 1);
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    XMLNode::guessCharEncoding(text.data(), static_cast<int>(text.size()), (mode >> 6) & 1);

    XMLResults r;
    XMLNode root = XMLNode::parseString(text.c_str(), (mode & 0x80) ? "a" : nullptr, &r);
    Check(XMLNode::getError(r.error) != nullptr);
    if (r.error >= eXMLErrorFileSeek) Check(root.isEmpty());

    // Walk the tree without recursion, visiting at most a bounded number of nodes.
    const bool exact = enc == char_encoding_legacy;
    std::vector<XMLNode> work{root};
    for (int visited = 0; !work.empty() && visited < 20000; ++visited) {
        XMLNode n = work.back();
        work.pop_back();
        if (n.isEmpty()) continue;
        Visit(n, exact);
        for (int i = 0; i < n.nChildNode(); ++i) work.push_back(n.getChildNode(i));
    }
    // Building on the result: add, move and delete.
    if (!root.isEmpty()) {
        XMLNode first = root.getChildNode(0);
        root.addText("t", 0);
        root.addChild("n", 0, 1);
        if (!first.isEmpty()) {
            first.addChild(root);  // refused: a cycle
            first.deleteNodeContent();
        }
        root.deleteText(0);
    }
    XMLNode::setGlobalOptions(char_encoding_UTF8, 1, 1, 1);
    return 0;
}
