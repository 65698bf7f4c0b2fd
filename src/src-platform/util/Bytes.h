#pragma once

#include <vector>

namespace util {

// A byte vector: file contents, stored classifiers, decoded texts.
using Bytes = std::vector<char>;

}  // namespace util
