#pragma once

#include <string>

namespace halvern::morvane {

// What stands before a classifier's name in its path. A root that ends in a separator gets another one all
// the same: paths show in messages, and clients know them so.
inline std::string classifierRoot(const std::string& rootPath) {
    return rootPath.empty() ? std::string() : rootPath + "/";
}

}  // namespace halvern::morvane
