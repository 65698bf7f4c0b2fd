#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <thread>

#include "server/BadRequestException.h"
#include "server/ClassifierTransaction.h"
#include "server/ReadAccess.h"
#include "support/ClassifierTable.h"

namespace halvern::morvane {
namespace {

// Threads create, change, remove and read the same two classifiers while every load evicts whatever it may.
// Each commit changes the disk once, under the writer lock, so the changes of the disk are the order in which
// the sequences happened. Every answer that a thread got must fit into that order, at a place between the
// call and its return.
class WriteSequencesTest : public testing::Test, public support::ClassifierTable {
protected:
    enum class Fact {
        CONTENT,         // the classifier had this content
        REMOVED_ITSELF,  // the classifier had this content when this thread removed it
        EXISTED,
        DID_NOT_EXIST,
    };
    struct Answer {
        std::string file;
        std::size_t from;  // how many changes the disk had seen before the call, and behind it
        std::size_t to;
        Fact fact;
        std::string content;
    };

    static constexpr int THREADS = 6;
    static constexpr int ROUNDS = 600;
    static inline const std::string NONE = "none";

    static std::string join(const std::vector<std::string>& classes) {
        std::string all = "classes";
        for (const std::string& each : classes) {
            all += " " + each;
        }
        return all;
    }

    // One random sequence or read; gives the fact that its answer states.
    std::pair<Fact, std::string> runOne(std::mt19937& random, const std::string& name,
                                        const std::string& id) {
        const auto step = random() % 8;
        if (step == 0) {
            const ReadAccess access(table, name);
            return {Fact::CONTENT, join(classesOf(*access))};
        }
        ClassifierTransactionImpl sequence(table, name);
        if (step == 1 || step == 2 || step == 3) {
            sequence.create();
            sequence.get().addClass(id);
            std::this_thread::yield();
            if (step == 1) {
                sequence.commit();
            } else if (step == 2) {
                sequence.remove();
            }
            return {Fact::DID_NOT_EXIST, ""};
        }
        if (step == 4) {
            sequence.remove();
            sequence.commit();
            return {Fact::DID_NOT_EXIST, ""};
        }
        const std::string content = join(classesOf(sequence.get()));
        if (step == 5) {
            sequence.remove();
            std::this_thread::yield();
            sequence.commit();
            return {Fact::REMOVED_ITSELF, content};
        }
        sequence.get().addClass(id);
        if (step == 6) {
            sequence.commit();
        }
        return {Fact::CONTENT, content};
    }

    std::vector<Answer> runMany(unsigned thread) {
        std::mt19937 random(thread);
        std::vector<Answer> answers;
        for (int round = 0; round < ROUNDS; ++round) {
            const std::string file = random() % 2 == 0 ? "root/a.dat" : "root/b.dat";
            const std::string name =
                random() % 2 == 0 ? file : "root/" + std::string(file[5] == 'a' ? "A" : "B") + ".dat";
            const std::size_t from = files.changeCount();
            std::pair<Fact, std::string> fact;
            try {
                fact = runOne(random, name, std::to_string(thread) + ":" + std::to_string(round));
            } catch (const ClassifierExistsException&) {
                fact.first = Fact::EXISTED;
            } catch (const ClassifierNotFoundException&) {
                fact.first = Fact::DID_NOT_EXIST;
            }
            answers.push_back({file, from, files.changeCount(), fact.first, fact.second});
        }
        return answers;
    }
};

TEST_F(WriteSequencesTest, EveryAnswerFitsOneOrderOfTheSequences) {
    memory.script = [] { return 0; };
    std::vector<std::vector<Answer>> answers(THREADS);
    std::vector<std::thread::id> ids(THREADS);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < THREADS; ++i) {
        threads.emplace_back([this, i, &answers] { answers[i] = runMany(i); });
        ids[i] = threads.back().get_id();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    // states[file][i]: the content behind the first i changes of the disk.
    const auto changes = files.changes();
    std::map<std::string, std::vector<std::string>> states;
    for (const char* file : {"root/a.dat", "root/b.dat"}) {
        std::vector<std::string>& all = states[file];
        all.push_back(NONE);
        for (const auto& change : changes) {
            std::string next = all.back();
            if (change.name == file) {
                next = change.removed ? NONE : join(classesIn(change.data));
                if (!change.removed) {
                    // Each commit adds one class to what the one before it left.
                    const std::string before = all.back() == NONE ? join({}) : all.back();
                    EXPECT_EQ(next.substr(0, next.rfind(' ')), before);
                }
            }
            all.push_back(next);
        }
        EXPECT_GT(std::count(all.begin(), all.end(), NONE), 1);
    }
    std::map<Fact, int> seen;
    for (unsigned i = 0; i < THREADS; ++i) {
        for (const Answer& answer : answers[i]) {
            const std::vector<std::string>& all = states[answer.file];
            bool fits = false;
            for (std::size_t at = answer.from; at <= answer.to && !fits; ++at) {
                switch (answer.fact) {
                    case Fact::CONTENT:
                        fits = all[at] == answer.content;
                        break;
                    case Fact::REMOVED_ITSELF:
                        fits = at > answer.from && changes[at - 1].by == ids[i] && changes[at - 1].removed &&
                               all[at - 1] == answer.content;
                        break;
                    case Fact::EXISTED:
                        fits = all[at] != NONE;
                        break;
                    case Fact::DID_NOT_EXIST:
                        fits = all[at] == NONE;
                        break;
                }
            }
            ++seen[answer.fact];
            EXPECT_TRUE(fits) << "thread " << i << ", fact " << static_cast<int>(answer.fact) << " of "
                              << answer.file << " '" << answer.content << "' between changes " << answer.from
                              << " and " << answer.to;
        }
    }
    EXPECT_EQ(seen.size(), 4u);
}

}  // namespace
}  // namespace halvern::morvane
