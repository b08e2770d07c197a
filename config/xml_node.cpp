// XMLNode handles: reference counting, lookups, building and deleting.
#include <cstring>

#include "config/xml_internal.h"

using tocra_xml::CopyStr;
using tocra_xml::NameEquals;
using tocra_xml::OrderEntry;
using tocra_xml::OrderIndex;
using tocra_xml::OrderType;

// ---- node data --------------------------------------------------------------

// Nodes are owned from the moment they exist, so that an allocation failing
// while one is filled in or linked (std::bad_alloc) releases it.
XMLNodeData* XMLNodeData::Create(const char* name, char isDeclaration) {
    std::unique_ptr<XMLNodeData> d(new XMLNodeData);
    d->name = CopyStr(name);
    d->isDeclaration = isDeclaration;
    return d.release();
}

void XMLNodeData::Release(XMLNodeData* d) {
    if (d == nullptr || --d->refCount > 0) return;
    // The nodes to free are chained through the nodes themselves, so that
    // releasing a document never needs memory (it runs in destructors, also
    // while an allocation failure unwinds).
    XMLNodeData* dying = d;
    d->nextDying = nullptr;
    while (dying != nullptr) {
        XMLNodeData* p = dying;
        dying = p->nextDying;
        for (XMLNode& c : p->children) {
            XMLNodeData* cd = c.d;
            c.d = nullptr;  // the handle no longer owns it; done here instead
            if (cd == nullptr) continue;
            if (cd->parent == p) cd->parent = nullptr;
            if (--cd->refCount == 0) {
                cd->nextDying = dying;
                dying = cd;
            }
        }
        delete p;
    }
}

int XMLNodeData::InsertOrder(XMLElementType t, int pos) {
    const int n = static_cast<int>(order.size());
    if (pos < 0 || pos > n) pos = n;
    int index = 0;  // items of kind t before pos
    for (int k = 0; k < pos; ++k) index += OrderType(order[k]) == t;
    for (int k = pos; k < n; ++k) {
        if (OrderType(order[k]) == t) order[k] = OrderEntry(t, OrderIndex(order[k]) + 1);
    }
    order.insert(order.begin() + pos, OrderEntry(t, index));
    return index;
}

void XMLNodeData::RemoveOrder(XMLElementType t, int index) {
    for (size_t k = 0; k < order.size();) {
        if (OrderType(order[k]) != t) {
            ++k;
        } else if (OrderIndex(order[k]) == index) {
            order.erase(order.begin() + static_cast<std::ptrdiff_t>(k));
        } else {
            if (OrderIndex(order[k]) > index) order[k] = OrderEntry(t, OrderIndex(order[k]) - 1);
            ++k;
        }
    }
}

XMLNodeData* XMLNodeData::AppendChild(const char* nm, size_t nameLen, char decl) {
    const XMLNode child = XMLParserAccess::Adopt(new XMLNodeData);
    XMLNodeData* c = XMLParserAccess::Data(child);
    c->name = CopyStr(nm, nameLen);
    c->isDeclaration = decl;
    c->parent = this;
    children.reserve(children.size() + 1);  // the order entry is only added once the child fits
    order.push_back(OrderEntry(eNodeChild, static_cast<int>(children.size())));
    children.push_back(child);
    return c;
}

void XMLNodeData::AppendText(std::string&& text) {
    order.push_back(OrderEntry(eNodeText, static_cast<int>(texts.size())));
    texts.push_back(CopyStr(text.c_str(), text.size()));
}

void XMLNodeData::AppendClear(const char* value, size_t len, const char* open, const char* close) {
    order.push_back(OrderEntry(eNodeClear, static_cast<int>(clears.size())));
    clears.push_back({CopyStr(value, len), CopyStr(open), CopyStr(close)});
}

void XMLNodeData::AppendAttribute(const char* nm, size_t nameLen, const std::string* value) {
    order.push_back(OrderEntry(eNodeAttribute, static_cast<int>(attributes.size())));
    attributes.push_back({CopyStr(nm, nameLen), value ? CopyStr(value->c_str(), value->size()) : nullptr});
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

}  // namespace

XMLCSTR XMLNode::getName() const { return d ? d->name.get() : nullptr; }

XMLNode XMLNode::getParentNode() const {
    if (d == nullptr || d->parent == nullptr) return XMLNode();
    XMLNodeData::AddRef(d->parent);
    return XMLNode(d->parent);
}

char XMLNode::isDeclaration() const { return d ? d->isDeclaration : 0; }

XMLNode XMLNode::getChildNode(int i) const {
    if (d == nullptr || i < 0 || i >= Count(d->children.size())) return XMLNode();
    return d->children[static_cast<size_t>(i)];
}

XMLNode XMLNode::getChildNode(XMLCSTR name, int i) const {
    if (d == nullptr || name == nullptr) return XMLNode();
    const XMLNode* last = nullptr;
    for (const XMLNode& c : d->children) {
        if (!NameEquals(c.getName(), name)) continue;
        if (i == 0) return c;
        if (i > 0) --i;
        last = &c;
    }
    return (i < 0 && last) ? *last : XMLNode();
}

XMLNode XMLNode::getChildNode(XMLCSTR name, int* index) const {
    if (d == nullptr || name == nullptr) return XMLNode();
    int start = index ? *index : 0;
    if (start < 0) start = 0;
    for (int k = start; k < Count(d->children.size()); ++k) {
        const XMLNode& c = d->children[static_cast<size_t>(k)];
        if (NameEquals(c.getName(), name)) {
            if (index) *index = k + 1;
            return c;
        }
    }
    return XMLNode();
}

XMLNode XMLNode::getChildNodeWithAttribute(XMLCSTR tagName, XMLCSTR attributeName, XMLCSTR attributeValue,
                                           int* index) const {
    if (d == nullptr || tagName == nullptr || attributeName == nullptr) return XMLNode();
    int start = index ? *index : 0;
    if (start < 0) start = 0;
    for (int k = start; k < Count(d->children.size()); ++k) {
        const XMLNode& c = d->children[static_cast<size_t>(k)];
        if (!NameEquals(c.getName(), tagName)) continue;
        for (const tocra_xml::OwnedAttr& a : c.d->attributes) {
            if (!NameEquals(a.name.get(), attributeName)) continue;
            if (attributeValue == nullptr || (a.value && strcmp(a.value.get(), attributeValue) == 0)) {
                if (index) *index = k + 1;
                return c;
            }
        }
    }
    return XMLNode();
}

int XMLNode::nChildNode() const { return d ? Count(d->children.size()) : 0; }

int XMLNode::nChildNode(XMLCSTR name) const {
    if (d == nullptr || name == nullptr) return 0;
    int n = 0;
    for (const XMLNode& c : d->children) n += NameEquals(c.getName(), name);
    return n;
}

int XMLNode::nText() const { return d ? Count(d->texts.size()) : 0; }
int XMLNode::nClear() const { return d ? Count(d->clears.size()) : 0; }
int XMLNode::nAttribute() const { return d ? Count(d->attributes.size()) : 0; }
int XMLNode::nElement() const { return d ? Count(d->order.size()) : 0; }

XMLCSTR XMLNode::getText(int i) const {
    if (d == nullptr || i < 0 || i >= Count(d->texts.size())) return nullptr;
    return d->texts[static_cast<size_t>(i)].get();
}

XMLClear XMLNode::getClear(int i) const {
    if (d == nullptr || i < 0 || i >= Count(d->clears.size())) return {nullptr, nullptr, nullptr};
    const tocra_xml::OwnedClear& c = d->clears[static_cast<size_t>(i)];
    return {c.value.get(), c.open.get(), c.close.get()};
}

XMLAttribute XMLNode::getAttribute(int i) const {
    if (d == nullptr || i < 0 || i >= Count(d->attributes.size())) return {nullptr, nullptr};
    const tocra_xml::OwnedAttr& a = d->attributes[static_cast<size_t>(i)];
    return {a.name.get(), a.value.get()};
}

XMLCSTR XMLNode::getAttributeName(int i) const { return getAttribute(i).lpszName; }
XMLCSTR XMLNode::getAttributeValue(int i) const { return getAttribute(i).lpszValue; }

XMLCSTR XMLNode::getAttribute(XMLCSTR name, int j) const {
    if (d == nullptr || name == nullptr || j < 0) return nullptr;
    for (const tocra_xml::OwnedAttr& a : d->attributes) {
        if (NameEquals(a.name.get(), name) && j-- == 0) return a.value.get();
    }
    return nullptr;
}

XMLCSTR XMLNode::getAttribute(XMLCSTR name, int* index) const {
    if (d == nullptr || name == nullptr) return nullptr;
    int start = index ? *index : 0;
    if (start < 0) start = 0;
    for (int k = start; k < Count(d->attributes.size()); ++k) {
        const tocra_xml::OwnedAttr& a = d->attributes[static_cast<size_t>(k)];
        if (NameEquals(a.name.get(), name)) {
            if (index) *index = k + 1;
            return a.value.get();
        }
    }
    return nullptr;
}

char XMLNode::isAttributeSet(XMLCSTR name) const {
    if (d == nullptr || name == nullptr) return 0;
    for (const tocra_xml::OwnedAttr& a : d->attributes) {
        if (NameEquals(a.name.get(), name)) return 1;
    }
    return 0;
}

XMLNodeContents XMLNode::enumContents(XMLElementPosition i) const {
    XMLNodeContents c{eNodeNULL, XMLNode(), {nullptr, nullptr}, nullptr, {nullptr, nullptr, nullptr}};
    if (d == nullptr || i < 0 || i >= Count(d->order.size())) return c;
    const int e = d->order[static_cast<size_t>(i)];
    c.etype = OrderType(e);
    switch (c.etype) {
        case eNodeChild: c.child = getChildNode(OrderIndex(e)); break;
        case eNodeAttribute: c.attrib = getAttribute(OrderIndex(e)); break;
        case eNodeText: c.text = getText(OrderIndex(e)); break;
        case eNodeClear: c.clear = getClear(OrderIndex(e)); break;
        default: break;
    }
    return c;
}

namespace {

int FindOrder(const XMLNodeData* d, XMLElementType t, int i) {
    if (d == nullptr) return -1;
    const int want = OrderEntry(t, i);
    for (size_t k = 0; k < d->order.size(); ++k) {
        if (d->order[k] == want) return static_cast<int>(k);
    }
    return -1;
}

}  // namespace

int XMLNode::positionOfText(int i) const { return i < 0 ? -1 : FindOrder(d, eNodeText, i); }
int XMLNode::positionOfClear(int i) const { return i < 0 ? -1 : FindOrder(d, eNodeClear, i); }
int XMLNode::positionOfChildNode(int i) const { return i < 0 ? -1 : FindOrder(d, eNodeChild, i); }

int XMLNode::positionOfChildNode(const XMLNode& child) const {
    if (d == nullptr || child.d == nullptr) return -1;
    for (size_t k = 0; k < d->children.size(); ++k) {
        if (d->children[k].d == child.d) return FindOrder(d, eNodeChild, static_cast<int>(k));
    }
    return -1;
}

// ---- building ---------------------------------------------------------------------

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
    if (child.d->parent) {
        XMLNodeData* old = child.d->parent;
        for (size_t k = 0; k < old->children.size(); ++k) {
            if (old->children[k].d != child.d) continue;
            old->RemoveOrder(eNodeChild, static_cast<int>(k));
            old->children.erase(old->children.begin() + static_cast<std::ptrdiff_t>(k));
            break;
        }
        // The local handle child keeps the data alive across the move.
    }
    const int index = d->InsertOrder(eNodeChild, pos);
    d->children.insert(d->children.begin() + index, child);
    child.d->parent = d;
    return child;
}

XMLAttribute XMLNode::addAttribute(XMLCSTR name, XMLCSTR value) {
    if (d == nullptr || name == nullptr) return {nullptr, nullptr};
    const int index = d->InsertOrder(eNodeAttribute, -1);
    d->attributes.insert(d->attributes.begin() + index, {CopyStr(name), CopyStr(value)});
    return getAttribute(index);
}

XMLCSTR XMLNode::addText(XMLCSTR text, XMLElementPosition pos) {
    if (d == nullptr || text == nullptr) return nullptr;
    const int index = d->InsertOrder(eNodeText, pos);
    d->texts.insert(d->texts.begin() + index, CopyStr(text));
    return getText(index);
}

XMLClear XMLNode::addClear(XMLCSTR value, XMLCSTR openTag, XMLCSTR closeTag, XMLElementPosition pos) {
    if (d == nullptr || value == nullptr) return {nullptr, nullptr, nullptr};
    const int index = d->InsertOrder(eNodeClear, pos);
    d->clears.insert(d->clears.begin() + index,
                     {CopyStr(value), CopyStr(openTag ? openTag : "<![CDATA["), CopyStr(closeTag ? closeTag : "]]>")});
    return getClear(index);
}

XMLCSTR XMLNode::updateName(XMLCSTR name) {
    if (d == nullptr) return nullptr;
    d->name = CopyStr(name);
    return d->name.get();
}

XMLAttribute XMLNode::updateAttribute(XMLCSTR newValue, XMLCSTR newName, int i) {
    if (d == nullptr || i < 0 || i >= Count(d->attributes.size())) return {nullptr, nullptr};
    tocra_xml::OwnedAttr& a = d->attributes[static_cast<size_t>(i)];
    if (newName) a.name = CopyStr(newName);
    a.value = CopyStr(newValue);
    return getAttribute(i);
}

XMLAttribute XMLNode::updateAttribute(XMLCSTR newValue, XMLCSTR newName, XMLCSTR oldName) {
    if (d == nullptr || oldName == nullptr) return {nullptr, nullptr};
    for (size_t k = 0; k < d->attributes.size(); ++k) {
        if (NameEquals(d->attributes[k].name.get(), oldName)) return updateAttribute(newValue, newName, Count(k));
    }
    return addAttribute(newName ? newName : oldName, newValue);
}

XMLCSTR XMLNode::updateText(XMLCSTR newText, int i) {
    if (d == nullptr || newText == nullptr) return nullptr;
    if (i < 0 || i >= Count(d->texts.size())) return addText(newText);
    d->texts[static_cast<size_t>(i)] = CopyStr(newText);
    return getText(i);
}

XMLCSTR XMLNode::updateText(XMLCSTR newText, XMLCSTR oldText) {
    if (d == nullptr || newText == nullptr) return nullptr;
    for (size_t k = 0; k < d->texts.size(); ++k) {
        if (d->texts[k].get() == oldText) return updateText(newText, Count(k));
    }
    return addText(newText);
}

XMLClear XMLNode::updateClear(XMLCSTR newValue, int i) {
    if (d == nullptr || newValue == nullptr) return {nullptr, nullptr, nullptr};
    if (i < 0 || i >= Count(d->clears.size())) return addClear(newValue);
    d->clears[static_cast<size_t>(i)].value = CopyStr(newValue);
    return getClear(i);
}

// ---- deleting -----------------------------------------------------------------------

void XMLNode::deleteNodeContent() {
    if (d == nullptr) return;
    XMLNode keep(*this);  // the parent's handle may be the last one but ours
    if (XMLNodeData* p = d->parent) {
        for (size_t k = 0; k < p->children.size(); ++k) {
            if (p->children[k].d != d) continue;
            p->RemoveOrder(eNodeChild, static_cast<int>(k));
            p->children.erase(p->children.begin() + static_cast<std::ptrdiff_t>(k));
            break;
        }
        d->parent = nullptr;
    }
    std::vector<XMLNode> children;
    children.swap(d->children);
    for (XMLNode& c : children) {
        if (c.d && c.d->parent == d) c.d->parent = nullptr;
    }
    d->attributes.clear();
    d->texts.clear();
    d->clears.clear();
    d->order.clear();
    // children's handles release here, iteratively for their own subtrees.
}

void XMLNode::deleteAttribute(int i) {
    if (d == nullptr || i < 0 || i >= Count(d->attributes.size())) return;
    d->RemoveOrder(eNodeAttribute, i);
    d->attributes.erase(d->attributes.begin() + i);
}

void XMLNode::deleteAttribute(XMLCSTR name) {
    if (d == nullptr || name == nullptr) return;
    for (size_t k = 0; k < d->attributes.size(); ++k) {
        if (NameEquals(d->attributes[k].name.get(), name)) {
            deleteAttribute(Count(k));
            return;
        }
    }
}

void XMLNode::deleteText(int i) {
    if (d == nullptr || i < 0 || i >= Count(d->texts.size())) return;
    d->RemoveOrder(eNodeText, i);
    d->texts.erase(d->texts.begin() + i);
}

void XMLNode::deleteText(XMLCSTR text) {
    if (d == nullptr || text == nullptr) return;
    for (size_t k = 0; k < d->texts.size(); ++k) {
        if (d->texts[k].get() == text) {
            deleteText(Count(k));
            return;
        }
    }
}

void XMLNode::deleteClear(int i) {
    if (d == nullptr || i < 0 || i >= Count(d->clears.size())) return;
    d->RemoveOrder(eNodeClear, i);
    d->clears.erase(d->clears.begin() + i);
}

void XMLNode::deleteClear(XMLCSTR value) {
    if (d == nullptr || value == nullptr) return;
    for (size_t k = 0; k < d->clears.size(); ++k) {
        if (d->clears[k].value.get() == value) {
            deleteClear(Count(k));
            return;
        }
    }
}
