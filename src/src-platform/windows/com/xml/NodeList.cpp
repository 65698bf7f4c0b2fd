#include "windows/com/xml/NodeList.h"

#include <libxml/xpath.h>

#include <utility>

#include "windows/com/xml/Tree.h"
#include "windows/com/xml/XMLException.h"

namespace windows::com::xml {

NodeList::NodeList(std::shared_ptr<Tree> tree, std::shared_ptr<_xmlXPathObject> found)
    : _tree(std::move(tree)), _found(std::move(found)) {}

std::int32_t NodeList::size() const { return _found->nodesetval == nullptr ? 0 : _found->nodesetval->nodeNr; }

Node NodeList::getNode(std::int32_t index) const {
    if (index < 0 || index >= size()) {
        throwIfFailed(1, "Error when getting the node from the nodelist.");
    }
    return Node(_tree, _found->nodesetval->nodeTab[index]);
}

void NodeList::raise(const std::string& text) const { throw NodeListException(text); }

}  // namespace windows::com::xml
