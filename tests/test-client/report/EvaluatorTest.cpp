#include "report/Evaluator.h"

#include <gtest/gtest.h>

#include "Failure.h"
#include "server/RequestWriter.h"
#include "support/ServerInMemory.h"
#include "support/TempDir.h"

namespace halvern::morvane::client {
namespace {

struct MemoryExchange final : Exchange {
    support::ServerInMemory server;
    int requests = 0;
    std::string ask(const std::string& request) override {
        ++requests;
        return server.answer(request);
    }
};

class EvaluatorTest : public testing::Test {
protected:
    EvaluatorTest() {
        RequestWriter request("c");
        request.create();
        for (const char* name : {"ham", "spam"}) {
            request.addClass(name);
        }
        request.train("ham", request.addText("see you at five"));
        request.train("spam", request.addText("win a prize now"));
        exchange.ask(request.document());
        options.classifier = "c";
    }

    Report evaluate(const std::string& texts) {
        support::writeFile(folder.file("t.tsv"), texts);
        RecordSource source;
        source.path = folder.file("t.tsv");
        std::uint64_t seen = 0;
        const std::unique_ptr<RecordReader> reader = openRecords(source);
        Evaluator evaluator(options, exchange, [&](std::uint64_t records, std::uint64_t) { seen = records; });
        Report report = evaluator.run(*reader);
        EXPECT_EQ(seen, std::count(texts.begin(), texts.end(), '\n'));
        return report;
    }

    support::TempDir folder;
    MemoryExchange exchange;
    EvaluateOptions options;
};

TEST_F(EvaluatorTest, MistakesAreKeptMostConfidentFirstWithTheWordsThatLedThere) {
    const std::string texts =
        "ham\tsee you\nham\tprize\nham\twin a prize now\nspam\tfive\nbad\nnews\tsee you at five\n";
    options.mistakes = 3;
    const Report report = evaluate(texts);
    EXPECT_EQ(report.metrics.texts, 5u);
    EXPECT_DOUBLE_EQ(report.metrics.accuracy, 0.2);
    ASSERT_EQ(report.mistakes.size(), 3u);
    for (std::size_t i = 0; i + 1 < 3; ++i) {
        EXPECT_GE(report.mistakes[i].outcome.confidence, report.mistakes[i + 1].outcome.confidence);
    }
    EXPECT_EQ(report.mistakes[0].place, "line 3");
    EXPECT_EQ(report.mistakes[0].words.at(0).className, "spam");
    EXPECT_EQ(report.mistakes[1].place, "line 6") << "of a class that the classifier doesn't know";
    EXPECT_EQ(report.mistakes[1].outcome.actualPart, 0);

    // The figures don't depend on how the texts are cut into requests.
    exchange.server.maxInput = 500;
    exchange.requests = 0;
    const Report again = evaluate(texts);
    EXPECT_GT(exchange.requests, 5);
    EXPECT_EQ(again.metrics.logLoss, report.metrics.logLoss);
    EXPECT_EQ(again.mistakes[0].text, report.mistakes[0].text);
}

TEST_F(EvaluatorTest, InputWithoutTextsAndRefusalsAreFailures) {
    const auto codeOf = [this](const std::string& texts) {
        try {
            evaluate(texts);
            return ExitCode::DONE;
        } catch (const Failure& failure) {
            return failure.code;
        }
    };
    EXPECT_EQ(codeOf("bad\n"), ExitCode::LOCAL_FILE);
    exchange.server.maxInput = 100;
    EXPECT_EQ(codeOf("ham\tx\nham\ty\n"), ExitCode::REFUSED);
    exchange.server.maxInput = 100000;
    options.classifier = "missing";
    EXPECT_EQ(codeOf("ham\tx\n"), ExitCode::REFUSED);
}

}  // namespace
}  // namespace halvern::morvane::client
