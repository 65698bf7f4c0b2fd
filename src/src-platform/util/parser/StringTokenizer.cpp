#include "util/parser/StringTokenizer.h"

#include <algorithm>

#include "debug/Assertion.h"

namespace util::parser {

StringTokenizerImpl::StringTokenizerImpl(const std::string& text, const std::string& delimiters)
    : _text(text), _delimiters(delimiters), _position(_text.find_first_not_of(_delimiters)) {}

std::size_t StringTokenizerImpl::countTokens() const {
    std::size_t tokens = 0;
    for (std::size_t start = _position; start != std::string::npos; start = tokenBehind(start)) {
        ++tokens;
    }
    return tokens;
}

bool StringTokenizerImpl::hasMoreTokens() const { return _position != std::string::npos; }

void StringTokenizerImpl::nextToken(std::string& out) {
    CHECK(hasMoreTokens());
    out.assign(_text, _position, endOfToken(_position) - _position);
    _position = tokenBehind(_position);
}

std::string StringTokenizerImpl::nextToken() {
    std::string token;
    nextToken(token);
    return token;
}

std::string StringTokenizerImpl::peekToken(std::size_t tokensAheadOfNextToken) const {
    CHECK(countTokens() >= tokensAheadOfNextToken);
    std::size_t start = _position;
    for (std::size_t i = 0; i < tokensAheadOfNextToken; ++i) {
        start = tokenBehind(start);
    }
    // As many as there are leads just behind the last one.
    CHECK(start != std::string::npos);
    return _text.substr(start, endOfToken(start) - start);
}

std::size_t StringTokenizerImpl::endOfToken(std::size_t start) const {
    return std::min(_text.find_first_of(_delimiters, start), _text.size());
}

std::size_t StringTokenizerImpl::tokenBehind(std::size_t start) const {
    return _text.find_first_not_of(_delimiters, endOfToken(start));
}

}  // namespace util::parser
