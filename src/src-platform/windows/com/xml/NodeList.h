#pragma once

#include <cstdint>
#include <memory>

#include "windows/com/xml/ExceptionThrower.h"
#include "windows/com/xml/LibraryTypes.h"
#include "windows/com/xml/Node.h"

namespace windows::com::xml {

// What a selection has found, in document order.
class NodeList final : public ExceptionThrower {
public:
    // found is a set of nodes of tree.
    NodeList(std::shared_ptr<Tree> tree, std::shared_ptr<_xmlXPathObject> found);

    std::int32_t size() const;

    // Throws NodeListException for an index outside of the list.
    Node getNode(std::int32_t index) const;

private:
    [[noreturn]] void raise(const std::string& text) const override;

    std::shared_ptr<Tree> _tree;
    std::shared_ptr<_xmlXPathObject> _found;
};

}  // namespace windows::com::xml
