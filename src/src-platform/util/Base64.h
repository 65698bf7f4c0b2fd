#pragma once

#include <string>
#include <string_view>

#include "util/Bytes.h"

namespace util {

// Base64 as in RFC 4648: the standard alphabet, padded with '=', in one line whatever the length.
class Base64Encoder {
public:
    virtual ~Base64Encoder() = default;

    // Replaces out by the encoded bytes; without bytes, out stays as it was. Throws ConverterException if the
    // bytes or their encoding are longer than 2147483647.
    virtual void encode(const Bytes& bytes, std::string& out) const = 0;
};

// The reverse, which never refuses a text: what is not in the alphabet is skipped.
class Base64Decoder {
public:
    virtual ~Base64Decoder() = default;

    // Replaces out by the decoded bytes; an empty text leaves out as it was. A zero byte in front of a group
    // of four characters ends the text; in an unfinished last group, only whole bytes count. Throws
    // ConverterException for a text longer than 2147483647.
    virtual void decode(std::string_view text, Bytes& out) const = 0;
};

class Base64EncoderImpl final : public Base64Encoder {
public:
    void encode(const Bytes& bytes, std::string& out) const override;
};

class Base64DecoderImpl final : public Base64Decoder {
public:
    void decode(std::string_view text, Bytes& out) const override;
};

}  // namespace util
