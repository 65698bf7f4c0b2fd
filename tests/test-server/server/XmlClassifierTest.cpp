#include "server/XmlClassifier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <new>
#include <optional>

#include "server/BadRequestException.h"
#include "server/XmlErrorResponseImpl.h"
#include "server/XmlHook.h"
#include "server/XmlResponseImpl.h"
#include "support/ClassifierTable.h"
#include "support/FailingAllocation.h"
#include "support/StoredClassifier.h"
#include "support/Xml.h"
#include "util/StringHelper.h"

namespace halvern::morvane {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Keeps what all hooks see, and runs out of memory when told to.
struct RecordingHooks final : public XmlHookFactory {
    struct Hook final : public XmlHook {
        explicit Hook(const RecordingHooks& all) : all(all) {}
        void save(const std::string& request) override {
            all.requests.push_back(request);
            if (all.outOfMemory) {
                throw std::bad_alloc();
            }
        }
        const RecordingHooks& all;
    };
    std::unique_ptr<XmlHook> create() const override { return std::make_unique<Hook>(*this); }
    mutable std::vector<std::string> requests;
    bool outOfMemory = false;
};

class XmlClassifierTest : public testing::Test, public support::ClassifierTable {
protected:
    std::string request(const std::string& content, const std::string& version = "1.01") const {
        return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<morvane xmlns=\"" +
               _requestSchema.targetNamespace() + "\" version=\"" + version + "\">" + content + "</morvane>";
    }
    std::string writes(const std::string& calls, const std::string& maxSize = "") const {
        return TEXTS + "<writeCalls classifierName='a'" + maxSize + ">" + calls + "</writeCalls>";
    }
    std::string reads(const std::string& calls) const {
        return TEXTS + "<readCalls>" + calls + "</readCalls>";
    }

    // The answer to these bytes, which the response schema must admit.
    std::string answerTo(const std::string& bytes) {
        std::string out = "left from before";
        EXPECT_EQ(&_classifier->handle(out, bytes), &out);
        EXPECT_EQ(_responseSchema.problemOf(out), "") << out;
        return out;
    }
    std::string ask(const std::string& content, const std::string& version = "1.01") {
        return answerTo(request(content, version));
    }
    void prepare(const std::string& calls) { ASSERT_THAT(ask(writes(calls)), HasSubstr("\"2000\"")); }
    // Removes the classifier "a", and makes it anew if there are calls for that.
    void start(const std::string& calls) {
        prepare("<remove id='r'/>");
        if (!calls.empty()) {
            prepare(calls);
        }
    }

    std::string head(const std::string& version = "1.01") const {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane xmlns=\"" +
               _responseSchema.targetNamespace() + "\" version=\"" + version + "\">\n";
    }
    std::string success(const std::string& sections, const std::string& version = "1.01") const {
        return head(version) + "\t<status success=\"true\" statusCode=\"2000\"/>\n" + sections + "</morvane>";
    }
    // The beginning of a refusal.
    std::string failure(int code, const std::string& text) const {
        return head() + "\t<status success=\"false\" statusCode=\"" + std::to_string(code) + "\">" + text;
    }

    // What memory and disk both say of the classifier "a": name:unique/total for each class, or "none".
    std::string state() {
        if (!files.exists("root/a.dat")) {
            EXPECT_THROW(table.get("root/a.dat"), ClassifierNotFoundException);
            return "none";
        }
        const auto live = table.get("root/a.dat");
        util::Bytes data;
        live->getClassifier().getTrainingData(data);
        EXPECT_EQ(data, files.load("root/a.dat"));
        std::string text = "[";
        for (const auto& each : live->getClassifier().getInformation()) {
            text += each.name + ":" + std::to_string(each.uniqueFeatures) + "/" +
                    std::to_string(each.totalCount) + " ";
        }
        return text + "]";
    }

    // hej; "hej du", which has two words and a pair; nothing
    const std::string TEXTS =
        "<texts><textBase64 id='hej'>aGVq</textBase64><text id='hej du'>hej du</text><text "
        "id='empty'/></texts>";

    const support::LoadedSchema _requestSchema{MORVANE_SCHEMAS "/server/RequestSchema.xsd"};
    const support::LoadedSchema _responseSchema{MORVANE_SCHEMAS "/server/ResponseSchema.xsd"};
    const XmlResponseFactoryImpl _responses{_responseSchema.targetNamespace()};
    const XmlErrorResponseFactoryImpl _errors{_responseSchema.targetNamespace(), _responseSchema.version()};
    RecordingHooks _hooks;

    std::unique_ptr<StringClassifier> make(JobDistribution& jobDistribution) {
        return XmlClassifierFactoryImpl(jobDistribution, _responses, _errors, _hooks, _requestSchema.cache(),
                                        _requestSchema.targetNamespace(), "root", log)
            .create();
    }

private:
    // One object answers all requests of a test, whatever became of those before.
    const std::unique_ptr<StringClassifier> _classifier = make(table);
};

const std::string FILLED =
    "<create id='p1'/><addClass id='p2' className='eng'/><addClass id='p3' className='swe'/>"
    "<train id='p4' className='swe' textId='hej du'/>";
const std::string FILLED_STATE = "[eng:0/0 swe:3/3 ]";

TEST_F(XmlClassifierTest, AnswersAreTheseBytes) {
    EXPECT_EQ(ask(writes("<create id='c&lt;1'/><addClass id='c2' className='b&amp;b'/><addClass id='c3' "
                         "className='a'/>")),
              success("\t<writeCalls>\n\t\t<create id=\"c&lt;1\"/>\n\t\t<addClass id=\"c2\"/>\n"
                      "\t\t<addClass id=\"c3\"/>\n\t</writeCalls>\n"));
    // Nothing has been learned, so nothing speaks for either class.
    const std::string classes =
        "\t\t\t<class className=\"a\" p=\"0.5\"/>\n\t\t\t<class className=\"b&amp;b\" p=\"0.5\"/>\n"
        "\t\t</classification>\n\t</classify>\n\t</readCalls>\n";
    const std::string classify = reads("<classify id='1' classifierName='A' textId='hej'/>");
    EXPECT_EQ(ask(classify), success("\t<readCalls>\n\t<classify id=\"1\">\n"
                                     "\t\t<classification textCoverage=\"0\">\n" +
                                     classes));
    EXPECT_EQ(ask(classify, "1.00"),
              success("\t<readCalls>\n\t<classify id=\"1\">\n\t\t<classification>\n" + classes, "1.00"));

    EXPECT_EQ(
        ask(writes("<train id='t' className='a' textId='hej du'/><train id='u' className='a' "
                   "textId='hej'/><untrain id='v' className='a' textId='hej'/><removeClass id='w' "
                   "className='b&amp;b'/>")),
        success("\t<writeCalls>\n\t\t<train id=\"t\"/>\n\t\t<train id=\"u\"/>\n\t\t<untrain id=\"v\"/>\n"
                "\t\t<removeClass id=\"w\"/>\n\t</writeCalls>\n"));
    // Reads go first wherever they stand, so they still see the classifier that the request removes.
    EXPECT_THAT(
        ask(TEXTS +
            "<writeCalls classifierName='a'><remove id='r'/></writeCalls><readCalls><classifyKeywords "
            "id='k' classifierName='a' textId='hej'/><getInformation id='i' classifierName='a'/>"
            "</readCalls>"),
        AllOf(HasSubstr("<keyword className=\"a\" p=\"1\">hej</keyword>"),
              HasSubstr("<uniqueFeatures>3</uniqueFeatures>"),
              EndsWith("\t<writeCalls>\n\t\t<remove id=\"r\"/>\n\t</writeCalls>\n</morvane>")));
    EXPECT_EQ(state(), "none");
    EXPECT_TRUE(log.entries().empty());
}

// Of two classes, one has to have a share above 0.6.
TEST_F(XmlClassifierTest, KeywordsSpeakForAClassMoreThanChanceDoes) {
    support::StoredClassifier stored{.smoothing = 0.0,
                                     .classes = {{"a", 0, 1000, 1}, {"b", 1, 1000, 1}},
                                     .records = {{"x", 0, 58}, {"x", 1, 42}, {"y", 0, 62}, {"y", 1, 38}}};
    std::string text = "x y";
    for (int i = 100; i < 140; ++i) {
        stored.records.push_back({std::to_string(i), 0, 1});
        text += " " + std::to_string(i);
    }
    files.save("root/k.dat", stored.bytes());
    const auto keywordsOf = [&](const std::string& asked) {
        return ask("<texts><text id='t'>" + asked +
                   "</text></texts><readCalls><classifyKeywords id='1' classifierName='k' textId='t'/>"
                   "</readCalls>");
    };
    EXPECT_THAT(keywordsOf("x y"), AllOf(HasSubstr("p=\"0.62\">y<"), Not(HasSubstr(">x<"))));
    std::string most = keywordsOf(text);
    EXPECT_EQ(util::StringHelper::replaceAll(most, "<keyword ", ""), 30u);
}

TEST_F(XmlClassifierTest, FailedCallSaysWhyAndTakesAllBack) {
    const std::string notFound = "The requested classifier could not be found. 'root/";
    const std::string create = "<writeCalls classifierName='B'><create id='w'/></writeCalls>";
    const struct {
        const std::string before;
        std::string content;  // the call that fails has the id 1
        std::string reason;
        std::string call;
    } rows[] = {
        {"", writes("<train id='1' className='x' textId='hej'/>"), notFound + "a.dat'.", "WriteCall: train"},
        {FILLED,
         writes("<train id='0' className='eng' textId='hej'/><train id='1' className='' textId='hej'/>"),
         "When training the classifier the class name must at least have one character.", "WriteCall: train"},
        {FILLED,
         writes("<removeClass id='0' className='swe'/><untrain id='1' className='swe' textId='hej'/>"),
         "Trying to untrain on a class that doesn't exist. Class name 'swe'.", "WriteCall: untrain"},
        // A failed read keeps the writes from running; what the same request makes is none yet.
        {FILLED,
         reads("<getInformation id='0' classifierName='a'/><getInformation id='1' classifierName='B'/>") +
             create,
         notFound + "B.dat'.", "ReadCall: getInformation"},
        {FILLED,
         reads("<x:classify xmlns:x='" + _requestSchema.targetNamespace() +
               "' id='1' classifierName='a' textId='hej'/>"),
         "The method x:classify is not supported in the readCalls sequence.", "ReadCall: x:classify"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.content);
        start(row.before);
        EXPECT_THAT(ask(row.content),
                    StartsWith(failure(4000, row.reason + "\nCall id: 1\n" + row.call + "\n\nOne of the ")));
        EXPECT_EQ(state(), row.before.empty() ? "none" : FILLED_STATE);
        EXPECT_FALSE(files.exists("root/b.dat"));
    }
    files.put("root/b.dat", "");
    EXPECT_THAT(ask(create), HasSubstr("a classifier that already exists (on disk) 'root/B.dat'."));
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(XmlClassifierTest, RequestThatMemoryEndsInIsLostWholeWhereverThatIs) {
    prepare(FILLED);
    const util::Bytes filled = files.load("root/a.dat");
    const auto stored = [&] {
        std::map<std::string, util::Bytes> all;
        for (const std::string& name : files.names()) {
            all[name] = files.load(name);
        }
        return all;
    };
    const std::string rows[] = {
        reads("<classify id='1' classifierName='a' textId='hej'/><classifyKeywords id='2' classifierName='a' "
              "textId='hej du'/><getInformation id='3' classifierName='a'/>"),
        writes("<train id='1' className='eng' textId='hej'/><untrain id='2' className='swe' textId='hej'/>"
               "<removeClass id='3' className='swe'/>"),
        TEXTS + "<writeCalls classifierName='b'>" + FILLED + "</writeCalls>",
    };
    for (const std::string& row : rows) {
        using Outcome = std::pair<std::string, std::map<std::string, util::Bytes>>;
        std::optional<Outcome> expected;  // answer and files: that of a request which memory suffices for
        for (const bool forGood : {false, true}) {
            int lost = 0;
            bool suffices = false;
            for (std::int64_t k = expected ? 0 : INT64_MAX; !suffices; k = k == INT64_MAX ? 0 : k + 1) {
                SCOPED_TRACE(row + " " + std::to_string(k));
                files.save("root/a.dat", filled);
                files.remove("root/b.dat");
                // Nothing is in memory yet, so a classifier has to be loaded first.
                JobDistributionImpl fresh(factory, memory, files, files, files, files, files, callbackFactory,
                                          "root", log);
                const auto before = stored();
                Outcome outcome;
                {
                    const support::FailingAllocation shortage(k, forGood);
                    try {
                        make(fresh)->handle(outcome.first, request(row));
                    } catch (const std::bad_alloc&) {
                        ++lost;
                        outcome.first.clear();
                    }
                    suffices = k != INT64_MAX && !support::FailingAllocation::hasFailed();
                }
                if (outcome.first.empty()) {
                    ASSERT_EQ(stored(), before);
                    // Nor has anything stayed behind in memory: the same runs as if for the first time.
                    make(fresh)->handle(outcome.first, request(row));
                }
                outcome.second = stored();
                if (!expected) {
                    EXPECT_THAT(outcome.first, HasSubstr("\"2000\""));
                    expected = outcome;
                }
                ASSERT_EQ(outcome, *expected);
            }
            EXPECT_GT(lost, 20);
        }
    }
}

TEST_F(XmlClassifierTest, SizeLimitLooksAtTheFileBeforeEachTrain) {
    prepare(FILLED);
    const std::uint64_t size = table.getSize("root/a.dat");
    const std::pair<std::string, std::string> rows[] = {
        {std::to_string(size), "has reached the maximum allowed size of " + std::to_string(size) + " bytes."},
        // The file of before is what counts, not what the sequence has added.
        {std::to_string(size + 1), "\"2000\""},
        {"0", "\"2000\""},
        {"2147483648", "Error converting [2147483648] to a number. The number is too large."},
        {"x", "Error parsing the string [x] to a number"},
    };
    for (const auto& [maxSize, part] : rows) {
        start(FILLED);
        EXPECT_THAT(ask(writes("<addClass id='0' className='x'/><train id='1' className='x' textId='hej du'/>"
                               "<train id='2' className='eng' textId='hej'/>",
                               " maxSize='" + maxSize + "'")),
                    HasSubstr(part));
        EXPECT_EQ(state(), part == "\"2000\"" ? "[eng:1/1 swe:3/3 x:3/3 ]" : FILLED_STATE) << maxSize;
    }
    // Nothing but training is limited.
    EXPECT_THAT(
        ask(writes("<untrain id='0' className='swe' textId='hej'/><removeClass id='3' className='eng'/>",
                   " maxSize='1'")),
        HasSubstr("\"2000\""));
}

TEST_F(XmlClassifierTest, FailureOfDiskOrMemoryIsTheServersOwn) {
    prepare(FILLED);
    files.put("root/b.dat", "x");
    const std::string load = reads("<getInformation id='1' classifierName='b'/>");
    files.failingLoad = 1;
    EXPECT_THAT(ask(load), StartsWith(failure(5000, "The disk can't be read.\nCall id: 1\n")));
    EXPECT_TRUE(log.has(logLevel::error, "Method: getInformation. The disk can't be read."));
    EXPECT_THAT(ask(load), AllOf(HasSubstr("\"4000\""), HasSubstr("seems to be corrupt. ")));
    const std::string words = "An error occurred when executing a classifier query.\n\nThe disk is full.";
    files.failingSave = 1;
    EXPECT_THAT(ask(writes("<train id='1' className='eng' textId='hej'/>")),
                StartsWith(failure(5000, words)));
    EXPECT_TRUE(log.has(logLevel::error, words));
    _hooks.outOfMemory = true;
    EXPECT_THROW(ask(writes("<remove id='1'/>")), std::bad_alloc);
    EXPECT_TRUE(log.has(logLevel::error, "exception type: std::bad_alloc"));
    EXPECT_EQ(log.entries().size(), 3u);
    EXPECT_EQ(state(), FILLED_STATE);
}

TEST_F(XmlClassifierTest, RequestThatIsNotOneIsRefusedUnrun) {
    const std::string create = writes("<create id='1'/>");
    const std::string sound = request(create);
    const std::string invalid =
        "Validation of an request failed, please verify your that your XML is correct.";
    const std::string unread = "Caught XMLException exception while trying to read xml parameters. ";
    const struct {
        std::string bytes;
        const std::string& start;
        const char* part;
    } rows[] = {
        {sound.substr(0, sound.size() - 1), unread, ""},
        {"<!DOCTYPE morvane>" + sound.substr(41), unread, "A document type declaration is not allowed."},
        {request(create, "2.00"), invalid, "version"},
        {request(writes("<create id='1'/><train id='2' className='x' textId='HEJ'/>")), invalid, "HEJ"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        const std::size_t lines = log.entries().size();
        // The client's own line doesn't come back; the log has it.
        EXPECT_THAT(answerTo(row.bytes),
                    AllOf(StartsWith(failure(4000, row.start)), HasSubstr(row.part),
                          Not(HasSubstr("Error line")), EndsWith(" Error code: 0.\t</status>\n</morvane>")));
        EXPECT_EQ(_hooks.requests.back(), row.bytes);
        const bool logged = &row.start == &invalid;
        ASSERT_EQ(log.entries().size(), lines + (logged ? 1 : 0));
        EXPECT_TRUE(!logged || log.has(logLevel::log, "\nError line: "));
    }
    EXPECT_TRUE(files.names().empty());
}

TEST_F(XmlClassifierTest, BytesGoThroughUnchanged) {
    const std::string name = "r\xC3\xA4ksm\xC3\xB6rg\xC3\xA5s";
    // A byte order mark, an encoding that isn't so, and what stands behind the end of the request.
    const std::string bytes =
        "\xEF\xBB\xBF" +
        request("<texts><text id='\xE2\x82\xAC'>" + name + "</text></texts><writeCalls classifierName='" +
                name + "'><create id='1'/><addClass id='2' className='" + name +
                "'/><train id='3' className='" + name + "' textId='\xE2\x82\xAC'/></writeCalls>") +
        std::string("\0<not read", 10);
    EXPECT_THAT(answerTo(bytes), HasSubstr("\"2000\""));
    EXPECT_EQ(_hooks.requests, std::vector<std::string>{bytes});
    EXPECT_EQ(files.names(), std::vector<std::string>{"root/" + name + ".dat"});
    const auto read = [&](const std::string& texts) {
        return ask("<texts>" + texts +
                   "</texts><readCalls><classifyKeywords id='\xE2\x82\xAC' classifierName='" + name +
                   "' textId='1'/></readCalls>");
    };
    EXPECT_THAT(read("<textBase64 id='1'>cuRrc232cmflcyByw6Rrc23DtnJnw6Vz</textBase64>"),
                AllOf(HasSubstr("<classifyKeywords id=\"\xE2\x82\xAC\">"),
                      HasSubstr("<keyword className=\"" + name + "\" p=\"1\">" + name + "</keyword>")));
    // One character that has no byte spoils the call, not a silent question mark.
    EXPECT_THAT(read("<text id='1'>&#8364;</text>"),
                HasSubstr("statusCode=\"5000\">Could not convert a BSTR to char*"));
}

// The answer is checked against the response schema, as each is here.
TEST_F(XmlClassifierTest, ShareThatIsNoNumberStillFitsTheResponseSchema) {
    const std::pair<double, std::string> rows[] = {
        {std::numeric_limits<double>::quiet_NaN(), "<keywords>\n\t\t</keywords>"},
        {-1.0, "p=\"inf\">hej</keyword>"}};
    for (const auto& [smoothing, keywords] : rows) {
        const std::string name = smoothing < 0 ? "negative" : "nan";
        files.save("root/" + name + ".dat",
                   support::StoredClassifier{.smoothing = smoothing,
                                             .classes = {{"b", 0, 2, 1}, {"c", 1, 2, 0}},
                                             .records = {{"hej", 0, 2}}}
                       .bytes());
        EXPECT_THAT(ask(reads("<classify id='1' textId='hej' classifierName='" + name +
                              "'/><classifyKeywords id='2' textId='hej' classifierName='" + name + "'/>")),
                    AllOf(HasSubstr("nan\""), HasSubstr(keywords)));
    }
}

}  // namespace
}  // namespace halvern::morvane
