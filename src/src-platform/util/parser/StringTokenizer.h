#pragma once

#include <cstddef>
#include <string>

namespace util::parser {

// Walks through the tokens of a text: the longest runs of bytes that hold no delimiter.
class StringTokenizer {
public:
    // The number of tokens still to come.
    virtual std::size_t countTokens() const = 0;
    virtual bool hasMoreTokens() const = 0;

    // Gives the next token and moves behind it. Requires hasMoreTokens().
    virtual void nextToken(std::string& out) = 0;
    virtual std::string nextToken() = 0;

    // The token that many places behind the next one, without moving. Requires that there are more than that
    // many tokens to come.
    virtual std::string peekToken(std::size_t tokensAheadOfNextToken) const = 0;

    virtual ~StringTokenizer() = default;
};

class StringTokenizerImpl final : public StringTokenizer {
public:
    StringTokenizerImpl(const std::string& text, const std::string& delimiters);

    std::size_t countTokens() const override;
    bool hasMoreTokens() const override;
    void nextToken(std::string& out) override;
    std::string nextToken() override;
    std::string peekToken(std::size_t tokensAheadOfNextToken) const override;

private:
    std::size_t endOfToken(std::size_t start) const;
    std::size_t tokenBehind(std::size_t start) const;

    const std::string _text;
    const std::string _delimiters;
    std::size_t _position;  // where the next token starts; npos if there is none
};

}  // namespace util::parser
