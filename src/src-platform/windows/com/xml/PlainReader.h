#pragma once

#include <array>
#include <cstddef>
#include <list>
#include <string>
#include <string_view>

namespace windows::com::xml {

// A start tag or an end tag.
struct PlainTag {
    struct Attribute {
        std::string_view name;
        std::string_view value;
    };
    static constexpr std::size_t maxAttributes = 4;

    bool isOpening() const { return !isEnd && !closesItself; }

    bool isEnd;         // of the form </name>
    bool closesItself;  // of the form <name/>
    std::string_view name;
    std::array<Attribute, maxAttributes> attributes;
    std::size_t attributeCount;
};

// Reads documents of a plain form tag by tag, many times faster than the library reads any.
//
// The plain form is what programs write: elements whose names have no prefix, few attributes, texts, the five
// entities that XML itself has and numbers for characters up to U+00FF; no comments, no CDATA, no processing
// instructions. Every byte is one character, as in Document, and what is read is what the library would make
// of the same bytes. Each operation returns false where the source goes on in another form, sound or not;
// nothing follows from that but that this reader is of no use there.
//
// That each element ends with its own name, and that no attribute stands there twice, is left to the user of
// the reader, who knows which names to expect.
class PlainReader {
public:
    // source and decoded must outlive all that is read, which lies in them. decoded takes texts and values
    // whose characters are not those of the source.
    PlainReader(std::string_view source, std::list<std::string>& decoded)
        : _at(source.data()), _end(source.data() + source.size()), _decoded(decoded) {}

    // Passes over an XML declaration, if there is one.
    bool readDeclaration();

    // Reads the next tag, which has nothing but blanks before it.
    bool readTag(PlainTag& tag);

    // Reads the text up to the next tag, which has to be the end tag of this name, and that tag.
    bool readText(std::string_view name, std::string_view& text);

    // The number of bytes that have not been read.
    std::size_t rest() const { return static_cast<std::size_t>(_end - _at); }

    // True if nothing but blanks follows.
    bool isAtEnd();

private:
    bool skip(std::string_view expected);
    bool skipBlanks();
    std::string_view readName();
    bool readAttribute(PlainTag::Attribute& attribute);
    // The value stays as it stands in the source.
    bool readSource(PlainTag::Attribute& attribute);
    bool decode(std::string_view source, std::string_view& text);

    const char* _at;
    const char* const _end;
    std::list<std::string>& _decoded;
};

}  // namespace windows::com::xml
