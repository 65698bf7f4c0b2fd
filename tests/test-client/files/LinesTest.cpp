#include "files/Lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>

#include "Failure.h"
#include "support/Classifiers.h"
#include "support/OldClassifier.h"
#include "support/StoredClassifier.h"

namespace halvern::morvane::client::files {
namespace {

std::string dumpOf(const util::Bytes& data) {
    std::ostringstream out;
    dumpLines(makeClassifier("C", data), out);
    return out.str();
}

util::Bytes loaded(const std::string& lines) {
    std::istringstream in(lines);
    return loadLines(in, "lines");
}

std::string refusalOf(const std::string& lines) {
    try {
        loaded(lines);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, ExitCode::LOCAL_FILE);
        return failure.message;
    }
    return "no failure";
}

// A sound classifier whose names and features are any bytes, mostly such as make trouble in JSON.
support::StoredClassifier randomClassifier(std::mt19937& random) {
    const std::string pool("\0\x1f\"\\/a\x7f\x80\xc3\xa9\xed\xa0\xf0\x9f\x98\x80\xff", 17);
    const auto randomBytes = [&](std::size_t length) {
        std::string bytes(length, ' ');
        for (char& byte : bytes) {
            byte = random() % 4 == 0 ? static_cast<char>(random()) : pool[random() % pool.size()];
        }
        return bytes;
    };
    support::StoredClassifier stored;
    stored.extractorVersion = 3 + random() % 5;
    stored.smoothing =
        std::ldexp(1.0 + static_cast<double>(random()), static_cast<int>(random() % 900) - 450);
    std::set<std::string> names;
    for (std::size_t i = random() % 4; i > 0; --i) {
        names.insert(randomBytes(1 + random() % 5));
    }
    for (const std::string& name : names) {
        stored.classes.push_back({name, static_cast<std::uint16_t>(stored.classes.size()), 0, 0});
    }
    std::set<std::pair<std::string, std::uint16_t>> keys;
    for (std::size_t i = names.empty() ? 0 : random() % 60; i > 0; --i) {
        keys.insert({randomBytes(random() % 4 == 0 ? random() % 32 : random() % 4),
                     static_cast<std::uint16_t>(random() % names.size())});
    }
    for (const auto& [feature, classIndex] : keys) {
        const std::uint32_t count = 1 + random() % 1000;
        stored.records.push_back({feature, classIndex, count});
        stored.classes[classIndex].count += count;
        ++stored.classes[classIndex].unique;
    }
    return stored;
}

TEST(LinesTest, ComeBackAsTheSameBytesWhateverTheBytesAreAndInAnyOrder) {
    for (unsigned seed = 0; seed < 500; ++seed) {
        std::mt19937 random(seed);
        const support::StoredClassifier stored = randomClassifier(random);
        const std::string lines = dumpOf(stored.bytes());
        ASSERT_EQ(loaded(lines), stored.bytes()) << "seed " << seed << "\n" << lines;

        std::vector<std::string> all;
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line);) {
            all.push_back(line + "\r\n");
        }
        std::shuffle(all.begin() + 1 + static_cast<std::ptrdiff_t>(stored.classes.size()), all.end(), random);
        std::string shuffled;
        for (const std::string& line : all) {
            shuffled += line;
        }
        ASSERT_EQ(loaded(shuffled), stored.bytes()) << "seed " << seed << "\n" << shuffled;
    }
}

TEST(LinesTest, AreWhatPeopleAndScriptsRead) {
    const support::StoredClassifier stored{.classes = {{"a \"quoted\"", 0, 2, 1}, {"\xe9", 1, 4, 2}},
                                           .records = {{"x", 0, 2}, {"\x01", 1, 1}, {"\xc3\xa9", 1, 3}}};
    support::StoredClassifier inOrder = stored;
    std::swap(inOrder.records[0], inOrder.records[1]);
    const std::string lines =
        "{\"format\":\"morvane-classifier\",\"extractor\":5,\"smoothing\":0.05}\n"
        "{\"class\":\"a \\\"quoted\\\"\",\"totalCount\":2,\"uniqueFeatures\":1}\n"
        "{\"classBase64\":\"6Q==\",\"totalCount\":4,\"uniqueFeatures\":2}\n"
        "{\"feature\":\"\\u0001\",\"classBase64\":\"6Q==\",\"count\":1}\n"
        "{\"feature\":\"x\",\"class\":\"a \\\"quoted\\\"\",\"count\":2}\n"
        "{\"feature\":\"\xc3\xa9\",\"classBase64\":\"6Q==\",\"count\":3}\n";
    EXPECT_EQ(dumpOf(inOrder.bytes()), lines);
    // Old data is dumped as what the server makes of it.
    const util::Bytes old = support::OldClassifier{3, {{"a", {{}, {{"x", 2}, {"y", 0}}}}}}.bytes();
    EXPECT_EQ(dumpOf(old),
              "{\"format\":\"morvane-classifier\",\"extractor\":3,\"smoothing\":0.05}\n"
              "{\"class\":\"a\",\"totalCount\":2,\"uniqueFeatures\":1}\n"
              "{\"feature\":\"x\",\"class\":\"a\",\"count\":2}\n");
}

TEST(LinesTest, AreRefusedWithTheLineThatIsWrong) {
    const std::string head = "{\"format\":\"morvane-classifier\",\"extractor\":5,\"smoothing\":0.05}\n";
    const std::string classes = head + "{\"class\":\"a\"}\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", "lines is empty."},
        {"{}\n", "lines, line 1: \"format\" is missing."},
        {"{\"format\":\"x\"}", "lines, line 1: the format isn't \"morvane-classifier\"."},
        {"{\"format\":\"morvane-classifier\",\"extractor\":8}",
         "lines, line 1: \"extractor\" isn't a whole number from 3 to 7."},
        {"{\"format\":\"morvane-classifier\",\"extractor\":5,\"smoothing\":-0.0}",
         "lines, line 1: \"smoothing\" isn't above 0."},
        {head + "[]", "lines, line 2: this is no JSON object."},
        {head + "{\"class\":\"a\"", "lines, line 2: this is no JSON."},
        {head + "{\"class\":\"\"}", "lines, line 2: the class has no name."},
        {head + "{\"class\":\"a\",\"total\":1}", "lines, line 2: \"total\" has no place here."},
        {classes + "{\"class\":\"a\"}", "lines, line 3: the class \"a\" stands twice."},
        {classes + "{\"feature\":\"x\",\"class\":\"b\",\"count\":1}",
         "lines, line 3: the class \"b\" has no line of its own above."},
        {classes + "{\"feature\":\"x\",\"class\":\"a\",\"count\":0}",
         "lines, line 3: \"count\" isn't a whole number from 1 to 4294967295."},
        {classes + "{\"feature\":\"x\",\"class\":\"a\",\"count\":4294967296}",
         "lines, line 3: \"count\" isn't a whole number from 1 to 4294967295."},
        {classes + "{\"feature\":\"" + std::string(32, 'x') + "\",\"class\":\"a\",\"count\":1}",
         "lines, line 3: the feature \"" + std::string(32, 'x') + "\" has more than 31 bytes."},
        {classes + "{\"featureBase64\":\"/w\",\"class\":\"a\",\"count\":1}",
         "lines, line 3: \"featureBase64\" isn't Base64 with padding."},
        {classes + "{\"feature\":\"\xff\",\"class\":\"a\",\"count\":1}", "lines, line 3: this is no JSON."},
        {classes + "{\"feature\":\"y\",\"class\":\"a\",\"count\":1}\n{\"feature\":\"x\",\"class\":\"a\","
                   "\"count\":1}\n"
                   "{\"feature\":\"y\",\"class\":\"a\",\"count\":1}\n",
         "lines: the feature \"y\" stands twice for the same class."},
        {head + "{\"class\":\"a\",\"totalCount\":2,\"uniqueFeatures\":1}\n",
         "lines: the class \"a\" should have 1 features, 2 occurrences in all, and its lines are 0 with 0. "
         "Lines "
         "are missing or were changed; leave the totals out of the class's line if that is meant."},
        {classes + "{\"feature\":\"x\",\"class\":\"a\",\"count\":1}\n", "no failure"},
    };
    for (const auto& [lines, message] : cases) {
        EXPECT_EQ(refusalOf(lines), message) << lines;
    }
}

TEST(LinesTest, TellWhenTheyCanNotBeWritten) {
    std::ostringstream full;
    full.setstate(std::ios::badbit);
    EXPECT_THROW(dumpLines(makeClassifier("C", support::StoredClassifier{}.bytes()), full), Failure);
}

}  // namespace
}  // namespace halvern::morvane::client::files
