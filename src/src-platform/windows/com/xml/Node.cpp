#include "windows/com/xml/Node.h"

#include <utility>

#include "windows/com/xml/Tree.h"

namespace windows::com::xml {

Node::Node(std::shared_ptr<Tree> tree, _xmlNode* node) : _tree(std::move(tree)), _node(node) {}

}  // namespace windows::com::xml
