#include "windows/com/xml/ExceptionThrower.h"

#include "util/FixedStream.h"

namespace windows::com::xml {

void ExceptionThrower::throwIfFailed(std::int32_t result, const std::string& text,
                                     std::uint32_t systemError) const {
    if (result != 0) {
        raise(withSystemError(text, systemError));
    }
}

std::string ExceptionThrower::withSystemError(const std::string& text, std::uint32_t systemError) {
    util::FixedStream<4096> message;
    message << text.c_str() << "\n\n";
    message.appendSystemError(systemError);
    return message.str();
}

}  // namespace windows::com::xml
