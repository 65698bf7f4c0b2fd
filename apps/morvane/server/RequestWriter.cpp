#include "server/RequestWriter.h"

#include <algorithm>
#include <charconv>

#include "Failure.h"
#include "server/ElementNames.h"
#include "util/Base64.h"
#include "util/EscapeXml.h"
#include "util/Utf8.h"

namespace halvern::morvane::client {

namespace {

constexpr std::string_view HEAD =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
    "<morvane xmlns=\"http://morvane.example/1/server/RequestSchema\" version=\"1.01\">\n";
constexpr std::string_view TAIL = "</morvane>\n";

constexpr std::size_t LONGEST_CLASSIFIER_NAME = 128;
constexpr std::size_t LONGEST_CLASS_NAME = 256;
constexpr std::string_view NOT_IN_CLASSIFIER_NAMES = "/\\:*?\"<>|";
// The Base64 encoder counts in 31 bits.
constexpr std::size_t LONGEST_TEXT = 1'500'000'000;

bool hasControlCharacter(const std::string& name) {
    return std::any_of(name.begin(), name.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

void checkName(const char* kind, const std::string& name, std::size_t longest) {
    const auto refuse = [&](const std::string& why) {
        return Failure{ExitCode::USAGE, "'" + name + "' can't be the name of a " + kind + ": " + why};
    };
    if (name.empty()) {
        throw Failure{ExitCode::USAGE, std::string("The name of a ") + kind + " has at least one character."};
    }
    if (name.size() > longest) {
        throw refuse("it has " + std::to_string(name.size()) + " bytes, and " + std::to_string(longest) +
                     " is the most.");
    }
    if (hasControlCharacter(name)) {
        throw refuse("it holds a control character, such as a tab or a line end.");
    }
}

// For names that come to be: what isn't UTF-8, or no character of XML, comes back as another name.
void checkNewName(const char* kind, const std::string& name) {
    if (!util::isUtf8(name) || name.find("\xef\xbf\xbe") != std::string::npos ||
        name.find("\xef\xbf\xbf") != std::string::npos) {
        throw Failure{ExitCode::USAGE, "'" + name + "' can't be the name of a new " + kind +
                                           ": it isn't UTF-8, or holds what XML can't carry."};
    }
}

void checkCount(std::size_t count, const char* what) {
    if (count >= RequestWriter::MAX_ELEMENTS) {
        throw Failure{ExitCode::USAGE, std::string("One request holds at most 100000 ") + what + ".",
                      "Send them in several, or learn labelled texts with 'morvane import', which does so."};
    }
}

std::string attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + util::escapeXml(value) + "\"";
}

std::string withText(const std::string& shownAs) { return shownAs.empty() ? "" : " with " + shownAs; }

std::string ofText(const std::string& shownAs) { return shownAs.empty() ? "" : " for " + shownAs; }

}  // namespace

void checkClassifierName(const std::string& name) {
    checkName("classifier", name, LONGEST_CLASSIFIER_NAME);
    if (name.front() == '.' || name.find_first_of(NOT_IN_CLASSIFIER_NAMES) != std::string::npos) {
        throw Failure{
            ExitCode::USAGE, "'" + name + "' can't be the name of a classifier.",
            "It becomes the name of a file: none of / \\ : * ? \" < > | in it, and no dot in front."};
    }
}

void checkClassName(const std::string& name) { checkName("class", name, LONGEST_CLASS_NAME); }

RequestWriter::RequestWriter(const std::string& classifierToWrite) : _classifierToWrite(classifierToWrite) {
    if (!classifierToWrite.empty()) {
        checkClassifierName(classifierToWrite);
    }
}

std::string RequestWriter::addText(std::string_view text) {
    checkCount(_textCount, "texts");
    if (text.size() > LONGEST_TEXT) {
        throw Failure{ExitCode::USAGE,
                      "A text of " + std::to_string(text.size()) + " bytes is too long for a request."};
    }
    std::string base64;
    util::Base64EncoderImpl().encode(util::Bytes(text.begin(), text.end()), base64);
    std::string id = std::to_string(++_textCount);
    _texts += "<textBase64 id=\"" + id + "\">" + base64 + "</textBase64>\n";
    return id;
}

std::string RequestWriter::classify(const std::string& classifier, const std::string& textId,
                                    const std::string& shownAs) {
    return addRead(elementNames::CLASSIFY, classifier, textId,
                   "classify" + (shownAs.empty() ? "" : " " + shownAs));
}

std::string RequestWriter::classifyKeywords(const std::string& classifier, const std::string& textId,
                                            const std::string& shownAs) {
    return addRead(elementNames::CLASSIFY_KEYWORDS, classifier, textId, "keywords" + ofText(shownAs));
}

std::string RequestWriter::getInformation(const std::string& classifier) {
    return addRead(elementNames::GET_INFORMATION, classifier, "", "info " + classifier);
}

std::string RequestWriter::create() {
    checkNewName("classifier", _classifierToWrite);
    return addWrite(elementNames::CREATE, {}, "", "create " + _classifierToWrite);
}

std::string RequestWriter::remove() {
    return addWrite(elementNames::REMOVE, {}, "", "remove " + _classifierToWrite);
}

std::string RequestWriter::addClass(const std::string& className) {
    checkNewName("class", className);
    return addWrite(elementNames::ADD_CLASS, className, "", "add class " + className);
}

std::string RequestWriter::removeClass(const std::string& className) {
    return addWrite(elementNames::REMOVE_CLASS, className, "", "remove class " + className);
}

std::string RequestWriter::train(const std::string& className, const std::string& textId,
                                 const std::string& shownAs) {
    return addWrite(elementNames::TRAIN, className, textId, "train " + className + withText(shownAs));
}

std::string RequestWriter::untrain(const std::string& className, const std::string& textId,
                                   const std::string& shownAs) {
    return addWrite(elementNames::UNTRAIN, className, textId, "untrain " + className + withText(shownAs));
}

std::string RequestWriter::addRead(const char* call, const std::string& classifier, const std::string& textId,
                                   const std::string& description) {
    checkCount(_readCount, "calls that read");
    checkClassifierName(classifier);
    ++_readCount;
    std::string id = addCall(description);
    _reads += std::string("<") + call + attribute(elementNames::ID, id) +
              attribute(elementNames::CLASSIFIER_NAME, classifier) +
              (textId.empty() ? "" : attribute(elementNames::TEXT_ID, textId)) + "/>\n";
    return id;
}

std::string RequestWriter::addWrite(const char* call, const std::optional<std::string>& className,
                                    const std::string& textId, const std::string& description) {
    checkCount(_writeCount, "calls that write");
    checkClassifierName(_classifierToWrite);
    if (className) {
        checkClassName(*className);
    }
    ++_writeCount;
    std::string id = addCall(description);
    _writes += std::string("<") + call + attribute(elementNames::ID, id) +
               (className ? attribute(elementNames::CLASS_NAME, *className) : "") +
               (textId.empty() ? "" : attribute(elementNames::TEXT_ID, textId)) + "/>\n";
    return id;
}

std::string RequestWriter::addCall(const std::string& description) {
    _calls.push_back(description);
    return std::to_string(_calls.size());
}

std::string RequestWriter::document() const {
    std::string document;
    document.reserve(size());
    document += HEAD;
    if (!_texts.empty()) {
        document.append("<texts>\n").append(_texts).append("</texts>\n");
    }
    return document += tail();
}

std::string RequestWriter::tail() const {
    std::string tail;
    if (!_reads.empty()) {
        tail.append("<readCalls>\n").append(_reads).append("</readCalls>\n");
    }
    if (!_writes.empty()) {
        tail += "<writeCalls" + attribute(elementNames::CLASSIFIER_NAME, _classifierToWrite) +
                (_maxSize > 0 ? attribute(elementNames::MAX_SIZE, std::to_string(_maxSize)) : "") + ">\n";
        tail.append(_writes).append("</writeCalls>\n");
    }
    return tail += TAIL;
}

std::size_t RequestWriter::size() const {
    // What stands around the lists, whichever of them there are.
    constexpr std::size_t AROUND = 256;
    return HEAD.size() + _texts.size() + _reads.size() + _writes.size() + TAIL.size() + AROUND +
           6 * _classifierToWrite.size();
}

std::size_t RequestWriter::sizeOfTraining(std::string_view className, std::string_view text) {
    // Tags, attributes and ids; an id has at most six digits. An escaped character has at most six bytes.
    constexpr std::size_t AROUND = 128;
    return AROUND + 6 * className.size() + 4 * ((text.size() + 2) / 3);
}

std::string RequestWriter::describe(const std::string& callId) const {
    std::size_t place = 0;
    const char* end = callId.data() + callId.size();
    const auto result = std::from_chars(callId.data(), end, place);
    const bool isOurs = result.ec == std::errc() && result.ptr == end && place >= 1 && place <= _calls.size();
    return isOurs ? _calls[place - 1] : "";
}

}  // namespace halvern::morvane::client
