#pragma once

#include <map>
#include <string>

#include "util/Bytes.h"
#include "windows/com/xml/Element.h"

namespace halvern::morvane {

// The texts of one request, found by id.
//
// The first lookup makes an index of all of them, so that any number of calls costs one pass over the texts.
// The index is an ordered map: ids are the client's choice, and no choice makes a lookup slow. A text is
// decoded only when a call asks for it.
class RequestTexts {
public:
    // root is the request's root element, in a document that stays unchanged for as long as this object
    // lives.
    explicit RequestTexts(const windows::com::xml::Element& root);

    // The text that the attribute textId of the call names. Where several have that id, a plain text goes
    // before one in Base64, and then the first in document order. Throws the XMLException family for a
    // missing attribute or an unknown id, and InternalCallException for an element with a prefix.
    util::Bytes get(const windows::com::xml::Element& call);

private:
    struct Text {
        windows::com::xml::Element element;
        bool encoded;
    };

    void makeIndex();
    void addToIndex(const std::string& elements, bool encoded);
    Text find(const std::string& id);

    const windows::com::xml::Element _root;
    bool _indexed = false;
    std::map<std::string, Text> _texts;
};

}  // namespace halvern::morvane
