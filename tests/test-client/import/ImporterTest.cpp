#include "import/Importer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "io/filesystem/SaveFile.h"
#include "server/RequestWriter.h"
#include "support/ClientRun.h"
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
    REFUSED,        // with a status
};
constexpr Fault CUTS[] = {Fault::LOST,   Fault::UNANSWERED,    Fault::CUT,        Fault::LATE,
                          Fault::KILLED, Fault::KILLED_BEHIND, Fault::KILLED_LATE};

bool isLate(Fault fault) { return fault == Fault::LATE || fault == Fault::KILLED_LATE; }

// The way to a server in memory, on which something happens to one exchange or another.
struct FaultyExchange final : Exchange {
    support::ServerInMemory server;
    std::function<Fault(int exchange)> fault = [](int) { return Fault::NONE; };
    int lateness = 1;  // in exchanges, for requests that arrive late
    std::int32_t status = 0;
    int count = 0;
    std::string request;
    std::vector<std::pair<int, std::string>> late;

    std::string ask(const std::string& asked) override {
        request = asked;
        const Fault now = fault(++count);
        while (!late.empty() && late.front().first <= count) {
            server.answer(late.front().second);
            late.erase(late.begin());
        }
        std::string answer;
        if (isLate(now)) {
            late.emplace_back(count + lateness, request);
        } else if (now == Fault::REFUSED) {
            return support::ServerInMemory::refusal(status, "Not now.");
        } else if (now != Fault::LOST && now != Fault::KILLED) {
            answer = server.answer(request);
        }
        switch (now) {
            case Fault::NONE:
                return answer;
            case Fault::CUT:
                return answer.substr(0, answer.size() / 2);
            case Fault::LOST:
            case Fault::UNANSWERED:
            case Fault::LATE:
                throw Failure{ExitCode::UNREACHABLE, "The server broke off."};
            default:
                throw Killed();
        }
    }
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
        const std::unique_ptr<RecordReader> reader = openRecords({.path = input()});
        const JournalFile file(folder.file("journal.json"), saver);
        Importer importer(
            options, exchange, *reader, file, file.load().value_or(Journal()),
            [](std::chrono::milliseconds) {}, [](const ImportCounts&) {});
        return importer.run();
    }

    // How it ends.
    ExitCode end(Exchange& exchange) {
        const Failure failure = support::clientFailureOf([&] { importOnce(exchange); });
        message = failure.message;
        return failure.code;
    }

    // What the server has learned when the import is through, after however many lives.
    util::Bytes learned(FaultyExchange& exchange) {
        ExitCode code = ExitCode::UNREACHABLE;
        for (int life = 0; life < 200 && code == ExitCode::UNREACHABLE; ++life) {
            try {
                code = end(exchange);
            } catch (const Killed&) {
            }
        }
        EXPECT_EQ(code, ExitCode::DONE) << message;
        EXPECT_FALSE(std::filesystem::exists(folder.file("journal.json")));
        return exchange.server.stored("c");
    }

    util::Bytes straight() {
        FaultyExchange exchange;
        const util::Bytes all = learned(exchange);
        exchanges = exchange.count;
        return all;
    }

    void trainByHand(support::ServerInMemory& server) {
        RequestWriter request("c");
        request.train("ham", request.addText("by hand"));
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
    // Raising and removing the fence are requests too, and as easily lost: the way out of a fault is cut as
    // well.
    for (const bool isCutBefore : {false, true}) {
        for (const Fault fault : CUTS) {
            for (int lateness = 1; lateness <= (isLate(fault) ? 5 : 1); ++lateness) {
                for (int place = 1; place <= exchanges + (isCutBefore ? 8 : 0); ++place) {
                    SCOPED_TRACE("fault " + std::to_string(static_cast<int>(fault)) + " at " +
                                 std::to_string(place) + ", late by " + std::to_string(lateness) +
                                 (isCutBefore ? ", behind another" : ""));
                    FaultyExchange exchange;
                    exchange.fault = [&](int now) {
                        return now == place ? fault : isCutBefore && now == 6 ? Fault::LOST : Fault::NONE;
                    };
                    exchange.lateness = lateness;
                    ASSERT_EQ(learned(exchange), expected);
                }
            }
        }
    }
}

TEST_F(ImporterTest, EachTextIsLearnedOnceThroughAnySeriesOfFaults) {
    const util::Bytes expected = straight();
    for (unsigned seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        FaultyExchange exchange;
        exchange.fault = [&](int) {
            exchange.lateness = 1 + static_cast<int>(random() % 3);
            return random() % 3 == 0 ? CUTS[random() % std::size(CUTS)] : Fault::NONE;
        };
        ASSERT_EQ(learned(exchange), expected);
    }
}

TEST_F(ImporterTest, BatchOfAnOldClassifierIsKnownAgainByItsOwnFeatures) {
    for (std::uint32_t generation = 3; generation <= 7; ++generation) {
        const util::Bytes old = support::StoredClassifier{.extractorVersion = generation}.bytes();
        const auto result = [&](Fault fault) {
            FaultyExchange exchange;
            exchange.server.files.put("root/c.dat", std::string(old.begin(), old.end()));
            exchange.fault = [=](int now) { return now == 5 ? fault : Fault::NONE; };
            return learned(exchange);
        };
        EXPECT_EQ(result(Fault::UNANSWERED), result(Fault::NONE)) << generation;
    }
}

// Somebody else's writes make the totals say nothing, and a guess could learn twice or never.
TEST_F(ImporterTest, OpenBatchIsLeftToAPersonIfSomebodyElseHasWritten) {
    FaultyExchange undisturbed;
    undisturbed.fault = [&](int now) {
        if (now == 6) {
            trainByHand(undisturbed.server);
        }
        return Fault::NONE;
    };
    const util::Bytes expected = learned(undisturbed);
    for (const auto& [fault, truth] :
         {std::pair(Fault::KILLED_BEHIND, "taken"), std::pair(Fault::KILLED, "not-taken")}) {
        SCOPED_TRACE(truth);
        FaultyExchange exchange;
        exchange.fault = [fault = fault](int now) { return now == 6 ? fault : Fault::NONE; };
        EXPECT_THROW(importOnce(exchange), Killed);
        trainByHand(exchange.server);
        EXPECT_EQ(end(exchange), ExitCode::DIFFERENT);
        EXPECT_NE(message.find("somebody else has written"), std::string::npos) << message;
        options.assume = truth;
        EXPECT_EQ(learned(exchange), expected);
        options.assume.clear();
    }
}

TEST_F(ImporterTest, ClassifierThatIsRemovedInBetweenIsNotMadeAgain) {
    FaultyExchange exchange;
    exchange.fault = [](int now) { return now == 6 ? Fault::KILLED_BEHIND : Fault::NONE; };
    EXPECT_THROW(importOnce(exchange), Killed);
    RequestWriter request("c");
    request.remove();
    exchange.server.answer(request.document());
    EXPECT_EQ(end(exchange), ExitCode::DIFFERENT);
    EXPECT_FALSE(exchange.server.files.exists("root/c.dat"));
}

TEST_F(ImporterTest, TextThatNoRequestCanHoldIsNamedOrPassedOver) {
    const util::Bytes expected = straight();
    const std::string texts = support::readFile(input());
    const std::string withLarge = "ham\t" + std::string(5000, 'x') + "\n" + texts;
    options.batchTexts = 1000;
    for (const int maxInput : {700, 900, 1500, 2000}) {
        SCOPED_TRACE(maxInput);
        FaultyExchange exchange;
        exchange.server.maxInput = static_cast<std::size_t>(maxInput);
        options.skipBad = false;
        support::writeFile(input(), withLarge);
        EXPECT_EQ(end(exchange), ExitCode::REFUSED);
        EXPECT_NE(message.find("line 1 "), std::string::npos) << message;
        options.skipBad = true;
        support::writeFile(input(), withLarge + "bad\n");
        const ImportCounts counts = importOnce(exchange);
        EXPECT_EQ(counts.texts, 13u);
        EXPECT_EQ(counts.skipped, 2u);
        EXPECT_EQ(exchange.server.stored("c"), expected);
        for (int place = 1; place <= 12; ++place) {
            FaultyExchange cut;
            cut.server.maxInput = exchange.server.maxInput;
            cut.fault = [&](int now) {
                return now != place ? Fault::NONE : maxInput < 1000 ? Fault::KILLED : Fault::KILLED_BEHIND;
            };
            EXPECT_EQ(learned(cut), expected) << place;
        }
    }
}

TEST_F(ImporterTest, FailingServerIsAskedAgainAndThenGivenUpWithTheJournalInPlace) {
    const util::Bytes expected = straight();
    options.retries = 2;
    const std::tuple<std::int32_t, int, ExitCode> rows[] = {
        {5000, 2, ExitCode::DONE}, {5030, 2, ExitCode::DONE},    {5000, 3, ExitCode::REFUSED},
        {4000, 1, ExitCode::DONE}, {4000, 2, ExitCode::REFUSED},
    };
    for (const auto& [status, failures, code] : rows) {
        SCOPED_TRACE(std::to_string(status) + " " + std::to_string(failures));
        FaultyExchange exchange;
        exchange.status = status;
        exchange.fault = [&, left = failures](int) mutable {
            const bool isBatch = exchange.request.find("<train") != std::string::npos;
            return isBatch && --left >= 0 ? Fault::REFUSED : Fault::NONE;
        };
        EXPECT_EQ(end(exchange), code) << message;
        EXPECT_EQ(code == ExitCode::DONE ? exchange.server.stored("c") : learned(exchange), expected);
    }
}

TEST(JournalTest, BelongsToOneProcessAndIsReadOnlyIfItIsSound) {
    const support::TempDir folder;
    const io::filesystem::SaveFileImpl saver;
    const std::string path = folder.file("a/b/journal.json");
    // What a kill leaves of a save: of this journal, and of another one.
    const std::string unfinished = folder.file("a/b/.journal.json.a1b2c3.tmp");
    const std::string others = folder.file("a/b/.journal2.json.a1b2c3.tmp");
    std::filesystem::create_directories(folder.file("a/b"));
    support::writeFile(unfinished, "");
    support::writeFile(others, "");
    const JournalFile file(path, saver);
    EXPECT_FALSE(file.load());
    EXPECT_FALSE(std::filesystem::exists(unfinished));
    EXPECT_TRUE(std::filesystem::remove(others));
    support::writeFile(unfinished, "");
    EXPECT_THROW(JournalFile second(path, saver), Failure);
    EXPECT_TRUE(std::filesystem::remove(unfinished)) << "It is the other process's";
    Journal journal;
    journal.records = std::uint64_t{1} << 40;
    journal.open = OpenBatch{7, 1, "guard", {{"caf\xc3\xa9 \"x\"", 5, 4294967295}}};
    file.save(journal);
    EXPECT_EQ(file.load()->records, journal.records);
    EXPECT_EQ(file.load()->open->before.at(0).className, "caf\xc3\xa9 \"x\"");
    EXPECT_EQ(file.load()->open->before.at(0).totalCount, 4294967295u);
    for (const char* content : {"", "[]", "{\"version\": 1}", "{\"version\": 2}"}) {
        support::writeFile(path, content);
        EXPECT_THROW(file.load(), Failure) << content;
    }
    file.remove();
    EXPECT_TRUE(std::filesystem::is_empty(folder.file("a/b")));
}

TEST(JournalTest, PlaceDependsOnServerClassifierAndInput) {
    const auto pathWith = [](const char* state, const std::string& classifier, const std::string& in) {
        return journalPath(
            [=](const std::string& name) {
                return std::optional<std::string>(name == "HOME" ? "/home/u" : state);
            },
            "s", classifier, in);
    };
    EXPECT_TRUE(pathWith("relative", "c", "i").starts_with("/home/u/.local/state/morvane/"));
    EXPECT_TRUE(pathWith("/state", "c", "i").starts_with("/state/morvane/"));
    EXPECT_NE(pathWith("", "ci", ""), pathWith("", "c", "i"));
}

}  // namespace
}  // namespace halvern::morvane::client
