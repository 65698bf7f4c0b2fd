#pragma once

#include <memory>
#include <string>

#include "windows/com/xml/ExceptionThrower.h"
#include "windows/com/xml/Node.h"
#include "windows/com/xml/NodeList.h"

namespace windows::com::xml {

// An element of a document. Every operation throws ElementException if it fails, and std::bad_alloc if memory
// runs out. Names and values are bytes, one for each character; a character above U+00FF has no byte, so that
// a value that holds one cannot be read.
class Element final : public ExceptionThrower {
public:
    // A node that is no element gives an Element of which every operation fails.
    explicit Element(const Node& node);

    // The value of the attribute with this qualified name. A missing attribute is a failure.
    std::string getAttribute(const std::string& name) const;
    bool hasAttribute(const std::string& name) const;

    // An attribute that says "TRUE", "true" or "1", or "FALSE", "false" or "0".
    bool getBoolean(const std::string& name) const;

    // The one element that the XPath expression selects from here.
    Element getElement(const std::string& expression) const;
    NodeList selectNodes(const std::string& expression) const;

    // The text of this element and all elements in it.
    std::string getText() const;

    // The qualified name, prefix included.
    std::string getTagName() const;

private:
    [[noreturn]] void raise(const std::string& text) const override;

    std::shared_ptr<Tree> _tree;
    _xmlNode* _element;  // null if the node was none
};

}  // namespace windows::com::xml
