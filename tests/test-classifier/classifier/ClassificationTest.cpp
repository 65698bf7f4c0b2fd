#include "classifier/Classification.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace halvern::classifier {

namespace {

// What remains of words called a, b, c, ... that are offered with these probabilities, in the order of
// storage.
std::string kept(std::uint64_t limit, const std::vector<double>& probabilities) {
    static const char names[] = "abcdefgh";
    Keywords keywords(limit, 0.0);
    for (std::size_t i = 0; i < probabilities.size(); ++i) {
        keywords.offer(Keyword(names + i, 1, probabilities[i], 1, "class"));
    }
    std::string result;
    for (const Keyword& keyword : keywords) {
        result.append(keyword.token, keyword.length);
    }
    EXPECT_EQ(keywords.size(), result.size());
    return result;
}

}  // namespace

TEST(ClassificationTest, KeywordsKeepTheStrongestInHeapOrder) {
    EXPECT_EQ(kept(3, {}), "");
    EXPECT_EQ(kept(3, {0.9, 0.8, 0.7}), "cab");
    EXPECT_EQ(kept(3, {0.7, 0.8, 0.9}), "abc");
    EXPECT_EQ(kept(3, {0.9, 0.8, 0.7, 0.6}), "cab");
    EXPECT_EQ(kept(3, {0.9, 0.8, 0.7, 0.7}), "cab") << "of equals the first stays";
    EXPECT_EQ(kept(3, {0.9, 0.8, 0.7, 0.85}), "bad");
    EXPECT_EQ(kept(1, {0.1, 0.3, 0.2, 0.3}), "b");
}

TEST(ClassificationTest, ProbabilitiesStandInTheOrderOfUnsignedBytes) {
    Classification classification;
    EXPECT_EQ(classification.getTextCoverage(), -1.0);
    for (const char* name : {"\xC3\xA4", "b", "ab", "a", "B", "b"}) {
        classification.setProbability(name, 0.5);
    }
    std::string names;
    for (const auto& [name, probability] : classification.getProbabilities()) {
        names += name + " ";
    }
    EXPECT_EQ(names, "B a ab b \xC3\xA4 ");
}

}  // namespace halvern::classifier
