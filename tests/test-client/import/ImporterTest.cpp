#include "import/Importer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "Failure.h"
#include "io/filesystem/SaveFile.h"
#include "server/RequestWriter.h"
#include "support/ServerInMemory.h"
#include "support/StoredClassifier.h"
#include "support/TempDir.h"

namespace halvern::morvane::client {
namespace {

struct Killed {};

enum class Fault {
    NONE,
    LOST,           // the request never arrives
    UNANSWERED,     // it arrives, and the answer is lost
    CUT,            // half of the answer arrives
    LATE,           // it arrives when the client has given it up and gone on
    KILLED,         // the program ends before it has sent anything,
    KILLED_BEHIND,  // when the server has answered,
    KILLED_LATE,    // or when everything is sent and nothing has arrived
};
constexpr Fault FAULTS[] = {Fault::LOST,   Fault::UNANSWERED,    Fault::CUT,        Fault::LATE,
                            Fault::KILLED, Fault::KILLED_BEHIND, Fault::KILLED_LATE};

// The way to a server in memory, on which something happens to one exchange or another.
class FaultyExchange final : public Exchange {
public:
    explicit FaultyExchange(support::ServerInMemory& server) : server(server) {}

    support::ServerInMemory& server;
    std::function<Fault(int exchange)> fault = [](int) { return Fault::NONE; };
    std::function<void(int exchange)> before = [](int) {};
    int lateness = 1;  // in exchanges, for requests that arrive late
    int count = 0;

    std::string ask(const std::string& request) override {
        ++count;
        before(count);
        while (!_late.empty() && _late.front().first <= count) {
            server.answer(_late.front().second);
            _late.erase(_late.begin());
        }
        const Fault now = fault(count);
        if (now == Fault::LATE || now == Fault::KILLED_LATE) {
            _late.emplace_back(count + lateness, request);
        }
        std::string answer;
        if (now == Fault::NONE || now == Fault::UNANSWERED || now == Fault::CUT ||
            now == Fault::KILLED_BEHIND) {
            answer = server.answer(request);
        }
        switch (now) {
            case Fault::NONE:
                return answer;
            case Fault::CUT:
                // As Answer says of what it can't read.
                return answer.substr(0, answer.size() / 2);
            case Fault::LOST:
            case Fault::UNANSWERED:
            case Fault::LATE:
                throw Failure{ExitCode::UNREACHABLE, "The server broke off."};
            default:
                throw Killed();
        }
    }

private:
    std::vector<std::pair<int, std::string>> _late;
};

// Nothing here cuts the power, and thousands of journals that reach the disk take minutes.
class QuickSave final : public io::filesystem::SaveFile {
public:
    void save(const std::string& name, const util::Bytes& data, std::uint32_t) const override {
        support::writeFile(name, std::string(data.begin(), data.end()));
    }
};

class ImporterTest : public testing::Test {
protected:
    ImporterTest() {
        options.classifier = "c";
        options.create = true;
        options.batchTexts = 3;
        // Classes appear late, texts come twice, and one has no features at all.
        support::writeFile(input(),
                           "ham\tsee you at five\nspam\twin a prize now\nham\tsee you at five\nham\t\n"
                           "spam\tprize prize prize\nnews\tthe market fell again\nspam\twin a prize now\n"
                           "ham\tat the market\nnews\tprize for the market\nham\t...\nham\t \nham\t!!\n"
                           "ham\tfive more\n");
    }

    std::string input() const { return folder.file("texts.tsv"); }

    // One life of the program.
    ImportCounts importOnce(Exchange& exchange) {
        RecordSource source;
        source.path = input();
        const std::unique_ptr<RecordReader> reader = openRecords(source);
        const JournalFile file(folder.file("journal.json"), saver);
        Importer importer(
            options, exchange, *reader, file, file.load().value_or(Journal()),
            [](std::chrono::milliseconds) {}, [](const ImportCounts&) {});
        return importer.run();
    }

    // Lives on until the import is through.
    void importAll(FaultyExchange& exchange) {
        for (int life = 0; life < 200; ++life) {
            try {
                importOnce(exchange);
                return;
            } catch (const Killed&) {
            } catch (const Failure& failure) {
                ASSERT_EQ(failure.code, ExitCode::UNREACHABLE) << failure.message;
            }
        }
        FAIL() << "no end";
    }

    util::Bytes straight() {
        support::ServerInMemory server;
        FaultyExchange exchange(server);
        importOnce(exchange);
        exchanges = exchange.count;
        return server.stored("c");
    }

    ExitCode failureOf(Exchange& exchange) {
        try {
            importOnce(exchange);
        } catch (const Failure& failure) {
            message = failure.message;
            return failure.code;
        }
        return ExitCode::DONE;
    }

    void train(support::ServerInMemory& server, const std::string& className, const std::string& text) {
        RequestWriter request("c");
        request.train(className, request.addText(text));
        EXPECT_NE(server.answer(request.document()).find("\"2000\""), std::string::npos);
    }

    support::TempDir folder;
    const QuickSave saver;
    ImportOptions options;
    int exchanges = 0;
    std::string message;
};

TEST_F(ImporterTest, EachTextIsLearnedOnceWhereverAndHoweverTheImportIsCut) {
    const util::Bytes expected = straight();
    ASSERT_GT(exchanges, 10);
    for (const Fault fault : FAULTS) {
        const bool isLate = fault == Fault::LATE || fault == Fault::KILLED_LATE;
        for (int lateness = 1; lateness <= (isLate ? 5 : 1); ++lateness) {
            for (int place = 1; place <= exchanges; ++place) {
                SCOPED_TRACE("fault " + std::to_string(static_cast<int>(fault)) + " at " +
                             std::to_string(place) + ", late by " + std::to_string(lateness));
                support::ServerInMemory server;
                FaultyExchange exchange(server);
                exchange.fault = [&](int now) { return now == place ? fault : Fault::NONE; };
                exchange.lateness = lateness;
                importAll(exchange);
                ASSERT_EQ(server.stored("c"), expected);
                ASSERT_FALSE(std::filesystem::exists(folder.file("journal.json")));
            }
        }
    }
}

// Raising and removing the fence are requests too, and as easily lost.
TEST_F(ImporterTest, EachTextIsLearnedOnceIfTheWayOutOfAFaultIsCutToo) {
    const util::Bytes expected = straight();
    for (const Fault fault : FAULTS) {
        for (int place = 7; place <= exchanges + 8; ++place) {
            for (int lateness = 1; lateness <= 3; ++lateness) {
                SCOPED_TRACE("fault " + std::to_string(static_cast<int>(fault)) + " at " +
                             std::to_string(place) + ", late by " + std::to_string(lateness));
                support::ServerInMemory server;
                FaultyExchange exchange(server);
                exchange.fault = [&](int now) {
                    return now == 6 ? Fault::LOST : now == place ? fault : Fault::NONE;
                };
                exchange.lateness = lateness;
                importAll(exchange);
                ASSERT_EQ(server.stored("c"), expected);
            }
        }
    }
}

TEST_F(ImporterTest, EachTextIsLearnedOnceThroughAnySeriesOfFaults) {
    const util::Bytes expected = straight();
    for (unsigned seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        support::ServerInMemory server;
        FaultyExchange exchange(server);
        exchange.fault = [&](int) {
            return random() % 3 == 0 ? FAULTS[random() % std::size(FAULTS)] : Fault::NONE;
        };
        exchange.before = [&](int) { exchange.lateness = 1 + static_cast<int>(random() % 3); };
        importAll(exchange);
        ASSERT_EQ(server.stored("c"), expected);
    }
}

TEST_F(ImporterTest, BatchOfAnOldClassifierIsKnownAgainByItsOwnFeatures) {
    for (std::uint32_t generation = 3; generation <= 7; ++generation) {
        SCOPED_TRACE(generation);
        support::StoredClassifier old;
        old.extractorVersion = generation;
        const auto result = [&](Fault fault, int place) {
            support::ServerInMemory server;
            const util::Bytes bytes = old.bytes();
            server.files.put("root/c.dat", std::string(bytes.begin(), bytes.end()));
            FaultyExchange exchange(server);
            exchange.fault = [&](int now) { return now == place ? fault : Fault::NONE; };
            importAll(exchange);
            return server.stored("c");
        };
        EXPECT_EQ(result(Fault::UNANSWERED, 5), result(Fault::NONE, 0));
    }
}

// Somebody else's writes make the totals say nothing, and a guess could learn twice or never.
TEST_F(ImporterTest, OpenBatchIsLeftToAPersonIfSomebodyElseHasWritten) {
    const util::Bytes expected = [&] {
        support::ServerInMemory server;
        FaultyExchange exchange(server);
        exchange.before = [&](int now) {
            if (now == 6) {
                train(server, "ham", "by hand");
            }
        };
        importOnce(exchange);
        return server.stored("c");
    }();
    for (const auto& [fault, truth, lie] : {std::tuple(Fault::KILLED_BEHIND, "taken", "not-taken"),
                                            std::tuple(Fault::KILLED, "not-taken", "taken")}) {
        SCOPED_TRACE(truth);
        support::ServerInMemory server;
        FaultyExchange exchange(server);
        exchange.fault = [fault = fault](int now) { return now == 6 ? fault : Fault::NONE; };
        EXPECT_THROW(importOnce(exchange), Killed);
        train(server, "ham", "by hand");
        EXPECT_EQ(failureOf(exchange), ExitCode::DIFFERENT);
        EXPECT_NE(message.find("somebody else has written"), std::string::npos) << message;
        options.assume = truth;
        EXPECT_EQ(failureOf(exchange), ExitCode::DONE) << message;
        EXPECT_EQ(server.stored("c"), expected);
        options.assume.clear();
    }
}

TEST_F(ImporterTest, ClassifierThatIsRemovedInBetweenIsNotMadeAgain) {
    support::ServerInMemory server;
    FaultyExchange exchange(server);
    exchange.fault = [](int now) { return now == 6 ? Fault::KILLED_BEHIND : Fault::NONE; };
    EXPECT_THROW(importOnce(exchange), Killed);
    RequestWriter request("c");
    request.remove();
    server.answer(request.document());
    EXPECT_EQ(failureOf(exchange), ExitCode::DIFFERENT);

    options.create = false;
    std::filesystem::remove(folder.file("journal.json"));
    EXPECT_EQ(failureOf(exchange), ExitCode::REFUSED) << "nobody asked for it to be made";
}

TEST_F(ImporterTest, BatchesShrinkUntilTheServerTakesThem) {
    const util::Bytes expected = straight();
    options.batchTexts = 1000;
    for (const std::size_t maxInput : {700u, 900u, 1500u}) {
        SCOPED_TRACE(maxInput);
        support::ServerInMemory server;
        server.maxInput = maxInput;
        FaultyExchange exchange(server);
        const ImportCounts counts = importOnce(exchange);
        EXPECT_GT(counts.refusals, 0u);
        EXPECT_EQ(counts.texts, 13u);
        EXPECT_EQ(server.stored("c"), expected);
    }
}

TEST_F(ImporterTest, TextThatNoRequestCanHoldIsNamedOrPassedOver) {
    const util::Bytes expected = straight();
    const std::string texts = support::readFile(input());
    support::writeFile(input(), "ham\t" + std::string(5000, 'x') + "\n" + texts + "bad\n");
    for (const Fault fault : {Fault::NONE, Fault::KILLED, Fault::KILLED_BEHIND}) {
        for (int place = 1; place <= 12; ++place) {
            SCOPED_TRACE(place);
            support::ServerInMemory server;
            server.maxInput = 2000;
            FaultyExchange exchange(server);
            options.skipBad = false;
            ASSERT_EQ(failureOf(exchange), ExitCode::REFUSED);
            EXPECT_NE(message.find("line 1 "), std::string::npos) << message;
            options.skipBad = true;
            exchange.count = 0;
            exchange.fault = [&](int now) { return now == place ? fault : Fault::NONE; };
            importAll(exchange);
            EXPECT_EQ(server.stored("c"), expected);
        }
    }
}

TEST_F(ImporterTest, FailingServerIsAskedAgainAndThenGivenUpWithTheJournalInPlace) {
    struct FailingServer final : Exchange {
        FailingServer(Exchange& next, int failures, std::int32_t status)
            : next(next), failures(failures), status(status) {}
        Exchange& next;
        int failures;
        const std::int32_t status;
        std::string ask(const std::string& request) override {
            const bool isBatch = request.find("<train") != std::string::npos;
            return isBatch && --failures >= 0 ? support::ServerInMemory::refusal(status, "Not now.")
                                              : next.ask(request);
        }
    };
    const util::Bytes expected = straight();
    options.retries = 2;
    const auto [internal, memory, request] = std::tuple(5000, 5030, 4000);
    for (const auto& [status, failures, code] :
         {std::tuple(internal, 2, ExitCode::DONE), std::tuple(memory, 2, ExitCode::DONE),
          std::tuple(internal, 3, ExitCode::REFUSED), std::tuple(request, 1, ExitCode::DONE),
          std::tuple(request, 2, ExitCode::REFUSED)}) {
        SCOPED_TRACE(std::to_string(status) + " " + std::to_string(failures));
        support::ServerInMemory server;
        FaultyExchange sound(server);
        FailingServer exchange(sound, failures, status);
        EXPECT_EQ(failureOf(exchange), code) << message;
        if (code != ExitCode::DONE) {
            importOnce(exchange);
        }
        EXPECT_EQ(server.stored("c"), expected);
    }
}

TEST(JournalTest, JournalComesBackAsItWasAndBelongsToOneProcess) {
    support::TempDir folder;
    const io::filesystem::SaveFileImpl saver;
    const std::string path = folder.file("a/b/journal.json");
    // What a kill leaves of a save: of this journal, and of another one.
    const std::string unfinished = folder.file("a/b/.journal.json.a1b2c3.tmp");
    const std::string others = folder.file("a/b/.journal2.json.a1b2c3.tmp");
    {
        const JournalFile file(path, saver);
        EXPECT_FALSE(file.load());
        support::writeFile(unfinished, "");
        support::writeFile(others, "");
        EXPECT_THROW(JournalFile second(path, saver), Failure);
        Journal journal;
        journal.fingerprint = "12";
        journal.records = std::uint64_t{1} << 40;
        journal.open = OpenBatch{7, 1, "guard", {{"caf\xc3\xa9 \"x\"", 5, 4294967295}}};
        journal.fences = {{"guard", 1700000000}};
        file.save(journal);
        const Journal loaded = file.load().value();
        EXPECT_EQ(loaded.records, journal.records);
        EXPECT_EQ(loaded.fences.at(0).className, "guard");
        EXPECT_EQ(loaded.open->before.at(0).className, "caf\xc3\xa9 \"x\"");
        EXPECT_EQ(loaded.open->before.at(0).totalCount, 4294967295u);
    }
    EXPECT_TRUE(std::filesystem::exists(unfinished));
    const JournalFile file(path, saver);
    EXPECT_TRUE(std::filesystem::remove(others));
    for (const char* content : {"", "{", "[]", "{\"version\": 1}", "{\"version\": 2}"}) {
        support::writeFile(path, content);
        EXPECT_THROW(file.load(), Failure) << content;
    }
    file.remove();
    EXPECT_TRUE(std::filesystem::is_empty(folder.file("a/b")));
}

TEST(JournalTest, PlaceDependsOnServerClassifierAndInput) {
    const Environment environment = [](const std::string& name) -> std::optional<std::string> {
        return name == "HOME" ? std::optional<std::string>("/home/u") : std::nullopt;
    };
    const std::string path = journalPath(environment, "s", "c", "i");
    EXPECT_TRUE(path.starts_with("/home/u/.local/state/morvane/")) << path;
    EXPECT_NE(journalPath(environment, "s", "ci", ""), path);
    const Environment other = [](const std::string& name) -> std::optional<std::string> {
        return name == "HOME" ? "/home/u" : "/state";
    };
    EXPECT_TRUE(journalPath(other, "s", "c", "i").starts_with("/state/morvane/"));
}

}  // namespace
}  // namespace halvern::morvane::client
