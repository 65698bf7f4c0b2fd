#include "windows/com/xml/Element.h"

#include <libxml/tree.h>

#include <cerrno>
#include <string_view>

#include "platform/errorresources/SystemErrorText.h"
#include "util/StringHelper.h"
#include "windows/com/xml/Characters.h"
#include "windows/com/xml/LibraryHooks.h"
#include "windows/com/xml/Tree.h"
#include "windows/com/xml/XMLException.h"

namespace windows::com::xml {

namespace {

using platform::errorresources::systemErrorText;

std::string_view view(const xmlChar* text) {
    return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

std::string qualifiedName(const xmlNs* ns, const xmlChar* name) {
    std::string qualified;
    if (ns != nullptr && ns->prefix != nullptr) {
        qualified.append(view(ns->prefix)).push_back(':');
    }
    return qualified.append(view(name));
}

// The library's own look-up by name also finds the attribute of that name in any namespace.
const xmlAttr* findAttribute(const xmlNode& element, const std::string& name) {
    const std::string utf8 = widen(name);
    for (const xmlAttr* attribute = element.properties; attribute != nullptr; attribute = attribute->next) {
        const bool isPlain = attribute->ns == nullptr || attribute->ns->prefix == nullptr;
        if (isPlain ? view(attribute->name) == utf8 : qualifiedName(attribute->ns, attribute->name) == utf8) {
            return attribute;
        }
    }
    return nullptr;
}

// The node behind node in document order, within root.
const xmlNode* next(const xmlNode* node, const xmlNode* root) {
    if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
        return node->children;
    }
    while (node != root && node->next == nullptr) {
        node = node->parent;
    }
    return node == root ? nullptr : node->next;
}

}  // namespace

Element::Element(const Node& node)
    : _tree(node._tree),
      _element(node._node != nullptr && node._node->type == XML_ELEMENT_NODE ? node._node : nullptr) {}

std::string Element::getAttribute(const std::string& name) const {
    const xmlAttr* attribute = _element == nullptr ? nullptr : findAttribute(*_element, name);
    if (attribute == nullptr) {
        throwIfFailed(1, "Error when getting the attribute '" + name + "' from an element.");
    }
    try {
        std::string value;
        for (const xmlNode* part = attribute->children; part != nullptr; part = part->next) {
            appendNarrowed(value, view(part->content));
        }
        return value;
    } catch (const util::StringHelperException& e) {
        throw ElementException("An exception occured when trying to get an attribute with name '" + name +
                               "' as a string. " + e.what());
    }
}

bool Element::hasAttribute(const std::string& name) const {
    if (_element == nullptr) {
        throwIfFailed(1, "Error when checking if the attribute " + name + " exists.");
    }
    return findAttribute(*_element, name) != nullptr;
}

bool Element::getBoolean(const std::string& name) const {
    const std::string value = getAttribute(name);
    if (value == "TRUE" || value == "true" || value == "1") {
        return true;
    }
    if (value == "FALSE" || value == "false" || value == "0") {
        return false;
    }
    throw ElementException("Error when getting the attribute. '" + name +
                           "' not a boolean. The attribute is set to: '" + value + "'.");
}

Element Element::getElement(const std::string& expression) const {
    const NodeList found = selectNodes(expression);
    if (found.size() != 1) {
        throw ElementException("Exactly one element matching the string " + expression + " is allowed but " +
                               std::to_string(found.size()) + " was found.\n");
    }
    return Element(found.getNode(0));
}

NodeList Element::selectNodes(const std::string& expression) const {
    auto found = _element == nullptr ? nullptr : _tree->select(_element, expression);
    if (found == nullptr) {
        throwIfFailed(1, "Error when selecting nodes with the expression " + expression + ".");
    }
    return NodeList(_tree, found);
}

std::string Element::getText() const {
    if (_element == nullptr) {
        throw ElementException(
            "Could not get the text from a node in the XML document, using "
            "'Element::getText()'. " +
            systemErrorText(EINVAL));
    }
    try {
        std::string text;
        for (const xmlNode* node = _element; node != nullptr; node = next(node, _element)) {
            if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
                appendNarrowed(text, view(node->content));
            }
        }
        return text;
    } catch (const util::StringHelperException&) {
        // A question mark in its place would train or classify something else than what was sent.
        throw ElementException(
            "Could not convert a BSTR to char* using 'WideCharToMultiByte' in "
            "'Element::getText()'. " +
            systemErrorText(EILSEQ));
    }
}

std::string Element::getTagName() const {
    if (_element == nullptr) {
        throwIfFailed(1, "Error when getting the tag name of an element.");
    }
    try {
        return narrow(qualifiedName(_element->ns, _element->name));
    } catch (const util::StringHelperException& e) {
        throw ElementException(std::string("An exception occured when trying to get a tag name. ") +
                               e.what());
    }
}

void Element::raise(const std::string& text) const { throw ElementException(text); }

}  // namespace windows::com::xml
