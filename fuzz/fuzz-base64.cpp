// Base64, both ways: any bytes come back from their encoding, any text decodes to something that encodes.
#include <cctype>
#include <string_view>

#include "Target.h"
#include "util/Base64.h"

namespace {

// Only the alphabet and the padding, whole groups, padding at the end alone.
bool isBase64(const std::string& text) {
    const std::size_t end = text.find_last_not_of('=') + 1;
    for (std::size_t i = 0; i < end; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 0x80 || (std::isalnum(byte) == 0 && byte != '+' && byte != '/')) {
            return false;
        }
    }
    return text.size() % 4 == 0 && text.size() - end <= 2;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const util::Base64EncoderImpl encoder;
    const util::Base64DecoderImpl decoder;

    const util::Bytes bytes = fuzz::bytesOf(data, size);
    std::string encoded;
    encoder.encode(bytes, encoded);
    PROMISE(encoded.size() == (size + 2) / 3 * 4);
    PROMISE(isBase64(encoded));
    util::Bytes back;
    decoder.decode(encoded, back);
    PROMISE(back == bytes);

    const std::string text = fuzz::textOf(data, size);
    util::Bytes decoded;
    decoder.decode(text, decoded);
    PROMISE(decoded.size() <= size * 3 / 4);
    // White space and line breaks between the characters change nothing.
    std::string spaced;
    for (const char character : text) {
        spaced += character;
        spaced += "\r\n";
    }
    if (text.find('\0') == std::string::npos) {
        util::Bytes same;
        decoder.decode(spaced, same);
        PROMISE(same == decoded);
    }
    std::string again;
    encoder.encode(decoded, again);
    util::Bytes decodedAgain;
    decoder.decode(again, decodedAgain);
    PROMISE(decodedAgain == decoded);
    return 0;
}
