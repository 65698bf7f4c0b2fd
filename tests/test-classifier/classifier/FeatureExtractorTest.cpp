#include "classifier/FeatureExtractor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "classifier/ClassifierException.h"
#include "classifier/KeywordExtractor.h"

namespace halvern::classifier {

namespace {

using Tokens = std::vector<std::pair<std::string, std::uint32_t>>;

Tokens extracted(const FeatureExtractor& extractor, const std::string& text) {
    TokenCounts tokenCounts;
    extractor.extract(text, tokenCounts);
    Tokens tokens;
    for (const auto& [token, count] : tokenCounts) {
        tokens.emplace_back(token, count);
    }
    return tokens;
}

Tokens extracted(std::uint32_t version, const std::string& text) {
    return extracted(*makeFeatureExtractor(version), text);
}

// The rules once more, in the slowest and plainest form.
class Reference {
public:
    Tokens tokens;

    void words(const std::string& text, const std::string& delimiters, bool pairsAndPrefixes) {
        std::string previous;
        for (const std::string& run : split(text, delimiters)) {
            const std::string word = run.substr(0, 30);
            add(word);
            const std::string pair = (previous + " " + word).substr(0, 8);
            if (pairsAndPrefixes && !previous.empty() && previous.size() < 7 && pair.size() >= 5) {
                add(pair);
            }
            if (pairsAndPrefixes && word.size() > 6) {
                add(word.substr(0, 6));
            }
            previous = word;
        }
    }

    void groups(const std::string& text) {
        std::string normalised;
        for (const char byte : lower(text)) {
            const bool kept = (byte >= 'a' && byte <= 'z') || byte == '\'' || byte < 0;
            normalised += kept ? byte : ' ';
        }
        const auto bothSpaces = [](char a, char b) { return a == ' ' && b == ' '; };
        normalised.erase(std::unique(normalised.begin(), normalised.end(), bothSpaces), normalised.end());
        while (normalised.size() > 4) {
            add(normalised.substr(0, 4));
            normalised.erase(0, 1);
        }
    }

    void keywords(const std::string& text) {
        for (const std::string& run : split(text, " \n\r\t,.!?:;\"")) {
            if (std::none_of(run.begin(), run.end(), [](char byte) {
                    return std::string("&'<>").find(byte) != std::string::npos || (byte >= 0 && byte < 0x20);
                })) {
                add(run.substr(0, 30));
            }
        }
    }

    static std::string lower(std::string text) {
        for (char& byte : text) {
            byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + 32) : byte;
        }
        return text;
    }

private:
    static std::vector<std::string> split(const std::string& text, const std::string& delimiters) {
        std::vector<std::string> runs(1);
        for (const char byte : text) {
            if (delimiters.find(byte) != std::string::npos) {
                runs.emplace_back();
            } else {
                runs.back() += byte;
            }
        }
        std::erase(runs, "");
        return runs;
    }

    void add(const std::string& token) {
        const auto known = std::find_if(tokens.begin(), tokens.end(),
                                        [&](const auto& entry) { return entry.first == token; });
        if (known != tokens.end()) {
            ++known->second;
        } else {
            tokens.emplace_back(token, 1);
        }
    }
};

Tokens expected(std::uint32_t version, const std::string& text) {
    const std::string marks = " \t\n\r!()./";
    Reference reference;
    switch (version) {
        case 3:
            reference.words(text, " ", false);
            break;
        case 4:
            reference.words(Reference::lower(text), " \t\n\r", true);
            break;
        case 5:
            reference.words(Reference::lower(text), marks, true);
            break;
        case 6:
            reference.words(Reference::lower(text), marks, false);
            break;
        default:
            reference.groups(text);
            break;
    }
    return reference.tokens;
}

void compareAll(const std::string& text) {
    for (std::uint32_t version = 3; version <= 7; ++version) {
        ASSERT_EQ(extracted(version, text), expected(version, text))
            << "version " << version << " of " << text;
    }
    for (const bool lowerCase : {false, true}) {
        Reference reference;
        reference.keywords(lowerCase ? Reference::lower(text) : text);
        ASSERT_EQ(extracted(KeywordExtractor(30, lowerCase), text), reference.tokens)
            << "keywords of " << text;
    }
}

}  // namespace

TEST(FeatureExtractorTest, KnownTexts) {
    const std::string forty(40, 'w');
    const std::string thirty(30, 'w');
    const struct {
        std::uint32_t version;
        std::string text;
        Tokens tokens;
    } cases[] = {
        {3, "Word word", {{"Word", 1}, {"word", 1}}},
        {3, "a\tb c", {{"a\tb", 1}, {"c", 1}}},
        {5, "Word word", {{"word", 2}, {"word wor", 1}}},
        {5, "done. next/step", {{"done", 1}, {"next", 1}, {"done nex", 1}, {"step", 1}, {"next ste", 1}}},
        {4, "done. next/step", {{"done.", 1}, {"next/step", 1}, {"done. ne", 1}, {"next/s", 1}}},
        {5, forty + " x", {{thirty, 1}, {"wwwwww", 1}, {"x", 1}}},
        {6, forty + " x", {{thirty, 1}, {"x", 1}}},
        {5, "of classes", {{"of", 1}, {"classes", 1}, {"of class", 1}, {"classe", 1}}},
        {5, "a bee", {{"a", 1}, {"bee", 1}, {"a bee", 1}}},
        {5, "a be", {{"a", 1}, {"be", 1}}},
        {5, "sixsix on", {{"sixsix", 1}, {"on", 1}, {"sixsix o", 1}}},
        {5, "sevenxx on", {{"sevenxx", 1}, {"sevenx", 1}, {"on", 1}}},
        {5, "so,it:is;a-b? \"q\"", {{"so,it:is;a-b?", 1}, {"so,it:", 1}, {"\"q\"", 1}}},
        {5, "\xC3\x84Z \xC3\x84z", {{"\xC3\x84z", 2}, {"\xC3\x84z \xC3\x84z", 1}}},
        {7, "Ab-12 cd", {{"ab c", 1}}},
        {7, "(it's", {{" it'", 1}}},
        {7, "(x)", {}},
        {7, "abcd", {}},
        {7, "abcd.", {{"abcd", 1}}},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(extracted(row.version, row.text), row.tokens)
            << "version " << row.version << " of " << row.text;
    }
}

TEST(FeatureExtractorTest, EveryShortTextLikeThePlainRules) {
    const std::string alphabet = "Ab .\t'\xE9&";
    std::vector<std::string> texts = {""};
    for (std::size_t next = 0; next < texts.size(); ++next) {
        compareAll(texts[next]);
        ASSERT_FALSE(HasFatalFailure());
        if (texts[next].size() < 5) {
            for (const char byte : alphabet) {
                texts.push_back(texts[next] + byte);
            }
        }
    }
}

TEST(FeatureExtractorTest, RandomLongTextsLikeThePlainRules) {
    std::mt19937 random(20240607);
    for (int round = 0; round < 300; ++round) {
        std::string text;
        const unsigned gap = 2 + random() % 40;
        for (int i = 0; i < 400; ++i) {
            // Few letters make words that come back; all bytes make sure that no value is special by mistake.
            text += random() % gap == 0 ? static_cast<char>(random()) : "abCD"[random() % 4];
        }
        compareAll(text);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST(FeatureExtractorTest, OtherGenerationsAreRefused) {
    for (const std::uint32_t version : {0u, 2u, 8u, 4294967295u}) {
        try {
            makeFeatureExtractor(version);
            ADD_FAILURE() << version;
        } catch (const ClassifierException& exception) {
            EXPECT_EQ(exception.what(),
                      "Unrecognized data version for feature extractor " + std::to_string(version));
        }
    }
}

TEST(KeywordExtractorTest, KnownTexts) {
    const struct {
        std::string text;
        Tokens tokens;
    } cases[] = {
        {"rock&roll it's rock-roll", {{"rock-roll", 1}}},
        {"<b>bold</b> x\x01y \x7F", {{"\x7F", 1}}},
        {"One,two;ONE.\"(three)\"", {{"one", 2}, {"two", 1}, {"(three)", 1}}},
        {std::string(40, 'q'), {{std::string(30, 'q'), 1}}},
        {std::string("nul\0in", 6) + " ok", {{"ok", 1}}},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(extracted(KeywordExtractor(30, true), row.text), row.tokens) << row.text;
    }
}

}  // namespace halvern::classifier
