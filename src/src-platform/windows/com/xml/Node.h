#pragma once

#include <memory>

#include "windows/com/xml/LibraryTypes.h"

namespace windows::com::xml {

class Tree;

// A node of a document. It keeps the document's content alive, so it may outlive the Document it came from.
// Like all of its layer but SchemaCache it belongs to one thread, together with all that shares its content.
class Node {
public:
    Node(std::shared_ptr<Tree> tree, _xmlNode* node);

private:
    friend class Element;

    std::shared_ptr<Tree> _tree;
    _xmlNode* _node;
};

}  // namespace windows::com::xml
