#include "classifier/ClassifierImpl.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "classifier/ClassifierException.h"
#include "classifier/KeywordExtractor.h"
#include "support/FailedCheck.h"
#include "support/RecordingCallback.h"
#include "support/StoredClassifier.h"

namespace halvern::classifier {

namespace {

using support::StoredClassifier;

std::string messageOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const ClassifierException& exception) {
        return exception.what();
    }
    return "";
}

std::unique_ptr<ClassifierImpl> classifierOf(const StoredClassifier& stored) {
    auto classifier = std::make_unique<ClassifierImpl>(nullptr, 0.05);
    classifier->setTrainingData(stored.bytes());
    return classifier;
}

util::Bytes bytesOf(const Classifier& classifier) {
    util::Bytes bytes;
    classifier.getTrainingData(bytes);
    return bytes;
}

// "name unique/total" for each class.
std::string informationOf(const Classifier& classifier) {
    std::string text;
    for (const ClassInformation& entry : classifier.getInformation()) {
        text += entry.name + " " + std::to_string(entry.uniqueFeatures) + "/" +
                std::to_string(entry.totalCount) + " ";
    }
    return text;
}

void trainAndCompact(Classifier& classifier, const std::string& className, const std::string& text) {
    classifier.train(className, text);
    classifier.compact();
}

}  // namespace

TEST(ClassifierImplTest, TrainsWhatTheExtractorMakesAndTakesItOutAgain) {
    ClassifierImpl classifier(nullptr, 0.05);
    classifier.addClass("a");
    classifier.addClass("A");
    trainAndCompact(classifier, "a", "Word word other");
    // word twice, other, "word wor" and "word oth"
    EXPECT_EQ(informationOf(classifier), "a 4/5 A 0/0 ");
    classifier.untrain("A", "word");
    classifier.untrain("a", "stranger");
    EXPECT_EQ(informationOf(classifier), "a 4/5 A 0/0 ");
    classifier.untrain("a", "other word word word");
    classifier.compact();
    EXPECT_EQ(informationOf(classifier), "a 1/1 A 0/0 ") << "only the pair of word and other is left";
    classifier.removeClass("a");
    EXPECT_EQ(informationOf(classifier), "A 0/0 ");
    EXPECT_FALSE(classifier.classExists("a"));
}

TEST(ClassifierImplTest, MistakesOfCallersAreTold) {
    ClassifierImpl classifier(nullptr, 0.05);
    Classification classification;
    Keywords keywords(30, 0.0);
    const auto train = [&](const char* name, const char* text) { classifier.train(name, text); };
    const auto untrain = [&](const char* name, const char* text) { classifier.untrain(name, text); };
    const std::string noClasses = "Trying to classify a text before any classes have been added!";
    const struct {
        std::string message;
        std::function<void()> call;
    } cases[] = {
        {"When training the classifier the class name must at least have one character.",
         [&] { train("", ""); }},
        {"When untraining the classifier the class name must at least have one character.",
         [&] { untrain("", ""); }},
        {"", [&] { train("x", " . "); }},
        {"", [&] { untrain("x", ""); }},
        {"Trying to train on a class that doesn't exist. Class name 'x'.", [&] { train("x", "a"); }},
        {"Trying to untrain on a class that doesn't exist. Class name 'x'.", [&] { untrain("x", "a"); }},
        {noClasses, [&] { classifier.classify("", classification); }},
        {noClasses, [&] { classifier.classifyKeywords("a", keywords); }},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(messageOf(row.call), row.message);
    }
    EXPECT_TRUE(classification.getProbabilities().empty());
    EXPECT_EQ(classification.getTextCoverage(), -1.0);
}

TEST(ClassifierImplTest, CloneAndSwapKeepTwoClassifiersApart) {
    ClassifierImpl classifier(nullptr, 0.05);
    classifier.addClass("a");
    trainAndCompact(classifier, "a", "one two");
    const util::Bytes before = bytesOf(classifier);

    const std::unique_ptr<Classifier> copy = classifier.clone();
    EXPECT_EQ(bytesOf(*copy), before);
    trainAndCompact(*copy, "a", "one three");
    copy->addClass("b");
    const util::Bytes changed = bytesOf(*copy);
    EXPECT_EQ(bytesOf(classifier), before);

    const auto old = classifierOf({.extractorVersion = 3, .smoothing = 0.7});
    const util::Bytes oldBytes = bytesOf(*old);
    old->swap(*copy);
    EXPECT_EQ(bytesOf(*old), changed);
    EXPECT_EQ(bytesOf(*copy), oldBytes);
    copy->addClass("c");
    trainAndCompact(*copy, "c", "Word word");
    EXPECT_EQ(informationOf(*copy), "c 2/2 ") << "the extractor came along";
    const std::unique_ptr<Classifier> oldCopy = copy->clone();
    trainAndCompact(*oldCopy, "c", "WORD");
    EXPECT_EQ(informationOf(*oldCopy), "c 3/3 ") << "a copy has its original's extractor";
}

// A class may hold 4,294,967,295 occurrences, and so may a feature; stored totals are taken on trust and may
// be less.
TEST(ClassifierImplTest, TrainingPastTheGreatestCountChangesNothing) {
    const struct {
        std::uint32_t classCount, classUnique, recordCount;
        std::string text;
        std::string message;  // its beginning; empty if the text fits
    } cases[] = {
        {4294967290, 1, 4294967290, "b b b b b", ""},
        {4294967290, 1, 4294967290, "a c b b b b", "Trying to train the class 'k' beyond a total count"},
        {1, 4294967293, 1, "a c", ""},
        {1, 4294967293, 1, "a c d", "Trying to train the class 'k' beyond a total count"},
        {1, 1, 4294967294, "a b c", ""},
        {1, 1, 4294967294, "a b c b", "Trying to train a feature into a class more than"},
    };
    for (const auto& row : cases) {
        const auto classifier =
            classifierOf({.extractorVersion = 3,
                          .classes = {{"j", 0, 3, 1}, {"k", 1, row.classCount, row.classUnique}},
                          .records = {{"b", 0, 3}, {"b", 1, row.recordCount}}});
        const util::Bytes before = bytesOf(*classifier);
        const std::string message = messageOf([&] { classifier->train("k", row.text); });
        EXPECT_EQ(message.substr(0, row.message.size()), row.message) << message;
        EXPECT_EQ(message.empty(), row.message.empty());
        classifier->compact();
        EXPECT_EQ(bytesOf(*classifier) == before, !row.message.empty()) << row.text;
    }
}

TEST(ClassifierScoringTest, WorkedExamples) {
    const StoredClassifier two{.extractorVersion = 3,
                               .classes = {{"a", 0, 9, 2}, {"b", 1, 4, 1}},
                               .records = {{"x", 0, 3}, {"y", 0, 1}, {"y", 1, 2}}};
    StoredClassifier three = two;
    three.classes.push_back({"c", 2, 6, 1});
    three.records.push_back({"y", 2, 1});
    StoredClassifier one = two;
    one.classes.pop_back();
    one.records.pop_back();
    const struct {
        const StoredClassifier& stored;
        std::string text;
        double coverage;
        std::vector<double> probabilities;
    } cases[] = {
        {two, "x x y z", 0.666667, {0.997727, 0.00227257}},
        {three, "x x y z", 0.666667, {0.991044, 0.00608163, 0.00287454}},
        {two, "x z x y x y z x", 0.666667, {0.997727, 0.00227257}},
        {two, "z X", 0.0, {0.5, 0.5}},
        {three, "", 0.0, {1.0 / 3, 1.0 / 3, 1.0 / 3}},
        {one, "y z", 0.5, {1.0}},
        {one, "", 0.0, {1.0}},
    };
    for (const auto& row : cases) {
        Classification classification;
        classifierOf(row.stored)->classify(row.text, classification);
        EXPECT_NEAR(classification.getTextCoverage(), row.coverage, 5e-7) << row.text;
        ASSERT_EQ(classification.getProbabilities().size(), row.probabilities.size());
        std::size_t i = 0;
        for (const auto& [name, probability] : classification.getProbabilities()) {
            EXPECT_NEAR(probability, row.probabilities[i], row.probabilities[i] * 2e-6)
                << row.text << ", " << name;
            ++i;
        }
    }
}

namespace {

// The same classifier as counts in maps, scored in long double in the plainest way.
class Model {
public:
    void train(const std::string& className, const std::string& text, int direction) {
        for (const auto& [token, count] : tokensOf(text)) {
            std::int64_t& held = _counts[className][token];
            held = std::max<std::int64_t>(0, held + direction * static_cast<std::int64_t>(count));
        }
    }

    std::map<std::string, long double> classify(const std::string& text, long double& coverage) {
        const auto classes = static_cast<long double>(_counts.size());
        std::map<std::string, long double> sizes, scores;
        long double sum = 0, largest = 0, largestOther = 0, squares = 0, known = 0;
        for (const auto& [name, counts] : _counts) {
            sizes[name] = 1;
            for (const auto& [token, count] : counts) {
                sizes[name] += count;
            }
            sum += sizes[name];
            largest = std::max(largest, sizes[name]);
        }
        for (const auto& [name, size] : sizes) {
            largestOther = std::max(largestOther, sum - size + 1);
        }
        const auto tokens = tokensOf(text);
        for (const auto& [token, times] : tokens) {
            long double holders = 0, total = 0;
            for (auto& [name, counts] : _counts) {
                holders += counts[token] > 0 ? 1 : 0;
                total += counts[token];
            }
            if (holders == 0) {
                continue;
            }
            ++known;
            const long double weight = classes > 2 ? std::log(classes / holders) + 1 : 1;
            for (auto& [name, counts] : _counts) {
                const long double boosted = largest / sizes[name] * counts[token];
                const long double others = largestOther / (sum - sizes[name] + 1) * (total - counts[token]);
                const long double value =
                    classes == 2 ? boosted + 0.05L
                                 : std::pow(boosted * weight + 0.05L, 0.05L) / (others * weight + 0.6L);
                scores[name] += std::log(value) * times;
                squares += static_cast<long double>(times) * times;
            }
        }
        coverage = tokens.empty() ? 0 : known / tokens.size();
        // Without the shift by the greatest score: in long double nothing overflows here.
        long double all = 0;
        for (const auto& [name, size] : sizes) {
            scores[name] = std::exp(scores[name] / (squares > 0 ? std::sqrt(squares) : 1) * classes * 1.4L);
            all += scores[name];
        }
        for (auto& [name, score] : scores) {
            score /= all;
        }
        return scores;
    }

    void addClass(const std::string& className) { _counts[className]; }

private:
    static std::map<std::string, std::uint32_t> tokensOf(const std::string& text) {
        TokenCounts tokenCounts;
        FeatureExtractorV5().extract(text, tokenCounts);
        std::map<std::string, std::uint32_t> tokens;
        for (const auto& [token, count] : tokenCounts) {
            tokens.emplace(token, count);
        }
        return tokens;
    }

    std::map<std::string, std::map<std::string, std::int64_t>> _counts;
};

std::string randomText(std::mt19937& random, unsigned words) {
    std::string text;
    for (unsigned i = random() % (words + 1); i > 0; --i) {
        // Early words of the vocabulary are much more frequent than late ones, as in a language.
        const unsigned word = static_cast<unsigned>(std::pow(2.0, (random() % 700) / 100.0));
        text.append("w").append(word % 8, 'o').append(std::to_string(word));
        text += random() % 5 == 0 ? ". " : " ";
    }
    return text;
}

}  // namespace

TEST(ClassifierScoringTest, RandomClassifiersScoreLikeThePlainFormula) {
    std::mt19937 random(42);
    for (unsigned classes = 1; classes <= 9; ++classes) {
        ClassifierImpl classifier(nullptr, 0.05);
        Model model;
        for (unsigned i = 0; i < classes; ++i) {
            classifier.addClass("class" + std::to_string(i));
            model.addClass("class" + std::to_string(i));
        }
        for (int round = 0; round < 60; ++round) {
            const std::string name = "class" + std::to_string(random() % classes);
            const std::string text = randomText(random, 40);
            if (random() % 4 != 0) {
                classifier.train(name, text);
                model.train(name, text, 1);
            } else {
                classifier.untrain(name, text);
                model.train(name, text, -1);
            }
            if (round % 3 != 0) {
                continue;
            }
            classifier.compact();
            const std::string unseen = randomText(random, 60);
            Classification classification;
            classifier.classify(unseen, classification);
            long double coverage = 0;
            const auto expected = model.classify(unseen, coverage);
            ASSERT_NEAR(classification.getTextCoverage(), static_cast<double>(coverage), 1e-15);
            ASSERT_EQ(classification.getProbabilities().size(), expected.size());
            for (const auto& [name, probability] : expected) {
                ASSERT_NEAR(classification.getProbabilities().at(name), static_cast<double>(probability),
                            static_cast<double>(probability) * 1e-11)
                    << classes << " classes, round " << round << ", " << name << " of " << unseen;
            }
        }
    }
}

TEST(ClassifierScoringTest, SmoothingThatMakesNoSenseIsReportedAndAnswered) {
    const std::string source = "|classifier/ClassifierImpl";
    const std::string behind = "One of the normalized probabilities are not valid." + source;
    const struct {
        double smoothing;
        std::vector<std::string> reports;  // for each of the two classes
    } cases[] = {
        {0.0, {}},
        {std::nan(""),
         {"ClassifierImpl failure|A probability is not fininte. " + behind,
          "ClassifierImpl failure|A probability is not a number. " + behind,
          "ClassifierImpl failure|A probability is not between 0 and 1 inclusive. " + behind}},
    };
    for (const auto& row : cases) {
        support::RecordingCallbackFactory callbacks;
        ClassifierImpl classifier(&callbacks, 0.05);
        classifier.setTrainingData(StoredClassifier{
            .smoothing = row.smoothing,
            .classes = {{"a", 0, 1, 1}, {"b", 1, 1, 1}},
            .records = {{"x", 0, 1},
                        {"y", 1, 1}}}.bytes());
        Classification classification;
        classifier.clone()->classify("x y", classification);
        std::vector<std::string> expected = row.reports;
        expected.insert(expected.end(), row.reports.begin(), row.reports.end());
        EXPECT_EQ(callbacks.reports, expected) << row.smoothing;
        ASSERT_EQ(classification.getProbabilities().size(), 2u);
        if (row.reports.empty()) {
            EXPECT_EQ(classification.getProbabilities().at("a"), 0.5)
                << "no class can be told from the other";
        }
    }
}

namespace {

// "token:class:share:count" for each keyword.
std::vector<std::string> keywordsOf(const Classifier& classifier, const std::string& text, double minimum,
                                    std::uint64_t limit = 30) {
    Keywords keywords(limit, minimum);
    classifier.classifyKeywords(text, keywords);
    std::vector<std::string> result;
    for (const Keyword& keyword : keywords) {
        char share[16];
        std::snprintf(share, sizeof(share), "%.3f", keyword.probability);
        result.push_back(std::string(keyword.token, keyword.length) + ":" + keyword.className + ":" + share +
                         ":" + std::to_string(keyword.count));
    }
    return result;
}

}  // namespace

TEST(ClassifierKeywordsTest, ShareDecidesStrictlyAndTheFirstClassWinsTies) {
    using Result = std::vector<std::string>;
    // Equal class sizes and no smoothing, so that the shares are the shares of the counts.
    StoredClassifier stored{.smoothing = 0.0,
                            .classes = {{"a", 0, 1000, 1}, {"b", 1, 1000, 1}},
                            .records = {{"even", 0, 5},
                                        {"even", 1, 5},
                                        {"just", 0, 60},
                                        {"just", 1, 40},
                                        {"more", 0, 39},
                                        {"more", 1, 61},
                                        {std::string(30, 'q'), 0, 2},
                                        {std::string(30, 'q'), 1, 1}}};
    const auto classifier = classifierOf(stored);
    EXPECT_EQ(keywordsOf(*classifier, "just", 0.6), Result{});
    EXPECT_EQ(keywordsOf(*classifier, "More, just MORE", 0.6), Result{"more:b:0.610:2"});
    EXPECT_EQ(keywordsOf(*classifier, "even", 0.0), Result{"even:a:0.500:1"});
    EXPECT_EQ(keywordsOf(*classifier, "even", 0.5), Result{});
    EXPECT_EQ(keywordsOf(*classifier, "it's more&more <more> unknown", 0.0), Result{});
    EXPECT_EQ(keywordsOf(*classifier, std::string(40, 'Q'), 0.6),
              Result{std::string(30, 'q') + ":a:0.667:1"});
    EXPECT_EQ(keywordsOf(*classifier, "just even more", 0.0, 2),
              (Result{"just:a:0.600:1", "more:b:0.610:1"}));
    stored.extractorVersion = 3;
    EXPECT_EQ(keywordsOf(*classifierOf(stored), "More more", 0.6), Result{"more:b:0.610:1"});
    stored.classes.pop_back();
    stored.records = {{"a", 0, 1}, {"b", 0, 7}};
    EXPECT_EQ(keywordsOf(*classifierOf(stored), "b c a", 0.0), (Result{"b:a:1.000:1", "a:a:1.000:1"}));
}

TEST(ClassifierImplTest, ManyThreadsReadOneClassifier) {
    ClassifierImpl classifier(nullptr, 0.05);
    std::mt19937 random(1);
    for (const char* name : {"a", "b", "c"}) {
        classifier.addClass(name);
        trainAndCompact(classifier, name, randomText(random, 500));
    }
    const std::string text = randomText(random, 300);
    Classification expected;
    classifier.classify(text, expected);
    const auto expectedKeywords = keywordsOf(classifier, text, 0.0);
    const util::Bytes expectedBytes = bytesOf(classifier);

    std::atomic<int> differences = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                Classification seen;
                classifier.classify(text, seen);
                const bool same = seen.getProbabilities() == expected.getProbabilities() &&
                                  keywordsOf(*classifier.clone(), text, 0.0) == expectedKeywords &&
                                  bytesOf(classifier) == expectedBytes && classifier.classExists("b");
                differences += same ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(differences, 0);
}

TEST(ClassifierImplTest, ReadingBeforeCompactionAndNullTokensFailChecks) {
    EXPECT_EQ(support::failedCheck([] {
                  ClassifierImpl classifier(nullptr, 0.05);
                  classifier.addClass("a");
                  classifier.train("a", "word");
                  Classification classification;
                  classifier.classify("word", classification);
              }),
              "isCompact() / The lane has not been compacted since training");
    EXPECT_EQ(support::failedCheck([] { Keyword(nullptr, 0, 0.5, 1, "a"); }),
              "token != nullptr / Constructing a keyword with null ptr");
    EXPECT_EQ(support::failedCheck([] { KeywordExtractor(0, true); }),
              "_maxTokenSize > 0 / Setting the maxTokenSize to 0 makes no sense.");
}

}  // namespace halvern::classifier
