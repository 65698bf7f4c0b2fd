#include "server/PlainRequest.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "debug/Assertion.h"
#include "server/ElementNames.h"
#include "util/Base64.h"
#include "windows/com/xml/PlainReader.h"

using windows::com::xml::PlainReader;
using windows::com::xml::PlainTag;

namespace halvern::morvane {

namespace {

constexpr std::size_t MAX_ID_LENGTH = 256;
constexpr std::size_t MAX_CLASS_NAME_LENGTH = 256;
constexpr std::size_t MAX_CLASSIFIER_NAME_LENGTH = 128;
constexpr std::size_t MAX_LIST_LENGTH = 100'000;  // texts, and calls of each kind

// Those of a text and of a call: <text id="1"/>, <create id="1"/>.
constexpr std::size_t MIN_TEXT_LENGTH = 14;
constexpr std::size_t MIN_CALL_LENGTH = 16;

// Far below where the parser has limits of its own.
constexpr std::size_t MAX_REQUEST_LENGTH = 500'000'000;

constexpr std::string_view NAMESPACE = "xmlns";
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

bool isPrintable(std::string_view value) {
    return std::all_of(value.begin(), value.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte >= 0x20 && byte != 0x7F;
    });
}

bool isId(std::string_view value) {
    return !value.empty() && value.size() <= MAX_ID_LENGTH && isPrintable(value);
}

bool isClassName(std::string_view value) {
    return value.size() <= MAX_CLASS_NAME_LENGTH && isPrintable(value);
}

bool isClassifierName(std::string_view value) {
    return !value.empty() && value.size() <= MAX_CLASSIFIER_NAME_LENGTH && value.front() != '.' &&
           value.find_first_of("\"*/:<>?\\|") == std::string_view::npos && isPrintable(value);
}

constexpr unsigned bit(std::uint8_t attribute) { return 1U << attribute; }

// In the order of PlainRequest::Element::Attribute.
constexpr struct {
    std::string_view name;
    bool (*isValid)(std::string_view value);
} ATTRIBUTE_RULES[] = {{elementNames::ID, &isId},
                       {elementNames::CLASSIFIER_NAME, &isClassifierName},
                       {elementNames::CLASS_NAME, &isClassName},
                       {elementNames::TEXT_ID, &isId},
                       {elementNames::MAX_SIZE, &isPrintable}};

// The place of its rule, or the number of rules for a name that has none.
std::size_t placeOf(std::string_view name) {
    const auto* const rule = std::find_if(std::begin(ATTRIBUTE_RULES), std::end(ATTRIBUTE_RULES),
                                          [name](const auto& each) { return each.name == name; });
    return static_cast<std::size_t>(rule - ATTRIBUTE_RULES);
}

// How many elements there can be in so many bytes. Room for all of them costs nothing where it isn't used,
// for memory is made as it is written to, and that costs more than to fill it.
std::size_t mostIn(std::size_t bytes, std::size_t leastLength) {
    return std::min(bytes / leastLength, MAX_LIST_LENGTH);
}

}  // namespace

struct PlainRequest::CallRule {
    std::string_view name;
    unsigned attributes;  // a bit for each; none can be missing
};

bool PlainRequest::Element::take(const PlainTag& tag, unsigned required, unsigned optional) {
    static_assert(std::size(ATTRIBUTE_RULES) == ATTRIBUTES);
    _name = tag.name;
    unsigned taken = 0;
    for (std::size_t i = 0; i < tag.attributeCount; ++i) {
        const PlainTag::Attribute& attribute = tag.attributes[i];
        const std::size_t place = placeOf(attribute.name);
        if (place == ATTRIBUTES || hasAttribute(attribute.name) ||
            !ATTRIBUTE_RULES[place].isValid(attribute.value)) {
            return false;
        }
        taken |= 1U << place;
        _values[place] = attribute.value;
    }
    return (taken & ~optional) == required;
}

std::string PlainRequest::Element::getAttribute(std::string_view name) const {
    CHECK(hasAttribute(name));
    return std::string(_values[placeOf(name)]);
}

bool PlainRequest::Element::hasAttribute(std::string_view name) const {
    const std::size_t place = placeOf(name);
    return place < ATTRIBUTES && _values[place].data() != nullptr;
}

util::Bytes PlainRequest::Element::getText() const {
    CHECK(_text != nullptr);
    const std::string_view content = _text->content;
    util::Bytes bytes;
    if (_text->isBase64) {
        util::Base64DecoderImpl().decode(content, bytes);
    } else {
        bytes.assign(content.begin(), content.end());
    }
    return bytes;
}

void PlainRequest::Sequence::forEachCall(
    const std::function<void(const RequestElement& call)>& action) const {
    for (const Element& call : calls) {
        action(call);
    }
}

std::unique_ptr<PlainRequest> PlainRequest::read(std::string_view bytes, std::string_view requestNamespace) {
    // As Document does.
    bytes = bytes.substr(0, bytes.find('\0'));
    if (bytes.starts_with(BYTE_ORDER_MARK)) {
        bytes.remove_prefix(BYTE_ORDER_MARK.size());
    }
    std::unique_ptr<PlainRequest> request(new PlainRequest());
    const bool isValid = bytes.size() <= MAX_REQUEST_LENGTH && request->readAll(bytes, requestNamespace) &&
                         request->resolveIds();
    return isValid ? std::move(request) : nullptr;
}

bool PlainRequest::readAll(std::string_view bytes, std::string_view requestNamespace) {
    PlainReader reader(bytes, _decoded);
    PlainTag tag;
    if (!reader.readDeclaration() || !reader.readTag(tag) || !readRoot(tag, requestNamespace) ||
        !reader.readTag(tag)) {
        return false;
    }
    if (tag.name == elementNames::TEXTS && tag.isOpening() && tag.attributeCount == 0) {
        if (!readTexts(reader) || !reader.readTag(tag)) {
            return false;
        }
    }
    while (tag.isOpening()) {
        const bool isRead = tag.name == elementNames::READ_CALLS;
        if (!isRead && tag.name != elementNames::WRITE_CALLS) {
            return false;
        }
        Sequence& sequence = isRead ? _readCalls : _writeCalls;
        const unsigned required = isRead ? 0 : bit(Element::CLASSIFIER_NAME);
        const unsigned optional = isRead ? 0 : bit(Element::MAX_SIZE);
        if (!sequence.calls.empty() || !sequence.element.take(tag, required, optional) ||
            !readCalls(reader, sequence) || !reader.readTag(tag)) {
            return false;
        }
    }
    const bool hasCalls = !_readCalls.calls.empty() || !_writeCalls.calls.empty();
    return hasCalls && tag.isEnd && tag.name == elementNames::MORVANE && reader.isAtEnd();
}

bool PlainRequest::readRoot(const PlainTag& tag, std::string_view requestNamespace) {
    if (tag.name != elementNames::MORVANE || !tag.isOpening() || tag.attributeCount != 2) {
        return false;
    }
    const bool isNamespaceFirst = tag.attributes[0].name == NAMESPACE;
    const auto& [nameOfNamespace, ns] = tag.attributes[isNamespaceFirst ? 0 : 1];
    const auto& [nameOfVersion, version] = tag.attributes[isNamespaceFirst ? 1 : 0];
    if (nameOfNamespace != NAMESPACE || ns != requestNamespace || nameOfVersion != elementNames::VERSION) {
        return false;
    }
    _version = version == "1.01" ? ResponseVersion{"1.01", 1.01} : ResponseVersion{"1.00", 1.0};
    return version == _version.text;
}

bool PlainRequest::readTexts(PlainReader& reader) {
    const std::size_t most = mostIn(reader.rest(), MIN_TEXT_LENGTH);
    _texts.reserve(most);
    _textIds.reserve(most);
    PlainTag tag;
    while (reader.readTag(tag)) {
        if (tag.isEnd) {
            return tag.name == elementNames::TEXTS && !_texts.empty();
        }
        Text text{{}, tag.name == elementNames::TEXT_BASE64};
        if ((!text.isBase64 && tag.name != elementNames::TEXT) || tag.attributeCount != 1 ||
            tag.attributes[0].name != elementNames::ID || !isId(tag.attributes[0].value) ||
            _texts.size() == MAX_LIST_LENGTH ||
            (!tag.closesItself && !reader.readText(tag.name, text.content))) {
            return false;
        }
        _texts.push_back(text);
        _textIds.add(tag.attributes[0].value);
    }
    return false;
}

bool PlainRequest::readCalls(PlainReader& reader, Sequence& sequence) {
    constexpr unsigned ID = bit(Element::ID);
    constexpr unsigned CLASSIFIER_NAME = bit(Element::CLASSIFIER_NAME);
    constexpr unsigned CLASS_NAME = bit(Element::CLASS_NAME);
    constexpr unsigned TEXT_ID = bit(Element::TEXT_ID);
    static constexpr CallRule READ_RULES[] = {
        {elementNames::CLASSIFY, ID | CLASSIFIER_NAME | TEXT_ID},
        {elementNames::CLASSIFY_KEYWORDS, ID | CLASSIFIER_NAME | TEXT_ID},
        {elementNames::GET_INFORMATION, ID | CLASSIFIER_NAME}};
    static constexpr CallRule WRITE_RULES[] = {{elementNames::TRAIN, ID | CLASS_NAME | TEXT_ID},
                                               {elementNames::UNTRAIN, ID | CLASS_NAME | TEXT_ID},
                                               {elementNames::ADD_CLASS, ID | CLASS_NAME},
                                               {elementNames::REMOVE_CLASS, ID | CLASS_NAME},
                                               {elementNames::CREATE, ID},
                                               {elementNames::REMOVE, ID}};
    const bool isRead = &sequence == &_readCalls;
    const CallRule* const begin = isRead ? std::begin(READ_RULES) : std::begin(WRITE_RULES);
    const CallRule* const end = isRead ? std::end(READ_RULES) : std::end(WRITE_RULES);
    const std::string sequenceName = sequence.element.getTagName();
    sequence.calls.reserve(mostIn(reader.rest(), MIN_CALL_LENGTH));
    PlainTag tag;
    while (reader.readTag(tag)) {
        if (tag.isEnd) {
            return tag.name == sequenceName && !sequence.calls.empty();
        }
        const auto* const rule =
            std::find_if(begin, end, [&tag](const CallRule& each) { return each.name == tag.name; });
        std::string_view content;
        if (rule == end || sequence.calls.size() == MAX_LIST_LENGTH ||
            !sequence.calls.emplace_back().take(tag, rule->attributes) ||
            (!tag.closesItself && (!reader.readText(tag.name, content) || !content.empty()))) {
            return false;
        }
    }
    return false;
}

// Every id stands for one text, or one call, and every text that a call names is there.
bool PlainRequest::resolveIds() {
    IdIndex callIds;
    callIds.reserve(_readCalls.calls.size() + _writeCalls.calls.size());
    if (!_textIds.complete()) {
        return false;
    }
    for (Sequence* const sequence : {&_readCalls, &_writeCalls}) {
        for (Element& call : sequence->calls) {
            callIds.add(call[Element::ID]);
            const std::string_view textId = call[Element::TEXT_ID];
            if (textId.data() == nullptr) {
                continue;
            }
            const std::size_t text = _textIds.find(textId);
            if (text == IdIndex::NOT_FOUND) {
                return false;
            }
            call.setText(_texts[text]);
        }
    }
    return callIds.complete();
}

}  // namespace halvern::morvane
