#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace halvern::morvane::client {

// Text as content or attribute of an HTML page, in valid UTF-8: markup is escaped, and bytes that are no
// UTF-8 and control characters become U+FFFD, so that nothing in a text can act on the page.
std::string escapeHtml(std::string_view text);

// The beginning of a text, at most so many bytes, cut between characters; what was cut off is told by an
// ellipsis.
std::string shorten(const std::string& text, std::size_t bytes);

std::string fixed(double number, int decimals);
// 0.1234 as "12.3 %". What isn't all or nothing never looks so: "> 99.9 %", "< 0.1 %". To be escaped.
std::string percent(double part);

}  // namespace halvern::morvane::client
