// XMLNode handles: reference counting, lookups, building and deleting.
#include <cstring>

#include "config/xml_internal.h"

using tocra_xml::CopyStr;
using tocra_xml::NameEquals;
using tocra_xml::OrderEntry;
using tocra_xml::OrderIndex;
using tocra_xml::OrderType;

// ---- node data --------------------------------------------------------------

namespace {

void FreeAttr(tocra_xml::OwnedAttr& a) {
    platform_free(a.name);
    platform_free(a.value);
}

void FreeClear(tocra_xml::OwnedClear& c) {
    platform_free(c.value);
    platform_free(c.open);
    platform_free(c.close);
}

// Frees what the node owns apart from its children's references.
void FreeContents(XMLNodeData* p) {
    for (size_t k = 0; k < p->attributes.size; ++k) FreeAttr(p->attributes[k]);
    for (size_t k = 0; k < p->texts.size; ++k) platform_free(p->texts[k]);
    for (size_t k = 0; k < p->clears.size; ++k) FreeClear(p->clears[k]);
    p->attributes.Free();
    p->texts.Free();
    p->clears.Free();
    p->order.Free();
}

}  // namespace

XMLNodeData* XMLNodeData::Create(const char* nm, size_t nameLen, char decl) {
    XMLNodeData* d = static_cast<XMLNodeData*>(platform_calloc(1, sizeof(XMLNodeData)));
    if (d == nullptr) return nullptr;
    if (nm != nullptr) {
        d->name = CopyStr(nm, nameLen);
        if (d->name == nullptr) {
            platform_free(d);
            return nullptr;
        }
    }
    d->isDeclaration = decl;
    d->refCount = 1;
    return d;
}

XMLNodeData* XMLNodeData::Create(const char* nm, char decl) { return Create(nm, nm ? strlen(nm) : 0, decl); }

void XMLNodeData::Release(XMLNodeData* d) {
    if (d == nullptr || --d->refCount > 0) return;
    // The nodes to free are chained through the nodes themselves, so that
    // releasing a document never needs memory (it also runs while a parse
    // that ran out of memory gives back what it had built).
    XMLNodeData* dying = d;
    d->nextDying = nullptr;
    while (dying != nullptr) {
        XMLNodeData* p = dying;
        dying = p->nextDying;
        for (size_t k = 0; k < p->children.size; ++k) {
            XMLNodeData* cd = p->children[k];
            if (cd->parent == p) cd->parent = nullptr;
            if (--cd->refCount == 0) {
                cd->nextDying = dying;
                dying = cd;
            }
        }
        p->children.Free();
        FreeContents(p);
        platform_free(p->name);
        platform_free(p);
    }
}

int XMLNodeData::InsertOrder(XMLElementType t, int pos) {
    if (!order.Reserve(order.size + 1)) return -1;
    const int n = static_cast<int>(order.size);
    if (pos < 0 || pos > n) pos = n;
    int index = 0;  // items of kind t before pos
    for (int k = 0; k < pos; ++k) index += OrderType(order[k]) == t;
    for (int k = pos; k < n; ++k) {
        if (OrderType(order[k]) == t) order[k] = OrderEntry(t, OrderIndex(order[k]) + 1);
    }
    order.Insert(static_cast<size_t>(pos), OrderEntry(t, index));
    return index;
}

void XMLNodeData::RemoveOrder(XMLElementType t, int index) {
    for (size_t k = 0; k < order.size;) {
        if (OrderType(order[k]) != t) {
            ++k;
        } else if (OrderIndex(order[k]) == index) {
            order.Erase(k);
        } else {
            if (OrderIndex(order[k]) > index) order[k] = OrderEntry(t, OrderIndex(order[k]) - 1);
            ++k;
        }
    }
}

XMLNodeData* XMLNodeData::AppendChild(const char* nm, size_t nameLen, char decl) {
    if (!children.Reserve(children.size + 1) || !order.Reserve(order.size + 1)) return nullptr;
    XMLNodeData* c = Create(nm, nameLen, decl);
    if (c == nullptr) return nullptr;
    c->parent = this;
    order.Push(OrderEntry(eNodeChild, static_cast<int>(children.size)));
    children.Push(c);
    return c;
}

bool XMLNodeData::AppendText(char* text) {
    if (!texts.Reserve(texts.size + 1) || !order.Reserve(order.size + 1)) {
        platform_free(text);
        return false;
    }
    order.Push(OrderEntry(eNodeText, static_cast<int>(texts.size)));
    texts.Push(text);
    return true;
}

bool XMLNodeData::AppendClear(const char* value, size_t len, const char* open, const char* close) {
    tocra_xml::OwnedClear c{CopyStr(value, len), CopyStr(open, strlen(open)), CopyStr(close, strlen(close))};
    if (c.value == nullptr || c.open == nullptr || c.close == nullptr || !clears.Reserve(clears.size + 1) ||
        !order.Reserve(order.size + 1)) {
        FreeClear(c);
        return false;
    }
    order.Push(OrderEntry(eNodeClear, static_cast<int>(clears.size)));
    clears.Push(c);
    return true;
}

bool XMLNodeData::AppendAttribute(const char* nm, size_t nameLen, char* value) {
    tocra_xml::OwnedAttr a{CopyStr(nm, nameLen), value};
    if (a.name == nullptr || !attributes.Reserve(attributes.size + 1) || !order.Reserve(order.size + 1)) {
        FreeAttr(a);
        return false;
    }
    order.Push(OrderEntry(eNodeAttribute, static_cast<int>(attributes.size)));
    attributes.Push(a);
    return true;
}

// ---- handles ------------------------------------------------------------------

const XMLNode XMLNode::emptyXMLNode;

XMLNode::XMLNode(XMLNodeData* data) : d(data) {}

XMLNode::XMLNode(const XMLNode& other) : d(other.d) {
    if (d) XMLNodeData::AddRef(d);
}

XMLNode& XMLNode::operator=(const XMLNode& other) {
    if (other.d) XMLNodeData::AddRef(other.d);  // before the release: self-assignment is safe
    XMLNodeData::Release(d);
    d = other.d;
    return *this;
}

XMLNode::~XMLNode() { XMLNodeData::Release(d); }

XMLNode XMLNode::emptyNode() { return emptyXMLNode; }

// ---- lookups --------------------------------------------------------------------

namespace {

inline int Count(size_t n) { return static_cast<int>(n); }

// A new handle onto d (one more reference).
inline XMLNode Share(XMLNodeData* d) {
    XMLNodeData::AddRef(d);
    return XMLParserAccess::Adopt(d);
}

}  // namespace

XMLCSTR XMLNode::getName() const { return d ? d->name : nullptr; }

XMLNode XMLNode::getParentNode() const {
    if (d == nullptr || d->parent == nullptr) return XMLNode();
    return Share(d->parent);
}

char XMLNode::isDeclaration() const { return d ? d->isDeclaration : 0; }

XMLNode XMLNode::getChildNode(int i) const {
    if (d == nullptr || i < 0 || i >= Count(d->children.size)) return XMLNode();
    return Share(d->children[static_cast<size_t>(i)]);
}

XMLNode XMLNode::getChildNode(XMLCSTR name, int i) const {
    if (d == nullptr || name == nullptr) return XMLNode();
    XMLNodeData* last = nullptr;
    for (size_t k = 0; k < d->children.size; ++k) {
        XMLNodeData* c = d->children[k];
        if (!NameEquals(c->name, name)) continue;
        if (i == 0) return Share(c);
        if (i > 0) --i;
        last = c;
    }
    return (i < 0 && last) ? Share(last) : XMLNode();
}

XMLNode XMLNode::getChildNode(XMLCSTR name, int* index) const {
    if (d == nullptr || name == nullptr) return XMLNode();
    int start = index ? *index : 0;
    if (start < 0) start = 0;
    for (int k = start; k < Count(d->children.size); ++k) {
        XMLNodeData* c = d->children[static_cast<size_t>(k)];
        if (NameEquals(c->name, name)) {
            if (index) *index = k + 1;
            return Share(c);
        }
    }
    return XMLNode();
}

XMLNode XMLNode::getChildNodeWithAttribute(XMLCSTR tagName, XMLCSTR attributeName, XMLCSTR attributeValue,
                                           int* index) const {
    if (d == nullptr || tagName == nullptr || attributeName == nullptr) return XMLNode();
    int start = index ? *index : 0;
    if (start < 0) start = 0;
    for (int k = start; k < Count(d->children.size); ++k) {
        XMLNodeData* c = d->children[static_cast<size_t>(k)];
        if (!NameEquals(c->name, tagName)) continue;
        for (size_t j = 0; j < c->attributes.size; ++j) {
            const tocra_xml::OwnedAttr& a = c->attributes[j];
            if (!NameEquals(a.name, attributeName)) continue;
            if (attributeValue == nullptr || (a.value && strcmp(a.value, attributeValue) == 0)) {
                if (index) *index = k + 1;
                return Share(c);
            }
        }
    }
    return XMLNode();
}

int XMLNode::nChildNode() const { return d ? Count(d->children.size) : 0; }

int XMLNode::nChildNode(XMLCSTR name) const {
    if (d == nullptr || name == nullptr) return 0;
    int n = 0;
    for (size_t k = 0; k < d->children.size; ++k) n += NameEquals(d->children[k]->name, name);
    return n;
}

int XMLNode::nText() const { return d ? Count(d->texts.size) : 0; }
int XMLNode::nClear() const { return d ? Count(d->clears.size) : 0; }
int XMLNode::nAttribute() const { return d ? Count(d->attributes.size) : 0; }
int XMLNode::nElement() const { return d ? Count(d->order.size) : 0; }

XMLCSTR XMLNode::getText(int i) const {
    if (d == nullptr || i < 0 || i >= Count(d->texts.size)) return nullptr;
    return d->texts[static_cast<size_t>(i)];
}

XMLClear XMLNode::getClear(int i) const {
    if (d == nullptr || i < 0 || i >= Count(d->clears.size)) return {nullptr, nullptr, nullptr};
    const tocra_xml::OwnedClear& c = d->clears[static_cast<size_t>(i)];
    return {c.value, c.open, c.close};
}

XMLAttribute XMLNode::getAttribute(int i) const {
    if (d == nullptr || i < 0 || i >= Count(d->attributes.size)) return {nullptr, nullptr};
    const tocra_xml::OwnedAttr& a = d->attributes[static_cast<size_t>(i)];
    return {a.name, a.value};
}

XMLCSTR XMLNode::getAttributeName(int i) const { return getAttribute(i).lpszName; }
XMLCSTR XMLNode::getAttributeValue(int i) const { return getAttribute(i).lpszValue; }

XMLCSTR XMLNode::getAttribute(XMLCSTR name, int j) const {
    if (d == nullptr || name == nullptr || j < 0) return nullptr;
    for (size_t k = 0; k < d->attributes.size; ++k) {
        const tocra_xml::OwnedAttr& a = d->attributes[k];
        if (NameEquals(a.name, name) && j-- == 0) return a.value;
    }
    return nullptr;
}

XMLCSTR XMLNode::getAttribute(XMLCSTR name, int* index) const {
    if (d == nullptr || name == nullptr) return nullptr;
    int start = index ? *index : 0;
    if (start < 0) start = 0;
    for (int k = start; k < Count(d->attributes.size); ++k) {
        const tocra_xml::OwnedAttr& a = d->attributes[static_cast<size_t>(k)];
        if (NameEquals(a.name, name)) {
            if (index) *index = k + 1;
            return a.value;
        }
    }
    return nullptr;
}

char XMLNode::isAttributeSet(XMLCSTR name) const {
    if (d == nullptr || name == nullptr) return 0;
    for (size_t k = 0; k < d->attributes.size; ++k) {
        if (NameEquals(d->attributes[k].name, name)) return 1;
    }
    return 0;
}

XMLNodeContents XMLNode::enumContents(XMLElementPosition i) const {
    XMLNodeContents c{eNodeNULL, XMLNode(), {nullptr, nullptr}, nullptr, {nullptr, nullptr, nullptr}};
    if (d == nullptr || i < 0 || i >= Count(d->order.size)) return c;
    const int e = d->order[static_cast<size_t>(i)];
    c.etype = OrderType(e);
    switch (c.etype) {
        case eNodeChild:
            c.child = getChildNode(OrderIndex(e));
            break;
        case eNodeAttribute:
            c.attrib = getAttribute(OrderIndex(e));
            break;
        case eNodeText:
            c.text = getText(OrderIndex(e));
            break;
        case eNodeClear:
            c.clear = getClear(OrderIndex(e));
            break;
        default:
            break;
    }
    return c;
}

namespace {

int FindOrder(const XMLNodeData* d, XMLElementType t, int i) {
    if (d == nullptr) return -1;
    const int want = OrderEntry(t, i);
    for (size_t k = 0; k < d->order.size; ++k) {
        if (d->order[k] == want) return static_cast<int>(k);
    }
    return -1;
}

// Index of the first item for which match holds, or -1.
template <typename T, typename Match>
int FindFirst(const tocra_xml::Array<T>& a, Match match) {
    for (size_t k = 0; k < a.size; ++k) {
        if (match(a[k])) return static_cast<int>(k);
    }
    return -1;
}

// Takes child out of its parent's lists (the parent's reference goes with
// it: the caller holds its own).
void Unlink(XMLNodeData* child) {
    XMLNodeData* p = child->parent;
    if (p == nullptr) return;
    for (size_t k = 0; k < p->children.size; ++k) {
        if (p->children[k] != child) continue;
        p->RemoveOrder(eNodeChild, static_cast<int>(k));
        p->children.Erase(k);
        XMLNodeData::Release(child);
        break;
    }
    child->parent = nullptr;
}

}  // namespace

int XMLNode::positionOfText(int i) const { return i < 0 ? -1 : FindOrder(d, eNodeText, i); }
int XMLNode::positionOfClear(int i) const { return i < 0 ? -1 : FindOrder(d, eNodeClear, i); }
int XMLNode::positionOfChildNode(int i) const { return i < 0 ? -1 : FindOrder(d, eNodeChild, i); }

int XMLNode::positionOfChildNode(const XMLNode& child) const {
    if (d == nullptr || child.d == nullptr) return -1;
    for (size_t k = 0; k < d->children.size; ++k) {
        if (d->children[k] == child.d) return FindOrder(d, eNodeChild, static_cast<int>(k));
    }
    return -1;
}

// ---- building ---------------------------------------------------------------------
//
// When memory runs out, the building functions change nothing and answer
// as on the empty node (the empty node, or null strings).

XMLNode XMLNode::createXMLTopNode(XMLCSTR name, char isDeclaration) {
    return XMLNode(XMLNodeData::Create(name, isDeclaration));
}

XMLNode XMLNode::addChild(XMLCSTR name, char isDeclaration, XMLElementPosition pos) {
    if (d == nullptr) return XMLNode();
    XMLNode child(XMLNodeData::Create(name, isDeclaration));
    return addChild(child, pos);
}

XMLNode XMLNode::addChild(XMLNode child, XMLElementPosition pos) {
    if (d == nullptr || child.d == nullptr) return XMLNode();
    for (XMLNodeData* a = d; a != nullptr; a = a->parent) {
        if (a == child.d) return XMLNode();  // would make a cycle
    }
    // Room first, so that a failure leaves the child where it was. (Taking
    // it from its old parent only shrinks arrays.)
    if (!d->children.Reserve(d->children.size + 1) || !d->order.Reserve(d->order.size + 1)) return XMLNode();
    Unlink(child.d);                                    // the local handle child keeps the data alive across the move
    const int index = d->InsertOrder(eNodeChild, pos);  // cannot fail: room was made
    XMLNodeData::AddRef(child.d);
    d->children.Insert(static_cast<size_t>(index), child.d);
    child.d->parent = d;
    return child;
}

XMLAttribute XMLNode::addAttribute(XMLCSTR name, XMLCSTR value) {
    if (d == nullptr || name == nullptr) return {nullptr, nullptr};
    tocra_xml::OwnedAttr a{CopyStr(name, strlen(name)), nullptr};
    int index = -1;
    if (a.name != nullptr && tocra_xml::CopyOpt(value, &a.value) && d->attributes.Reserve(d->attributes.size + 1))
        index = d->InsertOrder(eNodeAttribute, -1);
    if (index < 0) {
        FreeAttr(a);
        return {nullptr, nullptr};
    }
    d->attributes.Insert(static_cast<size_t>(index), a);
    return getAttribute(index);
}

XMLCSTR XMLNode::addText(XMLCSTR text, XMLElementPosition pos) {
    if (d == nullptr || text == nullptr) return nullptr;
    char* t = CopyStr(text, strlen(text));
    int index = -1;
    if (t != nullptr && d->texts.Reserve(d->texts.size + 1)) index = d->InsertOrder(eNodeText, pos);
    if (index < 0) {
        platform_free(t);
        return nullptr;
    }
    d->texts.Insert(static_cast<size_t>(index), t);
    return getText(index);
}

XMLClear XMLNode::addClear(XMLCSTR value, XMLCSTR openTag, XMLCSTR closeTag, XMLElementPosition pos) {
    if (d == nullptr || value == nullptr) return {nullptr, nullptr, nullptr};
    if (openTag == nullptr) openTag = "<![CDATA[";
    if (closeTag == nullptr) closeTag = "]]>";
    tocra_xml::OwnedClear c{CopyStr(value, strlen(value)), CopyStr(openTag, strlen(openTag)),
                            CopyStr(closeTag, strlen(closeTag))};
    int index = -1;
    if (c.value && c.open && c.close && d->clears.Reserve(d->clears.size + 1)) index = d->InsertOrder(eNodeClear, pos);
    if (index < 0) {
        FreeClear(c);
        return {nullptr, nullptr, nullptr};
    }
    d->clears.Insert(static_cast<size_t>(index), c);
    return getClear(index);
}

XMLCSTR XMLNode::updateName(XMLCSTR name) {
    if (d == nullptr) return nullptr;
    char* n = nullptr;
    if (!tocra_xml::CopyOpt(name, &n)) return nullptr;
    platform_free(d->name);
    d->name = n;
    return d->name;
}

XMLAttribute XMLNode::updateAttribute(XMLCSTR newValue, XMLCSTR newName, int i) {
    if (d == nullptr || i < 0 || i >= Count(d->attributes.size)) return {nullptr, nullptr};
    tocra_xml::OwnedAttr& a = d->attributes[static_cast<size_t>(i)];
    char* name = nullptr;
    char* value = nullptr;
    if (!tocra_xml::CopyOpt(newName, &name)) return {nullptr, nullptr};
    if (!tocra_xml::CopyOpt(newValue, &value)) {
        platform_free(name);
        return {nullptr, nullptr};
    }
    if (name) {
        platform_free(a.name);
        a.name = name;
    }
    platform_free(a.value);
    a.value = value;
    return getAttribute(i);
}

XMLAttribute XMLNode::updateAttribute(XMLCSTR newValue, XMLCSTR newName, XMLCSTR oldName) {
    if (d == nullptr || oldName == nullptr) return {nullptr, nullptr};
    const int k = FindFirst(d->attributes, [&](const tocra_xml::OwnedAttr& a) { return NameEquals(a.name, oldName); });
    return k >= 0 ? updateAttribute(newValue, newName, k) : addAttribute(newName ? newName : oldName, newValue);
}

XMLCSTR XMLNode::updateText(XMLCSTR newText, int i) {
    if (d == nullptr || newText == nullptr) return nullptr;
    if (i < 0 || i >= Count(d->texts.size)) return addText(newText);
    char* t = CopyStr(newText, strlen(newText));
    if (t == nullptr) return nullptr;
    platform_free(d->texts[static_cast<size_t>(i)]);
    d->texts[static_cast<size_t>(i)] = t;
    return getText(i);
}

XMLCSTR XMLNode::updateText(XMLCSTR newText, XMLCSTR oldText) {
    if (d == nullptr || newText == nullptr) return nullptr;
    const int k = FindFirst(d->texts, [&](const char* t) { return t == oldText; });
    return k >= 0 ? updateText(newText, k) : addText(newText);
}

XMLClear XMLNode::updateClear(XMLCSTR newValue, int i) {
    if (d == nullptr || newValue == nullptr) return {nullptr, nullptr, nullptr};
    if (i < 0 || i >= Count(d->clears.size)) return addClear(newValue);
    char* v = CopyStr(newValue, strlen(newValue));
    if (v == nullptr) return {nullptr, nullptr, nullptr};
    platform_free(d->clears[static_cast<size_t>(i)].value);
    d->clears[static_cast<size_t>(i)].value = v;
    return getClear(i);
}

// ---- deleting -----------------------------------------------------------------------

void XMLNode::deleteNodeContent() {
    if (d == nullptr) return;
    XMLNode keep(*this);  // the parent's handle may be the last one but ours
    Unlink(d);
    tocra_xml::Array<XMLNodeData*> children = d->children;
    d->children = tocra_xml::Array<XMLNodeData*>{};
    for (size_t k = 0; k < children.size; ++k) {
        if (children[k]->parent == d) children[k]->parent = nullptr;
    }
    FreeContents(d);
    // The children's references go here, each subtree freed iteratively.
    for (size_t k = 0; k < children.size; ++k) XMLNodeData::Release(children[k]);
    children.Free();
}

void XMLNode::deleteAttribute(int i) {
    if (d == nullptr || i < 0 || i >= Count(d->attributes.size)) return;
    d->RemoveOrder(eNodeAttribute, i);
    FreeAttr(d->attributes[static_cast<size_t>(i)]);
    d->attributes.Erase(static_cast<size_t>(i));
}

void XMLNode::deleteAttribute(XMLCSTR name) {
    if (d == nullptr || name == nullptr) return;
    const int k = FindFirst(d->attributes, [&](const tocra_xml::OwnedAttr& a) { return NameEquals(a.name, name); });
    if (k >= 0) deleteAttribute(k);
}

void XMLNode::deleteText(int i) {
    if (d == nullptr || i < 0 || i >= Count(d->texts.size)) return;
    d->RemoveOrder(eNodeText, i);
    platform_free(d->texts[static_cast<size_t>(i)]);
    d->texts.Erase(static_cast<size_t>(i));
}

void XMLNode::deleteText(XMLCSTR text) {
    if (d == nullptr || text == nullptr) return;
    const int k = FindFirst(d->texts, [&](const char* t) { return t == text; });
    if (k >= 0) deleteText(k);
}

void XMLNode::deleteClear(int i) {
    if (d == nullptr || i < 0 || i >= Count(d->clears.size)) return;
    d->RemoveOrder(eNodeClear, i);
    FreeClear(d->clears[static_cast<size_t>(i)]);
    d->clears.Erase(static_cast<size_t>(i));
}

void XMLNode::deleteClear(XMLCSTR value) {
    if (d == nullptr || value == nullptr) return;
    const int k = FindFirst(d->clears, [&](const tocra_xml::OwnedClear& c) { return c.value == value; });
    if (k >= 0) deleteClear(k);
}
