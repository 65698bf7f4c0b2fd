#include "server/XmlResponseImpl.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "classifier/Classification.h"
#include "debug/Assertion.h"
#include "server/GeneralNumber.h"
#include "server/ResponseText.h"

namespace halvern::morvane {
namespace {

// A number in a stream.
struct GeneralNumber {
    double value;
};

template <std::size_t Size>
util::StringStream<Size>& operator<<(util::StringStream<Size>& stream, GeneralNumber number) {
    return stream.append(MAX_GENERAL_NUMBER,
                         [number](char* to) { return writeGeneralNumber(to, number.value); });
}

// Behind the number of a class.
constexpr std::string_view LINE_END = "\"/>\n";

// The bytes of a keyword up to its first zero byte.
std::string_view tokenOf(const classifier::Keyword& keyword) {
    const std::string_view token(keyword.token, keyword.length);
    return token.substr(0, token.find('\0'));
}

template <std::size_t Size>
void append(std::string& out, const util::StringStream<Size>& stream) {
    out.append(stream.str(), stream.size());
}

}  // namespace

XmlResponseImpl::XmlResponseImpl(const std::string& responseNamespace, const ResponseVersion& version)
    : _version(version) {
    _header << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane xmlns=\"" << responseNamespace
            << "\" version=\"" << _version.text << "\">\n";
    _footer << "</morvane>";
}

// All calls write straight into the response: what one has written when memory runs out is never rendered.
void XmlResponseImpl::classify(const std::string& id, const classifier::Classification& classification) {
    CHECK(!classification.getProbabilities().empty());
    _readCalls << "\t<classify id=\"" << responseText(id) << "\">\n";
    // Clients of version 1.00 were written before there was a coverage and validate what they get.
    if (_version.number > 1.0) {
        _readCalls << "\t\t<classification textCoverage=\"" << GeneralNumber{classification.getTextCoverage()}
                   << "\">\n";
    } else {
        _readCalls << "\t\t<classification>\n";
    }
    writeClasses(classification);
    _readCalls << "\t\t</classification>\n\t</classify>\n";
}

void XmlResponseImpl::classifyKeywords(const std::string& id, const classifier::Keywords& keywords) {
    _readCalls << "\t<classifyKeywords id=\"" << responseText(id) << "\">\n\t\t<keywords>\n";
    for (const classifier::Keyword& keyword : keywords) {
        _readCalls << "\t\t\t<keyword className=\"" << responseText(keyword.className) << "\" p=\""
                   << GeneralNumber{keyword.probability} << "\">" << responseText(tokenOf(keyword))
                   << "</keyword>\n";
    }
    _readCalls << "\t\t</keywords>\n\t</classifyKeywords>\n";
}

// Names are escaped and put between what surrounds them once for all answers of a classifier, not once for
// each of them: with many classes that is most of what an answer costs.
void XmlResponseImpl::writeClasses(const classifier::Classification& classification) {
    const classifier::Classification::Probabilities& probabilities = classification.getProbabilities();
    if (_lines.names != probabilities.names()) {
        makeLines(probabilities.names());
    }
    _readCalls.append(_lines.most, [&](char* to) {
        const char* from = _lines.text.data();
        for (const ClassLines::Line& line : _lines.lines) {
            to = std::copy_n(from, line.length, to);
            from += line.length;
            to = writeGeneralNumber(to, probabilities[line.index]);
            to = std::copy_n(LINE_END.data(), LINE_END.size(), to);
        }
        return to;
    });
}

void XmlResponseImpl::makeLines(const std::shared_ptr<const classifier::ClassNames>& names) {
    ClassLines made;
    made.lines.reserve(names->size());
    for (std::size_t i = 0; i < names->size(); ++i) {
        const std::size_t index = names->inOrder(i);
        const std::size_t before = made.text.size();
        made.text.append("\t\t\t<class className=\"").append(responseText((*names)[index])).append("\" p=\"");
        made.lines.push_back({index, made.text.size() - before});
    }
    made.most = made.text.size() + names->size() * (MAX_GENERAL_NUMBER + LINE_END.size());
    made.names = names;
    _lines = std::move(made);
}

// This call has always stood one tab deeper than the other two.
void XmlResponseImpl::getInformation(const std::string& id,
                                     const std::vector<classifier::ClassInformation>& classes) {
    _readCalls << "\t\t<getInformation id=\"" << responseText(id) << "\">\n\t\t\t<classes>\n";
    for (const classifier::ClassInformation& information : classes) {
        _readCalls << "\t\t\t\t<classInformation className=\"" << responseText(information.name)
                   << "\">\n\t\t\t\t\t<uniqueFeatures>" << information.uniqueFeatures
                   << "</uniqueFeatures>\n\t\t\t\t\t<totalCount>" << information.totalCount
                   << "</totalCount>\n\t\t\t\t</classInformation>\n";
    }
    _readCalls << "\t\t\t</classes>\n\t\t</getInformation>\n";
}

void XmlResponseImpl::create(const std::string& id) { writeCall("create", id); }

void XmlResponseImpl::remove(const std::string& id) { writeCall("remove", id); }

void XmlResponseImpl::addClass(const std::string& id) { writeCall("addClass", id); }

void XmlResponseImpl::removeClass(const std::string& id) { writeCall("removeClass", id); }

void XmlResponseImpl::train(const std::string& id) { writeCall("train", id); }

void XmlResponseImpl::untrain(const std::string& id) { writeCall("untrain", id); }

void XmlResponseImpl::writeCall(const char* method, const std::string& id) {
    _writeCalls << "\t\t<" << method << " id=\"" << responseText(id) << "\"/>\n";
}

std::string& XmlResponseImpl::render(std::string& out) {
    // More than all lines around the calls; growing for the last of them would copy the whole once more.
    constexpr std::size_t LINES_AROUND = 512;
    out.clear();
    out.reserve(_header.size() + _readCalls.size() + _writeCalls.size() + LINES_AROUND);
    append(out, _header);
    if (_readCalls.size() == 0 && _writeCalls.size() == 0) {
        out +=
            "\t<status success=\"false\" statusCode=\"5000\">No calls were found in the response.</status>\n";
    } else {
        out += "\t<status success=\"true\" statusCode=\"2000\"/>\n";
    }
    if (_readCalls.size() != 0) {
        out += "\t<readCalls>\n";
        append(out, _readCalls);
        out += "\t</readCalls>\n";
    }
    if (_writeCalls.size() != 0) {
        out += "\t<writeCalls>\n";
        append(out, _writeCalls);
        out += "\t</writeCalls>\n";
    }
    append(out, _footer);
    return out;
}

void XmlResponseImpl::clear() {
    _readCalls.clear();
    _writeCalls.clear();
}

XmlResponseFactoryImpl::XmlResponseFactoryImpl(std::string responseNamespace)
    : _namespace(std::move(responseNamespace)) {}

std::unique_ptr<Response> XmlResponseFactoryImpl::create(const ResponseVersion& version) const {
    return std::make_unique<XmlResponseImpl>(_namespace, version);
}

}  // namespace halvern::morvane
