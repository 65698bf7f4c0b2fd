#include "classifier/DefaultCallback.h"

// The last step is the run time's own assertion in release builds too.
#undef NDEBUG
#include <cassert>
#include <iostream>

namespace halvern::classifier {

void DefaultCallback::report(const char* expression, const char* description, const char* file,
                             std::uint32_t line) {
    // Each line is flushed, since nobody knows how much longer the process holds.
    std::cout << "An assertion occurred in the Classifier API." << std::endl
              << "This could be serious and you should contact the developer with this information.\n"
              << std::endl
              << "Expression: " << expression << std::endl
              << "Description: " << description << std::endl
              << "File: " << file << std::endl
              << "Line: " << line << "\n"
              << std::endl
              << "Please send this information to support@morvane.example." << std::endl
              << "Thank you for helping us improve our software." << std::endl;
    assert(false);
}

std::unique_ptr<Callback> DefaultCallback::clone() const { return std::make_unique<DefaultCallback>(); }

}  // namespace halvern::classifier
