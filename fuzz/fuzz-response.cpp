// What the built-in test reads out of a response: any bytes are refused in words, or give a whole.
#include "Target.h"
#include "exceptions/Exception.h"
#include "server/StatusCode.h"
#include "server/systemtest/ResponseValidator.h"
#include "windows/com/xml/Library.h"

namespace morvane = halvern::morvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const windows::com::xml::Library library;
    static const morvane::ResponseValidator validator(MORVANE_SCHEMAS "/server/");
    const std::string text = fuzz::textOf(data, size);
    morvane::ParsedResponse parsed;
    try {
        parsed = validator.parse(text);
    } catch (const exceptions::Exception& refusal) {
        PROMISE(refusal.what()[0] != '\0');
        return 0;
    }
    PROMISE(parsed.version == "1.00" || parsed.version == "1.01");
    PROMISE(!parsed.success || (parsed.code == morvane::statusCode::OK && parsed.errorMessage.empty()));
    return 0;
}
