#include "server/systemtest/Api.h"

#include "util/Base64.h"

namespace halvern::morvane {

Api::Api(const std::string& version)
    : _head("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<morvane xmlns=\"" +
            std::string(REQUEST_NAMESPACE) + "\" version=\"" + version + "\">\n"),
      _tail("</morvane>") {}

void Api::addText(const std::string& id, const std::string& text) {
    std::string base64;
    util::Base64EncoderImpl().encode(util::Bytes(text.begin(), text.end()), base64);
    _texts += "<textBase64 id=\"" + id + "\">" + base64 + "</textBase64>\n";
}

std::string& Api::renderAround(std::string& out, const std::string& sequence) const {
    out = _head;
    if (!_texts.empty()) {
        out += "<texts>\n" + _texts + "</texts>\n";
    }
    return out += sequence + _tail;
}

void ReadCallsApi::addClassify(const std::string& id, const std::string& classifierName,
                               const std::string& textId) {
    _calls +=
        "<classify id=\"" + id + "\" classifierName=\"" + classifierName + "\" textId=\"" + textId + "\"/>\n";
}

std::string& ReadCallsApi::render(std::string& out) const {
    return renderAround(out, _calls.empty() ? "" : "<readCalls>\n" + _calls + "</readCalls>\n");
}

void WriteCallsApi::create(const std::string& id) { _calls += "<create id=\"" + id + "\"/>\n"; }

void WriteCallsApi::remove(const std::string& id) { _calls += "<remove id=\"" + id + "\"/>\n"; }

void WriteCallsApi::addClass(const std::string& id, const std::string& className) {
    _calls += "<addClass id=\"" + id + "\" className=\"" + className + "\"/>\n";
}

void WriteCallsApi::train(const std::string& id, const std::string& className, const std::string& textId) {
    _calls += "<train id=\"" + id + "\" className=\"" + className + "\" textId=\"" + textId + "\"/>\n";
}

std::string& WriteCallsApi::render(std::string& out) const {
    return renderAround(out, _calls.empty()
                                 ? ""
                                 : "<writeCalls classifierName=\"" + _classifierName + "\" maxSize=\"" +
                                       std::to_string(_maxSize) + "\">\n" + _calls + "</writeCalls>\n");
}

}  // namespace halvern::morvane
