#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "server/IdIndex.h"
#include "server/Request.h"

namespace windows::com::xml {
class PlainReader;
struct PlainTag;
}  // namespace windows::com::xml

namespace halvern::morvane {

// A request in the form in which programs write one, read and validated without a document.
//
// It knows the rules of the request schema by heart and takes only what surely keeps them: everything else,
// sound or not, is left to the document, the schema and their words. So it is never more than a faster way to
// the same result.
class PlainRequest final : public Request {
public:
    // The fingerprint (SchemaCache) of the schema whose rules these are. Where another one is in use, no
    // request may be read here. To change the schema means to change the rules in here as well.
    static constexpr std::uint64_t SCHEMA = 0xB77C6A3BED6085D2U;

    // Null if the bytes aren't surely a valid request. They must outlive the request.
    static std::unique_ptr<PlainRequest> read(std::string_view bytes, std::string_view requestNamespace);

    ResponseVersion getVersion() const override { return _version; }
    const RequestSequence* getReadCalls() const override { return _readCalls.orNull(); }
    const RequestSequence* getWriteCalls() const override { return _writeCalls.orNull(); }

private:
    struct Text {
        std::string_view content;
        bool isBase64;
    };

    class Element final : public RequestElement {
    public:
        enum Attribute : std::uint8_t { ID, CLASSIFIER_NAME, CLASS_NAME, TEXT_ID, MAX_SIZE, ATTRIBUTES };

        // Takes the name and the attributes of a tag. False if a value isn't allowed for its attribute, or if
        // the attributes aren't those of required and perhaps some of optional, each a set of bits.
        bool take(const windows::com::xml::PlainTag& tag, unsigned required, unsigned optional = 0);

        std::string getAttribute(std::string_view name) const override;
        bool hasAttribute(std::string_view name) const override;
        std::string getTagName() const override { return std::string(_name); }
        util::Bytes getText() const override;

        std::string_view operator[](Attribute attribute) const { return _values[attribute]; }
        void setText(const Text& text) { _text = &text; }

    private:
        std::string_view _name;
        std::array<std::string_view, ATTRIBUTES> _values;  // those that are missing have no data
        const Text* _text = nullptr;
    };

    class Sequence final : public RequestSequence {
    public:
        const RequestElement& getElement() const override { return element; }
        void forEachCall(const std::function<void(const RequestElement& call)>& action) const override;
        const RequestSequence* orNull() const { return calls.empty() ? nullptr : this; }

        Element element;
        std::vector<Element> calls;  // never empty in a valid request
    };

    struct CallRule;

    bool readAll(std::string_view bytes, std::string_view requestNamespace);
    bool readRoot(const windows::com::xml::PlainTag& tag, std::string_view requestNamespace);
    bool readTexts(windows::com::xml::PlainReader& reader);
    bool readCalls(windows::com::xml::PlainReader& reader, Sequence& sequence);
    bool resolveIds();

    std::list<std::string> _decoded;
    ResponseVersion _version{};
    std::vector<Text> _texts;
    IdIndex _textIds;  // at the places of _texts
    Sequence _readCalls;
    Sequence _writeCalls;
};

}  // namespace halvern::morvane
