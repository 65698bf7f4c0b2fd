#include "files/Lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "support/ClientRun.h"
#include "support/OldClassifier.h"
#include "test-client/files/Learned.h"

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

TEST(LinesTest, ComeBackAsTheSameBytesWhateverTheBytesAreAndInAnyOrder) {
    for (unsigned seed = 0; seed < 500; ++seed) {
        std::mt19937 random(seed);
        support::StoredClassifier stored = randomLearned(random).stored();
        stored.extractorVersion = 3 + random() % 5;
        stored.smoothing = std::ldexp(1.0 + random(), static_cast<int>(random() % 900) - 450);
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
    const Learned learned{{"a \"quoted\"", "\xe9"}, {{{"x", 0}, 2}, {{"\x01", 1}, 1}, {{"\xc3\xa9", 1}, 3}}};
    EXPECT_EQ(dumpOf(learned.stored().bytes()),
              "{\"format\":\"morvane-classifier\",\"extractor\":5,\"smoothing\":0.05}\n"
              "{\"class\":\"a \\\"quoted\\\"\",\"totalCount\":2,\"uniqueFeatures\":1}\n"
              "{\"classBase64\":\"6Q==\",\"totalCount\":4,\"uniqueFeatures\":2}\n"
              "{\"feature\":\"\\u0001\",\"classBase64\":\"6Q==\",\"count\":1}\n"
              "{\"feature\":\"x\",\"class\":\"a \\\"quoted\\\"\",\"count\":2}\n"
              "{\"feature\":\"\xc3\xa9\",\"classBase64\":\"6Q==\",\"count\":3}\n");
    // Old data is dumped as what the server makes of it.
    EXPECT_EQ(dumpOf(support::OldClassifier{3, {{"a", {{}, {{"x", 2}, {"y", 0}}}}}}.bytes()),
              "{\"format\":\"morvane-classifier\",\"extractor\":3,\"smoothing\":0.05}\n"
              "{\"class\":\"a\",\"totalCount\":2,\"uniqueFeatures\":1}\n"
              "{\"feature\":\"x\",\"class\":\"a\",\"count\":2}\n");
    std::ostringstream full;
    full.setstate(std::ios::badbit);
    EXPECT_THROW(dumpLines(makeClassifier("C", learned.stored().bytes()), full), Failure);
}

TEST(LinesTest, AreRefusedWithTheLineThatIsWrong) {
    const std::string head = "{\"format\":\"morvane-classifier\",\"extractor\":5,\"smoothing\":0.05}\n";
    const std::string classes = head + "{\"class\":\"a\"}\n";
    const auto record = [](const std::string& feature, const char* className, const char* count) {
        return "{\"feature\":\"" + feature + "\",\"class\":\"" + className + "\",\"count\":" + count + "}\n";
    };
    const std::pair<std::string, std::string> cases[] = {
        {"", "lines is empty."},
        {"{}\n", "lines, line 1: \"format\" is missing."},
        {"{\"format\":\"x\"}", "lines, line 1: the format isn't \"morvane-classifier\"."},
        {"{\"format\":\"morvane-classifier\",\"extractor\":8}", "line 1: \"extractor\" isn't a whole number"},
        {"{\"format\":\"morvane-classifier\",\"extractor\":5,\"smoothing\":-0.0}", "line 1: \"smoothing\""},
        {head + "[]", "line 2: this is no JSON object."},
        {head + "{\"class\":\"a\"", "line 2: this is no JSON."},
        {head + "{\"class\":\"\"}", "line 2: the class has no name."},
        {head + "{\"class\":\"a\",\"total\":1}", "line 2: \"total\" has no place here."},
        {classes + "{\"class\":\"a\"}", "line 3: the class \"a\" stands twice."},
        {classes + record("x", "b", "1"), "line 3: the class \"b\" has no line of its own above."},
        {classes + record("x", "a", "0"), "line 3: \"count\" isn't a whole number from 1 to 4294967295."},
        {classes + record("x", "a", "4294967296"), "line 3: \"count\" isn't a whole number"},
        {classes + record(std::string(32, 'x'), "a", "1"), "xxx\" has more than 31 bytes."},
        {classes + "{\"featureBase64\":\"/w\",\"class\":\"a\",\"count\":1}", "isn't Base64 with padding."},
        {classes + record("y", "a", "1") + record("x", "a", "1") + record("y", "a", "1"),
         "lines: the feature \"y\" stands twice for the same class."},
        {head + "{\"class\":\"a\",\"totalCount\":2,\"uniqueFeatures\":0}\n",
         "\"a\" should have 0 features, 2"},
        {classes + record("x", "a", "1"), "no failure"},
    };
    for (const auto& [lines, words] : cases) {
        const Failure failure = support::clientFailureOf([&lines = lines] { loaded(lines); });
        EXPECT_NE(failure.message.find(words), std::string::npos) << failure.message;
        EXPECT_EQ(failure.code, words == "no failure" ? ExitCode::DONE : ExitCode::LOCAL_FILE) << lines;
    }
}

}  // namespace
}  // namespace halvern::morvane::client::files
