#include "server/systemtest/Tester.h"

#include <atomic>
#include <cstdint>
#include <random>

#include "debug/Assertion.h"
#include "exceptions/Exception.h"
#include "server/StatusCode.h"
#include "server/systemtest/Api.h"
#include "server/systemtest/ResponseValidator.h"
#include "util/FixedStream.h"
#include "util/StringHelper.h"
#include "windows/com/xml/Library.h"

namespace halvern::morvane {

namespace {

using std::string;

// ISO-8859-1, which isn't UTF-8: a text is bytes, and these must arrive as they are.
const string SWEDISH = "hej hopp detta \xE4r en text p\xE5 svenska tror jag";
const string SWEDISH_QUESTION = "detta \xE4r text tv\xE5";
const string ENGLISH = "hi this is a text in english I beleive";

constexpr char LANGUAGES[] = "test_engswe";
constexpr char STRESS_ODD[] = "stresstest_cls2";
constexpr char STRESS_EVEN[] = "stresstest_cls1";

// Spreads the passes of all testers over the two classifiers of the stress test, each run in the same way.
bool nextPassIsOdd() {
    static std::atomic<std::uint32_t> counter = 0;
    return std::mt19937(++counter)() % 2 == 1;
}

// The test in one version of the protocol.
class ProtocolTest {
public:
    ProtocolTest(StringClassifier& classifier, const ResponseValidator& validator, const string& version)
        : _classifier(classifier), _validator(validator), _version(version) {}

    void testVersion() {
        testBadRequests();
        testStress();
        testLanguages();
        testInvalidRequests();
        for (std::size_t size = 0; size < 100; size += 10) {
            expectBadRequest("random bytes", util::StringHelper::randomBytes(size));
        }
    }

private:
    void testBadRequests();
    void testStress();
    void testLanguages();
    void testInvalidRequests();

    ParsedResponse send(const char* name, const string& request);
    ParsedResponse send(const char* name, const Api& api) {
        string request;
        return send(name, api.render(request));
    }

    void expectBadRequest(const char* name, const string& request);
    void expectBadRequest(const char* name, const Api& api) {
        string request;
        expectBadRequest(name, api.render(request));
    }
    void expectVersion(const char* name, const Api& api);
    void checkRefused(const ParsedResponse& r);
    void checkServed(const ParsedResponse& r);

    StringClassifier& _classifier;
    const ResponseValidator& _validator;
    const string _version;
    util::FixedStream<2048> _exchange;  // the latest request and its answer, for the report of a failed check
};

void ProtocolTest::testBadRequests() {
    expectBadRequest("no texts and no calls", ReadCallsApi(_version));

    ReadCallsApi textOnly(_version);
    textOnly.addText("1", "hejsan");
    expectBadRequest("a text and no calls", textOnly);

    ReadCallsApi callOnly(_version);
    callOnly.addClassify("1", "cn", "hejsan");
    expectBadRequest("a call and no text", callOnly);

    ReadCallsApi unknown(_version);
    unknown.addText("textId1", "hejsan");
    unknown.addClassify("1", "classifierName", "textId1");
    const ParsedResponse r = send("a classifier that doesn't exist", unknown);
    checkRefused(r);
    CHECK(r.errorMessage.find("could not be found") != string::npos, _exchange.str());
    CHECK(r.errorMessage.find("classifierName") != string::npos, _exchange.str());
}

void ProtocolTest::testStress() {
    for (int pass = 0; pass < 10; ++pass) {
        const string name = nextPassIsOdd() ? STRESS_ODD : STRESS_EVEN;

        WriteCallsApi creation(name, _version);
        creation.create("call_1");
        expectVersion("create", creation);

        WriteCallsApi training(name, _version);
        training.addText("numbers", "0 1 2 3 4 5 6 7 8 9");
        training.addText("letters", "a b c d e f g h i j");
        training.addClass("1", "numbers");
        training.addClass("2", "letters");
        training.train("t1", "numbers", "numbers");
        training.train("t2", "letters", "letters");
        expectVersion("train", training);

        ReadCallsApi question(_version);
        question.addText("textId1", "6 1 2 3");
        question.addText("textId2", "e j k a");
        question.addClassify("call_1", name, "textId1");
        question.addClassify("call_2", name, "textId2");
        expectVersion("classify", question);

        for (const char* each : {STRESS_EVEN, STRESS_ODD}) {
            WriteCallsApi removal(each, _version);
            removal.remove("call_1");
            expectVersion("remove", removal);
        }
    }
}

void ProtocolTest::testLanguages() {
    WriteCallsApi training(LANGUAGES, _version);
    training.addText("sweText", SWEDISH);
    training.addText("engText", ENGLISH);
    training.create("call_1");
    training.addClass("call_2", "swe");
    training.addClass("call_3", "eng");
    training.train("call_4", "swe", "sweText");
    training.train("call_5", "eng", "engText");
    // Where the classifier is there already, this fails, and it stays as it was.
    checkServed(send("create and train two languages", training));
    {
        ReadCallsApi question(_version);
        question.addText("0", "hej");
        question.addClassify("0", LANGUAGES, "0");
        const ParsedResponse r = send("classify one text", question);
        CHECK(r.success, _exchange.str());
        CHECK(r.code == statusCode::OK, _exchange.str());
        CHECK(r.responses.size() == 1, _exchange.str());
        const string& version = _version;
        CHECK(r.version == version, _exchange.str());
    }
    {
        ReadCallsApi question(_version);
        question.addText("0", "hejsan svejsan");
        question.addText("1", SWEDISH_QUESTION);
        question.addClassify("0", LANGUAGES, "0");
        question.addClassify("1", LANGUAGES, "1");
        const ParsedResponse r = send("classify two texts", question);
        CHECK(r.success, _exchange.str());
        CHECK(r.code == statusCode::OK, _exchange.str());
        CHECK(r.responses.size() == 2, _exchange.str());
        const string& version = _version;
        CHECK(r.version == version, _exchange.str());
    }
}

void ProtocolTest::testInvalidRequests() {
    expectBadRequest("an unknown version", ReadCallsApi("2.00"));

    ReadCallsApi textMissing(_version);
    textMissing.addClassify("0", LANGUAGES, "0");
    expectBadRequest("a call without its text", textMissing);

    ReadCallsApi noCalls(_version);
    noCalls.addText("0", "hejsan svejsan");
    expectBadRequest("no calls", noCalls);

    ReadCallsApi twoTexts(_version);
    twoTexts.addText("0", "hejsan svejsan");
    twoTexts.addText("0", SWEDISH_QUESTION);
    twoTexts.addClassify("0", LANGUAGES, "0");
    expectBadRequest("two texts with one id", twoTexts);

    ReadCallsApi twoCalls(_version);
    twoCalls.addText("0", "hejsan svejsan");
    twoCalls.addClassify("0", LANGUAGES, "0");
    twoCalls.addClassify("0", LANGUAGES, "0");
    expectBadRequest("two calls with one id", twoCalls);
}

ParsedResponse ProtocolTest::send(const char* name, const string& request) {
    string response;
    _classifier.handle(response, request);
    ParsedResponse r = _validator.parse(response);
    string words = r.success ? "a success" : r.errorMessage;
    words.erase(words.find_last_not_of(" \t\r\n") + 1);
    _exchange.setPosition(0);
    _exchange << "The request \"" << name << "\" of version " << _version.c_str() << " with "
              << request.size() << " bytes was answered in version " << r.version.c_str() << " with "
              << r.code << ": " << words.c_str();
    if (r.code == statusCode::REQUEST_TOO_LARGE) {
        _exchange << " The built-in test needs a larger maxInput in the configuration.";
    }
    return r;
}

void ProtocolTest::expectBadRequest(const char* name, const string& request) {
    checkRefused(send(name, request));
}

void ProtocolTest::expectVersion(const char* name, const Api& api) {
    const ParsedResponse r = send(name, api);
    checkServed(r);
    // Whoever writes an error response may not have got as far as the version of the request.
    const string version = r.success ? _version : _validator.schemaVersion();
    CHECK(r.version == version, _exchange.str());
}

void ProtocolTest::checkRefused(const ParsedResponse& r) {
    CHECK(!r.success, _exchange.str());
    CHECK(r.code == statusCode::BAD_REQUEST, _exchange.str());
    CHECK(!r.errorMessage.empty(), _exchange.str());
    CHECK(r.responses.empty(), _exchange.str());
}

// A request may be too late, for what another client has done; the server itself must not be at fault, and
// must take requests of this size.
void ProtocolTest::checkServed(const ParsedResponse& r) {
    CHECK(r.success || r.code == statusCode::BAD_REQUEST, _exchange.str());
}

}  // namespace

void Tester::runAll() {
    try {
        const windows::com::xml::Library xmlLibrary;
        const ResponseValidator validator(_schemaPath);
        for (const char* version : {"1.00", "1.01"}) {
            ProtocolTest(_classifier, validator, version).testVersion();
        }
    } catch (const exceptions::Exception& e) {
        CHECK(false, e.what());
    } catch (...) {
        CHECK(false);
    }
}

}  // namespace halvern::morvane
