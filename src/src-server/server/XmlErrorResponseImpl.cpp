#include "server/XmlErrorResponseImpl.h"

#include <utility>

#include "server/ResponseText.h"

namespace halvern::morvane {
namespace {

// A parse error repeats the offending line of the request. The log keeps it; the client, who has the line and
// may have put a whole text into it, is spared it: everything from there to the system's own words goes.
std::string cleaned(const std::string& message) {
    std::string text = responseText(message);
    const std::size_t line = text.find("Error line");
    if (line == std::string::npos) {
        return text;
    }
    const std::size_t system = text.find("System error", line);
    if (system != std::string::npos) {
        text.erase(line, system - line);
    }
    return text;
}

}  // namespace

XmlErrorResponseImpl::XmlErrorResponseImpl(const std::string& responseNamespace, const std::string& version) {
    _header << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane xmlns=\"" << responseNamespace
            << "\" version=\"" << version << "\">\n\t<status success=\"false\" ";
    _footer << "\t</status>\n</morvane>";
}

std::string& XmlErrorResponseImpl::render(std::string& out, std::int32_t statusCode,
                                          const std::string& message) {
    util::StringStream<4096> document;
    document << _header.str() << "statusCode=\"" << statusCode << "\">" << cleaned(message) << _footer.str();
    out.assign(document.str(), document.size());
    return out;
}

XmlErrorResponseFactoryImpl::XmlErrorResponseFactoryImpl(std::string responseNamespace, std::string version)
    : _namespace(std::move(responseNamespace)), _version(std::move(version)) {}

std::unique_ptr<ErrorResponse> XmlErrorResponseFactoryImpl::create() const {
    return std::make_unique<XmlErrorResponseImpl>(_namespace, _version);
}

}  // namespace halvern::morvane
