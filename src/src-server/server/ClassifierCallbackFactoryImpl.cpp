#include "server/ClassifierCallbackFactoryImpl.h"

#include "util/FixedStream.h"

namespace halvern::morvane {

void ClassifierCallbackImpl::report(const char* expression, const char* description, const char* file,
                                    std::uint32_t line) {
    util::FixedStream<4096> text;
    text << "Classifier failure: " << description;
    // The terminated form: it doesn't throw where memory has run out.
    _log.assertion(expression, text.str(), file, line);
}

std::unique_ptr<classifier::Callback> ClassifierCallbackImpl::clone() const {
    return std::make_unique<ClassifierCallbackImpl>(_log);
}

std::unique_ptr<classifier::Callback> ClassifierCallbackFactoryImpl::create() {
    return std::make_unique<ClassifierCallbackImpl>(_log);
}

}  // namespace halvern::morvane
