#pragma once

#include <string>
#include <string_view>

namespace halvern::morvane {

// The form in which bytes from outside (names, ids, keyword tokens, messages) stand in a response: escaped,
// valid UTF-8 and nothing but characters of XML 1.0, whatever the bytes are.
// - Valid UTF-8 (RFC 3629) passes unchanged.
// - A byte that belongs to no valid sequence is taken as the ISO-8859-1 character of that number, so that a
//   Latin-1 text, or a token cut in the middle of a character, stays readable and never breaks a client's
//   parser.
// - A character that XML 1.0 forbids (production [2] Char), zero included, becomes U+FFFD.
std::string responseText(std::string_view text);

}  // namespace halvern::morvane
