#include "server/systemtest/Tester.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "support/FailedCheck.h"
#include "support/ServerInMemory.h"

namespace halvern::morvane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// A server whose answers an adversary may alter.
class AlteredServer final : public StringClassifier {
public:
    using Alter = std::function<std::string(const std::string& request, std::string answer)>;

    explicit AlteredServer(Alter alter) : _alter(std::move(alter)) {}

    std::string& handle(std::string& out, const std::string& request) override {
        return out = _alter(request, _server.answer(request));
    }

private:
    const Alter _alter;
    support::ServerInMemory _server;
};

std::string outcome(const AlteredServer::Alter& alter) {
    return support::failedCheck([&] {
        AlteredServer server(alter);
        Tester(server, MORVANE_SCHEMAS "/server/").runAll();
    });
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string replaced(std::string text, const std::string& search, const std::string& replacement) {
    const std::size_t place = text.find(search);
    return place == std::string::npos ? text : text.replace(place, search.size(), replacement);
}

std::string failureOf(int code, const std::string& words) {
    return "<morvane xmlns=\"http://morvane.example/1/server/ResponseSchema\" version=\"1.01\">"
           "<status success=\"false\" statusCode=\"" +
           std::to_string(code) + "\">" + words + "</status></morvane>";
}

TEST(TesterTest, FindsAnswersThatAreWrong) {
    EXPECT_EQ(outcome([](const std::string&, std::string answer) { return answer; }), "");
    const std::string ok = "statusCode=\"2000\"";
    const std::string empty =
        "<morvane xmlns=\"http://morvane.example/1/server/ResponseSchema\" "
        "version=\"1.01\"><status success=\"true\" " +
        ok + "/></morvane>";
    const std::pair<std::string, AlteredServer::Alter> rows[] = {
        {"false / Error when loading the XML document from the memory.",
         [](const std::string&, std::string answer) { return answer.substr(0, answer.size() / 2); }},
        {"!r.success / ", [&](const std::string&, std::string) { return empty; }},
        // The server's own failures are no lost race.
        {"r.success || r.code == statusCode::BAD_REQUEST / ",
         [&](const std::string& request, std::string answer) {
             return contains(request, "stresstest") ? failureOf(5000, "The disk is full.") : answer;
         }},
        {"r.version == version / ",
         [&](const std::string&, std::string answer) {
             return contains(answer, ok) ? replaced(answer, "version=\"1.00\"", "version=\"1.01\"") : answer;
         }},
        {"r.responses.size() == 2 / ",
         [](const std::string&, std::string answer) {
             return replaced(answer, "<classify id=\"1\">", "<classify id=\"0\">");
         }},
    };
    for (const auto& [report, alter] : rows) {
        EXPECT_THAT(outcome(alter), StartsWith(report));
    }
    // What an operator reads whose configuration doesn't let the test through.
    EXPECT_THAT(outcome([](const std::string& request, std::string answer) {
                    return request.size() > 500 ? failureOf(4013, "Too large.") : answer;
                }),
                HasSubstr("The built-in test needs a larger maxInput in the configuration."));
}

}  // namespace
}  // namespace halvern::morvane
